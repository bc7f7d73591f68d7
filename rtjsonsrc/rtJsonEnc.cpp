/*
 * JSON writer: strings, hex data, bit strings, booleans, indentation,
 * open types and unknown extension elements.
 */
#include "rtjsonsrc/rtJson.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rtjsonsrc/rtJsonFastEnc.h"
#include "rtjsonsrc/rtJsonInternal.h"
#include "rtxsrc/rtxBitEncode.h"
#include "rtxsrc/rtxMemory.h"

#define JSON_MODULE "../../rtjsonsrc/rtJsonEnc.cpp"

using namespace jsonimpl;

namespace {

/* Escape letter of each byte (0: copied as it is). */
struct EscapeTable {
   char esc[256];
   constexpr EscapeTable() : esc()
   {
      esc[0x08] = 'b';
      esc[0x09] = 't';
      esc[0x0A] = 'n';
      esc[0x0C] = 'f';
      esc[0x0D] = 'r';
      esc['"'] = '"';
      esc['\\'] = '\\';
   }
};
constexpr EscapeTable kEscape;

const char kHexLower[] = "0123456789abcdef";
const char kHexUpper[] = "0123456789ABCDEF";

/* Size of the block in which hex digits are staged. */
const QSSIZE kHexBlock = 78;

/* Writes the hex digits of nocts bytes; when lastMask is not 0xFF the last
 * byte is masked with it first. */
int writeHex(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data, QSOCTET lastMask)
{
   if (nocts == 0) return 0;
   const char* digits = (ctxt->flags & QSJSONHEXUPPER) ? kHexUpper : kHexLower;
   char block[kHexBlock];
   QSSIZE used = 0;
   for (QSSIZE i = 0; i < nocts; i++) {
      QSOCTET ub = data[i];
      if (i + 1 == nocts) ub &= lastMask;
      block[used++] = digits[ub >> 4];
      block[used++] = digits[ub & 0x0F];
      if (used == kHexBlock) {
         int stat = putText(ctxt, block, used);
         if (stat != 0) return JSON_LOG(ctxt, stat);
         used = 0;
      }
   }
   if (used != 0) {
      int stat = putText(ctxt, block, used);
      if (stat != 0) return JSON_LOG(ctxt, stat);
   }
   return 0;
}

/* Mask keeping the top r bits (r = 1..7) of a byte; 0xFF for r = 0. */
inline QSOCTET topBitsMask(QSSIZE r)
{
   return (r == 0) ? (QSOCTET)0xFF : (QSOCTET)(0xFF00u >> r);
}

/* Writes nbits bits held in (data, dataSize) followed by extData as quoted
 * hex (extData may be null when dataSize covers the bits). */
/* Line feed and indentation of nspaces at p (room checked by the caller); the new cursor. */
inline QSOCTET* putNewLine(QSOCTET* p, QSSIZE nspaces)
{
   static const char kSpaces[] = "                                                                ";
   *p++ = '\n';
   if (nspaces <= (QSSIZE)sizeof(kSpaces) - 1) std::memcpy(p, kSpaces, nspaces);
   else std::memset(p, ' ', nspaces);
   return p + nspaces;
}

/* True when the plain indented layout applies and need bytes fit without growing. */
inline bool roomForLayout(QSCTXT* ctxt, QSSIZE need)
{
   const QSRTBuffer& b = ctxt->buffer;
   return ctxt->jsonMode == 0 && !(ctxt->flags & QSJSONCOMPACT) && b.data != nullptr &&
          b.byteIndex + need < b.size;
}

using jsonfast::copyShort;
using jsonfast::kSlack;
using jsonfast::putNewLineFast;
using jsonfast::roomWithSlack;

/* True when n bytes fit in the buffer as it is. */
inline bool roomFor(QSCTXT* ctxt, QSSIZE n)
{
   const QSRTBuffer& b = ctxt->buffer;
   return b.data != nullptr && b.byteIndex + n <= b.size;
}

/* '"', the hex digits of nocts bytes (the last one masked with lastMask), '"' and a NUL, all
 * in room the caller has checked. */
inline void putQuotedHex(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data, QSOCTET lastMask)
{
   const char* digits = (ctxt->flags & QSJSONHEXUPPER) ? kHexUpper : kHexLower;
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   *p++ = '"';
   for (QSSIZE i = 0; i < nocts; i++) {
      QSOCTET ub = data[i];
      if (i + 1 == nocts) ub &= lastMask;
      p[0] = (QSOCTET)digits[ub >> 4];
      p[1] = (QSOCTET)digits[ub & 0x0F];
      p += 2;
   }
   *p++ = '"';
   *p = 0;
   b.byteIndex = (QSSIZE)(p - b.data);
   ctxt->lastChar = '"';
}

int writeBitsHex(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE dataSize,
                 const QSOCTET* extData)
{
   {
      QSSIZE nbytes = (nbits + 7) / 8;
      if ((nbytes <= dataSize || extData == nullptr) && roomFor(ctxt, 2 * nbytes + 3)) {
         putQuotedHex(ctxt, nbytes, data, topBitsMask(nbits % 8));
         return 0;
      }
   }
   int stat = putChar(ctxt, '"');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSSIZE nbytes = (nbits + 7) / 8;
   QSOCTET mask = topBitsMask(nbits % 8);
   if (nbytes <= dataSize || extData == nullptr) {
      stat = writeHex(ctxt, nbytes, data, mask);
   }
   else {
      stat = writeHex(ctxt, dataSize, data, 0xFF);
      if (stat == 0) stat = writeHex(ctxt, nbytes - dataSize, extData, mask);
   }
   if (stat != 0) return JSON_LOG(ctxt, stat);
   stat = putChar(ctxt, '"');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

/* The object {"value":"<hex>","length":<n>} on indented lines. */
int writeBitStrObject(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE dataSize,
                      const QSOCTET* extData)
{
   {
      /* the common case in one piece, when the buffer has room */
      QSSIZE nbytes = (nbits + 7) / 8;
      QSSIZE ind = ctxt->indent;
      if (!(ctxt->flags & QSJSONATTRNAME) && (nbytes <= dataSize || extData == nullptr) &&
          nbytes < ((QSSIZE)1 << 40) && ind < 60000 && roomWithSlack(ctxt, 3 * ind + 2 * nbytes + 64)) {
         QSRTBuffer& b = ctxt->buffer;
         QSOCTET* p = b.data + b.byteIndex;
         *p++ = '{';
         p = putNewLineFast(p, ind + QSINDENTSPACES);
         std::memcpy(p, "\"value\":\"", 9);
         p += 9;
         QSOCTET mask = topBitsMask(nbits % 8);
         for (QSSIZE i = 0; i < nbytes; i++) {
            QSOCTET ub = data[i];
            if (i + 1 == nbytes) ub &= mask;
            p[0] = (QSOCTET)kHexLower[ub >> 4];
            p[1] = (QSOCTET)kHexLower[ub & 0x0F];
            p += 2;
         }
         p[0] = '"';
         p[1] = ',';
         p = putNewLineFast(p + 2, ind + QSINDENTSPACES);
         std::memcpy(p, "\"length\":", 9);
         p = putDecimalDigits(p + 9, (QSUINT64)nbits);
         p = putNewLineFast(p, ind);
         p[0] = '}';
         p[1] = 0;
         b.byteIndex = (QSSIZE)(p + 1 - b.data);
         ctxt->lastChar = '}';
         return 0;
      }
   }
   int stat = putChar(ctxt, '{');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   rtxIndentIncr(ctxt);
   stat = rtJsonEncIndent(ctxt);
   if (stat == 0) stat = rtJsonEncStringValue2(ctxt, "value", 5);
   if (stat == 0) stat = putChar(ctxt, ':');
   if (stat == 0) stat = writeBitsHex(ctxt, nbits, data, dataSize, extData);
   if (stat == 0) stat = putChar(ctxt, ',');
   if (stat == 0) stat = rtJsonEncIndent(ctxt);
   if (stat == 0) stat = rtJsonEncStringValue2(ctxt, "length", 6);
   if (stat == 0) stat = putChar(ctxt, ':');
   if (stat == 0) stat = rtxTxtWriteUInt64(ctxt, (QSUINT64)nbits);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   rtxIndentDecr(ctxt);
   stat = rtJsonEncIndent(ctxt);
   if (stat == 0) stat = putChar(ctxt, '}');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

/* True when the element holds a JSON fragment as text: non-empty, last
 * byte NUL, every byte before it in 0x20..0x7F. */
bool isTextFragment(QSSIZE nocts, const QSOCTET* data)
{
   if (nocts == 0 || data == nullptr || data[nocts - 1] != 0) return false;
   for (QSSIZE i = 0; i + 1 < nocts; i++) {
      if (data[i] < 0x20 || data[i] > 0x7F) return false;
   }
   return true;
}

} // namespace

/* ---- buffer ----------------------------------------------------------------------------------- */

int jsonimpl::reserveSlow(QSCTXT* ctxt, QSSIZE n)
{
   int stat = rtxCheckOutputBuffer(ctxt, n);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   return 0;
}

/* ---- indentation ------------------------------------------------------------------------------ */

int rtJsonEncIndent(QSCTXT* ctxt)
{
   int stat;
   if (ctxt->jsonMode != 0) {
      QSOCTET lc = ctxt->lastChar;
      if (lc != '{' && lc != ',' && lc != '[' && lc != 0) {
         stat = putChar(ctxt, ',');
         if (stat != 0) return JSON_LOG(ctxt, stat);
      }
   }
   if (ctxt->flags & QSJSONCOMPACT) return 0;
   QSSIZE nspaces = ctxt->indent;
   stat = reserve(ctxt, nspaces + 1);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   *p = '\n';
   std::memset(p + 1, ' ', nspaces);
   b.byteIndex += nspaces + 1;
   ctxt->lastChar = (nspaces != 0) ? ' ' : '\n';
   terminate(ctxt);
   return 0;
}

/* ---- strings ---------------------------------------------------------------------------------- */

int rtJsonEncStringValue2(QSCTXT* ctxt, const char* value, QSSIZE nbytes)
{
   const QSOCTET* s = (const QSOCTET*)value;
   if (s == nullptr) nbytes = 0;
   bool atSign = false;
   if (nbytes != 0 && (ctxt->flags & QSJSONATTRNAME)) {
      atSign = (s[0] != '@');
      ctxt->flags &= ~QSJSONATTRNAME;
   }
   /* exact size of the escaped text */
   QSSIZE nesc = 0;
   for (QSSIZE i = 0; i < nbytes; i++) {
      if (kEscape.esc[s[i]] != 0) nesc++;
   }
   QSSIZE total = nbytes + nesc + 2 + (atSign ? 1 : 0);
   int stat = reserve(ctxt, total);
   if (stat != 0) return JSON_LOG(ctxt, stat);

   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   *p++ = '"';
   if (atSign) *p++ = '@';
   if (nesc == 0) {
      if (nbytes != 0) std::memcpy(p, s, nbytes);
      p += nbytes;
   }
   else {
      for (QSSIZE i = 0; i < nbytes; i++) {
         QSOCTET c = s[i];
         char e = kEscape.esc[c];
         if (e == 0) {
            *p++ = c;
         }
         else {
            *p++ = '\\';
            *p++ = (QSOCTET)e;
         }
      }
   }
   *p++ = '"';
   b.byteIndex += total;
   ctxt->lastChar = '"';
   terminate(ctxt);
   return 0;
}

int rtJsonEncQuoted(QSCTXT* ctxt, const char* text, QSSIZE nbytes)
{
   QSRTBuffer& b = ctxt->buffer;
   if (!(ctxt->flags & QSJSONATTRNAME) && b.data != nullptr && b.byteIndex + nbytes + 1 <= b.size) {
      std::memcpy(b.data + b.byteIndex, text, nbytes);
      b.byteIndex += nbytes;
      b.data[b.byteIndex] = 0;
      ctxt->lastChar = '"';
      return 0;
   }
   int stat = rtJsonEncStringValue2(ctxt, text + 1, nbytes - 2);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncStringValue(QSCTXT* ctxt, const char* value)
{
   QSSIZE n = (value != nullptr) ? std::strlen(value) : 0;
   int stat = rtJsonEncStringValue2(ctxt, value, n);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncChars(QSCTXT* ctxt, const char* value, QSSIZE nbytes)
{
   int stat = rtJsonEncStringValue2(ctxt, value, nbytes);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncCharStr(QSCTXT* ctxt, const char* value)
{
   int stat = rtJsonEncStringValue(ctxt, value);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncStringPair2(QSCTXT* ctxt, const char* name, QSSIZE nameLen,
                         const char* value, QSSIZE valueLen)
{
   int stat = rtJsonEncStringValue2(ctxt, name, nameLen);
   if (stat == 0) stat = rtJsonEncBetweenObject(ctxt);
   if (stat == 0) stat = rtJsonEncStringValue2(ctxt, value, valueLen);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncStringPair(QSCTXT* ctxt, const char* name, const char* value)
{
   return rtJsonEncStringPair2(ctxt, name, (name != nullptr) ? std::strlen(name) : 0,
                               value, (value != nullptr) ? std::strlen(value) : 0);
}

int rtJsonEncStringObject2(QSCTXT* ctxt, const char* name, QSSIZE nameLen,
                           const char* value, QSSIZE valueLen)
{
   int stat = putChar(ctxt, '{');
   if (stat == 0) stat = rtJsonEncStringPair2(ctxt, name, nameLen, value, valueLen);
   if (stat == 0) stat = putChar(ctxt, '}');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncStringObject(QSCTXT* ctxt, const char* name, const char* value)
{
   return rtJsonEncStringObject2(ctxt, name, (name != nullptr) ? std::strlen(name) : 0,
                                 value, (value != nullptr) ? std::strlen(value) : 0);
}

int rtJsonEncStringNull(QSCTXT* ctxt)
{
   int stat = putText(ctxt, "null", 4);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncStringRaw(QSCTXT* ctxt, const char* text)
{
   if (text == nullptr || *text == 0) return JSON_LOG(ctxt, RTERR_INVALID_VALUE_SPEC);
   int stat = putText(ctxt, text, std::strlen(text));
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncBoolValue(QSCTXT* ctxt, QSBOOL value)
{
   int stat = value ? putText(ctxt, "true", 4) : putText(ctxt, "false", 5);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

/* ---- hex and bit strings ---------------------------------------------------------------------- */

int rtJsonEncHexValue(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data)
{
   if ((long long)nocts < 0) return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   if (nocts != 0 && data == nullptr) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   int stat = writeHex(ctxt, nocts, data, 0xFF);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncHexStr(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data)
{
   if ((long long)nocts >= 0 && nocts < ((QSSIZE)1 << 40) && (nocts == 0 || data != nullptr) && roomFor(ctxt, 2 * nocts + 3)) {
      putQuotedHex(ctxt, nocts, data, 0xFF);
      return 0;
   }
   int stat = putChar(ctxt, '"');
   if (stat == 0) stat = rtJsonEncHexValue(ctxt, nocts, data);
   if (stat == 0) stat = putChar(ctxt, '"');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncFixedBitStrValue(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data)
{
   if (nbits != 0 && data == nullptr) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   int stat = writeBitsHex(ctxt, nbits, data, (nbits + 7) / 8, nullptr);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncBitStrValue(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data)
{
   if (nbits != 0 && data == nullptr) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   int stat = writeBitStrObject(ctxt, nbits, data, (nbits + 7) / 8, nullptr);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncBitStrValueExt(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data,
                            QSSIZE dataSize, const QSOCTET* extData)
{
   int stat;
   if (nbits > dataSize * 8) {
      if (extData == nullptr || (dataSize != 0 && data == nullptr)) {
         return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
      }
      stat = writeBitStrObject(ctxt, nbits, data, dataSize, extData);
   }
   else {
      stat = rtJsonEncBitStrValue(ctxt, nbits, data);
   }
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

/* ---- generic edges ---------------------------------------------------------------------------- */

int rtJsonEncBetweenObject(QSCTXT* ctxt)
{
   int stat;
   if ((ctxt->flags & QSJSONCOMPACT) || ctxt->indent == 0) stat = putChar(ctxt, ':');
   else stat = putText(ctxt, " : ", 3);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncStartObject(QSCTXT* ctxt, const char* name, QSBOOL noName)
{
   int stat;
   if (noName) {
      QSOCTET mode = ctxt->jsonMode;
      ctxt->jsonMode = 0;
      stat = rtJsonEncIndent(ctxt);
      ctxt->jsonMode = mode;
   }
   else {
      stat = rtJsonEncIndent(ctxt);
   }
   if (stat != 0) return JSON_LOG(ctxt, stat);
   if (rtxGetIndentLevels(ctxt) > 1 && name != nullptr && *name != 0 && !noName) {
      stat = rtJsonEncStringValue(ctxt, name);
      if (stat == 0) stat = rtJsonEncBetweenObject(ctxt);
      if (stat != 0) return JSON_LOG(ctxt, stat);
   }
   stat = putChar(ctxt, (ctxt->jsonMode == QSJSON_MODE_ARRAY) ? '[' : '{');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonEncEndObject(QSCTXT* ctxt)
{
   QSOCTET mode = ctxt->jsonMode;
   ctxt->jsonMode = 0;
   int stat = rtJsonEncIndent(ctxt);
   ctxt->jsonMode = mode;
   if (stat != 0) return JSON_LOG(ctxt, stat);
   stat = putChar(ctxt, (mode == QSJSON_MODE_ARRAY) ? ']' : '}');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

/* ---- reals ------------------------------------------------------------------------------------ */

int rtJsonEncDoubleValue(QSCTXT* ctxt, double value)
{
   if (!std::isfinite(value)) return JSON_LOG(ctxt, RTERR_INVALID_REAL_VALUE);
   char text[40];
   int n = 0;
   for (int prec = 15; prec <= 17; prec++) {
      n = std::snprintf(text, sizeof(text), "%.*g", prec, value);
      if (std::strtod(text, nullptr) == value) break;
   }
   int stat = putText(ctxt, text, (QSSIZE)n);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   terminate(ctxt);
   return 0;
}

int rtJsonAsn1EncReal(QSCTXT* ctxt, double value)
{
   int stat = rtJsonEncDoubleValue(ctxt, value);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

/* ---- open types and extension elements -------------------------------------------------------- */

int rtJsonAsn1EncOpenType(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data)
{
   if (nocts == 0 || data == nullptr) return 0;

   /* Recognise the bytes as one JSON value in a context of their own. */
   QSCTXT tmp;
   int stat = rtxInitContext(&tmp);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   tmp.buffer.data = const_cast<QSOCTET*>(data);
   tmp.buffer.size = nocts;
   tmp.buffer.byteIndex = 0;
   tmp.buffer.dynamic = 0;

   QSUTF8CHAR* text = nullptr;
   stat = rtJsonDecAnyType(&tmp, &text);
   if (stat != 0) {
      rtxErrAppend(ctxt, &tmp);
      rtxFreeContext(&tmp);
      return JSON_LOG(ctxt, stat);
   }
   stat = rtJsonEncStringObject2(ctxt, "value", 5, (const char*)text,
                                 std::strlen((const char*)text));
   rtxFreeContext(&tmp);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncExtElemWithSuffix(QSCTXT* ctxt, const ASN1TOpenType* pElem, QSSIZE index)
{
   if (pElem == nullptr) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   int stat;
   if (isTextFragment(pElem->numocts, pElem->data)) {
      stat = putText(ctxt, pElem->data, pElem->numocts - 1);
      if (stat != 0) return JSON_LOG(ctxt, stat);
      terminate(ctxt);
      return 0;
   }
   char key[64];
   if (index == 0) {
      std::memcpy(key, "_ext", 5);
   }
   else {
      std::snprintf(key, sizeof(key), "_ext_%d", (int)index);
   }
   stat = rtJsonEncStringValue(ctxt, key);
   if (stat == 0) stat = putChar(ctxt, ':');
   if (stat == 0) stat = rtJsonEncHexStr(ctxt, pElem->numocts, pElem->data);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonAsn1EncExtElem(QSCTXT* ctxt, const ASN1TOpenType* pElem)
{
   int stat = rtJsonEncExtElemWithSuffix(ctxt, pElem, 0);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonAsn1EncOpenTypeExt(QSCTXT* ctxt, const QSRTDList* pElemList, QSBOOL writeNulls)
{
   if (pElemList == nullptr) return 0;
   QSSIZE index = 0;
   bool first = true;
   for (const QSRTDListNode* node = pElemList->head; node != nullptr; node = node->next) {
      index++;
      const ASN1TOpenType* pElem = (const ASN1TOpenType*)node->data;
      if (pElem == nullptr && !writeNulls) continue;
      int stat = 0;
      if (!first) stat = putChar(ctxt, ',');
      if (stat == 0) {
         stat = (pElem != nullptr) ? rtJsonEncExtElemWithSuffix(ctxt, pElem, index)
                                   : rtJsonEncStringNull(ctxt);
      }
      if (stat != 0) return JSON_LOG(ctxt, stat);
      first = false;
   }
   terminate(ctxt);
   return 0;
}

/* ---- helpers for generated encoders ----------------------------------------------------------- */

int rtJsonEncPutChar(QSCTXT* ctxt, char c)
{
   int stat = reserve(ctxt, 2);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   b.data[b.byteIndex++] = (QSOCTET)c;
   b.data[b.byteIndex] = 0;
   ctxt->lastChar = (QSOCTET)c;
   return 0;
}

int rtJsonEncPutText(QSCTXT* ctxt, const char* text, QSSIZE nbytes)
{
   if (nbytes == 0) return 0;
   int stat = reserve(ctxt, nbytes + 1);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   put(ctxt, text, nbytes);
   ctxt->buffer.data[ctxt->buffer.byteIndex] = 0;
   ctxt->lastChar = (QSOCTET)text[nbytes - 1];
   return 0;
}

int rtJsonEncKey(QSCTXT* ctxt, const char* name, QSSIZE nameLen)
{
   int stat = reserve(ctxt, nameLen + 4);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   *p++ = '"';
   std::memcpy(p, name, nameLen);
   p += nameLen;
   *p++ = '"';
   *p++ = ':';
   *p = 0;
   b.byteIndex += nameLen + 3;
   ctxt->lastChar = ':';
   return 0;
}

int rtJsonEncOpen(QSCTXT* ctxt, char openChar)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.data != nullptr && b.byteIndex + 2 <= b.size) {
      b.data[b.byteIndex++] = (QSOCTET)openChar;
      b.data[b.byteIndex] = 0;
      ctxt->lastChar = (QSOCTET)openChar;
   }
   else {
      int stat = rtJsonEncPutChar(ctxt, openChar);
      if (stat != 0) return JSON_LOG(ctxt, stat);
   }
   ctxt->indent = (QSUINT16)(ctxt->indent + QSINDENTSPACES);
   return 0;
}

int rtJsonEncMemberInt(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen, QSINT64 value)
{
   return rtJsonEncFastMemberInt(ctxt, first, key, keyLen, value);
}

int rtJsonEncMemberUInt(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen, QSUINT64 value)
{
   return rtJsonEncFastMemberUInt(ctxt, first, key, keyLen, value);
}

namespace {

/* The general paths of rtJsonEncMemberKey, rtJsonEncMember and rtJsonEncClose, kept apart
 * from their common cases. */
JSON_NOINLINE int memberKeySlow(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen)
{
   int stat = rtJsonEncMember(ctxt, first);
   if (stat == 0) stat = rtJsonEncKey(ctxt, key + 1, keyLen - 3);
   return stat;
}

JSON_NOINLINE int memberSlow(QSCTXT* ctxt, QSBOOL first)
{
   QSSIZE nspaces = ctxt->indent;
   if (roomForLayout(ctxt, nspaces + 2)) {
      QSRTBuffer& b = ctxt->buffer;
      QSOCTET* p = b.data + b.byteIndex;
      if (!first) *p++ = ',';
      p = putNewLine(p, nspaces);
      *p = 0;
      b.byteIndex = (QSSIZE)(p - b.data);
      ctxt->lastChar = (nspaces != 0) ? ' ' : '\n';
      return 0;
   }
   int stat = first ? 0 : rtJsonEncPutChar(ctxt, ',');
   if (stat == 0) stat = rtJsonEncIndent(ctxt);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

JSON_NOINLINE int closeSlow(QSCTXT* ctxt, char closeChar)
{
   QSSIZE nspaces = ctxt->indent;
   if (roomForLayout(ctxt, nspaces + 3)) {
      QSRTBuffer& b = ctxt->buffer;
      QSOCTET* p = putNewLine(b.data + b.byteIndex, nspaces);
      *p++ = (QSOCTET)closeChar;
      *p = 0;
      b.byteIndex = (QSSIZE)(p - b.data);
      ctxt->lastChar = (QSOCTET)closeChar;
      return 0;
   }
   int stat = rtJsonEncIndent(ctxt);
   if (stat == 0) stat = rtJsonEncPutChar(ctxt, closeChar);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

} // namespace

int rtJsonEncMemberKey(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen)
{
   /* the common case in one piece: [","] line feed, indentation, key */
   QSSIZE nspaces = ctxt->indent;
   if (roomWithSlack(ctxt, nspaces + keyLen + 3)) {
      QSRTBuffer& b = ctxt->buffer;
      QSOCTET* p = b.data + b.byteIndex;
      *p = ',';
      p += first ? 0 : 1;
      p = putNewLineFast(p, nspaces);
      copyShort(p, key, keyLen);
      p += keyLen;
      *p = 0;
      b.byteIndex = (QSSIZE)(p - b.data);
      ctxt->lastChar = ':';
      return 0;
   }
   return memberKeySlow(ctxt, first, key, keyLen);
}

int rtJsonEncMember(QSCTXT* ctxt, QSBOOL first)
{
   /* the common case in one piece: [","] line feed, indentation */
   QSSIZE nspaces = ctxt->indent;
   if (roomWithSlack(ctxt, nspaces + 2)) {
      QSRTBuffer& b = ctxt->buffer;
      QSOCTET* p = b.data + b.byteIndex;
      *p = ',';
      p += first ? 0 : 1;
      p = putNewLineFast(p, nspaces);
      *p = 0;
      b.byteIndex = (QSSIZE)(p - b.data);
      ctxt->lastChar = (nspaces != 0) ? ' ' : '\n';
      return 0;
   }
   return memberSlow(ctxt, first);
}

int rtJsonEncNext(QSCTXT* ctxt)
{
   int stat = rtJsonEncPutChar(ctxt, ',');
   if (stat == 0) stat = rtJsonEncIndent(ctxt);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonEncClose(QSCTXT* ctxt, char closeChar)
{
   ctxt->indent = (ctxt->indent >= QSINDENTSPACES) ? (QSUINT16)(ctxt->indent - QSINDENTSPACES) : 0;
   /* the common case in one piece: line feed, indentation, closing character */
   QSSIZE nspaces = ctxt->indent;
   if (roomWithSlack(ctxt, nspaces + 3)) {
      QSRTBuffer& b = ctxt->buffer;
      QSOCTET* p = putNewLineFast(b.data + b.byteIndex, nspaces);
      p[0] = (QSOCTET)closeChar;
      p[1] = 0;
      b.byteIndex = (QSSIZE)(p + 1 - b.data);
      ctxt->lastChar = (QSOCTET)closeChar;
      return 0;
   }
   return closeSlow(ctxt, closeChar);
}
