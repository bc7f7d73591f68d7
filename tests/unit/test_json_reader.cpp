// JSON token readers: characters, strings, keys, booleans, null, numbers,
// integers, hex strings and bit strings.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "rtjsonsrc/rtJson.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

namespace {

class JsonReaderTest : public ::testing::Test {
protected:
   QSCTXT ctxt;
   std::string input;

   void SetUp() override { ASSERT_EQ(0, rtxInitContext(&ctxt)); }
   void TearDown() override { rtxFreeContext(&ctxt); }

   void setInput(const std::string& text)
   {
      input = text;
      rtxErrReset(&ctxt);
      ctxt.buffer.data = (QSOCTET*)input.data();
      ctxt.buffer.size = input.size();
      ctxt.buffer.byteIndex = 0;
      ctxt.buffer.dynamic = 0;
   }

   std::string rest() const
   {
      return input.substr(ctxt.buffer.byteIndex);
   }

   /* Parameters of the newest error record, joined with '|'. */
   std::string parms()
   {
      QSRTDListNode* n = ctxt.errInfoList.tail;
      if (n == nullptr) return "<none>";
      const QSRTErrInfo* e = static_cast<const QSRTErrInfo*>(n->data);
      std::string s;
      for (int i = 0; i < e->parmcnt; i++) {
         if (i) s += "|";
         s += e->parms[i];
      }
      return s;
   }
};

/* ---- whitespace, peek, match ------------------------------------------------------------------ */

TEST_F(JsonReaderTest, WhitespaceSet)
{
   setInput("\t\n\v\f\r x");
   rtxTxtSkipWhitespace(&ctxt);
   EXPECT_EQ("x", rest());
   setInput("\x1c" "x");
   rtxTxtSkipWhitespace(&ctxt);
   EXPECT_EQ("\x1c" "x", rest());
}

TEST_F(JsonReaderTest, PeekChar)
{
   setInput("  ab");
   EXPECT_EQ(' ', rtxTxtPeekChar2(&ctxt, 0));
   EXPECT_EQ('a', rtxTxtPeekChar2(&ctxt, 1));
   EXPECT_EQ("ab", rest());
   setInput("   ");
   EXPECT_EQ(0, rtxTxtPeekChar2(&ctxt, 1));
}

TEST_F(JsonReaderTest, MatchCharPushesBack)
{
   setInput("  { x");
   EXPECT_EQ(0, rtJsonDecMatchChar(&ctxt, '{'));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecMatchChar(&ctxt, '}'));
   EXPECT_EQ("x", rest());
   setInput("");
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecMatchChar(&ctxt, '}'));
}

TEST_F(JsonReaderTest, SkipWhitespaceAndComma)
{
   setInput(" ,  x");
   EXPECT_EQ(0, rtJsonDecSkipWhitespaceAndComma(&ctxt));
   EXPECT_EQ("x", rest());
   setInput("  x");
   EXPECT_EQ(0, rtJsonDecSkipWhitespaceAndComma(&ctxt));
   EXPECT_EQ("x", rest());
}

/* ---- strings ---------------------------------------------------------------------------------- */

TEST_F(JsonReaderTest, StringPlain)
{
   setInput("  \"h\xc3\xa9llo\x01\" ,");
   QSUTF8CHAR* s = nullptr;
   ASSERT_EQ(0, rtJsonDecStringValue(&ctxt, &s));
   EXPECT_STREQ("h\xc3\xa9llo\x01", (const char*)s);
   EXPECT_EQ(" ,", rest());
   rtxMemHeapFreePtr(&ctxt, s);
}

TEST_F(JsonReaderTest, StringEscapes)
{
   setInput("\"a\\b\\f\\n\\r\\t\\/\\\\\\\"z\"");
   const char* s = nullptr;
   ASSERT_EQ(0, rtJsonDecStringValue(&ctxt, &s));
   EXPECT_STREQ("a\b\f\n\r\t/\\\"z", s);
   EXPECT_EQ("", rest());
}

TEST_F(JsonReaderTest, StringEmpty)
{
   setInput("\"\"");
   char* s = nullptr;
   ASSERT_EQ(0, rtJsonDecStringValue(&ctxt, &s));
   EXPECT_STREQ("", s);
}

TEST_F(JsonReaderTest, StringRejectsUnicodeEscape)
{
   setInput("\"caf\\u00e9\"");
   QSUTF8CHAR* s = nullptr;
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecStringValue(&ctxt, &s));
   EXPECT_EQ(nullptr, s);
   setInput("\"\\x\"");
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecStringValue(&ctxt, &s));
}

TEST_F(JsonReaderTest, StringWithoutQuote)
{
   setInput("  x\"");
   QSUTF8CHAR* s = nullptr;
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecStringValue(&ctxt, &s));
   EXPECT_EQ("\"|x", parms());
   EXPECT_EQ("x\"", rest());
   EXPECT_EQ(1u, rtxErrGetErrorCnt(&ctxt));
}

TEST_F(JsonReaderTest, StringUnterminated)
{
   setInput("\"abc");
   QSUTF8CHAR* s = nullptr;
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecStringValue(&ctxt, &s));
   setInput("\"abc\\");
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecStringValue(&ctxt, &s));
}

TEST_F(JsonReaderTest, StringAttributeMarker)
{
   setInput("\"@id\"\"id\"");
   rtxCtxtSetFlag(&ctxt, QSJSONATTRNAME);
   QSUTF8CHAR* s = nullptr;
   ASSERT_EQ(0, rtJsonDecStringValue(&ctxt, &s));
   EXPECT_STREQ("id", (const char*)s);
   EXPECT_FALSE(ctxt.flags & QSJSONATTRNAME);
   rtxCtxtSetFlag(&ctxt, QSJSONATTRNAME);
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecStringValue(&ctxt, &s));
}

/* ---- tokens and keys -------------------------------------------------------------------------- */

TEST_F(JsonReaderTest, MatchToken)
{
   setInput(" \"value\" : 1");
   EXPECT_EQ(0, rtJsonDecMatchToken(&ctxt, "value"));
   EXPECT_EQ(" : 1", rest());
   setInput(" \"other\"");
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecMatchToken(&ctxt, "value"));
   EXPECT_EQ(" \"other\"", rest());   // cursor restored
   EXPECT_EQ("value|other", parms());
   setInput("  null,");
   EXPECT_EQ(0, rtJsonDecMatchToken2(&ctxt, "null", 4));
   EXPECT_EQ(",", rest());
}

TEST_F(JsonReaderTest, MatchTokenParameters)
{
   setInput("ab");
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtJsonDecMatchToken2(&ctxt, "", 0));
   setInput("ab");
   EXPECT_EQ(RTERR_FEATURE_NOT_SUPPORTED, rtJsonDecMatchToken(&ctxt, "abc"));
   EXPECT_EQ("Match on token larger than context buffer size", parms());
}

TEST_F(JsonReaderTest, GetElemIdx)
{
   static const QSJsonElemName names[] = { { "value", 5 }, { "length", 6 }, { "len", 3 } };
   setInput(" \"len\" : 3");
   EXPECT_EQ(2, rtJsonGetElemIdx(&ctxt, names, 3));
   EXPECT_EQ(" 3", rest());
   setInput("\"x\":1");
   EXPECT_EQ(-1, rtJsonGetElemIdx(&ctxt, names, 3));
   setInput("\"leng\\/th\":1");
   EXPECT_EQ(-1, rtJsonGetElemIdx(&ctxt, names, 3));
   setInput("\"length\" 1");
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonGetElemIdx(&ctxt, names, 3));
}

TEST_F(JsonReaderTest, MatchObjectStart)
{
   static const QSJsonElemName names[] = { { "value", 5 }, { "length", 6 } };
   setInput(" { \"length\":1}");
   EXPECT_EQ(1, rtJsonDecMatchObjectStart(&ctxt, names, 2));
   setInput("{\"x\":1}");
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecMatchObjectStart(&ctxt, names, 2));
}

/* ---- booleans and null ------------------------------------------------------------------------ */

TEST_F(JsonReaderTest, Booleans)
{
   QSBOOL v = 2;
   setInput(" true");
   ASSERT_EQ(0, rtJsonDecBool(&ctxt, &v));
   EXPECT_EQ(1, v);
   setInput("false,");
   ASSERT_EQ(0, rtJsonDecBool(&ctxt, &v));
   EXPECT_EQ(0, v);
   EXPECT_EQ(",", rest());
   setInput(" 1");
   ASSERT_EQ(0, rtJsonDecBool(&ctxt, &v));
   EXPECT_EQ(1, v);
   setInput("0}");
   ASSERT_EQ(0, rtJsonDecBool(&ctxt, &v));
   EXPECT_EQ(0, v);
   EXPECT_EQ("}", rest());
}

TEST_F(JsonReaderTest, BooleanCapitalRejected)
{
   QSBOOL v = 0;
   setInput("True");
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecBool(&ctxt, &v));
   EXPECT_EQ("true|false|T", parms());
   setInput("fals3");
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecBool(&ctxt, &v));
   EXPECT_EQ("true|false|fals3", parms());
   setInput("2");
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonTryDecBool(&ctxt, &v));
   EXPECT_EQ(0u, rtxErrGetErrorCnt(&ctxt));
}

TEST_F(JsonReaderTest, Null)
{
   setInput("null,");
   EXPECT_EQ(0, rtJsonDecNull(&ctxt));
   EXPECT_EQ(",", rest());
   setInput("nul}");
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecNull(&ctxt));
   EXPECT_EQ("null|nul}", parms());
   setInput(" null");   // no whitespace skipping of its own
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecNull(&ctxt));
   setInput("nu");
   EXPECT_NE(0, rtJsonTryDecNull(&ctxt));
   EXPECT_EQ(0u, rtxErrGetErrorCnt(&ctxt));
}

/* ---- numbers ---------------------------------------------------------------------------------- */

TEST_F(JsonReaderTest, NumberString)
{
   char* s = nullptr;
   setInput(" -0.5e+3,");
   ASSERT_EQ(0, rtJsonDecNumberString(&ctxt, &s));
   EXPECT_STREQ("-0.5e+3", s);
   EXPECT_EQ(",", rest());
   setInput("12E7]");
   ASSERT_EQ(0, rtJsonDecNumberString(&ctxt, &s));
   EXPECT_STREQ("12E7", s);
   setInput("0123");
   ASSERT_EQ(0, rtJsonDecNumberString(&ctxt, &s));
   EXPECT_STREQ("0", s);
   EXPECT_EQ("123", rest());
}

TEST_F(JsonReaderTest, NumberStringErrors)
{
   char* s = nullptr;
   setInput("-");
   EXPECT_EQ(RTERR_INVALID_VALUE_FORMAT, rtJsonDecNumberString(&ctxt, &s));
   setInput("1.}");
   EXPECT_EQ(RTERR_INVALID_VALUE_FORMAT, rtJsonDecNumberString(&ctxt, &s));
   setInput("1e+");
   EXPECT_EQ(RTERR_INVALID_VALUE_FORMAT, rtJsonDecNumberString(&ctxt, &s));
   setInput("  ");
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecNumberString(&ctxt, &s));
   setInput(std::string(1024, '7'));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtJsonDecNumberString(&ctxt, &s));
   setInput(std::string(1023, '7'));
   EXPECT_EQ(0, rtJsonDecNumberString(&ctxt, &s));
}

TEST_F(JsonReaderTest, Int32Range)
{
   QSINT32 v = 0;
   setInput(" -2147483648,");
   ASSERT_EQ(0, rtxTxtReadInt32(&ctxt, &v));
   EXPECT_EQ(-2147483647 - 1, v);
   EXPECT_EQ(",", rest());
   setInput("2147483647");
   ASSERT_EQ(0, rtxTxtReadInt32(&ctxt, &v));
   EXPECT_EQ(2147483647, v);
   setInput("2147483648");
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadInt32(&ctxt, &v));
   setInput("-2147483649");
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadInt32(&ctxt, &v));
}

TEST_F(JsonReaderTest, IntegerSignsAndLeadingZeros)
{
   QSINT32 v = 0;
   setInput("+15");
   ASSERT_EQ(0, rtxTxtReadInt32(&ctxt, &v));
   EXPECT_EQ(15, v);
   setInput("007");
   ASSERT_EQ(0, rtxTxtReadInt32(&ctxt, &v));
   EXPECT_EQ(7, v);
   setInput("12.5");
   ASSERT_EQ(0, rtxTxtReadInt32(&ctxt, &v));
   EXPECT_EQ(12, v);
   EXPECT_EQ(".5", rest());
   setInput("x");
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtxTxtReadInt32(&ctxt, &v));
   setInput("- 1");
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtxTxtReadInt32(&ctxt, &v));
   setInput("");
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxTxtReadInt32(&ctxt, &v));
}

TEST_F(JsonReaderTest, SmallAndUnsignedIntegers)
{
   QSINT8 i8 = 0;
   QSUINT8 u8 = 0;
   QSINT16 i16 = 0;
   QSUINT16 u16 = 0;
   QSUINT32 u32 = 0;
   QSINT64 i64 = 0;
   QSUINT64 u64 = 0;
   setInput("-128"); ASSERT_EQ(0, rtxTxtReadInt8(&ctxt, &i8)); EXPECT_EQ(-128, i8);
   setInput("128"); EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadInt8(&ctxt, &i8));
   setInput("255"); ASSERT_EQ(0, rtxTxtReadUInt8(&ctxt, &u8)); EXPECT_EQ(255, u8);
   setInput("256"); EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadUInt8(&ctxt, &u8));
   setInput("-32768"); ASSERT_EQ(0, rtxTxtReadInt16(&ctxt, &i16)); EXPECT_EQ(-32768, i16);
   setInput("65535"); ASSERT_EQ(0, rtxTxtReadUInt16(&ctxt, &u16)); EXPECT_EQ(65535, u16);
   setInput("65536"); EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadUInt16(&ctxt, &u16));
   setInput("4294967295"); ASSERT_EQ(0, rtxTxtReadUInt32(&ctxt, &u32)); EXPECT_EQ(4294967295u, u32);
   setInput("4294967296"); EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadUInt32(&ctxt, &u32));
   setInput("-1"); EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadUInt32(&ctxt, &u32));
   setInput("-0"); ASSERT_EQ(0, rtxTxtReadUInt32(&ctxt, &u32)); EXPECT_EQ(0u, u32);
   setInput("-9223372036854775808");
   ASSERT_EQ(0, rtxTxtReadInt64(&ctxt, &i64));
   EXPECT_EQ(-9223372036854775807LL - 1, i64);
   setInput("9223372036854775808");
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadInt64(&ctxt, &i64));
   setInput("18446744073709551615");
   ASSERT_EQ(0, rtxTxtReadUInt64(&ctxt, &u64));
   EXPECT_EQ(18446744073709551615ULL, u64);
   setInput("18446744073709551616");
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxTxtReadUInt64(&ctxt, &u64));
}

/* ---- hex strings ------------------------------------------------------------------------------ */

TEST_F(JsonReaderTest, HexString)
{
   QSOCTET buf[4] = { 0 };
   QSSIZE n = 0;
   setInput(" \"0aFf\",");
   ASSERT_EQ(0, rtJsonDecHexStr64(&ctxt, buf, &n, sizeof(buf)));
   EXPECT_EQ(2u, n);
   EXPECT_EQ(0x0A, buf[0]);
   EXPECT_EQ(0xFF, buf[1]);
   EXPECT_EQ(",", rest());
   setInput("\"\"");
   ASSERT_EQ(0, rtJsonDecHexStr64(&ctxt, buf, &n, sizeof(buf)));
   EXPECT_EQ(0u, n);
}

TEST_F(JsonReaderTest, HexOddDigitsRightAligned)
{
   QSOCTET buf[4] = { 0 };
   QSUINT32 n = 0;
   setInput("\"abc\"");
   ASSERT_EQ(0, rtJsonDecHexStr(&ctxt, buf, &n, sizeof(buf)));
   EXPECT_EQ(2u, n);
   EXPECT_EQ(0x0A, buf[0]);
   EXPECT_EQ(0xBC, buf[1]);
   setInput("\"5\"");
   ASSERT_EQ(0, rtJsonDecHexStr(&ctxt, buf, &n, sizeof(buf)));
   EXPECT_EQ(1u, n);
   EXPECT_EQ(0x05, buf[0]);
}

TEST_F(JsonReaderTest, HexCapacity)
{
   QSOCTET buf[2] = { 0 };
   QSSIZE n = 0;
   setInput("\"0102\"");
   ASSERT_EQ(0, rtJsonDecHexStr64(&ctxt, buf, &n, 2));
   setInput("\"01020\"");
   EXPECT_EQ(RTERR_MAX_STRING_ITEMS_EXCEEDED, rtJsonDecHexStr64(&ctxt, buf, &n, 2));
   setInput("\"0102x\"");
   EXPECT_EQ(RTERR_MAX_STRING_ITEMS_EXCEEDED, rtJsonDecHexStr64(&ctxt, buf, &n, 2));
   setInput("\"012\"");
   ASSERT_EQ(0, rtJsonDecHexStr64(&ctxt, buf, &n, 2));
   EXPECT_EQ(0x00, buf[0]);
   EXPECT_EQ(0x12, buf[1]);
}

// A dynamic string whose text does not begin with hex digits is refused for its character, not
// for its length.
TEST_F(JsonReaderTest, DynamicHexStrayCharacter)
{
   ASN1TDynOctStr v{};
   for (const char* bad : { "\"zz\"", "\" 0a\"", "\"0a1x\"" }) {
      setInput(bad);
      EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecDynHexStr(&ctxt, &v)) << bad;
   }
   setInput("\"0A1b\"");
   ASSERT_EQ(0, rtJsonDecDynHexStr(&ctxt, &v));
   EXPECT_EQ(2u, v.numocts);
   EXPECT_EQ(0x1b, v.data[1]);
   setInput("\"\"");
   ASSERT_EQ(0, rtJsonDecDynHexStr(&ctxt, &v));
   EXPECT_EQ(0u, v.numocts);
   EXPECT_EQ(nullptr, v.data);
}

TEST_F(JsonReaderTest, HexStrayCharacter)
{
   QSOCTET buf[4] = { 0 };
   QSSIZE n = 0;
   setInput("\"0g\"");
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecHexStr64(&ctxt, buf, &n, sizeof(buf)));
   EXPECT_EQ("g\"", rest());
   setInput("01");
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecHexStr64(&ctxt, buf, &n, sizeof(buf)));
   setInput("\"01");
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecHexStr64(&ctxt, buf, &n, sizeof(buf)));
}

TEST_F(JsonReaderTest, DynHexString)
{
   ASN1TDynOctStr v{};
   setInput("\"00112233445566778899aabbccddeeff0\"");
   ASSERT_EQ(0, rtJsonDecDynHexStr(&ctxt, &v));
   ASSERT_EQ(17u, v.numocts);
   EXPECT_EQ(0x00, v.data[0]);
   EXPECT_EQ(0x01, v.data[1]);
   EXPECT_EQ(0xF0, v.data[16]);
   ASN1TDynOctStr64 v64{};
   setInput("\"\"");
   ASSERT_EQ(0, rtJsonDecDynHexStr64(&ctxt, &v64));
   EXPECT_EQ(0u, v64.numocts);
}

/* ---- bit strings ------------------------------------------------------------------------------ */

TEST_F(JsonReaderTest, FixedBitString)
{
   QSOCTET buf[4] = { 0 };
   setInput("\"8040\"");
   ASSERT_EQ(0, rtJsonDecFixedBitStrValue(&ctxt, 10, buf, sizeof(buf)));
   EXPECT_EQ(0x80, buf[0]);
   EXPECT_EQ(0x40, buf[1]);
   setInput("\"8041\"");
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, rtJsonDecFixedBitStrValue(&ctxt, 10, buf, sizeof(buf)));
   setInput("\"80\"");
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             rtJsonDecFixedBitStrValue(&ctxt, 10, buf, sizeof(buf)));
   setInput("\"804000\"");
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             rtJsonDecFixedBitStrValue(&ctxt, 10, buf, sizeof(buf)));
}

TEST_F(JsonReaderTest, BitStringObject)
{
   QSOCTET buf[4] = { 0 };
   QSUINT32 nbits = 0;
   setInput("{\n   \"value\":\"fff0\",\n   \"length\":12\n}x");
   ASSERT_EQ(0, rtJsonDecBitStrValue(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ(12u, nbits);
   EXPECT_EQ(0xFF, buf[0]);
   EXPECT_EQ(0xF0, buf[1]);
   EXPECT_EQ("x", rest());
   setInput("{ \"length\" : 3 , \"value\" : \"e0\" }");
   ASSERT_EQ(0, rtJsonDecBitStrValue(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ(3u, nbits);
}

TEST_F(JsonReaderTest, BitStringObjectLengthMismatch)
{
   QSOCTET buf[4] = { 0 };
   QSUINT32 nbits = 99;
   setInput("{\"value\":\"fff000\",\"length\":12}");
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, rtJsonDecBitStrValue(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ(0u, nbits);
   setInput("{\"value\":\"fff8\",\"length\":12}");
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, rtJsonDecBitStrValue(&ctxt, &nbits, buf, sizeof(buf)));
}

TEST_F(JsonReaderTest, BitStringObjectKeys)
{
   QSOCTET buf[4] = { 0 };
   QSSIZE nbits = 0;
   setInput("{\"value\":\"ff\",\"value\":\"ff\"}");
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, rtJsonDecBitStrValue64(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ("value", parms());
   setInput("{\"value\":\"ff\",\"size\":8}");
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, rtJsonDecBitStrValue64(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ("size", parms());
   setInput("{\"value\":\"ff\"}");
   EXPECT_EQ(RTERR_MISSING_REQUIRED_ELEMENT,
             rtJsonDecBitStrValue64(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ("length", parms());
   setInput("{}");
   EXPECT_EQ(RTERR_MISSING_REQUIRED_ELEMENT,
             rtJsonDecBitStrValue64(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ("value", parms());
}

TEST_F(JsonReaderTest, DynBitString)
{
   ASN1TDynBitStr v{};
   setInput("{\"length\":20,\"value\":\"1234f0\"}");
   ASSERT_EQ(0, rtJsonDecDynBitStr(&ctxt, &v));
   EXPECT_EQ(20u, v.numbits);
   ASSERT_NE(nullptr, v.data);
   EXPECT_EQ(0x12, v.data[0]);
   EXPECT_EQ(0xF0, v.data[2]);
   setInput("{\"length\":12,\"value\":\"123456\"}");
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, rtJsonDecDynBitStr(&ctxt, &v));
   EXPECT_EQ(0u, v.numbits);
   EXPECT_EQ(nullptr, v.data);
}

TEST_F(JsonReaderTest, BitString32BitLengthLimit)
{
   QSOCTET buf[1] = { 0 };
   QSUINT32 nbits = 0;
   setInput("{\"value\":\"\",\"length\":4294967296}");
   EXPECT_NE(0, rtJsonDecBitStrValue(&ctxt, &nbits, buf, sizeof(buf)));
   EXPECT_EQ(0u, nbits);
}

} // namespace
