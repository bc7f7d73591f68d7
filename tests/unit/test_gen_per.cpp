// Unaligned PER through the generated codecs: random round trips over every type, the real
// captured messages, and hostile input.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "rtpersrc/asn1per.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "tests/support/corpus.h"

namespace {

// One context per side, as the conversion code uses them.
struct Ctxt {
   QSCTXT c;
   Ctxt() { EXPECT_EQ(rtxInitContext(&c), 0); }
   ~Ctxt() { rtxFreeContext(&c); }
};

const EtsiTestType* findType(const std::string& name)
{
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (name == etsiTestTypes[i].name) return &etsiTestTypes[i];
   return nullptr;
}

// Encodes `value` into fresh bytes; status in *pstat.
std::vector<unsigned char> encode(const EtsiTestType& t, void* value, int* pstat, std::string* err = nullptr)
{
   Ctxt e;
   pu_setBuffer(&e.c, nullptr, 0, 0);
   *pstat = t.encode(&e.c, value);
   if (*pstat != 0 && err != nullptr) *err = errorText(&e.c);
   QSSIZE n = pu_getMsgLen(&e.c);
   const unsigned char* p = pe_GetMsgPtr(&e.c, nullptr);
   return *pstat == 0 ? std::vector<unsigned char>(p, p + n) : std::vector<unsigned char>();
}

struct Decoded {
   int status = 0;
   std::string text;                       // canonical print of the value
   size_t length = 0;                      // bytes the decoder consumed (whole bytes)
   int encodeStatus = 0;                   // of the re-encoding, when asked for
   std::vector<unsigned char> reencoded;
   std::string error;
};

// Decodes `bytes`, prints the value canonically and, when asked, encodes it again.
Decoded decode(const EtsiTestType& t, const std::vector<unsigned char>& bytes, bool reencode)
{
   Decoded r;
   Ctxt d;
   pu_setBuffer(&d.c, const_cast<unsigned char*>(bytes.data()), bytes.size(), 0);
   void* v = t.make(&d.c);
   r.status = t.decode(&d.c, v);
   if (r.status != 0) {
      r.error = errorText(&d.c);
      return r;
   }
   r.length = (rtxGetBitPos(&d.c) + 7) / 8;
   t.print(r.text, v);
   if (reencode) r.reencoded = encode(t, v, &r.encodeStatus, &r.error);
   return r;
}

// Random value -> bytes -> value -> bytes: equal values, identical bytes.
void roundTrips(const EtsiTestType& t, int count, uint64_t seed, bool rich = false)
{
   Asn1Random r(seed);
   r.rich = rich;
   for (int i = 0; i < count; i++) {
      Ctxt src;
      void* v = t.make(&src.c);
      t.rand(r, &src.c, v);
      std::string before;
      t.print(before, v);
      int stat;
      std::string err;
      std::vector<unsigned char> bytes = encode(t, v, &stat, &err);
      ASSERT_EQ(stat, 0) << t.name << " value " << i << ": " << before << "\n" << err;
      Decoded d = decode(t, bytes, true);
      ASSERT_EQ(d.status, 0) << t.name << " value " << i << " bytes " << hexOf(bytes.data(), bytes.size()) << "\n"
                             << before << "\n" << d.error;
      ASSERT_EQ(d.text, before) << t.name << " value " << i << " bytes " << hexOf(bytes.data(), bytes.size());
      ASSERT_EQ(d.encodeStatus, 0) << t.name << " value " << i << "\n" << d.error;
      ASSERT_EQ(hexOf(d.reencoded.data(), d.reencoded.size()), hexOf(bytes.data(), bytes.size()))
         << t.name << " value " << i;
   }
}

TEST(PerRoundTrip, EveryMessage)
{
   int messages = 0;
   for (size_t i = 0; i < etsiTestTypeCount; i++) {
      if (!etsiTestTypes[i].message) continue;
      messages++;
      roundTrips(etsiTestTypes[i], 2000, 1000 + i);
   }
   EXPECT_EQ(messages, 8);
}

// Most optional members present and deeper values: the corners of the large messages.
TEST(PerRoundTrip, RichMessages)
{
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (etsiTestTypes[i].message) roundTrips(etsiTestTypes[i], 300, 5000 + i, true);
}

TEST(PerRoundTrip, EveryType)
{
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (!etsiTestTypes[i].message) roundTrips(etsiTestTypes[i], 40, 7 + i);
}

const std::map<std::string, std::string>& messageTypes()
{
   static const std::map<std::string, std::string> m = {
      { "CAM", "CAM" }, { "DENM", "DENM" }, { "SPATEM", "SPATEM" }, { "MAPEM", "MAPEM" },
      { "IVIM", "IVIM" }, { "SREM", "SREM" }, { "SSEM", "SSEM" } };
   return m;
}

// Messages of the current edition decode and re-encode to the same bytes. A capture may carry
// zero padding after the complete message; it is not part of the encoding. Messages of an older
// edition may fail to decode, or carry enumeration indices beyond today's root, which decode
// unchecked but cannot be encoded again; whatever does round-trip must be byte-identical.
TEST(PerCorpus, DecodesAndReencodesByteForByte)
{
   std::vector<CorpusMessage> corpus = loadCorpus();
   ASSERT_FALSE(corpus.empty()) << "no corpus under " << sharedDir();
   std::map<std::string, int> ok, older, padded;
   for (const CorpusMessage& m : corpus) {
      const EtsiTestType* t = findType(messageTypes().at(m.type));
      ASSERT_NE(t, nullptr);
      Decoded d = decode(*t, m.bytes, true);
      if (m.protocolVersion < 2 && (d.status != 0 || d.encodeStatus == RTERR_ENUM_NOT_IN_SET)) {
         older[m.type]++;
         continue;
      }
      ASSERT_EQ(d.status, 0) << m.file << "\n" << d.error;
      ASSERT_EQ(d.encodeStatus, 0) << m.file << "\n" << d.error;
      ASSERT_LE(d.length, m.bytes.size());
      for (size_t i = d.length; i < m.bytes.size(); i++) ASSERT_EQ(m.bytes[i], 0) << m.file << " trailing byte " << i;
      if (d.length < m.bytes.size()) padded[m.type]++;
      EXPECT_EQ(hexOf(d.reencoded.data(), d.reencoded.size()), hexOf(m.bytes.data(), d.length)) << m.file;
      ok[m.type]++;
   }
   for (const auto& kv : ok)
      std::printf("corpus %-7s %4d byte-identical (%d with zero padding after the message)\n", kv.first.c_str(),
                  kv.second, padded[kv.first]);
   for (const auto& kv : older) std::printf("corpus %-7s %4d older edition, not re-encodable\n", kv.first.c_str(), kv.second);
}

// Every prefix of every corpus message, and messages with flipped bits, either decode or fail
// with a status and an error text: never a crash (the sanitizer build watches the rest).
TEST(PerCorpus, TruncatedAndCorruptedInputFailsCleanly)
{
   Asn1Random r(42);
   for (const CorpusMessage& m : loadCorpus()) {
      const EtsiTestType* t = findType(messageTypes().at(m.type));
      for (size_t n = 0; n < m.bytes.size(); n++) {
         std::vector<unsigned char> prefix(m.bytes.begin(), m.bytes.begin() + n);
         Decoded d = decode(*t, prefix, false);
         if (d.status != 0) {
            ASSERT_EQ(d.error.rfind("ERROR: Status ", 0), 0u) << m.file << " prefix " << n;
         }
      }
      for (int k = 0; k < 20; k++) {
         std::vector<unsigned char> bad = m.bytes;
         for (int f = 0; f < 1 + (int)r.below(3); f++) bad[r.below(bad.size())] ^= (unsigned char)(1u << r.below(8));
         Decoded d = decode(*t, bad, false);
         if (d.status != 0) {
            ASSERT_LT(d.status, 0);
            ASSERT_EQ(d.error.rfind("ERROR: Status ", 0), 0u) << m.file;
         }
      }
   }
}

}  // namespace

namespace {

// Arbitrary bytes into every decoder: a status, or a value, never a crash (the sanitizer build
// watches for the rest).
TEST(PerHostileInput, RandomBytesIntoEveryDecoder)
{
   Asn1Random r(31337);
   for (size_t i = 0; i < etsiTestTypeCount; i++) {
      const EtsiTestType& t = etsiTestTypes[i];
      for (int k = 0; k < 25; k++) {
         std::vector<unsigned char> bytes(r.below(k < 5 ? 4 : 48));
         for (unsigned char& b : bytes) b = (unsigned char)r.next();
         Decoded d = decode(t, bytes, true);
         if (d.status != 0) {
            ASSERT_LT(d.status, 0) << t.name;
            ASSERT_EQ(d.error.rfind("ERROR: Status ", 0), 0u) << t.name;
         }
      }
   }
}

}  // namespace

namespace {

// A list beyond its size is refused without parameters: the count is no field value.
TEST(PerEncodeErrors, ListCountViolationCarriesNoParameters)
{
   const EtsiTestType* t = nullptr;
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (std::string(etsiTestTypes[i].name) == "ITS_PathHistory") t = &etsiTestTypes[i];
   ASSERT_NE(t, nullptr);
   QSCTXT c;
   ASSERT_EQ(rtxInitContext(&c), 0);
   ASN1TSeqOfList* list = (ASN1TSeqOfList*)t->make(&c);
   ASN1T_ITS_PathPoint point;
   for (int i = 0; i < 41; i++) rtxDListAppend(&c, list, &point);
   ASSERT_EQ(pu_setBuffer(&c, nullptr, 0, 0), 0);
   EXPECT_EQ(t->encode(&c, list), RTERR_VALUE_CONSTRAINT_VIOLATION);
   ASSERT_NE(c.errInfoList.tail, nullptr);
   EXPECT_EQ(static_cast<const QSRTErrInfo*>(c.errInfoList.tail->data)->parmcnt, 0);
   rtxDListFreeNodes(&c, list);
   rtxFreeContext(&c);
}

}  // namespace
