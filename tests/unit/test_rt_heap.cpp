// Memory heap of a context: layout, reference counts, reuse, large and static heaps.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

namespace {

class HeapTest : public ::testing::Test {
protected:
   QSCTXT ctxt;
   void SetUp() override { ASSERT_EQ(0, rtxInitContext(&ctxt)); }
   void TearDown() override { rtxFreeContext(&ctxt); }

   QSOCTET* alloc(size_t n) { return static_cast<QSOCTET*>(rtxMemHeapAlloc(&ctxt, n)); }
};

uintptr_t addr(const void* p) { return reinterpret_cast<uintptr_t>(p); }

const size_t LARGE_REQUEST = 524264;

}  // namespace

TEST_F(HeapTest, SmallAllocationsAreAlignedAndCarryAnEightByteHeader)
{
   QSOCTET* a = alloc(8);
   QSOCTET* b = alloc(8);
   ASSERT_NE(nullptr, a);
   ASSERT_NE(nullptr, b);
   EXPECT_EQ(0u, addr(a) % 8);
   EXPECT_EQ(16u, addr(b) - addr(a));
   EXPECT_EQ(0, a[-2]);  // flags: in use, small
   EXPECT_EQ(1, a[-1]);  // reference count
}

TEST_F(HeapTest, ZeroByteRequestsGiveDistinctPointers)
{
   void* a = alloc(0);
   void* b = alloc(0);
   ASSERT_NE(nullptr, a);
   ASSERT_NE(nullptr, b);
   EXPECT_NE(a, b);
   EXPECT_EQ(16u, addr(b) - addr(a));
}

TEST_F(HeapTest, LargeRequestsGetABlockOfTheirOwnFreedIndividually)
{
   QSOCTET* small = alloc(LARGE_REQUEST - 8);
   QSOCTET* large = alloc(LARGE_REQUEST);
   ASSERT_NE(nullptr, small);
   ASSERT_NE(nullptr, large);
   EXPECT_EQ(0, small[-2]);
   EXPECT_EQ(4, large[-2]);
   EXPECT_EQ(1, large[-1]);
   std::memset(large, 0xAB, LARGE_REQUEST);

   rtxMemHeapFreePtr(&ctxt, small);
   EXPECT_FALSE(rtxMemHeapIsEmpty(&ctxt));
   EXPECT_TRUE(rtxMemHeapCheckPtr(&ctxt, large));
   rtxMemHeapFreePtr(&ctxt, large);
   EXPECT_FALSE(rtxMemHeapCheckPtr(&ctxt, large));
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(HeapTest, ReferenceCountsDelayTheFree)
{
   void* p = alloc(24);
   EXPECT_EQ(1, rtxMemHeapAutoPtrGetRefCount(&ctxt, p));
   EXPECT_EQ(p, rtxMemHeapAutoPtrRef(&ctxt, p));
   EXPECT_EQ(2, rtxMemHeapAutoPtrGetRefCount(&ctxt, p));
   EXPECT_EQ(1, rtxMemHeapAutoPtrUnref(&ctxt, p));
   EXPECT_TRUE(rtxMemHeapCheckPtr(&ctxt, p));
   EXPECT_EQ(0, rtxMemHeapAutoPtrUnref(&ctxt, p));
   EXPECT_FALSE(rtxMemHeapCheckPtr(&ctxt, p));
   EXPECT_EQ(0, rtxMemHeapAutoPtrGetRefCount(&ctxt, p));
   EXPECT_EQ(nullptr, rtxMemHeapAutoPtrRef(&ctxt, p));  // already free
   EXPECT_EQ(0, rtxMemHeapAutoPtrUnref(&ctxt, p));      // freeing twice is left alone
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));

   void* q = alloc(8);
   for (int i = 1; i < 255; i++) ASSERT_EQ(q, rtxMemHeapAutoPtrRef(&ctxt, q));
   EXPECT_EQ(nullptr, rtxMemHeapAutoPtrRef(&ctxt, q));  // count stays at 255
   EXPECT_EQ(255, rtxMemHeapAutoPtrGetRefCount(&ctxt, q));
}

TEST_F(HeapTest, ForeignAndNullPointersAreRejected)
{
   alloc(8);
   int onStack = 0;
   void* foreign = std::malloc(64);
   EXPECT_EQ(RTERR_NO_DYNAMIC_MEMORY, rtxMemHeapAutoPtrUnref(&ctxt, &onStack));
   EXPECT_EQ(RTERR_NO_DYNAMIC_MEMORY, rtxMemHeapAutoPtrUnref(&ctxt, foreign));
   EXPECT_EQ(RTERR_UNEXPECTED_NULL_POINTER, rtxMemHeapAutoPtrUnref(&ctxt, nullptr));
   EXPECT_EQ(RTERR_UNEXPECTED_NULL_POINTER, rtxMemHeapAutoPtrUnref(nullptr, foreign));
   EXPECT_FALSE(rtxMemHeapCheckPtr(&ctxt, foreign));
   rtxMemHeapFreePtr(&ctxt, foreign);  // ignored
   std::free(foreign);
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
}

TEST_F(HeapTest, FreedNeighboursMergeAndAreReused)
{
   QSOCTET* a = alloc(8);
   QSOCTET* b = alloc(8);
   QSOCTET* c = alloc(8);
   rtxMemHeapFreePtr(&ctxt, b);
   rtxMemHeapFreePtr(&ctxt, a);
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
   EXPECT_EQ(a, alloc(24));  // a and b together: 4 units, 3 of them usable
   rtxMemHeapFreePtr(&ctxt, c);
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
}

TEST_F(HeapTest, ManyBlocksAreCreatedAndGivenBack)
{
   std::vector<void*> ptrs;
   for (int i = 0; i < 2000; i++) {
      void* p = alloc(8 + (i % 5) * 40);
      ASSERT_NE(nullptr, p);
      std::memset(p, i & 0xFF, 8);
      ptrs.push_back(p);
   }
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
   for (size_t i = 0; i < ptrs.size(); i += 2) rtxMemHeapFreePtr(&ctxt, ptrs[i]);
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
   for (size_t i = 1; i < ptrs.size(); i += 2) {
      EXPECT_EQ((QSOCTET)(i & 0xFF), *static_cast<QSOCTET*>(ptrs[i]));
      rtxMemHeapFreePtr(&ctxt, ptrs[i]);
   }
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
}

TEST_F(HeapTest, RandomAllocFreeReallocKeepsContentsAndStructure)
{
   std::mt19937 rng(12345);
   struct Item { QSOCTET* p; size_t n; QSOCTET fill; };
   std::vector<Item> live;
   for (int step = 0; step < 20000; step++) {
      unsigned op = rng() % 10;
      if (op < 5 || live.empty()) {
         size_t n = (rng() % 16 == 0) ? rng() % 6000 : rng() % 200;
         QSOCTET* p = alloc(n);
         ASSERT_NE(nullptr, p);
         QSOCTET fill = (QSOCTET)rng();
         std::memset(p, fill, n);
         live.push_back({ p, n, fill });
      }
      else {
         size_t k = rng() % live.size();
         Item& it = live[k];
         for (size_t i = 0; i < it.n; i++) ASSERT_EQ(it.fill, it.p[i]);
         if (op < 8) {
            rtxMemHeapFreePtr(&ctxt, it.p);
            live[k] = live.back();
            live.pop_back();
         }
         else {
            size_t n = rng() % 400;
            QSOCTET* p = static_cast<QSOCTET*>(rtxMemHeapRealloc(&ctxt, it.p, n));
            ASSERT_NE(nullptr, p);
            for (size_t i = 0; i < std::min(n, it.n); i++) ASSERT_EQ(it.fill, p[i]);
            std::memset(p, it.fill, n);
            it.p = p;
            it.n = n;
         }
      }
      if (step % 1000 == 0) {
         ASSERT_EQ(0, rtxMemHeapCheck(&ctxt));
      }
   }
   ASSERT_EQ(0, rtxMemHeapCheck(&ctxt));
   for (Item& it : live) rtxMemHeapFreePtr(&ctxt, it.p);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(HeapTest, ReallocOfLargeBlocksAndNullPointers)
{
   QSOCTET* p = static_cast<QSOCTET*>(rtxMemHeapRealloc(&ctxt, nullptr, 16));
   ASSERT_NE(nullptr, p);
   std::memcpy(p, "0123456789abcdef", 16);
   p = static_cast<QSOCTET*>(rtxMemHeapRealloc(&ctxt, p, LARGE_REQUEST));
   ASSERT_NE(nullptr, p);
   EXPECT_EQ(4, p[-2]);
   EXPECT_EQ(0, std::memcmp(p, "0123456789abcdef", 16));
   p = static_cast<QSOCTET*>(rtxMemHeapRealloc(&ctxt, p, 2 * LARGE_REQUEST));
   ASSERT_NE(nullptr, p);
   EXPECT_EQ(0, std::memcmp(p, "0123456789abcdef", 16));
   p = static_cast<QSOCTET*>(rtxMemHeapRealloc(&ctxt, p, 10));
   ASSERT_NE(nullptr, p);
   EXPECT_EQ(0, p[-2]);
   EXPECT_EQ(0, std::memcmp(p, "0123456789", 10));
   rtxMemHeapFreePtr(&ctxt, p);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(HeapTest, ResetKeepsBlocksAndFreeAllDropsThem)
{
   void* first = alloc(100);
   for (int i = 0; i < 100; i++) alloc(64);
   alloc(LARGE_REQUEST);
   rtxMemHeapReset(&ctxt);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
   void* again = alloc(100);
   EXPECT_TRUE(rtxMemHeapCheckPtr(&ctxt, again));
   (void)first;

   rtxMemHeapFreeAll(&ctxt);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   EXPECT_FALSE(rtxMemHeapCheckPtr(&ctxt, again));
   EXPECT_NE(nullptr, alloc(8));  // usable afterwards
}

TEST_F(HeapTest, ForcedLargeBlocksServeEveryRequest)
{
   rtxMemHeapSetFlags(&ctxt, RT_MH_USESYSALLOC);
   QSOCTET* p = alloc(8);
   ASSERT_NE(nullptr, p);
   EXPECT_EQ(4, p[-2]);
   rtxMemHeapClearFlags(&ctxt, RT_MH_USESYSALLOC);
   rtxMemHeapFreePtr(&ctxt, p);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(HeapTest, ReleaseDropsTheHeapOnlyAtTheLastReference)
{
   rtxMemHeapAddRef(&ctxt);
   QSMemHeap* heap = ctxt.pMemHeap;
   QSOCTET* p = alloc(8);
   rtxMemHeapRelease(&ctxt);  // one reference is left: the heap stays with the context
   EXPECT_EQ(heap, ctxt.pMemHeap);
   EXPECT_EQ(1, heap->refCnt);
   EXPECT_TRUE(rtxMemHeapCheckPtr(&ctxt, p));
   EXPECT_NE(nullptr, alloc(8));
   rtxMemHeapRelease(&ctxt);
   EXPECT_EQ(nullptr, ctxt.pMemHeap);
   rtxMemHeapRelease(&ctxt);  // no heap: nothing happens
}

TEST_F(HeapTest, ArrayAllocationChecksTheProductOnly)
{
   EXPECT_EQ(nullptr, rtxMemAllocArray2(&ctxt, (QSSIZE)1 << 63, 2, 0));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxErrGetStatus(&ctxt));
   rtxErrReset(&ctxt);
   // deliberately simple test: a zero element size counts as an overflow
   EXPECT_EQ(nullptr, rtxMemAllocArray2(&ctxt, 3, 0, 0));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtxErrGetStatus(&ctxt));
   rtxErrReset(&ctxt);

   QSOCTET* z = static_cast<QSOCTET*>(rtxMemAllocArray2(&ctxt, 10, 4, RT_MH_ZEROARRAY));
   ASSERT_NE(nullptr, z);
   for (int i = 0; i < 40; i++) EXPECT_EQ(0, z[i]);
   EXPECT_TRUE(rtxMemHeapCheckPtr(&ctxt, z));

   void* sys = rtxMemAllocArray2(&ctxt, 4, 4, RT_MH_SYSALLOC);
   ASSERT_NE(nullptr, sys);
   EXPECT_FALSE(rtxMemHeapCheckPtr(&ctxt, sys));
   rtxMemHeapSysFreePtr(&ctxt, sys);
   EXPECT_EQ(0, rtxErrGetStatus(&ctxt));
}

TEST(HeapStatic, BumpsAnOffsetAndNeverFrees)
{
   alignas(8) static unsigned char buf[512];
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxPreInitContext(&ctxt));
   ASSERT_EQ(0, rtxMemStaticHeapCreate(&ctxt, buf, sizeof(buf)));
   QSOCTET* a = static_cast<QSOCTET*>(rtxMemHeapAlloc(&ctxt, 10));
   QSOCTET* b = static_cast<QSOCTET*>(rtxMemHeapAlloc(&ctxt, 3));
   ASSERT_NE(nullptr, a);
   EXPECT_EQ(a + 10, b);
   EXPECT_TRUE(addr(a) >= addr(buf) && addr(b) < addr(buf) + sizeof(buf));
   EXPECT_EQ(nullptr, rtxMemHeapAlloc(&ctxt, sizeof(buf)));
   rtxMemHeapFreePtr(&ctxt, a);
   EXPECT_EQ(b + 3, rtxMemHeapAlloc(&ctxt, 1));
   EXPECT_FALSE(rtxMemHeapIsEmpty(&ctxt));
   rtxMemHeapReset(&ctxt);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   EXPECT_EQ(a, rtxMemHeapAlloc(&ctxt, 1));
   rtxFreeContext(&ctxt);
   EXPECT_EQ(nullptr, ctxt.pMemHeap);

   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtxMemStaticHeapCreate(&ctxt, buf, 16));
}

namespace {
int g_allocs = 0, g_frees = 0;
void* countingAlloc(size_t n) { g_allocs++; return std::malloc(n); }
void* countingRealloc(void* p, size_t n) { return std::realloc(p, n); }
void countingFree(void* p) { g_frees++; std::free(p); }
}  // namespace

TEST(HeapAllocator, DefaultBlockSizeIsTakenAsGiven)
{
   const QSUINT32 sizes[] = { 0, 1, 40, 0x100000 };
   for (QSUINT32 size : sizes) {
      rtxMemSetDefBlkSize(size);
      EXPECT_EQ(size, rtxMemGetDefBlkSize());
      QSCTXT ctxt;
      ASSERT_EQ(0, rtxInitContext(&ctxt));
      EXPECT_EQ(size, ctxt.pMemHeap->defBlkSize);
      void* a = rtxMemHeapAlloc(&ctxt, 8);
      void* b = rtxMemHeapAlloc(&ctxt, 100);
      ASSERT_NE(nullptr, a);
      ASSERT_NE(nullptr, b);
      std::memset(b, 0xA5, 100);
      EXPECT_EQ(0, rtxMemHeapCheck(&ctxt)) << size;
      rtxFreeContext(&ctxt);
   }
   rtxMemSetDefBlkSize(RT_MH_DEFBLKSIZE);
}

TEST(HeapAllocator, GivenFunctionsAndDefaultBlockSizeAreUsed)
{
   EXPECT_EQ(4096u, rtxMemGetDefBlkSize());
   rtxMemSetDefBlkSize(8192);
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContextExt(&ctxt, countingAlloc, countingRealloc, countingFree));
   rtxMemSetDefBlkSize(RT_MH_DEFBLKSIZE);
   EXPECT_EQ(8192u, ctxt.pMemHeap->defBlkSize);
   EXPECT_EQ(0x10000000u, rtxMemHeapGetFlags(&ctxt));
   EXPECT_EQ(1, g_allocs);  // the heap record

   for (int i = 0; i < 1000; i++) rtxMemHeapAlloc(&ctxt, 40);  // 6 units each: 1000 per 8 KiB block is too many
   rtxMemHeapAlloc(&ctxt, LARGE_REQUEST);
   EXPECT_GT(g_allocs, 3);
   rtxFreeContext(&ctxt);
   EXPECT_EQ(g_allocs, g_frees);
}

TEST(HeapAllocator, ALentBlockServesFirstAndIsNeverGivenToTheFreeFunction)
{
   g_allocs = g_frees = 0;
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContextExt(&ctxt, countingAlloc, countingRealloc, countingFree));
   alignas(8) static QSOCTET lent[1024];
   ASSERT_EQ(0, rtxMemHeapLendBlock(&ctxt, lent + 1, sizeof lent - 1));  // aligned up inside
   auto inLent = [&](const void* p) { return addr(p) > addr(lent) && addr(p) < addr(lent + sizeof lent); };

   for (int round = 0; round < 2; round++) {
      int base = g_allocs;
      g_frees = 0;
      std::vector<void*> ptrs;
      for (int i = 0; i < 20; i++) ptrs.push_back(rtxMemHeapAlloc(&ctxt, 24));
      for (void* p : ptrs) EXPECT_TRUE(inLent(p));
      EXPECT_EQ(base, g_allocs);
      for (int i = 0; i < 40; i++) ptrs.push_back(rtxMemHeapAlloc(&ctxt, 24));  // beyond the lent block
      EXPECT_FALSE(inLent(ptrs.back()));
      EXPECT_EQ(base + 1, g_allocs);
      EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
      for (size_t i = 0; i < ptrs.size(); i += 2) rtxMemHeapFreePtr(&ctxt, ptrs[i]);
      EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
      rtxMemHeapFreeAll(&ctxt);  // keeps the lent block for the next round
      EXPECT_EQ(1, g_frees);
   }
   g_frees = 0;
   rtxFreeContext(&ctxt);
   EXPECT_EQ(1, g_frees);  // the heap record only

   QSCTXT other;
   ASSERT_EQ(0, rtxInitContext(&other));
   EXPECT_EQ(0, rtxMemHeapLendBlock(&other, lent, 16));  // too small: ignored
   EXPECT_FALSE(inLent(rtxMemHeapAlloc(&other, 8)));
   rtxFreeContext(&other);
}

TEST(HeapDeathTest, ValidatedFreeOfAForeignPointerEndsTheProcess)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
      {
         QSCTXT ctxt;
         rtxInitContext(&ctxt);
         rtxMemHeapAlloc(&ctxt, 8);
         rtxMemHeapSetFlags(&ctxt, RT_MH_VALIDATEPTR);
         int x = 0;
         rtxMemHeapFreePtr(&ctxt, &x);
         std::exit(0);
      },
      ::testing::ExitedWithCode(255), "");
}

TEST(HeapDeathTest, AnElementIndexBeyondTheLastEndsTheProcess)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
      {
         QSCTXT ctxt;
         rtxInitContext(&ctxt);
         QSOCTET* p = static_cast<QSOCTET*>(rtxMemHeapAlloc(&ctxt, 8));
         p[-4] = 0xFF;  // the element's own index, bytes 4 and 5 of its header
         p[-3] = 0xFF;
         rtxMemHeapFreePtr(&ctxt, p);
         std::exit(0);
      },
      ::testing::ExitedWithCode(255), "");
}
