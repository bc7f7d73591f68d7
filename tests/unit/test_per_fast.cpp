/* Bit reads and character strings taken through the word-at-a-time paths must match the bit-by-bit
 * reading at every distance from the end of the input, at every bit offset. */
#include "test_per_util.h"

#include <cstring>

#include "rtxsrc/rtxError.h"

namespace {

const char kNumeric[] = " 0123456789";

/* Deterministic bytes. */
std::vector<QSOCTET> pattern(size_t n)
{
   std::vector<QSOCTET> v(n);
   QSUINT32 x = 0x9E3779B9u;
   for (auto& b : v) {
      x = x * 1664525u + 1013904223u;
      b = (QSOCTET)(x >> 24);
   }
   return v;
}

/* Bit i of the input, most significant first. */
QSUINT32 bitAt(const std::vector<QSOCTET>& v, size_t i)
{
   return (v[i / 8] >> (7 - i % 8)) & 1u;
}

QSUINT64 bitsAt(const std::vector<QSOCTET>& v, size_t pos, QSUINT32 n)
{
   QSUINT64 r = 0;
   for (QSUINT32 k = 0; k < n; k++) r = (r << 1) | bitAt(v, pos + k);
   return r;
}

} // namespace

class PerFast : public PerTest {};

TEST_F(PerFast, BitReadsNearTheEndOfTheInput)
{
   const auto data = pattern(11);
   const size_t total = data.size() * 8;
   for (QSUINT32 n = 1; n <= 32; n++) {
      for (size_t start = total - 64; start <= total; start++) {
         setInput(data);
         ASSERT_EQ(0, rtxSkipBits(&ctxt, (QSSIZE)start));
         QSUINT32 v = 0xDEADBEEFu;
         int stat = rtxDecBits(&ctxt, &v, n);
         if (start + n <= total) {
            ASSERT_EQ(0, stat) << n << " at " << start;
            EXPECT_EQ(bitsAt(data, start, n), v) << n << " at " << start;
            EXPECT_EQ(start + n, bitPos());
         }
         else {
            EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, stat) << n << " at " << start;
            EXPECT_EQ(0xDEADBEEFu, v);
            EXPECT_EQ(start, bitPos()) << "a failed read leaves the cursor";
         }
         rtxErrReset(&ctxt);

         setInput(data);
         ASSERT_EQ(0, rtxSkipBits(&ctxt, (QSSIZE)start));
         QSUINT64 v64 = 0;
         stat = rtxDecBitsToUInt64(&ctxt, &v64, n);
         if (start + n <= total) {
            ASSERT_EQ(0, stat);
            EXPECT_EQ(bitsAt(data, start, n), v64);
            EXPECT_EQ(start + n, bitPos());
         }
         else {
            EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, stat);
            EXPECT_EQ(start, bitPos());
         }
         rtxErrReset(&ctxt);
      }
   }
}

TEST_F(PerFast, CharacterStringsAcrossTheEndOfTheInput)
{
   /* 7-bit codes and 4-bit alphabet indexes, starting at every bit offset, with the string ending
    * right at the end of the input or a few bits before it. */
   const char* text = "The quick brown fox jumps over";
   const char* digits = "2026 11 23 0930 0123456789 98765";
   for (int alphabet = 0; alphabet < 2; alphabet++) {
      const char* s = alphabet ? digits : text;
      const char* set = alphabet ? kNumeric : nullptr;
      const QSUINT32 nbits = alphabet ? 4 : 7;
      for (QSUINT32 lead = 0; lead < 16; lead++) {
         for (QSUINT32 trail = 0; trail < 3; trail++) {
            ASSERT_EQ(0, pu_setBuffer(&ctxt, nullptr, 0, 0));
            if (lead) {
               ASSERT_EQ(0, rtxEncBits(&ctxt, 0x5A5Au, lead));
            }
            ASSERT_EQ(0, pe_ConstrainedStringData(&ctxt, s, set, nbits, alphabet ? 4 : 7, std::strlen(s)));
            if (trail) {
               ASSERT_EQ(0, rtxEncBits(&ctxt, 0, trail));
            }
            decodeOutput();
            ASSERT_EQ(0, rtxSkipBits(&ctxt, lead));
            const char* got = nullptr;
            ASSERT_EQ(0, pd_DynConstrainedStringData(&ctxt, &got, std::strlen(s), set, nbits,
                                                     alphabet ? 4 : 7));
            EXPECT_STREQ(s, got);
            EXPECT_EQ(lead + std::strlen(s) * nbits, bitPos());
         }
      }
   }
}

TEST_F(PerFast, IndexOutsideTheAlphabetStopsAfterThatCharacter)
{
   /* "12" then index 15 (beyond the 11 characters) at character 2, with and without eight bytes
    * after it: the failure leaves the cursor just past the bad character either way. */
   for (size_t pad = 0; pad < 12; pad++) {
      std::vector<QSOCTET> in = bytes({0x23, 0xF0});
      in.resize(in.size() + pad, 0x11);
      setInput(in);
      char buf[32];
      const QSSIZE nchars = 3 + (QSSIZE)pad * 2;
      EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
                pd_ConstrainedStringData(&ctxt, buf, sizeof buf, nchars, kNumeric, 4, 4));
      EXPECT_EQ(12u, bitPos()) << pad;
      rtxErrReset(&ctxt);
   }
}

TEST_F(PerFast, CharacterStringsWrittenAsCharacterByCharacter)
{
   /* At every starting bit offset, into a dynamic buffer and into fixed buffers from too small to
    * roomy: the same bytes (and the same failure) as writing one code at a time. */
   const char* text = "Signal request 0042 from bus";
   const size_t n = std::strlen(text);
   for (QSUINT32 lead = 0; lead < 9; lead++) {
      ASSERT_EQ(0, pu_setBuffer(&ctxt, nullptr, 0, 0));
      if (lead) {
         ASSERT_EQ(0, rtxEncBits(&ctxt, 0x1FFu, lead));
      }
      for (size_t i = 0; i < n; i++) ASSERT_EQ(0, rtxEncBits(&ctxt, (QSUINT8)text[i], 7));
      const std::string want = hex(out());

      for (size_t room = 0; room <= 40; room += 4) {
         std::vector<QSOCTET> fixed(room == 40 ? 0 : room + 1, 0xEE);
         ASSERT_EQ(0, pu_setBuffer(&ctxt, fixed.empty() ? nullptr : fixed.data(), fixed.size(), 0));
         int stat = 0;
         if (lead) stat = rtxEncBits(&ctxt, 0x1FFu, lead);
         if (stat == 0) stat = pe_ConstrainedStringData(&ctxt, text, nullptr, 7, 7, (QSSIZE)n);
         if (stat == 0) {
            EXPECT_EQ(want, hex(out())) << lead << " " << room;
         }
         else {
            EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, stat);
            EXPECT_EQ(0u, want.rfind(hex(out()).substr(0, 2 * (size_t)ctxt.buffer.byteIndex), 0));
         }
         rtxErrReset(&ctxt);
      }
   }
}

TEST_F(PerFast, CharacterOutsideTheAlphabetAfterPackedCharacters)
{
   /* The characters before the bad one are written, then the failure names the character. */
   ASSERT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION,
             pe_ConstrainedStringData(&ctxt, "0123456789X1", kNumeric, 4, 4, 12));
   EXPECT_EQ(40u, bitPos());
   EXPECT_EQ("123456789A", hex(out()));
   EXPECT_NE(std::string::npos, std::string(rtxErrGetText(&ctxt, nullptr, nullptr)).find("X"));
   rtxErrReset(&ctxt);
   ASSERT_EQ(0, pu_setBuffer(&ctxt, nullptr, 0, 0));
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, pe_ConstrainedStringData(&ctxt, "abc\xE9", nullptr, 7, 7, 4));
   EXPECT_EQ(21u, bitPos());
}
