// The table of the exported conversions under the names the tests use, and the result of one call.
// Shared by the tests, the fuzz targets, the bounds tests and the soak.
#ifndef ETSI_TEST_CONVERSIONS_H
#define ETSI_TEST_CONVERSIONS_H

#include <string>

#include "src/etsiConversions.h"

typedef etsi::ToText ToText;
typedef etsi::FromText FromText;
typedef etsi::Conversions Message;
static const Message* const kMessages = etsi::kConversions;
static const size_t kMessageCount = etsi::kConversionCount;

// The message of that name, or null.
inline const Message* messageByName(const std::string& name) { return etsi::conversionsOf(name.c_str()); }

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
