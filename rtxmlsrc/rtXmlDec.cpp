/*
 * XML value readers: the character data of the current element as
 * integers, booleans, strings, bit strings and hex strings.
 *
 * Numbers, booleans, bits and hex digits are read with the surrounding
 * whitespace dropped (bit and hex strings also drop whitespace between
 * their digits); strings keep their text as it is.
 */
#include "rtxmlsrc/rtXml.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "rtxmlsrc/rtXmlInternal.h"
#include "rtxsrc/rtxMemory.h"

#define XML_MODULE "../../rtxmlsrc/rtXmlDec.cpp"

using namespace xmlimpl;

namespace {

inline bool isWs(QSOCTET c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }

/* The value text with leading and trailing whitespace dropped. */
int readCollapsed(QSCTXT* ctxt, const QSOCTET** pdata, QSSIZE* plen)
{
   int stat = readValue(ctxt, pdata, plen);
   if (stat != 0) return XML_LOG(ctxt, stat);
   const QSOCTET* p = *pdata;
   QSSIZE n = *plen;
   while (n > 0 && isWs(p[0])) {
      p++;
      n--;
   }
   while (n > 0 && isWs(p[n - 1])) n--;
   *pdata = p;
   *plen = n;
   return 0;
}

/* Records a value failure with the value's position as parameter. */
int valueFail(QSCTXT* ctxt, int stat, int line)
{
   addValuePosParm(ctxt);
   rtxErrSetNewData(ctxt, stat, XML_MODULE, line);
   return stat;
}

#define VALUE_FAIL(stat) valueFail(ctxt, stat, __LINE__)

/* Decimal integer: an optional sign and digits. The magnitude must not
 * exceed maxPos (positive) or maxNeg (negative; 0 for unsigned targets, so
 * only "-0" passes). */
int decInteger(QSCTXT* ctxt, QSUINT64 maxPos, QSUINT64 maxNeg, bool* pneg, QSUINT64* pmag)
{
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (n == 0) return VALUE_FAIL(RTERR_INVALID_VALUE_FORMAT);
   bool neg = false;
   QSSIZE i = 0;
   if (p[0] == '-' || p[0] == '+') {
      neg = (p[0] == '-');
      i = 1;
      if (n == 1) return VALUE_FAIL(RTERR_INVALID_VALUE_FORMAT);
   }
   QSUINT64 limit = neg ? maxNeg : maxPos;
   /* v * 10 + d exceeds the limit exactly when v > limit / 10, or v == limit / 10 and
    * d > limit % 10: no division per digit */
   const QSUINT64 limitDiv = limit / 10, limitRem = limit % 10;
   QSUINT64 v = 0;
   bool overflow = false;
   for (; i < n; i++) {
      QSOCTET c = p[i];
      if (c < '0' || c > '9') return VALUE_FAIL(RTERR_CHARACTER_NOT_IN_SET);
      QSUINT64 d = (QSUINT64)(c - '0');
      if (v > limitDiv || (v == limitDiv && d > limitRem)) overflow = true;
      else v = v * 10 + d;
   }
   if (overflow) return XML_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   *pneg = neg;
   *pmag = v;
   return 0;
}

int decSigned(QSCTXT* ctxt, QSINT64 minValue, QSINT64 maxValue, QSINT64* pvalue)
{
   bool neg;
   QSUINT64 mag;
   int stat = decInteger(ctxt, (QSUINT64)maxValue, (QSUINT64)0 - (QSUINT64)minValue, &neg, &mag);
   if (stat != 0) return XML_LOG(ctxt, stat);
   *pvalue = neg ? (QSINT64)((QSUINT64)0 - mag) : (QSINT64)mag;
   return 0;
}

int decUnsigned(QSCTXT* ctxt, QSUINT64 maxValue, QSUINT64* pvalue)
{
   bool neg;
   QSUINT64 mag;
   int stat = decInteger(ctxt, maxValue, 0, &neg, &mag);
   if (stat != 0) return XML_LOG(ctxt, stat);
   *pvalue = mag;
   return 0;
}

/* Counts the '0'/'1' digits of a value (whitespace between them allowed). */
int countBits(QSCTXT* ctxt, const QSOCTET* p, QSSIZE n, QSSIZE* pcount)
{
   QSSIZE count = 0;
   for (QSSIZE i = 0; i < n; i++) {
      if (p[i] == '0' || p[i] == '1') count++;
      else if (!isWs(p[i])) return VALUE_FAIL(RTERR_CHARACTER_NOT_IN_SET);
   }
   *pcount = count;
   return 0;
}

/* Stores the digits as bits, first bit as the top bit of the first byte;
 * the bits from index dataBits on go to ext (both blocks zeroed before). */
void storeBits(const QSOCTET* p, QSSIZE n, QSOCTET* data, QSSIZE dataBits, QSOCTET* ext)
{
   QSSIZE bit = 0;
   for (QSSIZE i = 0; i < n; i++) {
      if (p[i] != '0' && p[i] != '1') continue;
      if (p[i] == '1') {
         if (bit < dataBits) data[bit / 8] |= (QSOCTET)(0x80 >> (bit % 8));
         else ext[(bit - dataBits) / 8] |= (QSOCTET)(0x80 >> ((bit - dataBits) % 8));
      }
      bit++;
   }
}

/* The usual bit string, nothing but '0'/'1' digits that fit: stored as storeBits would, in one
 * pass after the check; false (data untouched) for anything else. */
bool plainBits(const QSOCTET* p, QSSIZE n, QSOCTET* data, QSSIZE bufsize)
{
   if (n > bufsize * 8) return false;
   for (QSSIZE i = 0; i < n; i++)
      if ((p[i] & 0xFE) != '0') return false;
   if (n != 0) std::memset(data, 0, (n + 7) / 8);
   for (QSSIZE i = 0; i < n; i++)
      if (p[i] & 1) data[i / 8] |= (QSOCTET)(0x80 >> (i % 8));
   return true;
}

int decBits(QSCTXT* ctxt, QSOCTET* data, QSSIZE bufsize, QSSIZE* pnbits)
{
   if (directBits(ctxt, data, bufsize, pnbits)) return 0;
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (plainBits(p, n, data, bufsize)) {
      *pnbits = n;
      return 0;
   }
   QSSIZE count;
   stat = countBits(ctxt, p, n, &count);
   if (stat != 0) return stat;
   if (count > bufsize * 8) return VALUE_FAIL(RTERR_MAX_STRING_ITEMS_EXCEEDED);
   if (count != 0) std::memset(data, 0, (count + 7) / 8);
   storeBits(p, n, data, count, nullptr);
   *pnbits = count;
   return 0;
}

inline int hexValue(QSOCTET c)
{
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

/* Counts the hex digits of a value; a non-hex character or an odd count is
 * RTERR_INVALID_HEX_STRING. */
int countHex(QSCTXT* ctxt, const QSOCTET* p, QSSIZE n, QSSIZE* pnocts)
{
   QSSIZE digits = 0;
   for (QSSIZE i = 0; i < n; i++) {
      if (hexValue(p[i]) >= 0) digits++;
      else if (!isWs(p[i])) return VALUE_FAIL(RTERR_INVALID_HEX_STRING);
   }
   if (digits % 2 != 0) return VALUE_FAIL(RTERR_INVALID_HEX_STRING);
   *pnocts = digits / 2;
   return 0;
}

void storeHex(const QSOCTET* p, QSSIZE n, QSOCTET* out)
{
   QSSIZE k = 0;
   for (QSSIZE i = 0; i < n; i++) {
      int v = hexValue(p[i]);
      if (v < 0) continue;
      if (k % 2 == 0) out[k / 2] = (QSOCTET)(v << 4);
      else out[k / 2] |= (QSOCTET)v;
      k++;
   }
}

int decDynHex(QSCTXT* ctxt, const QSOCTET** pdata, QSSIZE* pnocts)
{
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSSIZE nocts;
   stat = countHex(ctxt, p, n, &nocts);
   if (stat != 0) return stat;
   QSOCTET* out = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, (nocts != 0) ? nocts : 1));
   if (out == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   storeHex(p, n, out);
   *pdata = out;
   *pnocts = nocts;
   return 0;
}

} // namespace

/* ---- integers --------------------------------------------------------------------------------- */

namespace {

/* The decimal value of the current element into an integer of type T, whose range decides
 * what fits: the general path of the integer readers, whose usual form the reader takes
 * directly (rtXmlPull.cpp). */
template <class T> int decInteger(QSCTXT* ctxt, T* pvalue)
{
   int stat;
   if (std::numeric_limits<T>::is_signed) {
      QSINT64 v;
      stat = decSigned(ctxt, std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), &v);
      if (stat == 0) *pvalue = (T)v;
   }
   else {
      QSUINT64 v;
      stat = decUnsigned(ctxt, std::numeric_limits<T>::max(), &v);
      if (stat == 0) *pvalue = (T)v;
   }
   return (stat != 0) ? XML_LOG(ctxt, stat) : 0;
}

} // namespace

int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSINT32* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSINT8* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSINT16* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSINT64* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSUINT32* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSUINT8* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSUINT16* pvalue) { return decInteger(ctxt, pvalue); }
int xmlimpl::decIntegerValue(QSCTXT* ctxt, QSUINT64* pvalue) { return decInteger(ctxt, pvalue); }

/* ---- booleans and strings --------------------------------------------------------------------- */

int rtXmlpDecBool(QSCTXT* ctxt, QSBOOL* pvalue)
{
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (n == 0) return VALUE_FAIL(RTERR_INVALID_VALUE_FORMAT);
   if ((n == 4 && std::memcmp(p, "true", 4) == 0) || (n == 1 && p[0] == '1')) *pvalue = TRUE;
   else if ((n == 5 && std::memcmp(p, "false", 5) == 0) || (n == 1 && p[0] == '0')) *pvalue = FALSE;
   else return VALUE_FAIL(RTERR_INVALID_BOOLEAN_KEYWORD);
   return 0;
}

int rtXmlpDecDynUTF8Str(QSCTXT* ctxt, const QSUTF8CHAR** outdata)
{
   const QSOCTET* p;
   QSSIZE n;
   int stat = readValue(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSUTF8CHAR* copy = static_cast<QSUTF8CHAR*>(rtxMemHeapAlloc(ctxt, n + 1));
   if (copy == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   if (n != 0) std::memcpy(copy, p, n);
   copy[n] = 0;
   *outdata = copy;
   return 0;
}

/* ---- bit strings ------------------------------------------------------------------------------ */

int rtXmlpDecBitString64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnbits, QSSIZE bufsize)
{
   if (ctxt == nullptr || pnbits == nullptr || (data == nullptr && bufsize != 0)) return RTERR_INVALID_PARAMETER;
   int stat = decBits(ctxt, data, bufsize, pnbits);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlpDecBitString(QSCTXT* ctxt, QSOCTET* data, QSUINT32* pnbits, QSSIZE bufsize)
{
   if (pnbits == nullptr) return RTERR_INVALID_PARAMETER;
   QSSIZE nbits = 0;
   int stat = rtXmlpDecBitString64(ctxt, data, &nbits, bufsize);
   if (stat != 0) return XML_LOG(ctxt, stat);
   *pnbits = (QSUINT32)nbits;
   return 0;
}

int rtXmlpDecBitStringExt64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnbits, QSOCTET** pextdata,
                            QSSIZE bufsize)
{
   if (ctxt == nullptr || pnbits == nullptr || pextdata == nullptr || (data == nullptr && bufsize != 0))
      return RTERR_INVALID_PARAMETER;
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSSIZE count;
   stat = countBits(ctxt, p, n, &count);
   if (stat != 0) return stat;
   QSSIZE dataBits = bufsize * 8;
   QSOCTET* ext = nullptr;
   if (count > dataBits) {
      QSSIZE extBytes = (count - dataBits + 7) / 8;
      ext = static_cast<QSOCTET*>(rtxMemHeapAllocZ(ctxt, extBytes));
      if (ext == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   QSSIZE inData = (count < dataBits) ? count : dataBits;
   if (inData != 0) std::memset(data, 0, (inData + 7) / 8);
   storeBits(p, n, data, dataBits, ext);
   *pnbits = count;
   *pextdata = ext;
   return 0;
}

int rtXmlpDecDynBitString(QSCTXT* ctxt, ASN1TDynBitStr* pvalue)
{
   if (ctxt == nullptr || pvalue == nullptr) return RTERR_INVALID_PARAMETER;
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSSIZE count;
   stat = countBits(ctxt, p, n, &count);
   if (stat != 0) return stat;
   if (count > 0xFFFFFFFFu) return XML_LOG(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);
   QSOCTET* out = static_cast<QSOCTET*>(rtxMemHeapAllocZ(ctxt, (count + 7) / 8 + 1));
   if (out == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   storeBits(p, n, out, count, nullptr);
   pvalue->numbits = (QSUINT32)count;
   pvalue->data = out;
   return 0;
}

int rtXmlpDecNamedBits64(QSCTXT* ctxt, const QSXmlNamedBit* table, QSSIZE tableSize,
                         QSOCTET* data, QSSIZE* pnbits, QSSIZE bufsize)
{
   if (ctxt == nullptr || pnbits == nullptr || (data == nullptr && bufsize != 0)) return RTERR_INVALID_PARAMETER;
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (n != 0 && (p[0] == '0' || p[0] == '1')) {
      /* the 0/1 form */
      QSSIZE count;
      stat = countBits(ctxt, p, n, &count);
      if (stat != 0) return stat;
      if (count > bufsize * 8) return VALUE_FAIL(RTERR_MAX_STRING_ITEMS_EXCEEDED);
      if (count != 0) std::memset(data, 0, (count + 7) / 8);
      storeBits(p, n, data, count, nullptr);
      *pnbits = count;
      return 0;
   }
   if (bufsize != 0) std::memset(data, 0, bufsize);
   QSSIZE nbits = 0;
   QSSIZE i = 0;
   while (i < n) {
      while (i < n && isWs(p[i])) i++;
      QSSIZE j = i;
      while (j < n && !isWs(p[j])) j++;
      if (j == i) break;
      QSSIZE k = 0;
      for (; k < tableSize; k++) {
         if (std::strlen(table[k].name) == j - i && std::memcmp(table[k].name, p + i, j - i) == 0) break;
      }
      if (k == tableSize) {
         rtxErrAddStrnParm(ctxt, (const char*)p + i, j - i);
         return VALUE_FAIL(RTERR_INVALID_VALUE_SPEC);
      }
      QSUINT32 bit = table[k].bitnum;
      if (bit >= bufsize * 8) return VALUE_FAIL(RTERR_MAX_STRING_ITEMS_EXCEEDED);
      data[bit / 8] |= (QSOCTET)(0x80 >> (bit % 8));
      if (bit + 1 > nbits) nbits = bit + 1;
      i = j;
   }
   *pnbits = nbits;
   return 0;
}

/* ---- hex strings ------------------------------------------------------------------------------ */

int rtXmlpDecHexStr64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnocts, QSSIZE bufsize)
{
   if (ctxt == nullptr || pnocts == nullptr || (data == nullptr && bufsize != 0)) return RTERR_INVALID_PARAMETER;
   const QSOCTET* p;
   QSSIZE n;
   int stat = readCollapsed(ctxt, &p, &n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSSIZE nocts;
   stat = countHex(ctxt, p, n, &nocts);
   if (stat != 0) return stat;
   if (nocts > bufsize) return VALUE_FAIL(RTERR_MAX_STRING_ITEMS_EXCEEDED);
   storeHex(p, n, data);
   *pnocts = nocts;
   return 0;
}

int rtXmlpDecDynHexStr64(QSCTXT* ctxt, ASN1TDynOctStr64* pvalue)
{
   if (ctxt == nullptr || pvalue == nullptr) return RTERR_INVALID_PARAMETER;
   int stat = decDynHex(ctxt, &pvalue->data, &pvalue->numocts);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlpDecDynHexStr(QSCTXT* ctxt, ASN1TDynOctStr* pvalue)
{
   if (ctxt == nullptr || pvalue == nullptr) return RTERR_INVALID_PARAMETER;
   const QSOCTET* data;
   QSSIZE nocts;
   int stat = decDynHex(ctxt, &data, &nocts);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (nocts > 0xFFFFFFFFu) return XML_LOG(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);
   pvalue->data = data;
   pvalue->numocts = (QSUINT32)nocts;
   return 0;
}
