// JSON writer: exact characters of every writer, buffer growth and limits.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rtjsonsrc/rtJson.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

namespace {

class JsonWriterTest : public ::testing::Test {
protected:
   QSCTXT ctxt;
   void SetUp() override
   {
      ASSERT_EQ(0, rtxInitContext(&ctxt));
      ASSERT_EQ(0, rtxInitContextBuffer(&ctxt, nullptr, 0));
   }
   void TearDown() override { rtxFreeContext(&ctxt); }

   std::string text() const
   {
      return std::string((const char*)ctxt.buffer.data, ctxt.buffer.byteIndex);
   }
};

/* A small document written the way generated encoders write it. */
int writeDoc(QSCTXT* c)
{
   int stat = rtJsonEncOpen(c, '{');
   if (stat == 0) stat = rtJsonEncMember(c, 1);
   if (stat == 0) stat = rtJsonEncKey(c, "header", 6);
   if (stat == 0) stat = rtJsonEncOpen(c, '{');
   if (stat == 0) stat = rtJsonEncMember(c, 1);
   if (stat == 0) stat = rtJsonEncKey(c, "protocolVersion", 15);
   if (stat == 0) stat = rtxTxtWriteUInt(c, 2);
   if (stat == 0) stat = rtJsonEncNext(c);
   if (stat == 0) stat = rtJsonEncKey(c, "stationID", 9);
   if (stat == 0) stat = rtxTxtWriteUInt(c, 1234);
   if (stat == 0) stat = rtJsonEncClose(c, '}');
   if (stat == 0) stat = rtJsonEncNext(c);
   if (stat == 0) stat = rtJsonEncKey(c, "empty", 5);
   if (stat == 0) stat = rtJsonEncOpen(c, '{');
   if (stat == 0) stat = rtJsonEncClose(c, '}');
   if (stat == 0) stat = rtJsonEncNext(c);
   if (stat == 0) stat = rtJsonEncKey(c, "list", 4);
   if (stat == 0) stat = rtJsonEncOpen(c, '[');
   if (stat == 0) stat = rtJsonEncMember(c, 1);
   if (stat == 0) stat = rtJsonEncBoolValue(c, 1);
   if (stat == 0) stat = rtJsonEncMember(c, 0);
   if (stat == 0) stat = rtJsonEncStringValue(c, "x");
   if (stat == 0) stat = rtJsonEncClose(c, ']');
   if (stat == 0) stat = rtJsonEncClose(c, '}');
   return stat;
}

const char kDoc[] =
   "{\n"
   "   \"header\":{\n"
   "      \"protocolVersion\":2,\n"
   "      \"stationID\":1234\n"
   "   },\n"
   "   \"empty\":{\n"
   "   },\n"
   "   \"list\":[\n"
   "      true,\n"
   "      \"x\"\n"
   "   ]\n"
   "}";

/* ---- indentation and layout ------------------------------------------------------------------- */

TEST_F(JsonWriterTest, IndentWritesNewlineAndSpaces)
{
   ctxt.indent = 6;
   ASSERT_EQ(0, rtJsonEncIndent(&ctxt));
   EXPECT_EQ("\n      ", text());
   ctxt.indent = 0;
   ASSERT_EQ(0, rtJsonEncIndent(&ctxt));
   EXPECT_EQ("\n      \n", text());
}

TEST_F(JsonWriterTest, IndentLevels)
{
   rtxIndentIncr(&ctxt);
   rtxIndentIncr(&ctxt);
   EXPECT_EQ(6, ctxt.indent);
   EXPECT_EQ(2u, rtxGetIndentLevels(&ctxt));
   rtxIndentDecr(&ctxt);
   rtxIndentDecr(&ctxt);
   rtxIndentDecr(&ctxt);
   EXPECT_EQ(0, ctxt.indent);
}

TEST_F(JsonWriterTest, IndentCompactWritesNothing)
{
   ctxt.indent = 3;
   rtxCtxtSetFlag(&ctxt, QSJSONCOMPACT);
   ASSERT_EQ(0, rtJsonEncIndent(&ctxt));
   EXPECT_EQ("", text());
}

TEST_F(JsonWriterTest, IndentInsertsCommaInJsonMode)
{
   ctxt.jsonMode = QSJSON_MODE_ARRAY;
   ASSERT_EQ(0, rtJsonEncPutChar(&ctxt, '['));
   ASSERT_EQ(0, rtJsonEncIndent(&ctxt));   // after '[': no comma
   ASSERT_EQ(0, rtxTxtWriteInt(&ctxt, 1));
   ASSERT_EQ(0, rtJsonEncIndent(&ctxt));   // after a value: comma
   EXPECT_EQ("[\n1,\n", text());
}

TEST_F(JsonWriterTest, GeneratedStyleDocument)
{
   ASSERT_EQ(0, writeDoc(&ctxt));
   EXPECT_EQ(kDoc, text());
   EXPECT_EQ(0, ctxt.indent);
   // the buffer holds a C string
   EXPECT_STREQ(kDoc, (const char*)ctxt.buffer.data);
}

TEST_F(JsonWriterTest, EmptyObjectSpansTwoLines)
{
   ASSERT_EQ(0, rtJsonEncOpen(&ctxt, '{'));
   ASSERT_EQ(0, rtJsonEncClose(&ctxt, '}'));
   EXPECT_EQ("{\n}", text());
}

/* ---- strings ---------------------------------------------------------------------------------- */

TEST_F(JsonWriterTest, StringEscapesNarrowSet)
{
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, "a\tb\"c\x01" "d\\e/f\n\b\f\r\x1f"));
   EXPECT_EQ("\"a\\tb\\\"c\x01" "d\\\\e/f\\n\\b\\f\\r\x1f\"", text());
}

TEST_F(JsonWriterTest, StringUtf8CopiedAsIs)
{
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, "\xc3\xa9t\xc3\xa9"));
   EXPECT_EQ("\"\xc3\xa9t\xc3\xa9\"", text());
}

TEST_F(JsonWriterTest, NullAndEmptyStrings)
{
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, (const char*)nullptr));
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, ""));
   ASSERT_EQ(0, rtJsonEncStringValue2(&ctxt, "abc", 2));
   EXPECT_EQ("\"\"\"\"\"ab\"", text());
}

TEST_F(JsonWriterTest, AttributeNameFlagAddsAtSignOnce)
{
   rtxCtxtSetFlag(&ctxt, QSJSONATTRNAME);
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, "id"));
   EXPECT_FALSE(ctxt.flags & QSJSONATTRNAME);
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, "id"));
   rtxCtxtSetFlag(&ctxt, QSJSONATTRNAME);
   ASSERT_EQ(0, rtJsonEncStringValue(&ctxt, "@x"));
   EXPECT_EQ("\"@id\"\"id\"\"@x\"", text());
}

TEST_F(JsonWriterTest, StringPairAndObject)
{
   ASSERT_EQ(0, rtJsonEncStringPair(&ctxt, "k", "v"));
   ctxt.indent = 3;
   ASSERT_EQ(0, rtJsonEncStringPair(&ctxt, "k", "v"));
   ASSERT_EQ(0, rtJsonEncStringObject(&ctxt, "value", "a\"b"));
   EXPECT_EQ("\"k\":\"v\"\"k\" : \"v\"{\"value\" : \"a\\\"b\"}", text());
}

TEST_F(JsonWriterTest, NullBoolRaw)
{
   ASSERT_EQ(0, rtJsonEncStringNull(&ctxt));
   ASSERT_EQ(0, rtJsonEncBoolValue(&ctxt, 1));
   ASSERT_EQ(0, rtJsonEncBoolValue(&ctxt, 0));
   ASSERT_EQ(0, rtJsonEncStringRaw(&ctxt, "\"a\":1"));
   EXPECT_EQ("nulltruefalse\"a\":1", text());
   EXPECT_EQ('1', ctxt.lastChar);
}

TEST_F(JsonWriterTest, RawRejectsEmpty)
{
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, rtJsonEncStringRaw(&ctxt, ""));
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, rtJsonEncStringRaw(&ctxt, nullptr));
   EXPECT_EQ("", text());
}

TEST_F(JsonWriterTest, CopyAsciiTextAndBytes)
{
   ASSERT_EQ(0, rtxCopyAsciiText(&ctxt, nullptr));
   ASSERT_EQ(0, rtxCopyAsciiText(&ctxt, ""));
   ASSERT_EQ(0, rtxCopyAsciiText(&ctxt, "ab"));
   const QSOCTET bytes[] = { 'c', 0, 'd' };
   ASSERT_EQ(0, rtxWriteBytes(&ctxt, bytes, 3));
   EXPECT_EQ(std::string("abc\0d", 5), text());
}

/* ---- numbers ---------------------------------------------------------------------------------- */

TEST_F(JsonWriterTest, Integers)
{
   ASSERT_EQ(0, rtxTxtWriteInt(&ctxt, -2147483647 - 1));
   ASSERT_EQ(0, rtJsonEncPutChar(&ctxt, ' '));
   ASSERT_EQ(0, rtxTxtWriteInt(&ctxt, 0));
   ASSERT_EQ(0, rtJsonEncPutChar(&ctxt, ' '));
   ASSERT_EQ(0, rtxTxtWriteUInt(&ctxt, 4294967295u));
   ASSERT_EQ(0, rtJsonEncPutChar(&ctxt, ' '));
   ASSERT_EQ(0, rtxTxtWriteInt64(&ctxt, -9223372036854775807LL - 1));
   ASSERT_EQ(0, rtJsonEncPutChar(&ctxt, ' '));
   ASSERT_EQ(0, rtxTxtWriteUInt64(&ctxt, 18446744073709551615ULL));
   ASSERT_EQ(0, rtJsonEncPutChar(&ctxt, ' '));
   ASSERT_EQ(0, rtxTxtWriteInt(&ctxt, 900000001));
   EXPECT_EQ("-2147483648 0 4294967295 -9223372036854775808 18446744073709551615 900000001",
             text());
}

TEST_F(JsonWriterTest, DoubleRoundTrips)
{
   ASSERT_EQ(0, rtJsonEncDoubleValue(&ctxt, 0.1));
   EXPECT_EQ("0.1", text());
}

/* ---- hex and bit strings ---------------------------------------------------------------------- */

TEST_F(JsonWriterTest, HexStrings)
{
   const QSOCTET b[] = { 0x0A, 0xFF };
   ASSERT_EQ(0, rtJsonEncHexStr(&ctxt, 2, b));
   ASSERT_EQ(0, rtJsonEncHexStr(&ctxt, 0, nullptr));
   ASSERT_EQ(0, rtJsonEncHexValue(&ctxt, 1, b + 1));
   EXPECT_EQ("\"0aff\"\"\"ff", text());
}

TEST_F(JsonWriterTest, HexNegativeCount)
{
   const QSOCTET b[] = { 1 };
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtJsonEncHexValue(&ctxt, (QSSIZE)-1, b));
}

TEST_F(JsonWriterTest, HexUpperCaseFlag)
{
   const QSOCTET b[] = { 0xAB, 0xCD };
   rtxCtxtSetFlag(&ctxt, QSJSONHEXUPPER);
   ASSERT_EQ(0, rtJsonEncHexValue(&ctxt, 2, b));
   EXPECT_EQ("ABCD", text());
}

TEST_F(JsonWriterTest, LongHexAcrossStagingBlocks)
{
   std::vector<QSOCTET> data(1000);
   std::string expect = "\"";
   const char* digits = "0123456789abcdef";
   for (size_t i = 0; i < data.size(); i++) {
      data[i] = (QSOCTET)(i * 7);
      expect += digits[data[i] >> 4];
      expect += digits[data[i] & 15];
   }
   expect += "\"";
   ASSERT_EQ(0, rtJsonEncHexStr(&ctxt, data.size(), data.data()));
   EXPECT_EQ(expect, text());
}

TEST_F(JsonWriterTest, FixedBitStringMasksUnusedBits)
{
   const QSOCTET b10[] = { 0x80, 0x7F };
   ASSERT_EQ(0, rtJsonEncFixedBitStrValue(&ctxt, 10, b10));
   const QSOCTET b8[] = { 0xA5 };
   ASSERT_EQ(0, rtJsonEncFixedBitStrValue(&ctxt, 8, b8));
   const QSOCTET b13[] = { 0x12, 0xFF };
   ASSERT_EQ(0, rtJsonEncFixedBitStrValue(&ctxt, 13, b13));
   ASSERT_EQ(0, rtJsonEncFixedBitStrValue(&ctxt, 0, nullptr));
   EXPECT_EQ("\"8040\"\"a5\"\"12f8\"\"\"", text());
}

TEST_F(JsonWriterTest, BitStringObject)
{
   ctxt.indent = 3;
   const QSOCTET b[] = { 0xFF, 0xFF };
   ASSERT_EQ(0, rtJsonEncBitStrValue(&ctxt, 12, b));
   EXPECT_EQ("{\n"
             "      \"value\":\"fff0\",\n"
             "      \"length\":12\n"
             "   }",
             text());
   EXPECT_EQ(3, ctxt.indent);
}

TEST_F(JsonWriterTest, BitStringObjectExt)
{
   const QSOCTET first[] = { 0x12 };
   const QSOCTET ext[] = { 0x34, 0xFF };
   ASSERT_EQ(0, rtJsonEncBitStrValueExt(&ctxt, 20, first, 1, ext));
   EXPECT_EQ("{\n   \"value\":\"1234f0\",\n   \"length\":20\n}", text());
}

TEST_F(JsonWriterTest, BitStringObjectExtWithinFirstPart)
{
   const QSOCTET first[] = { 0xFF, 0xFF };
   ASSERT_EQ(0, rtJsonEncBitStrValueExt(&ctxt, 3, first, 2, nullptr));
   EXPECT_EQ("{\n   \"value\":\"e0\",\n   \"length\":3\n}", text());
}

/* ---- generic edges ---------------------------------------------------------------------------- */

TEST_F(JsonWriterTest, GenericEdges)
{
   ASSERT_EQ(0, rtJsonEncStartObject(&ctxt, "top", 0));   // depth 0: no name
   rtxIndentIncr(&ctxt);
   rtxIndentIncr(&ctxt);
   ASSERT_EQ(0, rtJsonEncStartObject(&ctxt, "inner", 0));
   ASSERT_EQ(0, rtJsonEncEndObject(&ctxt));
   ctxt.jsonMode = QSJSON_MODE_ARRAY;
   ASSERT_EQ(0, rtJsonEncStartObject(&ctxt, "arr", 1));
   ASSERT_EQ(0, rtJsonEncEndObject(&ctxt));
   EXPECT_EQ("\n{\n      \"inner\" : {\n      }\n      [\n      ]", text());
}

TEST_F(JsonWriterTest, BetweenObject)
{
   ASSERT_EQ(0, rtJsonEncBetweenObject(&ctxt));
   ctxt.indent = 3;
   ASSERT_EQ(0, rtJsonEncBetweenObject(&ctxt));
   rtxCtxtSetFlag(&ctxt, QSJSONCOMPACT);
   ASSERT_EQ(0, rtJsonEncBetweenObject(&ctxt));
   EXPECT_EQ(": : :", text());
}

/* ---- open types and extensions ---------------------------------------------------------------- */

TEST_F(JsonWriterTest, OpenTypeWrapper)
{
   const char* json = " {\"a\": [1, true], \"b\":\"q\\\"\"} trailing";
   ctxt.indent = 6;
   ASSERT_EQ(0, rtJsonAsn1EncOpenType(&ctxt, strlen(json), (const QSOCTET*)json));
   EXPECT_EQ("{\"value\" : \"{\\\"a\\\": [1, true], \\\"b\\\":\\\"q\\\\\\\"\\\"}\"}", text());
}

TEST_F(JsonWriterTest, OpenTypeNumberAtTopLevel)
{
   const char* json = "42";
   ctxt.indent = 3;
   ASSERT_EQ(0, rtJsonAsn1EncOpenType(&ctxt, 2, (const QSOCTET*)json));
   EXPECT_EQ("{\"value\" : \"42\"}", text());
}

TEST_F(JsonWriterTest, OpenTypeEmptyWritesNothing)
{
   ASSERT_EQ(0, rtJsonAsn1EncOpenType(&ctxt, 0, nullptr));
   EXPECT_EQ("", text());
}

TEST_F(JsonWriterTest, OpenTypeNotJsonFails)
{
   const QSOCTET per[] = { 0x01, 0x80, 0x22 };
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonAsn1EncOpenType(&ctxt, 3, per));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtxErrGetStatus(&ctxt));
}

TEST_F(JsonWriterTest, ExtElemRawTextFragment)
{
   const char frag[] = "\"unknown\":{\"x\":1}";
   ASN1TOpenType ot{ (QSUINT32)sizeof(frag), (const QSOCTET*)frag };
   ASSERT_EQ(0, rtJsonAsn1EncExtElem(&ctxt, &ot));
   EXPECT_EQ("\"unknown\":{\"x\":1}", text());
}

TEST_F(JsonWriterTest, ExtElemBinaryGetsHexKey)
{
   const QSOCTET bytes[] = { 0x01, 0x02 };
   ASN1TOpenType ot{ 2, bytes };
   ASSERT_EQ(0, rtJsonAsn1EncExtElem(&ctxt, &ot));
   ASSERT_EQ(0, rtJsonEncExtElemWithSuffix(&ctxt, &ot, 2));
   EXPECT_EQ("\"_ext\":\"0102\"\"_ext_2\":\"0102\"", text());
}

TEST_F(JsonWriterTest, ExtElemTextWithoutNulOrNonAsciiIsHex)
{
   const QSOCTET noNul[] = { 'a', 'b' };
   ASN1TOpenType ot1{ 2, noNul };
   ASSERT_EQ(0, rtJsonEncExtElemWithSuffix(&ctxt, &ot1, 1));
   const QSOCTET utf8[] = { 0xC3, 0xA9, 0 };
   ASN1TOpenType ot2{ 3, utf8 };
   ASSERT_EQ(0, rtJsonEncExtElemWithSuffix(&ctxt, &ot2, 3));
   EXPECT_EQ("\"_ext_1\":\"6162\"\"_ext_3\":\"c3a900\"", text());
}

TEST_F(JsonWriterTest, ExtensionList)
{
   const char frag[] = "\"x\":1";
   ASN1TOpenType ot1{ (QSUINT32)sizeof(frag), (const QSOCTET*)frag };
   const QSOCTET bytes[] = { 0x01, 0x02 };
   ASN1TOpenType ot2{ 2, bytes };
   QSRTDList list;
   rtxDListInit(&list);
   ASSERT_NE(nullptr, rtxDListAppend(&ctxt, &list, &ot1));
   ASSERT_NE(nullptr, rtxDListAppend(&ctxt, &list, &ot2));
   ASSERT_NE(nullptr, rtxDListAppend(&ctxt, &list, nullptr));
   ASSERT_NE(nullptr, rtxDListAppend(&ctxt, &list, &ot2));
   ASSERT_EQ(0, rtJsonAsn1EncOpenTypeExt(&ctxt, &list, 0));
   EXPECT_EQ("\"x\":1,\"_ext_2\":\"0102\",\"_ext_4\":\"0102\"", text());
   ctxt.buffer.byteIndex = 0;
   ASSERT_EQ(0, rtJsonAsn1EncOpenTypeExt(&ctxt, &list, 1));
   EXPECT_EQ("\"x\":1,\"_ext_2\":\"0102\",null,\"_ext_4\":\"0102\"", text());
   rtxDListFreeNodes(&ctxt, &list);
}

/* ---- buffers ---------------------------------------------------------------------------------- */

TEST_F(JsonWriterTest, DynamicBufferDoubles)
{
   EXPECT_EQ(1024u, ctxt.buffer.size);
   std::string s(1020, 'a');
   ASSERT_EQ(0, rtxCopyAsciiText(&ctxt, s.c_str()));
   EXPECT_EQ(1024u, ctxt.buffer.size);
   ASSERT_EQ(0, rtxCopyAsciiText(&ctxt, "bbbbbbbb"));
   EXPECT_EQ(2048u, ctxt.buffer.size);
   std::string big(5000, 'c');
   ASSERT_EQ(0, rtxCopyAsciiText(&ctxt, big.c_str()));
   EXPECT_GE(ctxt.buffer.size, 1028u + 5000u);
   EXPECT_GT(ctxt.buffer.size, 2048u * 2);   // grows by more than doubling when needed
   EXPECT_EQ(s + "bbbbbbbb" + big, text());
}

TEST(JsonWriterStatic, ExactFitAndOneByteShort)
{
   const size_t len = sizeof(kDoc) - 1;
   std::vector<unsigned char> buf(len + 1);
   {
      QSCTXT c;
      ASSERT_EQ(0, rtxInitContext(&c));
      ASSERT_EQ(0, rtxInitContextBuffer(&c, buf.data(), len + 1));
      ASSERT_EQ(0, writeDoc(&c));
      EXPECT_EQ(len, c.buffer.byteIndex);
      EXPECT_STREQ(kDoc, (const char*)buf.data());
      rtxFreeContext(&c);
   }
   {
      QSCTXT c;
      ASSERT_EQ(0, rtxInitContext(&c));
      ASSERT_EQ(0, rtxInitContextBuffer(&c, buf.data(), len));
      EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, writeDoc(&c));
      EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, rtxErrGetStatus(&c));
      EXPECT_EQ(len - 1, c.buffer.byteIndex);   // text before the last brace stays
      rtxFreeContext(&c);
   }
}

TEST(JsonWriterStatic, StringNeedsExactRoom)
{
   unsigned char buf[8];
   QSCTXT c;
   ASSERT_EQ(0, rtxInitContext(&c));
   ASSERT_EQ(0, rtxInitContextBuffer(&c, buf, 6));
   EXPECT_EQ(0, rtJsonEncStringValue(&c, "a\tb"));   // 6 bytes exactly
   EXPECT_EQ(6u, c.buffer.byteIndex);
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, rtJsonEncStringNull(&c));
   rtxFreeContext(&c);
}

} // namespace
