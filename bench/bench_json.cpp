// The 14 exported JSON conversion functions, one message per type:
//   json/etsi_<MSG>_to_json    UPER -> JSON; bytes processed are the UPER bytes
//   json/etsi_<MSG>_from_json  JSON -> UPER, on the library's own JSON of the same message;
//                              bytes processed are the JSON characters
// Each call includes the result copy and its release with etsi_delete_array.

#include <benchmark/benchmark.h>

#include <string.h>

#include <string>

#include "bench/bench_data.h"
#include "src/etsi_v2x.h"

namespace {

using etsibench::Input;
using etsibench::uperInput;

typedef int (*ToJson)(const char*, size_t, char**, char**, bool);
typedef int (*FromJson)(const char*, char**, size_t*, char**, bool);

void toJson(benchmark::State& state, const char* msg, ToJson fn)
{
   const Input& in = uperInput(msg);
   if (in.uper.empty()) {
      state.SkipWithError(("cannot read " + in.source).c_str());
      return;
   }
   for (auto _ : state) {
      char* out = nullptr;
      char* err = nullptr;
      int stat = fn(in.uper.data(), in.uper.size(), &out, &err, false);
      if (stat != 0) {
         std::string why = std::string("conversion failed: ") + (err ? err : "");
         etsi_delete_array(err);
         state.SkipWithError(why.c_str());
         return;
      }
      benchmark::DoNotOptimize(out);
      etsi_delete_array(out);
   }
   state.SetItemsProcessed(state.iterations());
   state.SetBytesProcessed(state.iterations() * (int64_t)in.uper.size());
}

void fromJson(benchmark::State& state, const char* msg, ToJson to, FromJson fn)
{
   const Input& in = uperInput(msg);
   if (in.uper.empty()) {
      state.SkipWithError(("cannot read " + in.source).c_str());
      return;
   }
   std::string json;
   {
      char* out = nullptr;
      char* err = nullptr;
      if (to(in.uper.data(), in.uper.size(), &out, &err, false) != 0) {
         etsi_delete_array(err);
         state.SkipWithError("the UPER input does not convert to JSON");
         return;
      }
      json = out;
      etsi_delete_array(out);
   }
   for (auto _ : state) {
      char* out = nullptr;
      char* err = nullptr;
      size_t len = 0;
      int stat = fn(json.c_str(), &out, &len, &err, false);
      if (stat != 0 || len != in.uper.size()) {
         std::string why = std::string("conversion failed: ") + (err ? err : "");
         etsi_delete_array(out);
         etsi_delete_array(err);
         state.SkipWithError(why.c_str());
         return;
      }
      benchmark::DoNotOptimize(out);
      etsi_delete_array(out);
   }
   state.SetItemsProcessed(state.iterations());
   state.SetBytesProcessed(state.iterations() * (int64_t)json.size());
}

void registerMessage(const char* msg, ToJson to, FromJson from)
{
   std::string m(msg);
   benchmark::RegisterBenchmark(("json/etsi_" + m + "_to_json").c_str(), toJson, msg, to);
   benchmark::RegisterBenchmark(("json/etsi_" + m + "_from_json").c_str(), fromJson, msg, to, from);
}

[[maybe_unused]] const bool registered = [] {
   registerMessage("CAM", etsi_CAM_to_json, etsi_CAM_from_json);
   registerMessage("DENM", etsi_DENM_to_json, etsi_DENM_from_json);
   registerMessage("SPATEM", etsi_SPATEM_to_json, etsi_SPATEM_from_json);
   registerMessage("MAPEM", etsi_MAPEM_to_json, etsi_MAPEM_from_json);
   registerMessage("IVIM", etsi_IVIM_to_json, etsi_IVIM_from_json);
   registerMessage("SREM", etsi_SREM_to_json, etsi_SREM_from_json);
   registerMessage("SSEM", etsi_SSEM_to_json, etsi_SSEM_from_json);
   return true;
}();

}  // namespace
