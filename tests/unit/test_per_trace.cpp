/* Bit-field trace and bit dump. */
#include "test_per_util.h"

#include <cstdarg>

#include "rtxsrc/rtxPrintStream.h"

namespace {

void captureCB(void* arg, const char* fmt, va_list args)
{
   std::string* s = static_cast<std::string*>(arg);
   char buf[512];
   va_list copy;
   va_copy(copy, args);
   int n = std::vsnprintf(buf, sizeof buf, fmt, copy);
   va_end(copy);
   if (n > 0) s->append(buf, (size_t)n < sizeof buf ? (size_t)n : sizeof buf - 1);
}

} // namespace

class PerTrace : public PerTest {
protected:
   std::string text;
   void capture() { rtxSetPrintStream(&ctxt, captureCB, &text); }
};

TEST_F(PerTrace, OffByDefaultRecordsNothing)
{
   ASSERT_EQ(0, pe_OctetString(&ctxt, 1, (const QSOCTET*)"A"));
   EXPECT_EQ(nullptr, ctxt.pBitFldList);
   capture();
   pu_bindump(&ctxt, nullptr);
   EXPECT_EQ("", text);
}

TEST_F(PerTrace, SetTraceReturnsPreviousState)
{
   EXPECT_EQ(0, pu_setTrace(&ctxt, 1));
   EXPECT_NE(0u, ctxt.flags & QSTRACE);
   EXPECT_NE(nullptr, ctxt.pBitFldList);
   EXPECT_EQ(1, pu_setTrace(&ctxt, 0));
   EXPECT_EQ(0u, ctxt.flags & QSTRACE);
}

TEST_F(PerTrace, BinDumpGolden)
{
   pu_setTrace(&ctxt, 1);
   pu_pushElemName(&ctxt, "msg");
   pu_newField(&ctxt, "id");
   ASSERT_EQ(0, rtxEncBits(&ctxt, 5, 3));
   pu_setFldBitCount(&ctxt);
   pu_pushElemName(&ctxt, "name");
   ASSERT_EQ(0, pe_OctetString(&ctxt, 2, (const QSOCTET*)"AB"));
   pu_popElemName(&ctxt);
   ASSERT_EQ(0, pe_OpenType(&ctxt, 0, nullptr));
   pu_popElemName(&ctxt);
   ASSERT_EQ("A0482840200000", hex(out()).append(2 * (7 - out().size()), '0'));

   capture();
   pu_bindump(&ctxt, nullptr);
   const char* expected =
      "msg.id\n"
      "bit offset: 0\tbit count: 3\tnext bit offset: 3\n"
      "101----- -------- -------- --------    a0------    .---\n"
      "\n"
      "msg.name.length\n"
      "bit offset: 3\tbit count: 8\tnext bit offset: 11\n"
      "---00000 010----- -------- --------    a048----    .H--\n"
      "\n"
      "msg.name.OctetString\n"
      "bit offset: 11\tbit count: 16\tnext bit offset: 27\n"
      "---01000 00101000 010----- --------    482840--    H(@-\n"
      "\n"
      "msg.length\n"
      "bit offset: 27\tbit count: 8\tnext bit offset: 35\n"
      "---00000 001----- -------- --------    4020----    @ --\n"
      "\n"
      "msg.OpenType\n"
      "bit offset: 35\tbit count: 8\tnext bit offset: 43\n"
      "---00000 000----- -------- --------    2000----     .--\n"
      "\n";
   EXPECT_EQ(expected, text);
}

TEST_F(PerTrace, GapBitsAndLongFields)
{
   pu_setTrace(&ctxt, 1);
   pu_newField(&ctxt, "a");
   ASSERT_EQ(0, rtxEncBits(&ctxt, 1, 2));
   pu_setFldBitCount(&ctxt);
   ASSERT_EQ(0, rtxEncBits(&ctxt, 0, 4));      /* untraced: gap */
   pu_newField(&ctxt, "b");
   ASSERT_EQ(0, rtxEncBitsFromSize(&ctxt, 0x4142434445ull, 40));
   pu_setFldBitCount(&ctxt);

   capture();
   pu_bindump(&ctxt, "v");
   const char* expected =
      "v.a\n"
      "bit offset: 0\tbit count: 2\tnext bit offset: 2\n"
      "01xxxx-- -------- -------- --------    41------    A---\n"
      "\n"
      "v.b\n"
      "bit offset: 6\tbit count: 40\tnext bit offset: 46\n"
      "------01 00000101 00001001 00001101    4105090d    A...\n"
      "00010001 000101-- -------- --------    1114----    ..--\n"
      "\n";
   EXPECT_EQ(expected, text);
}

TEST_F(PerTrace, OpenTypeContentIsNested)
{
   pu_setTrace(&ctxt, 1);
   /* content encoded into a separate buffer, as generated code does */
   void* saved = pu_beginOpenTypeTrace(&ctxt);
   ASSERT_NE(nullptr, saved);
   QSCTXT inner;
   (void)inner;
   QSRTBuffer outer = ctxt.buffer;
   ASSERT_EQ(0, pu_setBuffer(&ctxt, nullptr, 0, 0));
   pu_newField(&ctxt, "x");
   ASSERT_EQ(0, rtxEncBits(&ctxt, 0x3, 4));
   pu_setFldBitCount(&ctxt);
   std::vector<QSOCTET> content = out();
   ctxt.buffer = outer;
   pu_endOpenTypeTrace(&ctxt, saved);

   ASSERT_EQ(0, rtxEncBit(&ctxt, 1));
   ASSERT_EQ(0, pe_OpenType(&ctxt, content.size(), content.data()));

   capture();
   pu_bindump(&ctxt, nullptr);
   const char* expected =
      "length\n"
      "bit offset: 1\tbit count: 8\tnext bit offset: 9\n"
      "-0000000 1------- -------- --------    8098----    ..--\n"
      "\n"
      "OpenType\n"
      "bit offset: 9\tbit count: 8\tnext bit offset: 17\n"
      "-0011000 0------- -------- --------    9800----    ..--\n"
      "*** Open Type Data ***\n"
      "x\n"
      "bit offset: 0\tbit count: 4\tnext bit offset: 4\n"
      "0011---- -------- -------- --------    30------    0---\n"
      "\n"
      "***\n"
      "\n";
   EXPECT_EQ(expected, text);
}

TEST_F(PerTrace, DecodeSideRecordsFields)
{
   setInput(bytes({0x42, 0x41, 0x42}));
   pu_setTrace(&ctxt, 1);
   constexpr int unused = 0;
   (void)unused;
   ASN1TDynOctStr64 os{};
   /* 0x42 = 01000010: first bit 0 -> length 66 would be too long; use a
      constrained length of 2 instead */
   ASSERT_EQ(0, pu_setSizeConstraint(&ctxt, 2, 2, 0));
   ASSERT_EQ(0, rtxMoveBitCursor(&ctxt, 8));
   ASSERT_EQ(0, pd_DynOctetString64(&ctxt, &os));
   capture();
   pu_bindump(&ctxt, nullptr);
   const char* expected =
      "OctetString\n"
      "bit offset: 8\tbit count: 16\tnext bit offset: 24\n"
      "01000001 01000010 -------- --------    4142----    AB--\n"
      "\n";
   EXPECT_EQ(expected, text);
}

TEST_F(PerTrace, GlobalPrintStreamIsUsedWithoutContextStream)
{
   std::string global;
   rtxSetGlobalPrintStream(captureCB, &global);
   rtxPrintToStream(&ctxt, "%s=%d\n", "x", 5);
   rtxSetPrintStream(&ctxt, captureCB, &text);
   rtxPrintToStream(&ctxt, "ctx\n");
   rtxSetGlobalPrintStream(nullptr, nullptr);
   EXPECT_EQ("x=5\n", global);
   EXPECT_EQ("ctx\n", text);
}

TEST_F(PerTrace, ResetEmptiesTheFieldList)
{
   pu_setTrace(&ctxt, 1);
   ASSERT_EQ(3, pe_Length(&ctxt, 3));
   pe_resetBuffer(&ctxt);
   capture();
   pu_bindump(&ctxt, nullptr);
   EXPECT_EQ("", text);
}
