/*
 * Message buffers: the interface the control classes dispatch on, and the
 * common base of the PER, JSON and XML buffers.
 */
#ifndef QSRTMESSAGEBUFFER_H
#define QSRTMESSAGEBUFFER_H

#include <cstdio>

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtxsrc/QSRTContext.h"

class QSRTMessageBufferIF {
public:
   enum Type { PEREncode = 2, PERDecode = 3, XMLEncode = 4, XMLDecode = 5,
               JSONEncode = 6, JSONDecode = 7 };

   virtual ~QSRTMessageBufferIF() {}
   virtual void* getAppInfo() = 0;
   virtual size_t getByteIndex() = 0;
   virtual QSRTCtxtPtr getContext() = 0;
   virtual QSCTXT* getCtxtPtr() = 0;
   /* New array (delete[]) holding a copy of the message; null on error. */
   virtual QSOCTET* getMsgCopy() = 0;
   virtual QSOCTET* getMsgPtr() = 0;
   /* Prepares the buffer for a new encode or decode. */
   virtual int init() = 0;
   virtual int initBuffer(QSOCTET* buffer, size_t size) = 0;
   /* TRUE for exactly the buffer's own type. */
   virtual QSBOOL isA(Type bufferType) = 0;
   virtual void setAppInfo(void* pAppInfo) = 0;
   /* Namespace declaration for the text forms; nothing by default. */
   virtual void setNamespace(const QSUTF8CHAR* prefix, const QSUTF8CHAR* uri,
                             QSRTDList* pNSAttrs = nullptr);
   virtual void setDiag(QSBOOL value = 1) = 0;
};

class QSRTMessageBuffer : public QSRTMessageBufferIF {
protected:
   QSRTCtxtHolder mCtxtHolder;
   Type mBufferType;
   void* mpAppInfo;

   /* On pContext, or on a new context of its own when null. */
   explicit QSRTMessageBuffer(Type bufferType, QSRTContext* pContext = nullptr);

   /* Reads the whole file into the context heap and attaches it as the context's input
    * stream; a failure is recorded and kept as the buffer's status. A null name: nothing. */
   int attachFileInput(const char* filename);

public:
   ~QSRTMessageBuffer() override {}

   void* getAppInfo() override { return mpAppInfo; }
   size_t getByteIndex() override;
   QSRTCtxtPtr getContext() override { return mCtxtHolder.getContext(); }
   QSCTXT* getCtxtPtr() override { return mCtxtHolder.getCtxtPtr(); }
   QSOCTET* getMsgCopy() override;
   QSOCTET* getMsgPtr() override;
   int init() override;
   int initBuffer(QSOCTET* buffer, size_t size) override;
   void setAppInfo(void* pAppInfo) override { mpAppInfo = pAppInfo; }
   /* Only while the context's status is 0. */
   void setDiag(QSBOOL value = 1) override;

   /* Full error report from the context heap; into the caller's buffer. */
   virtual char* getErrorInfo();
   virtual char* getErrorInfo(char* buffer, size_t& size);
   /* Bytes of the message (the byte index by default). */
   virtual size_t getMsgLen();
   virtual void printErrorInfo();
   virtual void resetErrorInfo();

   /* The message (getMsgPtr, getMsgLen) written to a file opened with mode "wb"
    * (RTERR_FILE_NOT_FOUND when it cannot be opened, RTERR_WRITE_ERROR on a short write) or
    * to an open stream (0 or RTERR_WRITE_ERROR). */
   int writeMsgToFile(const char* filename);
   int writeMsgToStream(FILE* fp);

   int getStatus() { return mCtxtHolder.getStatus(); }
   void setStatus(int status);
   Type getBufferType() const { return mBufferType; }
};

#endif
