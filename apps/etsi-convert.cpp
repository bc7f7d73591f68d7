// etsi-convert: converts one C-ITS message between UPER (binary or hex text) and JSON, or a
// batch of hex messages, one per line, to JSON, one result per line.

#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "src/etsi_v2x.h"

namespace {

typedef int (*ToJson)(const char*, size_t, char**, char**, bool);
typedef int (*FromJson)(const char*, char**, size_t*, char**, bool);

struct Message {
   const char* name;
   ToJson toJson;
   FromJson fromJson;
};

const Message kMessages[] = {
   { "CAM", etsi_CAM_to_json, etsi_CAM_from_json },
   { "DENM", etsi_DENM_to_json, etsi_DENM_from_json },
   { "SPATEM", etsi_SPATEM_to_json, etsi_SPATEM_from_json },
   { "MAPEM", etsi_MAPEM_to_json, etsi_MAPEM_from_json },
   { "IVIM", etsi_IVIM_to_json, etsi_IVIM_from_json },
   { "SREM", etsi_SREM_to_json, etsi_SREM_from_json },
   { "SSEM", etsi_SSEM_to_json, etsi_SSEM_from_json },
};

const char* kUsage =
   "usage: etsi-convert MESSAGE DIRECTION [options] [FILE]\n"
   "\n"
   "Converts one C-ITS message between unaligned PER (UPER) and JSON.\n"
   "  MESSAGE    CAM, DENM, SPATEM, MAPEM, IVIM, SREM or SSEM\n"
   "  DIRECTION  to-json    UPER in, JSON out\n"
   "             from-json  JSON in, UPER out\n"
   "  FILE       input file; standard input when absent or '-'\n"
   "options:\n"
   "  --hex      UPER is hex text (input of to-json, output of from-json); without it,\n"
   "             to-json reads raw bytes unless the input is all hex digits, and\n"
   "             from-json writes raw bytes\n"
   "  --batch    to-json only: one hex message per input line, one JSON document per\n"
   "             output line; a failing line gives 'ERROR: Status N: message' and the\n"
   "             batch goes on (exit status 1 if any line failed)\n"
   "  --trace    print the PER bit trace and dump on standard output\n"
   "  -h, --help this text\n"
   "Exit status: 0 on success, 1 when a conversion failed, 2 on bad arguments or input.\n";

int usageError(const std::string& why)
{
   std::cerr << "etsi-convert: " << why << "\n\n" << kUsage;
   return 2;
}

bool readAll(const std::string& path, std::string* out)
{
   if (path.empty() || path == "-") {
      out->assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
      return true;
   }
   std::ifstream in(path, std::ios::binary);
   if (!in) return false;
   out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
   return true;
}

// Hex text to bytes; white space is ignored. False on any other character or an odd count.
bool parseHex(const std::string& text, std::string* bytes)
{
   bytes->clear();
   int nibble = -1;
   for (char ch : text) {
      if (isspace((unsigned char)ch)) continue;
      if (!isxdigit((unsigned char)ch)) return false;
      int v = isdigit((unsigned char)ch) ? ch - '0' : (tolower((unsigned char)ch) - 'a' + 10);
      if (nibble < 0) {
         nibble = v;
      }
      else {
         bytes->push_back((char)(nibble << 4 | v));
         nibble = -1;
      }
   }
   return nibble < 0;
}

std::string toHex(const char* p, size_t n)
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
std::string oneLine(const char* json)
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

std::string firstLine(const char* text)
{
   const char* end = strchr(text, '\n');
   return end ? std::string(text, end) : std::string(text);
}

// The message line of an error report: its second line, when there is one.
std::string messageLine(const char* text)
{
   const char* nl = strchr(text, '\n');
   if (nl == nullptr) return std::string();
   return firstLine(nl + 1);
}

int runBatch(const Message& m, const std::string& input, bool trace)
{
   std::istringstream lines(input);
   std::string line, bytes;
   int failures = 0;
   while (std::getline(lines, line)) {
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      if (!parseHex(line, &bytes)) {
         std::cout << "ERROR: invalid hex text" << std::endl;
         failures++;
         continue;
      }
      char* out = nullptr;
      char* err = nullptr;
      int stat = m.toJson(bytes.data(), bytes.size(), &out, &err, trace);
      if (stat == 0) {
         std::cout << oneLine(out) << "\n";
      }
      else {
         std::cout << firstLine(err) << ": " << messageLine(err) << "\n";
         failures++;
      }
      etsi_delete_array(out);
      etsi_delete_array(err);
   }
   std::cout.flush();
   return failures ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv)
{
   std::vector<std::string> args;
   bool hex = false, batch = false, trace = false;
   for (int i = 1; i < argc; i++) {
      std::string a = argv[i];
      if (a == "-h" || a == "--help") {
         std::cout << kUsage;
         return 0;
      }
      if (a == "--hex") hex = true;
      else if (a == "--batch") batch = true;
      else if (a == "--trace") trace = true;
      else if (a.size() > 1 && a[0] == '-' && a != "-") return usageError("unknown option " + a);
      else args.push_back(a);
   }
   if (args.size() < 2) return usageError("MESSAGE and DIRECTION are required");
   if (args.size() > 3) return usageError("too many arguments");

   const Message* m = nullptr;
   for (const Message& candidate : kMessages)
      if (strcasecmp(candidate.name, args[0].c_str()) == 0) m = &candidate;
   if (m == nullptr) return usageError("unknown message '" + args[0] + "'");
   bool toJson = args[1] == "to-json";
   if (!toJson && args[1] != "from-json") return usageError("unknown direction '" + args[1] + "'");
   if (batch && !toJson) return usageError("--batch works with to-json only");

   std::string file = args.size() == 3 ? args[2] : "-";
   std::string input;
   if (!readAll(file, &input)) {
      std::cerr << "etsi-convert: cannot read " << file << "\n";
      return 2;
   }
   if (batch) return runBatch(*m, input, trace);

   char* out = nullptr;
   char* err = nullptr;
   int stat;
   if (toJson) {
      std::string bytes;
      bool isHex = parseHex(input, &bytes);
      if (hex && !isHex) {
         std::cerr << "etsi-convert: input is not hex text\n";
         return 2;
      }
      if (!isHex) bytes = input;
      stat = m->toJson(bytes.data(), bytes.size(), &out, &err, trace);
      if (stat == 0) std::cout << out << "\n";
   }
   else {
      size_t n = 0;
      stat = m->fromJson(input.c_str(), &out, &n, &err, trace);
      if (stat == 0) {
         if (hex) std::cout << toHex(out, n) << "\n";
         else std::cout.write(out, (std::streamsize)n);
      }
   }
   if (stat != 0) std::cerr << err;
   etsi_delete_array(out);
   etsi_delete_array(err);
   return stat == 0 ? 0 : 1;
}
