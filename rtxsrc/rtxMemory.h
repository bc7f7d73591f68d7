/*
 * Memory heap of a context.
 *
 * Small requests are cut from blocks (default 4096 bytes) in 8-byte units,
 * each with an 8-byte element header; requests of 0xFFFD units or more get a
 * system allocation of their own ("large block"). Every allocation carries a
 * reference count; everything dies with the heap.
 */
#ifndef RTXMEMORY_H
#define RTXMEMORY_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

typedef void* (*QSMemAllocFunc)(size_t size);
typedef void* (*QSMemReallocFunc)(void* ptr, size_t size);
typedef void (*QSMemFreeFunc)(void* ptr);

/* Heap flags */
#define RT_MH_DONTKEEPFREE   0x00000001U  /* reserved */
#define RT_MH_VALIDATEPTR    0x00000002U  /* verify ownership of a pointer before freeing it */
#define RT_MH_CHECKHEAP      0x00000004U  /* check the heap before every allocation and free */
#define RT_MH_ZEROONFREE     0x00000040U  /* zero a large block before giving it back */
#define RT_MH_FREEHEAPDESC   0x10000000U  /* heap record allocated by the heap, freed with it */
#define RT_MH_USESYSALLOC    0x20000000U  /* every allocation is a large block */
#define RT_MH_STATIC         0x40000000U  /* fixed buffer served by bumping an offset */

/* Options of rtxMemAllocArray2 */
#define RT_MH_ZEROARRAY      0x80U
#define RT_MH_SYSALLOC       0x100U

#define RT_MH_DEFBLKSIZE     4096U
#define RT_MH_MAXBLKSIZE     0x80018U

struct QSMemBlk;

/* Link fields at the start of a large block header. */
struct QSMemLink {
   QSMemLink* next;
   QSMemLink* prev;
};

struct QSMemHeap {
   QSMemLink rawBlkList;       /* circular list of large blocks */
   QSMemBlk* curBlk;           /* entry into the circular list of small blocks */
   void* minAddr;              /* bounds of all memory handed out */
   void* maxAddr;
   QSUINT32 defBlkSize;
   QSINT32 refCnt;
   QSUINT32 flags;
   QSMemAllocFunc allocFunc;
   QSMemReallocFunc reallocFunc;
   QSMemFreeFunc freeFunc;
   QSUINT32 keyStamp;          /* copied into every block header */
   QSUINT32 freeBound;         /* no small block has a free run longer than this (units) */
   /* static heap */
   QSOCTET* staticBuf;
   QSSIZE staticSize;
   QSSIZE staticUsed;
   /* memory of the caller's taken as the next small block instead of a system allocation */
   QSMemBlk* lentBlk;
   QSSIZE lentSize;
};

/* ---- creation and release --------------------------------------------------------------------- */

/* Creates the context's heap with malloc/realloc/free (replacing a heap it holds). */
int rtxMemHeapCreate(QSCTXT* ctxt);
int rtxMemHeapCreateExt(QSCTXT* ctxt, QSMemAllocFunc allocFunc,
                        QSMemReallocFunc reallocFunc, QSMemFreeFunc freeFunc);

/* Makes a static heap inside buf (the heap record is placed at its start);
 * RTERR_INVALID_PARAMETER when buf is too small. */
int rtxMemStaticHeapCreate(QSCTXT* ctxt, void* buf, QSSIZE size);

/* Lends the heap size bytes at buf (owned by the caller, kept alive until the heap is released
 * or the context freed) for its next small block, so that a context on the stack can serve its
 * first allocations without a system allocation. The block is never given to the heap's free
 * function; when the heap frees everything it is kept for the next block again. Ignored (0)
 * when buf is too small for a block; RTERR_INVALID_PARAMETER without a heap or for a static
 * heap. */
int rtxMemHeapLendBlock(QSCTXT* ctxt, void* buf, QSSIZE size);

/* Reference count of the heap record. Release drops the context's reference
 * (its heap pointer becomes null); the last one frees every block and the record. */
void rtxMemHeapAddRef(QSCTXT* ctxt);
void rtxMemHeapRelease(QSCTXT* ctxt);

/* ---- allocation ------------------------------------------------------------------------------- */

void* rtxMemHeapAlloc(QSCTXT* ctxt, size_t nbytes);
void* rtxMemHeapAllocZ(QSCTXT* ctxt, size_t nbytes);
void* rtxMemHeapRealloc(QSCTXT* ctxt, void* mem, size_t nbytes);
void rtxMemHeapFreePtr(QSCTXT* ctxt, void* mem);

/* count x elemSize bytes; records RTERR_VALUE_WILL_NOT_FIT or RTERR_NO_DYNAMIC_MEMORY itself. */
void* rtxMemAllocArray2(QSCTXT* ctxt, QSSIZE count, QSSIZE elemSize, QSUINT32 options);

/* Frees every allocation but keeps the small blocks for reuse. */
void rtxMemHeapReset(QSCTXT* ctxt);

/* Frees every allocation and every block. */
void rtxMemHeapFreeAll(QSCTXT* ctxt);

/* ---- per-allocation reference counts ---------------------------------------------------------- */

void* rtxMemHeapAutoPtrRef(QSCTXT* ctxt, void* mem);
int rtxMemHeapAutoPtrUnref(QSCTXT* ctxt, void* mem);
int rtxMemHeapAutoPtrGetRefCount(QSCTXT* ctxt, void* mem);

/* ---- inspection ------------------------------------------------------------------------------- */

/* TRUE when there is no heap or it holds no live allocation. */
QSBOOL rtxMemHeapIsEmpty(QSCTXT* ctxt);

/* TRUE when mem is a live allocation of the context's heap. */
QSBOOL rtxMemHeapCheckPtr(QSCTXT* ctxt, const void* mem);

/* Verifies the structure of every block; 0, or RTERR_GENERAL_FAILURE after
 * printing what is wrong. */
int rtxMemHeapCheck(QSCTXT* ctxt);

/* Reports a pointer the heap does not own; ends the process. */
void rtxMemHeapInvalidPtrHook(QSCTXT* ctxt, const void* mem);

/* ---- settings --------------------------------------------------------------------------------- */

void rtxMemHeapSetFlags(QSCTXT* ctxt, QSUINT32 flags);
void rtxMemHeapClearFlags(QSCTXT* ctxt, QSUINT32 flags);
QSUINT32 rtxMemHeapGetFlags(QSCTXT* ctxt);

/* Block size of new blocks of this heap. */
void rtxMemHeapSetDefBlkSize(QSCTXT* ctxt, QSUINT32 blkSize);

/* Process-wide default block size taken by new heaps (not thread-safe). */
void rtxMemSetDefBlkSize(QSUINT32 blkSize);
QSUINT32 rtxMemGetDefBlkSize();

/* ---- system allocator ------------------------------------------------------------------------- */

void* rtxMemHeapSysAlloc(QSCTXT* ctxt, size_t nbytes);
void rtxMemHeapSysFreePtr(QSCTXT* ctxt, void* mem);

#endif
