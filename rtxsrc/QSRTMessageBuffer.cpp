#include "rtxsrc/QSRTMessageBuffer.h"

#include <cstring>
#include <new>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

static const char* const THIS_FILE = "../../rtxsrc/QSRTMessageBuffer.cpp";

void QSRTMessageBufferIF::setNamespace(const QSUTF8CHAR*, const QSUTF8CHAR*, QSRTDList*)
{
}

QSRTMessageBuffer::QSRTMessageBuffer(Type bufferType, QSRTContext* pContext)
   : mCtxtHolder(pContext), mBufferType(bufferType), mpAppInfo(nullptr)
{
}

size_t QSRTMessageBuffer::getByteIndex()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? ctxt->buffer.byteIndex : 0;
}

QSOCTET* QSRTMessageBuffer::getMsgPtr()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? ctxt->buffer.data : nullptr;
}

QSOCTET* QSRTMessageBuffer::getMsgCopy()
{
   QSOCTET* msg = getMsgPtr();
   if (msg == nullptr || getStatus() != 0) return nullptr;
   size_t len = getMsgLen();
   QSOCTET* copy = new (std::nothrow) QSOCTET[len > 0 ? len : 1];
   if (copy != nullptr && len > 0) std::memcpy(copy, msg, len);
   return copy;
}

int QSRTMessageBuffer::init()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   ctxt->buffer.byteIndex = 0;
   ctxt->buffer.bitOffset = 8;
   return 0;
}

int QSRTMessageBuffer::initBuffer(QSOCTET* buffer, size_t size)
{
   return rtxInitContextBuffer(getCtxtPtr(), buffer, size);
}

void QSRTMessageBuffer::setDiag(QSBOOL value)
{
   if (getStatus() == 0) rtxSetDiag(getCtxtPtr(), value);
}

char* QSRTMessageBuffer::getErrorInfo()
{
   QSRTContext* ctx = mCtxtHolder.getContext().get();
   return (ctx != nullptr) ? ctx->getErrorInfo() : nullptr;
}

char* QSRTMessageBuffer::getErrorInfo(char* buffer, size_t& size)
{
   QSRTContext* ctx = mCtxtHolder.getContext().get();
   return (ctx != nullptr) ? ctx->getErrorInfo(buffer, size) : nullptr;
}

size_t QSRTMessageBuffer::getMsgLen()
{
   return getByteIndex();
}

void QSRTMessageBuffer::printErrorInfo()
{
   QSRTContext* ctx = mCtxtHolder.getContext().get();
   if (ctx != nullptr) ctx->printErrorInfo();
}

void QSRTMessageBuffer::resetErrorInfo()
{
   QSRTContext* ctx = mCtxtHolder.getContext().get();
   if (ctx != nullptr) ctx->resetErrorInfo();
}

void QSRTMessageBuffer::setStatus(int status)
{
   QSRTContext* ctx = mCtxtHolder.getContext().get();
   if (ctx != nullptr) ctx->setStatus(status);
}

int QSRTMessageBuffer::writeMsgToFile(const char* filename)
{
   FILE* fp = (filename != nullptr) ? std::fopen(filename, "wb") : nullptr;
   if (fp == nullptr) return RTERR_FILE_NOT_FOUND;
   int stat = writeMsgToStream(fp);
   if (std::fclose(fp) != 0 && stat == 0) stat = RTERR_WRITE_ERROR;
   return stat;
}

int QSRTMessageBuffer::writeMsgToStream(FILE* fp)
{
   if (fp == nullptr) return RTERR_INVALID_PARAMETER;
   size_t len = getMsgLen();
   const QSOCTET* msg = getMsgPtr();
   if (len == 0 || msg == nullptr) return 0;
   return (std::fwrite(msg, 1, len, fp) == len) ? 0 : RTERR_WRITE_ERROR;
}

int QSRTMessageBuffer::attachFileInput(const char* filename)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || filename == nullptr) return 0;
   FILE* fp = std::fopen(filename, "rb");
   if (fp == nullptr) {
      rtxErrAddStrParm(ctxt, filename);
      int stat = rtxErrSetData(ctxt, RTERR_FILE_NOT_FOUND, THIS_FILE, __LINE__);
      setStatus(stat);
      return stat;
   }
   /* the whole file goes to the heap and is read as a memory stream */
   QSOCTET* data = nullptr;
   QSSIZE size = 0, cap = 0;
   int stat = 0;
   for (;;) {
      if (size == cap) {
         QSSIZE ncap = (cap == 0) ? 4096 : cap * 2;
         QSOCTET* p = (QSOCTET*)rtxMemHeapRealloc(ctxt, data, ncap);
         if (p == nullptr) {
            stat = RTERR_NO_DYNAMIC_MEMORY;
            break;
         }
         data = p;
         cap = ncap;
      }
      size_t n = std::fread(data + size, 1, cap - size, fp);
      size += n;
      if (n == 0) {
         if (std::ferror(fp)) stat = RTERR_READ_ERROR;
         break;
      }
   }
   std::fclose(fp);
   if (stat == 0) stat = rtxStreamMemoryAttach(ctxt, data, size, QSRTSTRMF_INPUT);
   if (stat != 0) {
      stat = rtxErrSetData(ctxt, stat, THIS_FILE, __LINE__);
      setStatus(stat);
   }
   return stat;
}
