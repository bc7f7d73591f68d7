/*
 * Recording failures in a context and turning them into text.
 *
 * A failure is recorded where it is detected (rtxErrSetData with the source
 * module and line) and again by every caller passing it up, so that one
 * record collects the stack of places. Texts are built only when asked for.
 */
#ifndef RTXERROR_H
#define RTXERROR_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"

/* ---- status-text registry (process-wide) ------------------------------------------------------ */

/* One table of message templates: code s is covered when end < s <= first,
 * its template is texts[first - s] (a null template has no text). */
struct QSRTErrTableEntry {
   const char* const* texts;
   int first;
   int end;
};

#define QSERR_MAXTABLES 5

/* Registers the runtime's table (-1 down to -99 exclusive). */
int rtxErrInit();

/* 1 when added; 0 when the table is already present or the registry is full. */
int rtxErrAddErrorTableEntry(const char* const* texts, int first, int end);

/* ---- recording -------------------------------------------------------------------------------- */

int rtxErrSetData(QSCTXT* ctxt, int status, const char* module, int lineno);
int rtxErrSetNewData(QSCTXT* ctxt, int status, const char* module, int lineno);

/* Pending parameters for the next record: 1 when stored, 0 when 5 are
 * pending already or there is no memory. */
int rtxErrAddStrParm(QSCTXT* ctxt, const char* text);
int rtxErrAddStrnParm(QSCTXT* ctxt, const char* text, QSSIZE len);
int rtxErrAddIntParm(QSCTXT* ctxt, int value);
int rtxErrAddUIntParm(QSCTXT* ctxt, unsigned int value);
int rtxErrAddInt64Parm(QSCTXT* ctxt, QSINT64 value);
int rtxErrAddUInt64Parm(QSCTXT* ctxt, QSUINT64 value);
int rtxErrAddSizeParm(QSCTXT* ctxt, QSSIZE value);
int rtxErrAddDoubleParm(QSCTXT* ctxt, double value);
int rtxErrAddUniStrParm(QSCTXT* ctxt, const QSUINT16* text);
int rtxErrAddCtxtBufParm(QSCTXT* ctxt);
int rtxErrAddElemNameParm(QSCTXT* ctxt);

/* Adds value as parameter and returns RTERR_INVALID_CHOICE_OPTION. */
int rtxErrInvUIntOpt(QSCTXT* ctxt, QSUINT32 value);

/* ---- inspection ------------------------------------------------------------------------------- */

int rtxErrGetStatus(const QSCTXT* ctxt);
int rtxErrGetFirstError(const QSCTXT* ctxt);
int rtxErrGetLastError(const QSCTXT* ctxt);
QSSIZE rtxErrGetErrorCnt(const QSCTXT* ctxt);
int rtxErrCheckNonFatal(const QSCTXT* ctxt);
void rtxErrSetNonFatal(QSCTXT* ctxt);

/* ---- clean-up and copying --------------------------------------------------------------------- */

void rtxErrResetLastErrors(QSCTXT* ctxt, QSSIZE count);
int rtxErrReset(QSCTXT* ctxt);
void rtxErrFreeParms(QSCTXT* ctxt);
int rtxErrCopy(QSCTXT* dest, QSCTXT* src);
int rtxErrAppend(QSCTXT* dest, QSCTXT* src);

/* ---- texts ------------------------------------------------------------------------------------ */

/* Message of one record into buffer; returns buffer, null for bad arguments. */
char* rtxErrFmtMsg(const QSRTErrInfo* errInfo, char* buffer, QSSIZE bufsize);

/* Full report of all records into buffer; returns buffer. */
char* rtxErrGetTextBuf(QSCTXT* ctxt, char* buffer, QSSIZE bufsize);

/* Full report; from the context heap when buffer or pBufSize is null (the size
 * allocated is stored through pBufSize when given). Null when out of memory. */
char* rtxErrGetText(QSCTXT* ctxt, char* buffer, QSSIZE* pBufSize);

/* Messages only (with element names): from the heap / into buffer. */
char* rtxErrGetMsgText(QSCTXT* ctxt);
char* rtxErrGetMsgTextBuf(QSCTXT* ctxt, char* buffer, QSSIZE bufsize);

/* Prints every record to standard output. */
void rtxErrPrint(QSCTXT* ctxt);

typedef void (*rtxErrLogCallback)(const char* text, void* userArg);

/* Hands the full report to cb, then frees the parameters. */
int rtxErrLogUsingCB(QSCTXT* ctxt, rtxErrLogCallback cb, void* userArg);

/* Prints the failed condition and ends the process with exit status -1. */
[[noreturn]] void rtxErrAssertionFailed(const char* condition, int lineno, const char* fileName);

#endif
