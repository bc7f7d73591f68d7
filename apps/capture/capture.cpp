#include "apps/capture/capture.h"

#include <pcap/pcap.h>
#include <stdio.h>
#include <string.h>

#include <chrono>
#include <map>
#include <string>

#include "apps/capture/geonet.h"
#include "apps/cli_text.h"
#include "src/etsiConversions.h"
#include "src/etsi_v2x.h"

namespace capture {

namespace {

// A JSON string: quotes, backslashes and control characters escaped, other bytes as they are.
void appendString(std::string& o, const char* s, size_t n)
{
   static const char digits[] = "0123456789abcdef";
   o += '"';
   for (size_t i = 0; i < n; i++) {
      unsigned char c = (unsigned char)s[i];
      switch (c) {
      case '"': o += "\\\""; break;
      case '\\': o += "\\\\"; break;
      case '\n': o += "\\n"; break;
      case '\r': o += "\\r"; break;
      case '\t': o += "\\t"; break;
      default:
         if (c < 0x20) {
            o += "\\u00";
            o += digits[c >> 4];
            o += digits[c & 15];
         }
         else {
            o += (char)c;
         }
      }
   }
   o += '"';
}

void appendString(std::string& o, const std::string& s) { appendString(o, s.data(), s.size()); }

// The library's JSON on one line, with any control character left raw in a string value (an
// IA5String may hold them) written as a \u escape, so that the line stays valid JSON with the
// same value.
void appendJson(std::string& o, const char* json)
{
   std::string line = cli::oneLine(json);
   static const char digits[] = "0123456789abcdef";
   for (char ch : line) {
      unsigned char c = (unsigned char)ch;
      if (c < 0x20) {
         o += "\\u00";
         o += digits[c >> 4];
         o += digits[c & 15];
      }
      else {
         o += ch;
      }
   }
}

struct Totals {
   long files = 0, unreadableFiles = 0, packets = 0, geoNetworking = 0, messages = 0, failures = 0,
        unreadablePackets = 0, otherPorts = 0;
   std::map<std::string, long> perType;
   std::map<int, long> perPort;
};

class Progress {
public:
   explicit Progress(bool quiet) : quiet_(quiet), start_(Clock::now()), last_(start_) {}

   void tick(const std::string& file, const Totals& t)
   {
      if (quiet_ || (t.packets & 255) != 0) return;
      Clock::time_point now = Clock::now();
      if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(500)) return;
      last_ = now;
      fprintf(stderr, "\r%s: %ld packets, %ld messages ", file.c_str(), t.packets, t.messages);
      shown_ = true;
   }

   void done()
   {
      if (shown_) fputc('\n', stderr);
      shown_ = false;
   }

   double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

private:
   typedef std::chrono::steady_clock Clock;
   bool quiet_;
   bool shown_ = false;
   Clock::time_point start_, last_;
};

void emit(const std::string& line)
{
   fwrite(line.data(), 1, line.size(), stdout);
}

void fileError(const std::string& path, const std::string& why)
{
   std::string o = "{\"file\":";
   appendString(o, path);
   o += ",\"error\":";
   appendString(o, why);
   o += "}\n";
   emit(o);
}

// Reads one capture file; false when it could not be read at all.
bool readFile(const std::string& path, const Options& options, Totals& totals, Progress& progress)
{
   char errbuf[PCAP_ERRBUF_SIZE] = "";
   pcap_t* pcap = pcap_open_offline(path.c_str(), errbuf);
   if (pcap == nullptr) {
      fileError(path, errbuf[0] ? errbuf : "cannot open");
      return false;
   }
   int linkType = pcap_datalink(pcap);
   const char* linkName = pcap_datalink_val_to_name(linkType);
   std::string linkText = linkName ? linkName : std::to_string(linkType);
   if (!linkTypeSupported(linkType)) {
      fileError(path, "unsupported link type " + linkText);
      pcap_close(pcap);
      return false;
   }

   std::string lead;   // "file" and the link type, for every record
   std::string o;
   long frame = 0;
   struct pcap_pkthdr* header;
   const u_char* data;
   int rc;
   while ((rc = pcap_next_ex(pcap, &header, &data)) == 1) {
      frame++;
      totals.packets++;
      progress.tick(path, totals);
      Packet p = readFrame(linkType, data, header->caplen);
      if (p.outcome == Outcome::NotGeoNetworking) continue;
      totals.geoNetworking++;
      if (p.outcome == Outcome::NoMessage) continue;
      if (p.outcome == Outcome::OtherPort) {
         totals.otherPorts++;
         totals.perPort[p.port]++;
         continue;
      }

      o = "{\"file\":";
      appendString(o, path);
      char head[96];
      snprintf(head, sizeof head, ",\"frame\":%ld,\"time\":%lld.%06ld,\"linktype\":", frame,
               (long long)header->ts.tv_sec, (long)header->ts.tv_usec);
      o += head;
      appendString(o, linkText);
      o += ",\"message\":";
      if (p.message) appendString(o, p.message, strlen(p.message));
      else o += "null";
      if (p.port >= 0) o += ",\"port\":" + std::to_string(p.port);
      if (p.securedKnown) o += p.secured ? ",\"secured\":true" : ",\"secured\":false";
      if (p.port >= 0 && p.message) {
         o += ",\"station\":";
         o += p.station >= 0 ? std::to_string(p.station) : "null";
      }

      if (p.outcome == Outcome::Error) {
         totals.unreadablePackets++;
         if (p.message) totals.perType[p.message]++;
         o += ",\"error\":";
         appendString(o, p.error);
         o += "}\n";
         emit(o);
         continue;
      }

      totals.messages++;
      totals.perType[p.message]++;
      if (options.output == Output::Hex) {
         o += ",\"uper\":\"" + cli::toHex((const char*)p.payload, p.payloadLength) + "\"}\n";
         emit(o);
         continue;
      }
      const etsi::Conversions* c = etsi::conversionsOf(p.message);
      char* out = nullptr;
      char* err = nullptr;
      int stat = (options.output == Output::Xml ? c->toXml : c->toJson)((const char*)p.payload, p.payloadLength,
                                                                         &out, &err, false);
      if (stat == 0) {
         if (options.output == Output::Xml) {
            o += ",\"xml\":";
            appendString(o, out, strlen(out));
         }
         else {
            o += ",\"json\":";
            appendJson(o, out);
         }
      }
      else {
         totals.failures++;
         std::string why = err ? cli::messageLine(err) : std::string();
         if (why.empty() && err) why = cli::firstLine(err);
         o += ",\"status\":" + std::to_string(stat) + ",\"error\":";
         appendString(o, why);
      }
      o += "}\n";
      emit(o);
      etsi_delete_array(out);
      etsi_delete_array(err);
   }
   if (rc == PCAP_ERROR) fileError(path, pcap_geterr(pcap));   // e.g. cut off in a packet
   pcap_close(pcap);
   return true;
}

void summary(const Totals& t, double seconds)
{
   std::string types, ports;
   for (const auto& kv : t.perType) types += (types.empty() ? "" : ", ") + kv.first + " " + std::to_string(kv.second);
   for (const auto& kv : t.perPort)
      ports += (ports.empty() ? "" : ", ") + std::to_string(kv.first) + ": " + std::to_string(kv.second);
   fprintf(stderr,
           "capture summary: %ld files (%ld unreadable), %ld packets, %ld GeoNetworking\n"
           "  messages per type: %s\n"
           "  converted: %ld, failed conversions: %ld, unreadable packets: %ld\n"
           "  skipped ports: %ld%s%s%s\n"
           "  time: %.3f s\n",
           t.files, t.unreadableFiles, t.packets, t.geoNetworking, types.empty() ? "none" : types.c_str(),
           t.messages - t.failures, t.failures, t.unreadablePackets, t.otherPorts, ports.empty() ? "" : " (",
           ports.c_str(), ports.empty() ? "" : ")", seconds);
}

}  // namespace

int run(const std::vector<std::string>& files, const Options& options)
{
   static char buffer[1 << 16];
   setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
   Totals totals;
   Progress progress(options.quiet);
   for (const std::string& path : files) {
      totals.files++;
      if (!readFile(path, options, totals, progress)) totals.unreadableFiles++;
   }
   fflush(stdout);
   progress.done();
   summary(totals, progress.seconds());
   return totals.unreadableFiles ? 1 : 0;
}

}  // namespace capture
