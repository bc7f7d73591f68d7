/* Bit writer/reader, constrained whole numbers, unconstrained integers. */
#include "test_per_util.h"

#include <cstring>

class PerBits : public PerTest {};

TEST_F(PerBits, BitFieldLimits)
{
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtxEncBits(&ctxt, 0, 33));
   EXPECT_EQ(0, rtxEncBits(&ctxt, 0xFFFFFFFF, 0));
   EXPECT_EQ(0u, pu_getMsgLen(&ctxt));
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtxEncBitsFromSize(&ctxt, 0, 65));
}

TEST_F(PerBits, ThreeBitMessageHasLengthOne)
{
   ASSERT_EQ(0, rtxEncBit(&ctxt, 1));
   ASSERT_EQ(0, rtxEncBit(&ctxt, 0));
   ASSERT_EQ(0, rtxEncBit(&ctxt, 1));
   EXPECT_EQ(1u, pu_getMsgLen(&ctxt));
   EXPECT_EQ("A0", hex(out()));
}

TEST_F(PerBits, MixedFieldsAcrossBytes)
{
   ASSERT_EQ(0, rtxEncBits(&ctxt, 1, 1));
   ASSERT_EQ(0, rtxEncBits(&ctxt, 0x12345678, 32));
   ASSERT_EQ(0, rtxEncBitsFromSize(&ctxt, 0x0123456789ABCDEFull, 64));
   ASSERT_EQ(0, rtxEncBits(&ctxt, 0x5, 3));
   ASSERT_EQ(0, rtxEncBitsFromByteArray(&ctxt, (const QSOCTET*)"\xAB\xCD\xE0", 19));
   EXPECT_EQ("891A2B3C0091A2B3C4D5E6F7DABCDE", hex(out()));
   decodeOutput();
   QSUINT32 v = 0;
   QSUINT64 v64 = 0;
   ASSERT_EQ(0, rtxDecBits(&ctxt, &v, 1));
   EXPECT_EQ(1u, v);
   ASSERT_EQ(0, rtxDecBits(&ctxt, &v, 32));
   EXPECT_EQ(0x12345678u, v);
   ASSERT_EQ(0, rtxDecBitsToUInt64(&ctxt, &v64, 64));
   EXPECT_EQ(0x0123456789ABCDEFull, v64);
   QSUINT8 b = 0;
   ASSERT_EQ(0, rtxDecBitsToByte(&ctxt, &b, 3));
   EXPECT_EQ(5, b);
   QSOCTET arr[3] = {0, 0, 0};
   ASSERT_EQ(0, rtxDecBitsToByteArray(&ctxt, arr, sizeof arr, 19));
   EXPECT_EQ("ABCDE0", hex(std::vector<QSOCTET>(arr, arr + 3)));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxDecBits(&ctxt, &v, 33));
}

TEST_F(PerBits, ZeroLengthInputFailsOnFirstBit)
{
   setInput({});
   QSBOOL bit = 0;
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxDecBit(&ctxt, &bit));
   QSUINT32 v = 0;
   EXPECT_EQ(0, rtxDecBits(&ctxt, &v, 0));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxDecBits(&ctxt, &v, 1));
}

TEST_F(PerBits, ShortInputConsumesNothing)
{
   setInput(bytes({0xFF, 0x00}));
   QSUINT32 v = 0;
   ASSERT_EQ(0, rtxDecBits(&ctxt, &v, 3));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxDecBits(&ctxt, &v, 14));
   EXPECT_EQ(3u, bitPos());
   ASSERT_EQ(0, rtxDecBits(&ctxt, &v, 13));
   EXPECT_EQ(0x1F00u, v);
}

TEST_F(PerBits, CursorMoves)
{
   setInput(bytes({0x01, 0x02}));
   EXPECT_EQ(0, rtxMoveBitCursor(&ctxt, 12));
   EXPECT_EQ(12u, bitPos());
   EXPECT_EQ(0, rtxMoveBitCursor(&ctxt, -4));
   EXPECT_EQ(8u, bitPos());
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxMoveBitCursor(&ctxt, -9));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxMoveBitCursor(&ctxt, 9));
   EXPECT_EQ(0, rtxMoveBitCursor(&ctxt, 8));
   EXPECT_EQ(16u, bitPos());
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtxSkipBits(&ctxt, 1));
}

TEST_F(PerBits, DynamicBufferGrows)
{
   for (int i = 0; i < 3000; i++) ASSERT_EQ(0, rtxEncBits(&ctxt, (QSUINT32)i & 0xFF, 8));
   ASSERT_EQ(0, rtxEncBit(&ctxt, 1));
   std::vector<QSOCTET> v = out();
   ASSERT_EQ(3001u, v.size());
   for (int i = 0; i < 3000; i++) ASSERT_EQ((QSOCTET)i, v[i]);
   EXPECT_EQ(0x80, v[3000]);
}

TEST_F(PerBits, FixedBufferOverflows)
{
   QSOCTET buf[4];
   ASSERT_EQ(0, pu_setBuffer(&ctxt, buf, sizeof buf, 0));
   ASSERT_EQ(0, rtxEncBits(&ctxt, 0xABCDEF, 24));
   ASSERT_EQ(0, rtxEncBits(&ctxt, 1, 4));
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, rtxEncBits(&ctxt, 1, 5));
   ASSERT_EQ(0, rtxEncBits(&ctxt, 1, 4));
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, rtxEncBit(&ctxt, 0));
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW,
             rtxEncBitsFromByteArray(&ctxt, (const QSOCTET*)"x", 1));
}

TEST_F(PerBits, ConstrainedWholeNumbers)
{
   ASSERT_EQ(0, pe_ConsWholeNumber(&ctxt, 0, 1));
   EXPECT_EQ(0u, pu_getMsgLen(&ctxt));
   ASSERT_EQ(0, pe_ConsWholeNumber(&ctxt, 1, 2));
   EXPECT_EQ("80", hex(out()));
   pe_resetBuffer(&ctxt);
   ASSERT_EQ(0, pe_ConsWholeNumber(&ctxt, 0xAB, 256));
   ASSERT_EQ(0, pe_ConsWholeNumber(&ctxt, 0x1234, 65536));
   ASSERT_EQ(0, pe_ConsWholeNumber64(&ctxt, 0xDEADBEEF, 0x100000000ull));
   ASSERT_EQ(0, pe_ConsWholeNumber(&ctxt, 0xFFFFFFFF, 0xFFFFFFFF));
   ASSERT_EQ(0, pe_ConsWholeNumber(&ctxt, 5, 6));
   EXPECT_EQ("AB1234DEADBEEFFFFFFFFFA0", hex(out()));
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, pe_ConsWholeNumber(&ctxt, 2, 2));
   EXPECT_EQ(RTERR_INVALID_VALUE_SPEC, pe_ConsWholeNumber64(&ctxt, 1ull << 32, 1ull << 32));

   decodeOutput();
   QSUINT32 v = 99;
   QSUINT64 v64 = 0;
   ASSERT_EQ(0, pd_ConsWholeNumber(&ctxt, &v, 1));
   EXPECT_EQ(0u, v);
   ASSERT_EQ(0, pd_ConsWholeNumber(&ctxt, &v, 256));
   EXPECT_EQ(0xABu, v);
   ASSERT_EQ(0, pd_ConsWholeNumber(&ctxt, &v, 65536));
   EXPECT_EQ(0x1234u, v);
   ASSERT_EQ(0, pd_ConsWholeNumber64(&ctxt, &v64, 0x100000000ull));
   EXPECT_EQ(0xDEADBEEFull, v64);
   ASSERT_EQ(0, pd_ConsWholeNumber(&ctxt, &v, 0xFFFFFFFF));
   EXPECT_EQ(0xFFFFFFFFu, v);
   ASSERT_EQ(0, pd_ConsWholeNumber(&ctxt, &v, 6));
   EXPECT_EQ(5u, v);
}

TEST_F(PerBits, RangeOfTwoReadsOneBit)
{
   setInput(bytes({0x80}));
   QSUINT32 v = 0;
   ASSERT_EQ(0, pd_ConsWholeNumber(&ctxt, &v, 2));
   EXPECT_EQ(1u, v);
   EXPECT_EQ(1u, bitPos());
}

TEST_F(PerBits, MinimalOctetIntegers)
{
   struct Case { QSINT32 v; const char* enc; };
   const Case cases[] = {
      {0, "0100"}, {127, "017F"}, {128, "020080"}, {-128, "0180"}, {-129, "02FF7F"},
      {-1, "01FF"}, {65536, "03010000"}, {0x7FFFFFFF, "047FFFFFFF"},
      {(QSINT32)0x80000000, "0480000000"},
   };
   for (const Case& c : cases) {
      pe_resetBuffer(&ctxt);
      ASSERT_EQ(0, pe_UnconsInt32Unaligned(&ctxt, c.v));
      EXPECT_EQ(c.enc, hex(out())) << c.v;
      std::vector<QSOCTET> enc = out();
      setInput(enc);
      QSINT32 v = 1;
      ASSERT_EQ(0, pd_UnconsInteger(&ctxt, &v));
      EXPECT_EQ(c.v, v);
      pu_setBuffer(&ctxt, nullptr, 0, 0);
   }
}

TEST_F(PerBits, UnsignedUnconstrainedIntegers)
{
   ASSERT_EQ(0, pe_UnconsUInt32Unaligned(&ctxt, 0xFFFFFFFFu));
   EXPECT_EQ("0500FFFFFFFF", hex(out()));
   decodeOutput();
   QSUINT32 u = 0;
   ASSERT_EQ(0, pd_UnconsUnsigned(&ctxt, &u));
   EXPECT_EQ(0xFFFFFFFFu, u);

   pu_setBuffer(&ctxt, nullptr, 0, 0);
   ASSERT_EQ(0, pe_UnconsUInt32Unaligned(&ctxt, 200));
   EXPECT_EQ("0200C8", hex(out()));

   pe_resetBuffer(&ctxt);
   ASSERT_EQ(0, pe_UnconsUInt64Unaligned(&ctxt, ~0ull));
   EXPECT_EQ("0900FFFFFFFFFFFFFFFF", hex(out()));
   decodeOutput();
   QSUINT64 u64 = 0;
   ASSERT_EQ(0, pd_UnconsUInt64(&ctxt, &u64));
   EXPECT_EQ(~0ull, u64);

   pu_setBuffer(&ctxt, nullptr, 0, 0);
   ASSERT_EQ(0, pe_UnconsInt64Unaligned(&ctxt, -((QSINT64)1 << 40)));
   EXPECT_EQ("06FF0000000000", hex(out()));
   decodeOutput();
   QSINT64 s64 = 0;
   ASSERT_EQ(0, pd_UnconsInt64(&ctxt, &s64));
   EXPECT_EQ(-((QSINT64)1 << 40), s64);

   /* a negative value does not fit an unsigned target; 5 octets do not
      fit a signed 32-bit one */
   setInput(bytes({0x01, 0xFF}));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, pd_UnconsUnsigned(&ctxt, &u));
   setInput(bytes({0x05, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));
   QSINT32 s = 0;
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, pd_UnconsInteger(&ctxt, &s));
}

TEST_F(PerBits, NonNegAndTwosComplementOctets)
{
   ASSERT_EQ(0, pe_NonNegBinInt(&ctxt, 0));
   ASSERT_EQ(0, pe_NonNegBinInt(&ctxt, 255));
   ASSERT_EQ(0, pe_NonNegBinInt(&ctxt, 256));
   ASSERT_EQ(0, pe_2sCompBinInt(&ctxt, 127));
   ASSERT_EQ(0, pe_2sCompBinInt(&ctxt, 128));
   ASSERT_EQ(0, pe_2sCompBinInt(&ctxt, -128));
   ASSERT_EQ(0, pe_2sCompBinInt(&ctxt, -129));
   EXPECT_EQ("00FF01007F008080FF7F", hex(out()));
}

TEST(PerContext, UninitialisedContextIsRefused)
{
   QSCTXT c;
   std::memset(static_cast<void*>(&c), 0, sizeof c);
   EXPECT_EQ(RTERR_CONTEXT_NOT_INITIALIZED, pu_setBuffer(&c, nullptr, 0, 0));
}
