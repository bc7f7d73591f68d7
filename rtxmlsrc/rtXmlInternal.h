/*
 * Helpers shared by the XML runtime sources (not part of the public
 * interface): the XML information record hung on the context, output
 * reservation of the writer and the pull reader's record.
 */
#ifndef RTXMLINTERNAL_H
#define RTXMLINTERNAL_H

#include <cstring>

#include "rtxmlsrc/rtXml.h"
#include "rtxsrc/rtxBitEncode.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

/* Records a failure at the current line of the including source file,
 * which defines XML_MODULE, and gives back the status itself (not the
 * aggregate of the context, which non-fatal records do not count). */
inline int xmlLogError(QSCTXT* ctxt, int stat, const char* module, int line)
{
   rtxErrSetData(ctxt, stat, module, line);
   return stat;
}
#define XML_LOG(ctxt, stat) xmlLogError(ctxt, stat, XML_MODULE, __LINE__)

struct QSXmlReader;

/* One namespace declaration made with QSXMLMessageBuffer::setNamespace
 * (system-heap copies), written on the root element outside ASN.1 XML mode. */
struct QSXmlNSDecl {
   char* prefix;
   char* uri;
   QSXmlNSDecl* next;
};

/* The XML information record of a context (ctxt->pAppInfo[0]). */
struct QSXmlCtxtInfo {
   QSUINT8 indent;                /* spaces (indent characters) per level */
   QSUTF8CHAR indentChar;
   int encoding;                  /* 0 UTF-8 */
   char* encodingName;            /* system-heap copy, or null for "UTF-8" */
   QSBOOL writeBOM;
   unsigned maxErrors;            /* non-fatal records kept by the reader, 0: no limit */
   QSXmlNSDecl* nsDecls;
   QSXmlReader* reader;           /* pull reader, or null */
};

namespace xmlimpl {

/* The information record, or null. */
inline QSXmlCtxtInfo* infoOf(QSCTXT* ctxt)
{
   return static_cast<QSXmlCtxtInfo*>(ctxt->pAppInfo[0]);
}

/* Releases the context's reader (nothing when there is none). */
void freeReader(QSCTXT* ctxt);

/* ---- output ----------------------------------------------------------------------------------- */

/* Makes room for n bytes plus the NUL kept behind the text. */
inline int reserve(QSCTXT* ctxt, QSSIZE n)
{
   const QSRTBuffer& b = ctxt->buffer;
   if (b.data != nullptr && b.byteIndex + n + 1 <= b.size) return 0;
   return rtxCheckOutputBuffer(ctxt, n + 1);
}

/* Appends n bytes whose room has been reserved and stores a NUL behind
 * them (the byte index does not cover it). */
inline void put(QSCTXT* ctxt, const void* p, QSSIZE n)
{
   QSRTBuffer& b = ctxt->buffer;
   if (n != 0) {
      std::memcpy(b.data + b.byteIndex, p, n);
      b.byteIndex += n;
      ctxt->lastChar = b.data[b.byteIndex - 1];
   }
   b.data[b.byteIndex] = 0;
}

/* Position of a byte offset of the reader's input as the error parameter
 * "(line L, column C)". */
void addPosParm(QSCTXT* ctxt, QSSIZE offset);

/* ---- reader ----------------------------------------------------------------------------------- */

/* The character data of the current element up to its end tag (left
 * pending), or in list mode the next item; valid until the next read. A
 * child element is RTERR_XML_UNEXPECTED_START_TAG. */
int readValue(QSCTXT* ctxt, const QSOCTET** pdata, QSSIZE* plen);

/* The content of the current element being nothing but '0'/'1' digits, at most bufsize * 8 of
 * them, up to its plain end tag: stored as bits (first bit the top bit of the first byte, the
 * bytes holding bits cleared first), the end tag left pending, as the bit string readers would;
 * false (nothing read) otherwise. */
bool directBits(QSCTXT* ctxt, QSOCTET* data, QSSIZE bufsize, QSSIZE* pnbits);

/* The integer readers rtXmlpDecInt ... rtXmlpDecUInt64 by the general path (value text,
 * whitespace collapsed, sign, digits, width check); the reader takes the usual form itself. */
int decIntegerValue(QSCTXT* ctxt, QSINT32* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSINT8* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSINT16* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSINT64* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSUINT32* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSUINT8* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSUINT16* pvalue);
int decIntegerValue(QSCTXT* ctxt, QSUINT64* pvalue);

/* Position of the value last read as an error parameter. */
void addValuePosParm(QSCTXT* ctxt);

/* One event of the reader, consumed. Name and text stay valid until the
 * next event. */
struct QSXmlEventView {
   int type;
   int level;
   const QSOCTET* name;
   QSSIZE nameLen;
   const QSOCTET* text;
   QSSIZE textLen;
};
int nextEvent(QSCTXT* ctxt, QSXmlEventView* view);

/* Name of the next start tag (heap copies), left pending. */
int peekStartTagName(QSCTXT* ctxt, QSXmlQName* pqname);

/* Reads the rest of the input with a reader of its own (the context's
 * reader and input position are kept); 0 or the first failure. */
int checkWellFormed(QSCTXT* ctxt);

} // namespace xmlimpl

#endif
