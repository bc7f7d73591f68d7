/* PER decoding: octet, bit and character strings, open types and the
 * skipping of extensions. */
#include <cstring>

#include "rtpersrc/perInternal.h"

#define PER_MODULE "../../rtpersrc/pd_strings.cpp"

using namespace perimpl;

namespace {

/* Largest heap block asked for a decoded string. */
const QSUINT64 kMaxAlloc = 0x1FFFFFFFFFFFFFFEull;

inline const QSOCTET* curBytePtr(const QSCTXT* ctxt)
{
   return ctxt->buffer.data + ctxt->buffer.byteIndex;
}

/* Reads a string of items (itemBits each) with its length determinant(s)
 * under the pending constraint into heap memory of (items * itemBits + 7)
 * / 8 + extra bytes. With skip set nothing is allocated. */
int decItems(QSCTXT* ctxt, QSUINT32 itemBits, QSSIZE extra, bool skip,
             QSOCTET** ppData, QSUINT64* pCount, const char* fieldName)
{
   *ppData = nullptr;
   *pCount = 0;
   QSUINT64 len = 0;
   int stat = pd_Length64(ctxt, &len);
   if (stat < 0) return PER_LOG(ctxt, stat);

   if (stat == 2) {
      /* Fragmented: measure all fragments, take one block, read them. */
      stat = rtxMoveBitCursor(ctxt, -8);
      if (stat != 0) return PER_LOG(ctxt, stat);
      QSSIZE total = 0;
      stat = pd_GetComponentLength(ctxt, itemBits, &total);
      if (stat != 0) return PER_LOG(ctxt, stat);
      QSOCTET* data = nullptr;
      const QSUINT64 nbytes = ((QSUINT64)total * itemBits + 7) / 8;
      if (!skip) {
         if (nbytes > kMaxAlloc) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
         data = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, (QSSIZE)nbytes + extra));
         if (data == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      }
      QSUINT64 doneBits = 0;
      do {
         QSUINT64 flen = 0;
         PER_FIELD(ctxt, "length");
         stat = decUnconsLength(ctxt, &flen);
         PER_FIELD_END(ctxt);
         if (stat < 0) break;
         const int fragStat = stat;
         PER_FIELD(ctxt, fieldName);
         if (itemBits == 8) stat = pd_byte_align(ctxt);
         if (stat >= 0) {
            const QSUINT64 nbits = flen * itemBits;
            /* fragments are whole multiples of 16384 items: byte aligned */
            stat = (data != nullptr)
               ? rtxDecBitsToByteArray(ctxt, data + doneBits / 8,
                                       (QSSIZE)(nbytes - doneBits / 8), (QSSIZE)nbits)
               : rtxSkipBits(ctxt, (QSSIZE)nbits);
            doneBits += nbits;
         }
         PER_FIELD_END(ctxt);
         if (stat < 0) break;
         stat = fragStat;
      } while (stat == 2);
      if (stat < 0) {
         if (data != nullptr) rtxMemHeapFreePtr(ctxt, data);
         return PER_LOG(ctxt, stat);
      }
      *ppData = data;
      *pCount = total;
      return 0;
   }

   if (len == 0) return 0;
   const QSUINT64 nbits = len * itemBits;
   if (len > (~(QSUINT64)0) / itemBits || nbits > rtxGetBitsLeft(ctxt)) {
      return PER_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   }
   PER_FIELD(ctxt, fieldName);
   if (itemBits == 8) {
      stat = pd_byte_align(ctxt);
      if (stat != 0) return PER_LOG(ctxt, stat);
   }
   if (skip) {
      stat = rtxSkipBits(ctxt, (QSSIZE)nbits);
      PER_FIELD_END(ctxt);
      if (stat != 0) return PER_LOG(ctxt, stat);
      *pCount = len;
      return 0;
   }
   const QSUINT64 nbytes = (nbits + 7) / 8;
   if (nbytes > kMaxAlloc) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   QSOCTET* data = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, (QSSIZE)nbytes + extra));
   if (data == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   stat = rtxDecBitsToByteArray(ctxt, data, (QSSIZE)nbytes, (QSSIZE)nbits);
   PER_FIELD_END(ctxt);
   if (stat != 0) {
      rtxMemHeapFreePtr(ctxt, data);
      return PER_LOG(ctxt, stat);
   }
   *ppData = data;
   *pCount = len;
   return 0;
}

/* Reads characters of nbits (1..32) bits each into dest[*pi..nchars) from src, which holds the
 * input from bit srcBit on, while the cursor pos is at most lastPos; with charSet given they are
 * indexes into it (alen characters). Stops before an index outside the alphabet (setting *pBad).
 * Returns the new cursor. */
QSUINT64 readChars(const QSOCTET* src, QSUINT64 srcBit, QSUINT64 pos, QSUINT64 lastPos,
                   QSUINT32 nbits, QSSIZE nchars, QSSIZE* pi, char* dest, const char* charSet,
                   size_t alen, bool* pBad)
{
   const QSUINT32 drop = 64u - nbits;
   QSSIZE i = *pi;
   for (; i < nchars && pos <= lastPos; i++) {
      const QSUINT64 rel = pos - srcBit;
      const QSUINT32 v = (QSUINT32)((rtxLoadBE64(src + (rel >> 3)) << (rel & 7u)) >> drop);
      if (charSet != nullptr) {
         if (v >= alen) {
            *pBad = true;
            break;
         }
         dest[i] = charSet[v];
      }
      else {
         dest[i] = (char)v;
      }
      pos += nbits;
   }
   *pi = i;
   return pos;
}

} // namespace

int pd_GetComponentLength(QSCTXT* ctxt, QSUINT32 itemBits, QSSIZE* pLength)
{
   const QSSIZE saveIndex = ctxt->buffer.byteIndex;
   const QSINT16 saveOffset = ctxt->buffer.bitOffset;
   rtxDiagBitTraceDisable(ctxt);
   QSUINT64 total = 0;
   int stat;
   do {
      QSUINT64 len = 0;
      stat = decUnconsLength(ctxt, &len);
      if (stat < 0) break;
      const int fragStat = stat;
      if (itemBits == 8) stat = pd_byte_align(ctxt);
      if (stat >= 0) stat = rtxSkipBits(ctxt, (QSSIZE)(len * itemBits));
      if (stat < 0) break;
      total += len;
      stat = fragStat;
   } while (stat == 2);
   rtxDiagBitTraceEnable(ctxt);
   ctxt->buffer.byteIndex = saveIndex;
   ctxt->buffer.bitOffset = saveOffset;
   if (stat < 0) return PER_LOG(ctxt, stat);
   *pLength = (QSSIZE)total;
   return 0;
}

int pd_DynOctetString64(QSCTXT* ctxt, ASN1TDynOctStr64* pOctStr)
{
   QSOCTET* data = nullptr;
   QSUINT64 count = 0;
   int stat = decItems(ctxt, 8, 0, pOctStr == nullptr, &data, &count, "OctetString");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (pOctStr != nullptr) {
      pOctStr->numocts = (QSSIZE)count;
      pOctStr->data = data;
   }
   return 0;
}

int pd_DynOctetString(QSCTXT* ctxt, ASN1TDynOctStr* pOctStr)
{
   QSOCTET* data = nullptr;
   QSUINT64 count = 0;
   int stat = decItems(ctxt, 8, 0, pOctStr == nullptr, &data, &count, "OctetString");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (count > 0xFFFFFFFFull) {
      if (data != nullptr) rtxMemHeapFreePtr(ctxt, data);
      return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   if (pOctStr != nullptr) {
      pOctStr->numocts = (QSUINT32)count;
      pOctStr->data = data;
   }
   return 0;
}

int pd_DynBitString(QSCTXT* ctxt, ASN1TDynBitStr* pBitStr)
{
   QSOCTET* data = nullptr;
   QSUINT64 count = 0;
   int stat = decItems(ctxt, 1, 0, pBitStr == nullptr, &data, &count, "BitString");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (count > 0xFFFFFFFFull) {
      if (data != nullptr) rtxMemHeapFreePtr(ctxt, data);
      return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   if (pBitStr != nullptr) {
      pBitStr->numbits = (QSUINT32)count;
      pBitStr->data = data;
   }
   return 0;
}

int pd_BitString32(QSCTXT* ctxt, ASN1TBitStr32* pBitStr, QSUINT32 lower, QSUINT32 upper)
{
   if (!ctxt->sizeCnst.constrained) {
      ctxt->sizeCnst.lower = lower;
      ctxt->sizeCnst.upper = upper;
      ctxt->sizeCnst.constrained = 1;
      ctxt->sizeCnst.extensible = 0;
   }
   QSUINT32 n = 0;
   int stat = pd_Length(ctxt, &n);
   if (stat < 0) return PER_LOG(ctxt, stat);
   if (stat == 2 || n > 32) {
      rtxErrAddStrParm(ctxt, "'length'");
      rtxErrAddUIntParm(ctxt, n);
      return PER_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
   }
   pBitStr->numbits = 0;
   std::memset(pBitStr->data, 0, sizeof(pBitStr->data));
   PER_FIELD(ctxt, "BitString");
   stat = rtxDecBitsToByteArray(ctxt, pBitStr->data, sizeof(pBitStr->data), n);
   PER_FIELD_END(ctxt);
   if (stat != 0) return PER_LOG(ctxt, stat);
   pBitStr->numbits = n;
   return 0;
}

int pd_OpenType(QSCTXT* ctxt, const QSOCTET** ppData, QSUINT32* pNumocts)
{
   pu_clearSizeConstraint(ctxt);
   const bool skip = (ppData == nullptr && pNumocts == nullptr);
   QSOCTET* data = nullptr;
   QSUINT64 count = 0;
   int stat = decItems(ctxt, 8, 0, skip, &data, &count, "OpenType");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (count > 0xFFFFFFFFull) {
      if (data != nullptr) rtxMemHeapFreePtr(ctxt, data);
      return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   if (ppData != nullptr) *ppData = data;
   if (pNumocts != nullptr) *pNumocts = (QSUINT32)count;
   return 0;
}

int pd_OpenTypeExt(QSCTXT* ctxt, const QSOCTET** ppStart, QSSIZE* pNumocts)
{
   const QSSIZE startIndex = ctxt->buffer.byteIndex;
   QSUINT32 n = 0;
   int stat = pd_SmallLength(ctxt, &n);
   if (stat != 0) return PER_LOG(ctxt, stat);
   QSUINT32 present = 0;
   PER_FIELD(ctxt, "OpenTypeExt");
   for (QSUINT32 i = 0; i < n && stat == 0; ) {
      QSUINT32 chunk = (n - i > 32) ? 32 : n - i;
      QSUINT32 v = 0;
      stat = rtxDecBits(ctxt, &v, chunk);
      present += (QSUINT32)__builtin_popcount(v);
      i += chunk;
   }
   PER_FIELD_END(ctxt);
   if (stat != 0) return PER_LOG(ctxt, stat);
   for (QSUINT32 i = 0; i < present; i++) {
      stat = pd_byte_align(ctxt);
      if (stat == 0) stat = pd_OpenType(ctxt, nullptr, nullptr);
      if (stat != 0) return PER_LOG(ctxt, stat);
   }
   if (ppStart != nullptr) *ppStart = ctxt->buffer.data + startIndex;
   if (pNumocts != nullptr) *pNumocts = pu_getMsgLen(ctxt) - startIndex;
   return 0;
}

int pd_ChoiceOpenTypeExt(QSCTXT* ctxt, const QSOCTET** ppStart, QSSIZE* pNumocts)
{
   const QSSIZE startIndex = ctxt->buffer.byteIndex;
   QSUINT32 index = 0;
   int stat = pd_SmallNonNegWholeNumber(ctxt, &index);
   if (stat == 0) stat = pd_OpenType(ctxt, nullptr, nullptr);
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (ppStart != nullptr) *ppStart = ctxt->buffer.data + startIndex;
   if (pNumocts != nullptr) *pNumocts = pu_getMsgLen(ctxt) - startIndex;
   return 0;
}

int pd_ConstrainedStringData(QSCTXT* ctxt, char* dest, QSSIZE destSize, QSSIZE nchars,
                             const char* charSet, QSUINT32 nbits, QSUINT32 canSetBits)
{
   if (nbits > 32) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
   if (dest == nullptr) {
      int stat = rtxSkipBits(ctxt, nchars * nbits);
      return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
   }
   if (destSize < nchars + 1) return PER_LOG(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);
   const bool useIndex = (nbits < canSetBits) || (canSetBits < 5);
   size_t alen = 0;
   if (useIndex) {
      if (charSet == nullptr) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
      alen = std::strlen(charSet);
   }
   if ((QSUINT64)nchars * nbits > rtxGetBitsLeft(ctxt)) {
      return PER_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   }
   PER_FIELD(ctxt, "data");
   int stat = 0;
   QSSIZE i = 0;
   if (nbits != 0) {
      /* All characters are in the input (checked above): read them from a local cursor with one
       * 64-bit load per character, straight from the input while eight bytes are left and from a
       * zero-padded copy of the last bytes after that. A character outside the alphabet is left
       * to the general loop below, which produces the failure. */
      QSRTBuffer& b = ctxt->buffer;
      QSUINT64 pos = (QSUINT64)b.byteIndex * 8u + (QSUINT64)(8 - b.bitOffset);
      bool bad = false;
      if (b.size >= 8) {
         pos = readChars(b.data, 0, pos, (QSUINT64)(b.size - 8) * 8u, nbits, nchars, &i, dest,
                         useIndex ? charSet : nullptr, alen, &bad);
      }
      if (i < nchars && !bad) {
         const QSSIZE first = (QSSIZE)(pos >> 3);     /* at most 8 bytes are left from here */
         QSOCTET tail[16] = {0};
         std::memcpy(tail, b.data + first, (size_t)(b.size - first));
         pos = readChars(tail, (QSUINT64)first * 8u, pos, ~(QSUINT64)0, nbits, nchars, &i, dest,
                         useIndex ? charSet : nullptr, alen, &bad);
      }
      b.byteIndex = (QSSIZE)(pos >> 3);
      b.bitOffset = (QSINT16)(8u - (QSUINT32)(pos & 7u));
   }
   for (; i < nchars; i++) {
      QSUINT32 v = 0;
      stat = rtxDecBits(ctxt, &v, nbits);
      if (stat != 0) break;
      if (useIndex) {
         if (v >= alen) {
            stat = RTERR_VALUE_CONSTRAINT_VIOLATION;
            break;
         }
         dest[i] = charSet[v];
      }
      else {
         dest[i] = (char)v;
      }
   }
   PER_FIELD_END(ctxt);
   if (stat != 0) return PER_LOG(ctxt, stat);
   dest[nchars] = '\0';
   return 0;
}

int pd_DynConstrainedStringData(QSCTXT* ctxt, const char** pString, QSSIZE nchars,
                                const char* charSet, QSUINT32 nbits, QSUINT32 canSetBits)
{
   if ((QSUINT64)nchars * nbits > rtxGetBitsLeft(ctxt)) {
      return PER_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   }
   char* s = static_cast<char*>(rtxMemHeapAlloc(ctxt, nchars + 1));
   if (s == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   int stat = pd_ConstrainedStringData(ctxt, s, nchars + 1, nchars, charSet, nbits, canSetBits);
   if (stat != 0) {
      rtxMemHeapFreePtr(ctxt, s);
      return PER_LOG(ctxt, stat);
   }
   *pString = s;
   return 0;
}

int pd_ConstrainedStringEx(QSCTXT* ctxt, const char** pString, const char* charSet,
                           QSUINT32 abits, QSUINT32 ubits, QSUINT32 canSetBits)
{
   const QSUINT32 nbits = ctxt->buffer.aligned ? abits : ubits;
   QSUINT64 len = 0;
   int stat = pd_Length64(ctxt, &len);
   if (stat < 0) return PER_LOG(ctxt, stat);
   if (stat != 2) {
      if (len >= 0x20000000ull) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
      stat = pd_DynConstrainedStringData(ctxt, pString, (QSSIZE)len, charSet, nbits, canSetBits);
      return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
   }
   /* fragmented */
   stat = rtxMoveBitCursor(ctxt, -8);
   QSSIZE total = 0;
   if (stat == 0) stat = pd_GetComponentLength(ctxt, nbits, &total);
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (total >= 0x20000000ull) return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   char* s = static_cast<char*>(rtxMemHeapAlloc(ctxt, total + 1));
   if (s == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   QSSIZE done = 0;
   do {
      QSUINT64 flen = 0;
      PER_FIELD(ctxt, "length");
      stat = decUnconsLength(ctxt, &flen);
      PER_FIELD_END(ctxt);
      if (stat < 0) break;
      const int fragStat = stat;
      stat = pd_ConstrainedStringData(ctxt, s + done, total + 1 - done, (QSSIZE)flen,
                                      charSet, nbits, canSetBits);
      if (stat < 0) break;
      done += (QSSIZE)flen;
      stat = fragStat;
   } while (stat == 2);
   if (stat < 0) {
      rtxMemHeapFreePtr(ctxt, s);
      return PER_LOG(ctxt, stat);
   }
   s[done] = '\0';
   *pString = s;
   return 0;
}

int pd_VarWidthCharString(QSCTXT* ctxt, const char** pValue)
{
   /* peek the (first) length to refuse absurd sizes before reading */
   QSOCTET* data = nullptr;
   QSUINT64 count = 0;
   int stat = decItems(ctxt, 8, 1, pValue == nullptr, &data, &count, "data");
   if (stat != 0) return PER_LOG(ctxt, stat);
   if (count >= 0x20000000ull) {
      if (data != nullptr) rtxMemHeapFreePtr(ctxt, data);
      return PER_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   if (pValue != nullptr) {
      if (data == nullptr) {
         data = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, 1));
         if (data == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      }
      data[count] = 0;
      *pValue = reinterpret_cast<const char*>(data);
   }
   return 0;
}
