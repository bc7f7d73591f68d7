/* PER encoding: alignment, whole numbers, length determinants, integers. */
#include "rtpersrc/perInternal.h"

#define PER_MODULE "../../rtpersrc/pe_common.cpp"

using namespace perimpl;

int pe_byte_align(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.aligned && b.bitOffset != 8) {
      b.byteIndex++;
      b.bitOffset = 8;
      pu_setFldBitOffset(ctxt);
   }
   return 0;
}

namespace {

/* Aligned-variant form of a constrained whole number. */
int encConsWholeNumberAligned(QSCTXT* ctxt, QSUINT64 value, QSUINT64 range, QSUINT32 nbits)
{
   int stat;
   if (range != 0 && range < 256) {
      stat = rtxEncBitsFromSize(ctxt, value, nbits);
   }
   else if (range == 256) {
      pe_byte_align(ctxt);
      stat = rtxEncBits(ctxt, (QSUINT32)value, 8);
   }
   else if (range != 0 && range <= 65536) {
      pe_byte_align(ctxt);
      stat = rtxEncBits(ctxt, (QSUINT32)value, 16);
   }
   else {
      QSUINT32 maxOcts = unsignedOctets(range - 1);
      QSUINT32 octs = unsignedOctets(value);
      stat = rtxEncBits(ctxt, octs - 1, pu_bitcnt(maxOcts - 1));
      if (stat == 0) {
         pe_byte_align(ctxt);
         stat = rtxEncBitsFromSize(ctxt, value, octs * 8);
      }
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

} // namespace

int pe_ConsWholeNumber(QSCTXT* ctxt, QSUINT32 value, QSUINT32 range)
{
   /* A range of 0xFFFFFFFF (or 0, i.e. 2^32 wrapped) takes any value. */
   bool full = (range == 0xFFFFFFFFu || range == 0);
   if (!full && value >= range) {
      rtxErrAddUIntParm(ctxt, value);
      return PER_LOG(ctxt, RTERR_INVALID_VALUE_SPEC);
   }
   QSUINT32 nbits = full ? 32 : pu_bitcnt(range - 1);
   if (ctxt->buffer.aligned) {
      return encConsWholeNumberAligned(ctxt, value, full ? 0x100000000ull : range, nbits);
   }
   if (nbits == 0) return 0;
   int stat = rtxEncBits(ctxt, value, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_ConsWholeNumber64(QSCTXT* ctxt, QSUINT64 value, QSUINT64 range)
{
   /* A range of 0 stands for 2^64 (all values). */
   if (range != 0 && value >= range) {
      rtxErrAddUInt64Parm(ctxt, value);
      return PER_LOG(ctxt, RTERR_INVALID_VALUE_SPEC);
   }
   QSUINT32 nbits = (range == 0) ? 64 : pu_bitcnt(range - 1);
   if (ctxt->buffer.aligned) {
      return encConsWholeNumberAligned(ctxt, value, range, nbits);
   }
   if (nbits == 0) return 0;
   int stat = rtxEncBitsFromSize(ctxt, value, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

namespace perimpl {

int encUnconsLength(QSCTXT* ctxt, QSSIZE n, bool* pFrag)
{
   pe_byte_align(ctxt);
   int stat;
   int result;
   bool frag = false;
   if (n < 128) {
      stat = rtxEncBits(ctxt, (QSUINT32)n, 8);
      result = (int)n;
   }
   else if (n < 16384) {
      stat = rtxEncBits(ctxt, 0x8000u | (QSUINT32)n, 16);
      result = (int)n;
   }
   else {
      QSUINT32 m = (n > 65536) ? 4u : (QSUINT32)(n / 16384);
      stat = rtxEncBits(ctxt, 0xC0u | m, 8);
      result = (int)(m * 16384u);
      frag = true;
   }
   if (pFrag != nullptr) *pFrag = frag;
   return (stat != 0) ? PER_LOG(ctxt, stat) : result;
}

int encLength(QSCTXT* ctxt, QSSIZE n, bool* pFrag)
{
   const _Asn1SizeCnst c = ctxt->sizeCnst;
   int ext = 0;
   if (pFrag != nullptr) *pFrag = false;
   if (c.constrained) {
      ext = pu_checkSizeExt(&c, n);
      if (ext < 0) {
         pu_clearSizeConstraint(ctxt);
         rtxErrAddElemNameParm(ctxt);
         rtxErrAddSizeParm(ctxt, n);
         return PER_LOG(ctxt, ext);
      }
   }
   pu_clearSizeConstraint(ctxt);

   int stat;
   if (c.extensible) {
      PER_FIELD(ctxt, "length extension");
      stat = rtxEncBit(ctxt, (QSBOOL)ext);
      PER_FIELD_END(ctxt);
      if (stat != 0) return PER_LOG(ctxt, stat);
   }
   if (c.constrained && !ext && c.upper <= 65535) {
      if (c.lower == c.upper) return (int)n;      /* fixed size: no length */
      PER_FIELD(ctxt, "length");
      stat = pe_ConsWholeNumber(ctxt, (QSUINT32)(n - c.lower), (QSUINT32)(c.upper - c.lower + 1));
      PER_FIELD_END(ctxt);
      return (stat != 0) ? PER_LOG(ctxt, stat) : (int)n;
   }
   PER_FIELD(ctxt, "length");
   stat = encUnconsLength(ctxt, n, pFrag);
   PER_FIELD_END(ctxt);
   return (stat < 0) ? PER_LOG(ctxt, stat) : stat;
}

} // namespace perimpl

int pe_Length(QSCTXT* ctxt, QSSIZE length)
{
   int stat = encLength(ctxt, length, nullptr);
   return (stat < 0) ? PER_LOG(ctxt, stat) : stat;
}

int pe_UnconsLength(QSCTXT* ctxt, QSSIZE length)
{
   PER_FIELD(ctxt, "length");
   int stat = encUnconsLength(ctxt, length, nullptr);
   PER_FIELD_END(ctxt);
   return (stat < 0) ? PER_LOG(ctxt, stat) : stat;
}

int pe_SmallLength(QSCTXT* ctxt, QSSIZE length)
{
   int stat;
   if (length <= 64) {
      PER_FIELD(ctxt, "length");
      /* length 0 is never passed; it would write 0 + 111111 */
      stat = rtxEncBits(ctxt, (QSUINT32)((length - 1) & 0x3F), 7);
      PER_FIELD_END(ctxt);
   }
   else {
      PER_FIELD(ctxt, "length");
      stat = rtxEncBit(ctxt, 1);
      PER_FIELD_END(ctxt);
      if (stat == 0) {
         stat = pe_Length(ctxt, length);
         if (stat > 0) stat = 0;
      }
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_SmallNonNegWholeNumber(QSCTXT* ctxt, QSUINT32 value)
{
   int stat;
   if (value < 64) {
      PER_FIELD(ctxt, "index");
      stat = rtxEncBits(ctxt, value, 7);
      PER_FIELD_END(ctxt);
      return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
   }
   if (value > 0xFFFFFFu) {
      rtxErrAddStrParm(ctxt, "very large SmallNonNegWholeNumber");
      return PER_LOG(ctxt, RTERR_FEATURE_NOT_SUPPORTED);
   }
   QSUINT32 k = (value < 256) ? 1 : (value < 65536) ? 2 : 3;
   PER_FIELD(ctxt, "length");
   stat = rtxEncBit(ctxt, 1);
   if (stat == 0) {
      pe_byte_align(ctxt);
      stat = rtxEncBits(ctxt, k, 8);
   }
   PER_FIELD_END(ctxt);
   if (stat == 0) {
      PER_FIELD(ctxt, "index");
      stat = rtxEncBits(ctxt, value, k * 8);
      PER_FIELD_END(ctxt);
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_NonNegBinInt64(QSCTXT* ctxt, QSUINT64 value)
{
   QSUINT32 nbits = unsignedOctets(value) * 8;
   int stat = rtxEncBitsFromSize(ctxt, value, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_NonNegBinInt(QSCTXT* ctxt, QSUINT32 value)
{
   int stat = pe_NonNegBinInt64(ctxt, value);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_2sCompBinInt64(QSCTXT* ctxt, QSINT64 value)
{
   QSUINT32 nbits = signedOctets(value) * 8;
   int stat = rtxEncBitsFromSize(ctxt, (QSUINT64)value, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_2sCompBinInt(QSCTXT* ctxt, QSINT32 value)
{
   int stat = pe_2sCompBinInt64(ctxt, value);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

namespace {

/* Length octet, then the value in that many octets. */
int encUncons(QSCTXT* ctxt, QSUINT64 bits, QSUINT32 octets, bool leadingZero,
              const char* fieldName)
{
   QSUINT32 len = octets + (leadingZero ? 1 : 0);
   PER_FIELD(ctxt, "length");
   pe_byte_align(ctxt);
   int stat = rtxEncBits(ctxt, len, 8);
   PER_FIELD_END(ctxt);
   if (stat == 0) {
      PER_FIELD(ctxt, fieldName);
      pe_byte_align(ctxt);
      if (leadingZero) stat = rtxEncBits(ctxt, 0, 8);
      if (stat == 0) stat = rtxEncBitsFromSize(ctxt, bits, octets * 8);
      PER_FIELD_END(ctxt);
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

} // namespace

int pe_UnconsInt32Unaligned(QSCTXT* ctxt, QSINT32 value)
{
   int stat = encUncons(ctxt, (QSUINT64)(QSINT64)value, signedOctets(value), false,
                        "UnconsInteger");
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_UnconsInt64Unaligned(QSCTXT* ctxt, QSINT64 value)
{
   int stat = encUncons(ctxt, (QSUINT64)value, signedOctets(value), false, "UnconsInteger");
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_UnconsUInt32Unaligned(QSCTXT* ctxt, QSUINT32 value)
{
   int stat;
   if (value < 0x80000000u) {
      stat = encUncons(ctxt, value, signedOctets((QSINT64)value), false, "UnconsUnsigned");
   }
   else {
      stat = encUncons(ctxt, value, 4, true, "UnconsUnsigned");
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_UnconsUInt64Unaligned(QSCTXT* ctxt, QSUINT64 value)
{
   int stat;
   if (value < 0x8000000000000000ull) {
      stat = encUncons(ctxt, value, signedOctets((QSINT64)value), false, "UnconsUnsigned");
   }
   else {
      stat = encUncons(ctxt, value, 8, true, "UnconsUnsigned");
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}
