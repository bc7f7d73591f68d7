// The 28 exported conversions as one table of the seven messages, for the programs built beside
// the library (command-line tools, tests, benchmarks). Not installed.
#ifndef ETSI_CONVERSIONS_H
#define ETSI_CONVERSIONS_H

#include <strings.h>

#include "src/etsi_v2x.h"

namespace etsi {

typedef int (*ToText)(const char* data, size_t len, char** out, char** err, bool trace);
typedef int (*FromText)(const char* text, char** out, size_t* outLen, char** err, bool trace);

struct Conversions {
   const char* name;
   int messageId;   // messageID of the ITS PDU header
   ToText toJson;
   FromText fromJson;
   ToText toXml;
   FromText fromXml;
};

#define ETSI_CONVERSIONS(M, ID) { #M, ID, etsi_##M##_to_json, etsi_##M##_from_json, etsi_##M##_to_xml, etsi_##M##_from_xml }
static const Conversions kConversions[] = {
   ETSI_CONVERSIONS(CAM, 2),  ETSI_CONVERSIONS(DENM, 1), ETSI_CONVERSIONS(SPATEM, 4), ETSI_CONVERSIONS(MAPEM, 5),
   ETSI_CONVERSIONS(IVIM, 6), ETSI_CONVERSIONS(SREM, 9), ETSI_CONVERSIONS(SSEM, 10),
};
#undef ETSI_CONVERSIONS
static const size_t kConversionCount = sizeof(kConversions) / sizeof(kConversions[0]);

// The conversions of the message of that name (letter case ignored), or null.
inline const Conversions* conversionsOf(const char* name)
{
   for (const Conversions& c : kConversions)
      if (strcasecmp(c.name, name) == 0) return &c;
   return nullptr;
}

// The conversions of the message with that messageID, or null.
inline const Conversions* conversionsOfId(int messageId)
{
   for (const Conversions& c : kConversions)
      if (c.messageId == messageId) return &c;
   return nullptr;
}

}  // namespace etsi

#endif
