#include "rtxsrc/rtxDList.h"

#include "rtxsrc/rtxMemory.h"

void rtxDListInit(QSRTDList* list)
{
   list->count = 0;
   list->head = list->tail = nullptr;
}

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
      if (withData && node->data != nullptr) rtxMemHeapFreePtr(ctxt, node->data);
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
