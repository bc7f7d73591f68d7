// Generic JSON value recogniser: captured text, give-back, nesting depth,
// Unicode escapes and the status of every kind of syntax error.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "rtjsonsrc/rtJson.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxPrintStream.h"

namespace {

class JsonAnyTest : public ::testing::Test {
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

   std::string rest() const { return input.substr(ctxt.buffer.byteIndex); }

   /* Status of recognising text; the capture in *pcapture. */
   int any(const std::string& text, std::string* pcapture = nullptr)
   {
      setInput(text);
      QSUTF8CHAR* out = nullptr;
      int stat = rtJsonDecAnyType(&ctxt, &out);
      if (stat == 0 && pcapture != nullptr) *pcapture = (const char*)out;
      return stat;
   }

   std::string capture(const std::string& text)
   {
      std::string s;
      EXPECT_EQ(0, any(text, &s)) << text;
      return s;
   }

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

/* ---- accepted values -------------------------------------------------------------------------- */

TEST_F(JsonAnyTest, CapturesExactText)
{
   const std::string doc = "{ \"a\" : [1, -2.5e+3, true, false, null, \"x\\\"y\"],\n\t\"b\":{} , \"c\":[ ] }";
   EXPECT_EQ(doc, capture("  \n" + doc + "  ,rest"));
   EXPECT_EQ("  ,rest", rest());
}

TEST_F(JsonAnyTest, Scalars)
{
   EXPECT_EQ("true", capture("true,"));
   EXPECT_EQ(",", rest());
   EXPECT_EQ("false", capture("false"));
   EXPECT_EQ("null", capture(" null}"));
   EXPECT_EQ("}", rest());
   EXPECT_EQ("\"s\"", capture("\"s\" :"));
   EXPECT_EQ(" :", rest());
   EXPECT_EQ("-0", capture("-0"));
   EXPECT_EQ("0.25E-7", capture("0.25E-7"));
}

TEST_F(JsonAnyTest, TrailingNumberGivesBackCloser)
{
   EXPECT_EQ("123", capture("123, 4"));
   EXPECT_EQ(", 4", rest());
   EXPECT_EQ(',', ctxt.lastChar == ',' ? ',' : rtxTxtPeekChar2(&ctxt, 0));
   EXPECT_EQ("7", capture("7}"));
   EXPECT_EQ("}", rest());
   EXPECT_EQ("1.5", capture("1.5 "));
   EXPECT_EQ(" ", rest());
   EXPECT_EQ("42", capture("42"));   // end of input closes it
   EXPECT_EQ("", rest());
}

TEST_F(JsonAnyTest, UnicodeEscapesAccepted)
{
   EXPECT_EQ("\"caf\\u00e9\"", capture("\"caf\\u00e9\""));
   EXPECT_EQ("\"\\uD83D\\uDE00\"", capture("\"\\uD83D\\uDE00\""));
   EXPECT_EQ("\"\\uFFFF\\u0000\"", capture("\"\\uFFFF\\u0000\""));
}

TEST_F(JsonAnyTest, Utf8AndControlCharactersInStrings)
{
   EXPECT_EQ("\"\xc3\xa9\x01\t\"", capture("\"\xc3\xa9\x01\t\""));
}

TEST_F(JsonAnyTest, NullOutputPointer)
{
   setInput("[1,2] x");
   EXPECT_EQ(0, rtJsonDecAnyType(&ctxt, nullptr));
   EXPECT_EQ(" x", rest());
}

TEST_F(JsonAnyTest, RestoresJsonMode)
{
   ctxt.jsonMode = 2;
   capture("{\"a\":1}");
   EXPECT_EQ(2, ctxt.jsonMode);
   EXPECT_EQ('}', ctxt.lastChar);
}

/* ---- nesting ---------------------------------------------------------------------------------- */

TEST_F(JsonAnyTest, HundredNestedArraysPass)
{
   std::string doc = std::string(100, '[') + std::string(100, ']');
   EXPECT_EQ(doc, capture(doc));
}

TEST_F(JsonAnyTest, HundredAndOneNestedArraysFail)
{
   std::string doc = std::string(101, '[') + std::string(101, ']');
   EXPECT_EQ(RTERR_NESTING_TOO_DEEP, any(doc));
}

TEST_F(JsonAnyTest, DeepObjectsCountToo)
{
   std::string ok, bad;
   for (int i = 0; i < 99; i++) ok += "{\"a\":";
   ok += "[1]" + std::string(99, '}');
   EXPECT_EQ(ok, capture(ok));
   for (int i = 0; i < 100; i++) bad += "{\"a\":";
   bad += "[1]" + std::string(100, '}');
   EXPECT_EQ(RTERR_NESTING_TOO_DEEP, any(bad));
}

/* ---- status of each error state --------------------------------------------------------------- */

TEST_F(JsonAnyTest, StartState)
{
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("]"));
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any(" }"));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any("x"));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any(","));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any("\xc3\xa9"));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, any("   "));
}

TEST_F(JsonAnyTest, ObjectStartAndKeyStates)
{
   EXPECT_EQ(RTERR_EXPECTED_NAME, any("{1}"));
   EXPECT_EQ(RTERR_EXPECTED_NAME, any("{\"a\":1,}"));
   EXPECT_EQ(RTERR_EXPECTED_NAME, any("{\"a\":1, 2}"));
}

TEST_F(JsonAnyTest, ColonState)
{
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, any("{\"a\",1}"));
   EXPECT_EQ(":|,", parms());
   EXPECT_EQ(",1}", rest());
}

TEST_F(JsonAnyTest, ArrayState)
{
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("[}"));
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("[,1]"));
}

TEST_F(JsonAnyTest, ValueState)
{
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("[1,]"));
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("{\"a\":}"));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any("{\"a\":x}"));
}

TEST_F(JsonAnyTest, MismatchedCloser)
{
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("[1}"));
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("{\"a\":1]"));
   EXPECT_EQ(RTERR_UNBALANCED_STRUCTURE, any("[true}"));
}

TEST_F(JsonAnyTest, AfterValueState)
{
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any("[true false]"));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any("{\"a\":\"b\" \"c\"}"));
}

TEST_F(JsonAnyTest, ColonInImpossibleMode)
{
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, any("[\"x\":2]"));
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, any("[1:2]"));
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, any("{\"a\":1:2}"));
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, any("{\"a\":true : 2}"));
}

TEST_F(JsonAnyTest, UnicodeEscapeStates)
{
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\u12g4\""));
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\u\""));
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\uDC00\""));          // lone low
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\uD800x\""));         // high alone
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\uD800\\n\""));       // no 'u'
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\uD800\\u0041\""));   // not a low one
   EXPECT_EQ(RTERR_INVALID_UNICODE_CHARACTER, any("\"\\uDBFF\\uDC0z\""));
}

TEST_F(JsonAnyTest, BadEscapeAndNulInString)
{
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any("\"\\x\""));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, any(std::string("\"a\0b\"", 5)));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, any("\"abc"));
}

TEST_F(JsonAnyTest, NumberStates)
{
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("-x"));
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("[01]"));
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("[1.x]"));
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("1.e5"));
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("[1e]"));
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("[1e+]"));
   EXPECT_EQ(RTERR_INVALID_REAL_VALUE, any("[12a]"));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, any("-"));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, any("[1"));
}

TEST_F(JsonAnyTest, KeywordStates)
{
   EXPECT_EQ(RTERR_INVALID_BOOLEAN_KEYWORD, any("trux"));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, any("tru"));
   EXPECT_EQ(RTERR_INVALID_BOOLEAN_KEYWORD, any("trUe"));
   EXPECT_EQ(RTERR_INVALID_BOOLEAN_KEYWORD, any("[fals]"));
   EXPECT_EQ(RTERR_INVALID_BOOLEAN_KEYWORD, any("fx"));
   EXPECT_EQ(RTERR_INVALID_NULL_KEYWORD, any("nul,"));
   EXPECT_EQ(RTERR_INVALID_NULL_KEYWORD, any("[nil]"));
}

TEST_F(JsonAnyTest, CursorLeftOnBadCharacter)
{
   EXPECT_EQ(RTERR_INVALID_BOOLEAN_KEYWORD, any("[tRue]"));
   EXPECT_EQ("Rue]", rest());
}

/* ---- with element name ------------------------------------------------------------------------ */

TEST_F(JsonAnyTest, AnyElemPrefixesKey)
{
   setInput(" {\"x\":[1]} ,");
   ASSERT_EQ(0, rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"unknownMember"));
   QSUTF8CHAR* out = nullptr;
   ASSERT_EQ(0, rtJsonDecAnyElem2(&ctxt, &out));
   EXPECT_STREQ("\"unknownMember\":{\"x\":[1]}", (const char*)out);
   rtxCtxtPopElemName(&ctxt);
   setInput("5,");
   ASSERT_EQ(0, rtJsonDecAnyElem2(&ctxt, &out));
   EXPECT_STREQ("5", (const char*)out);
}

std::string gTrace;
void traceCB(void*, const char* fmt, va_list args)
{
   char buf[256];
   vsnprintf(buf, sizeof(buf), fmt, args);
   gTrace += buf;
}

TEST_F(JsonAnyTest, DiagnosticsTrace)
{
   rtxSetPrintStream(&ctxt, traceCB, nullptr);
   rtxSetDiag(&ctxt, 1);
   gTrace.clear();
   setInput("[1]");
   ASSERT_EQ(0, rtJsonDecAnyType(&ctxt, nullptr));
   EXPECT_EQ("read character: [\nread character: 1\nread character: ]\n", gTrace);
   gTrace.clear();
   setInput("[1,x]");
   ASSERT_EQ(0, rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"k"));
   QSUTF8CHAR* out = nullptr;
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtJsonDecAnyElem2(&ctxt, &out));
   EXPECT_NE(std::string::npos, gTrace.find("membuf = \"k\":[1,\n")) << gTrace;
   rtxCtxtPopElemName(&ctxt);
   rtxSetDiag(&ctxt, 0);
}

} // namespace
