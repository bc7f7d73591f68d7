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

/* Ensures room for nbytes more bytes (plus the partially filled byte).
 * A dynamic buffer grows through the context heap (at least doubling);
 * a fixed buffer fails with RTERR_ENCODE_BUFFER_OVERFLOW. */
int rtxCheckOutputBuffer(QSCTXT* ctxt, QSSIZE nbytes);

/* Writes one bit. */
int rtxEncBit(QSCTXT* ctxt, QSBOOL value);

/* Writes the low nbits (0..32) bits of value. */
int rtxEncBits(QSCTXT* ctxt, QSUINT32 value, QSUINT32 nbits);

/* Writes the low nbits (0..64) bits of a 64-bit value. */
int rtxEncBitsFromSize(QSCTXT* ctxt, QSUINT64 value, QSUINT32 nbits);

/* Writes the leading nbits bits of a byte array. */
int rtxEncBitsFromByteArray(QSCTXT* ctxt, const QSOCTET* pvalue, QSSIZE nbits);

#endif
