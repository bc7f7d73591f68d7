#include "rtjsonsrc/QSJSONMessageBuffer.h"

#include <cstring>
#include <new>

#include "rtjsonsrc/rtJsonInternal.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

#define JSON_MODULE "../../rtjsonsrc/QSJSONMessageBuffer.cpp"

/* ---- QSJSONEncodeBuffer ----------------------------------------------------------------------- */

QSJSONEncodeBuffer::QSJSONEncodeBuffer() : QSJSONMessageBuffer(JSONEncode)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || getStatus() != 0) return;
   ctxt->indent = 0;
   int stat = rtxInitContextBuffer(ctxt, nullptr, 0);
   if (stat != 0) {
      JSON_LOG(ctxt, stat);
      setStatus(stat);
      return;
   }
   ctxt->buffer.data[0] = 0;
}

QSJSONEncodeBuffer::QSJSONEncodeBuffer(unsigned char* buf, size_t size)
   : QSJSONEncodeBuffer(buf, size, nullptr)
{
}

QSJSONEncodeBuffer::QSJSONEncodeBuffer(unsigned char* buf, size_t size, QSRTContext* pContext)
   : QSJSONMessageBuffer(JSONEncode, pContext)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || getStatus() != 0) return;
   ctxt->indent = 0;
   int stat = (buf != nullptr) ? rtxInitContextBuffer(ctxt, buf, size) : RTERR_INVALID_PARAMETER;
   if (stat != 0) {
      JSON_LOG(ctxt, stat);
      setStatus(stat);
      return;
   }
   if (size > 0) buf[0] = 0;
}

int QSJSONEncodeBuffer::init()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   ctxt->buffer.byteIndex = 0;
   if (ctxt->buffer.data != nullptr && ctxt->buffer.size > 0) ctxt->buffer.data[0] = 0;
   return 0;
}

size_t QSJSONEncodeBuffer::getMsgLen()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? ctxt->buffer.byteIndex : 0;
}

int QSJSONEncodeBuffer::write(const char* filename)
{
   return writeMsgToFile(filename);
}

int QSJSONEncodeBuffer::write(FILE* fp)
{
   return writeMsgToStream(fp);
}

/* ---- QSJSONDecodeBuffer ----------------------------------------------------------------------- */

QSJSONDecodeBuffer::QSJSONDecodeBuffer(QSRTInputStream* pStream, QSBOOL ownStream)
   : QSJSONMessageBuffer(JSONDecode, (pStream != nullptr) ? pStream->getContext().get() : nullptr),
     mpInputStream(pStream), mbOwnStream(ownStream)
{
   bindInput();
}

QSJSONDecodeBuffer::QSJSONDecodeBuffer(const unsigned char* data, size_t size)
   : QSJSONDecodeBuffer(QSRTMemoryInputStream::create(data, size), TRUE)
{
}

QSJSONDecodeBuffer::QSJSONDecodeBuffer(QSRTInputStream& inputStream)
   : QSJSONDecodeBuffer(&inputStream, FALSE)
{
}

QSJSONDecodeBuffer::QSJSONDecodeBuffer(const char* filename)
   : QSJSONMessageBuffer(JSONDecode), mpInputStream(nullptr), mbOwnStream(FALSE)
{
   if (attachFileInput(filename) != 0 || filename == nullptr) return;
   bindInput();
}

QSJSONDecodeBuffer::~QSJSONDecodeBuffer()
{
   if (mbOwnStream && mpInputStream != nullptr) {
      /* the context goes with the last reference: drop ours first */
      QSRTInputStream* pStream = mpInputStream;
      mpInputStream = nullptr;
      delete pStream;
   }
}

void QSJSONDecodeBuffer::bindInput()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   rtxStreamBindInput(ctxt);
}
