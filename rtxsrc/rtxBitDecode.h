/*
 * Bit-level reader over the context's message buffer.
 *
 * buffer.size is the number of valid input bytes; buffer.bitOffset is the
 * number of not yet consumed bits of the byte at buffer.byteIndex
 * (8 = nothing consumed). Bits are read most significant first.
 */
#ifndef RTXBITDECODE_H
#define RTXBITDECODE_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

#include <cstring>

/* Checks that nbytes more bytes are available at the cursor. Fails with
 * RTERR_UNEXPECTED_END_OF_BUFFER (RTERR_UNEXPECTED_END_OF_FILE when an
 * input stream is attached). */
int rtxCheckInputBuffer(QSCTXT* ctxt, QSSIZE nbytes);

/* Slow path of rtxDecBit: input exhausted (records the failure). */
int rtxDecBitSlow(QSCTXT* ctxt, QSBOOL* pvalue);

/* Reads one bit (pvalue may be null). Inline fast path. */
inline int rtxDecBit(QSCTXT* ctxt, QSBOOL* pvalue)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex >= b.size) return rtxDecBitSlow(ctxt, pvalue);
   QSINT16 bo = (QSINT16)(b.bitOffset - 1);
   QSBOOL bit = (QSBOOL)((b.data[b.byteIndex] >> bo) & 1u);
   if (bo == 0) {
      b.bitOffset = 8;
      b.byteIndex++;
   }
   else {
      b.bitOffset = bo;
   }
   if (pvalue != nullptr) *pvalue = bit;
   return 0;
}

/* Reads nbits (0..32) bits; pvalue may be null (the bits are skipped). */
int rtxDecBitsSlow(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 nbits);

/* Big-endian load of the 8 bytes at p. */
inline QSUINT64 rtxLoadBE64(const QSOCTET* p)
{
   QSUINT64 w;
   std::memcpy(&w, p, 8);
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
   return __builtin_bswap64(w);
#else
   const QSOCTET* b = reinterpret_cast<const QSOCTET*>(&w);
   QSUINT64 v = 0;
   for (int i = 0; i < 8; i++) v = (v << 8) | b[i];
   return v;
#endif
}

/* Inline fast path: 1..32 bits with at least 8 bytes of input left are taken from one 64-bit
 * load; everything else (and every failure) goes through rtxDecBitsSlow. */
inline int rtxDecBits(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 nbits)
{
   QSRTBuffer& b = ctxt->buffer;
   if (nbits - 1u < 32u && b.byteIndex < b.size && b.size - b.byteIndex >= 8) {
      QSUINT32 used = 8u - (QSUINT32)b.bitOffset;             /* 0..7 bits of the byte taken */
      QSUINT64 w = rtxLoadBE64(b.data + b.byteIndex) << used;
      QSUINT32 end = used + nbits;
      b.byteIndex += end >> 3;
      b.bitOffset = (QSINT16)(8u - (end & 7u));
      if (pvalue != nullptr) *pvalue = (QSUINT32)(w >> (64u - nbits));
      return 0;
   }
   return rtxDecBitsSlow(ctxt, pvalue, nbits);
}

/* Sized forms: at most 8, 16, 64 and 64 bits respectively. */
int rtxDecBitsToByte(QSCTXT* ctxt, QSUINT8* pvalue, QSUINT32 nbits);
int rtxDecBitsToUInt16(QSCTXT* ctxt, QSUINT16* pvalue, QSUINT32 nbits);
int rtxDecBitsToUInt64(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT32 nbits);
int rtxDecBitsToSize(QSCTXT* ctxt, QSSIZE* pvalue, QSUINT32 nbits);

/* Reads nbits bits into a byte array, most significant first, the last
 * byte padded with 0 bits. A null buffer skips the bits. A buffer smaller
 * than (nbits + 7) / 8 bytes fails with RTERR_MAX_STRING_ITEMS_EXCEEDED. */
int rtxDecBitsToByteArray(QSCTXT* ctxt, QSOCTET* pbuffer, QSSIZE bufsiz, QSSIZE nbits);

/* Skips nbits bits. */
int rtxSkipBits(QSCTXT* ctxt, QSSIZE nbits);

/* Moves the cursor by bitOffset bits (negative = backwards). Moving before
 * the start or past the end fails with RTERR_UNEXPECTED_END_OF_BUFFER. */
int rtxMoveBitCursor(QSCTXT* ctxt, QSINT64 bitOffset);

/* Current cursor position in bits from the start of the buffer. */
inline QSUINT64 rtxGetBitPos(const QSCTXT* ctxt)
{
   return (QSUINT64)ctxt->buffer.byteIndex * 8u + (QSUINT64)(8 - ctxt->buffer.bitOffset);
}

/* Number of input bits not yet consumed. */
inline QSUINT64 rtxGetBitsLeft(const QSCTXT* ctxt)
{
   const QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex >= b.size) return 0;
   return (QSUINT64)(b.size - b.byteIndex) * 8u - (QSUINT64)(8 - b.bitOffset);
}

#endif
