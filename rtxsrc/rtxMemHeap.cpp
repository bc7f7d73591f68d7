/*
 * Memory heap of a context.
 *
 * Small blocks: a 32-byte header followed by a data area of 8-byte units,
 * cut into elements. Every element starts with an 8-byte header (size in
 * units including the header, size of the element before it, own index,
 * flags, reference count); a free element keeps the indices of its free-list
 * neighbours right after its header. Freed elements are merged with free
 * neighbours; a block that becomes entirely free is given back to the system
 * unless it is the last small block.
 *
 * Large blocks: one system allocation each, a 32-byte header whose last two
 * bytes (flags 4, reference count) sit where an element header keeps them.
 */
#include "rtxsrc/rtxMemory.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

#define MODULE "../../rtxsrc/rtxMemHeap.cpp"

namespace {

const QSUINT8 ELEM_FREE = 1;
const QSUINT8 ELEM_LARGE = 4;
const QSUINT8 BLK_LENT = 1;           /* state[0] of a block lent by the caller */
const QSUINT16 NIL = 0xFFFF;          /* no element (indices stop at 0xFFFE) */
const QSUINT16 RUN_UNKNOWN = 0xFFFF;  /* largest free run not known */
const unsigned SEARCH_BLOCKS = 16;      /* blocks searched for a free run at most */
const size_t LARGE_UNITS = 0xFFFD;    /* requests of this many units or more get a large block */
const QSUINT32 MAX_INDEX = 0xFFFE;    /* highest element index of a small block */

QSUINT32 g_defBlkSize = RT_MH_DEFBLKSIZE;

}  // namespace

struct QSMemBlk {
   QSMemBlk* next;
   QSMemBlk* prev;
   QSUINT16 freeHead;    /* first free element, NIL when none */
   QSUINT16 nunits;      /* units in the data area */
   QSUINT16 freeUnits;
   QSUINT16 maxFree;     /* largest free run, RUN_UNKNOWN when not known */
   QSUINT32 stamp;
   QSUINT8 state[4];     /* [0]: BLK_LENT; the rest reserved */
};

namespace {

struct QSMemElem {
   QSUINT16 nunits;      /* header included */
   QSUINT16 prevUnits;   /* size of the element before, 0 for the first */
   QSUINT16 index;       /* units from the start of the data area */
   QSUINT8 flags;
   QSUINT8 refcnt;
};

struct QSMemFreeLinks {
   QSUINT16 prevFree;
   QSUINT16 nextFree;
};

struct QSMemRawBlk {
   QSMemLink link;
   QSSIZE size;          /* bytes requested */
   QSUINT32 stamp;
   QSUINT8 spare[2];
   QSUINT8 flags;        /* always ELEM_LARGE */
   QSUINT8 refcnt;
};

static_assert(sizeof(QSMemBlk) == 32, "small block header is 32 bytes");
static_assert(sizeof(QSMemElem) == 8, "element header is 8 bytes");
static_assert(sizeof(QSMemRawBlk) == 32, "large block header is 32 bytes");

/* ---- addressing ------------------------------------------------------------------------------- */

inline QSOCTET* dataOf(QSMemBlk* blk) { return reinterpret_cast<QSOCTET*>(blk + 1); }

inline QSMemElem* elemAt(QSMemBlk* blk, QSUINT32 idx)
{
   return reinterpret_cast<QSMemElem*>(dataOf(blk) + (size_t)idx * 8);
}

inline QSMemBlk* blockOf(QSMemElem* e)
{
   return reinterpret_cast<QSMemBlk*>(reinterpret_cast<QSOCTET*>(e) - (size_t)e->index * 8) - 1;
}

inline QSMemFreeLinks* linksOf(QSMemElem* e) { return reinterpret_cast<QSMemFreeLinks*>(e + 1); }

/* An index beyond the last one a block can have means the heap is broken. */
inline void checkIndex(QSUINT32 idx)
{
   if (idx > MAX_INDEX) rtxErrAssertionFailed("element index in range", __LINE__, MODULE);
}

/* Element following e, null when e is the last of its block. */
inline QSMemElem* nextElem(QSMemBlk* blk, QSMemElem* e)
{
   QSUINT32 idx = (QSUINT32)e->index + e->nunits;
   return (idx < blk->nunits) ? elemAt(blk, idx) : nullptr;
}

inline uintptr_t addr(const void* p) { return reinterpret_cast<uintptr_t>(p); }

void widenBounds(QSMemHeap* heap, void* lo, size_t size)
{
   void* hi = static_cast<QSOCTET*>(lo) + size;
   if (heap->minAddr == nullptr || addr(lo) < addr(heap->minAddr)) heap->minAddr = lo;
   if (heap->maxAddr == nullptr || addr(hi) > addr(heap->maxAddr)) heap->maxAddr = hi;
}

/* ---- free lists ------------------------------------------------------------------------------- */

void unlinkFree(QSMemBlk* blk, QSMemElem* e)
{
   QSMemFreeLinks* l = linksOf(e);
   if (l->prevFree != NIL) linksOf(elemAt(blk, l->prevFree))->nextFree = l->nextFree;
   else blk->freeHead = l->nextFree;
   if (l->nextFree != NIL) linksOf(elemAt(blk, l->nextFree))->prevFree = l->prevFree;
}

void pushFree(QSMemBlk* blk, QSMemElem* e)
{
   QSMemFreeLinks* l = linksOf(e);
   l->prevFree = NIL;
   l->nextFree = blk->freeHead;
   if (blk->freeHead != NIL) linksOf(elemAt(blk, blk->freeHead))->prevFree = e->index;
   blk->freeHead = e->index;
   e->flags = ELEM_FREE;
   e->refcnt = 0;
}

inline void setFollowingPrev(QSMemBlk* blk, QSMemElem* e)
{
   QSMemElem* f = nextElem(blk, e);
   if (f != nullptr) f->prevUnits = e->nunits;
}

/* e is in use and spans e->nunits units; keeps `needed` of them and makes
 * the rest a free element when it is at least 2 units. */
void splitTail(QSMemBlk* blk, QSMemElem* e, QSUINT32 needed)
{
   QSUINT32 rest = (QSUINT32)e->nunits - needed;
   if (rest < 2) return;
   e->nunits = (QSUINT16)needed;
   QSMemElem* r = elemAt(blk, (QSUINT32)e->index + needed);
   r->nunits = (QSUINT16)rest;
   r->prevUnits = (QSUINT16)needed;
   checkIndex((QSUINT32)e->index + needed);
   r->index = (QSUINT16)(e->index + needed);
   pushFree(blk, r);
   setFollowingPrev(blk, r);
   blk->freeUnits = (QSUINT16)(blk->freeUnits + rest);
}

/* Hands out free element e with `needed` units. */
void takeElem(QSMemBlk* blk, QSMemElem* e, QSUINT32 needed)
{
   unlinkFree(blk, e);
   blk->freeUnits = (QSUINT16)(blk->freeUnits - e->nunits);
   e->flags = 0;
   e->refcnt = 1;
   splitTail(blk, e, needed);
}

/* First fit with a one-step look-ahead for a tighter fit. */
QSMemElem* allocFromBlock(QSMemBlk* blk, QSUINT32 needed)
{
   QSUINT16 largest = 0;
   for (QSUINT16 idx = blk->freeHead; idx != NIL;) {
      QSMemElem* e = elemAt(blk, idx);
      QSUINT16 nextIdx = linksOf(e)->nextFree;
      if (e->nunits >= needed) {
         if (nextIdx != NIL) {
            QSMemElem* n = elemAt(blk, nextIdx);
            if (n->nunits >= needed && n->nunits < e->nunits) e = n;
         }
         takeElem(blk, e, needed);
         blk->maxFree = RUN_UNKNOWN;
         return e;
      }
      if (e->nunits > largest) largest = e->nunits;
      idx = nextIdx;
   }
   blk->maxFree = largest;
   return nullptr;
}

/* The heap's bound on the free runs of its small blocks only grows here, where a run may get
 * longer (a new or reset block, a free); allocations only shorten runs. A full search that finds
 * nothing makes it exact again. */
inline void raiseBound(QSMemHeap* heap, QSUINT32 units)
{
   if (units > heap->freeBound) heap->freeBound = units;
}

void resetBlock(QSMemBlk* blk)
{
   QSMemElem* e = elemAt(blk, 0);
   e->nunits = blk->nunits;
   e->prevUnits = 0;
   e->index = 0;
   blk->freeHead = NIL;
   pushFree(blk, e);
   blk->freeUnits = blk->nunits;
   blk->maxFree = blk->nunits;
}

QSMemElem* newBlock(QSMemHeap* heap, QSUINT32 needed)
{
   size_t size = heap->defBlkSize;
   size_t want = ((size_t)needed + 2) * 8 + sizeof(QSMemBlk);
   /* a block size of 0 rounds to the request itself */
   size_t step = (size != 0) ? size : 1;
   if (want >= size) size = (want + step - 1) / step * step;
   if (size > RT_MH_MAXBLKSIZE) size = RT_MH_MAXBLKSIZE;

   QSMemBlk* blk;
   bool lent = heap->lentBlk != nullptr && want <= (size_t)heap->lentSize;
   if (lent) {
      blk = heap->lentBlk;
      size = (size_t)heap->lentSize;
      heap->lentBlk = nullptr;
   }
   else {
      blk = static_cast<QSMemBlk*>(heap->allocFunc(size));
      if (blk == nullptr) return nullptr;
   }
   std::memset(blk, 0, sizeof(QSMemBlk));
   if (lent) blk->state[0] = BLK_LENT;
   blk->nunits = (QSUINT16)((size - sizeof(QSMemBlk)) / 8);
   blk->stamp = heap->keyStamp;

   QSMemBlk* cur = heap->curBlk;
   if (cur == nullptr) {
      blk->next = blk->prev = blk;
   }
   else {
      blk->next = cur;
      blk->prev = cur->prev;
      cur->prev->next = blk;
      cur->prev = blk;
   }
   heap->curBlk = blk;
   widenBounds(heap, blk, size);

   resetBlock(blk);
   QSMemElem* e = elemAt(blk, 0);
   takeElem(blk, e, needed);
   blk->maxFree = (blk->freeHead != NIL) ? blk->freeUnits : 0;
   raiseBound(heap, blk->maxFree);
   return e;
}

void unlinkBlock(QSMemHeap* heap, QSMemBlk* blk)
{
   if (heap->curBlk == blk) heap->curBlk = (blk->next != blk) ? blk->next : nullptr;
   blk->prev->next = blk->next;
   blk->next->prev = blk->prev;
}

void freeElem(QSMemHeap* heap, QSMemBlk* blk, QSMemElem* e)
{
   blk->freeUnits = (QSUINT16)(blk->freeUnits + e->nunits);
   QSMemElem* n = nextElem(blk, e);
   if (n != nullptr && (n->flags & ELEM_FREE)) {
      unlinkFree(blk, n);
      e->nunits = (QSUINT16)(e->nunits + n->nunits);
   }
   QSMemElem* p = (e->index > 0) ? elemAt(blk, (QSUINT32)e->index - e->prevUnits) : nullptr;
   if (p != nullptr && (p->flags & ELEM_FREE)) {
      p->nunits = (QSUINT16)(p->nunits + e->nunits);
      e = p;
   }
   else {
      pushFree(blk, e);
   }
   setFollowingPrev(blk, e);
   if (blk->maxFree != RUN_UNKNOWN && e->nunits > blk->maxFree) blk->maxFree = e->nunits;
   raiseBound(heap, e->nunits);

   if (blk->freeUnits == blk->nunits && blk->next != blk && !(blk->state[0] & BLK_LENT)) {
      unlinkBlock(heap, blk);
      heap->freeFunc(blk);
   }
}

/* ---- large blocks ----------------------------------------------------------------------------- */

void linkRaw(QSMemHeap* heap, QSMemRawBlk* raw)
{
   QSMemLink* head = &heap->rawBlkList;
   raw->link.next = head;
   raw->link.prev = head->prev;
   head->prev->next = &raw->link;
   head->prev = &raw->link;
}

void unlinkRaw(QSMemRawBlk* raw)
{
   raw->link.prev->next = raw->link.next;
   raw->link.next->prev = raw->link.prev;
}

void* allocRaw(QSMemHeap* heap, size_t nbytes)
{
   if (nbytes > SIZE_MAX - sizeof(QSMemRawBlk)) return nullptr;
   QSMemRawBlk* raw = static_cast<QSMemRawBlk*>(heap->allocFunc(nbytes + sizeof(QSMemRawBlk)));
   if (raw == nullptr) return nullptr;
   std::memset(raw, 0, sizeof(QSMemRawBlk));
   raw->size = nbytes;
   raw->stamp = heap->keyStamp;
   raw->flags = ELEM_LARGE;
   raw->refcnt = 1;
   linkRaw(heap, raw);
   widenBounds(heap, raw, nbytes + sizeof(QSMemRawBlk));
   return raw + 1;
}

void freeRaw(QSMemHeap* heap, QSMemRawBlk* raw)
{
   unlinkRaw(raw);
   if (heap->flags & RT_MH_ZEROONFREE) std::memset(raw, 0, raw->size + sizeof(QSMemRawBlk));
   heap->freeFunc(raw);
}

void freeAllRaw(QSMemHeap* heap)
{
   QSMemLink* head = &heap->rawBlkList;
   while (head->next != head) freeRaw(heap, reinterpret_cast<QSMemRawBlk*>(head->next));
}

/* ---- locating an allocation ------------------------------------------------------------------- */

struct Loc {
   QSMemRawBlk* raw;   /* large block, or */
   QSMemBlk* blk;      /* small block and element */
   QSMemElem* elem;
};

/* Quick ownership test: address bounds and the block's check stamp. */
bool locate(const QSMemHeap* heap, const void* mem, Loc& loc)
{
   uintptr_t a = addr(mem);
   if (heap->minAddr == nullptr || a < addr(heap->minAddr) + sizeof(QSMemElem) ||
       a >= addr(heap->maxAddr))
      return false;
   const QSOCTET* p = static_cast<const QSOCTET*>(mem);
   if (p[-2] & ELEM_LARGE) {
      if (a < addr(heap->minAddr) + sizeof(QSMemRawBlk)) return false;
      QSMemRawBlk* raw = reinterpret_cast<QSMemRawBlk*>(const_cast<QSOCTET*>(p)) - 1;
      if (raw->stamp != heap->keyStamp) return false;
      loc = Loc{ raw, nullptr, nullptr };
      return true;
   }
   QSMemElem* e = reinterpret_cast<QSMemElem*>(const_cast<QSOCTET*>(p)) - 1;
   checkIndex(e->index);
   if (a < addr(heap->minAddr) + sizeof(QSMemBlk) + (size_t)e->index * 8 + sizeof(QSMemElem))
      return false;
   QSMemBlk* blk = blockOf(e);
   if (blk->stamp != heap->keyStamp || e->index >= blk->nunits) return false;
   loc = Loc{ nullptr, blk, e };
   return true;
}

inline QSUINT8& refOf(void* mem) { return static_cast<QSOCTET*>(mem)[-1]; }
inline QSUINT8 flagsOf(void* mem) { return static_cast<QSOCTET*>(mem)[-2]; }

void checkOrDie(QSCTXT* ctxt)
{
   if (rtxMemHeapCheck(ctxt) != 0) rtxErrAssertionFailed("heap consistent", __LINE__, MODULE);
}

/* Ownership test before freeing or reallocating: the full test with
 * RT_MH_VALIDATEPTR (a failure ends the process), the quick one otherwise. */
bool validate(QSCTXT* ctxt, void* mem, Loc& loc)
{
   QSMemHeap* heap = ctxt->pMemHeap;
   if (heap->flags & RT_MH_CHECKHEAP) checkOrDie(ctxt);
   if ((heap->flags & RT_MH_VALIDATEPTR) && !rtxMemHeapCheckPtr(ctxt, mem)) {
      rtxMemHeapInvalidPtrHook(ctxt, mem);
      return false;
   }
   return locate(heap, mem, loc);
}

inline size_t unitsOf(size_t nbytes) { return nbytes / 8 + ((nbytes % 8) != 0); }

void* allocStatic(QSMemHeap* heap, size_t nbytes)
{
   if (nbytes > heap->staticSize - heap->staticUsed) return nullptr;
   void* p = heap->staticBuf + heap->staticUsed;
   heap->staticUsed += nbytes;
   return p;
}

inline QSMemHeap* heapOf(QSCTXT* ctxt) { return (ctxt != nullptr) ? ctxt->pMemHeap : nullptr; }

}  // namespace

/* ---- creation and release --------------------------------------------------------------------- */

int rtxMemHeapCreate(QSCTXT* ctxt)
{
   return rtxMemHeapCreateExt(ctxt, nullptr, nullptr, nullptr);
}

int rtxMemHeapCreateExt(QSCTXT* ctxt, QSMemAllocFunc allocFunc, QSMemReallocFunc reallocFunc,
                        QSMemFreeFunc freeFunc)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   /* The default heap of a context without one keeps its record in the room the context has
    * for it instead of allocating it; the record is reported and released as an allocated one
    * (flag 0x10000000), only the system allocator is not asked for it. Given functions, or a
    * heap that replaces one still held, get a record allocated with the heap's function. */
   static_assert(sizeof(QSMemHeap) <= QS_HEAPRECORD_SIZE, "heap record does not fit the context");
   bool inContext = (ctxt->pMemHeap == nullptr && allocFunc == nullptr && reallocFunc == nullptr &&
                     freeFunc == nullptr);
   if (allocFunc == nullptr) allocFunc = std::malloc;
   if (reallocFunc == nullptr) reallocFunc = std::realloc;
   if (freeFunc == nullptr) freeFunc = std::free;
   QSMemHeap* heap = inContext ? reinterpret_cast<QSMemHeap*>(ctxt->heapRecord)
                               : static_cast<QSMemHeap*>(allocFunc(sizeof(QSMemHeap)));
   if (heap == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   if (ctxt->pMemHeap != nullptr) rtxMemHeapRelease(ctxt);

   std::memset(heap, 0, sizeof(QSMemHeap));
   heap->rawBlkList.next = heap->rawBlkList.prev = &heap->rawBlkList;
   heap->defBlkSize = g_defBlkSize;
   heap->refCnt = 1;
   heap->flags = RT_MH_FREEHEAPDESC;
   heap->allocFunc = allocFunc;
   heap->reallocFunc = reallocFunc;
   heap->freeFunc = freeFunc;
   heap->keyStamp = (QSUINT32)(addr(heap) >> 3) ^ 0x5eed1e55U;
   ctxt->pMemHeap = heap;
   return 0;
}

int rtxMemStaticHeapCreate(QSCTXT* ctxt, void* buf, QSSIZE size)
{
   if (ctxt == nullptr || buf == nullptr) return RTERR_INVALID_PARAMETER;
   size_t skip = (8 - addr(buf) % 8) % 8;
   if (size < skip + sizeof(QSMemHeap)) return RTERR_INVALID_PARAMETER;
   if (ctxt->pMemHeap != nullptr) rtxMemHeapRelease(ctxt);

   QSMemHeap* heap = reinterpret_cast<QSMemHeap*>(static_cast<QSOCTET*>(buf) + skip);
   std::memset(heap, 0, sizeof(QSMemHeap));
   heap->rawBlkList.next = heap->rawBlkList.prev = &heap->rawBlkList;
   heap->defBlkSize = g_defBlkSize;
   heap->refCnt = 1;
   heap->flags = RT_MH_STATIC;
   heap->allocFunc = std::malloc;
   heap->reallocFunc = std::realloc;
   heap->freeFunc = std::free;
   heap->staticBuf = reinterpret_cast<QSOCTET*>(heap + 1);
   heap->staticSize = size - skip - sizeof(QSMemHeap);
   ctxt->pMemHeap = heap;
   return 0;
}

int rtxMemHeapLendBlock(QSCTXT* ctxt, void* buf, QSSIZE size)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr || buf == nullptr || (heap->flags & RT_MH_STATIC)) return RTERR_INVALID_PARAMETER;
   size_t skip = (8 - addr(buf) % 8) % 8;
   if (size < skip) return 0;
   size_t usable = (size - skip) / 8 * 8;
   if (usable > RT_MH_MAXBLKSIZE) usable = RT_MH_MAXBLKSIZE;
   if (usable < sizeof(QSMemBlk) + 4 * sizeof(QSMemElem)) return 0;
   QSOCTET* p = static_cast<QSOCTET*>(buf) + skip;
   heap->lentBlk = reinterpret_cast<QSMemBlk*>(p);
   heap->lentSize = (QSSIZE)usable;
   return 0;
}

void rtxMemHeapAddRef(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap != nullptr) heap->refCnt++;
}

void rtxMemHeapRelease(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr) return;
   if (--heap->refCnt == 0) {
      rtxMemHeapFreeAll(ctxt);
      if ((heap->flags & RT_MH_FREEHEAPDESC) && static_cast<void*>(heap) != ctxt->heapRecord)
         heap->freeFunc(heap);
      ctxt->pMemHeap = nullptr;
   }
}

/* ---- allocation ------------------------------------------------------------------------------- */

void* rtxMemHeapAlloc(QSCTXT* ctxt, size_t nbytes)
{
   if (ctxt == nullptr) return nullptr;
   if (ctxt->pMemHeap == nullptr && rtxMemHeapCreate(ctxt) != 0) return nullptr;
   QSMemHeap* heap = ctxt->pMemHeap;

   if (heap->flags & (RT_MH_STATIC | RT_MH_CHECKHEAP | RT_MH_USESYSALLOC)) {
      if (heap->flags & RT_MH_STATIC) return allocStatic(heap, nbytes);
      if (heap->flags & RT_MH_CHECKHEAP) checkOrDie(ctxt);
      if (heap->flags & RT_MH_USESYSALLOC) return allocRaw(heap, nbytes);
   }

   size_t units = unitsOf(nbytes);
   if (units >= LARGE_UNITS) return allocRaw(heap, nbytes);
   QSUINT32 needed = (units == 0) ? 2 : (QSUINT32)units + 1;

   /* The usual case: the current block has one free run, at its end, long enough to leave a
    * free run behind the request. The request is cut from its front, exactly as the search
    * below would do it, without walking the free list. */
   QSMemBlk* cur = heap->curBlk;
   if (cur != nullptr && cur->freeHead != NIL) {
      QSMemElem* e = elemAt(cur, cur->freeHead);
      QSUINT32 idx = e->index;
      QSUINT32 run = e->nunits;
      if (run >= needed + 2 && idx + run == cur->nunits && linksOf(e)->nextFree == NIL) {
         QSUINT32 rest = run - needed;
         e->nunits = (QSUINT16)needed;
         e->flags = 0;
         e->refcnt = 1;
         QSMemElem* r = elemAt(cur, idx + needed);
         r->nunits = (QSUINT16)rest;
         r->prevUnits = (QSUINT16)needed;
         r->index = (QSUINT16)(idx + needed);
         r->flags = ELEM_FREE;
         r->refcnt = 0;
         linksOf(r)->prevFree = NIL;
         linksOf(r)->nextFree = NIL;
         cur->freeHead = r->index;
         cur->freeUnits = (QSUINT16)(cur->freeUnits - needed);
         cur->maxFree = (QSUINT16)rest;
         return e + 1;
      }
   }

   /* Searching the ring costs a step per block, so a heap of many blocks would make every
    * allocation that misses the current block as slow as the heap is large, and a long input
    * quadratic. The search is skipped when no block can have a run long enough, and it visits
    * at most SEARCH_BLOCKS blocks: past them, a new block is cheaper than the search. */
   QSMemBlk* start = heap->curBlk;
   if (start != nullptr && needed <= heap->freeBound) {
      QSMemBlk* blk = start;
      QSUINT32 longest = 0;
      unsigned visits = 0;
      do {
         if (++visits > SEARCH_BLOCKS) {
            longest = heap->freeBound;
            break;
         }
         if (blk->maxFree >= needed) {
            QSMemElem* e = allocFromBlock(blk, needed);
            if (e != nullptr) {
               heap->curBlk = blk;
               return e + 1;
            }
         }
         if (blk->maxFree > longest) longest = blk->maxFree;
         blk = blk->next;
      } while (blk != start);
      heap->freeBound = longest;
   }
   QSMemElem* e = newBlock(heap, needed);
   return (e != nullptr) ? e + 1 : nullptr;
}

void* rtxMemHeapAllocZ(QSCTXT* ctxt, size_t nbytes)
{
   void* p = rtxMemHeapAlloc(ctxt, nbytes);
   if (p != nullptr) std::memset(p, 0, nbytes);
   return p;
}

void* rtxMemAllocArray2(QSCTXT* ctxt, QSSIZE count, QSSIZE elemSize, QSUINT32 options)
{
   QSUINT64 total = (QSUINT64)count * (QSUINT64)elemSize;
   if (total < count) {
      rtxErrSetData(ctxt, RTERR_VALUE_WILL_NOT_FIT, MODULE, __LINE__);
      return nullptr;
   }
   void* p = (options & RT_MH_SYSALLOC) ? rtxMemHeapSysAlloc(ctxt, (size_t)total)
                                         : rtxMemHeapAlloc(ctxt, (size_t)total);
   if (p == nullptr) {
      rtxErrSetData(ctxt, RTERR_NO_DYNAMIC_MEMORY, MODULE, __LINE__);
      return nullptr;
   }
   if (options & RT_MH_ZEROARRAY) std::memset(p, 0, (size_t)total);
   return p;
}

void* rtxMemHeapRealloc(QSCTXT* ctxt, void* mem, size_t nbytes)
{
   if (mem == nullptr) return rtxMemHeapAlloc(ctxt, nbytes);
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr) return nullptr;

   size_t oldSize;
   if (heap->flags & RT_MH_STATIC) {
      QSOCTET* end = heap->staticBuf + heap->staticUsed;
      QSOCTET* p = static_cast<QSOCTET*>(mem);
      if (p < heap->staticBuf || p >= end) return nullptr;
      oldSize = (size_t)(end - p);
   }
   else {
      Loc loc;
      if (!validate(ctxt, mem, loc)) return nullptr;
      if (loc.raw != nullptr) {
         if (unitsOf(nbytes) >= LARGE_UNITS || (heap->flags & RT_MH_USESYSALLOC)) {
            if (nbytes > SIZE_MAX - sizeof(QSMemRawBlk)) return nullptr;
            unlinkRaw(loc.raw);
            QSMemRawBlk* raw = static_cast<QSMemRawBlk*>(
               heap->reallocFunc(loc.raw, nbytes + sizeof(QSMemRawBlk)));
            linkRaw(heap, (raw != nullptr) ? raw : loc.raw);
            if (raw == nullptr) return nullptr;
            raw->size = nbytes;
            widenBounds(heap, raw, nbytes + sizeof(QSMemRawBlk));
            return raw + 1;
         }
         oldSize = loc.raw->size;
      }
      else {
         QSMemElem* e = loc.elem;
         oldSize = ((size_t)e->nunits - 1) * 8;
         if (nbytes <= oldSize) return mem;
         size_t units = unitsOf(nbytes);
         QSMemElem* n = nextElem(loc.blk, e);
         if (units < LARGE_UNITS && n != nullptr && (n->flags & ELEM_FREE) &&
             (size_t)e->nunits + n->nunits >= units + 1) {
            /* grow into the free neighbour */
            unlinkFree(loc.blk, n);
            loc.blk->freeUnits = (QSUINT16)(loc.blk->freeUnits - n->nunits);
            e->nunits = (QSUINT16)(e->nunits + n->nunits);
            setFollowingPrev(loc.blk, e);
            splitTail(loc.blk, e, (QSUINT32)units + 1);
            loc.blk->maxFree = RUN_UNKNOWN;
            return mem;
         }
      }
   }
   void* p = rtxMemHeapAlloc(ctxt, nbytes);
   if (p == nullptr) return nullptr;
   std::memcpy(p, mem, (oldSize < nbytes) ? oldSize : nbytes);
   rtxMemHeapFreePtr(ctxt, mem);
   return p;
}

void rtxMemHeapFreePtr(QSCTXT* ctxt, void* mem)
{
   if (mem == nullptr) return;  /* the generated decoders free keys that are mostly null */
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr || (heap->flags & RT_MH_STATIC)) return;
   rtxMemHeapAutoPtrUnref(ctxt, mem);
}

void rtxMemHeapReset(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr) return;
   heap->staticUsed = 0;
   freeAllRaw(heap);
   QSMemBlk* blk = heap->curBlk;
   if (blk != nullptr) {
      do {
         resetBlock(blk);
         raiseBound(heap, blk->maxFree);
         blk = blk->next;
      } while (blk != heap->curBlk);
   }
}

void rtxMemHeapFreeAll(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr) return;
   heap->staticUsed = 0;
   freeAllRaw(heap);
   while (heap->curBlk != nullptr) {
      QSMemBlk* blk = heap->curBlk;
      unlinkBlock(heap, blk);
      if (blk->state[0] & BLK_LENT) heap->lentBlk = blk;
      else heap->freeFunc(blk);
   }
   heap->minAddr = heap->maxAddr = nullptr;
}

/* ---- per-allocation reference counts ---------------------------------------------------------- */

void* rtxMemHeapAutoPtrRef(QSCTXT* ctxt, void* mem)
{
   QSMemHeap* heap = heapOf(ctxt);
   Loc loc;
   if (mem == nullptr || heap == nullptr || (heap->flags & RT_MH_STATIC) ||
       !locate(heap, mem, loc))
      return nullptr;
   QSUINT8& ref = refOf(mem);
   if ((flagsOf(mem) & ELEM_FREE) || ref == 0 || ref == 255) return nullptr;
   ref++;
   return mem;
}

int rtxMemHeapAutoPtrUnref(QSCTXT* ctxt, void* mem)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (mem == nullptr || heap == nullptr) return RTERR_UNEXPECTED_NULL_POINTER;
   if (heap->flags & RT_MH_STATIC) return 0;
   Loc loc;
   if (!validate(ctxt, mem, loc)) return RTERR_NO_DYNAMIC_MEMORY;
   QSUINT8& ref = refOf(mem);
   if ((flagsOf(mem) & ELEM_FREE) || ref == 0) return 0;
   if (ref > 1) return --ref;
   ref = 0;
   if (loc.raw != nullptr) freeRaw(heap, loc.raw);
   else freeElem(heap, loc.blk, loc.elem);
   return 0;
}

int rtxMemHeapAutoPtrGetRefCount(QSCTXT* ctxt, void* mem)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (mem == nullptr || heap == nullptr) return RTERR_UNEXPECTED_NULL_POINTER;
   Loc loc;
   if ((heap->flags & RT_MH_STATIC) || !locate(heap, mem, loc)) return RTERR_NO_DYNAMIC_MEMORY;
   return (flagsOf(mem) & ELEM_FREE) ? 0 : refOf(mem);
}

/* ---- inspection ------------------------------------------------------------------------------- */

QSBOOL rtxMemHeapIsEmpty(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr) return TRUE;
   if (heap->flags & RT_MH_STATIC) return heap->staticUsed == 0;
   if (heap->rawBlkList.next != &heap->rawBlkList) return FALSE;
   QSMemBlk* blk = heap->curBlk;
   if (blk != nullptr) {
      do {
         if (blk->freeUnits != blk->nunits) return FALSE;
         blk = blk->next;
      } while (blk != heap->curBlk);
   }
   return TRUE;
}

QSBOOL rtxMemHeapCheckPtr(QSCTXT* ctxt, const void* mem)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr || mem == nullptr) return FALSE;
   if (heap->flags & RT_MH_STATIC)
      return mem >= heap->staticBuf && mem < heap->staticBuf + heap->staticUsed;

   for (QSMemLink* l = heap->rawBlkList.next; l != &heap->rawBlkList; l = l->next) {
      QSMemRawBlk* raw = reinterpret_cast<QSMemRawBlk*>(l);
      if (raw + 1 == mem) return raw->refcnt != 0;
   }
   QSMemBlk* blk = heap->curBlk;
   if (blk == nullptr) return FALSE;
   do {
      QSOCTET* lo = dataOf(blk);
      if (addr(mem) > addr(lo) && addr(mem) < addr(lo + (size_t)blk->nunits * 8)) {
         for (QSMemElem* e = elemAt(blk, 0); e != nullptr; e = nextElem(blk, e)) {
            if (e + 1 == mem) return !(e->flags & ELEM_FREE);
         }
         return FALSE;
      }
      blk = blk->next;
   } while (blk != heap->curBlk);
   return FALSE;
}

namespace {

int heapFault(const char* what, const void* where, unsigned idx)
{
   std::printf("heap check: %s (block %p, element %u)\n", what, where, idx);
   return RTERR_GENERAL_FAILURE;
}

int checkBlock(const QSMemHeap* heap, QSMemBlk* blk)
{
   if (blk->stamp != heap->keyStamp) return heapFault("bad check stamp", blk, 0);
   if (blk->next->prev != blk) return heapFault("broken block links", blk, 0);
   QSUINT32 idx = 0, prevUnits = 0, freeUnits = 0, freeCount = 0;
   while (idx < blk->nunits) {
      QSMemElem* e = elemAt(blk, idx);
      if (e->index != idx) return heapFault("wrong element index", blk, idx);
      if (e->prevUnits != prevUnits) return heapFault("wrong previous size", blk, idx);
      if (e->nunits < 2 || idx + e->nunits > blk->nunits)
         return heapFault("bad element size", blk, idx);
      if (e->flags & ELEM_FREE) {
         freeUnits += e->nunits;
         freeCount++;
      }
      prevUnits = e->nunits;
      idx += e->nunits;
   }
   if (freeUnits != blk->freeUnits) return heapFault("wrong free unit count", blk, 0);
   QSUINT16 prev = NIL;
   for (QSUINT16 f = blk->freeHead; f != NIL; f = linksOf(elemAt(blk, f))->nextFree) {
      if (f >= blk->nunits || freeCount == 0) return heapFault("broken free list", blk, f);
      QSMemElem* e = elemAt(blk, f);
      if (!(e->flags & ELEM_FREE) || linksOf(e)->prevFree != prev)
         return heapFault("broken free list", blk, f);
      prev = f;
      freeCount--;
   }
   if (freeCount != 0) return heapFault("free element not in the free list", blk, 0);
   return 0;
}

}  // namespace

int rtxMemHeapCheck(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap == nullptr || (heap->flags & RT_MH_STATIC)) return 0;
   for (QSMemLink* l = heap->rawBlkList.next; l != &heap->rawBlkList; l = l->next) {
      QSMemRawBlk* raw = reinterpret_cast<QSMemRawBlk*>(l);
      if (raw->stamp != heap->keyStamp || raw->flags != ELEM_LARGE || l->next->prev != l)
         return heapFault("bad large block", raw, 0);
   }
   QSMemBlk* blk = heap->curBlk;
   if (blk != nullptr) {
      do {
         int stat = checkBlock(heap, blk);
         if (stat != 0) return stat;
         blk = blk->next;
      } while (blk != heap->curBlk);
   }
   return 0;
}

void rtxMemHeapInvalidPtrHook(QSCTXT*, const void*)
{
   rtxErrAssertionFailed("mem pointer valid", __LINE__, MODULE);
}

/* ---- settings --------------------------------------------------------------------------------- */

void rtxMemHeapSetFlags(QSCTXT* ctxt, QSUINT32 flags)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap != nullptr) heap->flags |= flags;
}

void rtxMemHeapClearFlags(QSCTXT* ctxt, QSUINT32 flags)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap != nullptr) heap->flags &= ~flags;
}

QSUINT32 rtxMemHeapGetFlags(QSCTXT* ctxt)
{
   QSMemHeap* heap = heapOf(ctxt);
   return (heap != nullptr) ? heap->flags : 0;
}

void rtxMemHeapSetDefBlkSize(QSCTXT* ctxt, QSUINT32 blkSize)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap != nullptr) heap->defBlkSize = blkSize;
}

void rtxMemSetDefBlkSize(QSUINT32 blkSize)
{
   g_defBlkSize = blkSize;
}

QSUINT32 rtxMemGetDefBlkSize()
{
   return g_defBlkSize;
}

/* ---- system allocator ------------------------------------------------------------------------- */

void* rtxMemHeapSysAlloc(QSCTXT* ctxt, size_t nbytes)
{
   QSMemHeap* heap = heapOf(ctxt);
   return (heap != nullptr) ? heap->allocFunc(nbytes) : std::malloc(nbytes);
}

void rtxMemHeapSysFreePtr(QSCTXT* ctxt, void* mem)
{
   QSMemHeap* heap = heapOf(ctxt);
   if (heap != nullptr) heap->freeFunc(mem);
   else std::free(mem);
}
