// Conversions (JSON and XML) on several threads at once give exactly the single-thread results. Built on its
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

typedef int (*ToText)(const char*, size_t, char**, char**, bool);
typedef int (*FromText)(const char*, char**, size_t*, char**, bool);

// The JSON and the XML pair of one message type.
struct Forms {
   const char* name;
   ToText toJson;
   FromText fromJson;
   ToText toXml;
   FromText fromXml;
};

struct Job {
   const Forms* forms;
   std::string bytes, json, xml;
};

const Forms* lookup(const std::string& type)
{
   static const Forms table[] = {
      { "CAM", etsi_CAM_to_json, etsi_CAM_from_json, etsi_CAM_to_xml, etsi_CAM_from_xml },
      { "DENM", etsi_DENM_to_json, etsi_DENM_from_json, etsi_DENM_to_xml, etsi_DENM_from_xml },
      { "SPATEM", etsi_SPATEM_to_json, etsi_SPATEM_from_json, etsi_SPATEM_to_xml, etsi_SPATEM_from_xml },
      { "MAPEM", etsi_MAPEM_to_json, etsi_MAPEM_from_json, etsi_MAPEM_to_xml, etsi_MAPEM_from_xml },
      { "IVIM", etsi_IVIM_to_json, etsi_IVIM_from_json, etsi_IVIM_to_xml, etsi_IVIM_from_xml },
      { "SREM", etsi_SREM_to_json, etsi_SREM_from_json, etsi_SREM_to_xml, etsi_SREM_from_xml },
      { "SSEM", etsi_SSEM_to_json, etsi_SSEM_from_json, etsi_SSEM_to_xml, etsi_SSEM_from_xml },
   };
   for (const Forms& f : table)
      if (type == f.name) return &f;
   return nullptr;
}

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
      job.forms = lookup(m.type);
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
