// etsi-convert: converts one C-ITS message between UPER (binary or hex text) and JSON or XML, or
// a batch of hex messages, one per line, to JSON or XML, one result per line; or reads the C-ITS
// messages of pcap/pcapng captures into one JSON line per message.

#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "apps/capture/capture.h"
#include "apps/cli_text.h"
#include "src/etsiConversions.h"
#include "src/etsi_v2x.h"

namespace {

using cli::firstLine;
using cli::messageLine;
using cli::oneLine;
using cli::toHex;
using cli::xmlOneLine;

typedef etsi::ToText ToText;
typedef etsi::FromText FromText;
typedef etsi::Conversions Message;

enum class Form { Json, Xml };

const char* kUsage =
   "usage: etsi-convert MESSAGE DIRECTION [options] [FILE]\n"
   "       etsi-convert capture [--xml | --hex] [--quiet] FILE...\n"
   "\n"
   "Converts one C-ITS message between unaligned PER (UPER) and JSON or XML.\n"
   "  MESSAGE    CAM, DENM, SPATEM, MAPEM, IVIM, SREM or SSEM\n"
   "  DIRECTION  to-json    UPER in, JSON out\n"
   "             from-json  JSON in, UPER out\n"
   "             to-xml     UPER in, XML out\n"
   "             from-xml   XML in, UPER out\n"
   "  FILE       input file; standard input when absent or '-'\n"
   "options:\n"
   "  --hex      UPER is hex text (input of to-json/to-xml, output of from-json/from-xml);\n"
   "             without it, to-json and to-xml read raw bytes unless the input is all hex\n"
   "             digits, and from-json and from-xml write raw bytes\n"
   "  --batch    to-json and to-xml only: one hex message per input line, one document per\n"
   "             output line; a failing line gives 'ERROR: Status N: message' and the\n"
   "             batch goes on (exit status 1 if any line failed). The line breaks and\n"
   "             indentation between elements are left out; a line feed or carriage return\n"
   "             inside XML character data is written as &#xA; or &#xD;, so every line is\n"
   "             a complete document that reads back as the same message\n"
   "  --trace    print the PER bit trace and dump on standard output\n"
   "  -h, --help this text\n"
   "Exit status: 0 on success, 1 when a conversion failed, 2 on bad arguments or input.\n"
   "\n"
   "capture: reads pcap or pcapng files (Ethernet, IEEE 802.11 with or without radiotap, Linux\n"
   "cooked capture; GeoNetworking, plain or in a signed envelope; BTP) and writes one JSON line\n"
   "per C-ITS message on standard output: file, frame, time, linktype, message, port, secured,\n"
   "station, then the message as JSON (\"json\"), as XML text (\"xml\", --xml) or as UPER hex\n"
   "(\"uper\", --hex). A message that fails to convert gives \"status\" and \"error\" instead; a\n"
   "GeoNetworking packet that cannot be read gives \"error\"; a file that cannot be read gives\n"
   "{\"file\", \"error\"}. Other BTP ports are counted and skipped. The summary and, for inputs\n"
   "that take more than a second, a progress line (off with --quiet) go to standard error.\n"
   "Exit status: 0, or 1 when some file could not be read at all; 2 on bad arguments.\n";

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

int runBatch(const Message& m, Form form, const std::string& input, bool trace)
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
      int stat = (form == Form::Json ? m.toJson : m.toXml)(bytes.data(), bytes.size(), &out, &err, trace);
      if (stat == 0) {
         std::cout << (form == Form::Json ? oneLine(out) : xmlOneLine(out)) << "\n";
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

int runCapture(int argc, char** argv)
{
   capture::Options options;
   std::vector<std::string> files;
   bool xml = false, hex = false;
   for (int i = 2; i < argc; i++) {
      std::string a = argv[i];
      if (a == "-h" || a == "--help") {
         std::cout << kUsage;
         return 0;
      }
      if (a == "--xml") xml = true;
      else if (a == "--hex") hex = true;
      else if (a == "--quiet") options.quiet = true;
      else if (a.size() > 1 && a[0] == '-') return usageError("unknown option " + a);
      else files.push_back(a);
   }
   if (xml && hex) return usageError("capture: --xml and --hex exclude each other");
   if (files.empty()) return usageError("capture: FILE is required");
   options.output = xml ? capture::Output::Xml : hex ? capture::Output::Hex : capture::Output::Json;
   return capture::run(files, options);
}

}  // namespace

int main(int argc, char** argv)
{
   if (argc > 1 && strcmp(argv[1], "capture") == 0) return runCapture(argc, argv);
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

   const Message* m = etsi::conversionsOf(args[0].c_str());
   if (m == nullptr) return usageError("unknown message '" + args[0] + "'");
   const std::string& dir = args[1];
   bool toText = dir == "to-json" || dir == "to-xml";
   if (!toText && dir != "from-json" && dir != "from-xml")
      return usageError("unknown direction '" + dir + "'");
   Form form = (dir == "to-xml" || dir == "from-xml") ? Form::Xml : Form::Json;
   if (batch && !toText) return usageError("--batch works with to-json and to-xml only");

   std::string file = args.size() == 3 ? args[2] : "-";
   std::string input;
   if (!readAll(file, &input)) {
      std::cerr << "etsi-convert: cannot read " << file << "\n";
      return 2;
   }
   if (batch) return runBatch(*m, form, input, trace);

   char* out = nullptr;
   char* err = nullptr;
   int stat;
   if (toText) {
      std::string bytes;
      bool isHex = parseHex(input, &bytes);
      if (hex && !isHex) {
         std::cerr << "etsi-convert: input is not hex text\n";
         return 2;
      }
      if (!isHex) bytes = input;
      stat = (form == Form::Json ? m->toJson : m->toXml)(bytes.data(), bytes.size(), &out, &err, trace);
      if (stat == 0) std::cout << out << "\n";
   }
   else {
      size_t n = 0;
      stat = (form == Form::Json ? m->fromJson : m->fromXml)(input.c_str(), &out, &n, &err, trace);
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
