// Peak heap of a piece of code: every allocation of the process is counted while a meter runs.
//
// In a plain build the test program interposes malloc and friends (forwarding to glibc's own
// functions); under AddressSanitizer it installs the sanitizer's allocation hooks instead. Only
// bytes allocated while the meter runs count, on whatever thread.
#ifndef ETSI_HEAP_METER_H
#define ETSI_HEAP_METER_H

#include <stddef.h>

// Runs fn() and returns the highest number of heap bytes that it held at once beyond what was
// allocated when it started.
size_t peakHeapOf(void (*fn)(void*), void* arg);

template <class F>
size_t peakHeap(F f)
{
   return peakHeapOf([](void* p) { (*static_cast<F*>(p))(); }, &f);
}

#endif
