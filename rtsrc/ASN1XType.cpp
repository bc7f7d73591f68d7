#include "rtsrc/ASN1XType.h"

#include <new>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

#define MODULE "../../rtsrc/ASN1XType.cpp"

ASN1XType::ASN1XType() : mpContext(new (std::nothrow) QSRTContext()), mpMsgBuf(nullptr)
{
}

ASN1XType::ASN1XType(QSRTMessageBufferIF& msgBuf) : mpContext(msgBuf.getContext()), mpMsgBuf(&msgBuf)
{
}

ASN1XType::~ASN1XType()
{
}

/* Common tail of Encode and Decode: a failure is recorded at this module. */
static int finishCodec(QSCTXT* ctxt, int stat, int lineno)
{
   if (stat >= 0 || stat == RTERR_VALUE_CONSTRAINT_VIOLATION) return stat;
   return rtxErrSetData(ctxt, stat, MODULE, lineno);
}

int ASN1XType::Encode()
{
   if (!mpContext) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = mpContext->getStatus();
   if (stat != 0) return stat;
   if (mpMsgBuf == nullptr) return RTERR_INVALID_MESSAGE_BUFFER;
   return finishCodec(getCtxtPtr(), EncodeTo(*mpMsgBuf), 70);
}

int ASN1XType::Decode(unsigned char flag)
{
   if (!mpContext) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = mpContext->getStatus();
   if (stat != 0) return stat;
   if (mpMsgBuf == nullptr) return RTERR_INVALID_MESSAGE_BUFFER;
   return finishCodec(getCtxtPtr(), DecodeFrom(*mpMsgBuf, flag), 85);
}

int ASN1XType::EncodeTo(QSRTMessageBufferIF&)
{
   return RTERR_FEATURE_NOT_SUPPORTED;
}

int ASN1XType::DecodeFrom(QSRTMessageBufferIF&, unsigned char)
{
   return RTERR_FEATURE_NOT_SUPPORTED;
}

void ASN1XType::MemFree()
{
}

QSCTXT* ASN1XType::getCtxtPtr()
{
   return (mpContext && mpContext->isInitialized()) ? mpContext->getPtr() : nullptr;
}

int ASN1XType::getStatus()
{
   return mpContext ? mpContext->getStatus() : RTERR_CONTEXT_NOT_INITIALIZED;
}

int ASN1XType::setMsgBuf(QSRTMessageBufferIF& msgBuf, unsigned char initBuffer)
{
   if (!mpContext) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = mpContext->getStatus();
   if (stat != 0) return stat;

   mpMsgBuf = &msgBuf;
   QSCTXT* own = getCtxtPtr();
   QSCTXT* other = msgBuf.getCtxtPtr();
   if (own != nullptr && other != nullptr && own->key != nullptr && other->key == nullptr) {
      other->key = own->key;
      other->keylen = own->keylen;
   }
   if (initBuffer) mpContext->setStatus(msgBuf.init());
   return getStatus();
}

void* ASN1XType::memAlloc(size_t nbytes)
{
   return rtxMemHeapAlloc(getCtxtPtr(), nbytes);
}
