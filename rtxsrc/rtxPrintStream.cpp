#include "rtxsrc/rtxPrintStream.h"

#include <cstdio>

namespace {
rtxPrintCallback g_printCB = nullptr;
void* g_printCBArg = nullptr;
}

int rtxSetPrintStream(QSCTXT* ctxt, rtxPrintCallback myCallback, void* pStrmInfo)
{
   if (ctxt == nullptr) return -1;
   ctxt->pPrintStrmCB = myCallback;
   ctxt->pPrintStrmCBArg = (myCallback != nullptr) ? pStrmInfo : nullptr;
   return 0;
}

int rtxSetGlobalPrintStream(rtxPrintCallback myCallback, void* pStrmInfo)
{
   g_printCB = myCallback;
   g_printCBArg = (myCallback != nullptr) ? pStrmInfo : nullptr;
   return 0;
}

int rtxPrintToStreamV(QSCTXT* ctxt, const char* fmt, va_list args)
{
   if (ctxt != nullptr && ctxt->pPrintStrmCB != nullptr) {
      ctxt->pPrintStrmCB(ctxt->pPrintStrmCBArg, fmt, args);
   }
   else if (g_printCB != nullptr) {
      g_printCB(g_printCBArg, fmt, args);
   }
   else {
      std::vprintf(fmt, args);
      std::fflush(stdout);
   }
   return 0;
}

int rtxPrintToStream(QSCTXT* ctxt, const char* fmt, ...)
{
   va_list args;
   va_start(args, fmt);
   int stat = rtxPrintToStreamV(ctxt, fmt, args);
   va_end(args);
   return stat;
}

int rtxPrintStreamRelease(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return -1;
   ctxt->pPrintStrmCB = nullptr;
   ctxt->pPrintStrmCBArg = nullptr;
   return 0;
}
