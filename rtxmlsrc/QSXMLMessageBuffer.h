/*
 * XML message buffers: the encode buffer that collects the text written by
 * the XML encoders and the decode buffer that feeds the XML decoders from
 * an input stream.
 */
#ifndef QSXMLMESSAGEBUFFER_H
#define QSXMLMESSAGEBUFFER_H

#include <cstdio>

#include "rtxsrc/QSRTContext.h"
#include "rtxsrc/QSRTInputStream.h"
#include "rtxsrc/QSRTMessageBuffer.h"
#include "rtxmlsrc/rtXml.h"

/* Common base of the XML buffers: the settings of the context's XML
 * information record (created on first use). */
class QSXMLMessageBuffer : public QSRTMessageBuffer {
protected:
   /* On pContext, or on a new context of its own when null. */
   explicit QSXMLMessageBuffer(Type bufferType, QSRTContext* pContext = nullptr);

   /* The context with its XML information record, or null. */
   QSCTXT* xmlCtxt();

public:
   ~QSXMLMessageBuffer() override {}

   /* Indent characters per nesting level (0: no line breaks either). */
   int getIndent();
   int setIndent(QSUINT8 indent);
   int getIndentChar();
   int setIndentChar(char indentChar);
   QSBOOL getWriteBOM();
   int setWriteBOM(QSBOOL write);

   /* Formatting on: the indentation width of 3; off: width 0. */
   int setFormatting(bool doFormatting);

   /* Declares a namespace on the root element (not written in ASN.1 XML
    * mode); the list argument is not used. */
   void setNamespace(const QSUTF8CHAR* prefix, const QSUTF8CHAR* uri,
                     QSRTDList* pNSAttrs = nullptr) override;

   void* getAppInfo() override { return QSRTMessageBuffer::getAppInfo(); }
   void setAppInfo(void* pAppInfo) override { QSRTMessageBuffer::setAppInfo(pAppInfo); }
};

/* Thin wrappers over the writer functions on the buffer's context. */
class QSXMLEncodeBase : public QSXMLMessageBuffer {
protected:
   explicit QSXMLEncodeBase(QSRTContext* pContext = nullptr) : QSXMLMessageBuffer(XMLEncode, pContext) {}

public:
   int startDocument() { return rtXmlEncStartDocument(xmlCtxt()); }
   int endDocument() { return rtXmlEncEndDocument(xmlCtxt()); }
   int startElement(const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS = nullptr,
                    QSRTDList* pNSAttrs = nullptr, QSBOOL terminate = TRUE)
   { return rtXmlEncStartElement(xmlCtxt(), elemName, pNS, pNSAttrs, terminate); }
   int termStartElement() { return rtXmlEncTermStartElement(xmlCtxt()); }
   int endElement(const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS = nullptr)
   { return rtXmlEncEndElement(xmlCtxt(), elemName, pNS); }
   int encodeText(const QSUTF8CHAR* text) { return rtXmlEncStringValue(xmlCtxt(), text); }
   /* name="value" inside a start tag still open for attributes. */
   int encodeAttr(const QSUTF8CHAR* name, const QSUTF8CHAR* value);
};

class QSXMLEncodeBuffer : public QSXMLEncodeBase {
public:
   /* Dynamic buffer from the context heap, holding the empty string. */
   QSXMLEncodeBuffer();

   /* The caller's buffer of size bytes; it is never grown. */
   QSXMLEncodeBuffer(unsigned char* buf, size_t size);

   /* As above, on the given context (shared, not copied). */
   QSXMLEncodeBuffer(unsigned char* buf, size_t size, QSRTContext* pContext);

   ~QSXMLEncodeBuffer() override {}

   /* Starts a new document (byte index 0, writer state reset). */
   int init() override;

   /* Fragment mode: no declaration. */
   void setFragment(bool value = true);

   /* Writes <?xml version="<version>" encoding="<encoding>"?> (defaults
    * "1.0" and "UTF-8"), followed by a line feed when newLine is set. */
   int addXMLHeader(const QSUTF8CHAR* version = nullptr, const QSUTF8CHAR* encoding = nullptr,
                    QSBOOL newLine = FALSE);

   /* Appends the text as it is (after closing a pending start tag). */
   int addXMLText(const QSUTF8CHAR* text);

   /* Length of the text, not counting the terminating NUL. */
   size_t getMsgLen() override;

   /* Writes the text to a file opened with mode "wb"; RTERR_FILE_NOT_FOUND
    * when it cannot be opened, RTERR_WRITE_ERROR on a short write. */
   int write(const char* filename);

   /* Writes the text to an open stream; 0 or RTERR_WRITE_ERROR. */
   int write(FILE* fp);

   QSBOOL isA(Type bufferType) override { return bufferType == XMLEncode; }
};

/* Receiver of the events of QSXMLDecodeBuffer::decodeXML. Names and text are
 * valid during the call only and are not NUL-terminated. */
class QSXMLReaderClass {
public:
   virtual ~QSXMLReaderClass() {}
   virtual int startElement(const QSUTF8CHAR* name, size_t nameLen, int level) = 0;
   virtual int characters(const QSUTF8CHAR* text, size_t len, int level) = 0;
   virtual int endElement(const QSUTF8CHAR* name, size_t nameLen, int level) = 0;
};

class QSXMLDecodeBuffer : public QSXMLMessageBuffer {
protected:
   QSRTInputStream* mpInputStream;   /* may be null */
   QSBOOL mbOwnStream;

   QSXMLDecodeBuffer(QSRTInputStream* pStream, QSBOOL ownStream);

   /* Takes the context's input stream as the text to read. */
   void bindInput();

public:
   /* Reads the whole file (on the buffer's own context); a null name leaves
    * the buffer without input, a file that cannot be read is kept as the
    * status (RTERR_FILE_NOT_FOUND, RTERR_READ_ERROR). */
   explicit QSXMLDecodeBuffer(const char* filename);

   /* Reads the caller's memory (not copied) through a memory input stream
    * that the buffer owns; null data leaves the buffer without input. */
   QSXMLDecodeBuffer(const unsigned char* data, size_t size);

   /* Reads from the caller's stream and shares its context; the stream is
    * not owned and must outlive the buffer. */
   explicit QSXMLDecodeBuffer(QSRTInputStream& inputStream);

   /* Releases the reader. */
   ~QSXMLDecodeBuffer() override;

   QSXMLDecodeBuffer(const QSXMLDecodeBuffer&) = delete;
   QSXMLDecodeBuffer& operator=(const QSXMLDecodeBuffer&) = delete;

   /* Creates the XML information record when missing: 0 or its status. */
   int init() override;

   /* Reads the whole document, handing every event to pReader (none:
    * only checks it); 0 or the first failure. */
   int decodeXML(QSXMLReaderClass* pReader);

   /* TRUE when the rest of the input is one well-formed document; the
    * input is not consumed. */
   QSBOOL isWellFormed();

   /* Non-fatal errors recorded before the reader stops recording them. */
   void setMaxErrors(unsigned maxErrors);

   /* Name of the next start tag (a heap copy), left in place for the
    * decoder; 0 or a negative status. */
   int parseElementName(QSUTF8CHAR** ppName);

   /* As parseElementName, with the prefix. */
   int parseElemQName(QSXmlQName* pQName);

   QSBOOL isA(Type bufferType) override { return bufferType == XMLDecode; }

   QSRTInputStream* getInputStream() { return mpInputStream; }
};

#endif
