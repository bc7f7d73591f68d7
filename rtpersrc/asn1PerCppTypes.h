/*
 * PER message buffers: the encode buffer (ASN1PEREncodeBuffer) and the
 * decode buffer (ASN1PERDecodeBuffer) over a context of their own or a
 * shared one.
 */
#ifndef ASN1PERCPPTYPES_H
#define ASN1PERCPPTYPES_H

#include "rtpersrc/asn1per.h"
#include "rtxsrc/QSRTMessageBuffer.h"
#include "rtxsrc/QSRTContext.h"

class ASN1PERMessageBuffer : public QSRTMessageBuffer {
protected:
   /* Dynamic buffer (unless an output stream is attached to the context). */
   ASN1PERMessageBuffer(Type bufferType, QSBOOL aligned);
   /* Caller's buffer. */
   ASN1PERMessageBuffer(Type bufferType, QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned);
   /* Caller's buffer on a shared context. */
   ASN1PERMessageBuffer(Type bufferType, QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned,
                        QSRTContext* pContext);

public:
   /* Prints the traced bit fields (see pu_bindump). */
   void binDump(const char* varname = nullptr);

   /* Message length in bytes (pu_getMsgLen). */
   size_t getMsgLen() override;

   /* Switches the bit trace on or off; returns the previous state. */
   QSBOOL setTrace(QSBOOL value);

   /* Re-installs a buffer, keeping the aligned flag. */
   int setBuffer(const QSOCTET* pMsgBuf, size_t msgBufLen);

   /* Moves the cursor to the next byte boundary (always, whatever the
    * aligned flag): the last partial byte of a message is closed. */
   int byteAlign();

   QSBOOL isAligned();

   /* Bit position of the cursor. */
   size_t getBitOffset();
};

class ASN1PEREncodeBuffer : public ASN1PERMessageBuffer {
public:
   explicit ASN1PEREncodeBuffer(QSBOOL aligned);
   ASN1PEREncodeBuffer(QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned);
   ASN1PEREncodeBuffer(QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned,
                       QSRTContext* pContext);

   /* Resets the position for reuse (pe_resetBuffer). */
   int init() override;

   /* Encoded bytes (null when the context status is non-zero). */
   QSOCTET* getMsgPtr() override;

   /* New array (delete[]) with a copy of the message; null on error. */
   QSOCTET* getMsgCopy() override;

   QSBOOL isA(Type bufferType) override;

   /* Length determinant under cnst (or the pending constraint); returns the
    * number of items to write next or a negative status. */
   int encodeLength(size_t length, const _Asn1SizeCnst* cnst = nullptr);

   /* BIT STRING (isBits) or OCTET STRING of n items under cnst. */
   int encodeBitOrOctStr(size_t n, const QSOCTET* data, const _Asn1SizeCnst* cnst,
                         QSBOOL isBits);

   size_t getMsgLen() override { return ASN1PERMessageBuffer::getMsgLen(); }
};

class ASN1PERDecodeBuffer : public ASN1PERMessageBuffer {
   void refuseNullInput();

public:
   /* The caller's bytes are used in place (not copied). */
   ASN1PERDecodeBuffer(const QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned);
   ASN1PERDecodeBuffer(const QSOCTET* pMsgBuf, size_t msgBufLen, QSBOOL aligned,
                       QSRTContext* pContext);
   /* Loads a whole file (readBinaryFile); a failure is kept as the status. */
   ASN1PERDecodeBuffer(const char* filePath, QSBOOL aligned);

   QSBOOL isA(Type bufferType) override;

   /* Resets the cursor to the start of the input. */
   int init() override;

   /* Loads a file into a buffer from the context heap. */
   int readBinaryFile(const char* filePath);

   int decodeBits(QSUINT32 nbits, QSUINT32& value);
   int decodeBits(QSUINT32 nbits, QSOCTET* buffer, size_t bufsize);
   int decodeBytes(size_t nbytes, QSOCTET* buffer, size_t bufsize);
   /* Next byte-aligned octet without consuming it. */
   int peekByte(QSOCTET& ub);
   /* Reads n bytes (at most bufsize) into buffer. */
   int readBytes(QSOCTET* buffer, size_t bufsize, size_t nbytes);
};

#endif
