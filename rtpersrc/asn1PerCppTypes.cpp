#include "rtpersrc/asn1PerCppTypes.h"

#include <cstdio>
#include <cstring>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

#define PER_MODULE "asn1PerCppTypes"
#define PER_LOG(ctxt, stat) rtxErrSetData(ctxt, stat, PER_MODULE, __LINE__)

/* ---- ASN1PERMessageBuffer ------------------------------------------------------------------- */

ASN1PERMessageBuffer::ASN1PERMessageBuffer(Type bufferType, QSBOOL aligned)
   : QSRTMessageBuffer(bufferType)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   if (ctxt->pStream == nullptr) {
      int stat = pu_setBuffer(ctxt, nullptr, 0, aligned);
      if (stat != 0) PER_LOG(ctxt, stat);
   }
   else {
      pu_setAligned(ctxt, aligned);
   }
}

ASN1PERMessageBuffer::ASN1PERMessageBuffer(Type bufferType, QSOCTET* pMsgBuf, size_t msgBufLen,
                                           QSBOOL aligned)
   : QSRTMessageBuffer(bufferType)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   int stat = pu_setBuffer(ctxt, pMsgBuf, msgBufLen, aligned);
   if (stat != 0) PER_LOG(ctxt, stat);
}

ASN1PERMessageBuffer::ASN1PERMessageBuffer(Type bufferType, QSOCTET* pMsgBuf, size_t msgBufLen,
                                           QSBOOL aligned, QSRTContext* pContext)
   : QSRTMessageBuffer(bufferType, pContext)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   int stat = pu_setBuffer(ctxt, pMsgBuf, msgBufLen, aligned);
   if (stat != 0) PER_LOG(ctxt, stat);
}

void ASN1PERMessageBuffer::binDump(const char* varname)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt != nullptr) pu_bindump(ctxt, varname);
}

size_t ASN1PERMessageBuffer::getMsgLen()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? pu_getMsgLen(ctxt) : 0;
}

QSBOOL ASN1PERMessageBuffer::setTrace(QSBOOL value)
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? pu_setTrace(ctxt, value) : 0;
}

int ASN1PERMessageBuffer::setBuffer(const QSOCTET* pMsgBuf, size_t msgBufLen)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = pu_setBuffer(ctxt, const_cast<QSOCTET*>(pMsgBuf), msgBufLen, ctxt->buffer.aligned);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int ASN1PERMessageBuffer::byteAlign()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   QSRTBuffer& b = ctxt->buffer;
   if (b.bitOffset != 8) {
      b.byteIndex++;
      b.bitOffset = 8;
   }
   return 0;
}

QSBOOL ASN1PERMessageBuffer::isAligned()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? ctxt->buffer.aligned : 0;
}

size_t ASN1PERMessageBuffer::getBitOffset()
{
   QSCTXT* ctxt = getCtxtPtr();
   return (ctxt != nullptr) ? (size_t)rtxGetBitPos(ctxt) : 0;
}

/* ---- ASN1PEREncodeBuffer -------------------------------------------------------------------- */

ASN1PEREncodeBuffer::ASN1PEREncodeBuffer(QSBOOL aligned)
   : ASN1PERMessageBuffer(PEREncode, aligned)
{
}

ASN1PEREncodeBuffer::ASN1PEREncodeBuffer(QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned)
   : ASN1PERMessageBuffer(PEREncode, pMsgBuf, msgBufLen, aligned)
{
}

ASN1PEREncodeBuffer::ASN1PEREncodeBuffer(QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned,
                                         QSRTContext* pContext)
   : ASN1PERMessageBuffer(PEREncode, pMsgBuf, msgBufLen, aligned, pContext)
{
}

int ASN1PEREncodeBuffer::init()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   pe_resetBuffer(ctxt);
   return 0;
}

QSOCTET* ASN1PEREncodeBuffer::getMsgPtr()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || rtxErrGetStatus(ctxt) != 0) return nullptr;
   return pe_GetMsgPtr(ctxt, nullptr);
}

QSOCTET* ASN1PEREncodeBuffer::getMsgCopy()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr || rtxErrGetStatus(ctxt) != 0 || ctxt->buffer.data == nullptr) {
      return nullptr;
   }
   size_t len = pu_getMsgLen(ctxt);
   QSOCTET* copy = new QSOCTET[len > 0 ? len : 1];
   if (len > 0) std::memcpy(copy, ctxt->buffer.data, len);
   return copy;
}

QSBOOL ASN1PEREncodeBuffer::isA(Type bufferType)
{
   return bufferType == PEREncode;
}

int ASN1PEREncodeBuffer::encodeLength(size_t length, const _Asn1SizeCnst* cnst)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = pu_addSizeConstraint(ctxt, cnst);
   if (stat == 0) stat = pe_Length(ctxt, length);
   return (stat < 0) ? PER_LOG(ctxt, stat) : stat;
}

int ASN1PEREncodeBuffer::encodeBitOrOctStr(size_t n, const QSOCTET* data,
                                           const _Asn1SizeCnst* cnst, QSBOOL isBits)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = pu_addSizeConstraint(ctxt, cnst);
   if (stat == 0) stat = isBits ? pe_BitString(ctxt, n, data) : pe_OctetString(ctxt, n, data);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

/* ---- ASN1PERDecodeBuffer -------------------------------------------------------------------- */

ASN1PERDecodeBuffer::ASN1PERDecodeBuffer(const QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned)
   : ASN1PERMessageBuffer(PERDecode, const_cast<QSOCTET*>(pMsgBuf), msgBufLen, aligned)
{
   if (pMsgBuf == nullptr) refuseNullInput();
}

ASN1PERDecodeBuffer::ASN1PERDecodeBuffer(const QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned,
                                         QSRTContext* pContext)
   : ASN1PERMessageBuffer(PERDecode, const_cast<QSOCTET*>(pMsgBuf), msgBufLen, aligned,
                          pContext)
{
   if (pMsgBuf == nullptr) refuseNullInput();
}

/* Without the caller's bytes the base has set up an output buffer of its own, whose contents
 * would be decoded as if they were a message: leave nothing to read and keep the failure, so
 * that every decode on this buffer is refused. */
void ASN1PERDecodeBuffer::refuseNullInput()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   ctxt->buffer.size = 0;
   ctxt->buffer.byteIndex = 0;
   rtxErrAddStrParm(ctxt, "data");
   setStatus(PER_LOG(ctxt, RTERR_INVALID_PARAMETER));
}

ASN1PERDecodeBuffer::ASN1PERDecodeBuffer(const char* filePath, QSBOOL aligned)
   : ASN1PERMessageBuffer(PERDecode, nullptr, 0, aligned)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return;
   int stat = readBinaryFile(filePath);
   if (stat != 0) setStatus(stat);
}

QSBOOL ASN1PERDecodeBuffer::isA(Type bufferType)
{
   return bufferType == PERDecode;
}

int ASN1PERDecodeBuffer::init()
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   ctxt->buffer.byteIndex = 0;
   ctxt->buffer.bitOffset = 8;
   pu_clearSizeConstraint(ctxt);
   rtxDiagBitTraceReset(ctxt);
   return 0;
}

int ASN1PERDecodeBuffer::readBinaryFile(const char* filePath)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   if (filePath == nullptr) return PER_LOG(ctxt, RTERR_INVALID_PARAMETER);
   std::FILE* fp = std::fopen(filePath, "rb");
   if (fp == nullptr) return PER_LOG(ctxt, RTERR_FILE_NOT_FOUND);
   long size = -1;
   if (std::fseek(fp, 0, SEEK_END) == 0) size = std::ftell(fp);
   if (size < 0 || std::fseek(fp, 0, SEEK_SET) != 0) {
      std::fclose(fp);
      return PER_LOG(ctxt, RTERR_READ_ERROR);
   }
   QSOCTET* data = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, size > 0 ? (size_t)size : 1));
   if (data == nullptr) {
      std::fclose(fp);
      return PER_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   size_t got = (size > 0) ? std::fread(data, 1, (size_t)size, fp) : 0;
   std::fclose(fp);
   if (got != (size_t)size) {
      rtxMemHeapFreePtr(ctxt, data);
      return PER_LOG(ctxt, RTERR_READ_ERROR);
   }
   int stat = pu_setBuffer(ctxt, data, (QSSIZE)size, ctxt->buffer.aligned);
   if (stat != 0) return PER_LOG(ctxt, stat);
   ctxt->buffer.dynamic = 1;     /* the bytes belong to the context */
   return 0;
}

int ASN1PERDecodeBuffer::decodeBits(QSUINT32 nbits, QSUINT32& value)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = rtxDecBits(ctxt, &value, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int ASN1PERDecodeBuffer::decodeBits(QSUINT32 nbits, QSOCTET* buffer, size_t bufsize)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = rtxDecBitsToByteArray(ctxt, buffer, bufsize, nbits);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int ASN1PERDecodeBuffer::decodeBytes(size_t nbytes, QSOCTET* buffer, size_t bufsize)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   int stat = rtxDecBitsToByteArray(ctxt, buffer, bufsize, nbytes * 8);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}

int ASN1PERDecodeBuffer::peekByte(QSOCTET& ub)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   QSRTBuffer& b = ctxt->buffer;
   QSSIZE idx = b.byteIndex + ((b.bitOffset != 8) ? 1 : 0);
   if (idx >= b.size) return PER_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   ub = b.data[idx];
   return 0;
}

int ASN1PERDecodeBuffer::readBytes(QSOCTET* buffer, size_t bufsize, size_t nbytes)
{
   QSCTXT* ctxt = getCtxtPtr();
   if (ctxt == nullptr) return RTERR_CONTEXT_NOT_INITIALIZED;
   if (nbytes > bufsize) return PER_LOG(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);
   int stat = rtxDecBitsToByteArray(ctxt, buffer, bufsize, nbytes * 8);
   return (stat != 0) ? PER_LOG(ctxt, stat) : 0;
}
