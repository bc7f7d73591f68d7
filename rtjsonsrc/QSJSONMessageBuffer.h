/*
 * JSON message buffers: the encode buffer that collects the text written
 * by the JSON encoders and the decode buffer that feeds the JSON decoders
 * from an input stream.
 */
#ifndef QSJSONMESSAGEBUFFER_H
#define QSJSONMESSAGEBUFFER_H

#include <cstdio>

#include "rtxsrc/QSRTContext.h"
#include "rtxsrc/QSRTInputStream.h"
#include "rtxsrc/QSRTMessageBuffer.h"
#include "rtjsonsrc/rtJson.h"

/* Common base of the JSON buffers. */
class QSJSONMessageBuffer : public QSRTMessageBuffer {
protected:
   /* On pContext, or on a new context of its own when null. */
   explicit QSJSONMessageBuffer(Type bufferType, QSRTContext* pContext = nullptr)
      : QSRTMessageBuffer(bufferType, pContext) {}

public:
   ~QSJSONMessageBuffer() override {}
};

class QSJSONEncodeBuffer : public QSJSONMessageBuffer {
public:
   /* Dynamic buffer from the context heap (first block 1,024 bytes),
    * holding the empty string. */
   QSJSONEncodeBuffer();

   /* The caller's buffer of size bytes; it is never grown. */
   QSJSONEncodeBuffer(unsigned char* buf, size_t size);

   /* As above, on the given context (shared, not copied). */
   QSJSONEncodeBuffer(unsigned char* buf, size_t size, QSRTContext* pContext);

   ~QSJSONEncodeBuffer() override {}

   /* Starts a new message (byte index 0). */
   int init() override;

   /* Length of the text, not counting the terminating NUL. */
   size_t getMsgLen() override;

   /* Writes the text to a file opened with mode "wb"; RTERR_FILE_NOT_FOUND
    * when it cannot be opened, RTERR_WRITE_ERROR on a short write. */
   int write(const char* filename);

   /* Writes the text to an open stream; 0 or RTERR_WRITE_ERROR. */
   int write(FILE* fp);

   QSBOOL isA(Type bufferType) override { return bufferType == JSONEncode; }
};

class QSJSONDecodeBuffer : public QSJSONMessageBuffer {
protected:
   QSRTInputStream* mpInputStream;   /* may be null */
   QSBOOL mbOwnStream;

   QSJSONDecodeBuffer(QSRTInputStream* pStream, QSBOOL ownStream);

   /* Takes the context's input stream as the text to read. */
   void bindInput();

public:
   /* Reads the whole file (on the buffer's own context); a null name leaves
    * the buffer without input, a file that cannot be read is kept as the
    * status (RTERR_FILE_NOT_FOUND, RTERR_READ_ERROR). */
   explicit QSJSONDecodeBuffer(const char* filename);

   /* Reads the caller's memory (not copied) through a memory input stream
    * that the buffer owns; null data leaves the buffer without input. */
   QSJSONDecodeBuffer(const unsigned char* data, size_t size);

   /* Reads from the caller's stream and shares its context; the stream is
    * not owned and must outlive the buffer. */
   explicit QSJSONDecodeBuffer(QSRTInputStream& inputStream);

   ~QSJSONDecodeBuffer() override;

   QSJSONDecodeBuffer(const QSJSONDecodeBuffer&) = delete;
   QSJSONDecodeBuffer& operator=(const QSJSONDecodeBuffer&) = delete;

   /* Nothing to prepare: 0, or the failure of the input (a stream over no memory, a file
    * that could not be read), so that no decode starts on it. */
   int init() override { return getStatus(); }

   QSBOOL isA(Type bufferType) override { return bufferType == JSONDecode; }

   QSRTInputStream* getInputStream() { return mpInputStream; }
};

#endif
