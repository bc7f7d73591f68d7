// The allocation counting behind peakHeapOf (see heap_meter.h).
#include "tests/bounds/heap_meter.h"

#include <malloc.h>
#include <stdint.h>
#include <string.h>

#include <atomic>

namespace {

std::atomic<bool> metering{ false };
std::atomic<int64_t> live{ 0 };
std::atomic<int64_t> peak{ 0 };

void counted(int64_t delta)
{
   if (!metering.load(std::memory_order_relaxed)) return;
   int64_t now = live.fetch_add(delta, std::memory_order_relaxed) + delta;
   int64_t high = peak.load(std::memory_order_relaxed);
   while (now > high && !peak.compare_exchange_weak(high, now, std::memory_order_relaxed)) {
   }
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's allocator interface (declared here: gcc installs no header for it).
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, size_t),
                                              void (*onFree)(const volatile void*));
size_t __sanitizer_get_allocated_size(const volatile void* p);
}

extern "C" {
static void onMalloc(const volatile void*, size_t size) { counted((int64_t)size); }
static void onFree(const volatile void* p) { counted(-(int64_t)__sanitizer_get_allocated_size((const void*)p)); }
}

static int installHooks()
{
   __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);
   return 0;
}
static int hooksInstalled = installHooks();

#else
// Interposed allocation functions of the test program, over glibc's own ones.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);

void* malloc(size_t n)
{
   void* p = __libc_malloc(n);
   if (p != nullptr) counted((int64_t)malloc_usable_size(p));
   return p;
}

void* calloc(size_t n, size_t size)
{
   void* p = __libc_calloc(n, size);
   if (p != nullptr) counted((int64_t)malloc_usable_size(p));
   return p;
}

void* realloc(void* old, size_t n)
{
   int64_t before = old != nullptr ? (int64_t)malloc_usable_size(old) : 0;
   void* p = __libc_realloc(old, n);
   if (p != nullptr) counted((int64_t)malloc_usable_size(p) - before);
   else if (n == 0) counted(-before);
   return p;
}

void free(void* p)
{
   if (p != nullptr) counted(-(int64_t)malloc_usable_size(p));
   __libc_free(p);
}

void* memalign(size_t align, size_t n)
{
   void* p = __libc_memalign(align, n);
   if (p != nullptr) counted((int64_t)malloc_usable_size(p));
   return p;
}

void* aligned_alloc(size_t align, size_t n) { return memalign(align, n); }

int posix_memalign(void** out, size_t align, size_t n)
{
   void* p = memalign(align, n);
   if (p == nullptr) return 12;  // ENOMEM
   *out = p;
   return 0;
}
}
#endif

size_t peakHeapOf(void (*fn)(void*), void* arg)
{
   live.store(0);
   peak.store(0);
   metering.store(true);
   fn(arg);
   metering.store(false);
   return (size_t)peak.load();
}
