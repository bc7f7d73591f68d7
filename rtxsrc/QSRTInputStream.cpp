#include "rtxsrc/QSRTInputStream.h"

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxStream.h"

QSRTInputStream::QSRTInputStream() : QSRTCtxtHolder(nullptr)
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
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   int stat = rtxStreamMemoryAttach(ctxt, data, length, QSRTSTRMF_INPUT);
   if (stat != 0) {
      mpContext->setStatus(stat);
      rtxErrSetData(ctxt, stat, "../../rtxsrc/QSRTMemoryInputStream", 36);
   }
}
