/* Length determinants, fragmentation, open types, small numbers. */
#include "test_per_util.h"

#include <cstring>

class PerLength : public PerTest {};

TEST_F(PerLength, UnconstrainedLengthForms)
{
   struct Case { QSSIZE n; int items; std::vector<QSOCTET> enc; };
   const Case cases[] = {
      {0, 0, bytes({0x00})},
      {127, 127, bytes({0x7F})},
      {128, 128, bytes({0x80, 0x80})},
      {16383, 16383, bytes({0xBF, 0xFF})},
      {16384, 16384, bytes({0xC1})},
      {65536, 65536, bytes({0xC4})},
      {65537, 65536, bytes({0xC4})},
   };
   for (const Case& c : cases) {
      pe_resetBuffer(&ctxt);
      EXPECT_EQ(c.items, pe_Length(&ctxt, c.n)) << c.n;
      EXPECT_EQ(hex(c.enc), hex(out())) << c.n;
   }
}

TEST_F(PerLength, DecodeLengthForms)
{
   QSUINT32 len = 0;
   setInput(bytes({0x7F}));
   EXPECT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(127u, len);
   setInput(bytes({0x80, 0x80}));
   EXPECT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(128u, len);
   setInput(bytes({0xBF, 0xFF}));
   EXPECT_EQ(0, pd_Length(&ctxt, &len));
   EXPECT_EQ(16383u, len);
   setInput(bytes({0xC1}));
   EXPECT_EQ(2, pd_Length(&ctxt, &len));
   EXPECT_EQ(16384u, len);
   setInput(bytes({0xC4}));
   EXPECT_EQ(2, pd_Length(&ctxt, &len));
   EXPECT_EQ(65536u, len);
}

TEST_F(PerLength, FragmentHeaderAboveFourIsRejected)
{
   QSUINT32 len = 0;
   setInput(bytes({0xC5}));
   EXPECT_EQ(RTERR_INVALID_FIELD_LENGTH, pd_Length(&ctxt, &len));
}

static std::vector<QSOCTET> pattern(QSSIZE n)
{
   std::vector<QSOCTET> v(n);
   for (QSSIZE i = 0; i < n; i++) v[i] = (QSOCTET)(i * 7 + (i >> 8));
   return v;
}

TEST_F(PerLength, OctetStringFragmentationRoundTrip)
{
   const QSSIZE sizes[] = {0, 127, 128, 16383, 16384, 65536, 65537, 81920, 100000};
   for (QSSIZE n : sizes) {
      std::vector<QSOCTET> data = pattern(n);
      pe_resetBuffer(&ctxt);
      ASSERT_EQ(0, pe_OctetString(&ctxt, n, data.data())) << n;
      std::vector<QSOCTET> enc = out();

      /* expected layout */
      std::vector<QSOCTET> exp;
      QSSIZE done = 0;
      for (;;) {
         QSSIZE rest = n - done;
         if (rest < 128) {
            exp.push_back((QSOCTET)rest);
         }
         else if (rest < 16384) {
            exp.push_back((QSOCTET)(0x80 | (rest >> 8)));
            exp.push_back((QSOCTET)rest);
         }
         else {
            QSSIZE m = rest > 65536 ? 4 : rest / 16384;
            exp.push_back((QSOCTET)(0xC0 | m));
            exp.insert(exp.end(), data.begin() + done, data.begin() + done + m * 16384);
            done += m * 16384;
            if (done == n) {
               exp.push_back(0);
               break;
            }
            continue;
         }
         exp.insert(exp.end(), data.begin() + done, data.end());
         break;
      }
      EXPECT_EQ(exp.size(), enc.size()) << n;
      EXPECT_TRUE(exp == enc) << n;

      setInput(enc);
      ASN1TDynOctStr64 os{};
      ASSERT_EQ(0, pd_DynOctetString64(&ctxt, &os)) << n;
      ASSERT_EQ(n, os.numocts);
      if (n > 0) EXPECT_EQ(0, std::memcmp(os.data, data.data(), n)) << n;
      else EXPECT_EQ(nullptr, os.data);
      EXPECT_EQ(enc.size() * 8, bitPos()) << n;
      if (os.data != nullptr) rtxMemHeapFreePtr(&ctxt, const_cast<QSOCTET*>(os.data));
      pu_setBuffer(&ctxt, nullptr, 0, 0);
   }
}

TEST_F(PerLength, OctetString16384EndsWithZeroLength)
{
   std::vector<QSOCTET> data = pattern(16384);
   ASSERT_EQ(0, pe_OctetString(&ctxt, 16384, data.data()));
   std::vector<QSOCTET> enc = out();
   ASSERT_EQ(16386u, enc.size());
   EXPECT_EQ(0xC1, enc.front());
   EXPECT_EQ(0x00, enc.back());
}

TEST_F(PerLength, BitString16384HasNoClosingLength)
{
   std::vector<QSOCTET> data = pattern(2048);
   ASSERT_EQ(0, pe_BitString(&ctxt, 16384, data.data()));
   std::vector<QSOCTET> enc = out();
   ASSERT_EQ(2049u, enc.size());
   EXPECT_EQ(0xC1, enc.front());
   EXPECT_EQ(0, std::memcmp(enc.data() + 1, data.data(), 2048));
}

TEST_F(PerLength, BitStringFragmentsRoundTrip)
{
   const QSSIZE nbits = 65536 + 16384 + 13;
   std::vector<QSOCTET> data = pattern((nbits + 7) / 8);
   data.back() &= 0xF8;   /* 5 bits used in the last byte */
   ASSERT_EQ(0, rtxEncBits(&ctxt, 5, 3));
   ASSERT_EQ(0, pe_BitString(&ctxt, nbits, data.data()));
   decodeOutput();
   QSUINT32 pre = 0;
   ASSERT_EQ(0, rtxDecBits(&ctxt, &pre, 3));
   EXPECT_EQ(5u, pre);
   ASN1TDynBitStr bs{};
   ASSERT_EQ(0, pd_DynBitString(&ctxt, &bs));
   ASSERT_EQ(nbits, bs.numbits);
   EXPECT_EQ(0, std::memcmp(bs.data, data.data(), data.size()));
}

TEST_F(PerLength, EmptyOpenTypeIsOneZeroOctet)
{
   ASSERT_EQ(0, pe_OpenType(&ctxt, 0, nullptr));
   EXPECT_EQ("0100", hex(out()));

   pe_resetBuffer(&ctxt);
   ASSERT_EQ(0, rtxEncBits(&ctxt, 5, 3));          /* 101 */
   ASSERT_EQ(0, pe_OpenType(&ctxt, 0, nullptr));
   EXPECT_EQ("A02000", hex(out()));

   decodeOutput();
   QSUINT32 pre = 0;
   ASSERT_EQ(0, rtxDecBits(&ctxt, &pre, 3));
   const QSOCTET* data = nullptr;
   QSUINT32 n = 0;
   ASSERT_EQ(0, pd_OpenType(&ctxt, &data, &n));
   ASSERT_EQ(1u, n);
   EXPECT_EQ(0, data[0]);
}

TEST_F(PerLength, OpenTypeFragmentedRoundTrip)
{
   std::vector<QSOCTET> data = pattern(16384 * 2);
   ASSERT_EQ(0, pe_OpenType(&ctxt, data.size(), data.data()));
   std::vector<QSOCTET> enc = out();
   ASSERT_EQ(data.size() + 2, enc.size());
   EXPECT_EQ(0xC2, enc.front());
   EXPECT_EQ(0x00, enc.back());
   setInput(enc);
   const QSOCTET* p = nullptr;
   QSUINT32 n = 0;
   ASSERT_EQ(0, pd_OpenType(&ctxt, &p, &n));
   ASSERT_EQ(data.size(), n);
   EXPECT_EQ(0, std::memcmp(p, data.data(), n));
}

TEST_F(PerLength, SmallNonNegWholeNumbers)
{
   struct Case { QSUINT32 v; const char* enc; };
   const Case cases[] = {
      {0, "00"}, {63, "7E"}, {64, "80A000"}, {255, "80FF80"},
      {256, "81008000"}, {65535, "817FFF80"}, {0xFFFFFF, "81FFFFFF80"},
   };
   for (const Case& c : cases) {
      pe_resetBuffer(&ctxt);
      ASSERT_EQ(0, pe_SmallNonNegWholeNumber(&ctxt, c.v)) << c.v;
      EXPECT_EQ(c.enc, hex(out())) << c.v;
      std::vector<QSOCTET> enc = out();
      setInput(enc);
      QSUINT32 v = 12345;
      ASSERT_EQ(0, pd_SmallNonNegWholeNumber(&ctxt, &v)) << c.v;
      EXPECT_EQ(c.v, v);
      pu_setBuffer(&ctxt, nullptr, 0, 0);
   }
   EXPECT_EQ(RTERR_FEATURE_NOT_SUPPORTED, pe_SmallNonNegWholeNumber(&ctxt, 0x1000000));
}

TEST_F(PerLength, SmallLengths)
{
   struct Case { QSSIZE n; const char* enc; };
   const Case cases[] = {{1, "00"}, {64, "7E"}, {65, "A080"}};
   for (const Case& c : cases) {
      pe_resetBuffer(&ctxt);
      ASSERT_EQ(0, pe_SmallLength(&ctxt, c.n));
      EXPECT_EQ(c.enc, hex(out())) << c.n;
      std::vector<QSOCTET> enc = out();
      setInput(enc);
      QSUINT32 n = 0;
      ASSERT_EQ(0, pd_SmallLength(&ctxt, &n));
      EXPECT_EQ(c.n, n);
      pu_setBuffer(&ctxt, nullptr, 0, 0);
   }
   /* 0 is never passed; it reads back as 64 */
   pe_resetBuffer(&ctxt);
   ASSERT_EQ(0, pe_SmallLength(&ctxt, 0));
   EXPECT_EQ("7E", hex(out()));
}

TEST_F(PerLength, SmallLengthBitZeroMeansOne)
{
   setInput(bytes({0x00}));
   QSUINT32 n = 0;
   ASSERT_EQ(0, pd_SmallLength(&ctxt, &n));
   EXPECT_EQ(1u, n);
}

TEST_F(PerLength, ExtensionBitmapRoundTrip)
{
   ASN1TOpenType a{2, (const QSOCTET*)"\x12\x34"};
   ASN1TOpenType c{0, nullptr};
   QSRTDListNode n3{&c, nullptr, nullptr};
   QSRTDListNode n2{nullptr, &n3, nullptr};
   QSRTDListNode n1{&a, &n2, nullptr};
   n2.prev = &n1;
   n3.prev = &n2;
   QSRTDList list{3, &n1, &n3};

   ASSERT_EQ(0, pe_SmallLength(&ctxt, list.count));
   ASSERT_EQ(0, pe_OpenTypeExtBits(&ctxt, &list));
   ASSERT_EQ(0, pe_OpenTypeExt(&ctxt, &list));
   /* 0000010 101 | 00000010 00010010 00110100 | 00000001 00000000 (50 bits) */
   EXPECT_EQ("0540848D004000", hex(out()));

   decodeOutput();
   ASN1TExtOptBits bits{};
   ASSERT_EQ(0, pd_ExtOptElemBits(&ctxt, &bits));
   ASSERT_EQ(3u, bits.count);
   EXPECT_EQ(1, bits.data[0]);
   EXPECT_EQ(0, bits.data[1]);
   EXPECT_EQ(1, bits.data[2]);
   rtxMemHeapFreePtr(&ctxt, bits.data);
   const QSOCTET* p = nullptr;
   QSUINT32 n = 0;
   ASSERT_EQ(0, pd_OpenType(&ctxt, &p, &n));
   ASSERT_EQ(2u, n);
   EXPECT_EQ(0x12, p[0]);
   EXPECT_EQ(0x34, p[1]);
   ASSERT_EQ(0, pd_OpenType(&ctxt, &p, &n));
   ASSERT_EQ(1u, n);
   EXPECT_EQ(0, p[0]);

   /* the same additions skipped in one go */
   setInput(out());
   const QSOCTET* start = nullptr;
   QSSIZE len = 0;
   ASSERT_EQ(0, pd_OpenTypeExt(&ctxt, &start, &len));
   EXPECT_EQ(input.data(), start);
   EXPECT_EQ(7u, len);
   EXPECT_EQ(50u, bitPos());
}

TEST_F(PerLength, ChoiceExtensionSkipped)
{
   ASSERT_EQ(0, pe_SmallNonNegWholeNumber(&ctxt, 2));
   ASSERT_EQ(0, pe_OpenType(&ctxt, 3, (const QSOCTET*)"abc"));
   ASSERT_EQ(0, rtxEncBits(&ctxt, 1, 1));
   decodeOutput();
   const QSOCTET* start = nullptr;
   QSSIZE len = 0;
   ASSERT_EQ(0, pd_ChoiceOpenTypeExt(&ctxt, &start, &len));
   EXPECT_EQ(7u + 8u + 24u, bitPos());
   EXPECT_EQ(5u, len);
   QSBOOL bit = 0;
   ASSERT_EQ(0, rtxDecBit(&ctxt, &bit));
   EXPECT_EQ(1, bit);
}
