// Access to the shared data beside the repository: the real captured messages of the corpus.
#ifndef ETSI_TEST_CORPUS_H
#define ETSI_TEST_CORPUS_H

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

inline std::string sharedDir()
{
   const char* env = getenv("ETSI_SHARED_DIR");
   return env != nullptr ? env : ETSI_SHARED_DIR;
}

inline std::vector<unsigned char> readFile(const std::string& path)
{
   std::ifstream in(path, std::ios::binary);
   return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct CorpusMessage {
   std::string file;           // e.g. "CAM/gn-rs-1.uper"
   std::string type;           // e.g. "CAM"
   int protocolVersion;
   std::string notes;
   std::vector<unsigned char> bytes;
};

// Every message listed in the corpus manifest, with its bytes.
inline std::vector<CorpusMessage> loadCorpus()
{
   std::vector<CorpusMessage> out;
   std::string dir = sharedDir() + "/corpus/";
   std::ifstream manifest(dir + "MANIFEST.tsv");
   std::string line;
   std::getline(manifest, line);  // header
   while (std::getline(manifest, line)) {
      std::vector<std::string> cols;
      std::stringstream ss(line);
      std::string col;
      while (std::getline(ss, col, '\t')) cols.push_back(col);
      if (cols.size() < 3) continue;
      CorpusMessage m;
      m.file = cols[0];
      m.type = cols[1];
      m.protocolVersion = atoi(cols[2].c_str());
      m.notes = cols.size() > 7 ? cols[7] : "";
      m.bytes = readFile(dir + m.file);
      out.push_back(m);
   }
   return out;
}

inline std::string hexOf(const unsigned char* p, size_t n)
{
   static const char hex[] = "0123456789abcdef";
   std::string s;
   for (size_t i = 0; i < n; i++) {
      s += hex[p[i] >> 4];
      s += hex[p[i] & 15];
   }
   return s;
}

// Hex text to bytes (two digits a byte).
inline std::vector<unsigned char> bytesOf(const std::string& hex)
{
   std::vector<unsigned char> bytes;
   for (size_t i = 0; i + 1 < hex.size(); i += 2) bytes.push_back((unsigned char)std::stoi(hex.substr(i, 2), nullptr, 16));
   return bytes;
}

#endif
