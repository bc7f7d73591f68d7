#include "rtxmlsrc/QSXMLMessageBuffer.h"

#include <cstring>
#include <new>

#include "rtxmlsrc/rtXmlInternal.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

#define XML_MODULE "../../rtxmlsrc/QSXMLMessageBuffer.cpp"

/* ---- QSXMLMessageBuffer ----------------------------------------------------------------------- */

QSXMLMessageBuffer::QSXMLMessageBuffer(Type bufferType, QSRTContext* pContext)
   : QSRTMessageBuffer(bufferType, pContext)
{
}

QSCTXT* QSXMLMessageBuffer::xmlCtxt()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return nullptr;
   if (ctxt->pAppInfo[0] == nullptr) {
      /* rtXmlInitCtxtAppInfo resets the writer state: keep it */
      QSUINT8 state = ctxt->xmlState;
      if (rtXmlInitCtxtAppInfo(ctxt) != 0) return nullptr;
      ctxt->xmlState = state;
   }
   return ctxt;
}

int QSXMLMessageBuffer::getIndent()
{
   QSCTXT* ctxt = xmlCtxt();
   return (ctxt != nullptr) ? rtXmlGetIndent(ctxt) : RTERR_CONTEXT_NOT_INITIALIZED;
}

int QSXMLMessageBuffer::setIndent(QSUINT8 indent)
{
   QSCTXT* ctxt = xmlCtxt();
   return (ctxt != nullptr) ? rtXmlSetIndent(ctxt, indent) : RTERR_CONTEXT_NOT_INITIALIZED;
}

int QSXMLMessageBuffer::getIndentChar()
{
   QSCTXT* ctxt = xmlCtxt();
   return (ctxt != nullptr) ? rtXmlGetIndentChar(ctxt) : RTERR_CONTEXT_NOT_INITIALIZED;
}

int QSXMLMessageBuffer::setIndentChar(char indentChar)
{
   QSCTXT* ctxt = xmlCtxt();
   return (ctxt != nullptr) ? rtXmlSetIndentChar(ctxt, (QSUTF8CHAR)indentChar) : RTERR_CONTEXT_NOT_INITIALIZED;
}

QSBOOL QSXMLMessageBuffer::getWriteBOM()
{
   QSCTXT* ctxt = xmlCtxt();
   return (ctxt != nullptr) ? rtXmlGetWriteBOM(ctxt) : FALSE;
}

int QSXMLMessageBuffer::setWriteBOM(QSBOOL write)
{
   QSCTXT* ctxt = xmlCtxt();
   return (ctxt != nullptr) ? rtXmlSetWriteBOM(ctxt, write) : RTERR_CONTEXT_NOT_INITIALIZED;
}

int QSXMLMessageBuffer::setFormatting(bool doFormatting)
{
   return setIndent(doFormatting ? 3 : 0);
}

void QSXMLMessageBuffer::setNamespace(const QSUTF8CHAR* prefix, const QSUTF8CHAR* uri, QSRTDList*)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt != nullptr) rtXmlAddNamespaceDecl(ctxt, prefix, uri);
}

/* ---- QSXMLEncodeBase / QSXMLEncodeBuffer ------------------------------------------------------ */

int QSXMLEncodeBase::encodeAttr(const QSUTF8CHAR* name, const QSUTF8CHAR* value)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   if (name == nullptr || *name == 0 || !(ctxt->flags & QSXMLSTARTOPEN)) return RTERR_INVALID_XML_STATE;
   QSSIZE n = std::strlen((const char*)name);
   int stat = xmlimpl::reserve(ctxt, n + 3);
   if (stat != 0) return XML_LOG(ctxt, stat);
   xmlimpl::put(ctxt, " ", 1);
   xmlimpl::put(ctxt, name, n);
   xmlimpl::put(ctxt, "=\"", 2);
   QSUINT8 state = ctxt->xmlState;
   ctxt->xmlState = QSXMLATTR;
   stat = rtXmlEncStringValue(ctxt, value);
   ctxt->xmlState = state;
   if (stat == 0) stat = xmlimpl::reserve(ctxt, 1);
   if (stat != 0) return XML_LOG(ctxt, stat);
   xmlimpl::put(ctxt, "\"", 1);
   return 0;
}

QSXMLEncodeBuffer::QSXMLEncodeBuffer() : QSXMLEncodeBase()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || getStatus() != 0) return;
   int stat = rtXmlSetEncBufPtr(ctxt, nullptr, 0);
   if (stat != 0) setStatus(XML_LOG(ctxt, stat));
}

QSXMLEncodeBuffer::QSXMLEncodeBuffer(unsigned char* buf, size_t size) : QSXMLEncodeBuffer(buf, size, nullptr)
{
}

QSXMLEncodeBuffer::QSXMLEncodeBuffer(unsigned char* buf, size_t size, QSRTContext* pContext)
   : QSXMLEncodeBase(pContext)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || getStatus() != 0) return;
   int stat = (buf != nullptr) ? rtXmlSetEncBufPtr(ctxt, buf, size) : RTERR_INVALID_PARAMETER;
   if (stat != 0) setStatus(XML_LOG(ctxt, stat));
}

int QSXMLEncodeBuffer::init()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   ctxt->buffer.byteIndex = 0;
   if (ctxt->buffer.data != nullptr && ctxt->buffer.size > 0) ctxt->buffer.data[0] = 0;
   ctxt->xmlState = QSXMLINIT;
   ctxt->xmlDepth = 0;
   ctxt->flags &= ~(QSXMLSTARTOPEN | QSXMLEMPTY | QSXMLNIL);
   return 0;
}

void QSXMLEncodeBuffer::setFragment(bool value)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   if (value) ctxt->flags |= QSXMLFRAG;
   else ctxt->flags &= ~QSXMLFRAG;
}

int QSXMLEncodeBuffer::addXMLHeader(const QSUTF8CHAR* version, const QSUTF8CHAR* encoding, QSBOOL newLine)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   const char* v = (version != nullptr) ? (const char*)version : "1.0";
   const char* e = (encoding != nullptr) ? (const char*)encoding : QSXMLHDRUTF8;
   const char* parts[] = { "<?xml version=\"", v, "\" encoding=\"", e, "\"?>", newLine ? "\n" : "" };
   for (const char* part : parts) {
      QSSIZE n = std::strlen(part);
      int stat = xmlimpl::reserve(ctxt, n);
      if (stat != 0) return XML_LOG(ctxt, stat);
      xmlimpl::put(ctxt, part, n);
   }
   ctxt->xmlState = QSXMLHEADER;
   return 0;
}

int QSXMLEncodeBuffer::addXMLText(const QSUTF8CHAR* text)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = rtXmlEncTermStartElement(ctxt);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSSIZE n = (text != nullptr) ? std::strlen((const char*)text) : 0;
   if (n == 0) return 0;
   stat = xmlimpl::reserve(ctxt, n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   xmlimpl::put(ctxt, text, n);
   ctxt->xmlState = QSXMLDATA;
   return 0;
}

size_t QSXMLEncodeBuffer::getMsgLen()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? ctxt->buffer.byteIndex : 0;
}

int QSXMLEncodeBuffer::write(const char* filename)
{
   return writeMsgToFile(filename);
}

int QSXMLEncodeBuffer::write(FILE* fp)
{
   return writeMsgToStream(fp);
}

/* ---- QSXMLDecodeBuffer ------------------------------------------------------------------------ */

QSXMLDecodeBuffer::QSXMLDecodeBuffer(QSRTInputStream* pStream, QSBOOL ownStream)
   : QSXMLMessageBuffer(XMLDecode, (pStream != nullptr) ? pStream->getContext().get() : nullptr),
     mpInputStream(pStream), mbOwnStream(ownStream)
{
   bindInput();
}

QSXMLDecodeBuffer::QSXMLDecodeBuffer(const unsigned char* data, size_t size)
   : QSXMLDecodeBuffer(QSRTMemoryInputStream::create(data, size), TRUE)
{
}

QSXMLDecodeBuffer::QSXMLDecodeBuffer(QSRTInputStream& inputStream)
   : QSXMLDecodeBuffer(&inputStream, FALSE)
{
}

QSXMLDecodeBuffer::QSXMLDecodeBuffer(const char* filename)
   : QSXMLMessageBuffer(XMLDecode), mpInputStream(nullptr), mbOwnStream(FALSE)
{
   if (attachFileInput(filename) != 0 || filename == nullptr) return;
   bindInput();
}

QSXMLDecodeBuffer::~QSXMLDecodeBuffer()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt != nullptr) xmlimpl::freeReader(ctxt);
   if (mbOwnStream && mpInputStream != nullptr) {
      /* the context goes with the last reference: drop ours first */
      QSRTInputStream* pStream = mpInputStream;
      mpInputStream = nullptr;
      delete pStream;
   }
}

void QSXMLDecodeBuffer::bindInput()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt != nullptr) rtxStreamBindInput(ctxt);
}

int QSXMLDecodeBuffer::init()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   /* a failed input (no memory, an unreadable file) is not decoded at all */
   int stat = getStatus();
   if (stat != 0) return stat;
   if (ctxt->pAppInfo[0] == nullptr) {
      stat = rtXmlInitCtxtAppInfo(ctxt);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   return 0;
}

int QSXMLDecodeBuffer::decodeXML(QSXMLReaderClass* pReader)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   if (getStatus() != 0) return getStatus();
   int stat = rtXmlpCreateReader(ctxt);
   bool sawRoot = false;
   while (stat == 0) {
      xmlimpl::QSXmlEventView ev;
      stat = xmlimpl::nextEvent(ctxt, &ev);
      if (stat != 0) break;
      if (ev.type == QSXMLP_END_DOC) {
         if (!sawRoot) stat = XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
         break;
      }
      if (pReader == nullptr) {
         sawRoot = true;
         continue;
      }
      switch (ev.type) {
         case QSXMLP_START_TAG:
            sawRoot = true;
            stat = pReader->startElement(ev.name, ev.nameLen, ev.level);
            break;
         case QSXMLP_CHARS:
            stat = pReader->characters(ev.text, ev.textLen, ev.level);
            break;
         default:
            stat = pReader->endElement(ev.name, ev.nameLen, ev.level);
            break;
      }
      if (stat != 0) stat = XML_LOG(ctxt, stat);
   }
   xmlimpl::freeReader(ctxt);
   return stat;
}

QSBOOL QSXMLDecodeBuffer::isWellFormed()
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt == nullptr || getStatus() != 0) return FALSE;
   return xmlimpl::checkWellFormed(ctxt) == 0;
}

void QSXMLDecodeBuffer::setMaxErrors(unsigned maxErrors)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt != nullptr) rtXmlSetMaxErrors(ctxt, maxErrors);
}

int QSXMLDecodeBuffer::parseElemQName(QSXmlQName* pQName)
{
   QSCTXT* ctxt = xmlCtxt();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   if (pQName == nullptr) return RTERR_INVALID_PARAMETER;
   if (xmlimpl::infoOf(ctxt)->reader == nullptr) {
      int stat = rtXmlpCreateReader(ctxt);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   int stat = xmlimpl::peekStartTagName(ctxt, pQName);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int QSXMLDecodeBuffer::parseElementName(QSUTF8CHAR** ppName)
{
   if (ppName == nullptr) return RTERR_INVALID_PARAMETER;
   QSXmlQName qname = { nullptr, nullptr };
   int stat = parseElemQName(&qname);
   if (stat != 0) return stat;
   *ppName = const_cast<QSUTF8CHAR*>(qname.ln);
   if (qname.nsPrefix != nullptr) rtxMemHeapFreePtr(getCtxtPtr(), const_cast<QSUTF8CHAR*>(qname.nsPrefix));
   return 0;
}
