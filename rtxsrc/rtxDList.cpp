#include "rtxsrc/rtxDList.h"

#include <cstdint>

#include "rtxsrc/rtxMemory.h"

QSRTDListNode* rtxDListAppendNode(QSRTDList* list, QSRTDListNode* node)
{
   node->next = nullptr;
   node->prev = list->tail;
   if (list->tail != nullptr) list->tail->next = node;
   else list->head = node;
   list->tail = node;
   list->count++;
   return node;
}

QSRTDListNode* rtxDListAppend(QSCTXT* ctxt, QSRTDList* list, void* data)
{
   QSRTDListNode* node = static_cast<QSRTDListNode*>(rtxMemHeapAlloc(ctxt, sizeof(QSRTDListNode)));
   if (node == nullptr) return nullptr;
   node->data = data;
   return rtxDListAppendNode(list, node);
}

void* rtxDListAppendNew(QSCTXT* ctxt, QSRTDList* list, size_t size)
{
   static_assert(sizeof(QSRTDListNode) % 8 == 0, "the data after a node is 8-byte aligned");
   if (size > SIZE_MAX - sizeof(QSRTDListNode)) return nullptr;
   QSRTDListNode* node = static_cast<QSRTDListNode*>(rtxMemHeapAlloc(ctxt, sizeof(QSRTDListNode) + size));
   if (node == nullptr) return nullptr;
   node->data = node + 1;
   rtxDListAppendNode(list, node);
   return node->data;
}

void rtxDListRemove(QSRTDList* list, QSRTDListNode* node)
{
   if (node->prev != nullptr) node->prev->next = node->next;
   else list->head = node->next;
   if (node->next != nullptr) node->next->prev = node->prev;
   else list->tail = node->prev;
   node->next = node->prev = nullptr;
   list->count--;
}

namespace {

void freeNodes(QSCTXT* ctxt, QSRTDList* list, bool withData)
{
   QSRTDListNode* node = list->head;
   while (node != nullptr) {
      QSRTDListNode* next = node->next;
      /* data allocated with its node (rtxDListAppendNew) goes with the node */
      if (withData && node->data != nullptr && node->data != static_cast<void*>(node + 1))
         rtxMemHeapFreePtr(ctxt, node->data);
      rtxMemHeapFreePtr(ctxt, node);
      node = next;
   }
   rtxDListInit(list);
}

}  // namespace

void rtxDListFreeNodes(QSCTXT* ctxt, QSRTDList* list)
{
   freeNodes(ctxt, list, false);
}

void rtxDListFreeAll(QSCTXT* ctxt, QSRTDList* list)
{
   freeNodes(ctxt, list, true);
}
