// Conversions on several threads at once give exactly the single-thread results. Built on its
// own so that a ThreadSanitizer build needs only the library and this file (make test-tsan).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "src/etsi_v2x.h"
#include "tests/support/corpus.h"

namespace {

typedef int (*ToJson)(const char*, size_t, char**, char**, bool);
typedef int (*FromJson)(const char*, char**, size_t*, char**, bool);

struct Job {
   ToJson toJson;
   FromJson fromJson;
   std::string bytes, json;
};

bool lookup(const std::string& type, ToJson* to, FromJson* from)
{
   static const struct { const char* name; ToJson to; FromJson from; } table[] = {
      { "CAM", etsi_CAM_to_json, etsi_CAM_from_json },       { "DENM", etsi_DENM_to_json, etsi_DENM_from_json },
      { "SPATEM", etsi_SPATEM_to_json, etsi_SPATEM_from_json }, { "MAPEM", etsi_MAPEM_to_json, etsi_MAPEM_from_json },
      { "IVIM", etsi_IVIM_to_json, etsi_IVIM_from_json },    { "SREM", etsi_SREM_to_json, etsi_SREM_from_json },
      { "SSEM", etsi_SSEM_to_json, etsi_SSEM_from_json },
   };
   for (const auto& e : table)
      if (type == e.name) {
         *to = e.to;
         *from = e.from;
         return true;
      }
   return false;
}

// PER -> JSON -> PER of one job; true when both steps give the expected results.
bool convert(const Job& job, std::string* json)
{
   char* out = nullptr;
   char* err = nullptr;
   bool ok = job.toJson(job.bytes.data(), job.bytes.size(), &out, &err, false) == 0;
   if (ok) *json = out;
   etsi_delete_array(out);
   etsi_delete_array(err);
   if (!ok) return false;
   size_t n = 0;
   out = err = nullptr;
   ok = job.fromJson(json->c_str(), &out, &n, &err, false) == 0 && std::string(out, n) == job.bytes;
   etsi_delete_array(out);
   etsi_delete_array(err);
   return ok;
}

TEST(ConversionThreads, ParallelCallsGiveTheSingleThreadResults)
{
   // Different messages of every type, with their single-thread results.
   std::vector<Job> jobs;
   for (const CorpusMessage& m : loadCorpus()) {
      Job job;
      if (m.protocolVersion < 2 || !lookup(m.type, &job.toJson, &job.fromJson)) continue;
      job.bytes.assign(m.bytes.begin(), m.bytes.end());
      if (convert(job, &job.json) && jobs.size() < 96) jobs.push_back(job);
   }
   ASSERT_GT(jobs.size(), 20u);
   std::atomic<int> mismatches(0), calls(0);
   std::vector<std::thread> threads;
   auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
   for (int t = 0; t < 8; t++) {
      threads.emplace_back([&, t] {
         for (size_t k = t; std::chrono::steady_clock::now() < until; k += 5) {
            const Job& job = jobs[k % jobs.size()];
            std::string json;
            if (!convert(job, &json) || json != job.json) mismatches++;
            calls++;
         }
      });
   }
   for (std::thread& th : threads) th.join();
   EXPECT_EQ(mismatches.load(), 0);
   EXPECT_GT(calls.load(), 8);
}

}  // namespace
