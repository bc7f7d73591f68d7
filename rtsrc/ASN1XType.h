/*
 * Base of the control classes, which bind a value structure to a message
 * buffer and pick the codec from the buffer's type, and base of the value
 * structures of messages, which keep their decode context alive.
 */
#ifndef ASN1XTYPE_H
#define ASN1XTYPE_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/QSRTContext.h"
#include "rtxsrc/QSRTMessageBuffer.h"

class ASN1XType {
protected:
   QSRTCtxtPtr mpContext;
   QSRTMessageBufferIF* mpMsgBuf;

   /* With a new context of its own, no buffer bound. */
   ASN1XType();
   /* On the buffer's context, with the buffer bound. */
   ASN1XType(QSRTMessageBufferIF& msgBuf);

public:
   virtual ~ASN1XType();
   virtual int Encode();
   virtual int Decode(unsigned char flag = 0);
   /* Codec dispatch of the derived class; RTERR_FEATURE_NOT_SUPPORTED here. */
   virtual int EncodeTo(QSRTMessageBufferIF& msgBuf);
   virtual int DecodeFrom(QSRTMessageBufferIF& msgBuf, unsigned char flag = 0);
   /* Frees the decoded contents of the value; nothing here. */
   virtual void MemFree();

   QSCTXT* getCtxtPtr();
   int getStatus();
   /* Binds msgBuf (and with initBuffer runs its init()); returns the status. */
   int setMsgBuf(QSRTMessageBufferIF& msgBuf, unsigned char initBuffer);
   void* memAlloc(size_t nbytes);
   QSRTCtxtPtr getContext() { return mpContext; }
};

class ASN1TPDU {
protected:
   QSRTCtxtPtr mpContext;

public:
   ASN1TPDU() {}
   virtual ~ASN1TPDU() {}
   /* Holds a reference to ctx (drops the one held before). */
   void setContext(QSRTContext* ctx) { mpContext = ctx; }
   /* Null when there is no context. */
   QSCTXT* getCtxtPtr() const { return mpContext ? mpContext->getPtr() : nullptr; }
};

#endif
