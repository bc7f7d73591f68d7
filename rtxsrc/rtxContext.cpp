#include "rtxsrc/rtxContext.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

#define MODULE "../../rtxsrc/rtxContext.cpp"

namespace {

const QSSIZE DEF_DYNBUF_SIZE = 1024;

inline bool isInitialized(const QSCTXT* ctxt)
{
   return ctxt != nullptr && ctxt->initCode == QSCTXT_INIT_CODE;
}

}  // namespace

/* ---- life cycle ------------------------------------------------------------------------------- */

int rtxPreInitContext(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   /* the inline element names and the heap record are written before they are read */
   std::memset(static_cast<void*>(ctxt), 0, offsetof(QSCTXT, elemNameStack.inlineNames));
   rtxDListInit(&ctxt->errInfoList);
   rtxDListInit(&ctxt->containerStack);
   ctxt->initCode = QSCTXT_INIT_CODE;
   ctxt->buffer.bitOffset = 8;
   ctxt->spare = 0;
   return 0;
}

int rtxInitContextExt(QSCTXT* ctxt, void* (*allocFunc)(size_t),
                      void* (*reallocFunc)(void*, size_t), void (*freeFunc)(void*))
{
   rtxErrInit();
   int stat = rtxPreInitContext(ctxt);
   return (stat != 0) ? stat : rtxMemHeapCreateExt(ctxt, allocFunc, reallocFunc, freeFunc);
}

int rtxInitContext(QSCTXT* ctxt)
{
   return rtxInitContextExt(ctxt, nullptr, nullptr, nullptr);
}

int rtxInitContextUsingKey(QSCTXT* ctxt, const QSOCTET* key, QSSIZE keylen)
{
   int stat = rtxInitContext(ctxt);
   if (stat == 0) {
      ctxt->key = key;
      ctxt->keylen = keylen;
   }
   return stat;
}

void rtxFreeContext(QSCTXT* ctxt)
{
   if (!isInitialized(ctxt)) return;
   ctxt->flags |= QSNOERRTRACE;
   /* the context dies: the error records, names and containers matter only for what they hold
    * in the heap, and a context without any is left as it is */
   if (ctxt->errInfoList.count != 0 || ctxt->errInfo.parmcnt != 0 || ctxt->errInfo.elemName != nullptr ||
       ctxt->elemNameStack.count != 0 || ctxt->elemNameStack.more != nullptr ||
       ctxt->containerStack.tail != nullptr)
      rtxErrReset(ctxt);

   for (int i = 0; i < 4; i++) {
      if (ctxt->pAppInfo[i] != nullptr && ctxt->pAppInfoFree[i] != nullptr)
         ctxt->pAppInfoFree[i](ctxt, ctxt->pAppInfo[i]);
      ctxt->pAppInfo[i] = nullptr;
      ctxt->pAppInfoFree[i] = nullptr;
   }

   bool sysBuf = ctxt->pStream != nullptr && (ctxt->pStream->flags & QSRTSTRMF_SYSBUF);
   /* what lives in a heap that goes with this context need not be freed piece by piece */
   bool heapDies = ctxt->pMemHeap != nullptr && ctxt->pMemHeap->refCnt == 1;
   if (heapDies) ctxt->pStream = nullptr;
   else rtxStreamRelease(ctxt);
   ctxt->pPrintStrmCB = nullptr;
   ctxt->pPrintStrmCBArg = nullptr;

   if (ctxt->pBitFldList != nullptr) {
      if (!heapDies) rtxMemHeapFreePtr(ctxt, ctxt->pBitFldList);
      ctxt->pBitFldList = nullptr;
   }
   if (ctxt->buffer.dynamic && ctxt->buffer.data != nullptr) {
      if (sysBuf) rtxMemHeapSysFreePtr(ctxt, ctxt->buffer.data);
      else if (!heapDies && !rtxMemHeapIsEmpty(ctxt)) rtxMemHeapFreePtr(ctxt, ctxt->buffer.data);
      ctxt->buffer.data = nullptr;
   }
   rtxMemHeapRelease(ctxt);

   if (ctxt->pFreeCB != nullptr) ctxt->pFreeCB(ctxt);
   else ctxt->initCode = 0;
}

int rtxCopyContext(QSCTXT* dest, QSCTXT* src)
{
   if (dest == nullptr || src == nullptr) return RTERR_INVALID_PARAMETER;
   if (!isInitialized(dest) || !isInitialized(src)) return RTERR_CONTEXT_NOT_INITIALIZED;
   if (dest == src) return 0;
   dest->buffer = src->buffer;
   dest->buffer.dynamic = FALSE;
   dest->flags = src->flags;
   dest->sizeCnst = src->sizeCnst;
   dest->level = src->level;
   dest->key = src->key;
   dest->keylen = src->keylen;
   return rtxErrCopy(dest, src);
}

int rtxInitContextBuffer(QSCTXT* ctxt, QSOCTET* buffer, QSSIZE bufsiz)
{
   if (!isInitialized(ctxt)) return RTERR_CONTEXT_NOT_INITIALIZED;
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* old = b.dynamic ? b.data : nullptr;
   if (buffer == nullptr) {
      if (bufsiz == 0) bufsiz = DEF_DYNBUF_SIZE;
      buffer = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, bufsiz));
      if (buffer == nullptr) return rtxErrSetData(ctxt, RTERR_NO_DYNAMIC_MEMORY, MODULE, __LINE__);
      b.dynamic = TRUE;
   }
   else {
      b.dynamic = FALSE;
   }
   if (old != nullptr) rtxMemHeapFreePtr(ctxt, old);
   b.data = buffer;
   b.size = bufsiz;
   b.byteIndex = 0;
   b.bitOffset = 8;
   return 0;
}

int rtxCtxtSetAppInfo(QSCTXT* ctxt, int slot, void* info, rtxAppInfoFreeFunc freeFunc)
{
   if (ctxt == nullptr || slot < 0 || slot >= 4) return RTERR_INVALID_PARAMETER;
   ctxt->pAppInfo[slot] = info;
   ctxt->pAppInfoFree[slot] = freeFunc;
   return 0;
}

/* ---- flags ------------------------------------------------------------------------------------ */

void rtxCtxtSetFlag(QSCTXT* ctxt, QSUINT32 mask)
{
   if (ctxt != nullptr) ctxt->flags |= mask;
}

void rtxCtxtClearFlag(QSCTXT* ctxt, QSUINT32 mask)
{
   if (ctxt != nullptr) ctxt->flags &= ~mask;
}

QSBOOL rtxCtxtTestFlag(const QSCTXT* ctxt, QSUINT32 mask)
{
   return ctxt != nullptr && (ctxt->flags & mask) != 0;
}

QSBOOL rtxSetDiag(QSCTXT* ctxt, QSBOOL value)
{
   QSBOOL prev = rtxDiagEnabled(ctxt);
   if (value) rtxCtxtSetFlag(ctxt, QSDIAG);
   else rtxCtxtClearFlag(ctxt, QSDIAG);
   return prev;
}

QSBOOL rtxDiagEnabled(const QSCTXT* ctxt)
{
   return rtxCtxtTestFlag(ctxt, QSDIAG);
}

/* ---- bit position ----------------------------------------------------------------------------- */

QSSIZE rtxCtxtGetBitOffset(const QSCTXT* ctxt)
{
   return ctxt->buffer.byteIndex * 8 + (QSSIZE)(8 - ctxt->buffer.bitOffset);
}

int rtxCtxtSetBitOffset(QSCTXT* ctxt, QSSIZE offset)
{
   return rtxCtxtResetToBitPos(ctxt, offset / 8, (QSINT16)(8 - offset % 8));
}

void rtxCtxtMarkBitPos(const QSCTXT* ctxt, QSSIZE* pByteIndex, QSINT16* pBitOffset)
{
   *pByteIndex = ctxt->buffer.byteIndex;
   *pBitOffset = ctxt->buffer.bitOffset;
}

int rtxCtxtResetToBitPos(QSCTXT* ctxt, QSSIZE byteIndex, QSINT16 bitOffset)
{
   if (bitOffset < 1 || bitOffset > 8 || byteIndex > ctxt->buffer.size ||
       (byteIndex == ctxt->buffer.size && bitOffset != 8))
      return RTERR_INVALID_PARAMETER;
   ctxt->buffer.byteIndex = byteIndex;
   ctxt->buffer.bitOffset = bitOffset;
   return 0;
}

/* ---- element-name stack ----------------------------------------------------------------------- */

namespace {

inline QSElemName* nameEntries(QSCTXT* ctxt)
{
   QSElemNameStack& st = ctxt->elemNameStack;
   return st.more != nullptr ? st.more : st.inlineNames;
}

/* A new top entry, or null when the stack cannot grow. */
QSElemName* pushName(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return nullptr;
   QSElemNameStack& st = ctxt->elemNameStack;
   QSUINT32 capacity = st.more != nullptr ? st.capacity : QS_ELEMNAME_INLINE;
   if (st.count == capacity) {
      QSElemName* grown = static_cast<QSElemName*>(rtxMemHeapAlloc(ctxt, sizeof(QSElemName) * capacity * 2));
      if (grown == nullptr) return nullptr;
      std::memcpy(grown, nameEntries(ctxt), sizeof(QSElemName) * st.count);
      if (st.more != nullptr) rtxMemHeapFreePtr(ctxt, st.more);
      st.more = grown;
      st.capacity = capacity * 2;
   }
   return &nameEntries(ctxt)[st.count++];
}

/* Appends the text of one entry to p (when given) and returns its length. */
size_t entryText(const QSElemName& e, char* p)
{
   const char* name = e.name != nullptr ? reinterpret_cast<const char*>(e.name) : "";
   size_t len = std::strlen(name);
   if (p != nullptr) std::memcpy(p, name, len);
   if (e.kind != 1) return len;
   char digits[24];
   int nd = 0;
   QSSIZE v = e.index;
   do {
      digits[nd++] = (char)('0' + v % 10);
      v /= 10;
   } while (v != 0);
   if (p != nullptr) {
      p[len] = '[';
      for (int i = 0; i < nd; i++) p[len + 1 + i] = digits[nd - 1 - i];
      p[len + 1 + nd] = ']';
   }
   return len + (size_t)nd + 2;
}

}  // namespace

int rtxCtxtPushElemNameEntry(QSCTXT* ctxt, const QSUTF8CHAR* name, QSSIZE index, QSUINT8 kind)
{
   QSElemName* e = pushName(ctxt);
   if (e == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   e->name = name;
   e->index = index;
   e->kind = kind;
   return 0;
}

int rtxCtxtPushElemNameCopy(QSCTXT* ctxt, const QSUTF8CHAR* name)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (name == nullptr || (ctxt->flags & QSNOELEMNAMES)) return rtxCtxtPushElemName(ctxt, name);
   size_t len = std::strlen(reinterpret_cast<const char*>(name)) + 1;
   QSUTF8CHAR* copy = static_cast<QSUTF8CHAR*>(rtxMemHeapAlloc(ctxt, len));
   QSElemName* e = copy != nullptr ? pushName(ctxt) : nullptr;
   if (e == nullptr) {
      rtxMemHeapFreePtr(ctxt, copy);
      return RTERR_NO_DYNAMIC_MEMORY;
   }
   std::memcpy(copy, name, len);
   e->name = copy;
   e->kind = 2;
   return 0;
}

QSBOOL rtxCtxtPopElemNameEntry(QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->elemNameStack.count == 0) return FALSE;
   QSElemName& e = nameEntries(ctxt)[--ctxt->elemNameStack.count];
   if (e.kind == 2) rtxMemHeapFreePtr(ctxt, const_cast<QSUTF8CHAR*>(e.name));
   return TRUE;
}

QSBOOL rtxCtxtPopElemNameCopy(QSCTXT* ctxt)
{
   return ctxt != nullptr && rtxCtxtPopElemName(ctxt);
}

QSBOOL rtxCtxtPopArrayElemName(QSCTXT* ctxt)
{
   return ctxt != nullptr && rtxCtxtPopElemName(ctxt);
}

void rtxCtxtPopAllElemNames(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return;
   while (rtxCtxtPopElemName(ctxt)) {
   }
   if (ctxt != nullptr && ctxt->elemNameStack.more != nullptr) {
      rtxMemHeapFreePtr(ctxt, ctxt->elemNameStack.more);
      ctxt->elemNameStack.more = nullptr;
      ctxt->elemNameStack.capacity = 0;
   }
}

const QSUTF8CHAR* rtxCtxtPeekElemName(const QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->elemNameStack.count == 0) return nullptr;
   const QSElemNameStack& st = ctxt->elemNameStack;
   return (st.more != nullptr ? st.more : st.inlineNames)[st.count - 1].name;
}

char* rtxCtxtGetElemNamePath(QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->elemNameStack.count == 0) return nullptr;
   const QSElemName* entries = nameEntries(ctxt);
   QSUINT32 n = ctxt->elemNameStack.count;
   size_t total = 0;
   for (QSUINT32 i = 0; i < n; i++) total += entryText(entries[i], nullptr) + 1;
   char* path = static_cast<char*>(rtxMemHeapAlloc(ctxt, total));
   if (path == nullptr) return nullptr;
   char* p = path;
   for (QSUINT32 i = 0; i < n; i++) {
      if (p != path) *p++ = '.';
      p += entryText(entries[i], p);
   }
   *p = '\0';
   return path;
}

/* ---- container stack -------------------------------------------------------------------------- */

int rtxCtxtPushContainer(QSCTXT* ctxt, void* container)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   return (rtxDListAppend(ctxt, &ctxt->containerStack, container) != nullptr)
             ? 0 : RTERR_NO_DYNAMIC_MEMORY;
}

void* rtxCtxtPopContainer(QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->containerStack.tail == nullptr) return nullptr;
   QSRTDListNode* node = ctxt->containerStack.tail;
   void* data = node->data;
   rtxDListRemove(&ctxt->containerStack, node);
   rtxMemHeapFreePtr(ctxt, node);
   return data;
}

void* rtxCtxtPeekContainer(const QSCTXT* ctxt)
{
   return (ctxt != nullptr && ctxt->containerStack.tail != nullptr)
             ? ctxt->containerStack.tail->data : nullptr;
}

void rtxCtxtPopAllContainers(QSCTXT* ctxt)
{
   while (ctxt != nullptr && ctxt->containerStack.tail != nullptr) rtxCtxtPopContainer(ctxt);
}
