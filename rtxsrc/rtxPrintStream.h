/*
 * Print streams: where diagnostic and trace output goes.
 *
 * Output of rtxPrintToStream goes, in order of preference, to the print
 * callback of the context, to the process-wide print callback, or to
 * standard output (flushed after every write).
 */
#ifndef RTXPRINTSTREAM_H
#define RTXPRINTSTREAM_H

#include <cstdarg>
#include "rtxsrc/rtxContext.h"

/* Sets (or, with a null callback, clears) the print stream of a context. */
int rtxSetPrintStream(QSCTXT* ctxt, rtxPrintCallback myCallback, void* pStrmInfo);

/* Sets (or clears) the process-wide print stream used by contexts without
 * one of their own. Not thread-safe: set it before any work starts. */
int rtxSetGlobalPrintStream(rtxPrintCallback myCallback, void* pStrmInfo);

/* Prints formatted text to the context's print stream (see above).
 * A null context goes to the process-wide stream or standard output. */
int rtxPrintToStream(QSCTXT* ctxt, const char* fmt, ...)
#if defined(__GNUC__)
   __attribute__((format(printf, 2, 3)))
#endif
   ;

/* Same with a va_list. */
int rtxPrintToStreamV(QSCTXT* ctxt, const char* fmt, va_list args);

/* Detaches the context's print stream (called when the context is freed). */
int rtxPrintStreamRelease(QSCTXT* ctxt);

#endif
