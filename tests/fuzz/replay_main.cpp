// Runs a fuzz target's body over saved inputs without libFuzzer:
//   fuzz_replay_<target> PATH...
// Each PATH is a file or a folder (all files below it). A fixed-point violation or a sanitizer
// report ends the process with a failure, so the saved findings of the fuzzer stay fixed.
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

static void runFile(const fs::path& path, size_t& count)
{
   std::ifstream in(path, std::ios::binary);
   std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
   // A copy of exactly the input's size, so that reads past the end are caught by the sanitizers.
   uint8_t* copy = new uint8_t[bytes.size()];
   std::copy(bytes.begin(), bytes.end(), copy);
   LLVMFuzzerTestOneInput(copy, bytes.size());
   delete[] copy;
   count++;
}

int main(int argc, char** argv)
{
   size_t count = 0;
   for (int i = 1; i < argc; i++) {
      fs::path root(argv[i]);
      std::error_code ec;
      if (fs::is_directory(root, ec)) {
         std::vector<fs::path> files;
         for (const auto& entry : fs::recursive_directory_iterator(root))
            if (entry.is_regular_file() && entry.path().filename().string()[0] != '.') files.push_back(entry.path());
         std::sort(files.begin(), files.end());
         for (const auto& f : files) runFile(f, count);
      } else if (fs::is_regular_file(root, ec)) {
         runFile(root, count);
      } else {
         fprintf(stderr, "%s: no such file or folder\n", argv[i]);
         return 2;
      }
   }
   printf("%zu inputs replayed\n", count);
   return 0;
}
