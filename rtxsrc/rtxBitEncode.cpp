#include "rtxsrc/rtxBitEncode.h"

#include <cstring>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

#define RTX_MODULE "../../rtxsrc/rtxBitEncode.cpp"
#define LOG_ERR(ctxt, stat) rtxErrSetData(ctxt, stat, RTX_MODULE, __LINE__)

namespace {

/* First allocation size of a dynamic buffer that has no memory yet. */
const QSSIZE kInitialDynBufSize = 1024;

inline QSSIZE bitsToBytes(QSSIZE nbits) { return (nbits + 7) / 8; }

/* Number of bytes beyond the partial current byte touched by nbits bits. */
inline QSSIZE bytesNeeded(const QSRTBuffer& b, QSSIZE nbits)
{
   if (b.bitOffset == 8) return bitsToBytes(nbits);
   QSSIZE freeBits = (QSSIZE)b.bitOffset;
   return (nbits <= freeBits) ? 0 : bitsToBytes(nbits - freeBits);
}

inline int ensure(QSCTXT* ctxt, QSSIZE nbytes)
{
   const QSRTBuffer& b = ctxt->buffer;
   QSSIZE need = nbytes + ((b.bitOffset != 8) ? 1 : 0);
   if (b.data != nullptr && b.byteIndex + need <= b.size) return 0;
   return rtxCheckOutputBuffer(ctxt, nbytes);
}

/* Stores the low nbits (1..32) of value at the cursor; room is ensured. */
inline void putBits(QSRTBuffer& b, QSUINT32 value, QSUINT32 nbits)
{
   QSOCTET* p = b.data + b.byteIndex;
   QSUINT32 used = 8u - (QSUINT32)b.bitOffset;     /* bits already in *p */
   QSUINT64 acc = (nbits == 32) ? value : (value & ((1u << nbits) - 1u));
   if (used != 0) {
      acc |= (QSUINT64)(*p >> b.bitOffset) << nbits;
   }
   QSUINT32 total = used + nbits;                  /* 1..39 */
   QSUINT32 nbytes = (total + 7) / 8;
   acc <<= (nbytes * 8 - total);
   for (QSUINT32 i = nbytes; i-- > 0; ) {
      p[i] = (QSOCTET)acc;
      acc >>= 8;
   }
   b.byteIndex += total / 8;
   QSUINT32 rem = total % 8;
   b.bitOffset = (QSINT16)(8 - rem);
}

} // namespace

int rtxCheckOutputBuffer(QSCTXT* ctxt, QSSIZE nbytes)
{
   QSRTBuffer& b = ctxt->buffer;
   QSSIZE need = nbytes + ((b.bitOffset != 8) ? 1 : 0);
   if (b.data != nullptr && b.byteIndex + need <= b.size) return 0;

   if (!b.dynamic) {
      return LOG_ERR(ctxt, RTERR_ENCODE_BUFFER_OVERFLOW);
   }
   QSSIZE newSize;
   if (b.data == nullptr || b.size == 0) {
      newSize = (need > kInitialDynBufSize) ? need : kInitialDynBufSize;
      newSize = (b.byteIndex + need > newSize) ? b.byteIndex + need : newSize;
   }
   else {
      newSize = b.size + ((b.size > need) ? b.size : need);
   }
   QSOCTET* pNew = (QSOCTET*)rtxMemHeapRealloc(ctxt, b.data, newSize);
   if (pNew == nullptr) {
      return LOG_ERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   b.data = pNew;
   b.size = newSize;
   return 0;
}

int rtxEncBitSlow(QSCTXT* ctxt, QSBOOL value)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.bitOffset == 8) {
      if (b.data == nullptr || b.byteIndex >= b.size) {
         int stat = rtxCheckOutputBuffer(ctxt, 1);
         if (stat != 0) return LOG_ERR(ctxt, stat);
      }
      b.data[b.byteIndex] = value ? 0x80 : 0;
      b.bitOffset = 7;
      return 0;
   }
   if (value) b.data[b.byteIndex] |= (QSOCTET)(1u << (b.bitOffset - 1));
   if (--b.bitOffset == 0) {
      b.bitOffset = 8;
      b.byteIndex++;
   }
   return 0;
}

int rtxEncBitsSlow(QSCTXT* ctxt, QSUINT32 value, QSUINT32 nbits)
{
   if (nbits == 0) return 0;
   if (nbits > 32) return LOG_ERR(ctxt, RTERR_INVALID_PARAMETER);
   QSRTBuffer& b = ctxt->buffer;
   int stat = ensure(ctxt, bytesNeeded(b, nbits));
   if (stat != 0) return LOG_ERR(ctxt, stat);
   putBits(b, value, nbits);
   return 0;
}

int rtxEncBitsFromSize(QSCTXT* ctxt, QSUINT64 value, QSUINT32 nbits)
{
   if (nbits == 0) return 0;
   if (nbits > 64) return LOG_ERR(ctxt, RTERR_INVALID_PARAMETER);
   QSRTBuffer& b = ctxt->buffer;
   int stat = ensure(ctxt, bytesNeeded(b, nbits));
   if (stat != 0) return LOG_ERR(ctxt, stat);
   if (nbits > 32) {
      putBits(b, (QSUINT32)(value >> 32), nbits - 32);
      putBits(b, (QSUINT32)value, 32);
   }
   else {
      putBits(b, (QSUINT32)value, nbits);
   }
   return 0;
}

int rtxEncBitsFromByteArray(QSCTXT* ctxt, const QSOCTET* pvalue, QSSIZE nbits)
{
   if (nbits == 0) return 0;
   if (pvalue == nullptr) return LOG_ERR(ctxt, RTERR_INVALID_PARAMETER);
   QSRTBuffer& b = ctxt->buffer;
   if (nbits <= 32 && b.data != nullptr && b.byteIndex < b.size && b.size - b.byteIndex >= 8) {
      /* a short string with room at hand: its bits as one value through the word-wide writer */
      QSUINT32 nb = (QSUINT32)(nbits + 7) / 8;
      QSUINT64 v = 0;
      for (QSUINT32 i = 0; i < nb; i++) v = (v << 8) | pvalue[i];
      return rtxEncBits(ctxt, (QSUINT32)(v >> (nb * 8 - (QSUINT32)nbits)), (QSUINT32)nbits);
   }
   int stat = ensure(ctxt, bytesNeeded(b, nbits));
   if (stat != 0) return LOG_ERR(ctxt, stat);

   QSSIZE nfull = nbits / 8;
   QSUINT32 rem = (QSUINT32)(nbits % 8);
   QSOCTET* p = b.data + b.byteIndex;

   if (b.bitOffset == 8) {
      std::memcpy(p, pvalue, nfull);
      b.byteIndex += nfull;
      if (rem != 0) {
         b.data[b.byteIndex] = (QSOCTET)(pvalue[nfull] & (0xFFu << (8 - rem)));
         b.bitOffset = (QSINT16)(8 - rem);
      }
      return 0;
   }

   /* Unaligned cursor: each source byte is split across two bytes. */
   const QSUINT32 freeBits = (QSUINT32)b.bitOffset;   /* 1..7 */
   const QSUINT32 used = 8 - freeBits;
   QSOCTET cur = (QSOCTET)(*p & (0xFFu << freeBits));
   for (QSSIZE i = 0; i < nfull; i++) {
      QSOCTET s = pvalue[i];
      p[i] = (QSOCTET)(cur | (s >> used));
      cur = (QSOCTET)(s << freeBits);
   }
   p[nfull] = cur;
   b.byteIndex += nfull;
   if (rem != 0) {
      putBits(b, (QSUINT32)(pvalue[nfull] >> (8 - rem)), rem);
   }
   return 0;
}
