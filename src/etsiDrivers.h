// The two conversion drivers, written once over the value structure T, its control class X
// and the text buffer class: PER -> text and text -> PER. Everything lives on the driver's
// stack and dies before it returns; only *out or *err outlive the call.
#ifndef ETSI_DRIVERS_H
#define ETSI_DRIVERS_H

#include <string.h>

#include <new>
#include <type_traits>

#include "rtpersrc/asn1PerCppTypes.h"
#include "rtpersrc/asn1per.h"
#include "rtsrc/ASN1XType.h"
#include "rtxsrc/QSRTInputStream.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

namespace etsi {

// A context on the driver's stack. The buffers, the control and the value take and drop their
// references to it as usual; the one taken here keeps the count above zero, so none of them
// deletes it, and it is freed when it goes out of scope, after all of them. This spares the
// system allocator a context per buffer and call. The heap's first block is lent from the
// context itself, so a message whose values fit in it needs no heap allocation at all; the
// context is freed here, while that block still exists.
template <size_t BlockSize = RT_MH_DEFBLKSIZE>
class LocalContext : public QSRTContext {
public:
   LocalContext()
   {
      _ref();
      if (mbInitialized) rtxMemHeapLendBlock(&mCtxt, firstBlock, sizeof firstBlock);
   }
   ~LocalContext() override
   {
      if (mbInitialized) rtxFreeContext(&mCtxt);
      mbInitialized = FALSE;
   }

private:
   alignas(16) QSOCTET firstBlock[BlockSize];
};

// Copies the full error report of a context into a new array for the caller.
inline void copyErrorText(QSCTXT* ctxt, char** err)
{
   const char* text = rtxErrGetText(ctxt, nullptr, nullptr);
   if (text == nullptr) text = "ERROR: no memory available for the error text\n";
   char* copy = new char[strlen(text) + 1];
   strcpy(copy, text);
   *err = copy;
}

// Drops the value's hold on its context before the value dies, so that its destructor does not
// free the decoded contents piece by piece: they live on the context's heap, which goes as a
// whole with the last buffer.
struct ReleaseValue {
   ASN1TPDU& value;
   ~ReleaseValue() { value.setContext(nullptr); }
};

// Writes the text of the decoded value straight into an array for the caller, sized from the
// input (the indented text runs to some 35 to 75 characters per UPER byte): no growing of a
// buffer and no copy afterwards. Null when that does not work out (the text needs more room, or
// the encoder fails); the caller then takes the general path, which also produces the error
// report of a failure exactly as before.
template <class X, class E>
char* encodeDirect(X& control, size_t len)
{
   size_t cap = len * 80 + 512;
   char* text = new (std::nothrow) char[cap];
   if (text == nullptr) return nullptr;
   {
      LocalContext<> textCtx;
      E textBuf((unsigned char*)text, cap, &textCtx);
      if (textBuf.getStatus() == 0 && control.EncodeTo(textBuf) == 0) {
         size_t n = textBuf.getMsgLen();
         if (n < cap) {
            text[n] = 0;
            return text;
         }
      }
   }
   delete[] text;
   return nullptr;
}

// The direct paths lend their context a larger first block: the values of the larger messages
// and the buffers around them then need no block from the system allocator.
const size_t kDirectBlockSize = 4 * RT_MH_DEFBLKSIZE;

// UPER -> text without the message-buffer and control classes: the generated decoder and writer
// of the message (Direct::decode and Direct::write) on one context of the driver's own, whose
// buffer is turned from the caller's bytes to the caller's array once the value is decoded (the
// value lives in the heap, or points into the caller's bytes); the text is written straight into
// that array as in encodeDirect. Null when anything fails or the text needs more room; the
// general path then runs from the start and gives the result or the error report exactly as
// before.
template <class T, class Direct>
char* directToText(const char* data, size_t len)
{
   LocalContext<kDirectBlockSize> perCtx;
   QSCTXT* pc = perCtx.getPtr();
   if (!perCtx.isInitialized() || pu_setBuffer(pc, (QSOCTET*)data, len, FALSE) != 0) return nullptr;
   T value;  // without a context of its own: the contents go with perCtx's heap
   // The element names that the decoder keeps serve only the error report, which the general
   // path gives; the writer gets them back (the XML writer closes its elements by them).
   pc->flags |= QSNOELEMNAMES;
   if (Direct::decode(pc, &value) != 0) return nullptr;
   pc->flags &= ~QSNOELEMNAMES;
   QSRTBuffer& b = pc->buffer;
   size_t used = (size_t)b.byteIndex + (b.bitOffset != 8 ? 1 : 0) + 1;
   size_t cap = (used < len ? used : len) * 80 + 512;
   char* text = new (std::nothrow) char[cap];
   if (text == nullptr) return nullptr;
   if (Direct::write(pc, &value, (QSOCTET*)text, cap) == 0 && b.byteIndex < cap) {
      text[b.byteIndex] = 0;
      return text;
   }
   delete[] text;
   return nullptr;
}

// The message's UPER decoder and encoder for the direct paths, as the control class calls them;
// the text forms add their own reader and writer (src/etsi_json.cpp, src/etsi_xml.cpp).
#define ETSI_PER_DIRECT(M)                                                                           \
   struct M##PerDirect {                                                                             \
      static int decode(QSCTXT* ctxt, ASN1T_##M* value)                                              \
      {                                                                                              \
         asn1Init_##M(value, 0, ctxt);                                                               \
         return asn1PD_##M(ctxt, value);                                                             \
      }                                                                                              \
      static int encode(QSCTXT* ctxt, ASN1T_##M* value) { return asn1PE_##M(ctxt, value); }          \
   };

// Direct (optional) holds the message's generated functions for the direct path; without it
// every call takes the general path over the control class X.
template <class T, class X, class E, class Direct = void>
int to_text(const char* data, size_t len, char** out, char** err, bool trace)
{
   *out = nullptr;
   *err = nullptr;
   bool triedDirect = false;  // then the array of the input's size was too small, or it fails
   if constexpr (!std::is_void<Direct>::value) {
      if (!trace && data != nullptr) {
         triedDirect = true;
         char* text = directToText<T, Direct>(data, len);
         if (text != nullptr) {
            *out = text;
            return 0;
         }
      }
   }
   LocalContext<> perCtx;
   ASN1PERDecodeBuffer perBuf((const QSOCTET*)data, len, 0, &perCtx);
   T value;
   ReleaseValue release{ value };
   X control(perBuf, value);
   if (trace) {
      perBuf.setTrace(1);
      perBuf.setDiag(1);
   }
   int stat = control.Decode(0);
   if (trace) perBuf.binDump("data");
   if (stat != 0) {
      copyErrorText(control.getCtxtPtr(), err);
      return stat;
   }
   // Sized from the bytes the message took, not from the input: bytes after it are padding. The
   // direct path has tried the same size already.
   if (!triedDirect) {
      size_t used = (size_t)control.getCtxtPtr()->buffer.byteIndex + 1;
      char* direct = encodeDirect<X, E>(control, used < len ? used : len);
      if (direct != nullptr) {
         *out = direct;
         return 0;
      }
   }
   E textBuf;
   stat = control.EncodeTo(textBuf);
   if (stat != 0) {
      copyErrorText(textBuf.getCtxtPtr(), err);
      return stat;
   }
   size_t n = textBuf.getMsgLen();
   char* text = new char[n + 1];
   memcpy(text, textBuf.getMsgPtr(), n);
   text[n] = 0;
   *out = text;
   return 0;
}

// Text -> UPER without the message-buffer and control classes: the text read from the context's
// buffer by the message's generated reader (Direct::read, with what the decode buffer and the
// control class do around it), then the value encoded by Direct::encode into a dynamic PER
// buffer of the same context. False when anything fails; the general
// path then runs from the start and gives the result or the error report exactly as before.
template <class T, class Direct>
bool directFromText(const char* text, char** out, size_t* outLen)
{
   LocalContext<kDirectBlockSize> ctx;
   QSCTXT* c = ctx.getPtr();
   // the text as the context's buffer, where a memory stream would bind it
   if (!ctx.isInitialized() || rtxInitContextBuffer(c, (QSOCTET*)text, strlen(text)) != 0) return false;
   T value;  // without a context of its own: the contents go with the heap
   // The element names that the reader and the encoder keep serve only the error report, which
   // the general path gives.
   c->flags |= QSNOELEMNAMES;
   if (Direct::read(c, &value) != 0) return false;
   if (pu_setBuffer(c, nullptr, 0, FALSE) != 0) return false;
   pe_resetBuffer(c);
   if (Direct::encode(c, &value) != 0) return false;
   size_t n = (size_t)pu_getMsgLen(c);
   char* bytes = new (std::nothrow) char[n];
   if (bytes == nullptr) return false;
   memcpy(bytes, c->buffer.data, n);
   *out = bytes;
   *outLen = n;
   return true;
}

template <class T, class X, class D, class Direct = void>
int from_text(const char* text, char** out, size_t* outLen, char** err, bool trace)
{
   *out = nullptr;
   *outLen = 0;
   *err = nullptr;
   if constexpr (!std::is_void<Direct>::value) {
      if (!trace && text != nullptr && directFromText<T, Direct>(text, out, outLen)) return 0;
   }
   // Two contexts: one shared by the input stream and the text buffer, which holds the decoded
   // value, and one for the PER buffer, which the control shares; a control of its own would
   // only ever hold its status.
   LocalContext<> textCtx;
   LocalContext<> perCtx;
   T value;
   ReleaseValue release{ value };
   ASN1PEREncodeBuffer perBuf(nullptr, 0, 0, &perCtx);
   X control(perBuf, value);
   if (trace) {
      perBuf.setTrace(1);
      perBuf.setDiag(1);
   }
   QSRTMemoryInputStream input((const unsigned char*)text, text != nullptr ? strlen(text) : 0, &textCtx);
   D textBuf(input);
   int stat = control.DecodeFrom(textBuf, 0);
   if (stat != 0) {
      copyErrorText(textBuf.getCtxtPtr(), err);
      return stat;
   }
   stat = control.EncodeTo(perBuf);
   if (trace) perBuf.binDump("data");
   if (stat != 0) {
      copyErrorText(perBuf.getCtxtPtr(), err);
      return stat;
   }
   size_t n = perBuf.getMsgLen();
   char* bytes = new char[n];
   memcpy(bytes, perBuf.getMsgPtr(), n);
   *out = bytes;
   *outLen = n;
   return 0;
}

}  // namespace etsi

#endif
