// `etsi-convert capture`: C-ITS messages out of pcap/pcapng files, one JSON line per message.

#ifndef ETSI_CAPTURE_CAPTURE_H
#define ETSI_CAPTURE_CAPTURE_H

#include <string>
#include <vector>

namespace capture {

enum class Output { Json, Xml, Hex };

struct Options {
   Output output = Output::Json;
   bool quiet = false;   // no progress line
};

// Writes the records of every file to standard output and the summary to standard error.
// Returns 0, or 1 when some file could not be read at all.
int run(const std::vector<std::string>& files, const Options& options);

}  // namespace capture

#endif
