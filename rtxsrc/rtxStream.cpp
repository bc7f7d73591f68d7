#include "rtxsrc/rtxStream.h"

#include <cstring>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxMemory.h"

int rtxStreamMemoryAttach(QSCTXT* ctxt, const QSOCTET* data, QSSIZE size, QSUINT16 mode)
{
   if (ctxt == nullptr || (data == nullptr && size != 0)) return RTERR_INVALID_PARAMETER;
   if (ctxt->pStream != nullptr) return RTERR_STREAM_IN_USE;
   if (mode != QSRTSTRMF_INPUT) return RTERR_FEATURE_NOT_SUPPORTED;
   QSRTStream* strm = static_cast<QSRTStream*>(rtxMemHeapAllocZ(ctxt, sizeof(QSRTStream)));
   if (strm == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   strm->data = data;
   strm->size = size;
   strm->flags = mode;
   ctxt->pStream = strm;
   return 0;
}

long rtxStreamRead(QSCTXT* ctxt, QSOCTET* buf, size_t n)
{
   if (ctxt == nullptr || (buf == nullptr && n != 0)) return RTERR_INVALID_PARAMETER;
   QSRTStream* strm = ctxt->pStream;
   if (strm == nullptr || !(strm->flags & QSRTSTRMF_INPUT)) return RTERR_READ_ERROR;
   size_t left = strm->size - strm->pos;
   if (n > left) n = left;
   if (n > 0) std::memcpy(buf, strm->data + strm->pos, n);
   strm->pos += n;
   return (long)n;
}

int rtxStreamRelease(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (ctxt->pStream != nullptr) {
      rtxMemHeapFreePtr(ctxt, ctxt->pStream);
      ctxt->pStream = nullptr;
   }
   return 0;
}

QSBOOL rtxStreamBindInput(QSCTXT* ctxt)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.data != nullptr && b.byteIndex < b.size) return TRUE;
   QSRTStream* s = ctxt->pStream;
   if (s == nullptr || !(s->flags & QSRTSTRMF_INPUT) || s->pos >= s->size) return FALSE;
   if (b.dynamic && b.data != nullptr) rtxMemHeapFreePtr(ctxt, b.data);
   b.data = const_cast<QSOCTET*>(s->data + s->pos);
   b.size = s->size - s->pos;
   b.byteIndex = 0;
   b.bitOffset = 8;
   b.dynamic = 0;
   s->pos = s->size;
   return TRUE;
}
