// The generated JSON codecs over every type: random values through JSON text and back.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "rtjsonsrc/QSJSONMessageBuffer.h"
#include "src/etsi/testsupport/etsiTestSupport.h"

namespace {

// Returns false when every value of the type needed a region that the text forms cannot carry.
bool jsonRoundTrips(const EtsiTestType& t, int count, uint64_t seed, bool rich = false)
{
   Asn1Random r(seed);
   r.textSafe = true;
   r.rich = rich;
   int done = 0;
   for (int attempt = 0; done < count && attempt < count * 20; attempt++) {
      QSCTXT src;
      if (rtxInitContext(&src) != 0) return false;
      r.spoiled = false;
      void* v = t.make(&src);
      t.rand(r, &src, v);
      if (r.spoiled) {
         rtxFreeContext(&src);
         continue;
      }
      done++;
      std::string before;
      t.print(before, v);
      QSJSONEncodeBuffer enc;
      int stat = t.jsonEncode(enc.getCtxtPtr(), v);
      rtxFreeContext(&src);
      EXPECT_EQ(stat, 0) << t.name << "\n" << before << "\n" << errorText(enc.getCtxtPtr());
      if (stat != 0) break;
      std::string text((const char*)enc.getMsgPtr(), enc.getMsgLen());
      QSJSONDecodeBuffer dec((const unsigned char*)text.data(), text.size());
      void* back = t.make(dec.getCtxtPtr());
      stat = t.jsonDecode(dec.getCtxtPtr(), back);
      EXPECT_EQ(stat, 0) << t.name << "\n" << text << "\n" << errorText(dec.getCtxtPtr());
      if (stat != 0) break;
      std::string after;
      t.print(after, back);
      EXPECT_EQ(after, before) << t.name << "\n" << text;
      if (after != before) break;
   }
   return done > 0;
}

TEST(JsonRoundTrip, RichMessages)
{
   for (size_t i = 0; i < etsiTestTypeCount; i++) {
      if (etsiTestTypes[i].message) {
         EXPECT_TRUE(jsonRoundTrips(etsiTestTypes[i], 150, 6000 + i, true)) << etsiTestTypes[i].name;
      }
   }
}

TEST(JsonRoundTrip, EveryType)
{
   std::vector<std::string> skipped;
   for (size_t i = 0; i < etsiTestTypeCount; i++) {
      const EtsiTestType& t = etsiTestTypes[i];
      if (!jsonRoundTrips(t, t.message ? 300 : 25, 99 + i)) skipped.push_back(t.name);
   }
   // Only types whose every value holds a regional extension of a set that binds no region
   // are left out: such content is raw, which the JSON form deliberately does not take back.
   for (const std::string& name : skipped)
      EXPECT_TRUE(name.find("_regional") != std::string::npos || name == "ETSI_DSRC_PreemptPriorityList" ||
                  name.rfind("ETSI_DSRC_SignalControlZone", 0) == 0)
         << name;
   EXPECT_LT(skipped.size(), 40u);
   EXPECT_EQ(std::count(skipped.begin(), skipped.end(), "ETSI_DSRC_MapData_regional_element"), 0);
}

}  // namespace

namespace {

// Damaged JSON text into every message decoder: a status with its report, or a value.
TEST(JsonHostileInput, MutatedTextIntoEveryMessageDecoder)
{
   Asn1Random r(4711);
   r.textSafe = true;
   static const char pieces[] = "{}[],:\"0-9en\\ tx";
   for (size_t i = 0; i < etsiTestTypeCount; i++) {
      const EtsiTestType& t = etsiTestTypes[i];
      if (!t.message) continue;
      for (int k = 0; k < 200; k++) {
         QSCTXT src;
         ASSERT_EQ(rtxInitContext(&src), 0);
         void* v = t.make(&src);
         t.rand(r, &src, v);
         QSJSONEncodeBuffer enc;
         int stat = t.jsonEncode(enc.getCtxtPtr(), v);
         rtxFreeContext(&src);
         if (stat != 0) continue;
         std::string text((const char*)enc.getMsgPtr(), enc.getMsgLen());
         for (int m = 0; m < 1 + (int)r.below(3); m++) {
            size_t at = r.below(text.size());
            switch (r.below(3)) {
               case 0: text.erase(at, 1 + r.below(4)); break;
               case 1: text.insert(at, 1, pieces[r.below(sizeof(pieces) - 1)]); break;
               default: text[at] = pieces[r.below(sizeof(pieces) - 1)]; break;
            }
         }
         QSJSONDecodeBuffer dec((const unsigned char*)text.data(), text.size());
         void* back = t.make(dec.getCtxtPtr());
         stat = t.jsonDecode(dec.getCtxtPtr(), back);
         if (stat != 0) {
            ASSERT_LT(stat, 0) << t.name;
            ASSERT_EQ(errorText(dec.getCtxtPtr()).rfind("ERROR: Status ", 0), 0u) << t.name << "\n" << text;
         }
      }
   }
}

}  // namespace
