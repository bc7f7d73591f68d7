/*
 * The context record that every runtime and generated function works on:
 * message buffer, memory heap, error list, element-name stack and flags.
 */
#ifndef RTXCONTEXT_H
#define RTXCONTEXT_H

#include <cstdarg>
#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxDList.h"

struct QSMemHeap;
struct QSRTStream;
struct QSCTXT;

/* Value of QSCTXT::initCode while a context is initialised. */
#define QSCTXT_INIT_CODE 0x1aa2a34aU

/* Context flags */
#define QSDIAG        0x80000000U  /* diagnostics on */
#define QSNOERRTRACE  0x01000000U  /* no locations or element names recorded in errors */
#define QSNOELEMNAMES 0x02000000U  /* the element-name stack is not kept: pushes and pops do nothing */
#define QSLICCHECKED  0x00400000U  /* licence state present, released with the context */
#define QSTRACE       0x00002000U  /* PER bit-field trace on */
#define QSXMLCTXT     0x00000008U  /* set by the XML encode and decode paths */

/* Sizes of the error record */
#define QSERR_MAXLOCN 8
#define QSERR_MAXPARMS 5

typedef void (*rtxPrintCallback)(void* userData, const char* fmt, va_list args);

/* Releases the data of one application-data slot when the context is freed. */
typedef void (*rtxAppInfoFreeFunc)(QSCTXT* ctxt, void* info);

/* Called last by rtxFreeContext instead of clearing the init code. */
typedef void (*rtxFreeContextCB)(QSCTXT* ctxt);

/* Message buffer of a context. bitOffset counts down from 8 (8 = nothing
 * of the current byte used yet). */
struct QSRTBuffer {
   QSOCTET* data;
   QSSIZE byteIndex;
   QSSIZE size;
   QSINT16 bitOffset;
   QSBOOL dynamic;   /* allocated by the runtime, freed with the context */
   QSBOOL aligned;   /* PER variant: aligned (1) or unaligned (0) */
};

/* Pending SIZE constraint of the PER codecs. */
struct _Asn1SizeCnst {
   QSUINT64 lower;
   QSUINT64 upper;
   QSBOOL constrained;
   QSBOOL extensible;
};

/* One place a failure passed through. */
struct QSRTErrLocn {
   const char* module;   /* not owned */
   QSINT32 lineno;
};

/* One recorded failure. */
struct QSRTErrInfo {
   QSRTErrLocn stack[QSERR_MAXLOCN];
   QSINT16 status;
   QSUINT8 stkx;                   /* locations in use */
   QSUINT8 parmcnt;                /* parameters in use */
   char* parms[QSERR_MAXPARMS];    /* owned copies in the context heap */
   char* elemName;                 /* owned copy, or null */
   QSBOOL fatal;
};

/* Element-name stack: the names pushed by the codecs while they descend, joined with "." for
 * error texts and the bit trace. Pushing and popping allocate nothing for the first
 * QS_ELEMNAME_INLINE levels; array elements keep their index and are formatted only when a
 * path is built. */
#define QS_ELEMNAME_INLINE 32
#define QS_HEAPRECORD_SIZE 128
struct QSElemName {
   const QSUTF8CHAR* name;
   QSSIZE index;
   QSUINT8 kind;                   /* 0 name, 1 array element name[index], 2 owned copy */
};
struct QSElemNameStack {
   QSElemName* more;               /* all entries, once the stack outgrew the inline ones */
   QSUINT32 count;
   QSUINT32 capacity;
   QSElemName inlineNames[QS_ELEMNAME_INLINE];
};

struct QSCTXT {
   QSMemHeap* pMemHeap;
   QSRTBuffer buffer;
   QSRTDList errInfoList;          /* error records, newest at the tail */
   QSRTErrInfo errInfo;            /* built-in record: pending parameters, out-of-memory record */
   QSRTDListNode errNode;          /* list node of the built-in record */
   QSUINT32 initCode;
   QSUINT32 flags;
   struct QSRTStream* pStream;
   QSRTDList containerStack;       /* open containers of the codecs */
   const QSOCTET* key;             /* licence key (not owned) */
   QSSIZE keylen;
   void* pAppInfo[4];
   rtxAppInfoFreeFunc pAppInfoFree[4];
   void* pBitFldList;
   rtxFreeContextCB pFreeCB;
   QSINT16 spare;
   _Asn1SizeCnst sizeCnst;
   QSUINT16 level;                 /* nesting level */
   QSUINT16 indent;                /* JSON: current indentation in spaces */
   QSOCTET lastChar;               /* JSON: last character written or consumed */
   QSOCTET jsonMode;               /* JSON: separator mode / recogniser state */
   QSUINT8 xmlDepth;               /* XML writer: element nesting level */
   QSUINT8 xmlState;               /* XML writer: what was written last (rtXml.h, QSXMLINIT...) */
   rtxPrintCallback pPrintStrmCB;
   void* pPrintStrmCBArg;
   struct QSEventHandlerList* pEventHandlers;  /* named-event handlers of the decoders, or null */
   /* Last, so that initialisation clears everything before the inline names and leaves them
    * and the heap record to be written when used. */
   QSElemNameStack elemNameStack;
   /* Room for the heap record of the context's own default heap, which then needs no
    * allocation of its own (see rtxMemHeapCreateExt). */
   alignas(8) QSOCTET heapRecord[QS_HEAPRECORD_SIZE];
};

/* ---- life cycle ------------------------------------------------------------------------------- */

/* Registers the runtime status texts, pre-initialises and creates the heap. */
int rtxInitContext(QSCTXT* ctxt);

/* As rtxInitContext with the heap using the given system allocator. */
int rtxInitContextExt(QSCTXT* ctxt, void* (*allocFunc)(size_t),
                      void* (*reallocFunc)(void*, size_t), void (*freeFunc)(void*));

/* Stores the licence key (not copied), then initialises as rtxInitContext. */
int rtxInitContextUsingKey(QSCTXT* ctxt, const QSOCTET* key, QSSIZE keylen);

/* Clears the record and sets the init code; no heap is created. */
int rtxPreInitContext(QSCTXT* ctxt);

/* Releases everything the context owns. Harmless on a freed context. */
void rtxFreeContext(QSCTXT* ctxt);

/* Copies the buffer state (not owned by the destination), the flags and
 * the error list of src into the initialised context dest. */
int rtxCopyContext(QSCTXT* dest, QSCTXT* src);

/* Binds a buffer: the caller's (not owned) or, when buffer is null, a dynamic
 * one from the heap of bufsiz bytes (1024 when bufsiz is 0). */
int rtxInitContextBuffer(QSCTXT* ctxt, QSOCTET* buffer, QSSIZE bufsiz);

/* Stores info in application-data slot (0..3) with the function that releases it
 * when the context is freed (null: the data dies with the heap). */
int rtxCtxtSetAppInfo(QSCTXT* ctxt, int slot, void* info, rtxAppInfoFreeFunc freeFunc);

/* ---- flags ------------------------------------------------------------------------------------ */

void rtxCtxtSetFlag(QSCTXT* ctxt, QSUINT32 mask);
void rtxCtxtClearFlag(QSCTXT* ctxt, QSUINT32 mask);
QSBOOL rtxCtxtTestFlag(const QSCTXT* ctxt, QSUINT32 mask);

/* Switches diagnostics on or off; returns the previous state. */
QSBOOL rtxSetDiag(QSCTXT* ctxt, QSBOOL value);
QSBOOL rtxDiagEnabled(const QSCTXT* ctxt);

/* ---- bit position ----------------------------------------------------------------------------- */

/* Bit position of the cursor from the start of the buffer. */
QSSIZE rtxCtxtGetBitOffset(const QSCTXT* ctxt);

/* Moves the cursor to a bit position; RTERR_INVALID_PARAMETER beyond the buffer size. */
int rtxCtxtSetBitOffset(QSCTXT* ctxt, QSSIZE offset);

/* Saves the cursor / restores a saved cursor. */
void rtxCtxtMarkBitPos(const QSCTXT* ctxt, QSSIZE* pByteIndex, QSINT16* pBitOffset);
int rtxCtxtResetToBitPos(QSCTXT* ctxt, QSSIZE byteIndex, QSINT16 bitOffset);

/* ---- element-name stack ----------------------------------------------------------------------- */

/* Out-of-line parts of the push and pop below (growth of the stack, owned copies). */
int rtxCtxtPushElemNameEntry(QSCTXT* ctxt, const QSUTF8CHAR* name, QSSIZE index, QSUINT8 kind);
QSBOOL rtxCtxtPopElemNameEntry(QSCTXT* ctxt);

/* Pushes a name that stays valid while pushed (not copied); 0 or RTERR_NO_DYNAMIC_MEMORY.
 * While the context has the flag QSNOELEMNAMES, every push and pop does nothing and the stack
 * stays empty: a caller that never reports an error from the context (it redoes the work with
 * the names kept when anything fails) spares itself the bookkeeping per element. */
inline int rtxCtxtPushElemName(QSCTXT* ctxt, const QSUTF8CHAR* name)
{
   if (ctxt->flags & QSNOELEMNAMES) return 0;
   QSElemNameStack& st = ctxt->elemNameStack;
   if (st.more != nullptr || st.count == QS_ELEMNAME_INLINE) return rtxCtxtPushElemNameEntry(ctxt, name, 0, 0);
   QSElemName& e = st.inlineNames[st.count++];
   e.name = name;
   e.kind = 0;
   return 0;
}

/* Pushes a heap copy of name. */
int rtxCtxtPushElemNameCopy(QSCTXT* ctxt, const QSUTF8CHAR* name);

/* Pushes "name[index]" (formatted only when a path is built). */
inline int rtxCtxtPushArrayElemName(QSCTXT* ctxt, const QSUTF8CHAR* name, QSSIZE index)
{
   if (ctxt->flags & QSNOELEMNAMES) return 0;
   QSElemNameStack& st = ctxt->elemNameStack;
   if (st.more != nullptr || st.count == QS_ELEMNAME_INLINE) return rtxCtxtPushElemNameEntry(ctxt, name, index, 1);
   QSElemName& e = st.inlineNames[st.count++];
   e.name = name;
   e.index = index;
   e.kind = 1;
   return 0;
}

/* Pops the newest name of any of the above kinds; FALSE when the stack is empty. */
inline QSBOOL rtxCtxtPopElemName(QSCTXT* ctxt)
{
   if (ctxt->flags & QSNOELEMNAMES) return FALSE;
   QSElemNameStack& st = ctxt->elemNameStack;
   if (st.more != nullptr || st.count == 0 || st.inlineNames[st.count - 1].kind == 2)
      return rtxCtxtPopElemNameEntry(ctxt);
   st.count--;
   return 1;
}
QSBOOL rtxCtxtPopElemNameCopy(QSCTXT* ctxt);
QSBOOL rtxCtxtPopArrayElemName(QSCTXT* ctxt);

/* Pops every name. */
void rtxCtxtPopAllElemNames(QSCTXT* ctxt);

/* Newest name, or null. */
const QSUTF8CHAR* rtxCtxtPeekElemName(const QSCTXT* ctxt);

/* Heap copy of the names joined with "."; null when the stack is empty or no memory. */
char* rtxCtxtGetElemNamePath(QSCTXT* ctxt);

/* ---- container stack -------------------------------------------------------------------------- */

int rtxCtxtPushContainer(QSCTXT* ctxt, void* container);
void* rtxCtxtPopContainer(QSCTXT* ctxt);
void* rtxCtxtPeekContainer(const QSCTXT* ctxt);
void rtxCtxtPopAllContainers(QSCTXT* ctxt);

#endif
