// The bundled example messages (examples/<M>.hex, .json, .xml), read where they are. The folder is
// ETSI_SOURCE_DIR of the environment, else of the build.
#ifndef ETSI_TEST_EXAMPLES_H
#define ETSI_TEST_EXAMPLES_H

#include <ctype.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <string>

inline std::string examplesDir()
{
   const char* env = getenv("ETSI_SOURCE_DIR");
   return std::string(env != nullptr ? env : ETSI_SOURCE_DIR) + "/examples/";
}

// The whole file examples/<message><ext>; empty when it cannot be read.
inline std::string exampleText(const std::string& message, const char* ext)
{
   std::ifstream in(examplesDir() + message + ext, std::ios::binary);
   return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The UPER bytes of examples/<message>.hex (characters other than hex digits are left out).
inline std::string examplePer(const std::string& message)
{
   std::string hex, bytes;
   for (char c : exampleText(message, ".hex"))
      if (isxdigit((unsigned char)c)) hex += c;
   for (size_t i = 0; i + 1 < hex.size(); i += 2) bytes += (char)std::stoi(hex.substr(i, 2), nullptr, 16);
   return bytes;
}

#endif
