/*
 * Doubly linked list whose nodes come from a context's memory heap.
 */
#ifndef RTXDLIST_H
#define RTXDLIST_H

#include "rtxsrc/qstypes.h"

struct QSCTXT;

struct QSRTDListNode {
   void* data;
   QSRTDListNode* next;
   QSRTDListNode* prev;
};

struct QSRTDList {
   QSSIZE count;
   QSRTDListNode* head;
   QSRTDListNode* tail;
};

/* Makes the list empty (does not free anything). */
inline void rtxDListInit(QSRTDList* list)
{
   list->count = 0;
   list->head = list->tail = nullptr;
}

/* Appends data in a new node allocated from the context heap; null when no memory. */
QSRTDListNode* rtxDListAppend(QSCTXT* ctxt, QSRTDList* list, void* data);

/* Appends a new node whose data is a block of size bytes (not initialised, 8-byte aligned)
 * allocated together with the node, in one allocation from the context heap; returns the data,
 * null when no memory. Such data is freed with its node, by rtxDListFreeAll and also by
 * rtxDListFreeNodes, and must not be freed on its own. */
void* rtxDListAppendNew(QSCTXT* ctxt, QSRTDList* list, size_t size);

/* Appends a node the caller has allocated; returns the node. */
QSRTDListNode* rtxDListAppendNode(QSRTDList* list, QSRTDListNode* node);

/* Unlinks a node from the list (the node itself is not freed). */
void rtxDListRemove(QSRTDList* list, QSRTDListNode* node);

/* Frees the nodes only and re-initialises the list. */
void rtxDListFreeNodes(QSCTXT* ctxt, QSRTDList* list);

/* Frees each node's data (rtxMemHeapFreePtr) and the nodes, re-initialises the list. */
void rtxDListFreeAll(QSCTXT* ctxt, QSRTDList* list);

#endif
