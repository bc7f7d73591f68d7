/*
 * Helpers shared by the JSON and plain-text runtime sources (not part of
 * the public interface): writer fast paths over the context buffer and the
 * input cursor of the readers.
 */
#ifndef RTJSONINTERNAL_H
#define RTJSONINTERNAL_H

#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxStream.h"

/* Records a failure at the current line of the including source file,
 * which defines JSON_MODULE. */
#define JSON_LOG(ctxt, stat) rtxErrSetData(ctxt, stat, JSON_MODULE, __LINE__)

/* Keeps a general (slow) path out of the fast path that calls it. */
#if defined(__GNUC__)
#define JSON_NOINLINE __attribute__((noinline))
#define JSON_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define JSON_NOINLINE
#define JSON_ALWAYS_INLINE inline
#endif

namespace jsonimpl {

/* ---- decimal digits --------------------------------------------------------------------------- */

/* "00" .. "99": two digits per division. */
struct DigitPairTable {
   char d[200];
   constexpr DigitPairTable() : d()
   {
      for (int i = 0; i < 100; i++) {
         d[2 * i] = (char)('0' + i / 10);
         d[2 * i + 1] = (char)('0' + i % 10);
      }
   }
};
inline constexpr DigitPairTable kDigitPairs{};

/* Number of decimal digits of value. */
inline unsigned decimalDigitCount(QSUINT64 value)
{
   unsigned n = 1;
   for (;;) {
      if (value < 10) return n;
      if (value < 100) return n + 1;
      if (value < 1000) return n + 2;
      if (value < 10000) return n + 3;
      value /= 10000;
      n += 4;
   }
}

/* The decimal digits of v stored at p (room for 20 bytes is the caller's); the end. */
inline QSOCTET* putDecimalDigits(QSOCTET* p, QSUINT64 v)
{
   if (v < 10) {
      *p = (QSOCTET)('0' + v);
      return p + 1;
   }
   if (v < 100) {
      std::memcpy(p, kDigitPairs.d + 2 * v, 2);
      return p + 2;
   }
   if (v >= 10000 && v <= 0xFFFFFFFFu) {
      /* longer 32-bit values: digit count from the bit length, then two digits per step from the
       * end */
      static const QSUINT32 kPow10[10] = {1u, 10u, 100u, 1000u, 10000u, 100000u, 1000000u, 10000000u,
                                          100000000u, 1000000000u};
      QSUINT32 x = (QSUINT32)v;
      QSUINT32 t = ((QSUINT32)(32 - __builtin_clz(x)) * 1233u) >> 12;
      p += t + 1 - (x < kPow10[t]);
      QSOCTET* q = p;
      while (x >= 100) {
         QSUINT32 pair = x % 100;
         x /= 100;
         q -= 2;
         std::memcpy(q, kDigitPairs.d + 2 * pair, 2);
      }
      if (x >= 10) std::memcpy(q - 2, kDigitPairs.d + 2 * x, 2);
      else q[-1] = (QSOCTET)('0' + x);
      return p;
   }
   p += decimalDigitCount(v);
   QSOCTET* q = p;
   while (v >= 100) {
      unsigned pair = (unsigned)(v % 100);
      v /= 100;
      q -= 2;
      std::memcpy(q, kDigitPairs.d + 2 * pair, 2);
   }
   if (v >= 10) {
      q -= 2;
      std::memcpy(q, kDigitPairs.d + 2 * v, 2);
   }
   else {
      *--q = (QSOCTET)('0' + v);
   }
   return p;
}

/* ---- writer state ----------------------------------------------------------------------------- */

inline QSUINT16& indentOf(QSCTXT* ctxt) { return ctxt->indent; }
inline QSOCTET& lastCharOf(QSCTXT* ctxt) { return ctxt->lastChar; }
inline QSOCTET& jsonModeOf(QSCTXT* ctxt) { return ctxt->jsonMode; }

/* ---- output ----------------------------------------------------------------------------------- */

/* Slow path of reserve(): grows or fails (recorded). */
int reserveSlow(QSCTXT* ctxt, QSSIZE n);

/* Makes room for exactly n more bytes at the cursor. */
inline int reserve(QSCTXT* ctxt, QSSIZE n)
{
   const QSRTBuffer& b = ctxt->buffer;
   if (b.data != nullptr && b.byteIndex + n <= b.size) return 0;
   return reserveSlow(ctxt, n);
}

/* Stores a NUL behind the text when there is room for it (no check, the
 * index does not move), so that the buffer reads as a C string. */
inline void terminate(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex < b.size) b.data[b.byteIndex] = 0;
}

/* Appends n bytes whose room has been reserved. */
inline void put(QSCTXT* ctxt, const void* p, QSSIZE n)
{
   QSRTBuffer& b = ctxt->buffer;
   std::memcpy(b.data + b.byteIndex, p, n);
   b.byteIndex += n;
}

/* Appends one character (checked) and remembers it. */
inline int putChar(QSCTXT* ctxt, char c)
{
   int stat = reserve(ctxt, 1);
   if (stat != 0) return stat;
   QSRTBuffer& b = ctxt->buffer;
   b.data[b.byteIndex++] = (QSOCTET)c;
   ctxt->lastChar = (QSOCTET)c;
   return 0;
}

/* Appends n bytes (checked). */
inline int putText(QSCTXT* ctxt, const void* p, QSSIZE n)
{
   if (n == 0) return 0;
   int stat = reserve(ctxt, n);
   if (stat != 0) return stat;
   put(ctxt, p, n);
   ctxt->lastChar = ((const QSOCTET*)p)[n - 1];
   return 0;
}

/* ---- input ------------------------------------------------------------------------------------ */

inline bool isWhitespace(QSOCTET c) { return c == 0x20 || (QSOCTET)(c - 0x09) <= 4; }

/* Binds the bound input stream's remaining memory as the context buffer
 * when the buffer has nothing left to read. True when input was added. */
bool refill(QSCTXT* ctxt);

/* Next character without consuming it, or -1 at the end of the input. */
inline int peekRaw(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex < b.size) return b.data[b.byteIndex];
   if (refill(ctxt)) return b.data[b.byteIndex];
   return -1;
}

/* Index of the first non-whitespace byte of data[i..n), or n. Indented text
 * is mostly a line feed and a run of spaces: those go 16 (or 8) at a time. */
inline QSSIZE skipWs(const QSOCTET* data, QSSIZE i, QSSIZE n)
{
   if (i < n && data[i] > 0x20) return i;
#if defined(__SSE2__)
   {
      const __m128i spaces = _mm_set1_epi8(0x20), lineFeeds = _mm_set1_epi8(0x0A);
      while (i + 16 <= n) {
         __m128i v = _mm_loadu_si128((const __m128i*)(data + i));
         unsigned m = (unsigned)_mm_movemask_epi8(
            _mm_or_si128(_mm_cmpeq_epi8(v, spaces), _mm_cmpeq_epi8(v, lineFeeds))) ^ 0xFFFFu;
         if (m == 0) {
            i += 16;
            continue;
         }
         i += (QSSIZE)__builtin_ctz(m);  /* the spaces and line feeds before the first other byte */
         if (!isWhitespace(data[i])) return i;
         i++;
      }
   }
#endif
   while (i < n) {
      QSOCTET c = data[i];
      if (c == 0x20) {
         while (i + 8 <= n) {
            QSUINT64 w;
            std::memcpy(&w, data + i, 8);
            QSUINT64 x = w ^ 0x2020202020202020ull;
            if (x != 0) {
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
               i += (QSSIZE)(__builtin_ctzll(x) >> 3);  /* the spaces before the first other byte */
#endif
               break;
            }
            i += 8;
         }
         while (i < n && data[i] == 0x20) i++;
         continue;
      }
      if (!isWhitespace(c)) return i;
      i++;
   }
   return n;
}

/* Next non-whitespace character without consuming it, or -1 at the end. */
JSON_ALWAYS_INLINE int peekNonWs(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   for (;;) {
      if (b.byteIndex < b.size) {
         QSSIZE i = skipWs(b.data, b.byteIndex, b.size);
         b.byteIndex = i;
         if (i < b.size) return b.data[i];
      }
      if (!refill(ctxt)) return -1;
   }
}

/* Consumes one character; -1 at the end of the input. */
inline int getRaw(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex < b.size) return b.data[b.byteIndex++];
   if (refill(ctxt)) return b.data[b.byteIndex++];
   return -1;
}

/* Adds the character c (or "EOF") as an error parameter. */
void addCharParm(QSCTXT* ctxt, int c);

} // namespace jsonimpl

#endif
