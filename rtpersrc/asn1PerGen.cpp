#include "rtpersrc/asn1PerGen.h"

static const char* const THIS_FILE = "../../rtpersrc/asn1PerGen.cpp";
#define LOG_RTERR(ctxt, stat) rtxErrSetData(ctxt, stat, THIS_FILE, __LINE__)

int pe_ConsBits64(QSCTXT* ctxt, QSUINT64 value, QSUINT32 nbits)
{
   pu_newField(ctxt, "ConsInteger");
   int stat = rtxEncBitsFromSize(ctxt, value, nbits);
   pu_setFldBitCount(ctxt);
   return stat == 0 ? 0 : LOG_RTERR(ctxt, stat);
}

int pd_ConsBits64(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT32 nbits)
{
   pu_newField(ctxt, "ConsInteger");
   int stat = rtxDecBitsToUInt64(ctxt, pvalue, nbits);
   pu_setFldBitCount(ctxt);
   return stat == 0 ? 0 : LOG_RTERR(ctxt, stat);
}

int pe_SemiConsInt64(QSCTXT* ctxt, QSINT64 value, QSINT64 lower)
{
   if (value < lower) {
      rtxErrAddInt64Parm(ctxt, value);
      return LOG_RTERR(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
   }
   QSUINT64 offset = (QSUINT64)value - (QSUINT64)lower;
   QSUINT32 nocts = 1;
   while (nocts < 8 && (offset >> (nocts * 8)) != 0) nocts++;
   pu_newField(ctxt, "SemiConsInteger");
   int stat = rtxEncBits(ctxt, nocts, 8);
   if (stat == 0) stat = rtxEncBitsFromSize(ctxt, offset, nocts * 8);
   pu_setFldBitCount(ctxt);
   return stat == 0 ? 0 : LOG_RTERR(ctxt, stat);
}

int pd_SemiConsInt64(QSCTXT* ctxt, QSINT64* pvalue, QSINT64 lower)
{
   QSUINT32 nocts;
   QSUINT64 offset;
   pu_newField(ctxt, "SemiConsInteger");
   int stat = rtxDecBits(ctxt, &nocts, 8);
   if (stat == 0 && (nocts == 0 || nocts > 8)) stat = RTERR_VALUE_WILL_NOT_FIT;
   if (stat == 0) stat = rtxDecBitsToUInt64(ctxt, &offset, nocts * 8);
   pu_setFldBitCount(ctxt);
   if (stat != 0) return LOG_RTERR(ctxt, stat);
   *pvalue = (QSINT64)((QSUINT64)lower + offset);
   return 0;
}

int pe_OpenTypeBegin(QSCTXT* ctxt, QSPEROpenTypeState* pState)
{
   pState->buffer = ctxt->buffer;
   pState->sizeCnst = ctxt->sizeCnst;
   pState->pStream = ctxt->pStream;
   ctxt->pStream = 0;
   pState->pTraceList = pu_beginOpenTypeTrace(ctxt);
   int stat = pu_setBuffer(ctxt, 0, 0, ctxt->buffer.aligned);
   if (stat != 0) {
      ctxt->buffer = pState->buffer;
      ctxt->pStream = pState->pStream;
      pu_endOpenTypeTrace(ctxt, pState->pTraceList);
      return LOG_RTERR(ctxt, stat);
   }
   return 0;
}

int pe_OpenTypeEnd(QSCTXT* ctxt, QSPEROpenTypeState* pState, int stat)
{
   QSOCTET* content = ctxt->buffer.data;
   QSSIZE length = pu_getMsgLen(ctxt);
   ctxt->buffer = pState->buffer;
   ctxt->sizeCnst = pState->sizeCnst;
   ctxt->pStream = pState->pStream;
   pu_endOpenTypeTrace(ctxt, pState->pTraceList);
   if (stat == 0) stat = pe_OpenType(ctxt, length, content);
   rtxMemHeapFreePtr(ctxt, content);
   return stat == 0 ? 0 : LOG_RTERR(ctxt, stat);
}

int pd_OpenTypeBegin(QSCTXT* ctxt, QSUINT64* pEndBit)
{
   QSUINT32 length;
   int stat = pd_UnconsLength(ctxt, &length);
   if (stat < 0) return LOG_RTERR(ctxt, stat);
   if (stat == 2) {
      rtxErrAddStrParm(ctxt, "fragmented open type");
      return LOG_RTERR(ctxt, RTERR_FEATURE_NOT_SUPPORTED);
   }
   *pEndBit = rtxGetBitPos(ctxt) + (QSUINT64)length * 8u;
   if ((QSUINT64)length * 8u > rtxGetBitsLeft(ctxt)) return LOG_RTERR(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   return 0;
}

int pd_OpenTypeEnd(QSCTXT* ctxt, QSUINT64 endBit)
{
   QSUINT64 pos = rtxGetBitPos(ctxt);
   if (pos > endBit) return LOG_RTERR(ctxt, RTERR_OPEN_TYPE_OVERRUN);
   if (pos < endBit) {
      int stat = rtxMoveBitCursor(ctxt, (QSINT64)(endBit - pos));
      if (stat != 0) return LOG_RTERR(ctxt, stat);
   }
   return 0;
}

int pd_OpenTypeRaw(QSCTXT* ctxt, QSUINT64 endBit, ASN1TOpenType** ppOpenType)
{
   QSSIZE nbytes = (QSSIZE)((endBit - rtxGetBitPos(ctxt)) / 8u);
   ASN1TOpenType* ot = (ASN1TOpenType*)rtxMemHeapAllocZ(ctxt, sizeof(ASN1TOpenType));
   QSOCTET* data = nbytes > 0 ? (QSOCTET*)rtxMemHeapAlloc(ctxt, nbytes) : 0;
   if (ot == 0 || (nbytes > 0 && data == 0)) {
      rtxMemHeapFreePtr(ctxt, ot);
      return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   pu_newField(ctxt, "OpenType");
   int stat = rtxDecBitsToByteArray(ctxt, data, nbytes, nbytes * 8u);
   pu_setFldBitCount(ctxt);
   if (stat != 0) {
      rtxMemHeapFreePtr(ctxt, data);
      rtxMemHeapFreePtr(ctxt, ot);
      return LOG_RTERR(ctxt, stat);
   }
   ot->numocts = (QSUINT32)nbytes;
   ot->data = data;
   *ppOpenType = ot;
   return 0;
}
