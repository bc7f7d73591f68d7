// The 14 exported XML conversion functions, on the same messages as the JSON ones:
//   xml/etsi_<MSG>_to_xml    UPER -> XML; bytes processed are the UPER bytes
//   xml/etsi_<MSG>_from_xml  XML -> UPER, on the library's own XML of the same message;
//                            bytes processed are the XML characters
// Each call includes the result copy and its release with etsi_delete_array.

#include "bench/bench_text.h"

namespace {

#define ETSI_BENCH_XML(M) etsibench::registerTextPair("xml", #M, etsi_##M##_to_xml, etsi_##M##_from_xml)

[[maybe_unused]] const bool registered = [] {
   ETSI_BENCH_XML(CAM);
   ETSI_BENCH_XML(DENM);
   ETSI_BENCH_XML(SPATEM);
   ETSI_BENCH_XML(MAPEM);
   ETSI_BENCH_XML(IVIM);
   ETSI_BENCH_XML(SREM);
   ETSI_BENCH_XML(SSEM);
   return true;
}();

}  // namespace
