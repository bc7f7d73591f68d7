/*
 * Inline forms of the JSON writer's commonest steps for the generated encoders (object and array
 * brackets, member keys, integer members), so that these are written without a call where the
 * key and its length are constants.
 *
 * Each writes in one piece when the plain indented layout applies and the buffer has room for the
 * text plus kSlack bytes (whole 16-byte blocks are stored past the end of the text; the bytes there
 * are overwritten later or lie behind the NUL); otherwise it leaves everything to the runtime call
 * it stands for, which then sees the same state.
 */
#ifndef RTJSONFASTENC_H
#define RTJSONFASTENC_H

#include <string.h>

#include "rtjsonsrc/rtJson.h"
#include "rtjsonsrc/rtxText.h"
#include "rtxsrc/rtxContext.h"

#if defined(__GNUC__)
#define JSONFAST_INLINE inline __attribute__((always_inline))
#else
#define JSONFAST_INLINE inline
#endif

namespace jsonfast {

/* Room beyond the text that the fast writers may overwrite. */
const QSSIZE kSlack = 80;

/* True when the plain indented layout applies and need bytes (and the slack) fit. */
JSONFAST_INLINE bool roomWithSlack(QSCTXT* ctxt, QSSIZE need)
{
   const QSRTBuffer& b = ctxt->buffer;
   return ctxt->jsonMode == 0 && !(ctxt->flags & QSJSONCOMPACT) && b.data != 0 &&
          b.byteIndex + need + kSlack <= b.size;
}

/* Line feed and nspaces spaces at p, the spaces stored in whole blocks: 64 at once, then 16
 * at a time (up to 63 bytes beyond them are overwritten); the new cursor. */
JSONFAST_INLINE QSOCTET* putNewLineFast(QSOCTET* p, QSSIZE nspaces)
{
   static const char kSpaces16[16] = { ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                                       ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ' };
   *p++ = '\n';
   memcpy(p, kSpaces16, 16);
   memcpy(p + 16, kSpaces16, 16);
   memcpy(p + 32, kSpaces16, 16);
   memcpy(p + 48, kSpaces16, 16);
   for (QSSIZE i = 64; i < nspaces; i += 16) memcpy(p + i, kSpaces16, 16);
   return p + nspaces;
}

/* Copies n bytes (n >= 1) with a few overlapping fixed-size moves. */
JSONFAST_INLINE void copyShort(QSOCTET* p, const char* s, QSSIZE n)
{
   if (n >= 16) {
      QSSIZE i = 0;
      for (; i + 16 < n; i += 16) memcpy(p + i, s + i, 16);
      memcpy(p + n - 16, s + n - 16, 16);
   }
   else if (n >= 8) {
      memcpy(p, s, 8);
      memcpy(p + n - 8, s + n - 8, 8);
   }
   else if (n >= 4) {
      memcpy(p, s, 4);
      memcpy(p + n - 4, s + n - 4, 4);
   }
   else {
      for (QSSIZE i = 0; i < n; i++) p[i] = (QSOCTET)s[i];
   }
}

/* [","] line feed, indentation and key at the cursor, then [-]digits; room checked here. */
JSONFAST_INLINE bool memberDecimal(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen, bool negative,
                                   QSUINT64 magnitude)
{
   if (!roomWithSlack(ctxt, ctxt->indent + keyLen + 24)) return false;
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   *p = ',';
   p += first ? 0 : 1;
   p = putNewLineFast(p, ctxt->indent);
   copyShort(p, key, keyLen);
   p += keyLen;
   *p = '-';
   p += negative ? 1 : 0;
   if (magnitude < 10) {
      *p++ = (QSOCTET)('0' + magnitude);
   }
   else if (magnitude < 100) {
      memcpy(p, rtxTxtDigitPairs + 2 * magnitude, 2);
      p += 2;
   }
   else {
      p = rtxTxtPutDigits(p, magnitude);
   }
   ctxt->lastChar = p[-1];
   *p = 0;
   b.byteIndex = (QSSIZE)(p - b.data);
   return true;
}

} // namespace jsonfast

/* rtJsonEncOpen. */
JSONFAST_INLINE int rtJsonEncFastOpen(QSCTXT* ctxt, char openChar)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.data == 0 || b.byteIndex + 2 > b.size) return rtJsonEncOpen(ctxt, openChar);
   b.data[b.byteIndex++] = (QSOCTET)openChar;
   b.data[b.byteIndex] = 0;
   ctxt->lastChar = (QSOCTET)openChar;
   ctxt->indent = (QSUINT16)(ctxt->indent + QSINDENTSPACES);
   return 0;
}

/* rtJsonEncClose. */
JSONFAST_INLINE int rtJsonEncFastClose(QSCTXT* ctxt, char closeChar)
{
   QSUINT16 indent = (ctxt->indent >= QSINDENTSPACES) ? (QSUINT16)(ctxt->indent - QSINDENTSPACES) : 0;
   if (!jsonfast::roomWithSlack(ctxt, (QSSIZE)indent + 3)) return rtJsonEncClose(ctxt, closeChar);
   ctxt->indent = indent;
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = jsonfast::putNewLineFast(b.data + b.byteIndex, indent);
   p[0] = (QSOCTET)closeChar;
   p[1] = 0;
   b.byteIndex = (QSSIZE)(p + 1 - b.data);
   ctxt->lastChar = (QSOCTET)closeChar;
   return 0;
}

/* rtJsonEncMemberKey. */
JSONFAST_INLINE int rtJsonEncFastMemberKey(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen)
{
   QSSIZE nspaces = ctxt->indent;
   if (!jsonfast::roomWithSlack(ctxt, nspaces + keyLen + 3)) return rtJsonEncMemberKey(ctxt, first, key, keyLen);
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   *p = ',';
   p += first ? 0 : 1;
   p = jsonfast::putNewLineFast(p, nspaces);
   jsonfast::copyShort(p, key, keyLen);
   p += keyLen;
   *p = 0;
   b.byteIndex = (QSSIZE)(p - b.data);
   ctxt->lastChar = ':';
   return 0;
}

/* rtJsonEncMemberInt and rtJsonEncMemberUInt: 1 when written, else 0 and nothing written. */
JSONFAST_INLINE int rtJsonEncFastMemberInt(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen, QSINT64 value)
{
   QSUINT64 magnitude = (value < 0) ? (QSUINT64)0 - (QSUINT64)value : (QSUINT64)value;
   return jsonfast::memberDecimal(ctxt, first, key, keyLen, value < 0, magnitude) ? 1 : 0;
}

JSONFAST_INLINE int rtJsonEncFastMemberUInt(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen,
                                            QSUINT64 value)
{
   return jsonfast::memberDecimal(ctxt, first, key, keyLen, false, value) ? 1 : 0;
}

#endif
