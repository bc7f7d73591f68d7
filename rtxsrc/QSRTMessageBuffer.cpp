#include "rtxsrc/QSRTMessageBuffer.h"

#include <cstring>
#include <new>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

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
