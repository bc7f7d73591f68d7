// Runs one conversion of one message a given number of times, for callgrind to count the
// instructions:
//   bench_instr DIRECTION FILE.uper ITERATIONS
//   bench_instr mapem-lanes LANES SEED OUT.uper      (writes a MAPEM with that many lanes)
// DIRECTION is to_json, from_json, to_xml or from_xml; the message type is read from the
// second octet of the header (message identifier). from_json and from_xml read the library's
// own text of the same message, made once before the loop. A run of 1 and a run of N+1
// iterations differ by N conversions and nothing else.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <string>

#include "rtpersrc/asn1per.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "src/etsiConversions.h"
#include "src/etsi_v2x.h"

namespace {

typedef etsi::ToText ToText;
typedef etsi::FromText FromText;

bool readFile(const char* path, std::string* out)
{
   std::ifstream in(path, std::ios::binary);
   if (!in) return false;
   out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
   return true;
}

int fail(const char* what, char* err)
{
   fprintf(stderr, "bench_instr: %s: %s\n", what, err ? err : "");
   etsi_delete_array(err);
   return 1;
}

// A MAPEM whose first intersection has `lanes` random lanes (values that survive the text
// forms), the rest as in a random MAPEM of the same seed.
int makeMapem(int lanes, uint64_t seed, const char* outPath)
{
   for (uint64_t attempt = 0; attempt < 1000; attempt++) {
      Asn1Random r(seed + attempt);
      r.textSafe = true;
      QSCTXT c;
      if (rtxInitContext(&c) != 0) return 1;
      ASN1T_MAPEM& v = *new (rtxMemHeapAlloc(&c, sizeof(ASN1T_MAPEM))) ASN1T_MAPEM();
      asn1Rand_MAPEM(r, &c, &v);
      v.header.protocolVersion = 2;
      v.header.messageID = (ASN1T_ITS_ItsPduHeader_messageID)5;
      ASN1T_ETSI_DSRC_IntersectionGeometry* ig = new (rtxMemHeapAlloc(&c, sizeof(ASN1T_ETSI_DSRC_IntersectionGeometry)))
         ASN1T_ETSI_DSRC_IntersectionGeometry();
      asn1Rand_ETSI_DSRC_IntersectionGeometry(r, &c, ig);
      rtxDListInit(&ig->laneSet);
      for (int i = 0; i < lanes; i++) {
         ASN1T_ETSI_DSRC_GenericLane* lane = new (rtxMemHeapAlloc(&c, sizeof(ASN1T_ETSI_DSRC_GenericLane)))
            ASN1T_ETSI_DSRC_GenericLane();
         asn1Rand_ETSI_DSRC_GenericLane(r, &c, lane);
         lane->laneID = (ASN1T_ETSI_DSRC_LaneID)i;
         rtxDListAppend(&c, &ig->laneSet, lane);
      }
      rtxDListInit(&v.map.intersections);
      rtxDListAppend(&c, &v.map.intersections, ig);
      v.map.m.intersectionsPresent = 1;
      int ok = !r.spoiled && pu_setBuffer(&c, nullptr, 0, 0) == 0 && asn1PE_MAPEM(&c, &v) == 0;
      if (ok) {
         std::string bytes((const char*)c.buffer.data, (size_t)pu_getMsgLen(&c));
         char* out = nullptr;
         char* err = nullptr;
         // Only messages that go through both text forms and back.
         size_t len = 0;
         ok = etsi_MAPEM_to_json(bytes.data(), bytes.size(), &out, &err, false) == 0;
         char* back = nullptr;
         if (ok) ok = etsi_MAPEM_from_json(out, &back, &len, &err, false) == 0 && len == bytes.size() &&
                      memcmp(back, bytes.data(), len) == 0;
         etsi_delete_array(out);
         etsi_delete_array(back);
         etsi_delete_array(err);
         if (ok) {
            FILE* f = fopen(outPath, "wb");
            if (f == nullptr || fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) return 1;
            fclose(f);
            rtxFreeContext(&c);
            return 0;
         }
      }
      rtxFreeContext(&c);
   }
   fprintf(stderr, "bench_instr: no MAPEM with %d lanes found\n", lanes);
   return 1;
}

}  // namespace

int main(int argc, char** argv)
{
   if (argc == 5 && strcmp(argv[1], "mapem-lanes") == 0)
      return makeMapem(atoi(argv[2]), strtoull(argv[3], nullptr, 10), argv[4]);
   if (argc != 4) {
      fprintf(stderr, "usage: bench_instr to_json|from_json|to_xml|from_xml FILE.uper ITERATIONS\n"
                      "       bench_instr mapem-lanes LANES SEED OUT.uper\n");
      return 2;
   }
   std::string dir = argv[1];
   std::string uper;
   if (!readFile(argv[2], &uper) || uper.size() < 2) {
      fprintf(stderr, "bench_instr: cannot read %s\n", argv[2]);
      return 1;
   }
   long n = atol(argv[3]);
   const etsi::Conversions* conv = etsi::conversionsOfId((unsigned char)uper[1]);
   if (conv == nullptr) {
      fprintf(stderr, "bench_instr: unknown message identifier %d\n", (unsigned char)uper[1]);
      return 1;
   }
   bool json = dir == "to_json" || dir == "from_json";
   ToText to = json ? conv->toJson : conv->toXml;
   FromText from = json ? conv->fromJson : conv->fromXml;
   if (dir == "to_json" || dir == "to_xml") {
      for (long i = 0; i < n; i++) {
         char* out = nullptr;
         char* err = nullptr;
         if (to(uper.data(), uper.size(), &out, &err, false) != 0) return fail("conversion failed", err);
         etsi_delete_array(out);
      }
      return 0;
   }
   if (dir != "from_json" && dir != "from_xml") {
      fprintf(stderr, "bench_instr: unknown direction %s\n", argv[1]);
      return 2;
   }
   char* text = nullptr;
   char* err = nullptr;
   if (to(uper.data(), uper.size(), &text, &err, false) != 0) return fail("no text of the message", err);
   for (long i = 0; i < n; i++) {
      char* out = nullptr;
      size_t len = 0;
      if (from(text, &out, &len, &err, false) != 0) return fail("conversion failed", err);
      etsi_delete_array(out);
   }
   etsi_delete_array(text);
   return 0;
}
