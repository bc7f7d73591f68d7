/*
 * XML runtime: the XER-style writer under the generated XML encoders and the
 * pull reader under the generated XML decoders.
 *
 * Every function takes the context first and returns 0 or a negative status
 * (rtxErrCodes.h, plus the XML codes below), recorded in the context with its
 * source location. The writer appends to the context's message buffer at
 * buffer.byteIndex; the reader takes its input from the context's buffer (bound
 * from the context's input stream on first use).
 *
 * The writer and reader state that is not in QSCTXT itself (settings, the
 * namespace stack, the reader) lives in the XML information record hung on the
 * context's first application-data slot (rtXmlInitCtxtAppInfo).
 */
#ifndef RTXML_H
#define RTXML_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtsrc/asn1type.h"

/* ---- status codes of the XML runtime (registered by rtErrXmlInit) --------------------------- */
#define RTERR_XML_GENERAL                  -200
#define RTERR_XML_INVALID_SYMBOL           -201
#define RTERR_XML_TAG_MISMATCH             -202
#define RTERR_XML_DUPLICATE_ATTRIBUTE      -203
#define RTERR_XML_BAD_CHAR_REFERENCE       -204
#define RTERR_XML_INVALID_DATA_MODE        -205
#define RTERR_XML_UNEXPECTED_EOF           -206
#define RTERR_XML_TAG_NOT_MATCHED          -207
#define RTERR_XML_REQUIRED_ELEMENT_MISSED  -208
#define RTERR_XML_REQUIRED_ELEMENTS_MISSED -209
#define RTERR_XML_MIN_OCCURS               -210
#define RTERR_XML_UNEXPECTED_START_TAG     -211
#define RTERR_XML_UNEXPECTED_END_TAG       -212
#define RTERR_XML_UNEXPECTED_IDENTIFIER    -213
#define RTERR_XML_UNKNOWN_XSI_TYPE         -214
#define RTERR_XML_NAMESPACE_NOT_FOUND      -215
#define RTERR_XML_KEY_NOT_FOUND            -216
#define RTERR_XML_DUPLICATE_KEY            -217
#define RTERR_XML_KEY_FIELD_ABSENT         -218
#define RTERR_XML_KEY_DUPLICATE_FIELD      -219
#define RTERR_XML_ELEMENT_NOT_EMPTY        -220

/* ---- context flags of the XML writer and reader ---------------------------------------------- */
/* QSXMLCTXT (0x8, rtxContext.h) is the ASN.1 XML mode: XER forms, no namespaces. */
#define QSXMLNIL        0x00000040U  /* write xsi:nil on the next start tag */
#define QSXMLC14N       0x00000200U  /* canonical output */
#define QSXMLFRAG       0x00000800U  /* fragment: no declaration */
#define QSXMLEMPTY      0x00002000U  /* close the pending start tag as an empty element */
#define QSXMLSTARTOPEN  0x00004000U  /* the last start tag still lacks its '>' */
#define QSXMLHEXUPPER   0x00008000U  /* upper-case hex outside ASN.1 XML mode */
#define QSXMLBUFDYN     0x20000000U  /* set by rtXmlSetEncBufPtr */

/* Writer states (QSCTXT::xmlState). */
#define QSXMLINIT      0   /* nothing written */
#define QSXMLHEADER    1   /* declaration written */
#define QSXMLSTART     2   /* start tag written, nothing after it */
#define QSXMLATTR      3   /* inside an attribute value */
#define QSXMLDATA      4   /* character data written */
#define QSXMLEND       5   /* end tag or empty element written */
#define QSXMLCOMMENT   6   /* comment written (indents like QSXMLEND) */

/* Reader events. */
#define QSXMLP_START_TAG  2
#define QSXMLP_CHARS      4
#define QSXMLP_END_TAG    8
#define QSXMLP_END_DOC    0x10

/* Result of the element lookups when the content of the element has ended. */
#define QSXML_END_OF_CONTENT 0x7fffffff

/* Declaration text. */
#define QSXMLHDRUTF8 "UTF-8"

/* A namespace: URI and prefix, either may be null. */
struct QSXmlNamespace {
   const QSUTF8CHAR* uri;
   const QSUTF8CHAR* prefix;
};

/* Qualified name of an element met by the reader (rtXmlpGetNextElem); the texts are heap copies. */
struct QSXmlQName {
   const QSUTF8CHAR* ln;        /* local name */
   const QSUTF8CHAR* nsPrefix;  /* prefix, or null */
};

/* One expected child element of a generated decoder. */
struct QSXmlElemDescr {
   const char* name;   /* local name; an empty name is a wildcard */
   QSSIZE nameLen;     /* bytes */
   QSINT16 nsidx;      /* -1 any namespace, 0 none, n the n-th namespace of the reader */
   QSUINT16 id;        /* identifier returned when the entry matches */
};

/* One group of SEQUENCE members: a member and the optional members that may stand in its place. */
struct QSXmlGroupDesc {
   QSINT32 row;        /* first entry in the element table */
   QSINT32 num;        /* number of entries */
   QSINT32 anyCase;    /* identifier for an unknown element here, -1 when none is allowed */
};

/* ================================ setup ================================= */

/* Registers the XML status texts (-200..-220 over the range -200..-299) once. */
int rtErrXmlInit();

/* Creates the XML information record in the context's first application-data slot when it
 * is missing (indent 3, indent character ' ', UTF-8, no byte-order mark), registers the XML
 * texts and resets xmlState. */
int rtXmlInitCtxtAppInfo(QSCTXT* ctxt);

/* Settings of the XML information record (rtXmlInitCtxtAppInfo must have run). */
int rtXmlSetIndent(QSCTXT* ctxt, QSUINT8 indent);
int rtXmlGetIndent(QSCTXT* ctxt);
int rtXmlSetIndentChar(QSCTXT* ctxt, QSUTF8CHAR indentChar);
int rtXmlGetIndentChar(QSCTXT* ctxt);
int rtXmlSetWriteBOM(QSCTXT* ctxt, QSBOOL write);
QSBOOL rtXmlGetWriteBOM(QSCTXT* ctxt);
int rtXmlSetEncoding(QSCTXT* ctxt, int encoding);   /* 0 UTF-8 */
int rtXmlSetEncodingName(QSCTXT* ctxt, const QSUTF8CHAR* name);

/* Namespace declaration written on the root element outside ASN.1 XML mode (xmlns or
 * xmlns:prefix); the texts are copied. */
int rtXmlAddNamespaceDecl(QSCTXT* ctxt, const QSUTF8CHAR* prefix, const QSUTF8CHAR* uri);

/* Number of non-fatal errors the reader records before it stops recording them (0: all).
 * Elements past the limit are still skipped, only not reported one by one: this keeps the cost
 * of a document full of unknown elements linear. */
#define QSXML_DEFAULT_MAX_ERRORS 32
int rtXmlSetMaxErrors(QSCTXT* ctxt, unsigned maxErrors);

/* Output buffer: the caller's (never grown) or, when buf is null, a dynamic one. */
int rtXmlSetEncBufPtr(QSCTXT* ctxt, QSOCTET* buf, QSSIZE size);

/* ================================ writer ================================ */

int rtXmlEncStartDocument(QSCTXT* ctxt);
int rtXmlEncEndDocument(QSCTXT* ctxt);

/* Indentation before a tag: a line feed unless nothing was written, then depth x width
 * indent characters. */
int rtXmlEncIndent(QSCTXT* ctxt);

/* Start tag; with a null or empty name only a pending start tag is closed (when terminate is
 * set). Without terminate the '>' is left off (startTagOpen) until the next write. */
int rtXmlEncStartElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS,
                         QSRTDList* pNSAttrs, QSBOOL terminate);
int rtXmlEncTermStartElement(QSCTXT* ctxt);

/* End tag, or "/>" in place of the '>' when nothing was written since the start tag. */
int rtXmlEncEndElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* <name/>. */
int rtXmlEncEmptyElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS,
                         QSRTDList* pNSAttrs, QSBOOL terminate);

/* Value writers: <elemName>value</elemName>; with a null or empty name the value alone. */
int rtXmlEncInt(QSCTXT* ctxt, QSINT32 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);
int rtXmlEncUInt(QSCTXT* ctxt, QSUINT32 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);
int rtXmlEncInt64(QSCTXT* ctxt, QSINT64 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);
int rtXmlEncUInt64(QSCTXT* ctxt, QSUINT64 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* Escaped UTF-8 text (the five entities); an empty or null text gives an empty element. */
int rtXmlEncUTF8Str(QSCTXT* ctxt, const QSUTF8CHAR* value, const QSUTF8CHAR* elemName,
                    const QSXmlNamespace* pNS);
int rtXmlEncStringValue(QSCTXT* ctxt, const QSUTF8CHAR* value);
int rtXmlEncStringValue2(QSCTXT* ctxt, const QSUTF8CHAR* value, QSSIZE nbytes);

/* BOOLEAN in ASN.1 XML mode: <elemName><true/></elemName> (bare text otherwise). */
int rtXmlEncBool(QSCTXT* ctxt, QSBOOL value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* ENUMERATED: <elemName><identifier/></elemName>. */
int rtXmlEncEnum(QSCTXT* ctxt, const QSUTF8CHAR* identifier, const QSUTF8CHAR* elemName,
                 const QSXmlNamespace* pNS);

/* NULL: <elemName/>. */
int rtXmlEncNull(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* BIT STRING as '0'/'1' digits, first bit first. The Ext form holds the bits in two parts:
 * dataSize bytes in data, the bits beyond 8 * dataSize in extData. */
int rtXmlEncBitString(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data,
                      const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);
int rtXmlEncBitStringExt(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE dataSize,
                         const QSOCTET* extData, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* Named bits: names of the set bits separated by one space (outside ASN.1 XML mode). */
struct QSXmlNamedBit {
   const char* name;
   QSUINT32 bitnum;
};
int rtXmlEncNamedBits(QSCTXT* ctxt, const QSXmlNamedBit* table, QSSIZE tableSize, QSSIZE nbits,
                      const QSOCTET* data, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* OCTET STRING as hex digits (upper case in ASN.1 XML mode), 80-character chunks. */
int rtXmlEncHexBinary(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data,
                      const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* Open type: verbatim when the bytes are XML text (>= 4 bytes, '<' ... '>', valid UTF-8),
 * else upper-case hex inside elemName or, without a name, a "binext" element. */
int rtAsn1XmlEncOpenType(QSCTXT* ctxt, const QSOCTET* data, QSSIZE nocts,
                         const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* Each open type of an extension list (node data: ASN1TOpenType*) with no element name. */
int rtAsn1XmlEncOpenTypeExt(QSCTXT* ctxt, const QSRTDList* pElemList);

/* ---- fast element writers of the generated encoders ----------------------------------------
 * The name comes with its length (len bytes, no prefix) in storage padded with NULs to a multiple
 * of 16 bytes, so it is copied in whole blocks. rtXmlEncFastBits writes the BIT STRING element of
 * nbits bits (at most maxbits) from data exactly as the general writer would and returns 0 when
 * the writer state and the room in the buffer allow the one-piece form; otherwise it writes
 * nothing and returns 1, and the caller uses the general writer. The other element writers of
 * this kind are inline, in rtXmlFastEnc.h. */
int rtXmlEncFastBits(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE maxbits, const char* name,
                     QSSIZE len);
/* The same for a character string of lo to hi bytes (a byte length outside them, an empty string
 * or a byte that needs an entity is left to the general writer). */
int rtXmlEncFastStr(QSCTXT* ctxt, const char* value, QSSIZE lo, QSSIZE hi, const char* name, QSSIZE len);

/* ================================ reader ================================ */

/* Creates the pull reader over the context's input (assertion when the information record is
 * missing). */
int rtXmlpCreateReader(QSCTXT* ctxt);

/* 0 when the next start tag has this name (namespace index 0 or -1: any), else
 * RTERR_XML_UNEXPECTED_IDENTIFIER. */
int rtXmlpMatchStartTag(QSCTXT* ctxt, const QSUTF8CHAR* elemLocalName, QSINT16 nsidx);

/* Reads up to the end tag of the level (-1: the current one); child elements met first are
 * recorded as non-fatal RTERR_UNEXPECTED_ELEMENT and skipped, character data is passed over.
 * Pops the element-name stack once for every end tag it consumes of an element that was entered
 * (the level's own and, for an outer level, the inner ones). When the root element closes, what
 * follows it is checked: only whitespace, comments and processing instructions may (a trailing
 * element is RTERR_XML_UNEXPECTED_START_TAG, trailing text RTERR_XML_INVALID_SYMBOL). */
int rtXmlpMatchEndTag(QSCTXT* ctxt, QSINT32 level);

/* Identifier of the next child element among the table's entries, QSXML_END_OF_CONTENT at the
 * end of the content. An unknown element: RTERR_UNEXPECTED_ELEMENT returned unrecorded with the
 * element left in place and "<unknown>" pushed (required clear), or recorded non-fatally and
 * skipped (required set). Text where an element is expected is RTERR_XML_UNEXPECTED_END_TAG
 * naming the enclosing element. Element prefixes are not resolved to namespaces: every
 * namespace index accepts the tag. */
int rtXmlpGetNextElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, QSSIZE nrows, QSINT32 level,
                        QSBOOL required);

/* Next member of a SEQUENCE from the current group on. */
int rtXmlpGetNextSeqElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, const QSXmlGroupDesc* groups,
                           int curGroup, int lastMandatoryGroup, QSBOOL extensible);
int rtXmlpGetNextSeqElemIDExt(QSCTXT* ctxt, const QSXmlElemDescr* tab, const QSXmlGroupDesc* groups,
                              int curGroup, int lastMandatoryGroup, QSBOOL extensible);

/* Name of the next child element (heap copies), QSXML_END_OF_CONTENT when there is none. */
int rtXmlpGetNextElem(QSCTXT* ctxt, QSXmlQName* pqname, QSINT32 level);

/* 0 when the current element has no content (child elements or non-whitespace text give
 * RTERR_XML_ELEMENT_NOT_EMPTY). Consumes the content but not the end tag. */
int rtXmlDecEmptyElement(QSCTXT* ctxt);

/* Puts the last event back. */
int rtXmlpMarkLastEventActive(QSCTXT* ctxt);

/* The whole current element (start tag, content, end tag) as UTF-8 text on the heap, exactly as
 * written in the input. Entered with the start tag pending (left in place by a failed lookup) or
 * already consumed. The element's end tag is left pending: the caller completes the element with
 * rtXmlpMatchEndTag(-1), which consumes it and pops the name ("<unknown>"). */
int rtXmlpDecAnyElem(QSCTXT* ctxt, const QSUTF8CHAR** pvalue);

/* Unknown elements of a SEQUENCE's extension: entered with the unknown start tag left in
 * place by the member lookup ("<unknown>" pushed). Captures that element whole as text
 * (rtXmlpDecAnyElem), appends a heap ASN1TOpenType {byte length, text} to pExtList and completes
 * the element; repeats while the next child element is again none of the nrows entries of tab.
 * Returns 0 with the next known element (or the parent's end tag) left for the next lookup and
 * no name left pushed. */
int rtXmlpDecExtElems(QSCTXT* ctxt, QSRTDList* pExtList, const QSXmlElemDescr* tab, QSSIZE nrows);

/* The content of the current element as an open type (bytes of its text). */
int rtAsn1XmlpDecOpenType(QSCTXT* ctxt, ASN1TOpenType* pvalue);

/* Value readers: the character data of the current element up to its end tag (left for
 * rtXmlpMatchEndTag). A child element instead is RTERR_XML_UNEXPECTED_START_TAG. Integers: an
 * optional sign and decimal digits with surrounding whitespace dropped; empty
 * RTERR_INVALID_VALUE_FORMAT, another character RTERR_CHARACTER_NOT_IN_SET, out of range
 * RTERR_VALUE_WILL_NOT_FIT. Booleans: "true"/"1", "false"/"0", otherwise
 * RTERR_INVALID_BOOLEAN_KEYWORD (empty: RTERR_INVALID_VALUE_FORMAT). */
int rtXmlpDecInt(QSCTXT* ctxt, QSINT32* pvalue);
int rtXmlpDecInt8(QSCTXT* ctxt, QSINT8* pvalue);
int rtXmlpDecInt16(QSCTXT* ctxt, QSINT16* pvalue);
int rtXmlpDecInt64(QSCTXT* ctxt, QSINT64* pvalue);
int rtXmlpDecUInt(QSCTXT* ctxt, QSUINT32* pvalue);
int rtXmlpDecUInt8(QSCTXT* ctxt, QSUINT8* pvalue);
int rtXmlpDecUInt16(QSCTXT* ctxt, QSUINT16* pvalue);
int rtXmlpDecUInt64(QSCTXT* ctxt, QSUINT64* pvalue);
int rtXmlpDecBool(QSCTXT* ctxt, QSBOOL* pvalue);
int rtXmlpDecDynUTF8Str(QSCTXT* ctxt, const QSUTF8CHAR** outdata);

/* '0'/'1' digits into data (capacity bufsize bytes; whitespace between the digits is allowed).
 * Another character is RTERR_CHARACTER_NOT_IN_SET, more bits than fit
 * RTERR_MAX_STRING_ITEMS_EXCEEDED. The Ext form takes the bits beyond 8 * bufsize into heap memory
 * behind *pextdata. The named-bit form also reads the '0'/'1' form. */
int rtXmlpDecBitString(QSCTXT* ctxt, QSOCTET* data, QSUINT32* pnbits, QSSIZE bufsize);
int rtXmlpDecBitString64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnbits, QSSIZE bufsize);
int rtXmlpDecBitStringExt64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnbits, QSOCTET** pextdata,
                            QSSIZE bufsize);
int rtXmlpDecDynBitString(QSCTXT* ctxt, ASN1TDynBitStr* pvalue);
int rtXmlpDecNamedBits64(QSCTXT* ctxt, const QSXmlNamedBit* table, QSSIZE tableSize,
                         QSOCTET* data, QSSIZE* pnbits, QSSIZE bufsize);

/* Hex digits (either case, whitespace between them allowed) into octets: the caller's
 * (capacity bufsize, more is RTERR_MAX_STRING_ITEMS_EXCEEDED) or heap memory. A non-hex character
 * or an odd number of digits is RTERR_INVALID_HEX_STRING. */
int rtXmlpDecHexStr64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnocts, QSSIZE bufsize);
int rtXmlpDecDynHexStr64(QSCTXT* ctxt, ASN1TDynOctStr64* pvalue);
int rtXmlpDecDynHexStr(QSCTXT* ctxt, ASN1TDynOctStr* pvalue);

/* List mode: the character data read as space-separated items. */
int rtXmlpSetListMode(QSCTXT* ctxt);
QSBOOL rtXmlpListHasItem(QSCTXT* ctxt);
int rtXmlpCountListItems(QSCTXT* ctxt);

/* ---- reader: direct forms for the generated decoders ---------------------------------------- */

/* As rtXmlpDecXerEnum and rtXmlpDecXerBool (asn1XmlGen.h), with the usual form, one empty child
 * <identifier/>, read straight from the input; anything else goes to those functions. The enum
 * form looks the identifier up in the type's table of identifiers (the one toEnum searches). */
struct QSRTEnumTableEntry;
int rtXmlpDecEnumElem(QSCTXT* ctxt, const QSRTEnumTableEntry* table, QSUINT16 count,
                      int (*toEnum)(QSCTXT*, const QSUTF8CHAR*, size_t, QSUINT32*), QSUINT32 top, QSUINT32* pvalue);
int rtXmlpDecBoolElem(QSCTXT* ctxt, QSBOOL* pvalue);

/* The end tag of the member just decoded and the next member, in one call: exactly
 * rtXmlpMatchEndTag(ctxt, -1) (its failure is returned), then QSXML_END_OF_CONTENT when curGroup
 * is not below ngroups, else rtXmlpGetNextSeqElemID with the other arguments. */
int rtXmlpEndNextSeqElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, const QSXmlGroupDesc* groups, int ngroups,
                           int curGroup, int lastMandatoryGroup, QSBOOL extensible);

/* The same for list items: rtXmlpMatchEndTag(ctxt, -1), then rtXmlpGetNextElemID(ctxt, tab, nrows,
 * -1, required). */
int rtXmlpEndNextElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, QSSIZE nrows, QSBOOL required);

/* Document end: the result of the whole decode by the non-fatal-error rule (all non-fatal
 * records alike: their status; different: RTERR_MULTIPLE_ERRORS; none: the context status). */
int rtXmlpDecodeResult(QSCTXT* ctxt);

#endif
