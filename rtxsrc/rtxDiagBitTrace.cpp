#include "rtxsrc/rtxDiagBitTrace.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxPrintStream.h"

namespace {

inline QSRTDiagBitFieldList* listOf(const QSCTXT* ctxt)
{
   return static_cast<QSRTDiagBitFieldList*>(ctxt->pBitFldList);
}

inline QSUINT64 curBitPos(const QSCTXT* ctxt)
{
   return (QSUINT64)ctxt->buffer.byteIndex * 8u + (QSUINT64)(8 - ctxt->buffer.bitOffset);
}

/* Heap copy of the element path (names joined with '.'), or null. */
inline const char* copyElemPath(QSCTXT* ctxt)
{
   if (ctxt->elemNameStack.count == 0) return nullptr;
   return rtxCtxtGetElemNamePath(ctxt);
}

void freeField(QSCTXT* ctxt, QSRTDiagBitField* f)
{
   if (f->pOpenTypeFieldList != nullptr) {
      rtxDiagBitFieldListReset(ctxt, f->pOpenTypeFieldList);
      rtxMemHeapFreePtr(ctxt, f->pOpenTypeFieldList);
   }
   if (f->elemName != nullptr) rtxMemHeapFreePtr(ctxt, const_cast<char*>(f->elemName));
   rtxMemHeapFreePtr(ctxt, f);
}

void appendPart(std::string& s, const char* part)
{
   if (part == nullptr || *part == '\0') return;
   if (!s.empty()) s += '.';
   s += part;
}

inline int bitAt(const QSOCTET* data, QSSIZE size, QSUINT64 pos)
{
   QSSIZE idx = (QSSIZE)(pos / 8);
   if (idx >= size) return 0;
   return (data[idx] >> (7 - (pos % 8))) & 1;
}

/* Prints the rows of one field: field bits as 0/1, gap bits up to gapEnd
 * as 'x', anything else in a row as '-'. */
void printRows(QSCTXT* ctxt, const QSOCTET* data, QSSIZE size,
               QSUINT64 start, QSUINT64 fieldEnd, QSUINT64 gapEnd)
{
   QSUINT64 end = (gapEnd > fieldEnd) ? gapEnd : fieldEnd;
   if (end <= start) return;
   QSUINT64 firstByte = start / 8;
   QSUINT64 lastByte = (end + 7) / 8;     /* exclusive */
   for (QSUINT64 row = firstByte; row < lastByte; row += 4) {
      char bits[36];
      char hex[9];
      char chars[5];
      int bi = 0;
      for (int k = 0; k < 4; k++) {
         QSUINT64 byteIdx = row + (QSUINT64)k;
         bool inRange = byteIdx < lastByte;
         for (int j = 0; j < 8; j++) {
            QSUINT64 pos = byteIdx * 8 + (QSUINT64)j;
            char c = '-';
            if (inRange) {
               if (pos >= start && pos < fieldEnd) {
                  c = bitAt(data, size, pos) ? '1' : '0';
               }
               else if (pos >= fieldEnd && pos < gapEnd) {
                  c = 'x';
               }
            }
            bits[bi++] = c;
         }
         if (k < 3) bits[bi++] = ' ';
         if (inRange && byteIdx < size) {
            QSOCTET ob = data[byteIdx];
            std::snprintf(hex + 2 * k, 3, "%02x", (unsigned)ob);
            chars[k] = (ob < 0x20 || ob > 0x7E) ? '.' : (char)ob;
         }
         else {
            hex[2 * k] = '-';
            hex[2 * k + 1] = '-';
            chars[k] = '-';
         }
      }
      bits[bi] = '\0';
      hex[8] = '\0';
      chars[4] = '\0';
      rtxPrintToStream(ctxt, "%-35.35s    %-8.8s    %-4.4s\n", bits, hex, chars);
   }
}

void printList(QSCTXT* ctxt, QSRTDiagBitFieldList* pList, const QSOCTET* data,
               QSSIZE size, QSUINT64 bitBase, const char* varname)
{
   QSRTDiagBitField* f = pList->head;
   QSINT64 adjust = 0;
   if (f != nullptr && f->nameSuffix == nullptr && f->elemName == nullptr && f->numbits == 0) {
      adjust = (QSINT64)f->bitOffset;
      rtxPrintToStream(ctxt, "bit adjustment set to %d\n", (int)adjust);
      f = f->next;
   }
   for (; f != nullptr; f = f->next) {
      std::string title;
      appendPart(title, varname);
      appendPart(title, f->elemName);
      appendPart(title, f->nameSuffix);
      rtxPrintToStream(ctxt, "%s\n", title.c_str());

      QSUINT64 off = f->bitOffset + (QSUINT64)adjust;
      QSUINT64 fieldEnd = off + f->numbits;
      QSUINT64 gapEnd = fieldEnd;
      if (f->next != nullptr) {
         QSUINT64 nextOff = f->next->bitOffset + (QSUINT64)adjust;
         if (nextOff > fieldEnd) gapEnd = nextOff;
      }
      rtxPrintToStream(ctxt, "bit offset: %d\tbit count: %d\tnext bit offset: %d\n",
                       (int)off, (int)f->numbits, (int)fieldEnd);
      printRows(ctxt, data, size, bitBase + off, bitBase + fieldEnd, bitBase + gapEnd);

      if (f->pOpenTypeFieldList != nullptr) {
         /* The content starts at the field's first bit; copy it to a
            byte-aligned scratch buffer to print the nested fields. */
         QSUINT64 startBit = bitBase + off;
         QSSIZE nbytes = (QSSIZE)((f->numbits + 7) / 8);
         std::vector<QSOCTET> content(nbytes, 0);
         for (QSUINT64 i = 0; i < f->numbits; i++) {
            if (bitAt(data, size, startBit + i)) {
               content[(QSSIZE)(i / 8)] |= (QSOCTET)(0x80u >> (i % 8));
            }
         }
         rtxPrintToStream(ctxt, "*** Open Type Data ***\n");
         printList(ctxt, f->pOpenTypeFieldList, content.data(), nbytes, 0, nullptr);
         rtxPrintToStream(ctxt, "***\n");
      }
      rtxPrintToStream(ctxt, "\n");
      pList->pLastPrinted = f;
   }
}

} // namespace

QSRTDiagBitFieldList* rtxDiagNewBitFieldList(QSCTXT* ctxt)
{
   void* p = rtxMemHeapAllocZ(ctxt, sizeof(QSRTDiagBitFieldList));
   return static_cast<QSRTDiagBitFieldList*>(p);
}

QSBOOL rtxDiagSetBitTrace(QSCTXT* ctxt, QSBOOL value)
{
   QSBOOL prev = rtxDiagBitTraceOn(ctxt) ? 1 : 0;
   if (value) {
      if (ctxt->pBitFldList == nullptr) {
         ctxt->pBitFldList = rtxDiagNewBitFieldList(ctxt);
         if (ctxt->pBitFldList == nullptr) return prev;
      }
      ctxt->flags |= QSTRACE;
   }
   else {
      ctxt->flags &= ~(QSUINT32)QSTRACE;
   }
   return prev;
}

void rtxDiagBitFieldListReset(QSCTXT* ctxt, QSRTDiagBitFieldList* pList)
{
   if (pList == nullptr) return;
   QSRTDiagBitField* f = pList->head;
   while (f != nullptr) {
      QSRTDiagBitField* next = f->next;
      freeField(ctxt, f);
      f = next;
   }
   if (pList->pPendingOpenType != nullptr) {
      rtxDiagBitFieldListReset(ctxt, pList->pPendingOpenType);
      rtxMemHeapFreePtr(ctxt, pList->pPendingOpenType);
   }
   pList->head = pList->tail = nullptr;
   pList->count = 0;
   pList->pLastPrinted = nullptr;
   pList->pPendingOpenType = nullptr;
}

void rtxDiagBitTraceReset(QSCTXT* ctxt)
{
   if (ctxt->pBitFldList != nullptr) rtxDiagBitFieldListReset(ctxt, listOf(ctxt));
}

QSRTDiagBitField* rtxDiagNewBitField(QSCTXT* ctxt, const char* nameSuffix)
{
   if (!rtxDiagBitTraceOn(ctxt)) return nullptr;
   QSRTDiagBitFieldList* pList = listOf(ctxt);
   if (pList == nullptr || pList->disabledCount != 0) return nullptr;
   QSRTDiagBitField* f =
      static_cast<QSRTDiagBitField*>(rtxMemHeapAllocZ(ctxt, sizeof(QSRTDiagBitField)));
   if (f == nullptr) return nullptr;
   f->elemName = copyElemPath(ctxt);
   f->nameSuffix = nameSuffix;
   f->bitOffset = curBitPos(ctxt);
   if (pList->pPendingOpenType != nullptr && nameSuffix != nullptr &&
       std::strcmp(nameSuffix, "OpenType") == 0) {
      f->pOpenTypeFieldList = pList->pPendingOpenType;
      pList->pPendingOpenType = nullptr;
   }
   if (pList->tail != nullptr) pList->tail->next = f;
   else pList->head = f;
   pList->tail = f;
   pList->count++;
   return f;
}

void rtxDiagSetBitFldCount(QSCTXT* ctxt)
{
   if (!rtxDiagBitTraceOn(ctxt)) return;
   QSRTDiagBitFieldList* pList = listOf(ctxt);
   if (pList == nullptr || pList->disabledCount != 0 || pList->tail == nullptr) return;
   QSUINT64 pos = curBitPos(ctxt);
   QSRTDiagBitField* f = pList->tail;
   f->numbits = (pos > f->bitOffset) ? pos - f->bitOffset : 0;
}

void rtxDiagSetBitFldOffset(QSCTXT* ctxt)
{
   if (!rtxDiagBitTraceOn(ctxt)) return;
   QSRTDiagBitFieldList* pList = listOf(ctxt);
   if (pList == nullptr || pList->disabledCount != 0 || pList->tail == nullptr) return;
   pList->tail->bitOffset = curBitPos(ctxt);
}

void rtxDiagInsBitFieldLen(QSCTXT* ctxt)
{
   if (!rtxDiagBitTraceOn(ctxt)) return;
   QSRTDiagBitFieldList* pList = listOf(ctxt);
   if (pList == nullptr || pList->disabledCount != 0 || pList->tail == nullptr) return;
   QSRTDiagBitField* open = pList->tail;
   QSRTDiagBitField* len =
      static_cast<QSRTDiagBitField*>(rtxMemHeapAllocZ(ctxt, sizeof(QSRTDiagBitField)));
   if (len == nullptr) return;
   QSUINT64 pos = curBitPos(ctxt);
   /* The length record takes the open field's place in the list. */
   *len = *open;
   len->nameSuffix = "length";
   len->numbits = (pos > open->bitOffset) ? pos - open->bitOffset : 0;
   len->pOpenTypeFieldList = nullptr;
   len->next = open;
   if (open->elemName != nullptr) {
      size_t n = std::strlen(open->elemName) + 1;
      char* p = static_cast<char*>(rtxMemHeapAlloc(ctxt, n));
      if (p != nullptr) std::memcpy(p, open->elemName, n);
      len->elemName = p;
   }
   open->bitOffset = pos;
   open->numbits = 0;
   if (pList->head == open) {
      pList->head = len;
   }
   else {
      QSRTDiagBitField* prev = pList->head;
      while (prev->next != open) prev = prev->next;
      prev->next = len;
   }
   pList->count++;
}

void rtxDiagBitTraceDisable(QSCTXT* ctxt)
{
   if (!rtxDiagBitTraceOn(ctxt) || ctxt->pBitFldList == nullptr) return;
   listOf(ctxt)->disabledCount++;
}

void rtxDiagBitTraceEnable(QSCTXT* ctxt)
{
   if (!rtxDiagBitTraceOn(ctxt) || ctxt->pBitFldList == nullptr) return;
   QSRTDiagBitFieldList* pList = listOf(ctxt);
   if (pList->disabledCount > 0) pList->disabledCount--;
}

void* rtxDiagBitTraceBeginOpenType(QSCTXT* ctxt)
{
   if (!rtxDiagBitTraceOn(ctxt) || ctxt->pBitFldList == nullptr) return nullptr;
   QSRTDiagBitFieldList* saved = listOf(ctxt);
   QSRTDiagBitFieldList* inner = rtxDiagNewBitFieldList(ctxt);
   if (inner == nullptr) return nullptr;
   ctxt->pBitFldList = inner;
   return saved;
}

void rtxDiagBitTraceEndOpenType(QSCTXT* ctxt, void* pSavedList)
{
   if (pSavedList == nullptr) return;
   QSRTDiagBitFieldList* inner = listOf(ctxt);
   QSRTDiagBitFieldList* outer = static_cast<QSRTDiagBitFieldList*>(pSavedList);
   ctxt->pBitFldList = outer;
   if (inner == nullptr || inner == outer) return;
   if (outer->pPendingOpenType != nullptr) {
      rtxDiagBitFieldListReset(ctxt, outer->pPendingOpenType);
      rtxMemHeapFreePtr(ctxt, outer->pPendingOpenType);
   }
   outer->pPendingOpenType = inner;
}

void rtxDiagBitFieldListPrint(QSCTXT* ctxt, QSRTDiagBitFieldList* pList,
                              const QSOCTET* pData, QSSIZE dataSize, QSUINT64 bitBase)
{
   if (pList == nullptr) return;
   printList(ctxt, pList, pData, dataSize, bitBase, nullptr);
}

void rtxDiagBitTracePrint(QSCTXT* ctxt, const char* varname)
{
   QSRTDiagBitFieldList* pList = listOf(ctxt);
   if (pList == nullptr) return;
   if (ctxt->buffer.data == nullptr && ctxt->pStream != nullptr) {
      rtxPrintToStream(ctxt, "~E ERROR: capture buffer was not assigned to stream\n");
      return;
   }
   /* Bytes of the message: the written part when encoding (partial last
      byte included), the whole input when decoding. */
   QSSIZE size = ctxt->buffer.size;
   printList(ctxt, pList, ctxt->buffer.data, size, 0, varname);
}
