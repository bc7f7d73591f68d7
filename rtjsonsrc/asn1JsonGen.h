/*
 * Support for the generated JSON encoders and decoders: member-name lookup,
 * unknown members kept as raw key/value fragments, open types captured as
 * text, and decoding a captured text in place of the input.
 */
#ifndef ASN1JSONGEN_H
#define ASN1JSONGEN_H

#include <string.h>

#include "rtjsonsrc/rtJson.h"
#include "rtjsonsrc/rtJsonFastEnc.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

/* True when an extension list holds at least one element to write. */
inline bool rtJsonHasExtElems(const QSRTDList* list)
{
   for (const QSRTDListNode* n = list->head; n != 0; n = n->next)
      if (n->data != 0) return true;
   return false;
}

/* Inline forms of the commonest reader steps for the generated decoders: each does the
 * step when the text at the cursor has the plain form, else leaves everything to the runtime
 * call it stands for, which then sees the same position. */

/* Consumes the character c when it stands right at the cursor: true. Otherwise false and
 * nothing moved (then rtJsonDecMatchChar does the whole step). */
inline bool rtJsonDecTakeChar(QSCTXT* ctxt, QSOCTET c)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex < b.size && b.data[b.byteIndex] == c) {
      b.byteIndex++;
      return true;
   }
   return false;
}

/* rtxTxtPeekChar2(ctxt, 1) == c. */
inline bool rtJsonDecNextIs(QSCTXT* ctxt, QSOCTET c)
{
   const QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex < b.size && b.data[b.byteIndex] > 0x20) return b.data[b.byteIndex] == c;
   return rtxTxtPeekChar2(ctxt, 1) == c;
}

/* rtJsonDecMoreItems. */
inline int rtJsonDecMore(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.byteIndex < b.size) {
      QSOCTET x = b.data[b.byteIndex];
      if (x == ',') {
         b.byteIndex++;
         return 1;
      }
      if (x > 0x20) return 0;
   }
   return rtJsonDecMoreItems(ctxt);
}

/* Reads again, as text in the heap, the key that starts at keyStart, and the colon after it:
 * for members that the name table did not know. */
int rtJsonDecRereadKey(QSCTXT* ctxt, QSSIZE keyStart, char** pkey);

/* Reads the value of an unknown member `key` and keeps it as the fragment
 * "key":<value text> in a new open-type record. Its count is the number of
 * UTF-8 characters of the fragment plus one for the closing NUL. */
int rtJsonDecUnknownMember(QSCTXT* ctxt, const char* key, ASN1TOpenType** ppElem);

/* Reads any JSON value and keeps its text (without NUL) in a new open-type record. */
int rtJsonDecCaptureOpenType(QSCTXT* ctxt, ASN1TOpenType** ppElem);

/* Makes `text` the decoder's input until rtJsonDecEndText restores the previous one. */
struct QSJsonSavedInput {
   QSRTBuffer buffer;
   QSOCTET lastChar;
};
void rtJsonDecBeginText(QSCTXT* ctxt, QSJsonSavedInput* saved, const QSOCTET* text, QSSIZE nbytes);
void rtJsonDecEndText(QSCTXT* ctxt, const QSJsonSavedInput* saved);

/* A mandatory member that did not come: RTERR_MISSING_REQUIRED_ELEMENT with its name. */
int rtJsonMissingMember(QSCTXT* ctxt, const char* name, const char* module, int line);

#endif
