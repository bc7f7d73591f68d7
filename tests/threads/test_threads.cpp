// Conversions (JSON and XML) on several threads at once give exactly the single-thread results. Built on its
// own so that a ThreadSanitizer build needs only the library and this file (make test-tsan).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "src/etsi_v2x.h"
#include "tests/support/conversions.h"
#include "tests/support/corpus.h"

namespace {

struct Job {
   const Message* forms;
   std::string bytes, json, xml;
};

// PER -> text -> PER through one pair; true when both steps give the expected results.
bool convert(const std::string& bytes, ToText to, FromText from, std::string* text)
{
   char* out = nullptr;
   char* err = nullptr;
   bool ok = to(bytes.data(), bytes.size(), &out, &err, false) == 0;
   if (ok) *text = out;
   etsi_delete_array(out);
   etsi_delete_array(err);
   if (!ok) return false;
   size_t n = 0;
   out = err = nullptr;
   ok = from(text->c_str(), &out, &n, &err, false) == 0 && std::string(out, n) == bytes;
   etsi_delete_array(out);
   etsi_delete_array(err);
   return ok;
}

// Both text forms of one job.
bool convert(const Job& job, std::string* json, std::string* xml)
{
   return convert(job.bytes, job.forms->toJson, job.forms->fromJson, json) &&
          convert(job.bytes, job.forms->toXml, job.forms->fromXml, xml);
}

TEST(ConversionThreads, ParallelCallsGiveTheSingleThreadResults)
{
   // Different messages of every type, with their single-thread results.
   std::vector<Job> jobs;
   for (const CorpusMessage& m : loadCorpus()) {
      Job job;
      job.forms = messageByName(m.type);
      if (m.protocolVersion < 2 || job.forms == nullptr) continue;
      job.bytes.assign(m.bytes.begin(), m.bytes.end());
      if (convert(job, &job.json, &job.xml) && jobs.size() < 96) jobs.push_back(job);
   }
   ASSERT_GT(jobs.size(), 20u);
   std::atomic<int> mismatches(0), calls(0);
   std::vector<std::thread> threads;
   auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
   for (int t = 0; t < 8; t++) {
      threads.emplace_back([&, t] {
         for (size_t k = t; std::chrono::steady_clock::now() < until; k += 5) {
            const Job& job = jobs[k % jobs.size()];
            std::string json, xml;
            if (!convert(job, &json, &xml) || json != job.json || xml != job.xml) mismatches++;
            calls++;
         }
      });
   }
   for (std::thread& th : threads) th.join();
   EXPECT_EQ(mismatches.load(), 0);
   EXPECT_GT(calls.load(), 8);
}

}  // namespace
