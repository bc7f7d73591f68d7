#include "rtxsrc/rtxBitDecode.h"

#include <cstring>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

#define RTX_MODULE "../../rtxsrc/rtxBitDecode.cpp"
#define LOG_ERR(ctxt, stat) rtxErrSetData(ctxt, stat, RTX_MODULE, __LINE__)

namespace {

/* Number of bits left in the input. */
inline QSUINT64 bitsLeft(const QSRTBuffer& b)
{
   if (b.byteIndex >= b.size) return 0;
   return (QSUINT64)(b.size - b.byteIndex) * 8u - (QSUINT64)(8 - b.bitOffset);
}

inline int endOfInput(QSCTXT* ctxt, int line)
{
   int stat = (ctxt->pStream != nullptr) ? RTERR_UNEXPECTED_END_OF_FILE
                                         : RTERR_UNEXPECTED_END_OF_BUFFER;
   return rtxErrSetData(ctxt, stat, RTX_MODULE, line);
}

/* Reads nbits (1..57) bits; availability already checked. */
inline QSUINT64 getBits(QSRTBuffer& b, QSUINT32 nbits)
{
   const QSOCTET* p = b.data + b.byteIndex;
   QSUINT32 bo = (QSUINT32)b.bitOffset;
   if (nbits < bo) {
      b.bitOffset = (QSINT16)(bo - nbits);
      return (QSUINT64)((*p >> (bo - nbits)) & ((1u << nbits) - 1u));
   }
   QSUINT64 acc = *p & ((1u << bo) - 1u);
   QSUINT32 have = bo;
   QSSIZE i = 1;
   while (have < nbits) {
      acc = (acc << 8) | p[i++];
      have += 8;
   }
   QSUINT32 extra = have - nbits;
   acc >>= extra;
   if (extra == 0) {
      b.byteIndex += i;
      b.bitOffset = 8;
   }
   else {
      b.byteIndex += i - 1;
      b.bitOffset = (QSINT16)extra;
   }
   return acc;
}

/* Reads nbits (1..32) bits when that many are left; otherwise returns false and changes nothing.
 * Takes one 64-bit load, or near the end of the input the remaining bytes one by one (the
 * missing low bytes read as 0 and are never part of the result). */
inline bool takeBits(QSRTBuffer& b, QSUINT32 nbits, QSUINT32* pvalue)
{
   if (b.byteIndex >= b.size) return false;
   const QSSIZE avail = b.size - b.byteIndex;
   const QSOCTET* p = b.data + b.byteIndex;
   const QSUINT32 used = 8u - (QSUINT32)b.bitOffset;
   QSUINT64 w;
   if (avail >= 8) {
      w = rtxLoadBE64(p);
   }
   else {
      if ((QSUINT64)avail * 8u - used < nbits) return false;
      const QSUINT32 need = (used + nbits + 7u) >> 3;   /* bytes holding the bits, <= avail */
      w = 0;
      for (QSUINT32 i = 0; i < need; i++) w |= (QSUINT64)p[i] << (56u - 8u * i);
   }
   w <<= used;
   const QSUINT32 end = used + nbits;
   b.byteIndex += end >> 3;
   b.bitOffset = (QSINT16)(8u - (end & 7u));
   *pvalue = (QSUINT32)(w >> (64u - nbits));
   return true;
}

} // namespace

int rtxCheckInputBuffer(QSCTXT* ctxt, QSSIZE nbytes)
{
   const QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex + nbytes <= b.size && b.byteIndex <= b.size) return 0;
   return endOfInput(ctxt, __LINE__);
}

int rtxDecBitSlow(QSCTXT* ctxt, QSBOOL* pvalue)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex >= b.size) return endOfInput(ctxt, __LINE__);
   QSINT16 bo = (QSINT16)(b.bitOffset - 1);
   QSBOOL bit = (QSBOOL)((b.data[b.byteIndex] >> bo) & 1u);
   if (bo == 0) { b.bitOffset = 8; b.byteIndex++; }
   else b.bitOffset = bo;
   if (pvalue != nullptr) *pvalue = bit;
   return 0;
}

int rtxDecBitsSlow(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 nbits)
{
   if (nbits == 0) {
      if (pvalue != nullptr) *pvalue = 0;
      return 0;
   }
   if (nbits > 32) return LOG_ERR(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   QSRTBuffer& b = ctxt->buffer;
   QSUINT32 v = 0;
   if (!takeBits(b, nbits, &v)) return endOfInput(ctxt, __LINE__);
   if (pvalue != nullptr) *pvalue = v;
   return 0;
}

int rtxDecBitsToByte(QSCTXT* ctxt, QSUINT8* pvalue, QSUINT32 nbits)
{
   if (nbits > 8) return LOG_ERR(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   QSUINT32 v = 0;
   int stat = rtxDecBits(ctxt, &v, nbits);
   if (stat != 0) return LOG_ERR(ctxt, stat);
   if (pvalue != nullptr) *pvalue = (QSUINT8)v;
   return 0;
}

int rtxDecBitsToUInt16(QSCTXT* ctxt, QSUINT16* pvalue, QSUINT32 nbits)
{
   if (nbits > 16) return LOG_ERR(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   QSUINT32 v = 0;
   int stat = rtxDecBits(ctxt, &v, nbits);
   if (stat != 0) return LOG_ERR(ctxt, stat);
   if (pvalue != nullptr) *pvalue = (QSUINT16)v;
   return 0;
}

int rtxDecBitsToUInt64(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT32 nbits)
{
   if (nbits == 0) {
      if (pvalue != nullptr) *pvalue = 0;
      return 0;
   }
   if (nbits > 64) return LOG_ERR(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   QSRTBuffer& b = ctxt->buffer;
   if (nbits <= 32) {
      QSUINT32 v32 = 0;
      if (!takeBits(b, nbits, &v32)) return endOfInput(ctxt, __LINE__);
      if (pvalue != nullptr) *pvalue = v32;
      return 0;
   }
   if (bitsLeft(b) < nbits) return endOfInput(ctxt, __LINE__);
   QSUINT64 v;
   if (nbits > 32) {
      QSUINT64 hi = getBits(b, nbits - 32);
      v = (hi << 32) | getBits(b, 32);
   }
   else {
      v = getBits(b, nbits);
   }
   if (pvalue != nullptr) *pvalue = v;
   return 0;
}

int rtxDecBitsToSize(QSCTXT* ctxt, QSSIZE* pvalue, QSUINT32 nbits)
{
   if (nbits > sizeof(QSSIZE) * 8) return LOG_ERR(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   QSUINT64 v = 0;
   int stat = rtxDecBitsToUInt64(ctxt, &v, nbits);
   if (stat != 0) return LOG_ERR(ctxt, stat);
   if (pvalue != nullptr) *pvalue = (QSSIZE)v;
   return 0;
}

int rtxDecBitsToByteArray(QSCTXT* ctxt, QSOCTET* pbuffer, QSSIZE bufsiz, QSSIZE nbits)
{
   if (nbits == 0) return 0;
   QSRTBuffer& b = ctxt->buffer;
   if (bitsLeft(b) < nbits) return endOfInput(ctxt, __LINE__);
   if (pbuffer == nullptr) {
      QSUINT64 pos = (QSUINT64)b.byteIndex * 8u + (QSUINT64)(8 - b.bitOffset) + nbits;
      b.byteIndex = (QSSIZE)(pos / 8);
      b.bitOffset = (QSINT16)(8 - (pos % 8));
      return 0;
   }
   if (bufsiz < (nbits + 7) / 8) return LOG_ERR(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);

   QSSIZE nfull = nbits / 8;
   QSUINT32 rem = (QSUINT32)(nbits % 8);
   const QSOCTET* p = b.data + b.byteIndex;
   if (b.bitOffset == 8) {
      std::memcpy(pbuffer, p, nfull);
      b.byteIndex += nfull;
      if (rem != 0) {
         pbuffer[nfull] = (QSOCTET)(p[nfull] & (0xFFu << (8 - rem)));
         b.bitOffset = (QSINT16)(8 - rem);
      }
      return 0;
   }
   const QSUINT32 bo = (QSUINT32)b.bitOffset;    /* 1..7 bits left in *p */
   const QSUINT32 used = 8 - bo;
   for (QSSIZE i = 0; i < nfull; i++) {
      pbuffer[i] = (QSOCTET)((p[i] << used) | (p[i + 1] >> bo));
   }
   b.byteIndex += nfull;
   if (rem != 0) {
      QSUINT32 v = (QSUINT32)getBits(b, rem);
      pbuffer[nfull] = (QSOCTET)(v << (8 - rem));
   }
   return 0;
}

int rtxSkipBits(QSCTXT* ctxt, QSSIZE nbits)
{
   if (nbits == 0) return 0;
   QSRTBuffer& b = ctxt->buffer;
   if (bitsLeft(b) < nbits) return endOfInput(ctxt, __LINE__);
   QSUINT64 pos = (QSUINT64)b.byteIndex * 8u + (QSUINT64)(8 - b.bitOffset) + nbits;
   b.byteIndex = (QSSIZE)(pos / 8);
   b.bitOffset = (QSINT16)(8 - (pos % 8));
   return 0;
}

int rtxMoveBitCursor(QSCTXT* ctxt, QSINT64 bitOffset)
{
   QSRTBuffer& b = ctxt->buffer;
   QSINT64 pos = (QSINT64)(b.byteIndex * 8u) + (8 - b.bitOffset);
   QSINT64 newPos = pos + bitOffset;
   if (newPos < 0 || (QSUINT64)newPos > (QSUINT64)b.size * 8u) {
      return LOG_ERR(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   }
   b.byteIndex = (QSSIZE)(newPos / 8);
   b.bitOffset = (QSINT16)(8 - (newPos % 8));
   return 0;
}
