// Resource bounds of the conversions on hostile input: whatever n bytes come in, a call holds at
// most a small multiple of n plus a constant of heap at any moment. Each case builds the worst
// input found for one mechanism (length determinants claiming huge counts, deep nesting, long
// runs of whitespace, huge numbers, long strings in size-constrained types, many unknown members)
// and asserts the peak heap of the call against the bounds stated in the README.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "src/etsi_v2x.h"
#include "tests/bounds/heap_meter.h"
#include "tests/support/conversions.h"
#include "tests/support/corpus.h"
#include "tests/support/examples.h"

namespace {


// The stated bounds: peak heap <= kPerByte * n + kConstant for PER input of n bytes (its text
// alone is up to about a hundred characters a byte), and kTextPerByte * n + kConstant for text
// input of n characters.
constexpr size_t kPerByte = 512;
constexpr size_t kTextPerByte = 32;
constexpr size_t kConstant = 64 * 1024;

struct Peak {
   size_t bytes;
   int status;
};

Peak perPeak(const Message& m, bool xml, const std::string& data)
{
   Peak p{ 0, 0 };
   p.bytes = peakHeap([&] {
      Result r;
      r.status = (xml ? m.toXml : m.toJson)(data.data(), data.size(), &r.out, &r.err, false);
      p.status = r.status;
   });
   return p;
}

Peak textPeak(const Message& m, bool xml, const std::string& text)
{
   Peak p{ 0, 0 };
   p.bytes = peakHeap([&] {
      Result r;
      r.status = (xml ? m.fromXml : m.fromJson)(text.c_str(), &r.out, &r.outLen, &r.err, false);
      p.status = r.status;
   });
   return p;
}

const Message& message(const char* name)
{
   const Message* m = messageByName(name);
   if (m == nullptr) abort();
   return *m;
}

std::string insertAfter(std::string text, const std::string& anchor, const std::string& what)
{
   size_t at = text.find(anchor);
   if (at == std::string::npos) ADD_FAILURE() << "no " << anchor;
   else text.insert(at + anchor.size(), what);
   return text;
}

std::string replaceFirst(std::string text, const std::string& from, const std::string& to)
{
   size_t at = text.find(from);
   if (at == std::string::npos) ADD_FAILURE() << "no " << from;
   else text.replace(at, from.size(), to);
   return text;
}

std::string repeat(const std::string& s, size_t n)
{
   std::string out;
   out.reserve(s.size() * n);
   for (size_t i = 0; i < n; i++) out += s;
   return out;
}

#define EXPECT_WITHIN(peak, n, perByte, what)                                                              \
   do {                                                                                                   \
      Peak peak_ = (peak);                                                                                \
      size_t n_ = (n);                                                                                    \
      printf("  %-58s n=%-8zu peak=%-9zu (%.1f/byte) status %d\n", (what), n_, peak_.bytes,             \
             (double)peak_.bytes / (double)(n_ ? n_ : 1), peak_.status);                                  \
      EXPECT_LE(peak_.bytes, (perByte) * n_ + kConstant) << (what) << ", n=" << n_;                       \
   } while (0)

}  // namespace

// PER input of every message: all-ones (every extension bit, presence bit and length determinant
// at its largest), all-zeros and random bytes, at growing sizes.
TEST(HeapBounds, PerInputOfAnyContent)
{
   for (size_t i = 0; i < kMessageCount; i++) {
      const Message& m = kMessages[i];
      for (size_t n : { 64u, 4096u, 262144u }) {
         std::string ones(n, '\xff'), zeros(n, '\0'), random(n, '\0');
         unsigned state = (unsigned)(n * 31 + i);
         for (char& c : random) c = (char)((state = state * 1103515245u + 12345u) >> 16);
         for (bool xml : { false, true }) {
            std::string what = std::string(m.name) + (xml ? " to_xml" : " to_json");
            EXPECT_WITHIN(perPeak(m, xml, ones), n, kPerByte, (what + ", all ones").c_str());
            EXPECT_WITHIN(perPeak(m, xml, zeros), n, kPerByte, (what + ", all zeros").c_str());
            EXPECT_WITHIN(perPeak(m, xml, random), n, kPerByte, (what + ", random").c_str());
         }
      }
   }
}

// Bytes after the end of a PER message (capture padding) are not read, so they must not cost
// memory either: the peak stays that of the message alone.
TEST(HeapBounds, BytesAfterThePerMessageCostNothing)
{
   for (size_t i = 0; i < kMessageCount; i++) {
      const Message& m = kMessages[i];
      std::string per = examplePer(m.name);
      for (bool xml : { false, true }) {
         Peak alone = perPeak(m, xml, per);
         Peak padded = perPeak(m, xml, per + std::string(262144, '\0'));
         ASSERT_EQ(0, alone.status) << m.name;
         EXPECT_EQ(0, padded.status) << m.name;
         EXPECT_LE(padded.bytes, alone.bytes + 4096) << m.name << (xml ? " to_xml" : " to_json");
      }
   }
}

// JSON text: long runs of whitespace, huge numbers, long strings and hex strings in
// size-constrained types, deep nesting and many members kept as unknown.
TEST(HeapBounds, JsonTextInput)
{
   const Message& cam = message("CAM");
   const std::string base = exampleText("CAM", ".json");
   const std::string params = "\"camParameters\": {";
   for (size_t n : { 10000u, 1000000u }) {
      std::string ws = insertAfter(base, params, std::string(n, ' '));
      EXPECT_WITHIN(textPeak(cam, false, ws), ws.size(), kTextPerByte, "CAM from_json, whitespace run");
      std::string number = replaceFirst(base, "3215004417", std::string(n, '9'));
      EXPECT_WITHIN(textPeak(cam, false, number), number.size(), kTextPerByte, "CAM from_json, huge number");
      std::string deep = insertAfter(base, params, "\"zz\": " + std::string(n, '[') + std::string(n, ']') + ",");
      EXPECT_WITHIN(textPeak(cam, false, deep), deep.size(), kTextPerByte, "CAM from_json, deep nesting (unknown member)");
      std::string deepObj = insertAfter(base, params, "\"zz\": " + repeat("{\"a\":", n / 5) + "0" + std::string(n / 5, '}') + ",");
      EXPECT_WITHIN(textPeak(cam, false, deepObj), deepObj.size(), kTextPerByte, "CAM from_json, deep objects (unknown member)");
      std::string deepKnown = replaceFirst(base, "\"header\": {", "\"header\": " + std::string(n, '[') + "{");
      EXPECT_WITHIN(textPeak(cam, false, deepKnown), deepKnown.size(), kTextPerByte, "CAM from_json, nesting where a member is due");
      std::string many = insertAfter(base, params, repeat("\"\":0,", n / 5));
      EXPECT_WITHIN(textPeak(cam, false, many), many.size(), kTextPerByte, "CAM from_json, many unknown members");
      std::string longKey = insertAfter(base, params, "\"" + std::string(n, 'k') + "\": 1,");
      EXPECT_WITHIN(textPeak(cam, false, longKey), longKey.size(), kTextPerByte, "CAM from_json, long unknown key");
   }
   const Message& srem = message("SREM");
   const std::string sremBase = exampleText("SREM", ".json");
   for (size_t n : { 10000u, 1000000u }) {
      // The name of a requestor is a DescriptiveName, at most 63 characters.
      std::string name = insertAfter(sremBase, "\"requestor\": {", "\"name\": \"" + std::string(n, 'x') + "\", ");
      EXPECT_WITHIN(textPeak(srem, false, name), name.size(), kTextPerByte, "SREM from_json, long string (SIZE 1..63)");
   }
   const Message& denm = message("DENM");
   const std::string denmBase = exampleText("DENM", ".json");
   for (size_t n : { 10000u, 1000000u }) {
      std::string hex = std::string(n, 'a');
      std::string big = replaceFirst(denmBase, "\"protocolVersion\": 2", "\"protocolVersion\": \"" + hex + "\"");
      EXPECT_WITHIN(textPeak(denm, false, big), big.size(), kTextPerByte, "DENM from_json, long string where a number is due");
   }
}

// XML text: the same mechanisms in the XML form.
TEST(HeapBounds, XmlTextInput)
{
   const Message& cam = message("CAM");
   const std::string base = exampleText("CAM", ".xml");
   const std::string params = "<camParameters>";
   const std::string paramsEnd = "</lowFrequencyContainer>";   // unknown elements go after the last member
   for (size_t n : { 10000u, 1000000u }) {
      std::string ws = insertAfter(base, params, std::string(n, ' '));
      EXPECT_WITHIN(textPeak(cam, true, ws), ws.size(), kTextPerByte, "CAM from_xml, whitespace run");
      std::string number = replaceFirst(base, "3215004417", std::string(n, '9'));
      EXPECT_WITHIN(textPeak(cam, true, number), number.size(), kTextPerByte, "CAM from_xml, huge number");
      std::string deep = insertAfter(base, paramsEnd, repeat("<z>", n / 3) + repeat("</z>", n / 3));
      EXPECT_WITHIN(textPeak(cam, true, deep), deep.size(), kTextPerByte, "CAM from_xml, deep nesting (unknown element)");
      std::string open = insertAfter(base, paramsEnd, repeat("<z>", n / 3));
      EXPECT_WITHIN(textPeak(cam, true, open), open.size(), kTextPerByte, "CAM from_xml, deep nesting never closed");
      std::string many = insertAfter(base, paramsEnd, repeat("<z>0</z>", n / 8));
      EXPECT_WITHIN(textPeak(cam, true, many), many.size(), kTextPerByte, "CAM from_xml, many unknown elements");
      std::string comments = insertAfter(base, params, repeat("<!---->", n / 7));
      EXPECT_WITHIN(textPeak(cam, true, comments), comments.size(), kTextPerByte, "CAM from_xml, many comments");
      std::string refs = replaceFirst(base, "<stationID>3215004417", "<stationID>" + repeat("&#x39;", n / 6));
      EXPECT_WITHIN(textPeak(cam, true, refs), refs.size(), kTextPerByte, "CAM from_xml, character references");
      std::string longTag = insertAfter(base, paramsEnd, "<" + std::string(n, 't') + "/>");
      EXPECT_WITHIN(textPeak(cam, true, longTag), longTag.size(), kTextPerByte, "CAM from_xml, long unknown tag");
      std::string attrs = replaceFirst(base, "<CAM>", "<CAM" + repeat(" a=\"1\"", n / 6) + ">");
      EXPECT_WITHIN(textPeak(cam, true, attrs), attrs.size(), kTextPerByte, "CAM from_xml, many attributes");
   }
   const Message& srem = message("SREM");
   const std::string sremBase = exampleText("SREM", ".xml");
   for (size_t n : { 10000u, 1000000u }) {
      std::string name = replaceFirst(sremBase, "<name>", "<name>" + std::string(n, 'x'));
      EXPECT_WITHIN(textPeak(srem, true, name), name.size(), kTextPerByte, "SREM from_xml, long string (SIZE 1..63)");
   }
}

// Every real message of the corpus, both ways through both text forms: the most expansive inputs
// that occur (long lists of small values) stay within the bounds too.
TEST(HeapBounds, CorpusMessages)
{
   size_t checked = 0;
   for (const CorpusMessage& cm : loadCorpus()) {
      const Message* m = messageByName(cm.type);
      if (m == nullptr || cm.bytes.empty()) continue;
      std::string data(cm.bytes.begin(), cm.bytes.end());
      for (bool xml : { false, true }) {
         Peak p = perPeak(*m, xml, data);
         EXPECT_LE(p.bytes, kPerByte * data.size() + kConstant) << cm.file << (xml ? " to_xml" : " to_json");
         Result text;
         text.status = (xml ? m->toXml : m->toJson)(data.data(), data.size(), &text.out, &text.err, false);
         if (text.status != 0) continue;
         std::string t(text.out);
         Peak q = textPeak(*m, xml, t);
         EXPECT_LE(q.bytes, kTextPerByte * t.size() + kConstant) << cm.file << (xml ? " from_xml" : " from_json");
         checked++;
      }
   }
   EXPECT_GT(checked, 500u);
}
