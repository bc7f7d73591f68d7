#include "rtxsrc/rtxContext.h"

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
   std::memset(static_cast<void*>(ctxt), 0, sizeof(QSCTXT));
   rtxDListInit(&ctxt->errInfoList);
   rtxDListInit(&ctxt->elemNameStack);
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
   rtxErrReset(ctxt);

   for (int i = 0; i < 4; i++) {
      if (ctxt->pAppInfo[i] != nullptr && ctxt->pAppInfoFree[i] != nullptr)
         ctxt->pAppInfoFree[i](ctxt, ctxt->pAppInfo[i]);
      ctxt->pAppInfo[i] = nullptr;
      ctxt->pAppInfoFree[i] = nullptr;
   }

   bool sysBuf = ctxt->pStream != nullptr && (ctxt->pStream->flags & QSRTSTRMF_SYSBUF);
   rtxStreamRelease(ctxt);
   ctxt->pPrintStrmCB = nullptr;
   ctxt->pPrintStrmCBArg = nullptr;

   if (ctxt->pBitFldList != nullptr) {
      rtxMemHeapFreePtr(ctxt, ctxt->pBitFldList);
      ctxt->pBitFldList = nullptr;
   }
   if (ctxt->buffer.dynamic && ctxt->buffer.data != nullptr) {
      if (sysBuf) rtxMemHeapSysFreePtr(ctxt, ctxt->buffer.data);
      else if (!rtxMemHeapIsEmpty(ctxt)) rtxMemHeapFreePtr(ctxt, ctxt->buffer.data);
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

/* Pushes a node for name. With extra > 0 the name is to be stored in the
 * node's own allocation: extra bytes right after the node. */
QSRTDListNode* pushNameNode(QSCTXT* ctxt, const QSUTF8CHAR* name, size_t extra)
{
   if (ctxt == nullptr) return nullptr;
   QSRTDListNode* node =
      static_cast<QSRTDListNode*>(rtxMemHeapAlloc(ctxt, sizeof(QSRTDListNode) + extra));
   if (node == nullptr) return nullptr;
   node->data = (extra > 0) ? static_cast<void*>(node + 1)
                            : const_cast<void*>(static_cast<const void*>(name));
   return rtxDListAppendNode(&ctxt->elemNameStack, node);
}

}  // namespace

int rtxCtxtPushElemName(QSCTXT* ctxt, const QSUTF8CHAR* name)
{
   return (pushNameNode(ctxt, name, 0) != nullptr) ? 0 : RTERR_NO_DYNAMIC_MEMORY;
}

int rtxCtxtPushElemNameCopy(QSCTXT* ctxt, const QSUTF8CHAR* name)
{
   if (name == nullptr) return rtxCtxtPushElemName(ctxt, name);
   size_t len = std::strlen(reinterpret_cast<const char*>(name)) + 1;
   QSRTDListNode* node = pushNameNode(ctxt, name, len);
   if (node == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   std::memcpy(node->data, name, len);
   return 0;
}

int rtxCtxtPushArrayElemName(QSCTXT* ctxt, const QSUTF8CHAR* name, QSSIZE index)
{
   const char* text = (name != nullptr) ? reinterpret_cast<const char*>(name) : "";
   size_t size = (size_t)std::snprintf(nullptr, 0, "%s[%zu]", text, index) + 1;
   QSRTDListNode* node = pushNameNode(ctxt, name, size);
   if (node == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   std::snprintf(static_cast<char*>(node->data), size, "%s[%zu]", text, index);
   return 0;
}

QSBOOL rtxCtxtPopElemName(QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->elemNameStack.tail == nullptr) return FALSE;
   QSRTDListNode* node = ctxt->elemNameStack.tail;
   rtxDListRemove(&ctxt->elemNameStack, node);
   rtxMemHeapFreePtr(ctxt, node);
   return TRUE;
}

QSBOOL rtxCtxtPopElemNameCopy(QSCTXT* ctxt)
{
   return rtxCtxtPopElemName(ctxt);
}

QSBOOL rtxCtxtPopArrayElemName(QSCTXT* ctxt)
{
   return rtxCtxtPopElemName(ctxt);
}

void rtxCtxtPopAllElemNames(QSCTXT* ctxt)
{
   while (rtxCtxtPopElemName(ctxt)) {
   }
}

const QSUTF8CHAR* rtxCtxtPeekElemName(const QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->elemNameStack.tail == nullptr) return nullptr;
   return static_cast<const QSUTF8CHAR*>(ctxt->elemNameStack.tail->data);
}

char* rtxCtxtGetElemNamePath(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return nullptr;
   size_t total = 0;
   for (QSRTDListNode* n = ctxt->elemNameStack.head; n != nullptr; n = n->next) {
      if (n->data != nullptr) total += std::strlen(static_cast<const char*>(n->data)) + 1;
   }
   if (total == 0) return nullptr;
   char* path = static_cast<char*>(rtxMemHeapAlloc(ctxt, total));
   if (path == nullptr) return nullptr;
   char* p = path;
   for (QSRTDListNode* n = ctxt->elemNameStack.head; n != nullptr; n = n->next) {
      if (n->data == nullptr) continue;
      if (p != path) *p++ = '.';
      size_t len = std::strlen(static_cast<const char*>(n->data));
      std::memcpy(p, n->data, len);
      p += len;
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
