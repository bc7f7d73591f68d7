// Fuzz target: JSON text into etsi_<M>_from_json, with the text -> PER -> text -> PER fixed point.
#include "tests/fuzz/fuzz_conversions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
   etsifuzz::textIn(etsifuzz::JSON, data, size);
   return 0;
}
