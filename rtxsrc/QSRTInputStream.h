/*
 * Input streams over a context of their own; the text decode buffers are
 * built on their context and read from it.
 */
#ifndef QSRTINPUTSTREAM_H
#define QSRTINPUTSTREAM_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/QSRTContext.h"

class QSRTInputStream : public QSRTCtxtHolder {
public:
   QSRTInputStream();
   /* On the given context (shared), or on a new one of its own when null. */
   explicit QSRTInputStream(QSRTContext* pContext);
   ~QSRTInputStream() override {}

   /* Reads up to n bytes; the number read (0 at the end) or a negative status. */
   virtual long read(QSOCTET* buffer, size_t n);
   QSBOOL isInitialized();
};

/* Reads the caller's memory in order (not copied, not owned). */
class QSRTMemoryInputStream : public QSRTInputStream {
public:
   QSRTMemoryInputStream(const unsigned char* data, size_t length);
   /* As above, on the given context (shared), or on a new one when null. */
   QSRTMemoryInputStream(const unsigned char* data, size_t length, QSRTContext* pContext);

   /* A new stream over the memory (delete it when done), or null when there is no memory or
    * no heap: for buffers that take the caller's bytes as an owned stream. */
   static QSRTInputStream* create(const unsigned char* data, size_t length);
};

#endif
