#include "rtxsrc/QSRTContext.h"

#include <new>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

QSRTContext::QSRTContext() : mCount(0), mStatus(0), mbInitialized(FALSE)
{
   mStatus = rtxInitContext(&mCtxt);
   mbInitialized = (mStatus == 0);
}

QSRTContext::~QSRTContext()
{
   if (mbInitialized) rtxFreeContext(&mCtxt);
}

void QSRTContext::_unref()
{
   if (--mCount <= 0) delete this;
}

int QSRTContext::getStatus()
{
   return (mStatus != 0) ? mStatus : rtxErrGetStatus(&mCtxt);
}

int QSRTContext::setRunTimeKey(const unsigned char* key, size_t keylen)
{
   mCtxt.key = key;
   mCtxt.keylen = keylen;
   return 0;
}

char* QSRTContext::getErrorInfo()
{
   return rtxErrGetText(&mCtxt, nullptr, nullptr);
}

char* QSRTContext::getErrorInfo(char* buffer, size_t& size)
{
   return rtxErrGetText(&mCtxt, buffer, &size);
}

void QSRTContext::printErrorInfo()
{
   rtxErrPrint(&mCtxt);
}

void QSRTContext::resetErrorInfo()
{
   mStatus = 0;
   rtxErrReset(&mCtxt);
}

QSRTCtxtHolder::QSRTCtxtHolder(QSRTContext* pContext)
   : mpContext((pContext != nullptr) ? pContext : new (std::nothrow) QSRTContext())
{
}

QSCTXT* QSRTCtxtHolder::getCtxtPtr()
{
   return (mpContext && mpContext->isInitialized()) ? mpContext->getPtr() : nullptr;
}

int QSRTCtxtHolder::getStatus()
{
   return mpContext ? mpContext->getStatus() : RTERR_CONTEXT_NOT_INITIALIZED;
}
