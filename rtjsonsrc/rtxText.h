/*
 * Plain-text helpers on the context's message buffer: decimal integer
 * writers and readers, raw text output, whitespace handling and the
 * indentation counter of the text writers.
 *
 * Writers append at buffer.byteIndex, growing a dynamic buffer through the
 * context heap (rtxCheckOutputBuffer); readers consume from
 * buffer.byteIndex. When the context's buffer is empty and an input
 * stream is bound, the readers take the stream's memory as their input.
 */
#ifndef RTXTEXT_H
#define RTXTEXT_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

/* One indentation level, in spaces. */
#define QSINDENTSPACES 3

/* ---- indentation ------------------------------------------------------------------------------ */

/* Adds one level (3 spaces) to the indentation. */
void rtxIndentIncr(QSCTXT* ctxt);

/* Removes one level unless the indentation is already 0. */
void rtxIndentDecr(QSCTXT* ctxt);

/* Current indentation in levels (spaces / 3). */
QSUINT32 rtxGetIndentLevels(QSCTXT* ctxt);

/* ---- writers ---------------------------------------------------------------------------------- */

/* Decimal digits, "-" in front of negative values, no plus sign. */
/* Decimal digits of value written backwards ending at end (room for 20 digits before it);
 * returns the first digit. Two digits per division. */
char* rtxTxtFormatUInt64(char* end, QSUINT64 value);

/* The decimal digits of value stored at p (room for 20 bytes is the caller's); the end. Shared
 * by the inline writers of both text forms. */
QSOCTET* rtxTxtPutDigits(QSOCTET* p, QSUINT64 value);

/* "00" to "99", for the inline writers' one- and two-digit values. */
extern const char rtxTxtDigitPairs[201];

int rtxTxtWriteInt(QSCTXT* ctxt, QSINT32 value);
int rtxTxtWriteUInt(QSCTXT* ctxt, QSUINT32 value);
int rtxTxtWriteInt64(QSCTXT* ctxt, QSINT64 value);
int rtxTxtWriteUInt64(QSCTXT* ctxt, QSUINT64 value);

/* Copies a NUL-terminated text as it is; null or empty writes nothing. */
int rtxCopyAsciiText(QSCTXT* ctxt, const char* text);

/* Copies nbytes bytes as they are. */
int rtxWriteBytes(QSCTXT* ctxt, const QSOCTET* data, QSSIZE nbytes);

/* ---- readers ---------------------------------------------------------------------------------- */

/* Advances over whitespace (0x09..0x0D and 0x20); the end of the input is
 * not an error. Returns 0. */
int rtxTxtSkipWhitespace(QSCTXT* ctxt);

/* Next character without consuming it, after skipping whitespace when
 * skipWhitespace is set; NUL at the end of the input. */
QSUTF8CHAR rtxTxtPeekChar2(QSCTXT* ctxt, QSBOOL skipWhitespace);

/* Decimal integers: whitespace, one optional sign (+ or -), at least one
 * digit; the first non-digit is left unread. A value outside the target
 * type gives RTERR_VALUE_WILL_NOT_FIT, a missing digit
 * RTERR_CHARACTER_NOT_IN_SET, the end of the input
 * RTERR_UNEXPECTED_END_OF_BUFFER. */
int rtxTxtReadInt8(QSCTXT* ctxt, QSINT8* pvalue);
int rtxTxtReadInt16(QSCTXT* ctxt, QSINT16* pvalue);
int rtxTxtReadInt32(QSCTXT* ctxt, QSINT32* pvalue);
int rtxTxtReadInt64(QSCTXT* ctxt, QSINT64* pvalue);
int rtxTxtReadUInt8(QSCTXT* ctxt, QSUINT8* pvalue);
int rtxTxtReadUInt16(QSCTXT* ctxt, QSUINT16* pvalue);
int rtxTxtReadUInt32(QSCTXT* ctxt, QSUINT32* pvalue);
int rtxTxtReadUInt64(QSCTXT* ctxt, QSUINT64* pvalue);

#endif
