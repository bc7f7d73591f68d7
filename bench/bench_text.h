// The benchmark bodies shared by the JSON and XML conversions (bench_json.cpp, bench_xml.cpp):
// one exported to-text or from-text function on one message per type. Each call includes the
// result copy and its release with etsi_delete_array.
#ifndef ETSI_BENCH_TEXT_H
#define ETSI_BENCH_TEXT_H

#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_data.h"
#include "src/etsi_v2x.h"

namespace etsibench {

typedef int (*ToText)(const char*, size_t, char**, char**, bool);
typedef int (*FromText)(const char*, char**, size_t*, char**, bool);

// UPER -> text; bytes processed are the UPER bytes.
inline void toText(benchmark::State& state, const char* msg, ToText fn)
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

// Text -> UPER on the library's own text of the same message (made once with `to`); bytes
// processed are the text characters.
inline void fromText(benchmark::State& state, const char* msg, ToText to, FromText fn)
{
   const Input& in = uperInput(msg);
   if (in.uper.empty()) {
      state.SkipWithError(("cannot read " + in.source).c_str());
      return;
   }
   std::string text;
   {
      char* out = nullptr;
      char* err = nullptr;
      if (to(in.uper.data(), in.uper.size(), &out, &err, false) != 0) {
         std::string why = std::string("the UPER input does not convert to text: ") + (err ? err : "");
         etsi_delete_array(err);
         state.SkipWithError(why.c_str());
         return;
      }
      text = out;
      etsi_delete_array(out);
   }
   for (auto _ : state) {
      char* out = nullptr;
      char* err = nullptr;
      size_t len = 0;
      int stat = fn(text.c_str(), &out, &len, &err, false);
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
   state.SetBytesProcessed(state.iterations() * (int64_t)text.size());
}

// Registers <form>/etsi_<MSG>_to_<form> and <form>/etsi_<MSG>_from_<form>.
inline void registerTextPair(const std::string& form, const char* msg, ToText to, FromText from)
{
   std::string m(msg);
   benchmark::RegisterBenchmark((form + "/etsi_" + m + "_to_" + form).c_str(), toText, msg, to);
   benchmark::RegisterBenchmark((form + "/etsi_" + m + "_from_" + form).c_str(), fromText, msg, to, from);
}

}  // namespace etsibench

#endif
