/*
 * Plain-text writers and readers on the context buffer: integers, raw
 * text, whitespace, indentation.
 */
#include "rtjsonsrc/rtxText.h"

#include <cstring>

#include "rtjsonsrc/rtJsonInternal.h"
#include "rtxsrc/rtxMemory.h"

#define JSON_MODULE "../../rtjsonsrc/rtxText.cpp"

using namespace jsonimpl;

/* ---- input binding ---------------------------------------------------------------------------- */

bool jsonimpl::refill(QSCTXT* ctxt)
{
   return rtxStreamBindInput(ctxt) != 0;
}

void jsonimpl::addCharParm(QSCTXT* ctxt, int c)
{
   if (c < 0) {
      rtxErrAddStrParm(ctxt, "EOF");
   }
   else {
      char text[2] = { (char)c, 0 };
      rtxErrAddStrnParm(ctxt, text, 1);
   }
}

/* ---- indentation ------------------------------------------------------------------------------ */

void rtxIndentIncr(QSCTXT* ctxt)
{
   ctxt->indent = (QSUINT16)(ctxt->indent + QSINDENTSPACES);
}

void rtxIndentDecr(QSCTXT* ctxt)
{
   if (ctxt->indent >= QSINDENTSPACES) ctxt->indent = (QSUINT16)(ctxt->indent - QSINDENTSPACES);
   else ctxt->indent = 0;
}

QSUINT32 rtxGetIndentLevels(QSCTXT* ctxt)
{
   return ctxt->indent / QSINDENTSPACES;
}

/* ---- writers ---------------------------------------------------------------------------------- */

namespace {

const DigitPairTable& kPairs = kDigitPairs;

}  // namespace

const char rtxTxtDigitPairs[201] =
   "0001020304050607080910111213141516171819202122232425262728293031323334353637383940414243444546474849"
   "5051525354555657585960616263646566676869707172737475767778798081828384858687888990919293949596979899";

QSOCTET* rtxTxtPutDigits(QSOCTET* p, QSUINT64 value)
{
   return putDecimalDigits(p, value);
}

char* rtxTxtFormatUInt64(char* end, QSUINT64 value)
{
   char* p = end;
   while (value >= 100) {
      unsigned pair = (unsigned)(value % 100);
      value /= 100;
      p -= 2;
      std::memcpy(p, kPairs.d + 2 * pair, 2);
   }
   if (value >= 10) {
      p -= 2;
      std::memcpy(p, kPairs.d + 2 * value, 2);
   }
   else {
      *--p = (char)('0' + value);
   }
   return p;
}

namespace {

inline int writeDigits(QSCTXT* ctxt, QSUINT64 magnitude, bool negative)
{
   {
      /* the common case: formatted in place (room for the longest number and the NUL) */
      QSRTBuffer& b = ctxt->buffer;
      if (b.data != nullptr && b.byteIndex + 22 <= b.size) {
         QSOCTET* p = b.data + b.byteIndex;
         *p = '-';
         p += negative ? 1 : 0;
         p = putDecimalDigits(p, magnitude);
         ctxt->lastChar = p[-1];
         *p = 0;
         b.byteIndex = (QSSIZE)(p - b.data);
         return 0;
      }
   }
   char buf[24];
   char* end = buf + sizeof(buf);
   char* p = rtxTxtFormatUInt64(end, magnitude);
   if (negative) *--p = '-';
   QSSIZE n = (QSSIZE)(end - p);
   int stat = reserve(ctxt, n);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   std::memcpy(b.data + b.byteIndex, p, n);
   b.byteIndex += n;
   ctxt->lastChar = (QSOCTET)end[-1];
   terminate(ctxt);
   return 0;
}

} // namespace

int rtxTxtWriteInt(QSCTXT* ctxt, QSINT32 value)
{
   return rtxTxtWriteInt64(ctxt, value);
}

int rtxTxtWriteUInt(QSCTXT* ctxt, QSUINT32 value)
{
   return writeDigits(ctxt, value, false);
}

int rtxTxtWriteInt64(QSCTXT* ctxt, QSINT64 value)
{
   if (value < 0) return writeDigits(ctxt, (QSUINT64)0 - (QSUINT64)value, true);
   return writeDigits(ctxt, (QSUINT64)value, false);
}

int rtxTxtWriteUInt64(QSCTXT* ctxt, QSUINT64 value)
{
   return writeDigits(ctxt, value, false);
}

int rtxCopyAsciiText(QSCTXT* ctxt, const char* text)
{
   if (text == nullptr || *text == 0) return 0;
   int stat = putText(ctxt, text, std::strlen(text));
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtxWriteBytes(QSCTXT* ctxt, const QSOCTET* data, QSSIZE nbytes)
{
   if (nbytes == 0) return 0;
   if (data == nullptr) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   int stat = putText(ctxt, data, nbytes);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

/* ---- readers ---------------------------------------------------------------------------------- */

int rtxTxtSkipWhitespace(QSCTXT* ctxt)
{
   peekNonWs(ctxt);
   return 0;
}

QSUTF8CHAR rtxTxtPeekChar2(QSCTXT* ctxt, QSBOOL skipWhitespace)
{
   int c = skipWhitespace ? peekNonWs(ctxt) : peekRaw(ctxt);
   return (c < 0) ? (QSUTF8CHAR)0 : (QSUTF8CHAR)c;
}

namespace {

/* The common case, right at the cursor: [-] up to 18 digits (no overflow of the accumulator)
 * within the limit. False, with nothing moved, for anything else. */
inline bool readIntegerFast(QSCTXT* ctxt, QSUINT64 posLimit, QSUINT64 negLimit,
                            QSUINT64* pmagnitude, bool* pnegative)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex >= b.size) return false;
   const QSOCTET* p = b.data + b.byteIndex;
   const QSOCTET* end = b.data + b.size;
   bool negative = (*p == '-');
   p += negative ? 1 : 0;
   if (p >= end || (QSOCTET)(*p - '0') > 9) return false;
   const QSOCTET* stop = (end - p > 18) ? p + 18 : end;
   QSUINT64 value = 0;
   const QSOCTET* q = p;
   do {
      value = value * 10 + (QSUINT64)(*q - '0');
      q++;
   } while (q < stop && (QSOCTET)(*q - '0') <= 9);
   if (value > (negative ? negLimit : posLimit) || (q != end && (QSOCTET)(*q - '0') <= 9)) return false;
   b.byteIndex = (QSSIZE)(q - b.data);
   *pmagnitude = value;
   *pnegative = negative;
   return true;
}

/* Reads [sign] digits with magnitude limits for the positive and the
 * negative side (negLimit 0: no negative values except -0). */
JSON_NOINLINE int readInteger(QSCTXT* ctxt, QSUINT64 posLimit, QSUINT64 negLimit,
                QSUINT64* pmagnitude, bool* pnegative)
{
   int c = peekNonWs(ctxt);
   if (c < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   QSRTBuffer& b = ctxt->buffer;
   bool negative = false;
   if (c == '-' || c == '+') {
      negative = (c == '-');
      b.byteIndex++;
      c = peekRaw(ctxt);
      if (c < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   }
   if (c < '0' || c > '9') return JSON_LOG(ctxt, RTERR_CHARACTER_NOT_IN_SET);
   QSUINT64 limit = negative ? negLimit : posLimit;
   {
      /* the common case: up to 18 digits (no overflow of the accumulator) within the limit;
       * anything else is read again below */
      const QSOCTET* p = b.data + b.byteIndex;
      const QSOCTET* end = b.data + b.size;
      const QSOCTET* stop = (end - p > 18) ? p + 18 : end;
      QSUINT64 value = 0;
      const QSOCTET* q = p;
      while (q < stop && (QSOCTET)(*q - '0') <= 9) {
         value = value * 10 + (QSUINT64)(*q - '0');
         q++;
      }
      if (value <= limit && (q == end || (QSOCTET)(*q - '0') > 9)) {
         b.byteIndex = (QSSIZE)(q - b.data);
         *pmagnitude = value;
         *pnegative = negative;
         return 0;
      }
   }
   QSUINT64 value = 0;
   bool overflow = false;
   const QSOCTET* p = b.data + b.byteIndex;
   const QSOCTET* end = b.data + b.size;
   while (p < end && (QSOCTET)(*p - '0') <= 9) {
      QSUINT64 d = (QSUINT64)(*p - '0');
      if (value > limit / 10 || (value == limit / 10 && d > limit % 10)) overflow = true;
      else value = value * 10 + d;
      p++;
   }
   b.byteIndex = (QSSIZE)(p - b.data);
   if (overflow) return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   *pmagnitude = value;
   *pnegative = negative;
   return 0;
}

template <typename T>
int readSigned(QSCTXT* ctxt, T* pvalue, QSINT64 minValue, QSINT64 maxValue)
{
   QSUINT64 mag;
   bool neg;
   const QSUINT64 posLimit = (QSUINT64)maxValue, negLimit = (QSUINT64)0 - (QSUINT64)minValue;
   if (!readIntegerFast(ctxt, posLimit, negLimit, &mag, &neg)) {
      int stat = readInteger(ctxt, posLimit, negLimit, &mag, &neg);
      if (stat != 0) return JSON_LOG(ctxt, stat);
   }
   if (pvalue != nullptr) {
      *pvalue = neg ? (T)((QSINT64)((QSUINT64)0 - mag)) : (T)(QSINT64)mag;
   }
   return 0;
}

template <typename T>
int readUnsigned(QSCTXT* ctxt, T* pvalue, QSUINT64 maxValue)
{
   QSUINT64 mag;
   bool neg;
   if (!readIntegerFast(ctxt, maxValue, 0, &mag, &neg)) {
      int stat = readInteger(ctxt, maxValue, 0, &mag, &neg);
      if (stat != 0) return JSON_LOG(ctxt, stat);
   }
   if (pvalue != nullptr) *pvalue = (T)mag;
   return 0;
}

} // namespace

int rtJsonDecIntFast(QSCTXT* ctxt, QSINT64 lo, QSINT64 hi, QSINT64* pvalue)
{
   QSRTBuffer& b = ctxt->buffer;
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
   if (b.byteIndex + 9 <= b.size) {
      /* [-] and up to 7 digits, all in one 8-byte word after the sign (8 digits or more are
       * left to the loop below) */
      const QSOCTET* p = b.data + b.byteIndex;
      bool negative = (*p == '-');
      p += negative ? 1 : 0;
      QSUINT64 w;
      std::memcpy(&w, p, 8);
      QSUINT64 x = w - 0x3030303030303030ull;
      /* high bit of every byte that is not a digit (exact up to the first such byte) */
      QSUINT64 nd = (x | (x + 0x7676767676767676ull)) & 0x8080808080808080ull;
      unsigned n = (nd != 0) ? (unsigned)__builtin_ctzll(nd) >> 3 : 8;   /* leading digits */
      if (n == 0) return 0;
      if (n < 8) {
         QSUINT64 v = x << (8 * (8 - n));                   /* the digits, leading zeros before */
         v = ((v & 0x0F0F0F0F0F0F0F0Full) * 2561) >> 8;
         v = ((v & 0x00FF00FF00FF00FFull) * 6553601) >> 16;
         v = ((v & 0x0000FFFF0000FFFFull) * 42949672960001ull) >> 32;
         QSINT64 value = negative ? -(QSINT64)v : (QSINT64)v;
         if (value < lo || value > hi) return 0;
         b.byteIndex = (QSSIZE)(p + n - b.data);
         *pvalue = value;
         return 1;
      }
   }
#endif
   if (lo > hi) return 0;
   QSSIZE start = b.byteIndex;
   QSUINT64 mag;
   bool neg;
   QSUINT64 posLimit = (hi < 0) ? 0 : (QSUINT64)hi;
   QSUINT64 negLimit = (lo < 0) ? (QSUINT64)0 - (QSUINT64)lo : 0;
   if (!readIntegerFast(ctxt, posLimit, negLimit, &mag, &neg)) return 0;
   QSINT64 v = neg ? (QSINT64)((QSUINT64)0 - mag) : (QSINT64)mag;
   if (v < lo || v > hi) {
      b.byteIndex = start;
      return 0;
   }
   *pvalue = v;
   return 1;
}

int rtxTxtReadInt8(QSCTXT* ctxt, QSINT8* pvalue)
{
   return readSigned(ctxt, pvalue, -128, 127);
}

int rtxTxtReadInt16(QSCTXT* ctxt, QSINT16* pvalue)
{
   return readSigned(ctxt, pvalue, -32768, 32767);
}

int rtxTxtReadInt32(QSCTXT* ctxt, QSINT32* pvalue)
{
   return readSigned(ctxt, pvalue, -2147483647LL - 1, 2147483647LL);
}

int rtxTxtReadInt64(QSCTXT* ctxt, QSINT64* pvalue)
{
   return readSigned(ctxt, pvalue, (-9223372036854775807LL - 1), 9223372036854775807LL);
}

int rtxTxtReadUInt8(QSCTXT* ctxt, QSUINT8* pvalue)
{
   return readUnsigned(ctxt, pvalue, 0xFFu);
}

int rtxTxtReadUInt16(QSCTXT* ctxt, QSUINT16* pvalue)
{
   return readUnsigned(ctxt, pvalue, 0xFFFFu);
}

int rtxTxtReadUInt32(QSCTXT* ctxt, QSUINT32* pvalue)
{
   return readUnsigned(ctxt, pvalue, 0xFFFFFFFFu);
}

int rtxTxtReadUInt64(QSCTXT* ctxt, QSUINT64* pvalue)
{
   return readUnsigned(ctxt, pvalue, ~(QSUINT64)0);
}
