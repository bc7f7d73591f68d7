// Fuzz target: XML text into etsi_<M>_from_xml, with the text -> PER -> text -> PER fixed point.
#include "tests/fuzz/fuzz_conversions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
   etsifuzz::textIn(etsifuzz::XML, data, size);
   return 0;
}
