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
void rtxDListInit(QSRTDList* list);

/* Appends data in a new node allocated from the context heap; null when no memory. */
QSRTDListNode* rtxDListAppend(QSCTXT* ctxt, QSRTDList* list, void* data);

/* Appends a node the caller has allocated; returns the node. */
QSRTDListNode* rtxDListAppendNode(QSRTDList* list, QSRTDListNode* node);

/* Unlinks a node from the list (the node itself is not freed). */
void rtxDListRemove(QSRTDList* list, QSRTDListNode* node);

/* Frees the nodes only and re-initialises the list. */
void rtxDListFreeNodes(QSCTXT* ctxt, QSRTDList* list);

/* Frees each node's data (rtxMemHeapFreePtr) and the nodes, re-initialises the list. */
void rtxDListFreeAll(QSCTXT* ctxt, QSRTDList* list);

#endif
