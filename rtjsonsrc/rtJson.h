/*
 * JSON runtime: the text writer under the generated JSON encoders and the
 * token readers (plus a generic value recogniser) under the generated JSON
 * decoders.
 *
 * Every function takes the context first and returns 0 or a negative
 * status (rtxErrCodes.h), recorded in the context with its location.
 * Output goes to the context's message buffer at buffer.byteIndex; input is
 * read from the context's buffer (bound from the context's input stream on
 * first use).
 */
#ifndef RTJSON_H
#define RTJSON_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtsrc/asn1type.h"
#include "rtjsonsrc/rtxText.h"

/* Context flags read by the JSON writer and reader. */
#define QSJSONCOMPACT   0x00010000U  /* no newlines, no indentation, bare colons */
#define QSJSONATTRNAME  0x00020000U  /* next string is an attribute name (prefixed "@") */
#define QSJSONHEXUPPER  QSJSONATTRNAME /* upper-case hex digits (same bit) */

/* jsonMode values of the generic edge writers. */
#define QSJSON_MODE_NONE  0
#define QSJSON_MODE_ARRAY 2

/* Name table entry of rtJsonGetElemIdx / rtJsonDecMatchObjectStart. */
struct QSJsonElemName {
   const char* name;
   QSSIZE nameLen;   /* bytes */
};

/* ================================ writer ================================ */

/* Optional comma (when jsonMode is set and the last character is none of
 * '{' ',' '[' NUL), then a newline and `indent` spaces (unless compact). */
int rtJsonEncIndent(QSCTXT* ctxt);

/* Quoted string with the escapes \b \t \n \f \r \" \\ only; every other
 * byte is copied. Null is written as "". */
int rtJsonEncStringValue(QSCTXT* ctxt, const char* value);
int rtJsonEncStringValue2(QSCTXT* ctxt, const char* value, QSSIZE nbytes);
int rtJsonEncChars(QSCTXT* ctxt, const char* value, QSSIZE nbytes);
int rtJsonEncCharStr(QSCTXT* ctxt, const char* value);
inline int rtJsonEncStringValue(QSCTXT* ctxt, const QSUTF8CHAR* value)
{ return rtJsonEncStringValue(ctxt, (const char*)value); }
inline int rtJsonEncStringValue2(QSCTXT* ctxt, const QSUTF8CHAR* value, QSSIZE nbytes)
{ return rtJsonEncStringValue2(ctxt, (const char*)value, nbytes); }

/* name, then " : " (or ":" at indentation 0), then value, both as strings. */
int rtJsonEncStringPair(QSCTXT* ctxt, const char* name, const char* value);
int rtJsonEncStringPair2(QSCTXT* ctxt, const char* name, QSSIZE nameLen,
                         const char* value, QSSIZE valueLen);

/* "{" pair "}" with no newlines. */
int rtJsonEncStringObject(QSCTXT* ctxt, const char* name, const char* value);
int rtJsonEncStringObject2(QSCTXT* ctxt, const char* name, QSSIZE nameLen,
                           const char* value, QSSIZE valueLen);

/* null */
int rtJsonEncStringNull(QSCTXT* ctxt);

/* The text as it is; null or empty is RTERR_INVALID_VALUE_SPEC. */
int rtJsonEncStringRaw(QSCTXT* ctxt, const char* text);

/* true / false */
int rtJsonEncBoolValue(QSCTXT* ctxt, QSBOOL value);

/* Two hex digits per byte, no quotes. A count that is negative when read
 * as a signed size is RTERR_VALUE_WILL_NOT_FIT. */
int rtJsonEncHexValue(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data);

/* The hex digits in double quotes. */
int rtJsonEncHexStr(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data);

/* Fixed-size BIT STRING: the bytes as quoted hex, the unused low bits of
 * the last byte written as 0. */
int rtJsonEncFixedBitStrValue(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data);

/* Variable-size BIT STRING: {"value":"<hex>","length":<nbits>} on
 * indented lines. */
int rtJsonEncBitStrValue(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data);

/* As rtJsonEncBitStrValue for a bit string held in two parts: dataSize
 * bytes in data, the bits beyond 8 * dataSize in extData. */
int rtJsonEncBitStrValueExt(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data,
                            QSSIZE dataSize, const QSOCTET* extData);

/* Generic edges (not used by generated code). */
int rtJsonEncStartObject(QSCTXT* ctxt, const char* name, QSBOOL noName);
int rtJsonEncEndObject(QSCTXT* ctxt);
int rtJsonEncBetweenObject(QSCTXT* ctxt);

/* REAL values (shortest "%.17g"-style text that reads back the same). */
int rtJsonEncDoubleValue(QSCTXT* ctxt, double value);
int rtJsonAsn1EncReal(QSCTXT* ctxt, double value);

/* Open type holding JSON text: nothing when empty; otherwise the bytes
 * must form one JSON value (recogniser status otherwise) and are written
 * as {"value" : "<escaped text>"}. */
int rtJsonAsn1EncOpenType(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data);

/* One unknown extension element: raw text (non-empty, NUL-terminated,
 * printable ASCII) copied as it is; otherwise "_ext" (index 0) or
 * "_ext_<index>", ':', quoted hex of the bytes. */
int rtJsonEncExtElemWithSuffix(QSCTXT* ctxt, const ASN1TOpenType* pElem, QSSIZE index);
int rtJsonAsn1EncExtElem(QSCTXT* ctxt, const ASN1TOpenType* pElem);

/* Every element of an extension list (node data: ASN1TOpenType*),
 * numbered from 1, separated by ','. Nodes without data are written as
 * null only when writeNulls is set. */
int rtJsonAsn1EncOpenTypeExt(QSCTXT* ctxt, const QSRTDList* pElemList, QSBOOL writeNulls);

/* ---- helpers for generated encoders ------------------------------------------------------------
 * Each appends its text, reserving one byte more for a NUL stored behind it
 * (the byte index does not cover the NUL), so the buffer always holds a C
 * string and a static buffer must have room for the terminator. */

/* One character. */
int rtJsonEncPutChar(QSCTXT* ctxt, char c);

/* Counted text, copied as it is. */
int rtJsonEncPutText(QSCTXT* ctxt, const char* text, QSSIZE nbytes);

/* Member key: '"' name '"' ':' (the name is not escaped). */
int rtJsonEncKey(QSCTXT* ctxt, const char* name, QSSIZE nameLen);

/* Opens an object ('{') or array ('['): the character and one indentation
 * level in. The new line comes with the first member (rtJsonEncMember), so
 * that an empty object is "{", a new line at the outer indentation, "}". */
int rtJsonEncOpen(QSCTXT* ctxt, char openChar);

/* Before a member or item: a new line for the first one, ',' and a new
 * line for every other. */
int rtJsonEncMember(QSCTXT* ctxt, QSBOOL first);

/* Before a member, in one piece: as rtJsonEncMember, then the member's key text `key`
 * of keyLen bytes ('"' name '"' ':', the name not escaped). */
int rtJsonEncMemberKey(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen);

/* An already quoted string: text holds '"', the string's bytes, '"' (nbytes in all, the
 * string needing no escapes); written as rtJsonEncStringValue writes the bytes between. */
int rtJsonEncQuoted(QSCTXT* ctxt, const char* text, QSSIZE nbytes);

/* A whole integer member, as rtJsonEncMemberKey followed by the value's decimal digits,
 * when the buffer has room for it at once: 1. Otherwise 0 and nothing written (the caller
 * then writes the member the general way). */
int rtJsonEncMemberInt(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen, QSINT64 value);
int rtJsonEncMemberUInt(QSCTXT* ctxt, QSBOOL first, const char* key, QSSIZE keyLen, QSUINT64 value);

/* Between two members or items: ',' then a new line
 * (rtJsonEncMember(ctxt, FALSE)). */
int rtJsonEncNext(QSCTXT* ctxt);

/* Closes an object ('}') or array (']'): one level out, a new line, the
 * character. */
int rtJsonEncClose(QSCTXT* ctxt, char closeChar);

/* ================================ reader ================================ */

/* Skips whitespace, reads one character and compares: a different
 * character is pushed back and gives RTERR_CHARACTER_NOT_IN_SET. */
int rtJsonDecMatchChar(QSCTXT* ctxt, QSUTF8CHAR ch);

/* Reads one JSON string (escapes b f n r t / \ " only) into a
 * NUL-terminated copy on the context heap. No opening quote:
 * RTERR_UNEXPECTED_IDENTIFIER. */
int rtJsonDecStringValue(QSCTXT* ctxt, QSUTF8CHAR** ppvalue);
inline int rtJsonDecStringValue(QSCTXT* ctxt, char** ppvalue)
{ return rtJsonDecStringValue(ctxt, (QSUTF8CHAR**)ppvalue); }
inline int rtJsonDecStringValue(QSCTXT* ctxt, const char** ppvalue)
{ return rtJsonDecStringValue(ctxt, (QSUTF8CHAR**)const_cast<char**>(ppvalue)); }

/* Reads a string (or, when no quote follows, the raw characters) and
 * compares it with the token; on a mismatch the cursor is restored and
 * RTERR_UNEXPECTED_IDENTIFIER returned. */
int rtJsonDecMatchToken(QSCTXT* ctxt, const char* token);
int rtJsonDecMatchToken2(QSCTXT* ctxt, const char* token, QSSIZE tokenLen);

/* Reads a key string and the colon after it; index of the first entry
 * with the same bytes, -1 when none (or a negative status). */
int rtJsonGetElemIdx(QSCTXT* ctxt, const QSJsonElemName* names, QSSIZE count);

/* The common form of a member key, read in place: whitespace, '"', a key without
 * backslashes, '"', whitespace, ':', all in the buffer (and no attribute-name flag). Then
 * *pkey points at the key's bytes in the input, the cursor is behind the colon and the
 * key's byte length is returned. Otherwise -1, and the cursor has not moved: the key is
 * then for rtJsonGetElemIdx. */
int rtJsonDecKeyFast(QSCTXT* ctxt, const QSOCTET** pkey);

/* The common form of a string value, read in place: whitespace, '"', text without
 * backslashes, '"', all in the buffer (and no attribute-name flag). Then *ptext points at
 * the text in the input, the cursor is behind the closing quote and the text's byte length
 * is returned. Otherwise -1, and the cursor has not moved. */
int rtJsonDecStringFast(QSCTXT* ctxt, const QSOCTET** ptext);

/* The common form of an integer, read in place: [-] digits right at the cursor, making a
 * value in lo..hi: 1 with the value and the cursor behind the digits. Otherwise 0 and the
 * cursor has not moved. */
int rtJsonDecIntFast(QSCTXT* ctxt, QSINT64 lo, QSINT64 hi, QSINT64* pvalue);

/* After a member or item: skips whitespace and consumes a ',' if one follows (1), or
 * leaves the next character unread (0). */
int rtJsonDecMoreItems(QSCTXT* ctxt);

/* '{' then rtJsonGetElemIdx; no match is RTERR_UNEXPECTED_IDENTIFIER. */
int rtJsonDecMatchObjectStart(QSCTXT* ctxt, const QSJsonElemName* names, QSSIZE count);

/* Whitespace, one optional comma, whitespace. */
int rtJsonDecSkipWhitespaceAndComma(QSCTXT* ctxt);

/* true / false, also the digits 1 / 0. The Try forms record nothing. */
int rtJsonDecBool(QSCTXT* ctxt, QSBOOL* pvalue);
int rtJsonTryDecBool(QSCTXT* ctxt, QSBOOL* pvalue);

/* Exactly the four characters "null" (no whitespace skipped). */
int rtJsonDecNull(QSCTXT* ctxt);
int rtJsonTryDecNull(QSCTXT* ctxt);

/* A JSON number as text (heap copy). */
int rtJsonDecNumberString(QSCTXT* ctxt, char** ppvalue);

/* One complete JSON value of any kind; its exact text (heap copy,
 * NUL-terminated) through ppvalue when not null. */
int rtJsonDecAnyType(QSCTXT* ctxt, QSUTF8CHAR** ppvalue);

/* As rtJsonDecAnyType, prefixed with "\"<current element name>\":" when an
 * element name is current. */
int rtJsonDecAnyElem2(QSCTXT* ctxt, QSUTF8CHAR** ppvalue);

/* Quoted hex string into data (capacity bufsize bytes); an odd digit
 * count is right-aligned. */
int rtJsonDecHexStr64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnocts, QSSIZE bufsize);
int rtJsonDecHexStr(QSCTXT* ctxt, QSOCTET* data, QSUINT32* pnocts, QSSIZE bufsize);

/* Quoted hex string into heap memory. */
int rtJsonDecDynHexStr(QSCTXT* ctxt, ASN1TDynOctStr* pvalue);
int rtJsonDecDynHexStr64(QSCTXT* ctxt, ASN1TDynOctStr64* pvalue);

/* Fixed-size BIT STRING of nbits bits in the quoted-hex form. */
int rtJsonDecFixedBitStrValue(QSCTXT* ctxt, QSSIZE nbits, QSOCTET* data, QSSIZE bufsize);

/* BIT STRING object {"value":"<hex>","length":<bits>} (keys in any order). */
int rtJsonDecBitStrValue(QSCTXT* ctxt, QSUINT32* pnbits, QSOCTET* data, QSSIZE bufsize);
int rtJsonDecBitStrValue64(QSCTXT* ctxt, QSSIZE* pnbits, QSOCTET* data, QSSIZE bufsize);
int rtJsonDecDynBitStr(QSCTXT* ctxt, ASN1TDynBitStr* pvalue);

#endif
