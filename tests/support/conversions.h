// The 28 exported conversions as one table of the seven messages, and the result of one call.
// Shared by the tests, the fuzz targets, the bounds tests and the soak.
#ifndef ETSI_TEST_CONVERSIONS_H
#define ETSI_TEST_CONVERSIONS_H

#include <string.h>

#include <string>

#include "src/etsi_v2x.h"

typedef int (*ToText)(const char*, size_t, char**, char**, bool);
typedef int (*FromText)(const char*, char**, size_t*, char**, bool);

struct Message {
   const char* name;
   ToText toJson;
   FromText fromJson;
   ToText toXml;
   FromText fromXml;
};

#define ETSI_TEST_MESSAGE(M) { #M, etsi_##M##_to_json, etsi_##M##_from_json, etsi_##M##_to_xml, etsi_##M##_from_xml }
static const Message kMessages[] = {
   ETSI_TEST_MESSAGE(CAM),  ETSI_TEST_MESSAGE(DENM), ETSI_TEST_MESSAGE(SPATEM), ETSI_TEST_MESSAGE(MAPEM),
   ETSI_TEST_MESSAGE(IVIM), ETSI_TEST_MESSAGE(SREM), ETSI_TEST_MESSAGE(SSEM),
};
#undef ETSI_TEST_MESSAGE
static const size_t kMessageCount = sizeof(kMessages) / sizeof(kMessages[0]);

// The message of that name, or null.
inline const Message* messageByName(const std::string& name)
{
   for (const Message& m : kMessages)
      if (name == m.name) return &m;
   return nullptr;
}

// One call's results, released on destruction.
struct Result {
   int status = 0;
   char* out = nullptr;
   char* err = nullptr;
   size_t outLen = 0;
   Result() = default;
   Result(const Result&) = delete;
   Result& operator=(const Result&) = delete;
   ~Result()
   {
      etsi_delete_array(out);
      etsi_delete_array(err);
   }
   std::string text() const { return out ? std::string(out) : std::string(); }
   std::string bytes() const { return out ? std::string(out, outLen) : std::string(); }
   std::string error() const { return err ? std::string(err) : std::string(); }
};

#endif
