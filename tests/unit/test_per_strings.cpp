/* Size constraints, octet/bit/character strings. */
#include "test_per_util.h"

#include <cstring>

#include "rtxsrc/rtxError.h"

class PerStrings : public PerTest {
protected:
   void constrain(QSUINT64 lower, QSUINT64 upper, bool ext)
   {
      ASSERT_EQ(0, pu_setSizeConstraint(&ctxt, lower, upper, ext ? 1 : 0));
   }
};

static const char* const kNumeric = " 0123456789";

TEST_F(PerStrings, NumericStringRoundTrip)
{
   ASSERT_EQ(0, pe_ConstrainedStringEx(&ctxt, "123", kNumeric, 4, 4, 4));
   EXPECT_EQ("032340", hex(out()));
   pe_resetBuffer(&ctxt);
   constrain(1, 16, false);
   ASSERT_EQ(0, pe_ConstrainedStringEx(&ctxt, " 9", kNumeric, 4, 4, 4));
   /* length 2-1 in 4 bits, then 0000 1010 */
   EXPECT_EQ("10A0", hex(out()));

   decodeOutput();
   constrain(1, 16, false);
   const char* s = nullptr;
   ASSERT_EQ(0, pd_ConstrainedStringEx(&ctxt, &s, kNumeric, 4, 4, 4));
   EXPECT_STREQ(" 9", s);
}

TEST_F(PerStrings, CharacterOutsideAlphabet)
{
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             pe_ConstrainedStringEx(&ctxt, "12A", kNumeric, 4, 4, 4));
   rtxErrReset(&ctxt);
   EXPECT_EQ(RTERR_INVALID_PARAMETER, pe_ConstrainedStringData(&ctxt, "1", nullptr, 4, 4, 1));
   rtxErrReset(&ctxt);
   /* index 11 is beyond the 11-character alphabet */
   setInput(bytes({0xB0}));
   char buf[4];
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             pd_ConstrainedStringData(&ctxt, buf, sizeof buf, 1, kNumeric, 4, 4));
   rtxErrReset(&ctxt);
   setInput(bytes({0x10}));
   EXPECT_EQ(RTERR_MAX_STRING_ITEMS_EXCEEDED,
             pd_ConstrainedStringData(&ctxt, buf, 2, 2, kNumeric, 4, 4));
}

TEST_F(PerStrings, ByteAboveTheCharacterWidthFailsLikeACharacterOutsideTheAlphabet)
{
   /* 0xE9 has no 7-bit code: writing its low bits would give 'i' */
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pe_ConstrainedStringEx(&ctxt, "a\xE9", nullptr, 8, 7, 7));
   EXPECT_NE(std::string::npos, std::string(rtxErrGetText(&ctxt, nullptr, nullptr)).find("Value constraint violation"));
}

TEST_F(PerStrings, SevenBitCharactersUseTheirCodes)
{
   ASSERT_EQ(0, pe_ConstrainedStringEx(&ctxt, "Hi", nullptr, 8, 7, 7));
   /* 00000010 1001000 1101001 */
   EXPECT_EQ("0291A4", hex(out()));
   decodeOutput();
   const char* s = nullptr;
   ASSERT_EQ(0, pd_ConstrainedStringEx(&ctxt, &s, nullptr, 8, 7, 7));
   EXPECT_STREQ("Hi", s);
}

TEST_F(PerStrings, VarWidthCharString)
{
   ASSERT_EQ(0, rtxEncBit(&ctxt, 1));
   ASSERT_EQ(0, pe_VarWidthCharString(&ctxt, "ab"));
   EXPECT_EQ("8130B100", hex(out()));
   decodeOutput();
   QSBOOL bit = 0;
   ASSERT_EQ(0, rtxDecBit(&ctxt, &bit));
   const char* s = nullptr;
   ASSERT_EQ(0, pd_VarWidthCharString(&ctxt, &s));
   EXPECT_STREQ("ab", s);
   setInput(bytes({0x00}));
   ASSERT_EQ(0, pd_VarWidthCharString(&ctxt, &s));
   EXPECT_STREQ("", s);
}

TEST_F(PerStrings, FixedSizeOctetString)
{
   constrain(4, 4, false);
   ASSERT_EQ(0, pe_OctetString(&ctxt, 4, (const QSOCTET*)"\xDE\xAD\xBE\xEF"));
   EXPECT_EQ("DEADBEEF", hex(out()));
   constrain(4, 4, false);
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             pe_OctetString(&ctxt, 3, (const QSOCTET*)"\x01\x02\x03"));
   EXPECT_EQ(0, ctxt.sizeCnst.constrained);

   setInput(bytes({0xDE, 0xAD, 0xBE, 0xEF}));
   constrain(4, 4, false);
   ASN1TDynOctStr64 os{};
   ASSERT_EQ(0, pd_DynOctetString64(&ctxt, &os));
   ASSERT_EQ(4u, os.numocts);
   EXPECT_EQ(0, std::memcmp(os.data, "\xDE\xAD\xBE\xEF", 4));
   EXPECT_EQ(32u, bitPos());
}

TEST_F(PerStrings, FixedSizeLengthConsumesNothing)
{
   setInput(bytes({0xFF}));
   constrain(7, 7, false);
   QSUINT32 len = 0;
   ASSERT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(7u, len);
   EXPECT_EQ(0u, bitPos());
   EXPECT_EQ(0, ctxt.sizeCnst.constrained);
}

TEST_F(PerStrings, ConstrainedAndExtensibleLengths)
{
   constrain(1, 4, true);
   EXPECT_EQ(3, pe_Length(&ctxt, 3));     /* 0 + 10 */
   constrain(1, 4, true);
   EXPECT_EQ(5, pe_Length(&ctxt, 5));     /* 1 + 00000101 */
   constrain(0, 40, false);
   EXPECT_EQ(40, pe_Length(&ctxt, 40));   /* 101000 */
   constrain(0, 40, false);
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pe_Length(&ctxt, 41));
   constrain(0, 100000, false);
   EXPECT_EQ(200, pe_Length(&ctxt, 200));  /* upper above 64K: unconstrained form */
   /* 010 1 00000101 101000 10000000 11001000 */
   EXPECT_EQ("505A203200", hex(out()));

   decodeOutput();
   QSUINT32 len = 0;
   constrain(1, 4, true);
   ASSERT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(3u, len);
   constrain(1, 4, true);
   ASSERT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(5u, len);
   constrain(0, 40, false);
   ASSERT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(40u, len);
   constrain(0, 100000, false);
   ASSERT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(200u, len);
}

TEST_F(PerStrings, LengthAboveUpperRejectedOnDecode)
{
   setInput(bytes({0xE0}));   /* 111 = 7 in a 3-bit field, range 0..5 */
   constrain(0, 5, false);
   QSUINT32 len = 0;
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pd_Length(&ctxt, &len));
}

TEST_F(PerStrings, NestedConstraintMustLieInside)
{
   constrain(1, 10, false);
   _Asn1SizeCnst inner{2, 5, 1, 0};
   EXPECT_EQ(0, pu_addSizeConstraint(&ctxt, &inner));
   EXPECT_EQ(1u, ctxt.sizeCnst.lower);
   EXPECT_EQ(10u, ctxt.sizeCnst.upper);
   _Asn1SizeCnst outside{0, 5, 1, 0};
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pu_addSizeConstraint(&ctxt, &outside));
   EXPECT_EQ(0, pu_addSizeConstraint(&ctxt, nullptr));
}

static std::vector<QSOCTET> bitPattern(QSSIZE nbits)
{
   std::vector<QSOCTET> v((nbits + 7) / 8);
   for (QSSIZE i = 0; i < v.size(); i++) v[i] = (QSOCTET)(0xA5 ^ (i * 37));
   if (nbits % 8) v.back() &= (QSOCTET)(0xFF << (8 - nbits % 8));
   return v;
}

TEST_F(PerStrings, BitStringsOfZeroToSeventyBits)
{
   for (QSSIZE n = 0; n <= 70; n++) {
      for (QSUINT32 pre = 0; pre < 8; pre += 3) {
         std::vector<QSOCTET> data = bitPattern(n);
         pu_setBuffer(&ctxt, nullptr, 0, 0);
         ASSERT_EQ(0, rtxEncBits(&ctxt, 0x7F, pre));
         ASSERT_EQ(0, pe_BitString(&ctxt, n, data.data()));
         EXPECT_EQ(pre + 8 + n, bitPos());

         /* expected: pre one-bits, length octet, the bits */
         std::vector<QSOCTET> exp((pre + 8 + n + 7) / 8, 0);
         QSSIZE pos = 0;
         auto put = [&](int bit) {
            if (bit) exp[pos / 8] |= (QSOCTET)(0x80 >> (pos % 8));
            pos++;
         };
         for (QSUINT32 i = 0; i < pre; i++) put(1);
         for (int i = 7; i >= 0; i--) put((int)((n >> i) & 1));
         for (QSSIZE i = 0; i < n; i++) put((data[i / 8] >> (7 - i % 8)) & 1);
         ASSERT_EQ(hex(exp), hex(out())) << n << "/" << pre;

         decodeOutput();
         QSUINT32 v = 0;
         ASSERT_EQ(0, rtxDecBits(&ctxt, &v, pre));
         ASN1TDynBitStr bs{};
         ASSERT_EQ(0, pd_DynBitString(&ctxt, &bs));
         ASSERT_EQ(n, bs.numbits);
         if (n > 0) {
            EXPECT_EQ(0, std::memcmp(bs.data, data.data(), data.size()));
         }
         EXPECT_EQ(pre + 8 + n, bitPos());
      }
   }
}

TEST_F(PerStrings, BitString32WithSizeRange)
{
   ASN1TBitStr32 bs{10, {0xC0, 0x40, 0, 0}};
   ASSERT_EQ(0, pe_BitString32(&ctxt, &bs, 1, 13));
   /* 10-1 = 1001 in 4 bits, then 1100000001 */
   EXPECT_EQ("9C04", hex(out()));
   ASN1TBitStr32 tooLong{14, {0xFF, 0xFC, 0, 0}};
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pe_BitString32(&ctxt, &tooLong, 1, 13));

   setInput(bytes({0x9C, 0x04}));
   ASN1TBitStr32 back{};
   ASSERT_EQ(0, pd_BitString32(&ctxt, &back, 1, 13));
   EXPECT_EQ(10u, back.numbits);
   EXPECT_EQ(0xC0, back.data[0]);
   EXPECT_EQ(0x40, back.data[1]);

   /* 1111 = 16 > 13 */
   setInput(bytes({0xF0, 0x00, 0x00}));
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pd_BitString32(&ctxt, &back, 1, 13));

   /* fixed size 16 */
   pu_setBuffer(&ctxt, nullptr, 0, 0);
   ASN1TBitStr32 fixed{16, {0x12, 0x34, 0, 0}};
   ASSERT_EQ(0, pe_BitString32(&ctxt, &fixed, 16, 16));
   EXPECT_EQ("1234", hex(out()));
   decodeOutput();
   ASSERT_EQ(0, pd_BitString32(&ctxt, &back, 16, 16));
   EXPECT_EQ(16u, back.numbits);
   EXPECT_EQ(0x34, back.data[1]);
}

TEST_F(PerStrings, ViolationCarriesElementNameAndCharacter)
{
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"digits");
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             pe_ConstrainedStringEx(&ctxt, "1x", kNumeric, 4, 4, 4));
   rtxCtxtPopElemName(&ctxt);
   char buf[1024];
   rtxErrGetTextBuf(&ctxt, buf, sizeof buf);
   EXPECT_NE(nullptr, std::strstr(buf, "Value constraint violation: field digits, value x"))
      << buf;
   EXPECT_NE(nullptr, std::strstr(buf, "../../rtpersrc/pe_strings.cpp")) << buf;
}
