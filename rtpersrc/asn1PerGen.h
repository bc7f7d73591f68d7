/*
 * Support for the generated PER encoders and decoders: traced single-field
 * reads and writes, open types whose content is coded in place (regional
 * extensions, known extension additions), and the element names that the
 * codecs push while they descend (used by the bit trace and error texts).
 */
#ifndef ASN1PERGEN_H
#define ASN1PERGEN_H

#include "rtpersrc/asn1per.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxMemory.h"
#include "rtsrc/asn1Events.h"

/* ---- element names and nesting -------------------------------------------------------------- */

/* The nesting level goes with the names: neither is kept while the context has QSNOELEMNAMES. */
inline void asn1PushElem(QSCTXT* ctxt, const char* name)
{
   if (ctxt->flags & QSNOELEMNAMES) return;
   rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)name);
   ctxt->level++;
}

inline void asn1PushArrayElem(QSCTXT* ctxt, const char* name, QSSIZE index)
{
   if (ctxt->flags & QSNOELEMNAMES) return;
   rtxCtxtPushArrayElemName(ctxt, (const QSUTF8CHAR*)name, index);
   ctxt->level++;
}

inline void asn1PopElem(QSCTXT* ctxt)
{
   if (ctxt->flags & QSNOELEMNAMES) return;
   rtxCtxtPopElemName(ctxt);
   ctxt->level--;
}

/* Decoders: the same, and the named events when a handler is registered. */
inline void asn1DecStartElem(QSCTXT* ctxt, const char* name)
{
   asn1PushElem(ctxt, name);
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeStartElement(ctxt, name, -1);
}

inline void asn1DecStartArrayElem(QSCTXT* ctxt, const char* name, QSSIZE index)
{
   asn1PushArrayElem(ctxt, name, index);
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeStartElement(ctxt, name, (QSINT64)index);
}

inline void asn1DecEndElem(QSCTXT* ctxt)
{
   if (ctxt->pEventHandlers != 0) {
      const QSElemNameStack& st = ctxt->elemNameStack;
      const QSElemName& top = (st.more != 0 ? st.more : st.inlineNames)[st.count - 1];
      Asn1NamedEventHandler64::invokeEndElement(ctxt, (const char*)top.name, top.kind == 1 ? (QSINT64)top.index : -1);
   }
   asn1PopElem(ctxt);
}

inline void asn1EvtUInt(QSCTXT* ctxt, QSUINT64 v)
{
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeUIntValue(ctxt, v);
}

inline void asn1EvtInt(QSCTXT* ctxt, QSINT64 v)
{
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeIntValue(ctxt, v);
}

inline void asn1EvtEnum(QSCTXT* ctxt, QSUINT32 v, const char* (*toString)(QSINT32))
{
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeEnumValue(ctxt, v, toString((QSINT32)v));
}

inline void asn1EvtBitStr(QSCTXT* ctxt, QSSIZE numbits, const QSOCTET* data)
{
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeBitStrValue(ctxt, numbits, data);
}

inline void asn1EvtOpenType(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data)
{
   if (ctxt->pEventHandlers != 0) Asn1NamedEventHandler64::invokeOpenTypeValue(ctxt, numocts, data);
}

/* ---- traced fields ---------------------------------------------------------------------------- */

inline int pe_TracedBits(QSCTXT* ctxt, QSUINT32 value, QSUINT32 nbits, const char* field)
{
   pu_newField(ctxt, field);
   int stat = rtxEncBits(ctxt, value, nbits);
   pu_setFldBitCount(ctxt);
   return stat;
}

inline int pd_TracedBits(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 nbits, const char* field)
{
   pu_newField(ctxt, field);
   int stat = rtxDecBits(ctxt, pvalue, nbits);
   pu_setFldBitCount(ctxt);
   return stat;
}

inline int pe_TracedBit(QSCTXT* ctxt, QSBOOL value, const char* field)
{
   pu_newField(ctxt, field);
   int stat = rtxEncBit(ctxt, value);
   pu_setFldBitCount(ctxt);
   return stat;
}

inline int pd_TracedBit(QSCTXT* ctxt, QSBOOL* pvalue, const char* field)
{
   pu_newField(ctxt, field);
   int stat = rtxDecBit(ctxt, pvalue);
   pu_setFldBitCount(ctxt);
   return stat;
}

/* A SEQUENCE preamble (extension bit when pext is given, then n <= 56 presence bits) in one read:
 * only with tracing off and at least eight bytes of input at the cursor. Otherwise nothing is read
 * and the result is false; the caller then reads the bits one by one. */
inline bool pd_PreambleFast(QSCTXT* ctxt, QSBOOL* pext, QSBOOL* opt, QSUINT32 n)
{
   QSRTBuffer& b = ctxt->buffer;
   if ((ctxt->flags & QSTRACE) || b.byteIndex >= b.size || b.size - b.byteIndex < 8) return false;
   const QSUINT32 used = 8u - (QSUINT32)b.bitOffset;
   QSUINT64 w = rtxLoadBE64(b.data + b.byteIndex) << used;
   QSUINT32 end = used + n;
   if (pext != nullptr) {
      *pext = (QSBOOL)(w >> 63);
      w <<= 1;
      end++;
   }
   for (QSUINT32 i = 0; i < n; i++) opt[i] = (QSBOOL)((w >> (63u - i)) & 1u);
   b.byteIndex += end >> 3;
   b.bitOffset = (QSINT16)(8u - (end & 7u));
   return true;
}

/* The same for encoding: the low nbits (1..32) of bits in one write when tracing is off and there
 * are eight bytes of room at the cursor; false (nothing written) otherwise. */
inline bool pe_PreambleFast(QSCTXT* ctxt, QSUINT32 bits, QSUINT32 nbits)
{
   const QSRTBuffer& b = ctxt->buffer;
   if ((ctxt->flags & QSTRACE) || b.data == nullptr || b.byteIndex >= b.size || b.size - b.byteIndex < 8) {
      return false;
   }
   rtxEncBits(ctxt, bits, nbits);   /* takes the in-place path: cannot fail */
   return true;
}

inline int pe_ExtBit(QSCTXT* ctxt, QSBOOL v) { return pe_TracedBit(ctxt, v, "extension bit"); }
inline int pd_ExtBit(QSCTXT* ctxt, QSBOOL* pv) { return pd_TracedBit(ctxt, pv, "extension bit"); }
inline int pe_OptBit(QSCTXT* ctxt, QSBOOL v) { return pe_TracedBit(ctxt, v, "optional bit"); }
inline int pd_OptBit(QSCTXT* ctxt, QSBOOL* pv) { return pd_TracedBit(ctxt, pv, "optional bit"); }
inline int pe_BoolField(QSCTXT* ctxt, QSBOOL v) { return pe_TracedBit(ctxt, v, "Boolean"); }
inline int pd_BoolField(QSCTXT* ctxt, QSBOOL* pv) { return pd_TracedBit(ctxt, pv, "Boolean"); }

inline int pe_ConsBits(QSCTXT* ctxt, QSUINT32 v, QSUINT32 nbits) { return pe_TracedBits(ctxt, v, nbits, "ConsInteger"); }
inline int pd_ConsBits(QSCTXT* ctxt, QSUINT32* pv, QSUINT32 nbits) { return pd_TracedBits(ctxt, pv, nbits, "ConsInteger"); }
inline int pe_ChoiceIndex(QSCTXT* ctxt, QSUINT32 v, QSUINT32 nbits) { return pe_TracedBits(ctxt, v, nbits, "choice index"); }
inline int pd_ChoiceIndex(QSCTXT* ctxt, QSUINT32* pv, QSUINT32 nbits) { return pd_TracedBits(ctxt, pv, nbits, "choice index"); }
inline int pe_LengthBits(QSCTXT* ctxt, QSUINT32 v, QSUINT32 nbits) { return pe_TracedBits(ctxt, v, nbits, "length"); }

int pe_ConsBits64(QSCTXT* ctxt, QSUINT64 value, QSUINT32 nbits);
int pd_ConsBits64(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT32 nbits);

/* Semi-constrained INTEGER (lower..MAX): length octet and the offset from lower in minimal octets. */
int pe_SemiConsInt64(QSCTXT* ctxt, QSINT64 value, QSINT64 lower);
int pd_SemiConsInt64(QSCTXT* ctxt, QSINT64* pvalue, QSINT64 lower);

/* ---- open types coded in place ---------------------------------------------------------------- */

/* Encoding: Begin saves the output state and installs a fresh dynamic buffer
 * in which the caller encodes the content; End restores the output, writes
 * the content as an open type (when stat is 0) and releases the temporary
 * buffer. End returns the first failure. */
struct QSPEROpenTypeState {
   QSRTBuffer buffer;
   _Asn1SizeCnst sizeCnst;
   struct QSRTStream* pStream;
   void* pTraceList;
};

int pe_OpenTypeBegin(QSCTXT* ctxt, QSPEROpenTypeState* pState);
int pe_OpenTypeEnd(QSCTXT* ctxt, QSPEROpenTypeState* pState, int stat);

/* Decoding: Begin reads the open type's length (a fragmented length is
 * refused) and returns the bit position where the content ends; the caller
 * decodes the content from the input in place; End skips what the content
 * did not use (padding, unknown additions) and fails with
 * RTERR_OPEN_TYPE_OVERRUN when the content ran past its length. Raw keeps
 * the whole content as an open-type record. */
#define RTERR_OPEN_TYPE_OVERRUN (-101)

int pd_OpenTypeBegin(QSCTXT* ctxt, QSUINT64* pEndBit);
int pd_OpenTypeEnd(QSCTXT* ctxt, QSUINT64 endBit);
int pd_OpenTypeRaw(QSCTXT* ctxt, QSUINT64 endBit, ASN1TOpenType** ppOpenType);

#endif
