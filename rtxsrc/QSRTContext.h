/*
 * Reference-counted owner of a context, its smart pointer and a holder.
 */
#ifndef QSRTCONTEXT_H
#define QSRTCONTEXT_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

class QSRTContext {
protected:
   QSCTXT mCtxt;
   QSINT32 mCount;         /* references held through QSRTCtxtPtr */
   int mStatus;
   QSBOOL mbInitialized;

public:
   QSRTContext();
   virtual ~QSRTContext();

   QSRTContext(const QSRTContext&) = delete;
   QSRTContext& operator=(const QSRTContext&) = delete;

   QSCTXT* getPtr() { return &mCtxt; }
   const QSCTXT* getPtr() const { return &mCtxt; }

   void _ref() { mCount++; }
   /* Drops one reference; the last one deletes the object. */
   void _unref();
   QSINT32 getRefCount() const { return mCount; }

   /* Stored status when set, else the aggregate status of the error list. */
   int getStatus();
   void setStatus(int status) { mStatus = status; }
   QSBOOL isInitialized() const { return mbInitialized; }

   /* Stores the licence key (not copied). */
   virtual int setRunTimeKey(const unsigned char* key, size_t keylen);

   /* Error report of the context (see rtxErrGetText, rtxErrPrint, rtxErrReset). */
   char* getErrorInfo();
   char* getErrorInfo(char* buffer, size_t& size);
   void printErrorInfo();
   void resetErrorInfo();
};

/* Smart pointer holding one reference to a QSRTContext. */
class QSRTCtxtPtr {
   QSRTContext* mPtr;

public:
   QSRTCtxtPtr(QSRTContext* p = nullptr) : mPtr(p) { if (mPtr != nullptr) mPtr->_ref(); }
   QSRTCtxtPtr(const QSRTCtxtPtr& o) : QSRTCtxtPtr(o.mPtr) {}
   ~QSRTCtxtPtr() { if (mPtr != nullptr) mPtr->_unref(); }

   QSRTCtxtPtr& operator=(const QSRTCtxtPtr& o) { return (*this = o.mPtr); }
   QSRTCtxtPtr& operator=(QSRTContext* p)
   {
      if (p != nullptr) p->_ref();
      if (mPtr != nullptr) mPtr->_unref();
      mPtr = p;
      return *this;
   }

   QSRTContext* get() const { return mPtr; }
   QSRTContext* operator->() const { return mPtr; }
   explicit operator bool() const { return mPtr != nullptr; }
};

/* Holds a context: the one given, or a new one of its own. */
class QSRTCtxtHolder {
protected:
   QSRTCtxtPtr mpContext;

public:
   explicit QSRTCtxtHolder(QSRTContext* pContext = nullptr);
   virtual ~QSRTCtxtHolder() {}

   QSRTCtxtPtr getContext() { return mpContext; }
   /* Raw context; null when there is none or it is not initialised. */
   QSCTXT* getCtxtPtr();
   /* Status of the context; RTERR_CONTEXT_NOT_INITIALIZED without one. */
   int getStatus();
};

#endif
