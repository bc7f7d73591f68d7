#include "rtxsrc/QSRTInputStream.h"

#include <new>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxStream.h"

QSRTInputStream::QSRTInputStream() : QSRTCtxtHolder(nullptr)
{
}

QSRTInputStream::QSRTInputStream(QSRTContext* pContext) : QSRTCtxtHolder(pContext)
{
}

long QSRTInputStream::read(QSOCTET* buffer, size_t n)
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? rtxStreamRead(ctxt, buffer, n) : RTERR_CONTEXT_NOT_INITIALIZED;
}

QSBOOL QSRTInputStream::isInitialized()
{
   return getCtxtPtr() != nullptr;
}

QSRTMemoryInputStream::QSRTMemoryInputStream(const unsigned char* data, size_t length)
   : QSRTMemoryInputStream(data, length, nullptr)
{
}

QSRTMemoryInputStream::QSRTMemoryInputStream(const unsigned char* data, size_t length,
                                             QSRTContext* pContext)
   : QSRTInputStream(pContext)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   /* no memory at all is not an empty text: the readers must refuse it, not read nothing */
   int stat = (data != nullptr) ? rtxStreamMemoryAttach(ctxt, data, length, QSRTSTRMF_INPUT)
                                : RTERR_INVALID_PARAMETER;
   if (stat != 0) {
      mpContext->setStatus(stat);
      rtxErrSetData(ctxt, stat, "../../rtxsrc/QSRTMemoryInputStream", 36);
   }
}

QSRTInputStream* QSRTMemoryInputStream::create(const unsigned char* data, size_t length)
{
   if (data == nullptr) return nullptr;
   return new (std::nothrow) QSRTMemoryInputStream(data, length);
}
