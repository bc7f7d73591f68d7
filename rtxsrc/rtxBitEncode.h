/*
 * Bit-level writer over the context's message buffer.
 *
 * Bits are written most significant first. buffer.bitOffset is the number
 * of still free bits in the byte at buffer.byteIndex (8 = fresh byte).
 * Unused trailing bits of the last byte are always 0.
 */
#ifndef RTXBITENCODE_H
#define RTXBITENCODE_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

#include <cstring>

/* Ensures room for nbytes more bytes (plus the partially filled byte).
 * A dynamic buffer grows through the context heap (at least doubling);
 * a fixed buffer fails with RTERR_ENCODE_BUFFER_OVERFLOW. */
int rtxCheckOutputBuffer(QSCTXT* ctxt, QSSIZE nbytes);

/* Writes one bit. */
int rtxEncBitSlow(QSCTXT* ctxt, QSBOOL value);

/* Writes one bit; inline while the current byte or the next one has room. */
inline int rtxEncBit(QSCTXT* ctxt, QSBOOL value)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.bitOffset != 8) {
      QSINT16 bo = (QSINT16)(b.bitOffset - 1);
      if (value) b.data[b.byteIndex] |= (QSOCTET)(1u << bo);
      if (bo == 0) {
         b.bitOffset = 8;
         b.byteIndex++;
      }
      else {
         b.bitOffset = bo;
      }
      return 0;
   }
   if (b.data != nullptr && b.byteIndex < b.size) {
      b.data[b.byteIndex] = value ? 0x80 : 0;
      b.bitOffset = 7;
      return 0;
   }
   return rtxEncBitSlow(ctxt, value);
}

/* Writes the low nbits (0..32) bits of value. */
int rtxEncBitsSlow(QSCTXT* ctxt, QSUINT32 value, QSUINT32 nbits);

/* Inline fast path: 1..32 bits with at least 8 bytes of room from the cursor are merged into
 * one 64-bit word. The bits already in the current byte are kept, the rest of the last byte
 * touched is left 0 and the bytes after it are rewritten unchanged. Everything else goes
 * through rtxEncBitsSlow. */
inline int rtxEncBits(QSCTXT* ctxt, QSUINT32 value, QSUINT32 nbits)
{
   QSRTBuffer& b = ctxt->buffer;
   if (nbits - 1u < 32u && b.data != nullptr && b.byteIndex + 8 <= b.size) {
      QSOCTET* p = b.data + b.byteIndex;
      QSUINT32 used = 8u - (QSUINT32)b.bitOffset;             /* 0..7 bits of the byte in use */
      QSUINT32 end = used + nbits;                             /* 1..39 */
      QSUINT32 touched = (end + 7u) & ~7u;                     /* whole bytes written: 8..40 */
      QSUINT64 w;
      std::memcpy(&w, p, 8);
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      w = __builtin_bswap64(w);
#else
      { const QSOCTET* s = p; w = 0; for (int i = 0; i < 8; i++) w = (w << 8) | s[i]; }
#endif
      QSUINT64 keep = (~0ull >> touched) | ~(~0ull >> used);   /* bytes after, bits before */
      QSUINT64 bits = ((QSUINT64)value << (64u - nbits)) >> used;  /* the low nbits bits only */
      w = (w & keep) | bits;
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      w = __builtin_bswap64(w);
      std::memcpy(p, &w, 8);
#else
      for (int i = 7; i >= 0; i--) { p[i] = (QSOCTET)w; w >>= 8; }
#endif
      b.byteIndex += end >> 3;
      b.bitOffset = (QSINT16)(8u - (end & 7u));
      return 0;
   }
   return rtxEncBitsSlow(ctxt, value, nbits);
}

/* Writes the low nbits (0..64) bits of a 64-bit value. */
int rtxEncBitsFromSize(QSCTXT* ctxt, QSUINT64 value, QSUINT32 nbits);

/* Writes the leading nbits bits of a byte array. */
int rtxEncBitsFromByteArray(QSCTXT* ctxt, const QSOCTET* pvalue, QSSIZE nbits);

#endif
