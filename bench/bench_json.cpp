// The 14 exported JSON conversion functions, one message per type:
//   json/etsi_<MSG>_to_json    UPER -> JSON; bytes processed are the UPER bytes
//   json/etsi_<MSG>_from_json  JSON -> UPER, on the library's own JSON of the same message;
//                              bytes processed are the JSON characters
// Each call includes the result copy and its release with etsi_delete_array.

#include "bench/bench_text.h"

namespace {

#define ETSI_BENCH_JSON(M) etsibench::registerTextPair("json", #M, etsi_##M##_to_json, etsi_##M##_from_json)

[[maybe_unused]] const bool registered = [] {
   ETSI_BENCH_JSON(CAM);
   ETSI_BENCH_JSON(DENM);
   ETSI_BENCH_JSON(SPATEM);
   ETSI_BENCH_JSON(MAPEM);
   ETSI_BENCH_JSON(IVIM);
   ETSI_BENCH_JSON(SREM);
   ETSI_BENCH_JSON(SSEM);
   return true;
}();

}  // namespace
