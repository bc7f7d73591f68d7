/* PER encoding: octet, bit and character strings, open types, extension
 * additions. */
#include <cstring>

#include "rtpersrc/perInternal.h"

#define PER_MODULE "../../rtpersrc/pe_strings.cpp"

using namespace perimpl;

namespace {

/* Writes n octets with length determinant(s), fragmenting as needed.
 * closeFragments: write the closing zero length after a final fragment. */
int encOctets(QSCTXT* ctxt, QSSIZE n, const QSOCTET* data, const char* fieldName)
{
   QSSIZE done = 0;
   bool frag = false;
   for (;;) {
      int len = encLength(ctxt, n - done, &frag);
      if (len < 0) return PER_LOG(ctxt, len);
      if (len > 0) {
         if (data == nullptr) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
         PER_FIELD(ctxt, fieldName);
         pe_byte_align(ctxt);
         int stat = rtxEncBitsFromByteArray(ctxt, data + done, (QSSIZE)len * 8);
         PER_FIELD_END(ctxt);
         if (stat != 0) return PER_LOG(ctxt, stat);
      }
      done += (QSSIZE)len;
      if (!frag || done >= n) break;
   }
   if (frag) {
      /* the last piece was a full fragment: close with a zero length */
      int stat = encLength(ctxt, 0, nullptr);
      if (stat < 0) return PER_LOG(ctxt, stat);
   }
   return 0;
}

} // namespace

int pe_OctetString(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data)
{
   int stat = encOctets(ctxt, numocts, data, "OctetString");
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_BitString(QSCTXT* ctxt, QSSIZE numbits, const QSOCTET* data)
{
   QSSIZE done = 0;
   bool frag = false;
   for (;;) {
      int len = encLength(ctxt, numbits - done, &frag);
      if (len < 0) return PER_LOG(ctxt, len);
      if (len > 0) {
         if (data == nullptr) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
         PER_FIELD(ctxt, "BitString");
         int stat = rtxEncBitsFromByteArray(ctxt, data + done / 8, (QSSIZE)len);
         PER_FIELD_END(ctxt);
         if (stat != 0) return PER_LOG(ctxt, stat);
      }
      done += (QSSIZE)len;
      if (!frag || done >= numbits) break;
   }
   /* no closing zero length after a final full fragment (kept as is) */
   return 0;
}

int pe_BitString32(QSCTXT* ctxt, const ASN1TBitStr32* pBitStr, QSUINT32 lower, QSUINT32 upper)
{
   if (pBitStr == nullptr) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
   if (!ctxt->sizeCnst.constrained) {
      ctxt->sizeCnst.lower = lower;
      ctxt->sizeCnst.upper = upper;
      ctxt->sizeCnst.constrained = 1;
      ctxt->sizeCnst.extensible = 0;
   }
   QSUINT32 numbits = pBitStr->numbits;
   if (numbits > 32) {
      /* let the length check report the size when it is outside the
         constraint; a size inside it cannot exceed the 4 data bytes */
      int chk = pu_checkSizeExt(&ctxt->sizeCnst, numbits);
      if (chk == 0 || chk == 1) {
         pu_clearSizeConstraint(ctxt);
         rtxErrAddElemNameParm(ctxt);
         rtxErrAddUIntParm(ctxt, numbits);
         return PER_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
      }
   }
   int stat = pe_BitString(ctxt, numbits, pBitStr->data);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

namespace {

/* Writes the leading characters of a known-multiplier string, as many whole nbits-bit codes
 * (indexes into charSet when given) as fit in 32 bits per write, when the output has room for all
 * of them and eight bytes more, so that no write can fail. Stops before the first character that
 * is not valid, and returns the number of characters written (0 without the room); the caller's
 * per-character loop does the rest and produces any failure. */
QSSIZE packChars(QSCTXT* ctxt, const char* string, QSSIZE nchars, const char* charSet, QSUINT32 nbits)
{
   const QSRTBuffer& b = ctxt->buffer;
   if (b.data == nullptr || b.byteIndex >= b.size ||
       (QSUINT64)(b.size - b.byteIndex) < ((QSUINT64)nchars * nbits + 7) / 8 + 8) {
      return 0;
   }
   const size_t alen = (charSet != nullptr) ? std::strlen(charSet) : 0;
   const QSUINT32 perWrite = 32u / nbits;
   QSUINT64 acc = 0;
   QSUINT32 n = 0;
   QSSIZE i = 0;
   for (; i < nchars; i++) {
      const char ch = string[i];
      QSUINT32 code;
      if (charSet != nullptr) {
         const void* pos = (ch != '\0') ? std::memchr(charSet, ch, alen) : nullptr;
         if (pos == nullptr) break;
         code = (QSUINT32)((const char*)pos - charSet);
      }
      else {
         code = (unsigned char)ch;
         if (nbits < 32 && (code >> nbits) != 0) break;
      }
      acc = (acc << nbits) | code;
      if (++n == perWrite) {
         rtxEncBits(ctxt, (QSUINT32)acc, n * nbits);
         acc = 0;
         n = 0;
      }
   }
   if (n != 0) rtxEncBits(ctxt, (QSUINT32)acc, n * nbits);
   return i;
}

} // namespace

int pe_ConstrainedStringData(QSCTXT* ctxt, const char* string, const char* charSet,
                             QSUINT32 nbits, QSUINT32 canSetBits, QSSIZE nchars)
{
   if (nchars == 0) return 0;
   if (string == nullptr || nbits > 32) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
   const bool useIndex = (nbits < canSetBits) || (canSetBits < 5);
   int stat = 0;
   PER_FIELD(ctxt, "data");
   QSSIZE first = 0;
   if (nbits != 0 && (charSet != nullptr || !useIndex)) {
      first = packChars(ctxt, string, nchars, useIndex ? charSet : nullptr, nbits);
   }
   if (useIndex) {
      if (charSet == nullptr) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
      const size_t alen = std::strlen(charSet);
      for (QSSIZE i = first; i < nchars && stat == 0; i++) {
         const char ch = string[i];
         const void* pos = (ch != '\0') ? std::memchr(charSet, ch, alen) : nullptr;
         if (pos == nullptr) {
            PER_FIELD_END(ctxt);
            rtxErrAddElemNameParm(ctxt);
            rtxErrAddStrnParm(ctxt, &string[i], 1);
            return PER_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
         }
         stat = rtxEncBits(ctxt, (QSUINT32)((const char*)pos - charSet), nbits);
      }
   }
   else {
      for (QSSIZE i = first; i < nchars && stat == 0; i++) {
         const QSUINT32 code = (unsigned char)string[i];
         /* A code wider than the character width (a byte above 0x7F in an IA5String) is not
          * a character of the type: it fails as a character outside the alphabet does, where
          * writing its low bits would silently give another character. */
         if (nbits < 32 && (code >> nbits) != 0) {
            PER_FIELD_END(ctxt);
            rtxErrAddElemNameParm(ctxt);
            rtxErrAddStrnParm(ctxt, &string[i], 1);
            return PER_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
         }
         stat = rtxEncBits(ctxt, code, nbits);
      }
   }
   PER_FIELD_END(ctxt);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_ConstrainedStringEx(QSCTXT* ctxt, const char* string, const char* charSet,
                           QSUINT32 abits, QSUINT32 ubits, QSUINT32 canSetBits)
{
   const QSSIZE n = (string != nullptr) ? std::strlen(string) : 0;
   const QSUINT32 nbits = ctxt->buffer.aligned ? abits : ubits;
   QSSIZE done = 0;
   bool frag = false;
   for (;;) {
      int len = encLength(ctxt, n - done, &frag);
      if (len < 0) return PER_LOG(ctxt, len);
      int stat = pe_ConstrainedStringData(ctxt, string + done, charSet, nbits, canSetBits,
                                          (QSSIZE)len);
      if (stat != 0) return PER_LOG(ctxt, stat);
      done += (QSSIZE)len;
      if (!frag || done >= n) break;
   }
   if (frag) {
      int stat = encLength(ctxt, 0, nullptr);
      if (stat < 0) return PER_LOG(ctxt, stat);
   }
   return 0;
}

int pe_VarWidthCharString(QSCTXT* ctxt, const char* value)
{
   const QSSIZE n = (value != nullptr) ? std::strlen(value) : 0;
   int stat = encOctets(ctxt, n, (const QSOCTET*)value, "data");
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_OpenType(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data)
{
   /* an open type never takes a SIZE constraint */
   pu_clearSizeConstraint(ctxt);
   int stat;
   if (numocts == 0) {
      /* an empty open type goes out as one zero octet */
      static const QSOCTET zero = 0;
      stat = encOctets(ctxt, 1, &zero, "OpenType");
   }
   else {
      stat = encOctets(ctxt, numocts, data, "OpenType");
   }
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_OpenTypeExtBits(QSCTXT* ctxt, const QSRTDList* pElemList)
{
   if (pElemList == nullptr) return 0;
   PER_FIELD(ctxt, "OpenTypeExt");
   QSUINT32 acc = 0;
   QSUINT32 nacc = 0;
   int stat = 0;
   for (const QSRTDListNode* node = pElemList->head; node != nullptr && stat == 0;
        node = node->next) {
      acc = (acc << 1) | (node->data != nullptr ? 1u : 0u);
      if (++nacc == 32) {
         stat = rtxEncBits(ctxt, acc, 32);
         acc = 0;
         nacc = 0;
      }
   }
   if (stat == 0 && nacc > 0) stat = rtxEncBits(ctxt, acc, nacc);
   PER_FIELD_END(ctxt);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int pe_OpenTypeExt(QSCTXT* ctxt, const QSRTDList* pElemList)
{
   if (pElemList == nullptr) return 0;
   for (const QSRTDListNode* node = pElemList->head; node != nullptr; node = node->next) {
      if (node->data == nullptr) continue;
      const ASN1TOpenType* pOpenType = static_cast<const ASN1TOpenType*>(node->data);
      pe_byte_align(ctxt);
      int stat = pe_OpenType(ctxt, pOpenType->numocts, pOpenType->data);
      if (stat != 0) return PER_LOG(ctxt, stat);
   }
   return 0;
}
