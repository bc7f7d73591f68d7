// Builds the starting corpora and dictionaries of the fuzz targets:
//   fuzz_seeds OUTDIR [RANDOM_PER_MESSAGE]
// writes OUTDIR/<target>/ for the four targets (uper_to_json, json_to_uper, uper_to_xml,
// xml_to_uper) and OUTDIR/json.dict, OUTDIR/xml.dict. Every seed is one byte naming the message
// (its index in the fuzz targets' table) followed by the input. The seeds come from the bundled
// examples, from the real messages of the shared corpus (read where they are, never copied into
// the repository) and from random values of every message; the text seeds are the library's own
// JSON and XML of the same messages. The dictionaries hold the member names, identifiers and
// element tags found in those texts.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "rtpersrc/asn1per.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "tests/fuzz/fuzz_conversions.h"
#include "tests/support/corpus.h"
#include "tests/support/examples.h"

namespace fs = std::filesystem;

namespace {

struct Seeds {
   fs::path root;
   size_t written = 0;
   std::set<std::string> jsonTokens, xmlTokens;

   void put(const char* target, size_t message, const std::string& name, const char* data, size_t len)
   {
      std::ofstream out(root / target / name, std::ios::binary);
      char index = (char)message;
      out.write(&index, 1);
      out.write(data, (std::streamsize)len);
      written++;
   }

   // One message in all four forms: its PER bytes, and its JSON and XML where they exist.
   void add(size_t message, const std::string& name, const std::vector<unsigned char>& bytes)
   {
      const Message& m = kMessages[message];
      const char* data = (const char*)bytes.data();
      put("uper_to_json", message, name, data, bytes.size());
      put("uper_to_xml", message, name, data, bytes.size());
      Result json, xml;
      json.status = m.toJson(data, bytes.size(), &json.out, &json.err, false);
      if (json.status == 0) {
         put("json_to_uper", message, name, json.out, strlen(json.out));
         collectJson(json.out);
      }
      xml.status = m.toXml(data, bytes.size(), &xml.out, &xml.err, false);
      if (xml.status == 0) {
         put("xml_to_uper", message, name, xml.out, strlen(xml.out));
         collectXml(xml.out);
      }
   }

   // Quoted names: member keys and enumeration identifiers.
   void collectJson(const char* text)
   {
      for (const char* p = strchr(text, '"'); p != nullptr; p = strchr(p, '"')) {
         const char* q = p + 1;
         while (isalnum((unsigned char)*q) || *q == '-' || *q == '_') q++;
         // Names start with a lower-case letter; string values of the random messages are left out.
         if (*q == '"' && q > p + 2 && islower((unsigned char)p[1])) jsonTokens.insert(std::string(p, q + 1));
         p = *q == '"' ? q + 1 : q;
      }
   }

   // Start, end and empty tags.
   void collectXml(const char* text)
   {
      for (const char* p = strchr(text, '<'); p != nullptr; p = strchr(p + 1, '<')) {
         const char* q = p + 1;
         bool end = *q == '/';
         if (end) q++;
         const char* name = q;
         while (isalnum((unsigned char)*q) || *q == '-' || *q == '_') q++;
         if (q == name) continue;
         std::string tag(name, q);
         xmlTokens.insert(end ? "</" + tag + ">" : "<" + tag + ">");
         if (!end && *q == '/') xmlTokens.insert("<" + tag + "/>");
      }
   }

   void writeDict(const char* file, const std::set<std::string>& tokens)
   {
      std::ofstream out(root / file);
      for (const std::string& t : tokens) {
         out << '"';
         for (char c : t) {
            if (c == '"' || c == '\\') out << '\\';
            out << c;
         }
         out << "\"\n";
      }
   }
};

size_t messageIndex(const std::string& name)
{
   for (size_t i = 0; i < kMessageCount; i++)
      if (name == kMessages[i].name) return i;
   return kMessageCount;
}

// Random values of one message, from the generator's own random value functions. Half of them
// stay within what the text forms carry, the other half may hold unknown extensions and regions.
void addRandom(Seeds& seeds, size_t message, int count)
{
   const EtsiTestType* type = nullptr;
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (etsiTestTypes[i].message && strcmp(etsiTestTypes[i].name, kMessages[message].name) == 0) type = &etsiTestTypes[i];
   if (type == nullptr) return;
   Asn1Random r(20261122 + message);
   for (int n = 0; n < count; n++) {
      r.textSafe = n % 2 == 0;
      r.rich = n % 4 < 2;
      r.spoiled = false;
      QSCTXT c;
      if (rtxInitContext(&c) != 0) return;
      void* v = type->make(&c);
      type->rand(r, &c, v);
      if (!r.spoiled && pu_setBuffer(&c, nullptr, 0, 0) == 0 && type->encode(&c, v) == 0) {
         std::vector<unsigned char> bytes(c.buffer.data, c.buffer.data + pu_getMsgLen(&c));
         seeds.add(message, std::string("random-") + kMessages[message].name + "-" + std::to_string(n), bytes);
      }
      rtxFreeContext(&c);
   }
}

}  // namespace

int main(int argc, char** argv)
{
   if (argc < 2 || argc > 3) {
      fprintf(stderr, "usage: fuzz_seeds OUTDIR [RANDOM_PER_MESSAGE]\n");
      return 2;
   }
   Seeds seeds;
   seeds.root = argv[1];
   int randomCount = argc == 3 ? atoi(argv[2]) : 60;
   for (const char* target : { "uper_to_json", "json_to_uper", "uper_to_xml", "xml_to_uper" })
      fs::create_directories(seeds.root / target);

   for (size_t i = 0; i < kMessageCount; i++) {
      std::string per = examplePer(kMessages[i].name);
      if (!per.empty()) seeds.add(i, std::string("example-") + kMessages[i].name, std::vector<unsigned char>(per.begin(), per.end()));
   }
   size_t corpusCount = 0;
   for (const CorpusMessage& m : loadCorpus()) {
      size_t i = messageIndex(m.type);
      if (i == kMessageCount || m.bytes.empty()) continue;
      std::string name = "corpus-" + m.file;
      for (char& c : name)
         if (c == '/') c = '-';
      seeds.add(i, name, m.bytes);
      corpusCount++;
   }
   for (size_t i = 0; i < kMessageCount; i++) addRandom(seeds, i, randomCount);
   seeds.writeDict("json.dict", seeds.jsonTokens);
   seeds.writeDict("xml.dict", seeds.xmlTokens);
   printf("fuzz_seeds: %zu seed files (%zu corpus messages), %zu JSON and %zu XML dictionary entries in %s\n",
          seeds.written, corpusCount, seeds.jsonTokens.size(), seeds.xmlTokens.size(), argv[1]);
   return 0;
}
