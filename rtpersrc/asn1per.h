/*
 * Packed Encoding Rules (PER) runtime: encoding (pe_), decoding (pd_) and
 * common (pu_) primitives used by the generated PER codecs.
 *
 * Every function takes the context first and returns an int status:
 * 0 (or a non-negative count where stated) on success, a negative RTERR_
 * code on failure; failures are recorded in the context with rtxErrSetData.
 *
 * The unaligned variant is the one used throughout; the aligned flag of the
 * buffer (pu_setAligned) only adds octet alignment where PER requires it.
 */
#ifndef ASN1PER_H
#define ASN1PER_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtxsrc/rtxBitEncode.h"
#include "rtxsrc/rtxBitDecode.h"
#include "rtxsrc/rtxDiagBitTrace.h"
#include "rtsrc/asn1type.h"

/* Extension-addition presence bitmap as read by pd_ExtOptElemBits: one byte
 * (0 or 1) per addition; data comes from the context heap (null when count
 * is 0) and is released by the caller with rtxMemHeapFreePtr. */
struct ASN1TExtOptBits {
   QSUINT32 count;
   QSOCTET* data;
};

/* ---------------------------------------------------------------------- */
/* Common utilities                                                        */
/* ---------------------------------------------------------------------- */

/* Installs a buffer on the context: a caller buffer (fixed size) or, with a
 * null buffer, a dynamic buffer from the context heap (1024 bytes to start).
 * Resets the cursor and the pending size constraint. */
int pu_setBuffer(QSCTXT* ctxt, QSOCTET* bufaddr, QSSIZE bufsiz, QSBOOL aligned);

/* Sets the aligned flag (0 = UNALIGNED PER). */
void pu_setAligned(QSCTXT* ctxt, QSBOOL value);

/* Message length in bytes: byte index, plus one for a partial last byte. */
QSSIZE pu_getMsgLen(QSCTXT* ctxt);

/* Makes a SIZE constraint pending for the next length determinant. When
 * one is already pending it stays, and the new one must lie inside it
 * (else RTERR_VALUE_CONSTRAINT_VIOLATION). A null pointer is ignored. */
int pu_addSizeConstraint(QSCTXT* ctxt, const _Asn1SizeCnst* pSize);

/* Convenience: pu_addSizeConstraint with {lower, upper, 1, extensible}. */
int pu_setSizeConstraint(QSCTXT* ctxt, QSUINT64 lower, QSUINT64 upper, QSBOOL extensible);

/* Clears the pending size constraint. */
inline void pu_clearSizeConstraint(QSCTXT* ctxt)
{
   ctxt->sizeCnst.lower = 0;
   ctxt->sizeCnst.upper = 0;
   ctxt->sizeCnst.constrained = 0;
   ctxt->sizeCnst.extensible = 0;
}

/* Classifies a size against a constraint: 0 = inside the root (or no
 * constraint), 1 = outside but the constraint is extensible,
 * RTERR_VALUE_CONSTRAINT_VIOLATION otherwise. Records nothing. */
int pu_checkSizeExt(const _Asn1SizeCnst* pSize, QSUINT64 value);

/* Number of bits needed to hold value (0 for 0). */
QSUINT32 pu_bitcnt(QSUINT64 value);

/* Bit width of a constrained whole number of the given range
 * (range 1 -> 0 bits, 2 -> 1, 256 -> 8, 65536 -> 16; 0 means 2^32 / 2^64). */
inline QSUINT32 pu_rangeBits(QSUINT64 range)
{
   return (range == 0) ? 64 : pu_bitcnt(range - 1);
}

/* ---- trace (bit-field list); all return at once with tracing off ---- */

/* Switches the bit trace on (creating the field list) or off; returns the
 * previous state. */
QSBOOL pu_setTrace(QSCTXT* ctxt, QSBOOL value);

/* Opens a traced field at the current bit position. */
inline void pu_newField(QSCTXT* ctxt, const char* nameSuffix)
{
   if (ctxt->flags & QSTRACE) rtxDiagNewBitField(ctxt, nameSuffix);
}

/* Closes the last traced field at the current bit position. */
inline void pu_setFldBitCount(QSCTXT* ctxt)
{
   if (ctxt->flags & QSTRACE) rtxDiagSetBitFldCount(ctxt);
}

/* Moves the start of the last traced field to the current position. */
inline void pu_setFldBitOffset(QSCTXT* ctxt)
{
   if (ctxt->flags & QSTRACE) rtxDiagSetBitFldOffset(ctxt);
}

/* Splits a "length" field off the front of the open field. */
inline void pu_insLenField(QSCTXT* ctxt)
{
   if (ctxt->flags & QSTRACE) rtxDiagInsBitFieldLen(ctxt);
}

/* Pushes / pops an element name for traced paths and error texts. */
void pu_pushElemName(QSCTXT* ctxt, const char* name);
void pu_popElemName(QSCTXT* ctxt);

/* Prints the traced fields (see rtxDiagBitTracePrint). */
void pu_bindump(QSCTXT* ctxt, const char* varname);

/* Captures the trace of an open type's content encoded into a separate
 * buffer (rtxDiagBitTraceBeginOpenType / EndOpenType). */
inline void* pu_beginOpenTypeTrace(QSCTXT* ctxt)
{
   return (ctxt->flags & QSTRACE) ? rtxDiagBitTraceBeginOpenType(ctxt) : nullptr;
}
inline void pu_endOpenTypeTrace(QSCTXT* ctxt, void* saved)
{
   if (saved != nullptr) rtxDiagBitTraceEndOpenType(ctxt, saved);
}

/* ---------------------------------------------------------------------- */
/* Encoding                                                                */
/* ---------------------------------------------------------------------- */

/* Resets the encode cursor (byte 0, bit offset 8) and empties the trace. */
void pe_resetBuffer(QSCTXT* ctxt);

/* Start of the encoded message; its length in bytes is stored in *pLength
 * when given. */
QSOCTET* pe_GetMsgPtr(QSCTXT* ctxt, QSSIZE* pLength);

/* Pads to the next octet boundary (ALIGNED only; no-op in UNALIGNED). */
int pe_byte_align(QSCTXT* ctxt);

/* Constrained whole number: value = actual - lower, range = upper - lower + 1
 * (0xFFFFFFFF accepts any value). value >= range: RTERR_INVALID_VALUE_SPEC. */
int pe_ConsWholeNumber(QSCTXT* ctxt, QSUINT32 value, QSUINT32 range);
int pe_ConsWholeNumber64(QSCTXT* ctxt, QSUINT64 value, QSUINT64 range);

/* Length determinant under the pending size constraint (consumed). Returns
 * the number of items the caller must write next (< length when the length
 * is fragmented), or a negative status. */
int pe_Length(QSCTXT* ctxt, QSSIZE length);

/* Unconstrained length determinant; returns the items to write next. */
int pe_UnconsLength(QSCTXT* ctxt, QSSIZE length);

/* Normally small length (1..64 in 7 bits; more via pe_Length). */
int pe_SmallLength(QSCTXT* ctxt, QSSIZE length);

/* Normally small non-negative whole number (CHOICE extension index). */
int pe_SmallNonNegWholeNumber(QSCTXT* ctxt, QSUINT32 value);

/* Minimal-octet integers (no length). */
int pe_NonNegBinInt(QSCTXT* ctxt, QSUINT32 value);
int pe_NonNegBinInt64(QSCTXT* ctxt, QSUINT64 value);
int pe_2sCompBinInt(QSCTXT* ctxt, QSINT32 value);
int pe_2sCompBinInt64(QSCTXT* ctxt, QSINT64 value);

/* Unconstrained INTEGER: length octet then minimal two's complement. */
int pe_UnconsInt32Unaligned(QSCTXT* ctxt, QSINT32 value);
int pe_UnconsUInt32Unaligned(QSCTXT* ctxt, QSUINT32 value);
int pe_UnconsInt64Unaligned(QSCTXT* ctxt, QSINT64 value);
int pe_UnconsUInt64Unaligned(QSCTXT* ctxt, QSUINT64 value);

/* OCTET STRING with length (under the pending size constraint). */
int pe_OctetString(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data);

/* BIT STRING with length (under the pending size constraint). */
int pe_BitString(QSCTXT* ctxt, QSSIZE numbits, const QSOCTET* data);

/* BIT STRING SIZE(lower..upper) held in an ASN1TBitStr32. */
int pe_BitString32(QSCTXT* ctxt, const ASN1TBitStr32* pBitStr, QSUINT32 lower, QSUINT32 upper);

/* Known-multiplier character string: length (pending constraint), then
 * the characters (see pe_ConstrainedStringData). */
int pe_ConstrainedStringEx(QSCTXT* ctxt, const char* string, const char* charSet,
                           QSUINT32 abits, QSUINT32 ubits, QSUINT32 canSetBits);

/* The characters of a known-multiplier string, nbits each: the index in
 * charSet when nbits < canSetBits or canSetBits < 5, else the code. */
int pe_ConstrainedStringData(QSCTXT* ctxt, const char* string, const char* charSet,
                             QSUINT32 nbits, QSUINT32 canSetBits, QSSIZE nchars);

/* Octet-counted character string (UTF8String etc.). */
int pe_VarWidthCharString(QSCTXT* ctxt, const char* value);

/* Open type: length then the octets; empty -> 0x01 0x00. */
int pe_OpenType(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data);

/* Extension additions; list entries are null (absent) or ASN1TOpenType*. */
int pe_OpenTypeExtBits(QSCTXT* ctxt, const QSRTDList* pElemList);
int pe_OpenTypeExt(QSCTXT* ctxt, const QSRTDList* pElemList);

/* ---------------------------------------------------------------------- */
/* Decoding                                                                */
/* ---------------------------------------------------------------------- */

/* Constrained whole number of the given range (not checked against it). */
int pd_ConsWholeNumber(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 range);
int pd_ConsWholeNumber64(QSCTXT* ctxt, QSUINT64* pvalue, QSUINT64 range);

/* Length determinant under the pending constraint (consumed). Returns 0,
 * or 2 when the length is a fragment and another length follows. */
int pd_Length64(QSCTXT* ctxt, QSUINT64* pvalue);
int pd_Length(QSCTXT* ctxt, QSUINT32* pvalue);

/* Unconstrained length; 2 = fragment. */
int pd_UnconsLength64(QSCTXT* ctxt, QSUINT64* pvalue);
int pd_UnconsLength(QSCTXT* ctxt, QSUINT32* pvalue);

/* A length field of nbits bits plus lower. */
int pd_ConsLength(QSCTXT* ctxt, QSUINT32* pvalue, QSUINT32 nbits, QSUINT32 lower);

/* Normally small length (1..64, or a length determinant). */
int pd_SmallLength(QSCTXT* ctxt, QSUINT32* pvalue);

/* Normally small non-negative whole number. */
int pd_SmallNonNegWholeNumber(QSCTXT* ctxt, QSUINT32* pvalue);

/* Extension-addition presence bitmap. */
int pd_ExtOptElemBits(QSCTXT* ctxt, ASN1TExtOptBits* pBits);

/* Open type; both outputs may be null (content skipped). The data is a
 * heap copy (or points into the input with the fast-copy flag). */
int pd_OpenType(QSCTXT* ctxt, const QSOCTET** ppData, QSUINT32* pNumocts);

/* Skips all extension additions of a SEQUENCE / an unknown CHOICE
 * extension alternative; returns where they start and their byte length. */
int pd_OpenTypeExt(QSCTXT* ctxt, const QSOCTET** ppStart, QSSIZE* pNumocts);
int pd_ChoiceOpenTypeExt(QSCTXT* ctxt, const QSOCTET** ppStart, QSSIZE* pNumocts);

/* Summed length of all fragments of the component at the cursor (items of
 * itemBits bits each), without consuming anything. */
int pd_GetComponentLength(QSCTXT* ctxt, QSUINT32 itemBits, QSSIZE* pLength);

/* OCTET STRING of any size (pending constraint applies); null = skip. */
int pd_DynOctetString64(QSCTXT* ctxt, ASN1TDynOctStr64* pOctStr);
int pd_DynOctetString(QSCTXT* ctxt, ASN1TDynOctStr* pOctStr);

/* BIT STRING of any size (pending constraint applies); null = skip. */
int pd_DynBitString(QSCTXT* ctxt, ASN1TDynBitStr* pBitStr);

/* BIT STRING SIZE(lower..upper) with at most 32 bits into ASN1TBitStr32. */
int pd_BitString32(QSCTXT* ctxt, ASN1TBitStr32* pBitStr, QSUINT32 lower, QSUINT32 upper);

/* Characters of a known-multiplier string into dest (NUL-terminated). */
int pd_ConstrainedStringData(QSCTXT* ctxt, char* dest, QSSIZE destSize, QSSIZE nchars,
                             const char* charSet, QSUINT32 nbits, QSUINT32 canSetBits);

/* Same into nchars + 1 heap bytes. */
int pd_DynConstrainedStringData(QSCTXT* ctxt, const char** pString, QSSIZE nchars,
                                const char* charSet, QSUINT32 nbits, QSUINT32 canSetBits);

/* Known-multiplier string: length (pending constraint) then characters. */
int pd_ConstrainedStringEx(QSCTXT* ctxt, const char** pString, const char* charSet,
                           QSUINT32 abits, QSUINT32 ubits, QSUINT32 canSetBits);

/* Octet-counted character string into count + 1 heap bytes; null = skip. */
int pd_VarWidthCharString(QSCTXT* ctxt, const char** pValue);

/* Unconstrained INTEGER (length octet, two's complement). */
int pd_UnconsInteger(QSCTXT* ctxt, QSINT32* pvalue);
int pd_UnconsUnsigned(QSCTXT* ctxt, QSUINT32* pvalue);
int pd_UnconsInt64(QSCTXT* ctxt, QSINT64* pvalue);
int pd_UnconsUInt64(QSCTXT* ctxt, QSUINT64* pvalue);

/* Moves to the next octet boundary (ALIGNED only; no-op in UNALIGNED). */
int pd_byte_align(QSCTXT* ctxt);

#endif
