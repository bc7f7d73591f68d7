/*
 * JSON token readers: characters, strings, keys, booleans, null, numbers,
 * hex strings and bit strings.
 */
#include "rtjsonsrc/rtJson.h"

#include <cstring>

#include "rtjsonsrc/rtJsonInternal.h"
#include "rtxsrc/rtxMemory.h"

#define JSON_MODULE "../../rtjsonsrc/rtJsonDec.cpp"

using namespace jsonimpl;

namespace {

/* Value of a hex digit, or -1. */
struct HexTable {
   signed char v[256];
   constexpr HexTable() : v()
   {
      for (int i = 0; i < 256; i++) v[i] = -1;
      for (int i = 0; i < 10; i++) v['0' + i] = (signed char)i;
      for (int i = 0; i < 6; i++) {
         v['a' + i] = (signed char)(10 + i);
         v['A' + i] = (signed char)(10 + i);
      }
   }
};
constexpr HexTable kHex;

/* Span of a string body in the input: from the cursor (just after the
 * opening quote) to the closing quote. */
struct StringSpan {
   const QSOCTET* start;
   QSSIZE rawLen;       /* bytes before the closing quote */
   bool escaped;        /* contains a backslash */
};

/* Finds the closing quote of the string whose body starts at the cursor;
 * the cursor does not move. RTERR_UNEXPECTED_END_OF_BUFFER when the input
 * ends first (not recorded). */
int scanString(QSCTXT* ctxt, StringSpan* span)
{
   if (peekRaw(ctxt) < 0) return RTERR_UNEXPECTED_END_OF_BUFFER;
   const QSRTBuffer& b = ctxt->buffer;
   const QSOCTET* start = b.data + b.byteIndex;
   const QSOCTET* end = b.data + b.size;
   const QSOCTET* p = start;
   bool escaped = false;
   while (p < end) {
      QSOCTET c = *p;
      if (c == '"') {
         span->start = start;
         span->rawLen = (QSSIZE)(p - start);
         span->escaped = escaped;
         return 0;
      }
      if (c == '\\') {
         escaped = true;
         p += 2;
      }
      else {
         p++;
      }
   }
   return RTERR_UNEXPECTED_END_OF_BUFFER;
}

/* Matches the opening quote (whitespace first). A different character
 * is recorded as RTERR_UNEXPECTED_IDENTIFIER (expected '"', found c). */
int matchOpenQuote(QSCTXT* ctxt)
{
   int c = peekNonWs(ctxt);
   if (c == '"') {
      ctxt->buffer.byteIndex++;
      return 0;
   }
   if (c < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   rtxErrAddStrParm(ctxt, "\"");
   addCharParm(ctxt, c);
   return JSON_LOG(ctxt, RTERR_UNEXPECTED_IDENTIFIER);
}

/* Checks the attribute-name marker after the opening quote when the
 * attribute-name flag is set (the flag is cleared). */
int matchAttrMarker(QSCTXT* ctxt)
{
   if (!(ctxt->flags & QSJSONATTRNAME)) return 0;
   ctxt->flags &= ~QSJSONATTRNAME;
   int c = peekRaw(ctxt);
   if (c < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   if (c != '@') return JSON_LOG(ctxt, RTERR_CHARACTER_NOT_IN_SET);
   ctxt->buffer.byteIndex++;
   return 0;
}

/* Decodes the escapes of a scanned string body into out (room for
 * rawLen + 1 bytes); moves the cursor past the closing quote. A bad escape
 * leaves the cursor on the character after the backslash. */
int unescapeString(QSCTXT* ctxt, const StringSpan& span, QSOCTET* out, QSSIZE* poutLen)
{
   const QSOCTET* p = span.start;
   const QSOCTET* end = span.start + span.rawLen;
   QSOCTET* q = out;
   while (p < end) {
      QSOCTET c = *p++;
      if (c != '\\') {
         *q++ = c;
         continue;
      }
      QSOCTET e = *p;
      switch (e) {
         case 'b': *q++ = 0x08; break;
         case 'f': *q++ = 0x0C; break;
         case 'n': *q++ = 0x0A; break;
         case 'r': *q++ = 0x0D; break;
         case 't': *q++ = 0x09; break;
         case '/': case '\\': case '"': *q++ = e; break;
         default:
            ctxt->buffer.byteIndex = (QSSIZE)(p - ctxt->buffer.data);
            return JSON_LOG(ctxt, RTERR_CHARACTER_NOT_IN_SET);
      }
      p++;
   }
   *q = 0;
   *poutLen = (QSSIZE)(q - out);
   ctxt->buffer.byteIndex = (QSSIZE)(end + 1 - ctxt->buffer.data);
   return 0;
}

/* Reads the body of a string whose opening quote has been consumed into a
 * heap copy. */
int readStringBody(QSCTXT* ctxt, QSUTF8CHAR** ppvalue, QSSIZE* plen)
{
   StringSpan span;
   int stat = scanString(ctxt, &span);
   if (stat != 0) {
      ctxt->buffer.byteIndex = ctxt->buffer.size;
      return JSON_LOG(ctxt, stat);
   }
   QSOCTET* out = (QSOCTET*)rtxMemHeapAlloc(ctxt, span.rawLen + 1);
   if (out == nullptr) return JSON_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   QSSIZE len = 0;
   if (!span.escaped) {
      std::memcpy(out, span.start, span.rawLen);
      out[span.rawLen] = 0;
      len = span.rawLen;
      ctxt->buffer.byteIndex += span.rawLen + 1;
   }
   else {
      stat = unescapeString(ctxt, span, out, &len);
      if (stat != 0) {
         rtxMemHeapFreePtr(ctxt, out);
         return JSON_LOG(ctxt, stat);
      }
   }
   *ppvalue = out;
   if (plen != nullptr) *plen = len;
   return 0;
}

/* Reads a key string without keeping a copy when it has no escapes:
 * *pkey points into the input (or to a heap copy, *pheap set). */
int readKey(QSCTXT* ctxt, const QSOCTET** pkey, QSSIZE* plen, QSOCTET** pheap)
{
   *pheap = nullptr;
   int stat = matchOpenQuote(ctxt);
   if (stat == 0) stat = matchAttrMarker(ctxt);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   StringSpan span;
   stat = scanString(ctxt, &span);
   if (stat != 0) {
      ctxt->buffer.byteIndex = ctxt->buffer.size;
      return JSON_LOG(ctxt, stat);
   }
   if (!span.escaped) {
      *pkey = span.start;
      *plen = span.rawLen;
      ctxt->buffer.byteIndex += span.rawLen + 1;
      return 0;
   }
   QSUTF8CHAR* copy = nullptr;
   stat = readStringBody(ctxt, &copy, plen);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   *pkey = copy;
   *pheap = copy;
   return 0;
}

inline bool keyEquals(const QSOCTET* key, QSSIZE len, const char* name, QSSIZE nameLen)
{
   return len == nameLen && std::memcmp(key, name, len) == 0;
}

} // namespace

/* ---- characters and strings ------------------------------------------------------------------- */

int rtJsonDecMatchChar(QSCTXT* ctxt, QSUTF8CHAR ch)
{
   int c = peekNonWs(ctxt);
   if (c < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   if (c != ch) return JSON_LOG(ctxt, RTERR_CHARACTER_NOT_IN_SET);
   ctxt->buffer.byteIndex++;
   return 0;
}

int rtJsonDecStringValue(QSCTXT* ctxt, QSUTF8CHAR** ppvalue)
{
   int stat = matchOpenQuote(ctxt);
   if (stat == 0) stat = matchAttrMarker(ctxt);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSUTF8CHAR* value = nullptr;
   stat = readStringBody(ctxt, &value, nullptr);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   if (ppvalue != nullptr) *ppvalue = value;
   else rtxMemHeapFreePtr(ctxt, value);
   return 0;
}

int rtJsonDecMatchToken2(QSCTXT* ctxt, const char* token, QSSIZE tokenLen)
{
   if (token == nullptr || tokenLen == 0) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   QSRTBuffer& b = ctxt->buffer;
   peekRaw(ctxt);
   if (tokenLen > b.size) {
      rtxErrAddStrParm(ctxt, "Match on token larger than context buffer size");
      return JSON_LOG(ctxt, RTERR_FEATURE_NOT_SUPPORTED);
   }
   QSSIZE saved = b.byteIndex;
   int c = peekNonWs(ctxt);
   const QSOCTET* found = nullptr;
   QSSIZE foundLen = 0;
   if (c == '"' && token[0] != '"') {
      b.byteIndex++;
      StringSpan span;
      if (scanString(ctxt, &span) == 0) {
         found = span.start;
         foundLen = span.rawLen;
         if (keyEquals(span.start, span.rawLen, token, tokenLen)) {
            b.byteIndex += span.rawLen + 1;
            return 0;
         }
      }
   }
   else if (c >= 0) {
      found = b.data + b.byteIndex;
      foundLen = b.size - b.byteIndex;
      if (foundLen > tokenLen) foundLen = tokenLen;
      if (keyEquals(found, foundLen, token, tokenLen)) {
         b.byteIndex += tokenLen;
         return 0;
      }
   }
   b.byteIndex = saved;
   rtxErrAddStrnParm(ctxt, token, tokenLen);
   if (found != nullptr) rtxErrAddStrnParm(ctxt, (const char*)found, foundLen);
   else rtxErrAddStrParm(ctxt, "EOF");
   return JSON_LOG(ctxt, RTERR_UNEXPECTED_IDENTIFIER);
}

int rtJsonDecMatchToken(QSCTXT* ctxt, const char* token)
{
   int stat = rtJsonDecMatchToken2(ctxt, token, (token != nullptr) ? std::strlen(token) : 0);
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonGetElemIdx(QSCTXT* ctxt, const QSJsonElemName* names, QSSIZE count)
{
   /* the common case in one pass over the buffer: whitespace, a key without escapes, whitespace,
    * the colon; anything else takes the general path below from the same position */
   QSRTBuffer& b = ctxt->buffer;
   if (!(ctxt->flags & QSJSONATTRNAME) && b.data != nullptr && b.byteIndex < b.size) {
      const QSOCTET* data = b.data;
      QSSIZE i = skipWs(data, b.byteIndex, b.size);
      if (i < b.size && data[i] == '"') {
         const QSOCTET* key = data + i + 1;
         const QSOCTET* end = data + b.size;
         /* a member name followed by the closing quote is the key (names hold no quote or
          * backslash), found without scanning the key first */
         QSSIZE avail = (QSSIZE)(end - key);
         for (QSSIZE k = 0; k < count; k++) {
            QSSIZE nl = names[k].nameLen;
            if (nl < avail && nl != 0 && key[nl] == '"' && key[0] == (QSOCTET)names[k].name[0] &&
                std::memcmp(key, names[k].name, nl) == 0) {
               QSSIZE j = skipWs(data, (QSSIZE)(key + nl - data) + 1, b.size);
               if (j < b.size && data[j] == ':') {
                  b.byteIndex = j + 1;
                  return (int)k;
               }
               break;
            }
         }
         const QSOCTET* q = key;
         while (q < end && *q != '"' && *q != '\\') q++;
         if (q < end && *q == '"') {
            QSSIZE len = (QSSIZE)(q - key);
            QSSIZE j = skipWs(data, (QSSIZE)(q - data) + 1, b.size);
            if (j < b.size && data[j] == ':') {
               int idx = -1;
               for (QSSIZE k = 0; k < count; k++) {
                  if (keyEquals(key, len, names[k].name, names[k].nameLen)) {
                     idx = (int)k;
                     break;
                  }
               }
               b.byteIndex = j + 1;
               return idx;
            }
         }
      }
   }
   const QSOCTET* key = nullptr;
   QSSIZE len = 0;
   QSOCTET* heapKey = nullptr;
   int stat = readKey(ctxt, &key, &len, &heapKey);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   int idx = -1;
   for (QSSIZE i = 0; i < count; i++) {
      if (keyEquals(key, len, names[i].name, names[i].nameLen)) {
         idx = (int)i;
         break;
      }
   }
   if (heapKey != nullptr) rtxMemHeapFreePtr(ctxt, heapKey);
   stat = rtJsonDecMatchChar(ctxt, ':');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   return idx;
}

namespace {

/* The plain string at the cursor (see rtJsonDecStringFast): the index of its closing quote,
 * with the start of its text in *ptext; -1 when the string has another form. Nothing moves. */
inline long long scanPlainString(QSCTXT* ctxt, const QSOCTET** ptext)
{
   const QSRTBuffer& b = ctxt->buffer;
   if ((ctxt->flags & QSJSONATTRNAME) || b.data == nullptr || b.byteIndex >= b.size) return -1;
   const QSOCTET* data = b.data;
   QSSIZE i = skipWs(data, b.byteIndex, b.size);
   if (i >= b.size || data[i] != '"') return -1;
   const QSOCTET* text = data + i + 1;
   const QSOCTET* end = data + b.size;
   const QSOCTET* q = text;
   /* sixteen (or eight) bytes at a time while they are there: the first quote or backslash */
#if defined(__SSE2__)
   const __m128i quotes = _mm_set1_epi8('"'), backslashes = _mm_set1_epi8('\\');
   for (;;) {
      if (end - q < 16) {
         while (q < end && *q != '"' && *q != '\\') q++;
         break;
      }
      __m128i v = _mm_loadu_si128((const __m128i*)q);
      unsigned m = (unsigned)_mm_movemask_epi8(
         _mm_or_si128(_mm_cmpeq_epi8(v, quotes), _mm_cmpeq_epi8(v, backslashes)));
      if (m != 0) {
         q += __builtin_ctz(m);
         break;
      }
      q += 16;
   }
#else
   const QSUINT64 ones = 0x0101010101010101ull, highs = 0x8080808080808080ull;
   for (;;) {
      if (end - q < 8) {
         while (q < end && *q != '"' && *q != '\\') q++;
         break;
      }
      QSUINT64 w;
      std::memcpy(&w, q, 8);
      QSUINT64 x1 = w ^ (ones * '"'), x2 = w ^ (ones * '\\');
      QSUINT64 t = (((x1 - ones) & ~x1) | ((x2 - ones) & ~x2)) & highs;
      if (t != 0) {
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
         q += __builtin_ctzll(t) >> 3;
#else
         while (*q != '"' && *q != '\\') q++;
#endif
         break;
      }
      q += 8;
   }
#endif
   if (q >= end || *q != '"' || q - text > 0x7FFFFFFF) return -1;
   *ptext = text;
   return (long long)(q - data);
}

} // namespace

int rtJsonDecKeyFast(QSCTXT* ctxt, const QSOCTET** pkey)
{
   const QSOCTET* key = nullptr;
   long long q = scanPlainString(ctxt, &key);
   if (q < 0) return -1;
   const QSRTBuffer& b = ctxt->buffer;
   const QSOCTET* data = b.data;
   QSSIZE j = (QSSIZE)q + 1;
   if (j < b.size && data[j] != ':') j = skipWs(data, j, b.size);
   if (j >= b.size || data[j] != ':') return -1;
   ctxt->buffer.byteIndex = j + 1;
   *pkey = key;
   return (int)(data + q - key);
}

int rtJsonDecStringFast(QSCTXT* ctxt, const QSOCTET** ptext)
{
   const QSOCTET* text = nullptr;
   long long q = scanPlainString(ctxt, &text);
   if (q < 0) return -1;
   ctxt->buffer.byteIndex = (QSSIZE)q + 1;
   *ptext = text;
   return (int)(ctxt->buffer.data + q - text);
}

int rtJsonDecMoreItems(QSCTXT* ctxt)
{
   if (peekNonWs(ctxt) != ',') return 0;
   ctxt->buffer.byteIndex++;
   return 1;
}

int rtJsonDecMatchObjectStart(QSCTXT* ctxt, const QSJsonElemName* names, QSSIZE count)
{
   int stat = rtJsonDecMatchChar(ctxt, '{');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   int idx = rtJsonGetElemIdx(ctxt, names, count);
   if (idx == -1) return JSON_LOG(ctxt, RTERR_UNEXPECTED_IDENTIFIER);
   if (idx < 0) return JSON_LOG(ctxt, idx);
   return idx;
}

int rtJsonDecSkipWhitespaceAndComma(QSCTXT* ctxt)
{
   if (peekNonWs(ctxt) == ',') {
      ctxt->buffer.byteIndex++;
      peekNonWs(ctxt);
   }
   return 0;
}

/* ---- booleans and null ------------------------------------------------------------------------ */

namespace {

/* Reads a boolean; on failure returns the status with the characters read
 * in text (nothing recorded). */
int readBool(QSCTXT* ctxt, QSBOOL* pvalue, char text[6])
{
   text[0] = 0;
   int c = peekNonWs(ctxt);
   if (c < 0) return RTERR_UNEXPECTED_END_OF_BUFFER;
   ctxt->buffer.byteIndex++;
   const char* rest;
   QSBOOL value;
   switch (c) {
      case '0': if (pvalue) *pvalue = 0; return 0;
      case '1': if (pvalue) *pvalue = 1; return 0;
      case 't': rest = "rue"; value = 1; break;
      case 'f': rest = "alse"; value = 0; break;
      default:
         text[0] = (char)c;
         text[1] = 0;
         return RTERR_UNEXPECTED_IDENTIFIER;
   }
   int n = 0;
   text[n++] = (char)c;
   for (const char* r = rest; *r != 0; r++) {
      int d = getRaw(ctxt);
      if (d < 0) {
         text[n] = 0;
         return RTERR_UNEXPECTED_IDENTIFIER;
      }
      text[n++] = (char)d;
      if (d != *r) {
         text[n] = 0;
         return RTERR_UNEXPECTED_IDENTIFIER;
      }
   }
   if (pvalue) *pvalue = value;
   return 0;
}

int readNull(QSCTXT* ctxt, char text[5])
{
   for (int i = 0; i < 4; i++) {
      int c = getRaw(ctxt);
      if (c < 0) {
         text[i] = 0;
         return RTERR_UNEXPECTED_END_OF_BUFFER;
      }
      text[i] = (char)c;
   }
   text[4] = 0;
   return (std::memcmp(text, "null", 4) == 0) ? 0 : RTERR_UNEXPECTED_IDENTIFIER;
}

} // namespace

int rtJsonDecBool(QSCTXT* ctxt, QSBOOL* pvalue)
{
   char text[6];
   int stat = readBool(ctxt, pvalue, text);
   if (stat == 0) return 0;
   if (stat == RTERR_UNEXPECTED_IDENTIFIER) {
      rtxErrAddStrParm(ctxt, "true|false");
      rtxErrAddStrParm(ctxt, text);
   }
   return JSON_LOG(ctxt, stat);
}

int rtJsonTryDecBool(QSCTXT* ctxt, QSBOOL* pvalue)
{
   char text[6];
   return readBool(ctxt, pvalue, text);
}

int rtJsonDecNull(QSCTXT* ctxt)
{
   char text[5];
   int stat = readNull(ctxt, text);
   if (stat == 0) return 0;
   if (stat == RTERR_UNEXPECTED_IDENTIFIER) {
      rtxErrAddStrParm(ctxt, "null");
      rtxErrAddStrParm(ctxt, text);
   }
   return JSON_LOG(ctxt, stat);
}

int rtJsonTryDecNull(QSCTXT* ctxt)
{
   char text[5];
   return readNull(ctxt, text);
}

/* ---- numbers ---------------------------------------------------------------------------------- */

int rtJsonDecNumberString(QSCTXT* ctxt, char** ppvalue)
{
   const QSSIZE kBlock = 1024;
   int c = peekNonWs(ctxt);
   if (c < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   QSRTBuffer& b = ctxt->buffer;
   const QSOCTET* start = b.data + b.byteIndex;
   const QSOCTET* end = b.data + b.size;
   const QSOCTET* p = start;
   auto isDigit = [](QSOCTET d) { return (QSOCTET)(d - '0') <= 9; };
   bool complete = false;
   if (p < end && *p == '-') p++;
   if (p < end && *p == '0') {
      p++;
      complete = true;
   }
   else if (p < end && *p >= '1' && *p <= '9') {
      while (p < end && isDigit(*p)) p++;
      complete = true;
   }
   if (complete && p < end && *p == '.') {
      p++;
      complete = false;
      while (p < end && isDigit(*p)) {
         p++;
         complete = true;
      }
   }
   if (complete && p < end && (*p == 'e' || *p == 'E')) {
      p++;
      complete = false;
      if (p < end && (*p == '+' || *p == '-')) p++;
      while (p < end && isDigit(*p)) {
         p++;
         complete = true;
      }
   }
   QSSIZE len = (QSSIZE)(p - start);
   if (len >= kBlock) return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   b.byteIndex += len;
   if (!complete) return JSON_LOG(ctxt, RTERR_INVALID_VALUE_FORMAT);
   if (ppvalue != nullptr) {
      char* text = (char*)rtxMemHeapAlloc(ctxt, len + 1);
      if (text == nullptr) return JSON_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      std::memcpy(text, start, len);
      text[len] = 0;
      *ppvalue = text;
   }
   return 0;
}

/* ---- hex strings ------------------------------------------------------------------------------ */

int rtJsonDecHexStr64(QSCTXT* ctxt, QSOCTET* data, QSSIZE* pnocts, QSSIZE bufsize)
{
   int stat = rtJsonDecMatchChar(ctxt, '"');
   if (stat != 0) return JSON_LOG(ctxt, stat);
   QSRTBuffer& b = ctxt->buffer;
   const QSOCTET* p = b.data + b.byteIndex;
   const QSOCTET* end = b.data + b.size;
   const QSSIZE maxDigits = bufsize * 2;
   QSSIZE ndigits = 0;
   for (;;) {
      if (p >= end) {
         b.byteIndex = b.size;
         return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
      }
      int v = kHex.v[*p];
      if (ndigits == maxDigits) {
         if (*p != '"') {
            b.byteIndex = (QSSIZE)(p - b.data);
            return JSON_LOG(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);
         }
         break;
      }
      if (v < 0) break;
      if (ndigits & 1) data[ndigits >> 1] |= (QSOCTET)v;
      else data[ndigits >> 1] = (QSOCTET)(v << 4);
      ndigits++;
      p++;
   }
   b.byteIndex = (QSSIZE)(p - b.data);
   if (*p != '"') return JSON_LOG(ctxt, RTERR_CHARACTER_NOT_IN_SET);
   b.byteIndex++;
   QSSIZE nocts = (ndigits + 1) / 2;
   if (ndigits & 1) {
      /* right-align: an implied leading zero nibble */
      for (QSSIZE i = nocts - 1; i > 0; i--) {
         data[i] = (QSOCTET)((data[i] >> 4) | (data[i - 1] << 4));
      }
      data[0] >>= 4;
   }
   if (pnocts != nullptr) *pnocts = nocts;
   return 0;
}

int rtJsonDecHexStr(QSCTXT* ctxt, QSOCTET* data, QSUINT32* pnocts, QSSIZE bufsize)
{
   QSSIZE nocts = 0;
   int stat = rtJsonDecHexStr64(ctxt, data, &nocts, bufsize);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   if (nocts > 0xFFFFFFFFull) return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   if (pnocts != nullptr) *pnocts = (QSUINT32)nocts;
   return 0;
}

namespace {

/* Number of hex digits of the quoted hex string at the cursor (whitespace
 * before it is skipped; the cursor stays on the opening quote). */
QSSIZE countHexDigits(QSCTXT* ctxt)
{
   int c = peekNonWs(ctxt);
   if (c != '"') return 0;
   const QSRTBuffer& b = ctxt->buffer;
   const QSOCTET* p = b.data + b.byteIndex + 1;
   const QSOCTET* end = b.data + b.size;
   const QSOCTET* q = p;
   while (q < end && kHex.v[*q] >= 0) q++;
   return (QSSIZE)(q - p);
}

/* Reads a quoted hex string into new heap memory (null when empty). */
int readDynHex(QSCTXT* ctxt, QSOCTET** pdata, QSSIZE* pnocts)
{
   /* One byte beyond the leading digits: the reader then never meets a full buffer, so
      whatever stops the digits is judged as a character (only the closing quote is right). */
   QSSIZE cap = (countHexDigits(ctxt) + 1) / 2 + 1;
   QSOCTET* data = (QSOCTET*)rtxMemHeapAlloc(ctxt, cap);
   if (data == nullptr) return JSON_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   QSSIZE nocts = 0;
   int stat = rtJsonDecHexStr64(ctxt, data, &nocts, cap);
   if (stat != 0 || nocts == 0) {
      rtxMemHeapFreePtr(ctxt, data);
      data = nullptr;
      if (stat != 0) return JSON_LOG(ctxt, stat);
   }
   *pdata = data;
   *pnocts = nocts;
   return 0;
}

} // namespace

int rtJsonDecDynHexStr64(QSCTXT* ctxt, ASN1TDynOctStr64* pvalue)
{
   QSOCTET* data = nullptr;
   QSSIZE nocts = 0;
   int stat = readDynHex(ctxt, &data, &nocts);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   pvalue->numocts = nocts;
   pvalue->data = data;
   return 0;
}

int rtJsonDecDynHexStr(QSCTXT* ctxt, ASN1TDynOctStr* pvalue)
{
   QSOCTET* data = nullptr;
   QSSIZE nocts = 0;
   int stat = readDynHex(ctxt, &data, &nocts);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   if (nocts > 0xFFFFFFFFull) {
      rtxMemHeapFreePtr(ctxt, data);
      return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   pvalue->numocts = (QSUINT32)nocts;
   pvalue->data = data;
   return 0;
}

/* ---- bit strings ------------------------------------------------------------------------------ */

namespace {

/* True when the bits of the last byte beyond nbits are all 0. */
inline bool unusedBitsClear(QSSIZE nbits, const QSOCTET* data, QSSIZE nocts)
{
   QSSIZE r = nbits % 8;
   if (r == 0 || nocts == 0) return true;
   return (data[nocts - 1] & (QSOCTET)(0xFFu >> r)) == 0;
}

/* The object {"value":"<hex>","length":<n>} in the form the writer gives it: the two members
 * in that order, whitespace only between the tokens and not around the colons, an even
 * number of hex digits within the capacity, a length of up to 18 digits that agrees with
 * them, unused bits clear, all in the buffer. Then the bytes are in data, the cursor is
 * behind the object and true is returned; otherwise false and the cursor has not moved (the
 * bytes in data may have been written). */
bool bitStrObjectFast(QSCTXT* ctxt, QSOCTET* data, QSSIZE bufsize, QSUINT64* pnbits)
{
   const QSRTBuffer& b = ctxt->buffer;
   if ((ctxt->flags & QSJSONATTRNAME) || b.data == nullptr || b.byteIndex >= b.size) return false;
   const QSOCTET* d = b.data;
   const QSSIZE n = b.size;
   QSSIZE i = skipWs(d, b.byteIndex, n);
   if (i >= n || d[i] != '{') return false;
   i = skipWs(d, i + 1, n);
   if (n - i < 9 || std::memcmp(d + i, "\"value\":\"", 9) != 0) return false;
   i += 9;
   QSSIZE ndigits = 0;
   for (; i < n; i++) {
      int v = kHex.v[d[i]];
      if (v < 0) break;
      if (ndigits >= 2 * bufsize) return false;
      if (ndigits & 1) data[ndigits >> 1] |= (QSOCTET)v;
      else data[ndigits >> 1] = (QSOCTET)(v << 4);
      ndigits++;
   }
   if ((ndigits & 1) || i >= n || d[i] != '"') return false;
   i = skipWs(d, i + 1, n);
   if (i >= n || d[i] != ',') return false;
   i = skipWs(d, i + 1, n);
   if (n - i < 9 || std::memcmp(d + i, "\"length\":", 9) != 0) return false;
   i += 9;
   const QSSIZE start = i;
   QSUINT64 nbits = 0;
   while (i < n && i - start < 18 && (QSOCTET)(d[i] - '0') <= 9) {
      nbits = nbits * 10 + (QSUINT64)(d[i] - '0');
      i++;
   }
   if (i == start || (i < n && (QSOCTET)(d[i] - '0') <= 9)) return false;
   i = skipWs(d, i, n);
   if (i >= n || d[i] != '}') return false;
   QSSIZE nocts = ndigits / 2;
   if ((QSUINT64)nocts != (nbits + 7) / 8 || !unusedBitsClear((QSSIZE)nbits, data, nocts)) return false;
   ctxt->buffer.byteIndex = i + 1;
   *pnbits = nbits;
   return true;
}

/* The object {"value":"<hex>","length":<n>}. With data null the bytes are
 * allocated on the heap (*pdyn). */
int decValueAndLength(QSCTXT* ctxt, QSUINT64* pnbits, QSOCTET* data, QSSIZE bufsize,
                      QSOCTET** pdyn)
{
   if (data != nullptr && bitStrObjectFast(ctxt, data, bufsize, pnbits)) return 0;
   QSOCTET* dyn = nullptr;
   QSSIZE nocts = 0;
   QSUINT64 nbits = 0;
   bool haveValue = false, haveLength = false;
   int stat = rtJsonDecMatchChar(ctxt, '{');
   if (stat != 0) return JSON_LOG(ctxt, stat);

   if (peekNonWs(ctxt) != '}') {
      for (;;) {
         const QSOCTET* key = nullptr;
         QSSIZE keyLen = 0;
         QSOCTET* heapKey = nullptr;
         stat = readKey(ctxt, &key, &keyLen, &heapKey);
         if (stat != 0) break;
         bool isValue = keyEquals(key, keyLen, "value", 5);
         bool isLength = !isValue && keyEquals(key, keyLen, "length", 6);
         if ((!isValue && !isLength) || (isValue && haveValue) || (isLength && haveLength)) {
            rtxErrAddStrnParm(ctxt, (const char*)key, keyLen);
            if (heapKey != nullptr) rtxMemHeapFreePtr(ctxt, heapKey);
            stat = JSON_LOG(ctxt, RTERR_UNEXPECTED_ELEMENT);
            break;
         }
         if (heapKey != nullptr) rtxMemHeapFreePtr(ctxt, heapKey);
         stat = rtJsonDecMatchChar(ctxt, ':');
         if (stat != 0) break;
         if (isValue) {
            if (data != nullptr) stat = rtJsonDecHexStr64(ctxt, data, &nocts, bufsize);
            else stat = readDynHex(ctxt, &dyn, &nocts);
            haveValue = true;
         }
         else {
            stat = rtxTxtReadUInt64(ctxt, &nbits);
            haveLength = true;
         }
         if (stat != 0) break;
         if (peekNonWs(ctxt) != ',') break;
         ctxt->buffer.byteIndex++;
      }
   }
   if (stat == 0) stat = rtJsonDecMatchChar(ctxt, '}');
   if (stat == 0 && (!haveValue || !haveLength)) {
      rtxErrAddStrParm(ctxt, haveValue ? "length" : "value");
      stat = JSON_LOG(ctxt, RTERR_MISSING_REQUIRED_ELEMENT);
   }
   if (stat == 0) {
      const QSOCTET* bits = (data != nullptr) ? data : dyn;
      if ((QSUINT64)nocts != (nbits + 7) / 8 || !unusedBitsClear((QSSIZE)nbits, bits, nocts)) {
         stat = JSON_LOG(ctxt, RTERR_INVALID_VALUE_SPEC);
      }
   }
   if (stat != 0) {
      if (dyn != nullptr) rtxMemHeapFreePtr(ctxt, dyn);
      *pnbits = 0;
      return JSON_LOG(ctxt, stat);
   }
   *pnbits = nbits;
   if (pdyn != nullptr) *pdyn = dyn;
   return 0;
}

} // namespace

int rtJsonDecFixedBitStrValue(QSCTXT* ctxt, QSSIZE nbits, QSOCTET* data, QSSIZE bufsize)
{
   {
      /* the common case, right at the cursor: '"', exactly the digits of the bit count, '"',
       * unused bits clear; anything else is read by the general code below */
      QSRTBuffer& b = ctxt->buffer;
      QSSIZE nocts = (nbits + 7) / 8;
      if (nocts <= bufsize && nocts < ((QSSIZE)1 << 40) && b.byteIndex < b.size &&
          b.size - b.byteIndex >= 2 * nocts + 2 && b.data[b.byteIndex] == '"' &&
          b.data[b.byteIndex + 2 * nocts + 1] == '"') {
         const QSOCTET* p = b.data + b.byteIndex + 1;
         QSSIZE i = 0;
         for (; i < nocts; i++) {
            int hi = kHex.v[p[2 * i]], lo = kHex.v[p[2 * i + 1]];
            if ((hi | lo) < 0) break;
            data[i] = (QSOCTET)((hi << 4) | lo);
         }
         if (i == nocts && unusedBitsClear(nbits, data, nocts)) {
            b.byteIndex += 2 * nocts + 2;
            return 0;
         }
      }
   }

   QSSIZE nocts = 0;
   int stat = rtJsonDecHexStr64(ctxt, data, &nocts, bufsize);
   if (stat != 0) return JSON_LOG(ctxt, stat);
   if (nocts * 8 < nbits || nocts * 8 - nbits > 7) {
      rtxErrAddSizeParm(ctxt, nbits);
      return JSON_LOG(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);
   }
   if (!unusedBitsClear(nbits, data, nocts)) return JSON_LOG(ctxt, RTERR_INVALID_VALUE_SPEC);
   return 0;
}

int rtJsonDecBitStrValue64(QSCTXT* ctxt, QSSIZE* pnbits, QSOCTET* data, QSSIZE bufsize)
{
   QSUINT64 nbits = 0;
   if (data == nullptr && bufsize != 0) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   static QSOCTET none[1];
   int stat = decValueAndLength(ctxt, &nbits, (data != nullptr) ? data : none, bufsize, nullptr);
   *pnbits = (QSSIZE)nbits;
   return (stat != 0) ? JSON_LOG(ctxt, stat) : 0;
}

int rtJsonDecBitStrValue(QSCTXT* ctxt, QSUINT32* pnbits, QSOCTET* data, QSSIZE bufsize)
{
   QSUINT64 nbits = 0;
   if (data == nullptr && bufsize != 0) return JSON_LOG(ctxt, RTERR_INVALID_PARAMETER);
   static QSOCTET none[1];
   int stat = decValueAndLength(ctxt, &nbits, (data != nullptr) ? data : none, bufsize, nullptr);
   if (stat != 0) {
      *pnbits = 0;
      return JSON_LOG(ctxt, stat);
   }
   if (nbits > 0xFFFFFFFFull) {
      *pnbits = 0;
      return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   *pnbits = (QSUINT32)nbits;
   return 0;
}

int rtJsonDecDynBitStr(QSCTXT* ctxt, ASN1TDynBitStr* pvalue)
{
   QSUINT64 nbits = 0;
   QSOCTET* dyn = nullptr;
   int stat = decValueAndLength(ctxt, &nbits, nullptr, 0, &dyn);
   if (stat != 0) {
      pvalue->numbits = 0;
      pvalue->data = nullptr;
      return JSON_LOG(ctxt, stat);
   }
   if (nbits > 0xFFFFFFFFull) {
      if (dyn != nullptr) rtxMemHeapFreePtr(ctxt, dyn);
      pvalue->numbits = 0;
      pvalue->data = nullptr;
      return JSON_LOG(ctxt, RTERR_VALUE_WILL_NOT_FIT);
   }
   pvalue->numbits = (QSUINT32)nbits;
   pvalue->data = dyn;
   return 0;
}
