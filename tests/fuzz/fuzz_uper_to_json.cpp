// Fuzz target: PER bytes into etsi_<M>_to_json, with the PER -> text -> PER -> text fixed point.
#include "tests/fuzz/fuzz_conversions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
   etsifuzz::perIn(etsifuzz::JSON, data, size);
   return 0;
}
