// Soak: many mixed conversions on many threads while the resident memory is watched.
//   soak [--conversions N] [--threads T] [--max-growth-kb K]
// Every thread walks a fixed mix of inputs: the bundled example of each message as UPER, JSON and
// XML (conversions that succeed), and damaged copies of them (cut short, bytes flipped, text
// broken: conversions that fail with an error report). The resident set size is sampled ten
// times a second; after a warm-up of a tenth of the conversions it must not grow by more than
// K kilobytes. Exit status 1 when it does.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "src/etsi_v2x.h"
#include "tests/support/conversions.h"
#include "tests/support/examples.h"

namespace {


struct Input {
   const Message* message;
   enum Kind { PER_JSON, PER_XML, JSON, XML } kind;
   std::string data;
};

std::vector<Input> buildMix()
{
   std::vector<Input> mix;
   for (size_t i = 0; i < kMessageCount; i++) {
      const Message* m = &kMessages[i];
      std::string per = examplePer(m->name);
      std::string json = exampleText(m->name, ".json");
      std::string xml = exampleText(m->name, ".xml");
      if (per.empty() || json.empty() || xml.empty()) {
         fprintf(stderr, "soak: missing example of %s in %s\n", m->name, examplesDir().c_str());
         exit(2);
      }
      std::string cut = per.substr(0, per.size() / 2);
      std::string flipped = per;
      for (size_t k = 0; k < flipped.size(); k += 7) flipped[k] = (char)(flipped[k] ^ 0x5A);
      mix.push_back({ m, Input::PER_JSON, per });
      mix.push_back({ m, Input::PER_XML, per });
      mix.push_back({ m, Input::JSON, json });
      mix.push_back({ m, Input::XML, xml });
      mix.push_back({ m, Input::PER_JSON, cut });
      mix.push_back({ m, Input::PER_XML, flipped });
      mix.push_back({ m, Input::JSON, json.substr(0, json.size() * 2 / 3) });
      mix.push_back({ m, Input::XML, xml.substr(0, xml.size() * 2 / 3) + "<x>" });
   }
   return mix;
}

long residentKb()
{
   long pages = 0, resident = 0;
   FILE* f = fopen("/proc/self/statm", "r");
   if (f == nullptr) return 0;
   if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
   fclose(f);
   return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

bool convert(const Input& in)
{
   char* out = nullptr;
   char* err = nullptr;
   size_t n = 0;
   int stat;
   switch (in.kind) {
      case Input::PER_JSON: stat = in.message->toJson(in.data.data(), in.data.size(), &out, &err, false); break;
      case Input::PER_XML: stat = in.message->toXml(in.data.data(), in.data.size(), &out, &err, false); break;
      case Input::JSON: stat = in.message->fromJson(in.data.c_str(), &out, &n, &err, false); break;
      default: stat = in.message->fromXml(in.data.c_str(), &out, &n, &err, false); break;
   }
   etsi_delete_array(out);
   etsi_delete_array(err);
   return stat == 0;
}

}  // namespace

int main(int argc, char** argv)
{
   long long total = 10000000;
   int threads = 16;
   long maxGrowthKb = 1024;
   for (int i = 1; i + 1 < argc; i += 2) {
      if (strcmp(argv[i], "--conversions") == 0) total = atoll(argv[i + 1]);
      else if (strcmp(argv[i], "--threads") == 0) threads = atoi(argv[i + 1]);
      else if (strcmp(argv[i], "--max-growth-kb") == 0) maxGrowthKb = atol(argv[i + 1]);
      else {
         fprintf(stderr, "usage: soak [--conversions N] [--threads T] [--max-growth-kb K]\n");
         return 2;
      }
   }
   const std::vector<Input> mix = buildMix();
   std::atomic<long long> next{ 0 }, succeeded{ 0 };
   std::atomic<bool> done{ false };
   const long long warmUp = total / 10;

   auto start = std::chrono::steady_clock::now();
   std::vector<std::thread> pool;
   for (int t = 0; t < threads; t++)
      pool.emplace_back([&] {
         long long ok = 0;
         for (long long i; (i = next.fetch_add(1, std::memory_order_relaxed)) < total;)
            if (convert(mix[(size_t)(i % (long long)mix.size())])) ok++;
         succeeded += ok;
      });

   long baseline = -1, highest = 0, samples = 0;
   std::thread watcher([&] {
      while (!done.load()) {
         std::this_thread::sleep_for(std::chrono::milliseconds(100));
         long rss = residentKb();
         if (baseline < 0) {
            if (next.load() >= warmUp) baseline = rss;
            continue;
         }
         highest = std::max(highest, rss);
         samples++;
      }
   });
   for (auto& th : pool) th.join();
   double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   done = true;
   watcher.join();
   long final = residentKb();
   if (baseline < 0) baseline = final;
   highest = std::max(highest, final);
   long growth = highest - baseline;

   printf("soak: %lld conversions (%lld succeeded, %lld failed) on %d threads in %.1f s, %.0f conversions/s\n",
          total, succeeded.load(), total - succeeded.load(), threads, seconds, (double)total / seconds);
   printf("soak: resident memory after warm-up %ld KB, highest %ld KB, at the end %ld KB (%ld samples): growth %ld KB "
          "(limit %ld KB)\n",
          baseline, highest, final, samples, growth, maxGrowthKb);
   if (growth > maxGrowthKb) {
      printf("soak: FAILED, resident memory grew by %ld KB\n", growth);
      return 1;
   }
   return 0;
}
