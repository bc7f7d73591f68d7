/*
 * PER bit-field trace.
 *
 * While the context flag QSTRACE is set, the PER primitives record every
 * named bit field they write or read (element path, field name, start bit
 * offset, bit count) in a list hung on the context (ctxt->pBitFldList).
 * The list can then be printed as an annotated bit dump.
 *
 * With tracing off every hook returns after a single flag test.
 */
#ifndef RTXDIAGBITTRACE_H
#define RTXDIAGBITTRACE_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

struct QSRTDiagBitFieldList;

/* One traced bit field. */
struct QSRTDiagBitField {
   const char* elemName;      /* element path (heap copy) or null */
   const char* nameSuffix;    /* field name, a literal (not owned) or null */
   QSUINT64 bitOffset;        /* start of the field, bits from message start */
   QSUINT64 numbits;          /* length of the field in bits */
   QSRTDiagBitFieldList* pOpenTypeFieldList;  /* fields of an open type's content */
   QSRTDiagBitField* next;
};

/* The list of traced fields of one message. */
struct QSRTDiagBitFieldList {
   QSRTDiagBitField* head;
   QSRTDiagBitField* tail;
   QSSIZE count;
   QSRTDiagBitField* pLastPrinted;          /* cursor of the printer */
   QSINT16 disabledCount;                   /* recording happens only at 0 */
   QSRTDiagBitFieldList* pPendingOpenType;  /* captured content list waiting
                                               for the next "OpenType" field */
};

/* True when the bit trace is on for this context. */
inline bool rtxDiagBitTraceOn(const QSCTXT* ctxt)
{
   return (ctxt->flags & QSTRACE) != 0;
}

/* Switches tracing on (creating the field list when needed) or off.
 * Returns the previous state of the flag. */
QSBOOL rtxDiagSetBitTrace(QSCTXT* ctxt, QSBOOL value);

/* Allocates an empty field list from the context heap. */
QSRTDiagBitFieldList* rtxDiagNewBitFieldList(QSCTXT* ctxt);

/* Frees all fields of a list (and their nested lists); the list is kept. */
void rtxDiagBitFieldListReset(QSCTXT* ctxt, QSRTDiagBitFieldList* pList);

/* Empties the context's field list (used when a buffer is reset). */
void rtxDiagBitTraceReset(QSCTXT* ctxt);

/* Opens a new field named nameSuffix at the current bit position. Returns
 * the record, or null when tracing is off / disabled / out of memory. */
QSRTDiagBitField* rtxDiagNewBitField(QSCTXT* ctxt, const char* nameSuffix);

/* Closes the last field: bit count = current bit position - its start. */
void rtxDiagSetBitFldCount(QSCTXT* ctxt);

/* Moves the start of the last field to the current bit position (used
 * after alignment). */
void rtxDiagSetBitFldOffset(QSCTXT* ctxt);

/* Inserts a "length" field in front of the last (open) field; the length
 * field starts at the open field's start and ends at the current bit
 * position, and the open field is restarted at the current position. */
void rtxDiagInsBitFieldLen(QSCTXT* ctxt);

/* Temporarily suspends / resumes recording (nestable). */
void rtxDiagBitTraceDisable(QSCTXT* ctxt);
void rtxDiagBitTraceEnable(QSCTXT* ctxt);

/* Open-type content capture. Begin installs a fresh list on the context and
 * returns the previous one; End restores the previous list and keeps the
 * captured list pending: the next "OpenType" field opened carries it as
 * its nested list. Offsets in the captured list are relative to the start
 * of the content, which is what an encoding into a separate buffer gives.
 * Both are no-ops (returning null) with tracing off. */
void* rtxDiagBitTraceBeginOpenType(QSCTXT* ctxt);
void rtxDiagBitTraceEndOpenType(QSCTXT* ctxt, void* pSavedList);

/* Prints all recorded fields of the context against its buffer through
 * rtxPrintToStream. varname, when given, is printed first. */
void rtxDiagBitTracePrint(QSCTXT* ctxt, const char* varname);

/* Prints one list against the bytes at pData (bit offsets of the fields
 * are relative to pData, adjusted by bitBase). */
void rtxDiagBitFieldListPrint(QSCTXT* ctxt, QSRTDiagBitFieldList* pList,
                              const QSOCTET* pData, QSSIZE dataSize,
                              QSUINT64 bitBase);

#endif
