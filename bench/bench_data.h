// Input messages of the benchmarks, read at run time: the UPER files of the shared bench folder
// (CAM, MAPEM, SPATEM) and the repository's examples/<MSG>.hex for the other messages.
#ifndef ETSI_BENCH_DATA_H
#define ETSI_BENCH_DATA_H

#include <ctype.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace etsibench {

inline std::string envOr(const char* name, const char* fallback)
{
   const char* v = getenv(name);
   return (v != nullptr && *v != 0) ? v : fallback;
}

inline std::string sharedDir() { return envOr("ETSI_SHARED_DIR", ETSI_SHARED_DIR); }
inline std::string sourceDir() { return envOr("ETSI_SOURCE_DIR", ETSI_SOURCE_DIR); }

inline bool readFile(const std::string& path, std::string* out)
{
   std::ifstream in(path, std::ios::binary);
   if (!in) return false;
   out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
   return true;
}

inline bool hexToBytes(const std::string& text, std::string* bytes)
{
   bytes->clear();
   int high = -1;
   for (char ch : text) {
      if (isspace((unsigned char)ch)) continue;
      if (!isxdigit((unsigned char)ch)) return false;
      int v = isdigit((unsigned char)ch) ? ch - '0' : (tolower((unsigned char)ch) - 'a' + 10);
      if (high < 0) {
         high = v;
      } else {
         bytes->push_back((char)((high << 4) | v));
         high = -1;
      }
   }
   return high < 0 && !bytes->empty();
}

struct Input {
   std::string source;  // where the bytes came from, for error messages
   std::string uper;    // empty when the file could not be read
};

// The UPER message used for `msg` (CAM, DENM, SPATEM, MAPEM, IVIM, SREM, SSEM); loaded once.
inline const Input& uperInput(const std::string& msg)
{
   static std::map<std::string, Input> cache;
   auto it = cache.find(msg);
   if (it != cache.end()) return it->second;
   Input in;
   if (msg == "CAM" || msg == "MAPEM" || msg == "SPATEM") {
      in.source = sharedDir() + "/bench/" + msg + ".uper";
      if (!readFile(in.source, &in.uper)) in.uper.clear();
   } else {
      in.source = sourceDir() + "/examples/" + msg + ".hex";
      std::string text;
      if (!readFile(in.source, &text) || !hexToBytes(text, &in.uper)) in.uper.clear();
   }
   return cache.emplace(msg, in).first->second;
}

}  // namespace etsibench

#endif
