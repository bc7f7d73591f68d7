// The one-piece writers of the XML and JSON encoders against the general ones: buffers that end
// anywhere near the text, deep nesting, numbers at digit-count boundaries, text that needs escaping
// in some byte and text that does not.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "rtjsonsrc/QSJSONMessageBuffer.h"
#include "rtjsonsrc/rtJsonFastEnc.h"
#include "rtpersrc/asn1PerCppTypes.h"
#include "rtxmlsrc/QSXMLMessageBuffer.h"
#include "rtxmlsrc/asn1XmlGen.h"
#include "rtxmlsrc/rtXmlFastEnc.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "tests/support/examples.h"

namespace {

const QSUTF8CHAR* U(const char* s) { return reinterpret_cast<const QSUTF8CHAR*>(s); }

const EtsiTestType& typeNamed(const char* name)
{
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (std::strcmp(name, etsiTestTypes[i].name) == 0) return etsiTestTypes[i];
   ADD_FAILURE() << name;
   return etsiTestTypes[0];
}

std::string textOf(QSRTMessageBuffer& b) { return std::string((const char*)b.getMsgPtr(), b.getMsgLen()); }

int xmlDocument(const EtsiTestType& t, void* v, QSXMLEncodeBuffer& enc)
{
   QSCTXT* c = enc.getCtxtPtr();
   int stat = rtXmlEncBeginDocument(c, U(t.name));
   if (stat == 0) stat = t.xmlEncode(c, v, U(""));
   if (stat == 0) stat = rtXmlEncEndElement(c, U(t.name), 0);
   return stat;
}

// Every buffer size up to beyond the text: below some size the encoding fails cleanly, from it on
// the text comes out whole and the same as in a growing buffer (the buffer is a heap block of
// exactly that size, so a write past it is caught by the sanitizers).
template <class Buffer, class Encode>
void everySize(const char* what, const std::string& expect, Encode encode)
{
   size_t first = 0;
   for (size_t n = 0; n <= expect.size() + 200; n++) {
      std::vector<unsigned char> block(n == 0 ? 1 : n);
      Buffer enc(block.data(), n);
      int stat = encode(enc);
      if (stat == 0) {
         if (first == 0) first = n;
         ASSERT_EQ(expect, textOf(enc)) << what << ", buffer " << n;
      }
      else {
         ASSERT_LT(stat, 0) << what << ", buffer " << n;
         ASSERT_EQ(0u, first) << what << ": fails with " << n << " bytes, worked with " << first;
      }
   }
   EXPECT_GT(first, expect.size()) << what;
}

TEST(TextWriterFast, FixedBuffersOfEverySize)
{
   for (const char* msg : {"SREM", "SSEM", "DENM"}) {
      const EtsiTestType& t = typeNamed(msg);
      std::string per = examplePer(msg);
      ASSERT_FALSE(per.empty()) << msg;
      QSCTXT src;
      ASSERT_EQ(0, rtxInitContext(&src));
      ASSERT_EQ(0, pu_setBuffer(&src, (QSOCTET*)per.data(), per.size(), 0));
      void* v = t.make(&src);
      ASSERT_EQ(0, t.decode(&src, v)) << msg;

      QSXMLEncodeBuffer xmlRef;
      ASSERT_EQ(0, xmlDocument(t, v, xmlRef)) << msg;
      everySize<QSXMLEncodeBuffer>((std::string(msg) + " XML").c_str(), textOf(xmlRef),
                                   [&](QSXMLEncodeBuffer& enc) { return xmlDocument(t, v, enc); });
      QSJSONEncodeBuffer jsonRef;
      ASSERT_EQ(0, t.jsonEncode(jsonRef.getCtxtPtr(), v)) << msg;
      everySize<QSJSONEncodeBuffer>((std::string(msg) + " JSON").c_str(), textOf(jsonRef),
                                    [&](QSJSONEncodeBuffer& enc) { return t.jsonEncode(enc.getCtxtPtr(), v); });
      rtxFreeContext(&src);
   }
}

// A buffer with room for everything below, so that the inline writers always apply.
class XmlFastTest : public ::testing::Test {
protected:
   std::vector<unsigned char> block = std::vector<unsigned char>(1 << 16);
   QSXMLEncodeBuffer buf{block.data(), block.size()};
   QSCTXT* ctxt = nullptr;

   void SetUp() override
   {
      ctxt = buf.getCtxtPtr();
      ASSERT_EQ(0, rtXmlEncBeginDocument(ctxt, U("R")));
   }

   // The document after "<R>", up to the end.
   std::string body()
   {
      std::string t = textOf(buf);
      const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R>";
      return t.compare(0, head.size(), head) == 0 ? t.substr(head.size()) : "<<" + t + ">>";
   }
};

// Names padded as the generated encoders store them.
struct Padded {
   char s[48] = {};
   explicit Padded(const std::string& name) { std::memcpy(s, name.data(), name.size()); }
};

// Nesting beyond the inline part of the element-name stack and beyond 32 spaces of indentation,
// the inline start and end tags mixed with the general ones, end tags found by pointer and by text.
TEST_F(XmlFastTest, DeepNestingMatchesTheGeneralWriter)
{
   const int depth = 45;
   std::vector<Padded> names;
   for (int i = 0; i < depth; i++) names.emplace_back("level" + std::to_string(i));
   // an element with nothing in it, opened by the inline writer
   Padded empty("e");
   ASSERT_EQ(0, rtXmlEncFastStart(ctxt, empty.s, 1));
   ASSERT_EQ(0, rtXmlEncFastEnd(ctxt, empty.s, 1));
   std::string expect = "\n   <e/>";
   for (int i = 0; i < depth; i++) {
      const char* name = names[i].s;
      // the inline start tag does nothing once the name stack has left its inline part
      if (i % 3 == 2 || rtXmlEncFastStart(ctxt, name, (QSSIZE)std::strlen(name)) != 0) {
         EXPECT_TRUE(i % 3 == 2 || i >= QS_ELEMNAME_INLINE - 1) << i;
         ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U(name), nullptr, nullptr, TRUE));
      }
      expect += "\n" + std::string(3 * (i + 1), ' ') + "<" + name + ">";
   }
   Padded leaf("v");
   ASSERT_EQ(0, rtXmlEncFastUInt(ctxt, 7, leaf.s, 1));
   expect += "\n" + std::string(3 * (depth + 1), ' ') + "<v>7</v>";
   for (int i = depth - 1; i >= 0; i--) {
      const char* name = names[i].s;
      if (i % 4 == 1) ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U(name), nullptr));
      else ASSERT_EQ(0, rtXmlEncFastEnd(ctxt, name, (QSSIZE)std::strlen(name)));
      expect += "\n" + std::string(3 * (i + 1), ' ') + "</" + name + ">";
   }
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("R"), nullptr));
   EXPECT_EQ(expect + "\n</R>", body());
   EXPECT_EQ(0u, ctxt->elemNameStack.count);
}

// Integers at every digit-count boundary, 32-bit and 64-bit, against their decimal text; the
// enumeration and boolean forms beside them.
TEST_F(XmlFastTest, NumbersEnumerationsAndBooleans)
{
   std::vector<uint64_t> values = {0, std::numeric_limits<uint32_t>::max(), std::numeric_limits<uint64_t>::max()};
   for (uint64_t p = 1; p <= 1000000000000000000ull; p *= 10) {
      values.push_back(p);
      values.push_back(p - 1);
      values.push_back(p + 1);
   }
   values.push_back(4294967296ull);
   Padded n("n");
   std::string expect;
   for (uint64_t v : values) {
      ASSERT_EQ(0, rtXmlEncFastUInt(ctxt, v, n.s, 1));
      expect += "\n   <n>" + std::to_string(v) + "</n>";
      int64_t s = (int64_t)v;
      ASSERT_EQ(0, rtXmlEncFastInt(ctxt, s, n.s, 1));
      expect += "\n   <n>" + std::to_string(s) + "</n>";
   }
   ASSERT_EQ(0, rtXmlEncFastInt(ctxt, std::numeric_limits<int64_t>::min(), n.s, 1));
   expect += "\n   <n>-9223372036854775808</n>";
   static const QSRTEnumTableEntry kTable[] = {{U("alpha"), 0, 5, 0}, {U("beta"), 1, 4, 1}};
   Padded e("choice");
   ASSERT_EQ(0, rtXmlEncFastEnum(ctxt, kTable, 2, 1, e.s, 6));
   expect += "\n   <choice>\n      <beta/>\n   </choice>";
   EXPECT_EQ(1, rtXmlEncFastEnum(ctxt, kTable, 2, 2, e.s, 6));   // not in the table: nothing written
   ASSERT_EQ(0, rtXmlEncFastBool(ctxt, FALSE, e.s, 6));
   expect += "\n   <choice>\n      <false/>\n   </choice>";
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("R"), nullptr));
   EXPECT_EQ(expect + "\n</R>", body());
}

// Text elements: one-piece when no byte needs an entity, the general escaping otherwise (bytes
// next to the escaped ones in the code table included).
TEST_F(XmlFastTest, StringsWithAndWithoutEntities)
{
   struct Case {
      const char* in;
      const char* out;
   } cases[] = {
      {"plain text", "plain text"},
      {"!#%()*;=?@[]", "!#%()*;=?@[]"},
      {"\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9"},
      {"<&>'\"", "&lt;&amp;&gt;&apos;&quot;"},
      {"a<", "a&lt;"},
      {">b", "&gt;b"},
      {"x'y", "x&apos;y"},
      {"tab\tand\nline", "tab\tand\nline"},
   };
   std::string expect;
   for (const Case& c : cases) {
      ASSERT_EQ(0, rtXmlEncUTF8Str(ctxt, U(c.in), U("s"), nullptr));
      expect += std::string("\n   <s>") + c.out + "</s>";
   }
   ASSERT_EQ(0, rtXmlEncUTF8Str(ctxt, U(""), U("s"), nullptr));
   expect += "\n   <s/>";
   // the member form leaves lengths outside the type's size, empty text and entities to the
   // general writer
   Padded s("s");
   EXPECT_EQ(1, rtXmlEncFastStr(ctxt, "abc", 4, 10, s.s, 1));
   EXPECT_EQ(1, rtXmlEncFastStr(ctxt, "abcdefghijk", 4, 10, s.s, 1));
   EXPECT_EQ(1, rtXmlEncFastStr(ctxt, "", 0, 10, s.s, 1));
   EXPECT_EQ(1, rtXmlEncFastStr(ctxt, nullptr, 0, 10, s.s, 1));
   EXPECT_EQ(1, rtXmlEncFastStr(ctxt, "ab&cd", 4, 10, s.s, 1));
   ASSERT_EQ(0, rtXmlEncFastStr(ctxt, "abcd", 4, 10, s.s, 1));
   ASSERT_EQ(0, rtXmlEncFastStr(ctxt, "abcdefghij", 4, 10, s.s, 1));
   expect += "\n   <s>abcd</s>\n   <s>abcdefghij</s>";
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("R"), nullptr));
   EXPECT_EQ(expect + "\n</R>", body());
}

// The inline JSON steps against the general ones, at an indentation beyond the first block of
// spaces.
TEST(JsonFast, InlineStepsMatchTheGeneralWriter)
{
   std::vector<unsigned char> fb(1 << 16), gb(1 << 16);
   QSJSONEncodeBuffer fast(fb.data(), fb.size()), general(gb.data(), gb.size());
   QSCTXT* f = fast.getCtxtPtr();
   QSCTXT* g = general.getCtxtPtr();
   for (int level = 0; level < 25; level++) {
      ASSERT_EQ(0, rtJsonEncFastOpen(f, '{'));
      ASSERT_EQ(0, rtJsonEncOpen(g, '{'));
      ASSERT_EQ(0, rtJsonEncFastMemberKey(f, TRUE, "\"k\":", 4));
      ASSERT_EQ(0, rtJsonEncMemberKey(g, TRUE, "\"k\":", 4));
   }
   const char* key = "\"a rather long member name\":";
   QSSIZE klen = (QSSIZE)std::strlen(key);
   for (uint64_t v : {0ull, 9ull, 10ull, 99ull, 100ull, 4294967295ull, 4294967296ull, 18446744073709551615ull}) {
      ASSERT_EQ(1, rtJsonEncFastMemberUInt(f, FALSE, key, klen, v));
      ASSERT_EQ(1, rtJsonEncMemberUInt(g, FALSE, key, klen, v));
      ASSERT_EQ(1, rtJsonEncFastMemberInt(f, FALSE, "\"i\":", 4, -(int64_t)(v >> 1)));
      ASSERT_EQ(1, rtJsonEncMemberInt(g, FALSE, "\"i\":", 4, -(int64_t)(v >> 1)));
   }
   for (int level = 0; level < 25; level++) {
      ASSERT_EQ(0, rtJsonEncFastClose(f, '}'));
      ASSERT_EQ(0, rtJsonEncClose(g, '}'));
   }
   EXPECT_EQ(textOf(general), textOf(fast));
   EXPECT_NE(std::string::npos, textOf(fast).find("-9223372036854775807"));
}

} // namespace
