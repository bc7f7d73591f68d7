/*
 * Streams bound to a context. Only memory input streams are provided: the
 * caller's bytes are read in order, not copied.
 */
#ifndef RTXSTREAM_H
#define RTXSTREAM_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

/* Stream flags */
#define QSRTSTRMF_INPUT   0x0001
#define QSRTSTRMF_OUTPUT  0x0002
#define QSRTSTRMF_SYSBUF  0x0008   /* the context buffer came from the system allocator */

struct QSRTStream {
   const QSOCTET* data;
   QSSIZE size;
   QSSIZE pos;
   QSUINT16 flags;
};

/* Binds memory as the context's stream; RTERR_STREAM_IN_USE when one is bound,
 * RTERR_FEATURE_NOT_SUPPORTED for a mode other than QSRTSTRMF_INPUT. */
int rtxStreamMemoryAttach(QSCTXT* ctxt, const QSOCTET* data, QSSIZE size, QSUINT16 mode);

/* Reads up to n bytes; returns the number read (0 at the end) or a negative status. */
long rtxStreamRead(QSCTXT* ctxt, QSOCTET* buf, size_t n);

/* Makes the unread rest of the context's input stream the context buffer when the buffer has
 * nothing left to read; the stream's memory is read in place and the stream is consumed.
 * TRUE when there is something to read afterwards. */
QSBOOL rtxStreamBindInput(QSCTXT* ctxt);

/* Unbinds and frees the context's stream. */
int rtxStreamRelease(QSCTXT* ctxt);

#endif
