// The body of every fuzz target: one exported conversion on hostile input, and a fixed-point
// check whenever it succeeds.
//
// The first input byte picks the message (modulo 7), the rest is the input of the conversion.
//   PER in:  when to_<text> succeeds, from_<text> of its output must succeed and give bytes that
//            convert to the identical text again.
//   text in: when from_<text> succeeds, its bytes must convert to text and back to the
//            identical bytes.
// A violation prints both sides and aborts, so libFuzzer keeps the input as a crash.
#ifndef ETSI_FUZZ_CONVERSIONS_H
#define ETSI_FUZZ_CONVERSIONS_H

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "rtpersrc/asn1per.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "src/etsi_v2x.h"
#include "apps/cli_text.h"
#include "tests/support/conversions.h"

namespace etsifuzz {

enum Form { JSON, XML };

// Every call must leave exactly one of out and err set.
inline void checkShape(const Result& r, const char* what)
{
   bool ok = r.status == 0 ? r.out != nullptr && r.err == nullptr
                           : r.status < 0 && r.out == nullptr && r.err != nullptr && strncmp(r.err, "ERROR: Status ", 14) == 0;
   if (!ok) {
      fprintf(stderr, "%s: status %d with out=%p err=%p (%s)\n", what, r.status, (void*)r.out, (void*)r.err,
              r.err != nullptr ? r.err : "");
      abort();
   }
}

inline void toText(const Message& m, Form form, const char* data, size_t len, Result& r)
{
   r.status = (form == JSON ? m.toJson : m.toXml)(data, len, &r.out, &r.err, false);
   checkShape(r, form == JSON ? "to_json" : "to_xml");
   if (r.status == 0) r.outLen = strlen(r.out);
}

inline void fromText(const Message& m, Form form, const char* text, Result& r)
{
   r.status = (form == JSON ? m.fromJson : m.fromXml)(text, &r.out, &r.outLen, &r.err, false);
   checkShape(r, form == JSON ? "from_json" : "from_xml");
}

[[noreturn]] inline void violation(const Message& m, const char* what, const std::string& a, const std::string& b)
{
   fprintf(stderr, "fixed point violated (%s): %s\n--- first\n%s\n--- second\n%s\n", m.name, what, a.c_str(), b.c_str());
   abort();
}

// The JSON forms that are not fixed points, by design of the JSON form:
// - A regional extension whose region has no known type holds its value as bytes. Bytes that are
//   JSON text are written wrapped as {"value": "<text>"}, and read back the wrapper itself becomes
//   the held text; empty bytes are written as nothing at all after the key.
// - An unknown member of an extensible type is kept as its raw text; when that text is not
//   printable ASCII (or the member came from PER as raw bytes), it is written as "_ext" or
//   "_ext_<n>" with the bytes in hex, and read back that pair is a new unknown member.
// Messages whose JSON holds one of them are exempt from the JSON fixed point; all others are checked.
inline const char* skipJsonSpace(const char* q, bool colon)
{
   while (*q == ' ' || *q == '\n' || *q == '\t' || *q == '\r' || (colon && *q == ':')) q++;
   return q;
}

inline bool holdsUnknownRegionJson(const char* text)
{
   static const char key[] = "\"regExtValue\"";
   for (const char* p = strstr(text, key); p != nullptr; p = strstr(p + 1, key)) {
      const char* q = skipJsonSpace(p + sizeof(key) - 1, true);
      if (*q++ != '{') return true;
      q = skipJsonSpace(q, false);
      if (strncmp(q, "\"value\"", 7) == 0 && *skipJsonSpace(q + 7, true) == '"') return true;
   }
   return false;
}

inline bool holdsUnknownMemberAsHex(const char* text)
{
   return strstr(text, "\"_ext\"") != nullptr || strstr(text, "\"_ext_") != nullptr;
}

// An unknown element captured from XML is kept as its text; when that text is not valid UTF-8 the
// writer gives it back as a "binext" element with the bytes in hex, which reads back as a new
// unknown element.
inline bool holdsOpaqueXml(const char* text) { return strstr(text, "<binext>") != nullptr; }

inline bool exemptJson(const char* text)
{
   return holdsUnknownRegionJson(text) || holdsUnknownMemberAsHex(text);
}

// The raw open types of a PER message (unknown extension additions and unknown CHOICE
// alternatives), read from the canonical print of its decoded value.
inline std::vector<std::string> rawOpenTypes(const Message& m, const uint8_t* data, size_t size)
{
   std::vector<std::string> found;
   const EtsiTestType* type = nullptr;
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (etsiTestTypes[i].message && strcmp(etsiTestTypes[i].name, m.name) == 0) type = &etsiTestTypes[i];
   QSCTXT c;
   if (type == nullptr || rtxInitContext(&c) != 0) return found;
   std::string print;
   void* v = type->make(&c);
   if (pu_setBuffer(&c, (QSOCTET*)data, size, 0) == 0 && type->decode(&c, v) == 0) type->print(print, v);
   rtxFreeContext(&c);
   // "...=['hex'H,-,'hex'H]" lists unknown additions, "alt<n>:'hex'H" an unknown alternative.
   auto hexAt = [&](size_t at) {
      auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
      std::string bytes;
      size_t i = at + 1;
      for (; i + 1 < print.size() && isxdigit((unsigned char)print[i]) && isxdigit((unsigned char)print[i + 1]); i += 2)
         bytes += (char)(digit(print[i]) * 16 + digit(print[i + 1]));
      if (i < print.size() && print[i] == '\'') found.push_back(bytes);
   };
   for (size_t at = print.find("...=["); at != std::string::npos; at = print.find("...=[", at + 1))
      for (size_t i = at + 5; i < print.size() && print[i] != ']'; i++)
         if (print[i] == '\'') {
            hexAt(i);
            i = print.find("'H", i + 1);
            if (i == std::string::npos) break;
            i++;
         }
   for (size_t at = print.find("alt"); at != std::string::npos; at = print.find("alt", at + 1)) {
      size_t i = at + 3;
      while (i < print.size() && isdigit((unsigned char)print[i])) i++;
      if (i > at + 3 && i + 1 < print.size() && print[i] == ':' && print[i + 1] == '\'') hexAt(i + 1);
   }
   return found;
}

// Bytes the JSON writer copies raw as a member: text ending in NUL, printable ASCII before it.
inline bool jsonCopiesRaw(const std::string& b)
{
   if (b.empty() || b.back() != 0) return false;
   for (size_t i = 0; i + 1 < b.size(); i++)
      if ((unsigned char)b[i] < 0x20 || (unsigned char)b[i] > 0x7F) return false;
   return true;
}

// Bytes the XML writer copies verbatim: "<...>", at least 4 bytes, valid UTF-8.
inline bool xmlCopiesRaw(const std::string& b)
{
   if (b.size() < 4 || b.front() != '<' || b.back() != '>') return false;
   for (size_t i = 0; i < b.size();) {
      unsigned char c = (unsigned char)b[i];
      size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
      if (n == 0 || i + n > b.size()) return false;
      for (size_t k = 1; k < n; k++)
         if (((unsigned char)b[i + k] >> 6) != 2) return false;
      i += n;
   }
   return true;
}

// An unknown extension or alternative read from PER whose bytes happen to look like text is
// copied into the text form unchecked, by design of the writers; what it makes of the document
// is up to those bytes, so such messages are exempt from the PER fixed point.
inline bool copiesRawText(Form form, const Message& m, const uint8_t* data, size_t size)
{
   for (const std::string& b : rawOpenTypes(m, data, size))
      if (form == JSON ? jsonCopiesRaw(b) : xmlCopiesRaw(b)) return true;
   return false;
}

// An unknown member is kept as a quote, its key as read (escapes resolved), a quote, a colon and
// its value. A key that held an escaped quote or backslash therefore makes a fragment that, written
// back verbatim, is no longer JSON or names another key (an escaped backslash followed by
// another one reads back as one backslash).
inline bool keepsBrokenKey(const Message& m, const Result& bytes)
{
   for (const std::string& b : rawOpenTypes(m, (const uint8_t*)bytes.out, bytes.outLen)) {
      if (!jsonCopiesRaw(b)) continue;
      size_t end = b.find("\":", 1);
      if (end != std::string::npos && b.find_first_of("\"\\", 1) < end) return true;
   }
   return false;
}

inline void perIn(Form form, const uint8_t* data, size_t size)
{
   if (size == 0) return;
   const Message& m = kMessages[data[0] % kMessageCount];
   Result text;
   toText(m, form, (const char*)data + 1, size - 1, text);
   if (text.status != 0) return;
   if (form == JSON && holdsUnknownRegionJson(text.out)) return;
   Result bytes;
   fromText(m, form, text.out, bytes);
   Result again;
   if (bytes.status == 0) toText(m, form, bytes.out, bytes.outLen, again);
   bool same = bytes.status == 0 && again.status == 0 && strcmp(text.out, again.out) == 0;
   if (same || copiesRawText(form, m, data + 1, size - 1)) return;
   if (bytes.status != 0) violation(m, "the text written does not read back", text.out, bytes.err);
   if (again.status != 0) violation(m, "the bytes of the text read back do not convert", text.out, again.err);
   violation(m, "the text differs after a round trip", text.out, again.out);
}

inline void textIn(Form form, const uint8_t* data, size_t size)
{
   if (size == 0) return;
   const Message& m = kMessages[data[0] % kMessageCount];
   std::string input((const char*)data + 1, size - 1);  // NUL-terminated copy
   Result bytes;
   fromText(m, form, input.c_str(), bytes);
   if (bytes.status != 0) return;
   Result text;
   toText(m, form, bytes.out, bytes.outLen, text);
   if (text.status != 0) violation(m, "the bytes written do not convert to text", cli::toHex(bytes.out, bytes.outLen), text.err);
   if (form == JSON ? exemptJson(text.out) : holdsOpaqueXml(text.out)) return;
   Result again;
   fromText(m, form, text.out, again);
   bool same = again.status == 0 && again.outLen == bytes.outLen && memcmp(again.out, bytes.out, bytes.outLen) == 0;
   if (same || (form == JSON && keepsBrokenKey(m, bytes))) return;
   if (again.status != 0) violation(m, "the text of the bytes does not read back", text.out, again.err);
   violation(m, "the bytes differ after a round trip", cli::toHex(bytes.out, bytes.outLen),
                cli::toHex(again.out, again.outLen));
}

}  // namespace etsifuzz

#endif
