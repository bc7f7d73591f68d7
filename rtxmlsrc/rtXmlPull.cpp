/*
 * XML pull reader: a non-validating tokenizer over the context's input and
 * the pull operations of the generated decoders on top of it.
 *
 * The tokenizer is iterative and keeps the open tags on the heap, so the
 * nesting depth is limited by memory only. It turns the text into events
 * (start tag, character data, end tag, end of document) that carry their
 * nesting level: a start tag and its end tag have the level of the element
 * (the root is 1), character data the level of the element holding it. A
 * self-closing tag gives a start and an end event.
 *
 * The reader holds the last event until an operation marks it done, so an
 * operation may look at it and leave it for the next one. `level` is the
 * level of the innermost element whose start tag was consumed and whose end
 * tag was not.
 */
#include "rtxmlsrc/rtXml.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "rtxmlsrc/asn1XmlGen.h"
#include "rtxmlsrc/rtXmlInternal.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

#define XML_MODULE "../../rtxmlsrc/rtXmlPull.cpp"

using namespace xmlimpl;

/* ---- reader record ---------------------------------------------------------------------------- */

namespace {

/* Growable byte block from the system allocator. */
struct ByteBuf {
   QSOCTET* p = nullptr;
   QSSIZE len = 0;
   QSSIZE cap = 0;

   bool reserve(QSSIZE more)
   {
      if (len + more <= cap) return true;
      QSSIZE ncap = (cap == 0) ? 256 : cap;
      while (ncap < len + more) ncap *= 2;
      QSOCTET* np = static_cast<QSOCTET*>(std::realloc(p, ncap));
      if (np == nullptr) return false;
      p = np;
      cap = ncap;
      return true;
   }
   bool append(const void* data, QSSIZE n)
   {
      if (n == 0) return true;
      if (!reserve(n)) return false;
      std::memcpy(p + len, data, n);
      len += n;
      return true;
   }
   void release()
   {
      if (p != nullptr) std::free(p);
      p = nullptr;
      len = cap = 0;
   }
};

struct OpenTag {
   QSSIZE nameOff;
   QSSIZE nameLen;
   QSSIZE startOff;     /* the '<' of the start tag */
   QSSIZE contentOff;   /* just after the start tag */
};

struct Event {
   int type;            /* QSXMLP_START_TAG ... */
   QSINT32 level;
   QSSIZE nameOff;      /* tags: the qualified name in the input */
   QSSIZE nameLen;
   QSSIZE startOff;     /* first byte of the tag or of the text */
   QSSIZE endOff;       /* just after it */
   bool empty;          /* start tag written as <name/> */
   bool allWs;          /* character data of whitespace only */
};

} // namespace

/* Every member but the first entries of the tag stack starts as zero: a reader is created without
 * clearing those (they are written when pushed). */
struct QSXmlReader {
   const QSOCTET* data = nullptr;
   QSSIZE size = 0;
   QSSIZE pos = 0;
   QSSIZE docStart = 0;     /* where the XML declaration may stand */

   OpenTag* stack = nullptr;  /* open tags of the tokenizer, depth entries */
   QSSIZE depth = 0;
   QSSIZE stackCap = 0;
   bool rootSeen = false;
   bool rootClosed = false;
   bool pendingEnd = false;   /* the end event of a self-closing tag is due */

   Event cur = {};
   bool hasCur = false;
   bool curDone = false;      /* the event is done; also set while there is none yet */
   /* A tag taken by a direct path leaves its event to be filled in from the tag stack when it is
    * read (see settled): kLazyStart, the start tag of the innermost open element; kLazyEnd, the
    * end tag at lazyEnd of the element just closed. Otherwise cur is the event. */
   QSOCTET lazy = 0;
   QSSIZE lazyEnd = 0;
   QSINT32 level = 0;

   ByteBuf text;              /* character data of the newest character event */
   ByteBuf value;             /* character data of the current element */
   QSSIZE valueOff = 0;

   int errStat = 0;           /* sticky failure of the tokenizer */
   unsigned nonFatal = 0;

   /* list mode */
   bool listMode = false;
   ByteBuf list;
   QSSIZE listPos = 0;

   /* line and column of the last position asked for */
   QSSIZE lcOff = 0, lcLine = 0, lcLineStart = 0;

   OpenTag firstTags[24];     /* the stack until it needs more entries */
};

namespace {

enum : QSOCTET { kLazyStart = 1, kLazyEnd = 2 };

/* The current event, filled in first when a direct path left it to the tag stack. Until the next
 * event replaces it, the stack entry it comes from stays as it was: every change of the depth
 * makes a new event. */
Event& settled(QSXmlReader* r)
{
   if (r->lazy == kLazyStart) {
      const OpenTag& t = r->stack[r->depth - 1];
      r->cur = Event{ QSXMLP_START_TAG, (QSINT32)r->depth, t.nameOff, t.nameLen, t.startOff, t.contentOff,
                      false, false };
   }
   else if (r->lazy == kLazyEnd) {
      /* "</name", whitespace only, then '>' (as the direct path found it) */
      const OpenTag& t = r->stack[r->depth];
      QSSIZE q = r->lazyEnd;
      QSSIZE e = q + 2 + t.nameLen;
      while (r->data[e] != '>') e++;
      r->cur = Event{ QSXMLP_END_TAG, (QSINT32)r->depth + 1, q + 2, t.nameLen, q, e + 1, false, false };
   }
   r->lazy = 0;
   return r->cur;
}

/* ---- characters ------------------------------------------------------------------------------- */

/* Character classes of the tokenizer, one table lookup per byte. */
enum : QSOCTET { kWs = 1, kNameStart = 2, kNameChar = 4, kCharStop = 8 };

struct CharClasses {
   QSOCTET c[256];
   constexpr CharClasses() : c()
   {
      for (int i = 0; i < 256; i++) {
         bool start = (i >= 'a' && i <= 'z') || (i >= 'A' && i <= 'Z') || i == '_' || i == ':' || i >= 0x80;
         bool name = start || (i >= '0' && i <= '9') || i == '-' || i == '.';
         c[i] = (QSOCTET)((start ? kNameStart : 0) | (name ? kNameChar : 0));
      }
      c[0x20] |= kWs;
      c[0x09] |= kWs;
      c[0x0A] |= kWs;
      c[0x0D] |= kWs;
      c['<'] |= kCharStop;
      c['&'] |= kCharStop;
   }
};
constexpr CharClasses kClass;

inline bool isWs(QSOCTET c) { return (kClass.c[c] & kWs) != 0; }

inline bool isNameStart(QSOCTET c) { return (kClass.c[c] & kNameStart) != 0; }

inline bool isNameChar(QSOCTET c) { return (kClass.c[c] & kNameChar) != 0; }

inline bool startsWith(const QSXmlReader* r, QSSIZE off, const char* s)
{
   QSSIZE n = std::strlen(s);
   return off + n <= r->size && std::memcmp(r->data + off, s, n) == 0;
}

/* Offset of the first occurrence of s at or after off, or size. */
QSSIZE findText(const QSXmlReader* r, QSSIZE off, const char* s)
{
   QSSIZE n = std::strlen(s);
   while (off + n <= r->size) {
      const void* hit = std::memchr(r->data + off, s[0], r->size - off - n + 1);
      if (hit == nullptr) break;
      off = (QSSIZE)(static_cast<const QSOCTET*>(hit) - r->data);
      if (std::memcmp(r->data + off, s, n) == 0) return off;
      off++;
   }
   return r->size;
}

/* Number of leading bytes of the eight in w (memory order) that are ASCII letters or digits,
 * the usual characters of names, tested on the whole word. */
inline unsigned alnumPrefix(QSUINT64 w)
{
   const QSUINT64 ones = 0x0101010101010101ull, high = 0x8080808080808080ull;
   QSUINT64 ascii = ~w & high;  /* the sums below stay inside their byte for bytes below 0x80 */
   QSUINT64 digit = (w + ones * (0x80 - '0')) & ~(w + ones * (0x7F - '9'));
   QSUINT64 lower = w | ones * 0x20;
   QSUINT64 alpha = (lower + ones * (0x80 - 'a')) & ~(lower + ones * (0x7F - 'z'));
   QSUINT64 ok = (digit | alpha) & ascii;
   if (ok == high) return 8;
   return (unsigned)(__builtin_ctzll(~ok & high) >> 3);
}

inline QSSIZE nameLenAt(const QSXmlReader* r, QSSIZE off)
{
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   if (off >= n || !isNameStart(d[off])) return 0;
   QSSIZE p = off + 1;
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
   while (p + 8 <= n) {
      QSUINT64 w;
      std::memcpy(&w, d + p, 8);
      unsigned k = alnumPrefix(w);
      p += k;
      if (k != 8) break;
   }
#endif
   while (p < n && isNameChar(d[p])) p++;
   return p - off;
}

QSXmlReader* readerOf(QSCTXT* ctxt)
{
   QSXmlCtxtInfo* info = infoOf(ctxt);
   return (info != nullptr) ? info->reader : nullptr;
}

/* ---- failures --------------------------------------------------------------------------------- */

void addNameParm(QSCTXT* ctxt, const QSXmlReader* r, QSSIZE off, QSSIZE len)
{
   rtxErrAddStrnParm(ctxt, (const char*)r->data + off, len);
}

/* The byte at off as a parameter: the character itself when printable,
 * else its code. */
void addSymbolParm(QSCTXT* ctxt, const QSXmlReader* r, QSSIZE off)
{
   QSOCTET c = r->data[off];
   char text[8];
   if (c >= 0x21 && c < 0x7F) {
      text[0] = (char)c;
      text[1] = 0;
   }
   else {
      std::snprintf(text, sizeof text, "#x%02X", c);
   }
   rtxErrAddStrParm(ctxt, text);
}

/* Records a failure of the tokenizer at off (parameters already added);
 * the reader keeps returning it. */
int tokFail(QSCTXT* ctxt, QSXmlReader* r, int stat, QSSIZE off, int line)
{
   addPosParm(ctxt, off);
   r->errStat = stat;
   r->pos = r->size;
   rtxErrSetNewData(ctxt, stat, XML_MODULE, line);
   return stat;
}

#define TOK_FAIL(stat, off) tokFail(ctxt, r, stat, off, __LINE__)

int eofFail(QSCTXT* ctxt, QSXmlReader* r, int line)
{
   return tokFail(ctxt, r, RTERR_XML_UNEXPECTED_EOF, r->size, line);
}

#define EOF_FAIL() eofFail(ctxt, r, __LINE__)

int symbolFail(QSCTXT* ctxt, QSXmlReader* r, QSSIZE off, int line)
{
   if (off >= r->size) return eofFail(ctxt, r, line);
   addSymbolParm(ctxt, r, off);
   return tokFail(ctxt, r, RTERR_XML_INVALID_SYMBOL, off, line);
}

#define SYMBOL_FAIL(off) symbolFail(ctxt, r, off, __LINE__)

/* ---- references ------------------------------------------------------------------------------- */

/* UTF-8 of a code point into out (4 bytes); the byte count. */
int putUTF8(QSUINT32 cp, QSOCTET* out)
{
   if (cp < 0x80) {
      out[0] = (QSOCTET)cp;
      return 1;
   }
   if (cp < 0x800) {
      out[0] = (QSOCTET)(0xC0 | (cp >> 6));
      out[1] = (QSOCTET)(0x80 | (cp & 0x3F));
      return 2;
   }
   if (cp < 0x10000) {
      out[0] = (QSOCTET)(0xE0 | (cp >> 12));
      out[1] = (QSOCTET)(0x80 | ((cp >> 6) & 0x3F));
      out[2] = (QSOCTET)(0x80 | (cp & 0x3F));
      return 3;
   }
   out[0] = (QSOCTET)(0xF0 | (cp >> 18));
   out[1] = (QSOCTET)(0x80 | ((cp >> 12) & 0x3F));
   out[2] = (QSOCTET)(0x80 | ((cp >> 6) & 0x3F));
   out[3] = (QSOCTET)(0x80 | (cp & 0x3F));
   return 4;
}

inline bool isXmlChar(QSUINT32 cp)
{
   return cp == 0x9 || cp == 0xA || cp == 0xD || (cp >= 0x20 && cp <= 0xD7FF) ||
          (cp >= 0xE000 && cp <= 0xFFFD) || (cp >= 0x10000 && cp <= 0x10FFFF);
}

/* Reads the reference at off (the '&'): its UTF-8 into out, the byte count
 * into *pn, the offset after the ';' into *pend. */
int readRef(QSCTXT* ctxt, QSXmlReader* r, QSSIZE off, QSOCTET* out, int* pn, QSSIZE* pend)
{
   QSSIZE p = off + 1;
   if (p >= r->size) return EOF_FAIL();
   if (r->data[p] == '#') {
      p++;
      bool hex = (p < r->size && r->data[p] == 'x');
      if (hex) p++;
      QSUINT32 cp = 0;
      QSSIZE ndigits = 0;
      bool tooBig = false;
      for (; p < r->size; p++, ndigits++) {
         QSOCTET c = r->data[p];
         int d;
         if (c >= '0' && c <= '9') d = c - '0';
         else if (hex && c >= 'a' && c <= 'f') d = c - 'a' + 10;
         else if (hex && c >= 'A' && c <= 'F') d = c - 'A' + 10;
         else break;
         if (cp > 0x10FFFF) tooBig = true;
         else cp = cp * (hex ? 16 : 10) + (QSUINT32)d;
      }
      if (p >= r->size) return EOF_FAIL();
      if (r->data[p] != ';' || ndigits == 0 || tooBig || !isXmlChar(cp)) {
         QSSIZE n = p - off;
         rtxErrAddStrnParm(ctxt, (const char*)r->data + off, (n > 16) ? 16 : n);
         return TOK_FAIL(RTERR_XML_BAD_CHAR_REFERENCE, off);
      }
      *pn = putUTF8(cp, out);
      *pend = p + 1;
      return 0;
   }
   QSSIZE n = nameLenAt(r, p);
   if (n == 0) return SYMBOL_FAIL(off);
   if (p + n >= r->size) return EOF_FAIL();
   static const struct { const char* name; char c; } kEntities[] = {
      { "lt", '<' }, { "gt", '>' }, { "amp", '&' }, { "apos", '\'' }, { "quot", '"' },
   };
   if (r->data[p + n] == ';') {
      for (const auto& e : kEntities) {
         if (std::strlen(e.name) == n && std::memcmp(r->data + p, e.name, n) == 0) {
            out[0] = (QSOCTET)e.c;
            *pn = 1;
            *pend = p + n + 1;
            return 0;
         }
      }
   }
   rtxErrAddStrnParm(ctxt, (const char*)r->data + off, (n + 1 > 32) ? 32 : n + 1);
   return TOK_FAIL(RTERR_XML_BAD_CHAR_REFERENCE, off);
}

/* ---- markup that carries no event ------------------------------------------------------------- */

/* Skips the construct at r->pos that starts with open and ends with close. */
int skipTo(QSCTXT* ctxt, QSXmlReader* r, QSSIZE openLen, const char* close)
{
   QSSIZE end = findText(r, r->pos + openLen, close);
   if (end >= r->size) return EOF_FAIL();
   r->pos = end + std::strlen(close);
   return 0;
}

int skipDoctype(QSCTXT* ctxt, QSXmlReader* r)
{
   QSSIZE p = r->pos + 9;
   int brackets = 0;
   QSOCTET quote = 0;
   for (; p < r->size; p++) {
      QSOCTET c = r->data[p];
      if (quote != 0) {
         if (c == quote) quote = 0;
      }
      else if (c == '"' || c == '\'') quote = c;
      else if (c == '[') brackets++;
      else if (c == ']') brackets--;
      else if (c == '>' && brackets <= 0) {
         r->pos = p + 1;
         return 0;
      }
   }
   return EOF_FAIL();
}

/* ---- tags ------------------------------------------------------------------------------------- */

int readStartTag(QSCTXT* ctxt, QSXmlReader* r, Event* ev)
{
   QSSIZE start = r->pos;
   QSSIZE p = start + 1;
   QSSIZE nameLen = nameLenAt(r, p);
   if (nameLen == 0) return SYMBOL_FAIL(p);
   QSSIZE nameOff = p;
   p += nameLen;
   bool empty = false;
   for (;;) {
      bool ws = false;
      while (p < r->size && isWs(r->data[p])) {
         p++;
         ws = true;
      }
      if (p >= r->size) return EOF_FAIL();
      QSOCTET c = r->data[p];
      if (c == '>') {
         p++;
         break;
      }
      if (c == '/') {
         if (p + 1 >= r->size) return EOF_FAIL();
         if (r->data[p + 1] != '>') return SYMBOL_FAIL(p + 1);
         p += 2;
         empty = true;
         break;
      }
      /* an attribute: parsed and ignored */
      if (!ws) return SYMBOL_FAIL(p);
      QSSIZE an = nameLenAt(r, p);
      if (an == 0) return SYMBOL_FAIL(p);
      p += an;
      while (p < r->size && isWs(r->data[p])) p++;
      if (p >= r->size) return EOF_FAIL();
      if (r->data[p] != '=') return SYMBOL_FAIL(p);
      p++;
      while (p < r->size && isWs(r->data[p])) p++;
      if (p >= r->size) return EOF_FAIL();
      QSOCTET quote = r->data[p];
      if (quote != '"' && quote != '\'') return SYMBOL_FAIL(p);
      p++;
      while (p < r->size && r->data[p] != quote) {
         if (r->data[p] == '<') return SYMBOL_FAIL(p);
         if (r->data[p] == '&') {
            QSOCTET utf8[4];
            int n;
            int stat = readRef(ctxt, r, p, utf8, &n, &p);
            if (stat != 0) return stat;
         }
         else {
            p++;
         }
      }
      if (p >= r->size) return EOF_FAIL();
      p++;
   }
   if (r->depth == r->stackCap) {
      QSSIZE ncap = (r->stackCap == 0) ? 64 : r->stackCap * 2;
      OpenTag* ns;
      if (r->stack == r->firstTags) {
         ns = static_cast<OpenTag*>(std::malloc(ncap * sizeof(OpenTag)));
         if (ns != nullptr) std::memcpy(ns, r->firstTags, sizeof r->firstTags);
      }
      else {
         ns = static_cast<OpenTag*>(std::realloc(r->stack, ncap * sizeof(OpenTag)));
      }
      if (ns == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      r->stack = ns;
      r->stackCap = ncap;
   }
   r->stack[r->depth++] = OpenTag{ nameOff, nameLen, start, p };
   r->rootSeen = true;
   r->pendingEnd = empty;
   r->pos = p;
   *ev = Event{ QSXMLP_START_TAG, (QSINT32)r->depth, nameOff, nameLen, start, p, empty, false };
   return 0;
}

int readEndTag(QSCTXT* ctxt, QSXmlReader* r, Event* ev)
{
   QSSIZE start = r->pos;
   QSSIZE p = start + 2;
   /* the name of the open tag is the one expected: compare it in one go */
   QSSIZE nameLen = 0;
   if (r->depth != 0) {
      const OpenTag& open = r->stack[r->depth - 1];
      QSSIZE n = open.nameLen;
      if (p + n < r->size && std::memcmp(r->data + open.nameOff, r->data + p, n) == 0 &&
          !isNameChar(r->data[p + n]))
         nameLen = n;
   }
   if (nameLen == 0) nameLen = nameLenAt(r, p);
   if (nameLen == 0) return SYMBOL_FAIL(p);
   QSSIZE nameOff = p;
   p += nameLen;
   while (p < r->size && isWs(r->data[p])) p++;
   if (p >= r->size) return EOF_FAIL();
   if (r->data[p] != '>') return SYMBOL_FAIL(p);
   p++;
   if (r->depth == 0) {
      addNameParm(ctxt, r, nameOff, nameLen);
      return TOK_FAIL(RTERR_XML_UNEXPECTED_END_TAG, start);
   }
   const OpenTag& open = r->stack[r->depth - 1];
   if (open.nameLen != nameLen || std::memcmp(r->data + open.nameOff, r->data + nameOff, nameLen) != 0) {
      addNameParm(ctxt, r, open.nameOff, open.nameLen);
      addNameParm(ctxt, r, nameOff, nameLen);
      return TOK_FAIL(RTERR_XML_TAG_MISMATCH, start);
   }
   *ev = Event{ QSXMLP_END_TAG, (QSINT32)r->depth, nameOff, nameLen, start, p, false, false };
   r->depth--;
   if (r->depth == 0) r->rootClosed = true;
   r->pos = p;
   return 0;
}

/* Character data up to the next tag (references resolved, CDATA sections
 * taken as they are, comments and processing instructions dropped, line
 * ends kept as they are). No event when nothing remains. */
int readChars(QSCTXT* ctxt, QSXmlReader* r, Event* ev, bool* produced)
{
   QSSIZE start = r->pos;
   ByteBuf& t = r->text;
   t.len = 0;
   bool allWs = true;
   while (r->pos < r->size) {
      QSSIZE p = r->pos;
      QSOCTET c = r->data[p];
      if (c == '<') {
         if (p + 1 < r->size && r->data[p + 1] != '!' && r->data[p + 1] != '?') break;
         if (startsWith(r, p, "<!--")) {
            int stat = skipTo(ctxt, r, 4, "-->");
            if (stat != 0) return stat;
            continue;
         }
         if (startsWith(r, p, "<![CDATA[")) {
            QSSIZE end = findText(r, p + 9, "]]>");
            if (end >= r->size) return EOF_FAIL();
            for (QSSIZE i = p + 9; i < end && allWs; i++)
               if (!isWs(r->data[i])) allWs = false;
            if (!t.append(r->data + p + 9, end - p - 9)) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
            r->pos = end + 3;
            continue;
         }
         if (startsWith(r, p, "<?")) {
            int stat = skipTo(ctxt, r, 2, "?>");
            if (stat != 0) return stat;
            continue;
         }
         if (p + 1 >= r->size) return EOF_FAIL();
         if (r->data[p + 1] == '!') return SYMBOL_FAIL(p + 1);
         break;
      }
      if (c == '&') {
         QSOCTET utf8[4];
         int n;
         int stat = readRef(ctxt, r, p, utf8, &n, &r->pos);
         if (stat != 0) return stat;
         if (!(n == 1 && isWs(utf8[0]))) allWs = false;
         if (!t.append(utf8, n)) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
         continue;
      }
      /* Character data is taken byte for byte: line ends are not normalised, so a carriage
       * return in a string value, which the writer leaves unchanged, reads back as itself. */
      const QSOCTET* d = r->data;
      QSSIZE n = r->size;
      QSSIZE q = p;
      if (allWs) {
         /* indentation: runs of spaces, eight at a time */
         for (;;) {
            while (q + 8 <= n) {
               QSUINT64 w;
               std::memcpy(&w, d + q, 8);
               if (w != 0x2020202020202020ull) break;
               q += 8;
            }
            if (q >= n) break;
            QSOCTET cls = kClass.c[d[q]];
            if ((cls & (kWs | kCharStop)) != kWs) break;
            q++;
         }
      }
      while (q < n) {
         QSOCTET cls = kClass.c[d[q]];
         if (cls & kCharStop) break;
         if (!(cls & kWs)) allWs = false;
         q++;
      }
      if (!t.append(d + p, q - p)) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      r->pos = q;
   }
   if (r->pos >= r->size) return EOF_FAIL();
   *produced = (t.len != 0);
   if (*produced) *ev = Event{ QSXMLP_CHARS, (QSINT32)r->depth, 0, 0, start, r->pos, false, allWs };
   return 0;
}

/* Outside the root: whitespace, comments, processing instructions, the XML
 * declaration and a document type declaration before the root. */
int readMisc(QSCTXT* ctxt, QSXmlReader* r, Event* ev)
{
   for (;;) {
      while (r->pos < r->size && isWs(r->data[r->pos])) r->pos++;
      QSSIZE p = r->pos;
      if (p >= r->size) {
         *ev = Event{ QSXMLP_END_DOC, 0, 0, 0, p, p, false, false };
         return 0;
      }
      if (r->data[p] != '<') return SYMBOL_FAIL(p);
      int stat;
      if (startsWith(r, p, "<?")) stat = skipTo(ctxt, r, 2, "?>");
      else if (startsWith(r, p, "<!--")) stat = skipTo(ctxt, r, 4, "-->");
      else if (!r->rootSeen && startsWith(r, p, "<!DOCTYPE")) stat = skipDoctype(ctxt, r);
      else if (startsWith(r, p, "<!")) return SYMBOL_FAIL(p + 1);
      else if (startsWith(r, p, "</")) return readEndTag(ctxt, r, ev);
      else if (r->rootClosed) {
         QSSIZE n = nameLenAt(r, p + 1);
         if (n == 0) return SYMBOL_FAIL(p + 1);
         addNameParm(ctxt, r, p + 1, n);
         return TOK_FAIL(RTERR_XML_UNEXPECTED_START_TAG, p);
      }
      else return readStartTag(ctxt, r, ev);
      if (stat != 0) return stat;
   }
}

/* The next event into *ev. */
int readEvent(QSCTXT* ctxt, QSXmlReader* r, Event* ev)
{
   if (r->errStat != 0) return XML_LOG(ctxt, r->errStat);
   if (r->pendingEnd) {
      r->pendingEnd = false;
      const OpenTag& t = r->stack[r->depth - 1];
      *ev = Event{ QSXMLP_END_TAG, (QSINT32)r->depth, t.nameOff, t.nameLen, t.contentOff, t.contentOff,
                   false, false };
      r->depth--;
      if (r->depth == 0) r->rootClosed = true;
      return 0;
   }
   for (;;) {
      if (r->depth == 0) return readMisc(ctxt, r, ev);
      QSSIZE p = r->pos;
      if (p >= r->size) return EOF_FAIL();
      if (r->data[p] == '<' && p + 1 < r->size) {
         QSOCTET c = r->data[p + 1];
         if (c == '/') return readEndTag(ctxt, r, ev);
         if (c != '!' && c != '?') return readStartTag(ctxt, r, ev);
      }
      bool produced = false;
      int stat = readChars(ctxt, r, ev, &produced);
      if (stat != 0) return stat;
      if (produced) return 0;
   }
}

/* ---- events ----------------------------------------------------------------------------------- */

/* The pending event (read when the last one is done). */
int peekEvent(QSCTXT* ctxt, QSXmlReader* r, Event** pev)
{
   if (!r->hasCur || r->curDone) {
      r->lazy = 0;
      int stat = readEvent(ctxt, r, &r->cur);
      ctxt->buffer.byteIndex = r->pos;
      if (stat != 0) return stat;
      r->hasCur = true;
      r->curDone = false;
   }
   *pev = &settled(r);
   return 0;
}

/* Whitespace up to a tag (not a comment, CDATA section or processing instruction) would give a
 * whitespace event that the callers pass over: it is skipped without making the event. */
inline void skipWsBeforeTag(QSXmlReader* r)
{
   if ((!r->hasCur || r->curDone) && r->errStat == 0 && !r->pendingEnd && r->depth != 0) {
      const QSOCTET* d = r->data;
      QSSIZE n = r->size;
      QSSIZE q = r->pos;
      for (;;) {
         if (q + 8 <= n) {
            QSUINT64 w;
            std::memcpy(&w, d + q, 8);
            QSUINT64 x = w ^ 0x2020202020202020ull;
            if (x == 0) {
               q += 8;
               continue;
            }
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
            q += (QSSIZE)(__builtin_ctzll(x) >> 3);  /* the spaces before the first other byte */
#endif
         }
         if (q >= n || !isWs(d[q])) break;
         q++;
      }
      if (q + 1 < n && d[q] == '<' && d[q + 1] != '!' && d[q + 1] != '?') r->pos = q;
   }
}

/* As peekEvent, passing over character data of whitespace only. */
int peekEventNonWs(QSCTXT* ctxt, QSXmlReader* r, Event** pev)
{
   skipWsBeforeTag(r);
   for (;;) {
      int stat = peekEvent(ctxt, r, pev);
      if (stat != 0) return stat;
      if ((*pev)->type != QSXMLP_CHARS || !(*pev)->allWs) return 0;
      r->curDone = true;
   }
}

void markDone(QSXmlReader* r)
{
   const Event& ev = settled(r);
   r->curDone = true;
   if (ev.type == QSXMLP_START_TAG) r->level = ev.level;
   else if (ev.type == QSXMLP_END_TAG) r->level = ev.level - 1;
}

/* Local name and prefix of a tag event. */
void splitName(const QSXmlReader* r, const Event& ev, QSSIZE* plocalOff, QSSIZE* plocalLen, QSSIZE* pprefixLen)
{
   const QSOCTET* name = r->data + ev.nameOff;
   const void* colon = std::memchr(name, ':', ev.nameLen);
   QSSIZE plen = (colon != nullptr) ? (QSSIZE)(static_cast<const QSOCTET*>(colon) - name) : 0;
   QSSIZE skip = (colon != nullptr) ? plen + 1 : 0;
   *plocalOff = ev.nameOff + skip;
   *plocalLen = ev.nameLen - skip;
   *pprefixLen = plen;
}

/* ---- direct paths for the common shape ------------------------------------------------------
 *
 * Documents as the writer produces them consist of indentation, plain start tags <name>, plain
 * character data and plain end tags </name>. The functions below read such markup straight from
 * the input and leave the reader exactly as the general path (tokenizer events, peekEvent,
 * markDone) would have left it. They change nothing and report "not taken" as soon as anything
 * differs from that shape (comments, CDATA, references, attributes, prefixes, unknown names,
 * pending events, earlier failures), so the general path then reads the same input and produces
 * the same results and errors. */

#if defined(__GNUC__)
#define QS_ALWAYS_INLINE __attribute__((always_inline))
#define QS_NOINLINE __attribute__((noinline))
#else
#define QS_ALWAYS_INLINE
#define QS_NOINLINE
#endif

/* No event pending, inside the root, and the reader's level is the tokenizer's depth. A failed
 * tokenizer has left its position at the end of the input, where no direct path finds anything
 * to take, so its sticky failure needs no test here. */
inline bool idleAtDepth(const QSXmlReader* r)
{
   /* curDone is set while there is no event yet (hasCur clear) */
   return r->curDone && !r->pendingEnd && r->depth != 0 && r->level == (QSINT32)r->depth;
}

/* Offset of the first byte at or after q that is not whitespace (n when there is none); runs of
 * spaces, the indentation, sixteen at a time. */
QS_ALWAYS_INLINE inline QSSIZE skipWsFrom(const QSOCTET* d, QSSIZE n, QSSIZE q)
{
#if defined(__SSE2__)
   const __m128i spaces = _mm_set1_epi8(' ');
   while (q + 16 <= n) {
      __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + q));
      unsigned others = ~(unsigned)_mm_movemask_epi8(_mm_cmpeq_epi8(v, spaces)) & 0xFFFFu;
      if (others == 0) {
         q += 16;
         continue;
      }
      q += (QSSIZE)__builtin_ctz(others);
      if (!isWs(d[q])) return q;
      q++;
   }
#endif
   while (q < n && isWs(d[q])) q++;
   return q;
}

/* As skipWsFrom, taking the line end before an indentation first. */
QS_ALWAYS_INLINE inline QSSIZE skipIndent(const QSOCTET* d, QSSIZE n, QSSIZE q)
{
   if (q < n && d[q] == '\n') q++;
   return skipWsFrom(d, n, q);
}

/* n bytes of a and b equal (both readable for n bytes): whole words, the last one overlapping
 * the one before, and for short names two overlapping halves. */
inline QSUINT64 load8(const QSOCTET* p)
{
   QSUINT64 w;
   std::memcpy(&w, p, 8);
   return w;
}

inline QSUINT32 load4(const QSOCTET* p)
{
   QSUINT32 w;
   std::memcpy(&w, p, 4);
   return w;
}

QS_ALWAYS_INLINE inline bool sameBytes(const QSOCTET* a, const QSOCTET* b, QSSIZE n)
{
   if (n >= 8) {
      for (QSSIZE i = 0; i + 8 < n; i += 8)
         if (load8(a + i) != load8(b + i)) return false;
      return load8(a + n - 8) == load8(b + n - 8);
   }
   if (n >= 4) return load4(a) == load4(b) && load4(a + n - 4) == load4(b + n - 4);
   if (n >= 2) return a[0] == b[0] && a[1] == b[1] && a[n - 1] == b[n - 1];
   return n == 0 || a[0] == b[0];
}

/* End of the end tag of the open element at q ('<' of "</name>", whitespace allowed before the
 * '>'): the offset after it, or 0 when the markup at q is not that end tag. */
QS_ALWAYS_INLINE inline QSSIZE plainEndTagAt(const QSXmlReader* r, QSSIZE q)
{
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   const OpenTag& open = r->stack[r->depth - 1];
   QSSIZE nl = open.nameLen;
   QSSIZE e = q + 2;
   if (e + nl >= n || d[q] != '<' || d[q + 1] != '/' || !sameBytes(d + e, d + open.nameOff, nl)) return 0;
   QSSIZE t = e + nl;
   if (d[t] != '>') {
      if (!isWs(d[t])) return 0;
      t = skipWsFrom(d, n, t);
      if (t >= n || d[t] != '>') return 0;
   }
   return t + 1;
}

/* Makes the end tag of the open element, read from q to end, the pending event (readEndTag). */
QS_ALWAYS_INLINE inline void takeEndTag(QSCTXT* ctxt, QSXmlReader* r, QSSIZE q, QSSIZE end)
{
   r->lazy = kLazyEnd;
   r->lazyEnd = q;
   r->hasCur = true;
   r->curDone = false;
   r->depth--;
   if (r->depth == 0) r->rootClosed = true;
   r->pos = end;
   ctxt->buffer.byteIndex = end;
}

/* Reading the next child element of the current level: a plain start tag <name> whose name is
 * that of one of the table's named entries is consumed and marked done; the first such entry.
 * The plain end tag of the current element is made the pending event: kEndPending. Otherwise
 * nothing is read: kNotTaken. The reader is idle at its depth (idleAtDepth). */
const QSSIZE kNotTaken = (QSSIZE)-1;
const QSSIZE kEndPending = (QSSIZE)-2;

QS_ALWAYS_INLINE inline QSSIZE directNextElemIdle(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab,
                                                   QSSIZE nrows)
{
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   QSSIZE q = skipIndent(d, n, r->pos);
   if (q + 1 >= n || d[q] != '<') return kNotTaken;
   QSOCTET c = d[q + 1];
   if (c == '/') {
      QSSIZE end = plainEndTagAt(r, q);
      if (end == 0) return kNotTaken;
      takeEndTag(ctxt, r, q, end);
      return kEndPending;
   }
   if (r->depth == r->stackCap) return kNotTaken;  /* growing the stack: the general path */
   const QSOCTET* name = d + q + 1;
   QSSIZE avail = n - (q + 1);  /* at least 1 */
   for (QSSIZE i = 0; i < nrows; i++) {
      const QSXmlElemDescr& e = tab[i];
      QSSIZE nl = e.nameLen;
      /* a named entry (nl != 0) whose name is followed by '>' inside the input, then the bytes */
      if (nl - 1 >= avail - 1 || name[nl] != '>' || e.name == nullptr || (QSOCTET)e.name[0] != c ||
          !sameBytes(name, (const QSOCTET*)e.name, nl))
         continue;
      QSSIZE end = q + nl + 2;
      r->stack[r->depth++] = OpenTag{ q + 1, nl, q, end };
      r->pos = end;
      r->lazy = kLazyStart;
      r->hasCur = true;
      r->curDone = true;
      r->level = (QSINT32)r->depth;
      ctxt->buffer.byteIndex = end;
      return i;
   }
   return kNotTaken;
}

/* As directNextElemIdle when the reader is idle at its depth (idleAtDepth). */
QS_ALWAYS_INLINE inline QSSIZE directNextElem(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab,
                                               QSSIZE nrows)
{
   if (!idleAtDepth(r)) return kNotTaken;
   return directNextElemIdle(ctxt, r, tab, nrows);
}

/* The start of the document: an XML declaration (or nothing), whitespace and the plain start tag
 * <name> of the root with the expected name, consumed and marked done; false (nothing read)
 * otherwise. */
bool directRootTag(QSCTXT* ctxt, QSXmlReader* r, const char* name)
{
   if (r->hasCur || r->errStat != 0 || r->depth != 0 || r->rootSeen || r->pos != r->docStart ||
       r->stackCap == 0)
      return false;
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   QSSIZE q = r->pos;
   /* the declaration the writer puts first, compared whole; any other one up to its "?>" */
   static const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
   const QSSIZE declLen = sizeof kDecl - 1;
   if (q + declLen <= n && sameBytes(d + q, (const QSOCTET*)kDecl, declLen)) {
      q += declLen;
   }
   else if (startsWith(r, q, "<?xml") && q + 5 < n && isWs(d[q + 5])) {
      QSSIZE end = findText(r, q + 2, "?>");
      if (end >= n) return false;
      q = end + 2;
   }
   q = skipWsFrom(d, n, q);
   QSSIZE nl = std::strlen(name);
   if (nl == 0 || q + 1 + nl >= n || d[q] != '<' || d[q + 1 + nl] != '>' ||
       !sameBytes(d + q + 1, (const QSOCTET*)name, nl))
      return false;
   QSSIZE end = q + nl + 2;
   r->stack[r->depth++] = OpenTag{ q + 1, nl, q, end };
   r->rootSeen = true;
   r->pos = end;
   r->cur = Event{ QSXMLP_START_TAG, (QSINT32)r->depth, q + 1, nl, q, end, false, false };
   r->lazy = 0;
   r->hasCur = true;
   r->curDone = true;
   r->level = (QSINT32)r->depth;
   ctxt->buffer.byteIndex = end;
   return true;
}

/* The value from p up to the plain end tag at q (ending at end) taken as readContent would leave
 * it, without a copy: the end tag becomes the pending event. */
inline void takeValue(QSCTXT* ctxt, QSXmlReader* r, QSSIZE p, QSSIZE q, QSSIZE end)
{
   r->value.len = 0;
   r->valueOff = p;
   takeEndTag(ctxt, r, q, end);
}

/* The content of the current element when it is plain character data (no markup, no
 * reference) up to its plain end tag: the end tag is made the pending event as readContent
 * would leave it, the data is given in place. False (nothing read) otherwise. */
bool directContent(QSCTXT* ctxt, QSXmlReader* r, const QSOCTET** pdata, QSSIZE* plen)
{
   if (!idleAtDepth(r)) return false;
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   QSSIZE p = r->pos;
   QSSIZE q = p;
   while (q < n && !(kClass.c[d[q]] & kCharStop)) q++;
   if (q + 1 >= n) return false;
   QSSIZE end = plainEndTagAt(r, q);
   if (end == 0) return false;
   takeValue(ctxt, r, p, q, end);
   *pdata = d + p;
   *plen = q - p;
   return true;
}

/* The only content of the current element being an empty child <name/> (no attributes, no
 * prefix), after whitespace: the offset of its name and the name's length, or false. */
bool emptyChildAt(const QSXmlReader* r, QSSIZE* pnameOff, QSSIZE* pnameLen)
{
   if (!idleAtDepth(r) || r->depth == r->stackCap) return false;
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   QSSIZE q = skipIndent(d, n, r->pos);
   if (q + 1 >= n || d[q] != '<') return false;
   /* the name up to the first byte that is not a name character or is a ':' (a prefix) */
   QSSIZE t = q + 1;
   if (t >= n || !isNameStart(d[t]) || d[t] == ':') return false;
   t++;
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
   while (t + 8 <= n) {
      unsigned k = alnumPrefix(load8(d + t));
      t += k;
      if (k != 8) break;
   }
#endif
   while (t < n && isNameChar(d[t]) && d[t] != ':') t++;
   QSSIZE nl = t - (q + 1);
   if (t + 1 >= n || d[t] != '/' || d[t + 1] != '>') return false;
   *pnameOff = q + 1;
   *pnameLen = nl;
   return true;
}

/* Consumes the empty child found by emptyChildAt as the general path does: its start tag and
 * end tag read and done, the reader back at the level of the current element. */
void takeEmptyChild(QSCTXT* ctxt, QSXmlReader* r, QSSIZE nameOff, QSSIZE nameLen)
{
   QSSIZE end = nameOff + nameLen + 2;
   r->stack[r->depth] = OpenTag{ nameOff, nameLen, nameOff - 1, end };
   r->rootSeen = true;
   r->cur = Event{ QSXMLP_END_TAG, (QSINT32)r->depth + 1, nameOff, nameLen, end, end, false, false };
   r->lazy = 0;
   r->hasCur = true;
   r->curDone = true;
   r->listMode = false;
   r->pos = end;
   ctxt->buffer.byteIndex = end;
}

/* The index of the first table entry matching the start tag, or -1; a
 * wildcard entry (no name) matches when no named entry does. */
QSSIZE matchEntry(const QSXmlReader* r, const Event& ev, const QSXmlElemDescr* tab, QSSIZE nrows)
{
   QSSIZE off, len, plen;
   splitName(r, ev, &off, &len, &plen);
   QSSIZE wildcard = -1;
   for (QSSIZE i = 0; i < nrows; i++) {
      const QSXmlElemDescr& e = tab[i];
      if (e.name == nullptr || e.nameLen == 0) {
         if (wildcard == (QSSIZE)-1) wildcard = i;
         continue;
      }
      /* prefixes are not resolved to namespaces: every namespace index accepts the tag */
      if (e.nameLen == len && std::memcmp(e.name, r->data + off, len) == 0) return i;
   }
   return wildcard;
}

/* Name of the open element of a level as a parameter ("" at document level). */
void addOpenNameParm(QSCTXT* ctxt, const QSXmlReader* r, QSINT32 lvl)
{
   if (lvl <= 0) {
      rtxErrAddStrParm(ctxt, "");
      return;
   }
   /* entries above the tokenizer depth keep their values until the next push */
   const OpenTag& open = r->stack[lvl - 1];
   addNameParm(ctxt, r, open.nameOff, open.nameLen);
}

/* Records an unexpected child element as a non-fatal error naming it. */
void recordUnexpected(QSCTXT* ctxt, QSXmlReader* r, const Event& ev, int line)
{
   const QSXmlCtxtInfo* info = infoOf(ctxt);
   if (info->maxErrors != 0 && r->nonFatal >= info->maxErrors) return;
   r->nonFatal++;
   addNameParm(ctxt, r, ev.nameOff, ev.nameLen);
   addPosParm(ctxt, ev.startOff);
   rtxErrSetNewData(ctxt, RTERR_UNEXPECTED_ELEMENT, XML_MODULE, line);
   rtxErrSetNonFatal(ctxt);
}

/* Skips the content and the end tag of the element whose start tag is the
 * current (done) event. */
int skipElement(QSCTXT* ctxt, QSXmlReader* r)
{
   QSINT32 lvl = settled(r).level;
   for (;;) {
      Event* ev;
      int stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      bool last = (ev->type == QSXMLP_END_TAG && ev->level == lvl);
      markDone(r);
      if (last) return 0;
   }
}

/* Text of the current element's content up to its end tag (left pending):
 * in the reader's value block. A child element fails. */
int readContent(QSCTXT* ctxt, QSXmlReader* r)
{
   r->value.len = 0;
   r->valueOff = r->pos;
   bool first = true;
   if ((!r->hasCur || r->curDone) && r->errStat == 0 && !r->pendingEnd && r->depth != 0) {
      /* the common case: plain text (no reference) right up to an end tag,
       * taken as the value without making a character event */
      const QSOCTET* d = r->data;
      QSSIZE n = r->size;
      QSSIZE p = r->pos;
      QSSIZE q = p;
      while (q < n && !(kClass.c[d[q]] & kCharStop)) q++;
      if (q > p && q + 1 < n && d[q] == '<' && d[q + 1] == '/') {
         if (!r->value.append(d + p, q - p)) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
         r->pos = q;
         first = false;
      }
   }
   for (;;) {
      Event* ev;
      int stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      switch (ev->type) {
         case QSXMLP_CHARS:
            if (first) {
               /* the common case: one piece of text, taken over without copying */
               ByteBuf tmp = r->value;
               r->value = r->text;
               r->text = tmp;
               r->valueOff = ev->startOff;
               first = false;
            }
            else if (!r->value.append(r->text.p, r->text.len)) {
               return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
            }
            markDone(r);
            break;
         case QSXMLP_START_TAG:
            addNameParm(ctxt, r, ev->nameOff, ev->nameLen);
            addPosParm(ctxt, ev->startOff);
            rtxErrSetNewData(ctxt, RTERR_XML_UNEXPECTED_START_TAG, XML_MODULE, __LINE__);
            return RTERR_XML_UNEXPECTED_START_TAG;
         case QSXMLP_END_TAG:
            if (first) r->valueOff = ev->startOff;
            return 0;
         default:
            return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      }
   }
}

/* Whole element from its start tag through its end tag as raw text; the
 * end tag stays pending. */
int captureElement(QSCTXT* ctxt, QSXmlReader* r, QSSIZE* pstart, QSSIZE* pend)
{
   Event* ev;
   int stat = peekEventNonWs(ctxt, r, &ev);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (ev->type == QSXMLP_START_TAG && ev->level == r->level + 1) markDone(r);
   if (r->level <= 0) return XML_LOG(ctxt, RTERR_INVALID_XML_STATE);
   QSINT32 lvl = r->level;
   /* entries above the tokenizer depth keep their values until the next push */
   *pstart = r->stack[lvl - 1].startOff;
   for (;;) {
      stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      if (ev->type == QSXMLP_END_TAG && ev->level == lvl) {
         *pend = ev->endOff;
         return 0;
      }
      markDone(r);
   }
}

/* Heap copy (NUL-terminated) of input bytes. */
QSOCTET* copyInput(QSCTXT* ctxt, const QSXmlReader* r, QSSIZE off, QSSIZE len)
{
   QSOCTET* copy = static_cast<QSOCTET*>(rtxMemHeapAlloc(ctxt, len + 1));
   if (copy == nullptr) return nullptr;
   if (len != 0) std::memcpy(copy, r->data + off, len);
   copy[len] = 0;
   return copy;
}

int getReader(QSCTXT* ctxt, QSXmlReader** pr)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   *pr = readerOf(ctxt);
   if (*pr == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   return 0;
}

} // namespace

/* ---- internal interface ----------------------------------------------------------------------- */

namespace {

/* One released reader record per thread is kept for the next reader the thread creates: most
 * threads read one document after the other, and this spares them an allocation and a release
 * per document. */
struct SpareReader {
   QSXmlReader* reader = nullptr;
   ~SpareReader() { ::operator delete(reader); }  /* its record was destroyed when it was kept */
};
thread_local SpareReader t_spareReader;

QSXmlReader* newReader()
{
   QSXmlReader* r = t_spareReader.reader;
   if (r == nullptr) return new (std::nothrow) QSXmlReader;  /* default-initialised: see the type */
   t_spareReader.reader = nullptr;
   return new (r) QSXmlReader;
}

} // namespace

void xmlimpl::freeReader(QSCTXT* ctxt)
{
   QSXmlCtxtInfo* info = infoOf(ctxt);
   if (info == nullptr || info->reader == nullptr) return;
   QSXmlReader* r = info->reader;
   info->reader = nullptr;
   if (r->stack != r->firstTags) std::free(r->stack);
   r->text.release();
   r->value.release();
   r->list.release();
   if (t_spareReader.reader == nullptr) {
      r->~QSXmlReader();
      t_spareReader.reader = r;
   }
   else {
      delete r;
   }
}

void xmlimpl::addPosParm(QSCTXT* ctxt, QSSIZE offset)
{
   QSXmlReader* r = readerOf(ctxt);
   if (r == nullptr) return;
   if (offset > r->size) offset = r->size;
   if (offset < r->lcOff) {
      r->lcOff = 0;
      r->lcLine = 1;
      r->lcLineStart = 0;
   }
   for (QSSIZE i = r->lcOff; i < offset; i++) {
      if (r->data[i] == '\n') {
         r->lcLine++;
         r->lcLineStart = i + 1;
      }
   }
   r->lcOff = offset;
   char text[64];
   std::snprintf(text, sizeof text, "(line %zu, column %zu)", (size_t)r->lcLine,
                 (size_t)(offset - r->lcLineStart + 1));
   rtxErrAddStrParm(ctxt, text);
}

bool xmlimpl::directBits(QSCTXT* ctxt, QSOCTET* data, QSSIZE bufsize, QSSIZE* pnbits)
{
   QSXmlReader* r = readerOf(ctxt);
   if (r == nullptr || r->listMode || !idleAtDepth(r)) return false;
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   QSSIZE p = r->pos;
   QSSIZE q = p;
   const QSUINT64 ones = 0x0101010101010101ull;
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
   const bool little = true;
#else
   const bool little = false;
#endif
   /* eight digits at a time: every byte '0' (0x30) or '1' (0x31) */
   while (q + 8 <= n && (load8(d + q) & (ones * 0xFE)) == ones * '0') q += 8;
   while (q < n && (d[q] & 0xFE) == '0') q++;
   QSSIZE nbits = q - p;
   if (q + 1 >= n || d[q] != '<' || nbits > bufsize * 8) return false;
   QSSIZE end = plainEndTagAt(r, q);
   if (end == 0) return false;
   /* every byte holding bits is written whole, as clearing it and setting its bits would */
   QSSIZE i = 0;
   if (little) {
      /* the low bits of eight digits gathered into one byte, the first digit as the top bit */
      for (; i + 8 <= nbits; i += 8)
         data[i / 8] = (QSOCTET)(((load8(d + p + i) & ones) * 0x8040201008040201ull) >> 56);
   }
   if (i < nbits) {
      std::memset(data + i / 8, 0, (nbits - i + 7) / 8);
      for (; i < nbits; i++)
         if (d[p + i] & 1) data[i / 8] |= (QSOCTET)(0x80 >> (i % 8));
   }
   takeValue(ctxt, r, p, q, end);
   *pnbits = nbits;
   return true;
}

int xmlimpl::readValue(QSCTXT* ctxt, const QSOCTET** pdata, QSSIZE* plen)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (r->listMode) {
      const ByteBuf& l = r->list;
      QSSIZE p = r->listPos;
      while (p < l.len && isWs(l.p[p])) p++;
      QSSIZE q = p;
      while (q < l.len && !isWs(l.p[q])) q++;
      r->listPos = q;
      *pdata = l.p + p;
      *plen = q - p;
      return 0;
   }
   if (directContent(ctxt, r, pdata, plen)) return 0;
   stat = readContent(ctxt, r);
   if (stat != 0) return XML_LOG(ctxt, stat);
   *pdata = (r->value.p != nullptr) ? r->value.p : (const QSOCTET*)"";
   *plen = r->value.len;
   return 0;
}

void xmlimpl::addValuePosParm(QSCTXT* ctxt)
{
   QSXmlReader* r = readerOf(ctxt);
   if (r != nullptr) addPosParm(ctxt, r->valueOff);
}

int xmlimpl::nextEvent(QSCTXT* ctxt, QSXmlEventView* view)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   Event* ev;
   stat = peekEvent(ctxt, r, &ev);
   if (stat != 0) return XML_LOG(ctxt, stat);
   markDone(r);
   view->type = ev->type;
   view->level = ev->level;
   view->name = r->data + ev->nameOff;
   view->nameLen = ev->nameLen;
   view->text = (ev->type == QSXMLP_CHARS) ? r->text.p : nullptr;
   view->textLen = (ev->type == QSXMLP_CHARS) ? r->text.len : 0;
   return 0;
}

int xmlimpl::peekStartTagName(QSCTXT* ctxt, QSXmlQName* pqname)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   Event* ev;
   stat = peekEventNonWs(ctxt, r, &ev);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (ev->type != QSXMLP_START_TAG) {
      if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      return XML_LOG(ctxt, RTERR_XML_INVALID_DATA_MODE);
   }
   QSSIZE off, len, plen;
   splitName(r, *ev, &off, &len, &plen);
   pqname->ln = copyInput(ctxt, r, off, len);
   pqname->nsPrefix = (plen != 0) ? copyInput(ctxt, r, ev->nameOff, plen) : nullptr;
   if (pqname->ln == nullptr || (plen != 0 && pqname->nsPrefix == nullptr))
      return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   return 0;
}

/* ---- integers --------------------------------------------------------------------------------- */

namespace {

/* A decimal integer (optional '-', up to 19 digits, nothing else) as the whole content of the
 * current element up to its plain end tag, with a magnitude within maxPos (maxNeg when negative):
 * read as the value readers would read it, the end tag left pending; false (nothing read)
 * otherwise. */
QS_ALWAYS_INLINE inline bool directInteger(QSCTXT* ctxt, QSUINT64 maxPos, QSUINT64 maxNeg, bool* pneg,
                                           QSUINT64* pmag)
{
   QSXmlReader* r = readerOf(ctxt);
   if (r == nullptr || r->listMode || !idleAtDepth(r)) return false;
   const QSOCTET* d = r->data;
   QSSIZE n = r->size;
   QSSIZE p = r->pos;
   QSSIZE q = p;
   bool neg = (q < n && d[q] == '-');
   if (neg) q++;
   QSSIZE first = q;
   QSUINT64 v = 0;
   /* at most 19 digits, which cannot overflow; a longer number is not taken here */
   QSSIZE lim = (n - q > 19) ? q + 19 : n;
   for (; q < lim; q++) {
      unsigned digit = (unsigned)d[q] - '0';
      if (digit > 9) break;
      v = v * 10 + digit;
   }
   if (q == first || q >= n || d[q] != '<' || v > (neg ? maxNeg : maxPos)) return false;
   QSSIZE end = plainEndTagAt(r, q);
   if (end == 0) return false;
   takeValue(ctxt, r, p, q, end);
   *pneg = neg;
   *pmag = v;
   return true;
}

template <class T> QS_ALWAYS_INLINE inline int decInteger(QSCTXT* ctxt, T* pvalue)
{
   bool neg;
   QSUINT64 mag;
   if (ctxt != nullptr &&
       directInteger(ctxt, (QSUINT64)std::numeric_limits<T>::max(),
                     (QSUINT64)0 - (QSUINT64)(QSINT64)std::numeric_limits<T>::min(), &neg, &mag)) {
      *pvalue = neg ? (T)(QSINT64)((QSUINT64)0 - mag) : (T)mag;
      return 0;
   }
   return decIntegerValue(ctxt, pvalue);
}

} // namespace

int rtXmlpDecInt(QSCTXT* ctxt, QSINT32* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecInt8(QSCTXT* ctxt, QSINT8* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecInt16(QSCTXT* ctxt, QSINT16* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecInt64(QSCTXT* ctxt, QSINT64* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecUInt(QSCTXT* ctxt, QSUINT32* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecUInt8(QSCTXT* ctxt, QSUINT8* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecUInt16(QSCTXT* ctxt, QSUINT16* pvalue) { return decInteger(ctxt, pvalue); }
int rtXmlpDecUInt64(QSCTXT* ctxt, QSUINT64* pvalue) { return decInteger(ctxt, pvalue); }

/* ---- reader ----------------------------------------------------------------------------------- */

int rtXmlpCreateReader(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   QSXmlCtxtInfo* info = infoOf(ctxt);
   if (info == nullptr) rtxErrAssertionFailed("0 != pctxt->pXMLInfo", __LINE__, XML_MODULE);
   freeReader(ctxt);
   rtxStreamBindInput(ctxt);
   QSXmlReader* r = newReader();
   if (r == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   const QSRTBuffer& b = ctxt->buffer;
   r->data = (b.data != nullptr) ? b.data : (const QSOCTET*)"";
   r->size = (b.data != nullptr) ? b.size : 0;
   r->pos = (b.byteIndex < r->size) ? b.byteIndex : r->size;
   if (startsWith(r, r->pos, "\xEF\xBB\xBF")) r->pos += 3;
   r->docStart = r->pos;
   r->curDone = true;  /* as if a last event had been done: see idleAtDepth */
   r->stack = r->firstTags;
   r->stackCap = sizeof r->firstTags / sizeof r->firstTags[0];
   r->lcLine = 1;
   r->lcOff = 0;
   r->lcLineStart = 0;
   info->reader = r;
   return 0;
}

int rtXmlpMatchStartTag(QSCTXT* ctxt, const QSUTF8CHAR* elemLocalName, QSINT16 nsidx)
{
   (void)nsidx;  /* prefixes are not resolved: any namespace is accepted */
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (elemLocalName != nullptr && directRootTag(ctxt, r, (const char*)elemLocalName)) {
      stat = rtxCtxtPushElemName(ctxt, elemLocalName);
      if (stat != 0) return XML_LOG(ctxt, stat);
      return 0;
   }
   Event* ev;
   stat = peekEventNonWs(ctxt, r, &ev);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
   const char* expected = (elemLocalName != nullptr) ? (const char*)elemLocalName : "";
   if (ev->type == QSXMLP_START_TAG) {
      QSSIZE off, len, plen;
      splitName(r, *ev, &off, &len, &plen);
      if (std::strlen(expected) == len && std::memcmp(expected, r->data + off, len) == 0) {
         markDone(r);
         stat = rtxCtxtPushElemName(ctxt, elemLocalName);
         if (stat != 0) return XML_LOG(ctxt, stat);
         return 0;
      }
      rtxErrAddStrParm(ctxt, "");
      rtxErrAddStrParm(ctxt, expected);
      rtxErrAddStrnParm(ctxt, (const char*)r->data + ev->nameOff, plen);
      addNameParm(ctxt, r, off, len);
   }
   else {
      rtxErrAddStrParm(ctxt, "");
      rtxErrAddStrParm(ctxt, expected);
      rtxErrAddStrParm(ctxt, "");
      if (ev->type == QSXMLP_END_TAG) {
         char name[80];
         std::snprintf(name, sizeof name, "/%.*s", (int)((ev->nameLen > 64) ? 64 : ev->nameLen),
                       (const char*)r->data + ev->nameOff);
         rtxErrAddStrParm(ctxt, name);
      }
      else {
         rtxErrAddStrParm(ctxt, "#text");
      }
   }
   addPosParm(ctxt, ev->startOff);
   rtxErrSetNewData(ctxt, RTERR_XML_UNEXPECTED_IDENTIFIER, XML_MODULE, __LINE__);
   return RTERR_XML_UNEXPECTED_IDENTIFIER;
}

namespace {

#if defined(__GNUC__)
#define QS_NOINLINE __attribute__((noinline))
#else
#define QS_NOINLINE
#endif

QS_NOINLINE int matchEndTag(QSCTXT* ctxt, QSINT32 level);

/* The end tag of the current element left pending by a value reader or a lookup, consumed as
 * matchEndTag would; false (nothing changed) when it is not pending. */
QS_ALWAYS_INLINE inline bool takePendingEnd(QSCTXT* ctxt, QSXmlReader* r, QSINT32 level)
{
   QSINT32 lvl = r->level;
   /* the level of the pending end tag, lazy or not, or 0 */
   QSINT32 endLevel = (r->lazy == kLazyEnd) ? (QSINT32)r->depth + 1
                      : (r->lazy == 0 && r->cur.type == QSXMLP_END_TAG) ? r->cur.level : 0;
   if ((level < 0 || level == lvl) && lvl > 1 && endLevel == lvl && r->hasCur && !r->curDone) {
      r->curDone = true;
      r->level = lvl - 1;
      rtxCtxtPopElemName(ctxt);
      r->listMode = false;
      return true;
   }
   return false;
}

/* The plain end tag of the current element next in the input (after whitespace), consumed and
 * done as matchEndTag's loop would; false (nothing changed) otherwise. */
QS_ALWAYS_INLINE inline bool takeNextEnd(QSCTXT* ctxt, QSXmlReader* r)
{
   if (!idleAtDepth(r)) return false;
   QSSIZE q = skipIndent(r->data, r->size, r->pos);
   QSSIZE end = (q + 1 < r->size) ? plainEndTagAt(r, q) : 0;
   if (end == 0) return false;
   takeEndTag(ctxt, r, q, end);
   r->curDone = true;  /* markDone of the end tag */
   r->level = (QSINT32)r->depth;
   rtxCtxtPopElemName(ctxt);
   r->listMode = false;
   return true;
}

/* takeNextEnd below the root, whose end tag matchEndTag takes with what may follow it. */
QS_ALWAYS_INLINE inline bool takePlainEnd(QSCTXT* ctxt, QSXmlReader* r)
{
   return r->level > 1 && takeNextEnd(ctxt, r);
}

/* rtXmlpMatchEndTag(ctxt, -1) on the context's reader. */
QS_ALWAYS_INLINE inline int endOfMember(QSCTXT* ctxt, QSXmlReader* r)
{
   if (takePendingEnd(ctxt, r, -1) || takePlainEnd(ctxt, r)) return 0;
   return matchEndTag(ctxt, -1);
}

} // namespace

int rtXmlpMatchEndTag(QSCTXT* ctxt, QSINT32 level)
{
   QSXmlReader* r = (ctxt != nullptr) ? readerOf(ctxt) : nullptr;
   if (r != nullptr &&
       (takePendingEnd(ctxt, r, level) || ((level < 0 || level == r->level) && takePlainEnd(ctxt, r))))
      return 0;
   return matchEndTag(ctxt, level);
}

namespace {

int matchEndTag(QSCTXT* ctxt, QSINT32 level)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   QSINT32 lvl = (level < 0) ? r->level : level;
   if (lvl <= 0 || lvl > r->level) return XML_LOG(ctxt, RTERR_XML_TAG_NOT_MATCHED);
   if (lvl == r->level) {
      /* a plain end tag next */
      if (takeNextEnd(ctxt, r)) {
         if (lvl == 1) {
            /* the root is closed: only whitespace, comments and processing instructions may
             * follow, as below; nothing but whitespace is the end of the document, as the
             * tokenizer would give it */
            QSSIZE e = skipWsFrom(r->data, r->size, r->pos);
            if (e == r->size && r->errStat == 0 && !r->pendingEnd) {
               r->pos = e;
               r->cur = Event{ QSXMLP_END_DOC, 0, 0, 0, e, e, false, false };
               r->lazy = 0;
               r->curDone = false;
               ctxt->buffer.byteIndex = e;
               return 0;
            }
            Event* ev;
            stat = peekEvent(ctxt, r, &ev);
            if (stat != 0) return XML_LOG(ctxt, stat);
         }
         return 0;
      }
   }
   for (;;) {
      Event* ev;
      skipWsBeforeTag(r);  /* character data is passed over here */
      stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      switch (ev->type) {
         case QSXMLP_CHARS:
            markDone(r);
            break;
         case QSXMLP_START_TAG:
            recordUnexpected(ctxt, r, *ev, __LINE__);
            markDone(r);
            stat = skipElement(ctxt, r);
            if (stat != 0) return XML_LOG(ctxt, stat);
            break;
         case QSXMLP_END_TAG:
            /* the end of the level, or of an inner element entered before: each
             * of them had its name pushed */
            markDone(r);
            rtxCtxtPopElemName(ctxt);
            if (ev->level > lvl) break;
            r->listMode = false;
            if (lvl == 1) {
               /* the root is closed: only whitespace, comments and processing
                * instructions may follow */
               stat = peekEvent(ctxt, r, &ev);
               if (stat != 0) return XML_LOG(ctxt, stat);
            }
            return 0;
         default:
            return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      }
   }
}

} // namespace

namespace {

QS_NOINLINE int nextElemRest(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab, QSSIZE nrows, QSINT32 lvl,
                             QSBOOL required);

} // namespace

int rtXmlpGetNextElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, QSSIZE nrows, QSINT32 level,
                        QSBOOL required)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   QSINT32 lvl = (level < 0) ? r->level : level;
   if (r->level < lvl) return QSXML_END_OF_CONTENT;
   if (lvl == r->level) {
      QSSIZE i = directNextElem(ctxt, r, tab, nrows);
      if (i == kEndPending) return QSXML_END_OF_CONTENT;
      if (i != kNotTaken) {
         stat = rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)tab[i].name);
         if (stat != 0) return XML_LOG(ctxt, stat);
         return tab[i].id;
      }
   }
   return nextElemRest(ctxt, r, tab, nrows, lvl, required);
}

namespace {

int nextElemRest(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab, QSSIZE nrows, QSINT32 lvl,
                 QSBOOL required)
{
   int stat;
   skipWsBeforeTag(r);
   for (;;) {
      Event* ev;
      stat = peekEventNonWs(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      switch (ev->type) {
         case QSXMLP_END_TAG:
            return QSXML_END_OF_CONTENT;
         case QSXMLP_END_DOC:
            /* nothing follows the root; before it the document is missing */
            if (r->rootClosed) return QSXML_END_OF_CONTENT;
            return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
         case QSXMLP_CHARS: {
            /* text where an element was expected */
            addOpenNameParm(ctxt, r, lvl);
            addPosParm(ctxt, ev->startOff);
            rtxErrSetNewData(ctxt, RTERR_XML_UNEXPECTED_END_TAG, XML_MODULE, __LINE__);
            return RTERR_XML_UNEXPECTED_END_TAG;
         }
         default:
            break;
      }
      if (ev->level > lvl + 1) {
         addNameParm(ctxt, r, ev->nameOff, ev->nameLen);
         addPosParm(ctxt, ev->startOff);
         rtxErrSetNewData(ctxt, RTERR_XML_UNEXPECTED_START_TAG, XML_MODULE, __LINE__);
         return RTERR_XML_UNEXPECTED_START_TAG;
      }
      QSSIZE i = matchEntry(r, *ev, tab, nrows);
      if (i != (QSSIZE)-1) {
         markDone(r);
         bool wildcard = (tab[i].name == nullptr || tab[i].nameLen == 0);
         stat = rtxCtxtPushElemName(ctxt, wildcard ? (const QSUTF8CHAR*)"*" : (const QSUTF8CHAR*)tab[i].name);
         if (stat != 0) return XML_LOG(ctxt, stat);
         return tab[i].id;
      }
      if (!required) {
         /* left in place for the caller */
         stat = rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)"<unknown>");
         if (stat != 0) return XML_LOG(ctxt, stat);
         return RTERR_UNEXPECTED_ELEMENT;
      }
      recordUnexpected(ctxt, r, *ev, __LINE__);
      markDone(r);
      stat = skipElement(ctxt, r);
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
}

} // namespace

namespace {

/* rtXmlpGetNextSeqElemID after the direct lookup in the group's entries found nothing (i is
 * kNotTaken, or kEndPending in a group up to the last mandatory one). */
QS_NOINLINE int nextSeqElemRest(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab, const QSXmlGroupDesc& g,
                                int curGroup, int lastMandatoryGroup, QSBOOL extensible)
{
   bool required = !(g.anyCase >= 0 || (extensible && curGroup > lastMandatoryGroup));
   int id = rtXmlpGetNextElemID(ctxt, tab + g.row, g.num, -1, required);
   if (id == RTERR_UNEXPECTED_ELEMENT) {
      if (g.anyCase >= 0) return g.anyCase;
      rtxCtxtPopElemName(ctxt);  /* "<unknown>" */
      if (curGroup <= lastMandatoryGroup) {
         const Event& ev = settled(r);
         addNameParm(ctxt, r, ev.nameOff, ev.nameLen);
         addPosParm(ctxt, ev.startOff);
         rtxErrSetNewData(ctxt, RTERR_UNEXPECTED_ELEMENT, XML_MODULE, __LINE__);
         return RTERR_UNEXPECTED_ELEMENT;
      }
      /* the member list ends here; the end-tag match deals with the element */
      return QSXML_END_OF_CONTENT;
   }
   if (id == QSXML_END_OF_CONTENT && curGroup <= lastMandatoryGroup) {
      const Event& ev = settled(r);
      if (ev.type == QSXMLP_END_TAG) addPosParm(ctxt, ev.startOff);
      rtxErrSetNewData(ctxt, RTERR_XML_REQUIRED_ELEMENTS_MISSED, XML_MODULE, __LINE__);
      return RTERR_XML_REQUIRED_ELEMENTS_MISSED;
   }
   if (id < 0) return XML_LOG(ctxt, id);
   return id;
}

/* rtXmlpGetNextSeqElemID on the context's reader, arguments checked; idle: the reader is known
 * to be idle at its depth. */
template <bool idle>
QS_ALWAYS_INLINE inline int nextSeqElem(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab,
                                        const QSXmlGroupDesc* groups, int curGroup, int lastMandatoryGroup,
                                        QSBOOL extensible)
{
   const QSXmlGroupDesc& g = groups[curGroup];
   QSSIZE i = idle ? directNextElemIdle(ctxt, r, tab + g.row, g.num) : directNextElem(ctxt, r, tab + g.row, g.num);
   if (i < kEndPending) {
      const QSXmlElemDescr& e = tab[g.row + i];
      int stat = rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)e.name);
      if (stat != 0) return XML_LOG(ctxt, stat);
      return e.id;
   }
   if (i == kEndPending && curGroup > lastMandatoryGroup) return QSXML_END_OF_CONTENT;
   return nextSeqElemRest(ctxt, r, tab, g, curGroup, lastMandatoryGroup, extensible);
}

} // namespace

int rtXmlpGetNextSeqElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, const QSXmlGroupDesc* groups,
                           int curGroup, int lastMandatoryGroup, QSBOOL extensible)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (tab == nullptr || groups == nullptr || curGroup < 0) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   return nextSeqElem<false>(ctxt, r, tab, groups, curGroup, lastMandatoryGroup, extensible);
}

namespace {

/* rtXmlpEndNextSeqElemID when the end tag is not taken directly: the general end-tag match, then
 * the lookup; kept out of line so that the direct path stays small. */
QS_NOINLINE int endNextSeqElemGeneral(QSCTXT* ctxt, QSXmlReader* r, const QSXmlElemDescr* tab,
                                      const QSXmlGroupDesc* groups, int ngroups, int curGroup,
                                      int lastMandatoryGroup, QSBOOL extensible)
{
   int stat = matchEndTag(ctxt, -1);
   if (stat != 0) return stat;
   if (curGroup >= ngroups) return QSXML_END_OF_CONTENT;
   if (tab == nullptr || groups == nullptr || curGroup < 0) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   return nextSeqElem<false>(ctxt, r, tab, groups, curGroup, lastMandatoryGroup, extensible);
}

} // namespace

int rtXmlpEndNextSeqElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, const QSXmlGroupDesc* groups, int ngroups,
                           int curGroup, int lastMandatoryGroup, QSBOOL extensible)
{
   QSXmlReader* r = (ctxt != nullptr) ? readerOf(ctxt) : nullptr;
   if (r == nullptr) {
      int stat = rtXmlpMatchEndTag(ctxt, -1);
      if (stat != 0) return stat;
      if (curGroup >= ngroups) return QSXML_END_OF_CONTENT;
      return rtXmlpGetNextSeqElemID(ctxt, tab, groups, curGroup, lastMandatoryGroup, extensible);
   }
   /* the end tag taken directly leaves the reader idle at its depth */
   if (!(takePendingEnd(ctxt, r, -1) || takePlainEnd(ctxt, r)))
      return endNextSeqElemGeneral(ctxt, r, tab, groups, ngroups, curGroup, lastMandatoryGroup, extensible);
   if (curGroup >= ngroups) return QSXML_END_OF_CONTENT;
   if (tab == nullptr || groups == nullptr || curGroup < 0) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   return nextSeqElem<true>(ctxt, r, tab, groups, curGroup, lastMandatoryGroup, extensible);
}

int rtXmlpEndNextElemID(QSCTXT* ctxt, const QSXmlElemDescr* tab, QSSIZE nrows, QSBOOL required)
{
   QSXmlReader* r = (ctxt != nullptr) ? readerOf(ctxt) : nullptr;
   if (r == nullptr || !(takePendingEnd(ctxt, r, -1) || takePlainEnd(ctxt, r))) {
      int stat = (r != nullptr) ? matchEndTag(ctxt, -1) : rtXmlpMatchEndTag(ctxt, -1);
      if (stat != 0) return stat;
      return rtXmlpGetNextElemID(ctxt, tab, nrows, -1, required);
   }
   /* rtXmlpGetNextElemID at the reader's level, which the end tag taken directly has left idle */
   QSSIZE i = directNextElemIdle(ctxt, r, tab, nrows);
   if (i == kEndPending) return QSXML_END_OF_CONTENT;
   if (i != kNotTaken) {
      int stat = rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)tab[i].name);
      if (stat != 0) return XML_LOG(ctxt, stat);
      return tab[i].id;
   }
   return nextElemRest(ctxt, r, tab, nrows, r->level, required);
}

int rtXmlpGetNextSeqElemIDExt(QSCTXT* ctxt, const QSXmlElemDescr* tab, const QSXmlGroupDesc* groups,
                              int curGroup, int lastMandatoryGroup, QSBOOL extensible)
{
   return rtXmlpGetNextSeqElemID(ctxt, tab, groups, curGroup, lastMandatoryGroup, extensible);
}

int rtXmlpGetNextElem(QSCTXT* ctxt, QSXmlQName* pqname, QSINT32 level)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (pqname == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   QSINT32 lvl = (level < 0) ? r->level : level;
   if (r->level < lvl) return QSXML_END_OF_CONTENT;
   Event* ev;
   stat = peekEventNonWs(ctxt, r, &ev);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (ev->type == QSXMLP_END_TAG) return QSXML_END_OF_CONTENT;
   if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
   if (ev->type == QSXMLP_CHARS) {
      addOpenNameParm(ctxt, r, lvl);
      addPosParm(ctxt, ev->startOff);
      rtxErrSetNewData(ctxt, RTERR_XML_UNEXPECTED_END_TAG, XML_MODULE, __LINE__);
      return RTERR_XML_UNEXPECTED_END_TAG;
   }
   stat = xmlimpl::peekStartTagName(ctxt, pqname);
   if (stat != 0) return XML_LOG(ctxt, stat);
   markDone(r);
   stat = rtxCtxtPushElemNameCopy(ctxt, pqname->ln);
   if (stat != 0) return XML_LOG(ctxt, stat);
   return 0;
}

int rtXmlDecEmptyElement(QSCTXT* ctxt)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   const Event& cur = settled(r);
   if (!r->hasCur || cur.type != QSXMLP_START_TAG || !r->curDone)
      return XML_LOG(ctxt, RTERR_XML_INVALID_DATA_MODE);
   if (cur.empty) return 0;
   QSINT32 lvl = cur.level;
   for (;;) {
      Event* ev;
      stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      if (ev->type == QSXMLP_END_TAG && ev->level == lvl) return 0;
      if (ev->type == QSXMLP_CHARS && ev->allWs) {
         markDone(r);
         continue;
      }
      if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      addPosParm(ctxt, ev->startOff);
      rtxErrSetNewData(ctxt, RTERR_XML_ELEMENT_NOT_EMPTY, XML_MODULE, __LINE__);
      return RTERR_XML_ELEMENT_NOT_EMPTY;
   }
}

int rtXmlpDecEnumElem(QSCTXT* ctxt, const QSRTEnumTableEntry* table, QSUINT16 count,
                      int (*toEnum)(QSCTXT*, const QSUTF8CHAR*, size_t, QSUINT32*), QSUINT32 top, QSUINT32* pvalue)
{
   QSXmlReader* r = (ctxt != nullptr) ? readerOf(ctxt) : nullptr;
   if (r != nullptr && idleAtDepth(r) && r->depth != r->stackCap) {
      /* The only content being an empty child <identifier/> of the table (the identifiers of
       * toEnum): an identifier followed by "/>" is the whole name, and identifiers hold no
       * prefix, so this is the child emptyChildAt would find, with its entry. */
      const QSOCTET* d = r->data;
      QSSIZE n = r->size;
      QSSIZE q = skipIndent(d, n, r->pos);
      if (q + 1 < n && d[q] == '<') {
         const QSOCTET* name = d + q + 1;
         QSSIZE avail = n - (q + 1);
         for (QSUINT16 i = 0; i < count; i++) {
            const QSRTEnumTableEntry& e = table[i];
            QSSIZE len = e.namelen;
            if (len + 1 < avail && name[len] == '/' && name[len + 1] == '>' && len != 0 && e.name[0] == name[0] &&
                sameBytes(e.name, name, len)) {
               QSUINT32 value = (QSUINT32)e.value;
               if (value > top) break;
               takeEmptyChild(ctxt, r, q + 1, len);
               *pvalue = value;
               return 0;
            }
         }
      }
   }
   return rtXmlpDecXerEnum(ctxt, toEnum, top, pvalue);
}

int rtXmlpDecBoolElem(QSCTXT* ctxt, QSBOOL* pvalue)
{
   QSXmlReader* r = (ctxt != nullptr) ? readerOf(ctxt) : nullptr;
   QSSIZE off, len;
   if (r != nullptr && emptyChildAt(r, &off, &len)) {
      const QSOCTET* name = r->data + off;
      bool isTrue = (len == 4 && std::memcmp(name, "true", 4) == 0);
      if (isTrue || (len == 5 && std::memcmp(name, "false", 5) == 0)) {
         takeEmptyChild(ctxt, r, off, len);
         *pvalue = isTrue ? TRUE : FALSE;
         return 0;
      }
   }
   return rtXmlpDecXerBool(ctxt, pvalue);
}

int rtXmlpMarkLastEventActive(QSCTXT* ctxt)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (!r->hasCur || !r->curDone) return 0;
   const Event& ev = settled(r);
   r->curDone = false;
   if (ev.type == QSXMLP_START_TAG) r->level = ev.level - 1;
   else if (ev.type == QSXMLP_END_TAG) r->level = ev.level;
   return 0;
}

int rtXmlpDecAnyElem(QSCTXT* ctxt, const QSUTF8CHAR** pvalue)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (pvalue == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   QSSIZE start = 0, end = 0;
   stat = captureElement(ctxt, r, &start, &end);
   if (stat != 0) return XML_LOG(ctxt, stat);
   QSOCTET* text = copyInput(ctxt, r, start, end - start);
   if (text == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   *pvalue = text;
   return 0;
}

int rtXmlpDecExtElems(QSCTXT* ctxt, QSRTDList* pExtList, const QSXmlElemDescr* tab, QSSIZE nrows)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (pExtList == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   for (;;) {
      QSSIZE start = 0, end = 0;
      stat = captureElement(ctxt, r, &start, &end);
      if (stat != 0) return XML_LOG(ctxt, stat);
      ASN1TOpenType* ot = static_cast<ASN1TOpenType*>(rtxMemHeapAlloc(ctxt, sizeof(ASN1TOpenType)));
      QSOCTET* text = copyInput(ctxt, r, start, end - start);
      if (ot == nullptr || text == nullptr || rtxDListAppend(ctxt, pExtList, ot) == nullptr)
         return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      ot->numocts = (QSUINT32)(end - start);
      ot->data = text;
      stat = rtXmlpMatchEndTag(ctxt, -1);
      if (stat != 0) return XML_LOG(ctxt, stat);

      Event* ev;
      stat = peekEventNonWs(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      if (ev->type != QSXMLP_START_TAG || ev->level != r->level + 1) return 0;
      if (matchEntry(r, *ev, tab, (tab != nullptr) ? nrows : 0) != (QSSIZE)-1) return 0;
      stat = rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)"<unknown>");
      if (stat != 0) return XML_LOG(ctxt, stat);
   }
}

int rtAsn1XmlpDecOpenType(QSCTXT* ctxt, ASN1TOpenType* pvalue)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (pvalue == nullptr) return XML_LOG(ctxt, RTERR_INVALID_PARAMETER);
   if (r->level <= 0) return XML_LOG(ctxt, RTERR_INVALID_XML_STATE);
   QSINT32 lvl = r->level;
   QSSIZE start = r->stack[lvl - 1].contentOff;
   QSSIZE end = start;
   for (;;) {
      Event* ev;
      stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) return XML_LOG(ctxt, stat);
      if (ev->type == QSXMLP_END_DOC) return XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
      if (ev->type == QSXMLP_END_TAG && ev->level == lvl) {
         end = ev->startOff;
         break;
      }
      markDone(r);
   }
   QSOCTET* text = copyInput(ctxt, r, start, end - start);
   if (text == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   pvalue->numocts = (QSUINT32)(end - start);
   pvalue->data = text;
   return 0;
}

/* ---- list mode -------------------------------------------------------------------------------- */

int rtXmlpSetListMode(QSCTXT* ctxt)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   r->listMode = false;
   stat = readContent(ctxt, r);
   if (stat != 0) return XML_LOG(ctxt, stat);
   r->list.len = 0;
   if (!r->list.append(r->value.p, r->value.len)) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   r->listPos = 0;
   r->listMode = true;
   return 0;
}

QSBOOL rtXmlpListHasItem(QSCTXT* ctxt)
{
   QSXmlReader* r = (ctxt != nullptr) ? readerOf(ctxt) : nullptr;
   if (r == nullptr || !r->listMode) return FALSE;
   for (QSSIZE p = r->listPos; p < r->list.len; p++) {
      if (!isWs(r->list.p[p])) return TRUE;
   }
   r->listMode = false;
   return FALSE;
}

int rtXmlpCountListItems(QSCTXT* ctxt)
{
   QSXmlReader* r;
   int stat = getReader(ctxt, &r);
   if (stat != 0) return stat;
   if (!r->listMode) return 0;
   int count = 0;
   bool inItem = false;
   for (QSSIZE p = r->listPos; p < r->list.len; p++) {
      bool ws = isWs(r->list.p[p]);
      if (!ws && !inItem) count++;
      inItem = !ws;
   }
   return count;
}

/* ---- document --------------------------------------------------------------------------------- */

int rtXmlpDecodeResult(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   int stat = rtxErrCheckNonFatal(ctxt);
   if (stat != 0) return stat;
   return rtxErrGetStatus(ctxt);
}

int xmlimpl::checkWellFormed(QSCTXT* ctxt)
{
   QSXmlCtxtInfo* info = infoOf(ctxt);
   if (info == nullptr) return RTERR_INVALID_PARAMETER;
   QSXmlReader* saved = info->reader;
   QSSIZE savedIndex = ctxt->buffer.byteIndex;
   info->reader = nullptr;
   int stat = rtXmlpCreateReader(ctxt);
   QSXmlReader* r = info->reader;
   if (stat == 0 && saved != nullptr) {
      /* the whole document the context's reader works on */
      r->pos = saved->docStart;
   }
   bool sawRoot = false;
   while (stat == 0) {
      Event* ev;
      stat = peekEvent(ctxt, r, &ev);
      if (stat != 0) break;
      if (ev->type == QSXMLP_START_TAG) sawRoot = true;
      if (ev->type == QSXMLP_END_DOC) {
         if (!sawRoot) stat = XML_LOG(ctxt, RTERR_XML_UNEXPECTED_EOF);
         break;
      }
      markDone(r);
   }
   freeReader(ctxt);
   info->reader = saved;
   ctxt->buffer.byteIndex = savedIndex;
   return stat;
}
