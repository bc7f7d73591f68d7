/* PER decoding: whole numbers, length determinants, small numbers,
 * extension bitmaps, unconstrained integers. */
#include "rtpersrc/perInternal.h"

#define PER_MODULE "../../rtpersrc/pd_common.cpp"

using namespace perimpl;

int pd_byte_align(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.aligned && b.bitOffset != 8) {
      if (b.byteIndex >= b.size) return PER_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
      b.byteIndex++;
      b.bitOffset = 8;
      pu_setFldBitOffset(ctxt);
   }
   return 0;
}

namespace {

int decConsWholeNumberAligned(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT64 range, QSUINT32 nbits)
{
   int stat;
   if (range != 0 && range < 256) {
      stat = rtxDecBitsToUInt64(ctxt, pvalue, nbits);
   }
   else if (range == 256 || (range != 0 && range <= 65536)) {
      stat = pd_byte_align(ctxt);
      if (stat == 0) stat = rtxDecBitsToUInt64(ctxt, pvalue, (range == 256) ? 8 : 16);
   }
   else {
      QSUINT32 maxOcts = unsignedOctets(range - 1);
      QSUINT32 octs = 0;
      stat = rtxDecBits(ctxt, &octs, pu_bitcnt(maxOcts - 1));
      if (stat == 0) stat = pd_byte_align(ctxt);
      if (stat == 0) stat = rtxDecBitsToUInt64(ctxt, pvalue, (octs + 1) * 8);
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

} // namespace

int pd_ConsWholeNumber(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 range)
{
   const bool full = (range == 0xFFFFFFFFu || range == 0);
   const QSUINT32 nbits = full ? 32 : pu_bitcnt(range - 1);
   int stat;
   if (ctxt->buffer.aligned) {
      QSUINT64 v = 0;
      stat = decConsWholeNumberAligned(ctxt, &v, full ? 0x100000000ull : range, nbits);
      if (stat == 0) {
         if (v > 0xFFFFFFFFull) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
         *pvalue = (QSUINT32)v;
      }
   }
   else {
      stat = rtxDecBits(ctxt, pvalue, nbits);
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pd_ConsWholeNumber64(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT64 range)
{
   const QSUINT32 nbits = (range == 0) ? 64 : pu_bitcnt(range - 1);
   if (!ctxt->buffer.aligned && nbits - 1u < 32u && rtxGetBitsLeft(ctxt) >= nbits) {
      QSUINT32 v = 0;
      rtxDecBits(ctxt, &v, nbits);   /* the bits are there: cannot fail */
      *pvalue = v;
      return 0;
   }
   int stat = ctxt->buffer.aligned ? decConsWholeNumberAligned(ctxt, pvalue, range, nbits)
                                   : rtxDecBitsToUInt64(ctxt, pvalue, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

namespace perimpl {

int decUnconsLength(QSCTXT* ctxt, QSUINT64* pvalue)
{
   int stat = pd_byte_align(ctxt);
   if (stat != 0) return PER_LOG(ctxt, stat);
   QSUINT32 first = 0;
   stat = rtxDecBits(ctxt, &first, 8);
   if (stat != 0) return PER_LOG(ctxt, stat);
   if ((first & 0x80u) == 0) {
      *pvalue = first;
      return 0;
   }
   if ((first & 0x40u) == 0) {
      QSUINT32 second = 0;
      stat = rtxDecBits(ctxt, &second, 8);
      if (stat != 0) return PER_LOG(ctxt, stat);
      *pvalue = ((first & 0x3Fu) << 8) | second;
      return 0;
   }
   QSUINT32 m = first & 0x3Fu;
   if (m > 4) return PER_LOG(ctxt, RTERR_INVALID_FIELD_LENGTH);
   *pvalue = (QSUINT64)m * 16384u;
   return 2;
}

} // namespace perimpl

int pd_UnconsLength64(QSCTXT* ctxt, QSUINT64* pvalue)
{
   PER_FIELD(ctxt, "length");
   int stat = decUnconsLength(ctxt, pvalue);
   PER_FIELD_END(ctxt);
   return (stat < 0) ? PER_LOG(ctxt, stat) : stat;
}

int pd_UnconsLength(QSCTXT* ctxt, QSUINT32* pvalue)
{
   QSUINT64 v = 0;
   int stat = pd_UnconsLength64(ctxt, &v);
   if (stat < 0) return PER_LOG(ctxt, stat);
   if (v > 0xFFFFFFFFull) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   *pvalue = (QSUINT32)v;
   return stat;
}

int pd_Length64(QSCTXT* ctxt, QSUINT64* pvalue)
{
   const _Asn1SizeCnst c = ctxt->sizeCnst;
   QSBOOL ext = 0;
   int stat;
   if (c.extensible) {
      PER_FIELD(ctxt, "length extension");
      stat = rtxDecBit(ctxt, &ext);
      PER_FIELD_END(ctxt);
      if (stat != 0) {
         pu_clearSizeConstraint(ctxt);
         return PER_LOG(ctxt, stat);
      }
   }
   pu_clearSizeConstraint(ctxt);

   if (!ext && c.constrained && c.upper < 65536) {
      if (c.lower == c.upper) {
         *pvalue = c.lower;
         return 0;
      }
      QSUINT64 v = 0;
      PER_FIELD(ctxt, "length");
      stat = pd_ConsWholeNumber64(ctxt, &v, c.upper - c.lower + 1);
      PER_FIELD_END(ctxt);
      if (stat != 0) return PER_LOG(ctxt, stat);
      QSUINT64 len = c.lower + v;
      if (len > c.upper) {
         rtxErrAddStrParm(ctxt, "'length'");
         rtxErrAddUInt64Parm(ctxt, len);
         return PER_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
      }
      *pvalue = len;
      return 0;
   }
   PER_FIELD(ctxt, "length");
   stat = decUnconsLength(ctxt, pvalue);
   PER_FIELD_END(ctxt);
   return (stat < 0) ? PER_LOG(ctxt, stat) : stat;
}

int pd_Length(QSCTXT* ctxt, QSUINT32* pvalue)
{
   QSUINT64 v = 0;
   int stat = pd_Length64(ctxt, &v);
   if (stat < 0) return PER_LOG(ctxt, stat);
   if (v > 0xFFFFFFFFull) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   *pvalue = (QSUINT32)v;
   return stat;
}

int pd_ConsLength(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 nbits, QSUINT32 lower)
{
   QSUINT32 v = 0;
   PER_FIELD(ctxt, "length");
   int stat = rtxDecBits(ctxt, &v, nbits);
   PER_FIELD_END(ctxt);
   if (stat != 0) return PER_LOG(ctxt, stat);
   *pvalue = v + lower;
   return 0;
}

int pd_SmallLength(QSCTXT* ctxt, QSUINT32* pvalue)
{
   QSBOOL big = 0;
   PER_FIELD(ctxt, "length");
   int stat = rtxDecBit(ctxt, &big);
   if (stat == 0 && !big) {
      QSUINT32 v = 0;
      stat = rtxDecBits(ctxt, &v, 6);
      if (stat == 0) *pvalue = v + 1;
   }
   PER_FIELD_END(ctxt);
   if (stat == 0 && big) {
      stat = pd_Length(ctxt, pvalue);
      if (stat == 2) stat = RTERR_INVALID_FIELD_LENGTH;   /* never fragmented */
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pd_SmallNonNegWholeNumber(QSCTXT* ctxt, QSUINT32* pvalue)
{
   QSBOOL big = 0;
   int stat = rtxDecBit(ctxt, &big);
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (!big) {
      PER_FIELD(ctxt, "index");
      stat = rtxDecBits(ctxt, pvalue, 6);
      PER_FIELD_END(ctxt);
      return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
   }
   QSUINT32 count = 0;
   stat = pd_Length(ctxt, &count);
   if (stat == 2) stat = RTERR_INVALID_FIELD_LENGTH;
   if (stat == 0) stat = pd_byte_align(ctxt);
   if (stat == 0) {
      if (count > 4) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
      PER_FIELD(ctxt, "index");
      stat = rtxDecBits(ctxt, pvalue, count * 8);
      PER_FIELD_END(ctxt);
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pd_ExtOptElemBits(QSCTXT* ctxt, ASN1TExtOptBits* pBits)
{
   pBits->count = 0;
   pBits->data = nullptr;
   QSUINT32 n = 0;
   int stat = pd_SmallLength(ctxt, &n);
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (n == 0) return 0;
   if ((QSUINT64)n > rtxGetBitsLeft(ctxt)) {
      return PER_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   }
   QSOCTET* bits = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, n));
   if (bits == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   PER_FIELD(ctxt, "OpenTypeExt");
   QSUINT32 i = 0;
   while (i < n) {
      QSUINT32 chunk = (n - i > 32) ? 32 : n - i;
      QSUINT32 v = 0;
      stat = rtxDecBits(ctxt, &v, chunk);
      if (stat != 0) break;
      for (QSUINT32 k = 0; k < chunk; k++) {
         bits[i + k] = (QSOCTET)((v >> (chunk - 1 - k)) & 1u);
      }
      i += chunk;
   }
   PER_FIELD_END(ctxt);
   if (stat != 0) {
      rtxMemHeapFreePtr(ctxt, bits);
      return PER_LOG(ctxt, stat);
   }
   pBits->count = n;
   pBits->data = bits;
   return 0;
}

namespace {

/* Length octet and the octets of an unconstrained integer; maxOcts is the
 * largest octet count accepted. */
int decUnconsOctets(QSCTXT* ctxt, QSUINT32 maxOcts, QSUINT32* pOcts, QSUINT64* pBits,
                    const char* fieldName)
{
   QSUINT64 len = 0;
   PER_FIELD(ctxt, "length");
   int stat = decUnconsLength(ctxt, &len);
   PER_FIELD_END(ctxt);
   if (stat == 2) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (len == 0) return PER_LOG(ctxt, RTERR_INVALID_FIELD_LENGTH);
   if (len > maxOcts) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   PER_FIELD(ctxt, fieldName);
   stat = pd_byte_align(ctxt);
   QSUINT64 v = 0;
   if (stat == 0) {
      if (len > 8) {
         /* leading octet of an unsigned 64-bit value: must be zero */
         QSUINT32 lead = 0;
         stat = rtxDecBits(ctxt, &lead, 8);
         if (stat == 0 && lead != 0) stat = RTERR_VALUE_WILL_NOT_FIT;
         if (stat == 0) stat = rtxDecBitsToUInt64(ctxt, &v, 64);
      }
      else {
         stat = rtxDecBitsToUInt64(ctxt, &v, (QSUINT32)len * 8);
      }
   }
   PER_FIELD_END(ctxt);
   if (stat != 0) return PER_LOG(ctxt, stat);
   *pOcts = (QSUINT32)len;
   *pBits = v;
   return 0;
}

/* Sign-extends the low octs*8 bits of v. */
inline QSINT64 signExtend(QSUINT64 v, QSUINT32 octs)
{
   if (octs >= 8) return (QSINT64)v;
   QSUINT32 shift = 64 - octs * 8;
   return (QSINT64)(v << shift) >> shift;
}

} // namespace

int pd_UnconsInt64(QSCTXT* ctxt, QSINT64* pvalue)
{
   QSUINT32 octs = 0;
   QSUINT64 v = 0;
   int stat = decUnconsOctets(ctxt, 8, &octs, &v, "UnconsInteger");
   if (stat != 0) return PER_LOG(ctxt, stat);
   *pvalue = signExtend(v, octs);
   return 0;
}

int pd_UnconsInteger(QSCTXT* ctxt, QSINT32* pvalue)
{
   QSUINT32 octs = 0;
   QSUINT64 v = 0;
   int stat = decUnconsOctets(ctxt, 4, &octs, &v, "UnconsInteger");
   if (stat != 0) return PER_LOG(ctxt, stat);
   *pvalue = (QSINT32)signExtend(v, octs);
   return 0;
}

int pd_UnconsUInt64(QSCTXT* ctxt, QSUINT64* pvalue)
{
   QSUINT32 octs = 0;
   QSUINT64 v = 0;
   int stat = decUnconsOctets(ctxt, 9, &octs, &v, "UnconsUnsigned");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (octs <= 8 && signExtend(v, octs) < 0) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   *pvalue = v;
   return 0;
}

int pd_UnconsUnsigned(QSCTXT* ctxt, QSUINT32* pvalue)
{
   QSUINT32 octs = 0;
   QSUINT64 v = 0;
   int stat = decUnconsOctets(ctxt, 5, &octs, &v, "UnconsUnsigned");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (octs == 5) {
      if ((v >> 32) != 0) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   else if (signExtend(v, octs) < 0) {
      return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   *pvalue = (QSUINT32)v;
   return 0;
}
