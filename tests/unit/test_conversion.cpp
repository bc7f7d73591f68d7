// The exported conversions, end to end: the corpus, random messages, the exact JSON layout,
// the reader's tolerance and errors, tracing, threads, and the shared library's exports.
#include <gtest/gtest.h>

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "rtjsonsrc/QSJSONMessageBuffer.h"
#include "src/etsi/RTCMEM-PDU-Descriptions.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "src/etsiDrivers.h"
#include "src/etsi_v2x.h"
#include "tests/support/textConversions.h"

namespace {

struct Conversions {
   ToText toJson;
   FromText fromJson;
};

const std::map<std::string, Conversions>& conversions()
{
   static const std::map<std::string, Conversions> m = {
      { "CAM", { etsi_CAM_to_json, etsi_CAM_from_json } },
      { "DENM", { etsi_DENM_to_json, etsi_DENM_from_json } },
      { "SPATEM", { etsi_SPATEM_to_json, etsi_SPATEM_from_json } },
      { "MAPEM", { etsi_MAPEM_to_json, etsi_MAPEM_from_json } },
      { "IVIM", { etsi_IVIM_to_json, etsi_IVIM_from_json } },
      { "SREM", { etsi_SREM_to_json, etsi_SREM_from_json } },
      { "SSEM", { etsi_SSEM_to_json, etsi_SSEM_from_json } },
      // Not exported, but the same drivers serve it through its control class.
      { "RTCMEM", { etsi::to_text<ASN1T_RTCMEM, ASN1X_RTCMEM, QSJSONEncodeBuffer>,
                    etsi::from_text<ASN1T_RTCMEM, ASN1X_RTCMEM, QSJSONDecodeBuffer> } },
   };
   return m;
}

void toJson(const std::string& msg, const std::string& bytes, Result* r, bool trace = false)
{
   r->status = conversions().at(msg).toJson(bytes.data(), bytes.size(), &r->out, &r->err, trace);
}

void fromJson(const std::string& msg, const std::string& text, Result* r, bool trace = false)
{
   r->status = conversions().at(msg).fromJson(text.c_str(), &r->out, &r->outLen, &r->err, trace);
}

// ---- the corpus --------------------------------------------------------------------------------

bool hasUnknownAddition(const std::string& json) { return json.find("\"_ext_") != std::string::npos; }

void jsonForm(const std::string& type, ToText* to, FromText* from)
{
   auto it = conversions().find(type);
   if (it == conversions().end()) return;
   *to = it->second.toJson;
   *from = it->second.fromJson;
}

// An unknown extension addition is written as "_ext_N" with its bytes in hex; read back, that
// member is an unknown member kept as JSON text.
TEST(ConversionCorpus, PerToJsonAndBack)
{
   corpusRoundTrip("json", jsonForm, hasUnknownAddition);
}

// A regional extension of a region other than 3 read from PER holds raw PER octets, which are
// not JSON text: writing it as JSON fails with the value recogniser's status.
TEST(ConversionCorpus, UnknownRegionFailsJsonEncoding)
{
   const EtsiTestType* mapem = nullptr;
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (std::string(etsiTestTypes[i].name) == "MAPEM") mapem = &etsiTestTypes[i];
   ASSERT_NE(mapem, nullptr);
   // regionId 7 in MapData.regional with three octets of raw content.
   QSCTXT c;
   ASSERT_EQ(rtxInitContext(&c), 0);
   ASN1T_MAPEM* v = (ASN1T_MAPEM*)mapem->make(&c);
   v->header.protocolVersion = 2;
   v->header.messageID = 5;
   v->map.msgIssueRevision = 1;
   v->map.m.regionalPresent = 1;
   ASN1T_ETSI_DSRC_MapData_regional_element* e =
      new (rtxMemHeapAlloc(&c, sizeof(ASN1T_ETSI_DSRC_MapData_regional_element))) ASN1T_ETSI_DSRC_MapData_regional_element();
   e->regionId = 7;
   static const QSOCTET raw[] = { 0x80, 0x01, 0xFF };
   static ASN1TOpenType ot = { 3, raw };
   e->regExtValue.u.extElem1 = &ot;
   rtxDListAppend(&c, &v->map.regional, e);
   ASSERT_EQ(pu_setBuffer(&c, nullptr, 0, 0), 0);
   ASSERT_EQ(mapem->encode(&c, v), 0);
   std::string bytes((const char*)c.buffer.data, pu_getMsgLen(&c));
   rtxFreeContext(&c);
   Result j;
   toJson("MAPEM", bytes, &j);
   EXPECT_LT(j.status, 0);
   EXPECT_EQ(j.out, nullptr);
   EXPECT_EQ(j.error().rfind("ERROR: Status ", 0), 0u);
}

// ---- random messages ---------------------------------------------------------------------------

TEST(ConversionRandom, PerToJsonToPerIsByteIdentical)
{
   for (size_t i = 0; i < etsiTestTypeCount; i++) {
      const EtsiTestType& t = etsiTestTypes[i];
      if (!t.message) continue;
      Asn1Random r(4242 + i);
      r.textSafe = true;
      int done = 0;
      for (int attempt = 0; done < 500 && attempt < 5000; attempt++) {
         QSCTXT c;
         ASSERT_EQ(rtxInitContext(&c), 0);
         r.spoiled = false;
         void* v = t.make(&c);
         t.rand(r, &c, v);
         std::string bytes;
         if (!r.spoiled) {
            ASSERT_EQ(pu_setBuffer(&c, nullptr, 0, 0), 0);
            ASSERT_EQ(t.encode(&c, v), 0) << t.name;
            bytes.assign((const char*)c.buffer.data, pu_getMsgLen(&c));
         }
         rtxFreeContext(&c);
         if (r.spoiled) continue;
         done++;
         Result j;
         toJson(t.name, bytes, &j);
         ASSERT_EQ(j.status, 0) << t.name << " " << hex(bytes) << "\n" << j.error();
         Result p;
         fromJson(t.name, j.text(), &p);
         ASSERT_EQ(p.status, 0) << t.name << "\n" << j.text() << "\n" << p.error();
         ASSERT_EQ(hex(p.bytes()), hex(bytes)) << t.name << "\n" << j.text();
      }
      EXPECT_EQ(done, 500) << t.name;
   }
}

// ---- the exact layout --------------------------------------------------------------------------

// The minimal CAM whose bits are checked one by one in the PER tests.
const char* kMinimalCamHex = "0202000004d2006400fa8ae5f80df28e801ffe003c2230c79e80";

TEST(ConversionLayout, CamDocument)
{
   Result j;
   toJson("CAM", unhex(kMinimalCamHex), &j);
   ASSERT_EQ(j.status, 0) << j.error();
   EXPECT_EQ(j.text(),
             "{\n"
             "   \"header\":{\n"
             "      \"protocolVersion\":2,\n"
             "      \"messageID\":2,\n"
             "      \"stationID\":1234\n"
             "   },\n"
             "   \"cam\":{\n"
             "      \"generationDeltaTime\":100,\n"
             "      \"camParameters\":{\n"
             "         \"basicContainer\":{\n"
             "            \"stationType\":15,\n"
             "            \"referencePosition\":{\n"
             "               \"latitude\":515000000,\n"
             "               \"longitude\":72000000,\n"
             "               \"positionConfidenceEllipse\":{\n"
             "                  \"semiMajorConfidence\":4095,\n"
             "                  \"semiMinorConfidence\":1,\n"
             "                  \"semiMajorOrientation\":3601\n"
             "               },\n"
             "               \"altitude\":{\n"
             "                  \"altitudeValue\":-100,\n"
             "                  \"altitudeConfidence\":\"unavailable\"\n"
             "               }\n"
             "            }\n"
             "         },\n"
             "         \"highFrequencyContainer\":{\n"
             "            \"rsuContainerHighFrequency\":{\n"
             "            }\n"
             "         }\n"
             "      }\n"
             "   }\n"
             "}");
   EXPECT_EQ(strlen(j.out), j.text().size());
}

// One of each form, through a SPATEM and a DENM.
TEST(ConversionLayout, ConstructForms)
{
   const std::string spat =
      "{\"header\":{\"protocolVersion\":2,\"messageID\":4,\"stationID\":7},"
      "\"spat\":{\"intersections\":[{\"id\":{\"id\":12},\"revision\":3,\"status\":\"0400\","
      "\"states\":[{\"signalGroup\":1,\"state-time-speed\":[{\"eventState\":\"protected-Movement-Allowed\","
      "\"timing\":{\"minEndTime\":1200}}]}],"
      "\"regional\":[{\"regionId\":3,\"regExtValue\":{\"activePrioritizations\":[{\"stationID\":5,"
      "\"priorState\":\"granted\",\"signalGroup\":2}]}}]}],"
      "\"name\":\"x\\ty\\\"z\"}}";
   Result p;
   fromJson("SPATEM", spat, &p);
   ASSERT_EQ(p.status, 0) << p.error();
   Result j;
   toJson("SPATEM", p.bytes(), &j);
   ASSERT_EQ(j.status, 0) << j.error();
   const std::string& t = j.text();
   EXPECT_NE(t.find("\"status\":\"0400\""), std::string::npos) << t;           // fixed-size BIT STRING
   EXPECT_NE(t.find("\"eventState\":\"protected-Movement-Allowed\""), std::string::npos);  // ENUMERATED
   EXPECT_NE(t.find("\"name\":\"x\\ty\\\"z\""), std::string::npos);           // string escapes
   EXPECT_NE(t.find("\"regExtValue\":{\n"), std::string::npos);               // region 3, typed
   EXPECT_NE(t.find("\"activePrioritizations\":[\n"), std::string::npos);     // SEQUENCE OF
   EXPECT_EQ(t.back(), '}');

   const std::string denm =
      "{\"header\":{\"protocolVersion\":2,\"messageID\":1,\"stationID\":9},\"denm\":{\"management\":{"
      "\"actionID\":{\"originatingStationID\":9,\"sequenceNumber\":1},\"detectionTime\":0,\"referenceTime\":0,"
      "\"eventPosition\":{\"latitude\":0,\"longitude\":0,\"positionConfidenceEllipse\":{\"semiMajorConfidence\":0,"
      "\"semiMinorConfidence\":0,\"semiMajorOrientation\":0},\"altitude\":{\"altitudeValue\":0,"
      "\"altitudeConfidence\":\"unavailable\"}},\"stationType\":0},"
      "\"location\":{\"traces\":[[]]},"
      "\"alacarte\":{\"roadWorks\":{\"closedLanes\":{\"drivingLaneStatus\":{\"length\":5,\"value\":\"a8\"}}}}}}";
   Result pd;
   fromJson("DENM", denm, &pd);
   ASSERT_EQ(pd.status, 0) << pd.error();
   Result jd;
   toJson("DENM", pd.bytes(), &jd);
   ASSERT_EQ(jd.status, 0) << jd.error();
   EXPECT_NE(jd.text().find("\"drivingLaneStatus\":{\n"
                            "                  \"value\":\"a8\",\n"
                            "                  \"length\":5\n"
                            "               }"),
             std::string::npos)
      << jd.text();                                                         // variable-size BIT STRING
   EXPECT_NE(jd.text().find("\"traces\":[\n"
                            "            [\n"
                            "            ]\n"
                            "         ]"),
             std::string::npos)
      << jd.text();                                                         // empty list on two lines
}

// ---- reader tolerance and errors ---------------------------------------------------------------

const char* kCam =
   "{\"header\":{\"protocolVersion\":2,\"messageID\":2,\"stationID\":1234},"
   "\"cam\":{\"generationDeltaTime\":100,\"camParameters\":{\"basicContainer\":{\"stationType\":15,"
   "\"referencePosition\":{\"latitude\":515000000,\"longitude\":72000000,\"positionConfidenceEllipse\":"
   "{\"semiMajorConfidence\":4095,\"semiMinorConfidence\":1,\"semiMajorOrientation\":3601},"
   "\"altitude\":{\"altitudeValue\":-100,\"altitudeConfidence\":\"unavailable\"}}},"
   "\"highFrequencyContainer\":{\"rsuContainerHighFrequency\":{}}}}}";

std::string replaced(std::string s, const std::string& from, const std::string& to)
{
   size_t at = s.find(from);
   EXPECT_NE(at, std::string::npos) << from;
   if (at != std::string::npos) s.replace(at, from.size(), to);
   return s;
}

TEST(ConversionReader, ToleratesOrderWhitespaceNullsAndUnknownMembers)
{
   Result base;
   fromJson("CAM", kCam, &base);
   ASSERT_EQ(base.status, 0) << base.error();
   EXPECT_EQ(hex(base.bytes()), kMinimalCamHex);

   const std::string variants[] = {
      // members in another order
      replaced(kCam, "\"protocolVersion\":2,\"messageID\":2,\"stationID\":1234",
               "\"stationID\":1234,\"messageID\":2,\"protocolVersion\":2"),
      // white space between tokens
      replaced(replaced(kCam, "{\"header\":{\"protocolVersion\":2,", " {\"header\" : {\"protocolVersion\" :\t2 ,\n"),
               "}}}}}", "}\r\n}  }}} "),
      // an optional member given as null is absent
      replaced(kCam, "\"basicContainer\":", "\"lowFrequencyContainer\":null,\"basicContainer\":"),
   };
   for (const std::string& v : variants) {
      Result r;
      fromJson("CAM", v, &r);
      ASSERT_EQ(r.status, 0) << v << "\n" << r.error();
      EXPECT_EQ(hex(r.bytes()), kMinimalCamHex) << v;
   }

   // An unknown member of an extensible SEQUENCE is kept and written back verbatim.
   Result kept;
   fromJson("CAM", replaced(kCam, "\"stationType\":15,", "\"stationType\":15,\"futureThing\":[1,{\"a\":true}],"), &kept);
   ASSERT_EQ(kept.status, 0) << kept.error();
   Result again;
   toJson("CAM", kept.bytes(), &again);
   ASSERT_EQ(again.status, 0) << again.error();
   EXPECT_NE(again.text().find("\"futureThing\":[1,{\"a\":true}]"), std::string::npos) << again.text();
}

struct BadInput {
   const char* what;
   std::string text;
   int status;
};

TEST(ConversionReader, RejectsMalformedText)
{
   const BadInput cases[] = {
      { "duplicate member", replaced(kCam, "\"stationID\":1234", "\"stationID\":1234,\"stationID\":1"),
        RTERR_DUPLICATE_ELEMENT },
      { "missing mandatory member", replaced(kCam, "\"messageID\":2,", ""), RTERR_MISSING_REQUIRED_ELEMENT },
      { "unknown member, not extensible", replaced(kCam, "\"stationID\":1234", "\"stationID\":1234,\"x\":1"),
        RTERR_SET_INDEX_OUT_OF_BOUNDS },
      { "number out of range", replaced(kCam, "\"latitude\":515000000", "\"latitude\":900000002"),
        RTERR_VALUE_CONSTRAINT_VIOLATION },
      { "number too wide", replaced(kCam, "\"protocolVersion\":2", "\"protocolVersion\":256"),
        RTERR_VALUE_WILL_NOT_FIT },
      { "not a number", replaced(kCam, "\"protocolVersion\":2", "\"protocolVersion\":\"2\""),
        RTERR_CHARACTER_NOT_IN_SET },
      { "unknown identifier", replaced(kCam, "\"unavailable\"", "\"nowhere\""), RTERR_ENUM_NOT_IN_SET },
      { "trailing comma", replaced(kCam, "\"stationID\":1234}", "\"stationID\":1234,}"),
        RTERR_UNEXPECTED_IDENTIFIER },
      { "choice with two keys", replaced(kCam, "\"rsuContainerHighFrequency\":{}", "\"rsuContainerHighFrequency\":{},\"x\":1"),
        RTERR_CHARACTER_NOT_IN_SET },
      { "nesting too deep", replaced(kCam, "\"stationType\":15,", "\"stationType\":15,\"deep\":" + std::string(101, '[') +
                                                                  std::string(101, ']') + ","),
        RTERR_NESTING_TOO_DEEP },
      { "truncated", std::string(kCam).substr(0, 90), RTERR_UNEXPECTED_END_OF_BUFFER },
      { "empty", "", RTERR_UNEXPECTED_END_OF_BUFFER },
   };
   for (const BadInput& c : cases) {
      Result r;
      fromJson("CAM", c.text, &r);
      EXPECT_EQ(r.status, c.status) << c.what << "\n" << r.error();
      EXPECT_EQ(r.out, nullptr) << c.what;
      EXPECT_EQ(r.outLen, 0u) << c.what;
      EXPECT_EQ(r.error().rfind("ERROR: Status " + std::to_string(c.status) + "\n", 0), 0u) << c.what << "\n" << r.error();
   }

   // Bad hex in an OCTET STRING of a DENM, and a bit string with bits beyond its length.
   Result h;
   fromJson("SPATEM", "{\"header\":{\"protocolVersion\":2,\"messageID\":4,\"stationID\":7},\"spat\":{\"intersections\":[{"
                      "\"id\":{\"id\":1},\"revision\":0,\"status\":\"04g0\",\"states\":[]}]}}", &h);
   EXPECT_EQ(h.status, RTERR_CHARACTER_NOT_IN_SET) << h.error();
}

// ---- errors, trace ---------------------------------------------------------------------------

// Runs f with standard output captured.
template <class F> std::string captureStdout(F f)
{
   fflush(stdout);
   char path[] = "/tmp/etsi_stdout_XXXXXX";
   int fd = mkstemp(path);
   int saved = dup(1);
   dup2(fd, 1);
   f();
   fflush(stdout);
   dup2(saved, 1);
   close(saved);
   std::string out = str(readFile(path));
   close(fd);
   unlink(path);
   return out;
}

TEST(ConversionErrors, BadPerInputGivesTheFullReport)
{
   Result empty;
   std::string printed = captureStdout([&] { toJson("CAM", "", &empty); });
   EXPECT_EQ(empty.status, RTERR_UNEXPECTED_END_OF_BUFFER);
   EXPECT_EQ(empty.out, nullptr);
   EXPECT_EQ(empty.error().rfind("ERROR: Status -2\nUnexpected end of buffer on decode\n", 0), 0u) << empty.error();
   EXPECT_NE(empty.error().find("Stack trace:\n  Module: "), std::string::npos) << empty.error();
   EXPECT_EQ(printed, "") << "nothing is printed without trace";

   Result truncated;
   toJson("CAM", unhex(kMinimalCamHex).substr(0, 10), &truncated);
   EXPECT_EQ(truncated.status, RTERR_UNEXPECTED_END_OF_BUFFER);
   EXPECT_NE(truncated.error().find("Element name: cam."), std::string::npos) << truncated.error();

   etsi_delete_array(nullptr);
}

TEST(ConversionErrors, TraceDumpsThePerSide)
{
   Result j;
   std::string printed = captureStdout([&] { toJson("CAM", unhex(kMinimalCamHex), &j, true); });
   ASSERT_EQ(j.status, 0);
   EXPECT_NE(printed.find("data.header.stationID.ConsInteger\nbit offset: 16\tbit count: 32\tnext bit offset: 48\n"),
             std::string::npos) << printed.substr(0, 400);

   // A failed decode is dumped too; a failed JSON decode makes no dump.
   Result bad;
   printed = captureStdout([&] { toJson("CAM", unhex(kMinimalCamHex).substr(0, 10), &bad, true); });
   EXPECT_NE(printed.find("data.header.protocolVersion"), std::string::npos);
   Result badText;
   printed = captureStdout([&] { fromJson("CAM", "{", &badText, true); });
   EXPECT_NE(badText.status, 0);
   EXPECT_EQ(printed, "");

   Result p;
   printed = captureStdout([&] { fromJson("CAM", kCam, &p, true); });
   ASSERT_EQ(p.status, 0);
   EXPECT_NE(printed.find("data.cam.generationDeltaTime"), std::string::npos);
}

// No bytes or no text at all is refused with a report, never converted from whatever memory the
// buffers hold.
TEST(ConversionErrors, NullInputIsRefused)
{
   typedef int (*To)(const char*, size_t, char**, char**, bool);
   typedef int (*From)(const char*, char**, size_t*, char**, bool);
   const To tos[] = { etsi_CAM_to_json, etsi_DENM_to_json, etsi_SPATEM_to_json, etsi_MAPEM_to_json, etsi_IVIM_to_json,
                      etsi_SREM_to_json, etsi_SSEM_to_json, etsi_CAM_to_xml, etsi_DENM_to_xml, etsi_SPATEM_to_xml,
                      etsi_MAPEM_to_xml, etsi_IVIM_to_xml, etsi_SREM_to_xml, etsi_SSEM_to_xml };
   const From froms[] = { etsi_CAM_from_json, etsi_DENM_from_json, etsi_SPATEM_from_json, etsi_MAPEM_from_json,
                          etsi_IVIM_from_json, etsi_SREM_from_json, etsi_SSEM_from_json, etsi_CAM_from_xml,
                          etsi_DENM_from_xml, etsi_SPATEM_from_xml, etsi_MAPEM_from_xml, etsi_IVIM_from_xml,
                          etsi_SREM_from_xml, etsi_SSEM_from_xml };
   for (To to : tos) {
      for (size_t len : { (size_t)0, (size_t)40 }) {
         Result r;
         r.status = to(nullptr, len, &r.out, &r.err, false);
         EXPECT_EQ(r.status, RTERR_INVALID_PARAMETER);
         EXPECT_EQ(r.out, nullptr);
         EXPECT_EQ(r.error().rfind("ERROR: Status " + std::to_string(RTERR_INVALID_PARAMETER) + "\n", 0), 0u) << r.error();
      }
   }
   for (From from : froms) {
      Result r;
      r.status = from(nullptr, &r.out, &r.outLen, &r.err, false);
      EXPECT_EQ(r.status, RTERR_INVALID_PARAMETER);
      EXPECT_EQ(r.out, nullptr);
      EXPECT_EQ(r.outLen, 0u);
      EXPECT_EQ(r.error().rfind("ERROR: Status ", 0), 0u) << r.error();
   }
}

// ---- the shared library ------------------------------------------------------------------------

TEST(ConversionLibrary, ExportsExactlyTheConversionFunctions)
{
   std::string lib = std::string(ETSI_BINARY_DIR) + "/libetsiv2x.so";
   std::string cmd = "nm -D --defined-only " + lib + " | awk '{print $3}' | LC_ALL=C sort";
   FILE* p = popen(cmd.c_str(), "r");
   ASSERT_NE(p, nullptr);
   std::string names;
   char line[256];
   while (fgets(line, sizeof(line), p)) names += line;
   ASSERT_EQ(pclose(p), 0) << cmd;
   std::string want;
   for (const char* m : { "CAM", "DENM", "IVIM", "MAPEM", "SPATEM", "SREM", "SSEM" })
      want += std::string("etsi_") + m + "_from_json\netsi_" + m + "_from_xml\netsi_" + m + "_to_json\netsi_" + m +
              "_to_xml\n";
   want += "etsi_delete_array\n";
   EXPECT_EQ(names, want);
   EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 29);
}

}  // namespace
