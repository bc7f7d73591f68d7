/*
 * XML writer: declaration, start and end tags with indentation, escaped
 * text and the XER forms of the primitive values.
 *
 * Every write reserves its bytes once and keeps a NUL behind the text, so
 * the buffer always reads as a C string; the byte index never covers it.
 */
#include "rtxmlsrc/rtXml.h"
#include "rtxmlsrc/rtXmlFastEnc.h"

#include <cstring>

#include "rtjsonsrc/rtxText.h"
#include "rtxmlsrc/rtXmlInternal.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxEnum.h"
#include "rtxsrc/rtxMemory.h"

#define XML_MODULE "../../rtxmlsrc/rtXmlEnc.cpp"

/* Keeps the named-element work out of line, so that the calls without a name (content written
 * straight into the open element) stay cheap. */
#if defined(__GNUC__)
#define XML_NOINLINE __attribute__((noinline))
#else
#define XML_NOINLINE
#endif

using namespace xmlimpl;

namespace {

const char kHexUpper[] = "0123456789ABCDEF";
const char kHexLower[] = "0123456789abcdef";

/* Stack block through which hex digits and bits are written. */
const QSSIZE kChunk = 80;

inline bool isEmptyName(const QSUTF8CHAR* name) { return name == nullptr || *name == 0; }

inline bool asn1Mode(const QSCTXT* ctxt) { return (ctxt->flags & QSXMLCTXT) != 0; }

inline const char* prefixOf(const QSXmlNamespace* pNS)
{
   return (pNS != nullptr && pNS->prefix != nullptr && *pNS->prefix != 0) ? (const char*)pNS->prefix : nullptr;
}

int putText(QSCTXT* ctxt, const void* p, QSSIZE n)
{
   int stat = reserve(ctxt, n);
   if (stat != 0) return XML_LOG(ctxt, stat);
   put(ctxt, p, n);
   return 0;
}

inline int putStr(QSCTXT* ctxt, const char* s) { return putText(ctxt, s, std::strlen(s)); }

/* n indentation characters at p; the new cursor. */
inline QSOCTET* putIndentChars(QSOCTET* p, QSUTF8CHAR ch, QSSIZE n)
{
   static const char kSpaces[] = "                                ";
   if (ch == ' ' && n <= (QSSIZE)sizeof(kSpaces) - 1) std::memcpy(p, kSpaces, n);
   else std::memset(p, ch, n);
   return p + n;
}

/* ---- fast writers ------------------------------------------------------------------------------
 * The common shapes are written in one piece with the helpers of rtXmlFastEnc.h (room, state,
 * line, tag, commit), which ask for xmlfast::kFastSlack bytes of room beyond the text; when a case
 * does not apply they write nothing and the general code takes over at the same point. */

/* '<' or "</", the name (not padded), '>' at p; the new cursor. */
inline QSOCTET* fastTag(QSOCTET* p, bool endTag, const QSUTF8CHAR* name, QSSIZE nlen)
{
   *p++ = '<';
   *p = '/';
   p += endTag;
   std::memcpy(p, name, nlen);
   p += nlen;
   *p++ = '>';
   return p;
}

/* Eight '0'/'1' digits per byte value, first bit first. */
struct BitDigits {
   char d[256][8];
   constexpr BitDigits() : d()
   {
      for (int v = 0; v < 256; v++)
         for (int i = 0; i < 8; i++) d[v][i] = (v & (0x80 >> i)) ? '1' : '0';
   }
};
constexpr BitDigits kBitDigits;

/* The newest name of the element-name stack, or null. */
inline const QSUTF8CHAR* openName(const QSCTXT* ctxt)
{
   const QSElemNameStack& st = ctxt->elemNameStack;
   if (st.count == 0) return nullptr;
   return (st.more != nullptr ? st.more : st.inlineNames)[st.count - 1].name;
}

inline bool sameName(const QSUTF8CHAR* a, const QSUTF8CHAR* b)
{
   return a == b || (a != nullptr && std::strcmp((const char*)a, (const char*)b) == 0);
}

/* opener, "prefix:" when there is a prefix, the name, closer: the name part of a start or end
 * tag, reserved once. The opener and closer are literals of olen and clen bytes. */
inline int putTagName(QSCTXT* ctxt, const char* opener, QSSIZE olen, const char* prefix,
                      const QSUTF8CHAR* name, const char* closer, QSSIZE clen)
{
   QSSIZE plen = (prefix != nullptr) ? (QSSIZE)std::strlen(prefix) : 0;
   QSSIZE nlen = (QSSIZE)std::strlen((const char*)name);
   int stat = reserve(ctxt, olen + plen + 1 + nlen + clen + 1);
   if (stat != 0) return stat;
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   std::memcpy(p, opener, olen);
   p += olen;
   if (prefix != nullptr) {
      std::memcpy(p, prefix, plen);
      p += plen;
      *p++ = ':';
   }
   std::memcpy(p, name, nlen);
   p += nlen;
   std::memcpy(p, closer, clen);
   p += clen;
   ctxt->lastChar = p[-1];
   *p = 0;
   b.byteIndex = (QSSIZE)(p - b.data);
   return 0;
}

/* Writes the '>' of a start tag still open for attributes ("/>" when the
 * element was started as an empty element). */
int closePendingStartTag(QSCTXT* ctxt)
{
   if (!(ctxt->flags & QSXMLSTARTOPEN)) return 0;
   return rtXmlEncTermStartElement(ctxt);
}

/* Prepares character data: closes a pending start tag. */
int beginData(QSCTXT* ctxt)
{
   int stat = closePendingStartTag(ctxt);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

/* The namespace declarations of the root element (outside ASN.1 XML mode). */
int writeNSDecls(QSCTXT* ctxt)
{
   const QSXmlCtxtInfo* info = infoOf(ctxt);
   for (const QSXmlNSDecl* ns = info->nsDecls; ns != nullptr; ns = ns->next) {
      int stat = putStr(ctxt, " xmlns");
      if (stat == 0 && ns->prefix != nullptr) stat = putText(ctxt, ":", 1);
      if (stat == 0 && ns->prefix != nullptr) stat = putStr(ctxt, ns->prefix);
      if (stat == 0) stat = putText(ctxt, "=\"", 2);
      if (stat == 0) stat = rtXmlEncStringValue(ctxt, (const QSUTF8CHAR*)ns->uri);
      if (stat == 0) stat = putText(ctxt, "\"", 1);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   return 0;
}

/* Bytes of the escaped form of one byte (0: written as it is). */
inline const char* escapeOf(QSOCTET c, bool inAttr)
{
   switch (c) {
      case '"': return "&quot;";
      case '&': return "&amp;";
      case '\'': return "&apos;";
      case '<': return "&lt;";
      case '>': return "&gt;";
      case 0x09: return inAttr ? "&#x9;" : nullptr;
      case 0x0A: return inAttr ? "&#xA;" : nullptr;
      case 0x0D: return inAttr ? "&#xD;" : nullptr;
      default: return nullptr;
   }
}

/* True when some byte of the text is written as an entity in element content. */
inline bool needsEscape(const QSUTF8CHAR* text, QSSIZE n)
{
   /* bits of '"' '&' '\'' '<' '>' counted from '"' (0x22) */
   const QSUINT64 kMask = (1ull << 0) | (1ull << 4) | (1ull << 5) | (1ull << 26) | (1ull << 28);
   for (QSSIZE i = 0; i < n; i++) {
      unsigned d = (unsigned)text[i] - 0x22u;
      if (d <= 28 && ((kMask >> d) & 1) != 0) return true;
   }
   return false;
}

/* Characters collected in a stack block and appended a block at a time. */
struct CharBlock {
   QSCTXT* ctxt;
   char buf[kChunk];
   QSSIZE used = 0;

   explicit CharBlock(QSCTXT* c) : ctxt(c) {}
   int add(char ch)
   {
      buf[used++] = ch;
      return (used == kChunk) ? flush() : 0;
   }
   int flush()
   {
      if (used == 0) return 0;
      int stat = putText(ctxt, buf, used);
      used = 0;
      return (stat != 0) ? XML_LOG(ctxt, stat) : 0;
   }
};

/* Writes the hex digits of nocts bytes. */
int writeHex(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data, bool upper)
{
   const char* digits = upper ? kHexUpper : kHexLower;
   CharBlock block(ctxt);
   for (QSSIZE i = 0; i < nocts; i++) {
      int stat = block.add(digits[data[i] >> 4]);
      if (stat == 0) stat = block.add(digits[data[i] & 0x0F]);
      if (stat != 0) return stat;
   }
   return block.flush();
}

/* Writes one '0'/'1' per bit: the bits of data (dataSize bytes) first, then
 * those of extData. */
int writeBits(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE dataSize, const QSOCTET* extData)
{
   CharBlock block(ctxt);
   for (QSSIZE i = 0; i < nbits; i++) {
      QSSIZE byte = i / 8;
      QSOCTET ub = (byte < dataSize || extData == nullptr) ? data[byte] : extData[byte - dataSize];
      int stat = block.add((ub & (0x80 >> (i % 8))) ? '1' : '0');
      if (stat != 0) return stat;
   }
   return block.flush();
}

/* True when the bytes are valid UTF-8 throughout. */
bool isUTF8(const QSOCTET* p, QSSIZE n)
{
   QSSIZE i = 0;
   while (i < n) {
      QSOCTET c = p[i];
      QSSIZE len;
      QSUINT32 cp;
      if (c < 0x80) { i++; continue; }
      if (c >= 0xC2 && c <= 0xDF) { len = 2; cp = c & 0x1F; }
      else if (c >= 0xE0 && c <= 0xEF) { len = 3; cp = c & 0x0F; }
      else if (c >= 0xF0 && c <= 0xF4) { len = 4; cp = c & 0x07; }
      else return false;
      if (i + len > n) return false;
      for (QSSIZE k = 1; k < len; k++) {
         if ((p[i + k] & 0xC0) != 0x80) return false;
         cp = (cp << 6) | (p[i + k] & 0x3F);
      }
      if ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) ||
          (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)))
         return false;
      i += len;
   }
   return true;
}

/* Value text of an element: start tag, text, end tag; without a name the
 * text alone. */
/* The common case of encValueText in one piece: an element without prefix holding text, inside
 * the root, with no start tag pending and no nil mark: line end and indentation, <name>, the text,
 * </name>. False when the case does not apply or the buffer would have to grow. */
bool encValueTextFast(QSCTXT* ctxt, const char* text, QSSIZE len, const QSUTF8CHAR* elemName,
                      const QSXmlNamespace* pNS)
{
   QSSIZE indent;
   if (len == 0 || isEmptyName(elemName) || prefixOf(pNS) != nullptr || !xmlfast::state(ctxt, &indent)) return false;
   QSSIZE nindent = indent * ctxt->xmlDepth;
   QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
   QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + 2 * nlen + 5 + len);
   if (p == nullptr) return false;
   p = xmlfast::line(p, indent, nindent);
   p = fastTag(p, false, elemName, nlen);
   std::memcpy(p, text, len);
   p = fastTag(p + len, true, elemName, nlen);
   xmlfast::commit(ctxt, p);
   ctxt->xmlState = QSXMLEND;
   return true;
}

int encValueText(QSCTXT* ctxt, const char* text, QSSIZE len, const QSUTF8CHAR* elemName,
                 const QSXmlNamespace* pNS)
{
   if (encValueTextFast(ctxt, text, len, elemName, pNS)) return 0;
   int stat;
   if (!isEmptyName(elemName)) {
      stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   stat = beginData(ctxt);
   if (stat == 0 && len != 0) {
      stat = putText(ctxt, text, len);
      ctxt->xmlState = QSXMLDATA;
   }
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (!isEmptyName(elemName)) {
      stat = rtXmlEncEndElement(ctxt, elemName, pNS);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   return 0;
}

/* An integer element: the decimal text of the value with its sign. */
int encInt64(QSCTXT* ctxt, bool negative, QSUINT64 magnitude, const QSUTF8CHAR* elemName,
             const QSXmlNamespace* pNS)
{
   char buf[24];
   char* end = buf + sizeof(buf);
   char* p = rtxTxtFormatUInt64(end, magnitude);
   if (negative) *--p = '-';
   int stat = encValueText(ctxt, p, (QSSIZE)(end - p), elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

/* <elemName> then an empty element named by the identifier, then </elemName>;
 * without elemName the empty element alone. */
int encEmptyChild(QSCTXT* ctxt, const QSUTF8CHAR* identifier, const QSUTF8CHAR* elemName,
                  const QSXmlNamespace* pNS)
{
   /* the common case in one piece: three lines, <elemName>, one level deeper <identifier/>,
    * </elemName> */
   QSSIZE indent;
   if (!isEmptyName(elemName) && prefixOf(pNS) == nullptr && xmlfast::state(ctxt, &indent)) {
      QSSIZE nindent = indent * ctxt->xmlDepth;
      QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
      QSSIZE ilen = (QSSIZE)std::strlen((const char*)identifier);
      QSOCTET* p = xmlfast::room(ctxt, 3 + 3 * nindent + indent + 2 * nlen + 5 + ilen + 3);
      if (p != nullptr) {
         p = fastTag(xmlfast::line(p, indent, nindent), false, elemName, nlen);
         p = xmlfast::line(p, indent, nindent + indent);
         *p++ = '<';
         std::memcpy(p, identifier, ilen);
         p += ilen;
         *p++ = '/';
         *p++ = '>';
         p = fastTag(xmlfast::line(p, indent, nindent), true, elemName, nlen);
         xmlfast::commit(ctxt, p);
         ctxt->xmlState = QSXMLEND;
         return 0;
      }
   }
   int stat = 0;
   if (!isEmptyName(elemName)) stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
   if (stat == 0) stat = rtXmlEncEmptyElement(ctxt, identifier, nullptr, nullptr, TRUE);
   if (stat == 0 && !isEmptyName(elemName)) stat = rtXmlEncEndElement(ctxt, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

} // namespace

/* ---- document --------------------------------------------------------------------------------- */

int rtXmlEncStartDocument(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (ctxt->xmlState != QSXMLINIT) return 0;
   ctxt->xmlDepth = 0;
   if (ctxt->flags & QSXMLFRAG) return 0;
   QSXmlCtxtInfo* info = infoOf(ctxt);
   if (info == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   if (ctxt->flags & QSXMLC14N) return 0;

   int stat = 0;
   if (!info->writeBOM && info->encodingName == nullptr) {
      static const char kDecl[] = "<?xml version=\"1.0\" encoding=\"" QSXMLHDRUTF8 "\"?>";
      stat = putText(ctxt, kDecl, sizeof(kDecl) - 1);
      if (stat != 0) return XML_LOG(ctxt, stat);
      ctxt->xmlState = QSXMLHEADER;
      return 0;
   }
   if (info->writeBOM && info->encoding == 0) stat = putText(ctxt, "\xEF\xBB\xBF", 3);
   const char* encName = (info->encodingName != nullptr) ? info->encodingName : QSXMLHDRUTF8;
   if (stat == 0) stat = putText(ctxt, "<?xml version=\"1.0\" encoding=\"", 30);
   if (stat == 0) stat = putStr(ctxt, encName);
   if (stat == 0) stat = putText(ctxt, "\"?>", 3);
   if (stat != 0) return XML_LOG(ctxt, stat);
   ctxt->xmlState = QSXMLHEADER;
   return 0;
}

int rtXmlEncEndDocument(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   int stat = closePendingStartTag(ctxt);
   if (stat == 0) stat = reserve(ctxt, 0);
   if (stat != 0) return XML_LOG(ctxt, stat);
   put(ctxt, "", 0);
   return 0;
}

int rtXmlEncIndent(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   const QSXmlCtxtInfo* info = infoOf(ctxt);
   if (info == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   if ((ctxt->flags & QSXMLC14N) && asn1Mode(ctxt)) return 0;
   if (info->indent == 0) return 0;
   QSSIZE nindent = (QSSIZE)info->indent * ctxt->xmlDepth;
   int stat = reserve(ctxt, nindent + 1);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   if (ctxt->xmlState != QSXMLINIT) *p++ = '\n';
   p = putIndentChars(p, info->indentChar, nindent);
   b.byteIndex = (QSSIZE)(p - b.data);
   *p = 0;
   if (b.byteIndex > 0) ctxt->lastChar = p[-1];
   return 0;
}

/* ---- tags ------------------------------------------------------------------------------------- */

/* rtXmlEncStartElement with a name; ctxt and its information record are there. */
XML_NOINLINE static int startNamedElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName,
                                          const QSXmlNamespace* pNS, QSBOOL terminate);

int rtXmlEncStartElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS,
                         QSRTDList* pNSAttrs, QSBOOL terminate)
{
   (void)pNSAttrs;
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (infoOf(ctxt) == nullptr) rtxErrAssertionFailed("0 != pXMLCtxtInfo", __LINE__, XML_MODULE);
   if (!isEmptyName(elemName)) return startNamedElement(ctxt, elemName, pNS, terminate);
   /* no element of its own: the content goes straight into the open one */
   if (terminate && (ctxt->flags & QSXMLSTARTOPEN)) {
      int stat = rtXmlEncTermStartElement(ctxt);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   ctxt->flags &= ~QSXMLNIL;
   return 0;
}

static int startNamedElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS,
                             QSBOOL terminate)
{
   int stat;
   /* the common case in one piece: a complete start tag inside the root: line end, indentation,
    * <name> */
   QSSIZE indent;
   if (terminate && prefixOf(pNS) == nullptr && xmlfast::state(ctxt, &indent)) {
      QSSIZE nindent = indent * ctxt->xmlDepth;
      QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
      QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + nlen + 2);
      if (p != nullptr) {
         p = xmlfast::line(p, indent, nindent);
         xmlfast::commit(ctxt, fastTag(p, false, elemName, nlen));
         stat = rtxCtxtPushElemName(ctxt, elemName);
         if (stat != 0) return XML_LOG(ctxt, stat);
         ctxt->xmlDepth++;
         ctxt->xmlState = QSXMLSTART;
         return 0;
      }
   }
   /* the root element of an ASN.1 XML document after the declaration: line end, <name, and '>'
    * unless the tag is left open */
   const QSXmlCtxtInfo* info = infoOf(ctxt);
   if (ctxt->xmlDepth == 0 && ctxt->xmlState == QSXMLHEADER && asn1Mode(ctxt) && prefixOf(pNS) == nullptr &&
       (ctxt->flags & (QSXMLSTARTOPEN | QSXMLNIL | QSXMLC14N)) == 0) {
      QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
      QSOCTET* p = xmlfast::room(ctxt, nlen + 3);
      if (p != nullptr) {
         *p = '\n';
         p += (info->indent != 0);
         p = fastTag(p, false, elemName, nlen);
         if (!terminate) p--;
         xmlfast::commit(ctxt, p);
         ctxt->xmlDepth = 1;
         ctxt->xmlState = QSXMLSTART;
         if (terminate) ctxt->flags &= ~QSXMLSTARTOPEN;
         else ctxt->flags |= QSXMLSTARTOPEN;
         stat = rtxCtxtPushElemName(ctxt, elemName);
         if (stat != 0) return XML_LOG(ctxt, stat);
         return 0;
      }
   }
   stat = closePendingStartTag(ctxt);
   if (stat == 0) stat = rtXmlEncIndent(ctxt);
   if (stat != 0) return XML_LOG(ctxt, stat);
   bool root = (ctxt->xmlDepth == 0);
   ctxt->xmlDepth++;
   ctxt->xmlState = QSXMLSTART;

   stat = putTagName(ctxt, "<", 1, prefixOf(pNS), elemName, "", 0);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (root && !asn1Mode(ctxt)) {
      stat = writeNSDecls(ctxt);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   if (ctxt->flags & QSXMLNIL) {
      stat = putStr(ctxt, " xsi:nil=\"true\"");
      if (stat != 0) return XML_LOG(ctxt, stat);
      ctxt->flags &= ~QSXMLNIL;
   }
   if (terminate) {
      stat = putText(ctxt, ">", 1);
      if (stat != 0) return XML_LOG(ctxt, stat);
      ctxt->flags &= ~QSXMLSTARTOPEN;
   }
   else {
      ctxt->flags |= QSXMLSTARTOPEN;
   }
   stat = rtxCtxtPushElemName(ctxt, elemName);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncTermStartElement(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (!(ctxt->flags & QSXMLSTARTOPEN)) return 0;
   int stat;
   if (ctxt->flags & QSXMLEMPTY) {
      /* the element was started empty: it ends here */
      stat = putText(ctxt, "/>", 2);
      if (stat != 0) return XML_LOG(ctxt, stat);
      ctxt->flags &= ~(QSXMLEMPTY | QSXMLSTARTOPEN);
      ctxt->xmlState = QSXMLEND;
      if (ctxt->xmlDepth > 0) ctxt->xmlDepth--;
      rtxCtxtPopElemName(ctxt);
      return 0;
   }
   stat = putText(ctxt, ">", 1);
   if (stat != 0) return XML_LOG(ctxt, stat);
   ctxt->flags &= ~QSXMLSTARTOPEN;
   return 0;
}

/* rtXmlEncEndElement with a name; ctxt is there. */
XML_NOINLINE static int endNamedElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

int rtXmlEncEndElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (isEmptyName(elemName)) return 0;
   return endNamedElement(ctxt, elemName, pNS);
}

static int endNamedElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (infoOf(ctxt) == nullptr) rtxErrAssertionFailed("0 != pXMLCtxtInfo", __LINE__, XML_MODULE);

   const QSUTF8CHAR* open = openName(ctxt);
   /* the common case in one piece: the end of the open element after its character data or its
    * last child (then on a line of its own): [line end, indentation] </name> */
   QSSIZE indent;
   if ((ctxt->xmlState == QSXMLEND || ctxt->xmlState == QSXMLDATA) && prefixOf(pNS) == nullptr &&
       xmlfast::state(ctxt, &indent) && sameName(open, elemName)) {
      QSSIZE nindent = indent * (ctxt->xmlDepth - 1);
      QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
      QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + nlen + 3);
      if (p != nullptr) {
         if (ctxt->xmlState == QSXMLEND) p = xmlfast::line(p, indent, nindent);
         xmlfast::commit(ctxt, fastTag(p, true, elemName, nlen));
         ctxt->xmlState = QSXMLEND;
         ctxt->xmlDepth--;
         rtxCtxtPopElemName(ctxt);
         return 0;
      }
   }
   if (open != elemName && (open == nullptr || std::strcmp((const char*)open, (const char*)elemName) != 0)) {
      /* noted, not fatal: the tag is written as asked */
      rtxErrAddStrParm(ctxt, (open != nullptr) ? (const char*)open : "");
      rtxErrAddStrParm(ctxt, (const char*)elemName);
      rtxErrSetNewData(ctxt, RTERR_XML_TAG_MISMATCH, XML_MODULE, __LINE__);
      rtxErrSetNonFatal(ctxt);
   }

   int stat;
   if (ctxt->xmlState == QSXMLSTART && (asn1Mode(ctxt) || !(ctxt->flags & QSXMLC14N))) {
      /* nothing since the start tag: the element becomes <name/> */
      if (!(ctxt->flags & QSXMLSTARTOPEN) && ctxt->buffer.byteIndex > 0) ctxt->buffer.byteIndex--;
      stat = putText(ctxt, "/>", 2);
      if (stat != 0) return XML_LOG(ctxt, stat);
      ctxt->flags &= ~(QSXMLEMPTY | QSXMLSTARTOPEN);
      ctxt->xmlState = QSXMLEND;
      if (ctxt->xmlDepth > 0) ctxt->xmlDepth--;
   }
   else {
      stat = closePendingStartTag(ctxt);
      if (stat != 0) return XML_LOG(ctxt, stat);
      if (ctxt->xmlDepth > 0) ctxt->xmlDepth--;
      if (ctxt->xmlState == QSXMLEND || ctxt->xmlState == QSXMLCOMMENT) {
         stat = rtXmlEncIndent(ctxt);
         if (stat != 0) return XML_LOG(ctxt, stat);
      }
      ctxt->xmlState = QSXMLEND;
      stat = putTagName(ctxt, "</", 2, prefixOf(pNS), elemName, ">", 1);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   rtxCtxtPopElemName(ctxt);
   return 0;
}

int rtXmlEncEmptyElement(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS,
                         QSRTDList* pNSAttrs, QSBOOL terminate)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (isEmptyName(elemName)) return 0;
   int stat = rtXmlEncStartElement(ctxt, elemName, pNS, pNSAttrs, FALSE);
   if (stat != 0) return XML_LOG(ctxt, stat);
   ctxt->flags |= QSXMLEMPTY;
   if (terminate) {
      stat = rtXmlEncTermStartElement(ctxt);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   return 0;
}

/* ---- values ----------------------------------------------------------------------------------- */

int rtXmlEncInt(QSCTXT* ctxt, QSINT32 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   return rtXmlEncInt64(ctxt, value, elemName, pNS);
}

int rtXmlEncUInt(QSCTXT* ctxt, QSUINT32 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   return rtXmlEncUInt64(ctxt, value, elemName, pNS);
}

int rtXmlEncInt64(QSCTXT* ctxt, QSINT64 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   QSUINT64 magnitude = (value < 0) ? (QSUINT64)0 - (QSUINT64)value : (QSUINT64)value;
   return encInt64(ctxt, value < 0, magnitude, elemName, pNS);
}

int rtXmlEncUInt64(QSCTXT* ctxt, QSUINT64 value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   return encInt64(ctxt, false, value, elemName, pNS);
}

int rtXmlEncStringValue2(QSCTXT* ctxt, const QSUTF8CHAR* value, QSSIZE nbytes)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (value == nullptr || nbytes == 0) return 0;
   bool inAttr = (ctxt->xmlState == QSXMLATTR);
   int stat = 0;
   if (!inAttr) stat = beginData(ctxt);
   if (stat != 0) return XML_LOG(ctxt, stat);

   QSSIZE total = 0;
   for (QSSIZE i = 0; i < nbytes; i++) {
      const char* esc = escapeOf(value[i], inAttr);
      total += (esc != nullptr) ? std::strlen(esc) : 1;
   }
   stat = reserve(ctxt, total);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   QSOCTET* p = b.data + b.byteIndex;
   for (QSSIZE i = 0; i < nbytes; i++) {
      const char* esc = escapeOf(value[i], inAttr);
      if (esc == nullptr) {
         *p++ = value[i];
      }
      else {
         QSSIZE n = std::strlen(esc);
         std::memcpy(p, esc, n);
         p += n;
      }
   }
   b.byteIndex = (QSSIZE)(p - b.data);
   *p = 0;
   ctxt->lastChar = p[-1];
   if (!inAttr) ctxt->xmlState = QSXMLDATA;
   return 0;
}

int rtXmlEncStringValue(QSCTXT* ctxt, const QSUTF8CHAR* value)
{
   QSSIZE n = (value != nullptr) ? std::strlen((const char*)value) : 0;
   return rtXmlEncStringValue2(ctxt, value, n);
}

int rtXmlEncUTF8Str(QSCTXT* ctxt, const QSUTF8CHAR* value, const QSUTF8CHAR* elemName,
                    const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   /* text with nothing to escape in a named element: in one piece when the state allows */
   if (value != nullptr && !isEmptyName(elemName)) {
      QSSIZE n = (QSSIZE)std::strlen((const char*)value);
      if (!needsEscape(value, n) && encValueTextFast(ctxt, (const char*)value, n, elemName, pNS)) return 0;
   }
   int stat = 0;
   if (!isEmptyName(elemName)) stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
   if (stat == 0) stat = rtXmlEncStringValue(ctxt, value);
   if (stat == 0 && !isEmptyName(elemName)) stat = rtXmlEncEndElement(ctxt, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncBool(QSCTXT* ctxt, QSBOOL value, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   const char* word = value ? "true" : "false";
   int stat = asn1Mode(ctxt)
      ? encEmptyChild(ctxt, (const QSUTF8CHAR*)word, elemName, pNS)
      : encValueText(ctxt, word, std::strlen(word), elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncEnum(QSCTXT* ctxt, const QSUTF8CHAR* identifier, const QSUTF8CHAR* elemName,
                 const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (isEmptyName(identifier)) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   int stat = encEmptyChild(ctxt, identifier, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncNull(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   int stat = rtXmlEncEmptyElement(ctxt, elemName, pNS, nullptr, TRUE);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncBitStringExt(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE dataSize,
                         const QSOCTET* extData, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr || (data == nullptr && nbits != 0)) return RTERR_INVALID_PARAMETER;
   /* the common case in one piece: <elemName>digits</elemName> on a line of its own */
   QSSIZE indent;
   if (nbits != 0 && (nbits <= 8 * dataSize || extData == nullptr) && nbits <= 4096 &&
       !isEmptyName(elemName) && prefixOf(pNS) == nullptr && xmlfast::state(ctxt, &indent)) {
      QSSIZE nindent = indent * ctxt->xmlDepth;
      QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
      QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + 2 * nlen + 5 + nbits + 8);
      if (p != nullptr) {
         p = fastTag(xmlfast::line(p, indent, nindent), false, elemName, nlen);
         for (QSSIZE i = 0; i < nbits; i += 8) std::memcpy(p + i, kBitDigits.d[data[i / 8]], 8);
         p = fastTag(p + nbits, true, elemName, nlen);
         xmlfast::commit(ctxt, p);
         ctxt->xmlState = QSXMLEND;
         return 0;
      }
   }
   int stat = 0;
   if (!isEmptyName(elemName)) stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
   if (stat == 0 && nbits != 0) {
      stat = beginData(ctxt);
      if (stat == 0) stat = writeBits(ctxt, nbits, data, dataSize, extData);
      ctxt->xmlState = QSXMLDATA;
   }
   if (stat == 0 && !isEmptyName(elemName)) stat = rtXmlEncEndElement(ctxt, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncBitString(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data,
                      const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   return rtXmlEncBitStringExt(ctxt, nbits, data, (nbits + 7) / 8, nullptr, elemName, pNS);
}

int rtXmlEncNamedBits(QSCTXT* ctxt, const QSXmlNamedBit* table, QSSIZE tableSize, QSSIZE nbits,
                      const QSOCTET* data, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (asn1Mode(ctxt) || table == nullptr) return rtXmlEncBitString(ctxt, nbits, data, elemName, pNS);
   int stat = 0;
   if (!isEmptyName(elemName)) stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
   bool first = true;
   for (QSSIZE i = 0; stat == 0 && i < tableSize; i++) {
      QSUINT32 bit = table[i].bitnum;
      if (bit >= nbits || !(data[bit / 8] & (0x80 >> (bit % 8)))) continue;
      if (first) stat = beginData(ctxt);
      else stat = putText(ctxt, " ", 1);
      if (stat == 0) stat = putStr(ctxt, table[i].name);
      ctxt->xmlState = QSXMLDATA;
      first = false;
   }
   if (stat == 0 && !isEmptyName(elemName)) stat = rtXmlEncEndElement(ctxt, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlEncHexBinary(QSCTXT* ctxt, QSSIZE nocts, const QSOCTET* data,
                      const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if ((QSINT64)nocts < 0) return XML_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   if (data == nullptr && nocts != 0) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   bool upper = asn1Mode(ctxt) || (ctxt->flags & QSXMLHEXUPPER);
   /* the common case in one piece: <elemName>digits</elemName> on a line of its own */
   QSSIZE indent;
   if (nocts != 0 && nocts <= 2048 && !isEmptyName(elemName) && prefixOf(pNS) == nullptr &&
       xmlfast::state(ctxt, &indent)) {
      QSSIZE nindent = indent * ctxt->xmlDepth;
      QSSIZE nlen = (QSSIZE)std::strlen((const char*)elemName);
      QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + 2 * nlen + 5 + 2 * nocts);
      if (p != nullptr) {
         const char* digits = upper ? kHexUpper : kHexLower;
         p = fastTag(xmlfast::line(p, indent, nindent), false, elemName, nlen);
         for (QSSIZE i = 0; i < nocts; i++) {
            *p++ = digits[data[i] >> 4];
            *p++ = digits[data[i] & 0x0F];
         }
         xmlfast::commit(ctxt, fastTag(p, true, elemName, nlen));
         ctxt->xmlState = QSXMLEND;
         return 0;
      }
   }
   int stat = 0;
   if (!isEmptyName(elemName)) stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
   if (stat == 0 && nocts != 0) {
      stat = beginData(ctxt);
      if (stat == 0) stat = writeHex(ctxt, nocts, data, upper);
      ctxt->xmlState = QSXMLDATA;
   }
   if (stat == 0 && !isEmptyName(elemName)) stat = rtXmlEncEndElement(ctxt, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

/* ---- open types ------------------------------------------------------------------------------- */

int rtAsn1XmlEncOpenType(QSCTXT* ctxt, const QSOCTET* data, QSSIZE nocts,
                         const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt == nullptr || (data == nullptr && nocts != 0)) return RTERR_INVALID_PARAMETER;
   bool text = nocts >= 4 && data[0] == '<' && data[nocts - 1] == '>' && isUTF8(data, nocts);
   int stat;
   if (!text) {
      const QSUTF8CHAR* name = isEmptyName(elemName) ? (const QSUTF8CHAR*)"binext" : elemName;
      stat = rtXmlEncHexBinary(ctxt, nocts, data, name, isEmptyName(elemName) ? nullptr : pNS);
      if (stat != 0) return XML_LOG(ctxt, stat);
      return 0;
   }
   if (isEmptyName(elemName)) {
      /* an element of its own, placed like any other child element */
      stat = closePendingStartTag(ctxt);
      if (stat == 0) stat = rtXmlEncIndent(ctxt);
      if (stat == 0) stat = putText(ctxt, data, nocts);
      if (stat != 0) return XML_LOG(ctxt, stat);
      ctxt->xmlState = QSXMLEND;
      return 0;
   }
   stat = rtXmlEncStartElement(ctxt, elemName, pNS, nullptr, TRUE);
   if (stat == 0) stat = putText(ctxt, data, nocts);
   ctxt->xmlState = QSXMLDATA;
   if (stat == 0) stat = rtXmlEncEndElement(ctxt, elemName, pNS);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtAsn1XmlEncOpenTypeExt(QSCTXT* ctxt, const QSRTDList* pElemList)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   if (pElemList == nullptr) return 0;
   for (const QSRTDListNode* n = pElemList->head; n != nullptr; n = n->next) {
      const ASN1TOpenType* ot = static_cast<const ASN1TOpenType*>(n->data);
      if (ot == nullptr) continue;
      int stat = rtAsn1XmlEncOpenType(ctxt, ot->data, ot->numocts, nullptr, nullptr);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
   return 0;
}

/* ---- fast element writers of the generated encoders ------------------------------------------- */

/* ---- shared with the inline writers of rtXmlFastEnc.h ------------------------------------------ */

const char xmlfast::kSpaces32[33] = "                                ";

int rtXmlEncFastBits(QSCTXT* ctxt, QSSIZE nbits, const QSOCTET* data, QSSIZE maxbits, const char* name,
                     QSSIZE len)
{
   QSSIZE indent;
   if (nbits == 0 || data == nullptr || nbits > maxbits || nbits > 4096 || !xmlfast::state(ctxt, &indent)) return 1;
   QSSIZE nindent = indent * ctxt->xmlDepth;
   QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + 2 * len + 5 + nbits + 8);
   if (p == nullptr) return 1;
   p = xmlfast::tag(xmlfast::line(p, indent, nindent), false, name, len);
   for (QSSIZE i = 0; i < nbits; i += 8) std::memcpy(p + i, kBitDigits.d[data[i / 8]], 8);
   xmlfast::commit(ctxt, xmlfast::tag(p + nbits, true, name, len));
   ctxt->xmlState = QSXMLEND;
   return 0;
}

int rtXmlEncFastStr(QSCTXT* ctxt, const char* value, QSSIZE lo, QSSIZE hi, const char* name, QSSIZE len)
{
   if (value == nullptr) return 1;
   QSSIZE n = (QSSIZE)std::strlen(value);
   QSSIZE indent;
   if (n == 0 || n < lo || n > hi || needsEscape((const QSUTF8CHAR*)value, n) || !xmlfast::state(ctxt, &indent)) return 1;
   QSSIZE nindent = indent * ctxt->xmlDepth;
   QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + 2 * len + 5 + n);
   if (p == nullptr) return 1;
   p = xmlfast::tag(xmlfast::line(p, indent, nindent), false, name, len);
   std::memcpy(p, value, n);
   xmlfast::commit(ctxt, xmlfast::tag(p + n, true, name, len));
   ctxt->xmlState = QSXMLEND;
   return 0;
}
