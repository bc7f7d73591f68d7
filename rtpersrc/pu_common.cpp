#include "rtpersrc/perInternal.h"
#include "rtxsrc/rtxContext.h"

#define PER_MODULE "../../rtpersrc/pu_common.cpp"

namespace {
const QSUINT32 kCtxtInitCode = 0x1aa2a34a;   /* context initialised */
const QSSIZE kDynBufSize = 1024;             /* first size of a dynamic buffer */
}

QSUINT32 pu_bitcnt(QSUINT64 value)
{
   return (value == 0) ? 0 : (QSUINT32)(64 - __builtin_clzll(value));
}

int pu_setBuffer(QSCTXT* ctxt, QSOCTET* bufaddr, QSSIZE bufsiz, QSBOOL aligned)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   /* an uninitialised context cannot record anything */
   if (ctxt->initCode != kCtxtInitCode) return RTERR_CONTEXT_NOT_INITIALIZED;
   QSRTBuffer& b = ctxt->buffer;
   if (bufaddr == nullptr) {
      /* A fresh dynamic buffer; a previous one is left alone (it may have
         been saved by the caller, e.g. around an open type's content) and
         goes with the heap. */
      QSOCTET* p = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, kDynBufSize));
      if (p == nullptr) return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      b.data = p;
      b.size = kDynBufSize;
      b.dynamic = 1;
   }
   else {
      b.data = bufaddr;
      b.size = bufsiz;
      b.dynamic = 0;
   }
   b.byteIndex = 0;
   b.bitOffset = 8;
   b.aligned = aligned ? 1 : 0;
   pu_clearSizeConstraint(ctxt);
   return 0;
}

void pu_setAligned(QSCTXT* ctxt, QSBOOL value)
{
   ctxt->buffer.aligned = value ? 1 : 0;
}

QSSIZE pu_getMsgLen(QSCTXT* ctxt)
{
   return ctxt->buffer.byteIndex + ((ctxt->buffer.bitOffset != 8) ? 1 : 0);
}

int pu_checkSizeExt(const _Asn1SizeCnst* pSize, QSUINT64 value)
{
   if (pSize == nullptr || !pSize->constrained) return 0;
   if (value >= pSize->lower && value <= pSize->upper) return 0;
   return pSize->extensible ? 1 : RTERR_VALUE_CONSTRAINT_VIOLATION;
}

int pu_addSizeConstraint(QSCTXT* ctxt, const _Asn1SizeCnst* pSize)
{
   if (pSize == nullptr) return 0;
   _Asn1SizeCnst& cur = ctxt->sizeCnst;
   if (!cur.constrained) {
      cur = *pSize;
      return 0;
   }
   if (pSize->lower < cur.lower || pSize->upper > cur.upper) {
      rtxErrAddStrParm(ctxt, "SIZE constraint");
      rtxErrAddUInt64Parm(ctxt, pSize->lower);
      return PER_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
   }
   return 0;
}

int pu_setSizeConstraint(QSCTXT* ctxt, QSUINT64 lower, QSUINT64 upper, QSBOOL extensible)
{
   _Asn1SizeCnst c;
   c.lower = lower;
   c.upper = upper;
   c.constrained = 1;
   c.extensible = extensible ? 1 : 0;
   int stat = pu_addSizeConstraint(ctxt, &c);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

QSBOOL pu_setTrace(QSCTXT* ctxt, QSBOOL value)
{
   return rtxDiagSetBitTrace(ctxt, value);
}

void pu_pushElemName(QSCTXT* ctxt, const char* name)
{
   rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)name);
}

void pu_popElemName(QSCTXT* ctxt)
{
   rtxCtxtPopElemName(ctxt);
}

void pu_bindump(QSCTXT* ctxt, const char* varname)
{
   rtxDiagBitTracePrint(ctxt, varname);
}

void pe_resetBuffer(QSCTXT* ctxt)
{
   ctxt->buffer.byteIndex = 0;
   ctxt->buffer.bitOffset = 8;
   pu_clearSizeConstraint(ctxt);
   rtxDiagBitTraceReset(ctxt);
}

QSOCTET* pe_GetMsgPtr(QSCTXT* ctxt, QSSIZE* pLength)
{
   if (pLength != nullptr) *pLength = pu_getMsgLen(ctxt);
   return ctxt->buffer.data;
}
