// Text helpers shared by the command-line tools: hex, and the library's JSON and XML on one line.

#ifndef ETSI_APPS_CLI_TEXT_H
#define ETSI_APPS_CLI_TEXT_H

#include <string.h>

#include <string>

namespace cli {

inline std::string toHex(const char* p, size_t n)
{
   static const char digits[] = "0123456789abcdef";
   std::string s;
   for (size_t i = 0; i < n; i++) {
      s += digits[(unsigned char)p[i] >> 4];
      s += digits[(unsigned char)p[i] & 15];
   }
   return s;
}

// The library's JSON on one line: its line breaks and indentation are layout only (a line break
// inside a string value is always written as an escape).
inline std::string oneLine(const char* json)
{
   std::string s;
   for (const char* p = json; *p; p++) {
      if (*p == '\n') {
         while (p[1] == ' ') p++;
         continue;
      }
      s += *p;
   }
   return s;
}

// The library's XML on one line. Between tags the writer puts only layout (a line feed and the
// indentation). Character data stands only between a start tag and its own end tag and never
// holds a '<'; its line feeds and carriage returns are kept as character references, which any
// XML reader turns back into the same characters.
inline std::string xmlOneLine(const char* xml)
{
   std::string s;
   bool afterStartTag = false;
   const char* p = xml;
   while (*p) {
      if (*p == '<') {
         const char* end = strchr(p, '>');
         if (end == nullptr) {
            s += p;
            break;
         }
         afterStartTag = p[1] != '/' && p[1] != '?' && p[1] != '!' && end[-1] != '/';
         s.append(p, end + 1);
         p = end + 1;
         continue;
      }
      const char* next = strchr(p, '<');
      if (next == nullptr) next = p + strlen(p);
      if (afterStartTag && next[0] == '<' && next[1] == '/') {
         for (; p < next; p++) {
            if (*p == '\n') s += "&#xA;";
            else if (*p == '\r') s += "&#xD;";
            else s += *p;
         }
      }
      p = next;
   }
   return s;
}

inline std::string firstLine(const char* text)
{
   const char* end = strchr(text, '\n');
   return end ? std::string(text, end) : std::string(text);
}

// The message line of an error report: its second line, when there is one.
inline std::string messageLine(const char* text)
{
   const char* nl = strchr(text, '\n');
   if (nl == nullptr) return std::string();
   return firstLine(nl + 1);
}

}  // namespace cli

#endif
