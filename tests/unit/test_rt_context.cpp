// Context life cycle, buffer binding, flags, element names, enum lookup and memory streams.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxEnum.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxStream.h"

TEST(ContextLifeCycle, InitAndFree)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   EXPECT_EQ(QSCTXT_INIT_CODE, ctxt.initCode);
   EXPECT_NE(nullptr, ctxt.pMemHeap);
   EXPECT_EQ(8, ctxt.buffer.bitOffset);
   EXPECT_EQ(0u, ctxt.flags);
   rtxMemHeapAlloc(&ctxt, 100);
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 1);

   rtxFreeContext(&ctxt);
   EXPECT_EQ(0u, ctxt.initCode);
   EXPECT_EQ(nullptr, ctxt.pMemHeap);
   EXPECT_EQ(0u, ctxt.errInfoList.count);
   rtxFreeContext(&ctxt);  // harmless
   EXPECT_EQ(nullptr, ctxt.pMemHeap);
}

namespace {
int g_appInfoFreed = 0;
int g_freeCallbacks = 0;
}  // namespace

TEST(ContextLifeCycle, AppInfoAndFreeCallbackAreHonoured)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   void* info = rtxMemHeapAlloc(&ctxt, 32);
   EXPECT_EQ(0, rtxCtxtSetAppInfo(&ctxt, 2, info, [](QSCTXT* c, void* p) {
      g_appInfoFreed++;
      rtxMemHeapFreePtr(c, p);
   }));
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtxCtxtSetAppInfo(&ctxt, 4, info, nullptr));
   ctxt.pFreeCB = [](QSCTXT*) { g_freeCallbacks++; };
   rtxFreeContext(&ctxt);
   EXPECT_EQ(1, g_appInfoFreed);
   EXPECT_EQ(1, g_freeCallbacks);
   EXPECT_EQ(nullptr, ctxt.pAppInfo[2]);
   EXPECT_EQ(QSCTXT_INIT_CODE, ctxt.initCode);  // left to the callback
   EXPECT_EQ(nullptr, ctxt.pMemHeap);
}

TEST(ContextLifeCycle, FreeReleasesStreamBitFieldListAndDynamicBuffer)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   const QSOCTET text[] = "abc";
   ASSERT_EQ(0, rtxStreamMemoryAttach(&ctxt, text, 3, QSRTSTRMF_INPUT));
   ctxt.pBitFldList = rtxMemHeapAlloc(&ctxt, 48);
   ASSERT_EQ(0, rtxInitContextBuffer(&ctxt, nullptr, 0));
   rtxFreeContext(&ctxt);  // LeakSanitizer checks the rest
   EXPECT_EQ(nullptr, ctxt.pStream);
   EXPECT_EQ(nullptr, ctxt.pBitFldList);
   EXPECT_EQ(nullptr, ctxt.buffer.data);
}

TEST(ContextBuffer, DynamicOrCallersBuffer)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   ASSERT_EQ(0, rtxInitContextBuffer(&ctxt, nullptr, 0));
   EXPECT_TRUE(ctxt.buffer.dynamic);
   EXPECT_EQ(1024u, ctxt.buffer.size);
   EXPECT_TRUE(rtxMemHeapCheckPtr(&ctxt, ctxt.buffer.data));
   void* dyn = ctxt.buffer.data;

   QSOCTET mine[10];
   ctxt.buffer.byteIndex = 5;
   ctxt.buffer.bitOffset = 3;
   ASSERT_EQ(0, rtxInitContextBuffer(&ctxt, mine, sizeof(mine)));
   EXPECT_FALSE(ctxt.buffer.dynamic);
   EXPECT_EQ(mine, ctxt.buffer.data);
   EXPECT_EQ(10u, ctxt.buffer.size);
   EXPECT_EQ(0u, ctxt.buffer.byteIndex);
   EXPECT_EQ(8, ctxt.buffer.bitOffset);
   EXPECT_FALSE(rtxMemHeapCheckPtr(&ctxt, dyn));  // the old dynamic buffer went back

   rtxFreeContext(&ctxt);
   EXPECT_EQ(RTERR_CONTEXT_NOT_INITIALIZED, rtxInitContextBuffer(&ctxt, mine, sizeof(mine)));
}

TEST(ContextFlags, DiagnosticsAndOtherFlags)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   EXPECT_FALSE(rtxSetDiag(&ctxt, TRUE));
   EXPECT_EQ(QSDIAG, ctxt.flags);
   EXPECT_TRUE(rtxSetDiag(&ctxt, FALSE));
   EXPECT_EQ(0u, ctxt.flags);
   rtxCtxtSetFlag(&ctxt, QSTRACE | 0x8);
   EXPECT_TRUE(rtxCtxtTestFlag(&ctxt, QSTRACE));
   rtxCtxtClearFlag(&ctxt, QSTRACE);
   EXPECT_EQ(0x8u, ctxt.flags);
   rtxFreeContext(&ctxt);
}

TEST(ContextBitPosition, MarkMoveAndReset)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   QSOCTET data[4] = {};
   rtxInitContextBuffer(&ctxt, data, sizeof(data));
   EXPECT_EQ(0, rtxCtxtSetBitOffset(&ctxt, 13));
   EXPECT_EQ(1u, ctxt.buffer.byteIndex);
   EXPECT_EQ(3, ctxt.buffer.bitOffset);
   EXPECT_EQ(13u, rtxCtxtGetBitOffset(&ctxt));
   QSSIZE byteIndex;
   QSINT16 bitOffset;
   rtxCtxtMarkBitPos(&ctxt, &byteIndex, &bitOffset);
   EXPECT_EQ(0, rtxCtxtSetBitOffset(&ctxt, 32));
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtxCtxtSetBitOffset(&ctxt, 33));
   EXPECT_EQ(0, rtxCtxtResetToBitPos(&ctxt, byteIndex, bitOffset));
   EXPECT_EQ(13u, rtxCtxtGetBitOffset(&ctxt));
   rtxFreeContext(&ctxt);
}

TEST(ContextElemNames, StackOfPlainCopiedAndArrayNames)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   EXPECT_EQ(nullptr, rtxCtxtGetElemNamePath(&ctxt));
   char temp[] = "temporary";
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"root");
   rtxCtxtPushElemNameCopy(&ctxt, (const QSUTF8CHAR*)temp);
   std::memset(temp, 'x', 5);
   rtxCtxtPushArrayElemName(&ctxt, (const QSUTF8CHAR*)"list", 12);
   EXPECT_STREQ("root.temporary.list[12]", rtxCtxtGetElemNamePath(&ctxt));
   EXPECT_STREQ("list", (const char*)rtxCtxtPeekElemName(&ctxt));  // the index shows in paths only
   EXPECT_TRUE(rtxCtxtPopArrayElemName(&ctxt));
   EXPECT_TRUE(rtxCtxtPopElemNameCopy(&ctxt));
   EXPECT_STREQ("root", rtxCtxtGetElemNamePath(&ctxt));
   EXPECT_TRUE(rtxCtxtPopElemName(&ctxt));
   EXPECT_FALSE(rtxCtxtPopElemName(&ctxt));
   EXPECT_EQ(0u, ctxt.elemNameStack.count);

   rtxCtxtPushElemNameCopy(&ctxt, (const QSUTF8CHAR*)"left");
   rtxCtxtPushContainer(&ctxt, &ctxt);
   rtxErrReset(&ctxt);  // empties both stacks
   EXPECT_EQ(0u, ctxt.elemNameStack.count);
   EXPECT_EQ(nullptr, rtxCtxtPeekContainer(&ctxt));
   rtxFreeContext(&ctxt);
}

// While names are switched off, no push or pop of any kind touches the stack (also past the
// inline entries, where pushes otherwise grow it on the heap), so the names from before are
// there again afterwards and pops cannot run away.
TEST(ContextElemNames, SwitchedOffPushesAndPopsLeaveTheStackAlone)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"root");
   ctxt.flags |= QSNOELEMNAMES;
   for (int i = 0; i < 3 * QS_ELEMNAME_INLINE; i++) {
      EXPECT_EQ(0, rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"inner"));
      EXPECT_EQ(0, rtxCtxtPushElemNameCopy(&ctxt, (const QSUTF8CHAR*)"copy"));
      EXPECT_EQ(0, rtxCtxtPushArrayElemName(&ctxt, (const QSUTF8CHAR*)"list", i));
   }
   EXPECT_EQ(1u, ctxt.elemNameStack.count);
   EXPECT_EQ(nullptr, ctxt.elemNameStack.more);
   EXPECT_FALSE(rtxCtxtPopElemName(&ctxt));
   EXPECT_FALSE(rtxCtxtPopElemNameCopy(&ctxt));
   EXPECT_FALSE(rtxCtxtPopArrayElemName(&ctxt));
   rtxCtxtPopAllElemNames(&ctxt);  // returns although every pop "fails"
   EXPECT_STREQ("root", rtxCtxtGetElemNamePath(&ctxt));

   ctxt.flags &= ~QSNOELEMNAMES;
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"child");
   EXPECT_STREQ("root.child", rtxCtxtGetElemNamePath(&ctxt));
   EXPECT_TRUE(rtxCtxtPopElemName(&ctxt));
   EXPECT_TRUE(rtxCtxtPopElemName(&ctxt));
   EXPECT_FALSE(rtxCtxtPopElemName(&ctxt));
   rtxFreeContext(&ctxt);
}

TEST(ContextCopy, BufferStateFlagsAndErrors)
{
   QSCTXT a, b;
   ASSERT_EQ(0, rtxInitContext(&a));
   ASSERT_EQ(0, rtxInitContext(&b));
   rtxInitContextBuffer(&a, nullptr, 16);
   a.buffer.byteIndex = 3;
   rtxSetDiag(&a, TRUE);
   rtxErrSetData(&a, RTERR_READ_ERROR, "m.c", 1);
   EXPECT_EQ(0, rtxCopyContext(&b, &a));
   EXPECT_EQ(a.buffer.data, b.buffer.data);
   EXPECT_FALSE(b.buffer.dynamic);
   EXPECT_EQ(3u, b.buffer.byteIndex);
   EXPECT_TRUE(rtxDiagEnabled(&b));
   EXPECT_EQ(RTERR_READ_ERROR, rtxErrGetStatus(&b));
   rtxFreeContext(&b);
   rtxFreeContext(&a);
   EXPECT_EQ(RTERR_CONTEXT_NOT_INITIALIZED, rtxCopyContext(&b, &a));
}

TEST(DList, AppendAndFree)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   QSRTDList list;
   rtxDListInit(&list);
   for (int i = 0; i < 3; i++) ASSERT_NE(nullptr, rtxDListAppend(&ctxt, &list, rtxMemHeapAlloc(&ctxt, 8)));
   EXPECT_EQ(3u, list.count);
   EXPECT_EQ(list.head->next, list.tail->prev);
   rtxDListFreeAll(&ctxt, &list);
   EXPECT_EQ(0u, list.count);
   EXPECT_EQ(nullptr, list.head);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   int x = 0;
   rtxDListAppend(&ctxt, &list, &x);
   rtxDListFreeNodes(&ctxt, &list);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));

   // data allocated with its node, mixed with data of its own: both kinds go with FreeAll, and
   // the nodes' own data with FreeNodes
   for (int i = 0; i < 4; i++) {
      if (i % 2 == 0) {
         char* d = static_cast<char*>(rtxDListAppendNew(&ctxt, &list, 13));
         ASSERT_NE(nullptr, d);
         EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(d) % 8);
         std::memset(d, 'x', 13);
         EXPECT_EQ(d, list.tail->data);
      }
      else {
         ASSERT_NE(nullptr, rtxDListAppend(&ctxt, &list, rtxMemHeapAlloc(&ctxt, 8)));
      }
   }
   EXPECT_EQ(4u, list.count);
   EXPECT_EQ(0, rtxMemHeapCheck(&ctxt));
   rtxDListFreeAll(&ctxt, &list);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   rtxDListAppendNew(&ctxt, &list, 0);
   rtxDListFreeNodes(&ctxt, &list);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
   EXPECT_EQ(nullptr, rtxDListAppendNew(&ctxt, &list, SIZE_MAX));
   EXPECT_EQ(0u, list.count);
   rtxFreeContext(&ctxt);
}

namespace {

#define ENTRY(name, value, trans) { (const QSUTF8CHAR*)name, value, (QSUINT16)(sizeof(name) - 1), trans }

// sorted by name; values 0..3 with their positions in transidx
const QSRTEnumTableEntry kDense[] = {
   ENTRY("alpha", 2, 3), ENTRY("beta", 0, 2), ENTRY("betamax", 3, 0), ENTRY("gamma", 1, 1),
};
const QSRTEnumTableEntry kSparse[] = {
   ENTRY("high", 100, 0), ENTRY("low", -5, 0), ENTRY("mid", 7, 0),
};

int lookup(const char* name, const QSRTEnumTableEntry* table, QSUINT16 n)
{
   return rtxLookupEnum(nullptr, (const QSUTF8CHAR*)name, std::strlen(name), table, n);
}

}  // namespace

TEST(EnumLookup, ExactIdentifiersOnly)
{
   EXPECT_EQ(0, lookup("alpha", kDense, 4));
   EXPECT_EQ(1, lookup("beta", kDense, 4));
   EXPECT_EQ(2, lookup("betamax", kDense, 4));
   EXPECT_EQ(3, lookup("gamma", kDense, 4));
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, lookup("bet", kDense, 4));
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, lookup("gammas", kDense, 4));
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, lookup("", kDense, 4));
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, lookup("alpha", kDense, 0));
   EXPECT_EQ(1, rtxLookupEnum(nullptr, (const QSUTF8CHAR*)"betamax", 4, kDense, 4));
   EXPECT_EQ(5u, rtxUTF8LenBytes((const QSUTF8CHAR*)"h\xC3\xA9ll"));
}

TEST(EnumLookup, ValueToIdentifier)
{
   EXPECT_STREQ("beta", rtxEnumValueToString(kDense, 4, 0));
   EXPECT_STREQ("gamma", rtxEnumValueToString(kDense, 4, 1));
   EXPECT_STREQ("alpha", rtxEnumValueToString(kDense, 4, 2));
   EXPECT_STREQ("betamax", rtxEnumValueToString(kDense, 4, 3));
   EXPECT_STREQ("_UNKNOWN_", rtxEnumValueToString(kDense, 4, -1));
   EXPECT_STREQ("_UNKNOWN_", rtxEnumValueToString(kDense, 4, 4));
   EXPECT_STREQ("low", rtxEnumValueToString(kSparse, 3, -5));
   EXPECT_STREQ("high", rtxEnumValueToString(kSparse, 3, 100));
   EXPECT_STREQ("_UNKNOWN_", rtxEnumValueToString(kSparse, 3, 0));
}

TEST(MemoryStream, ReadsTheCallersBytesInOrder)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContext(&ctxt));
   const QSOCTET text[] = "{\"a\":1}";
   ASSERT_EQ(0, rtxStreamMemoryAttach(&ctxt, text, 7, QSRTSTRMF_INPUT));
   EXPECT_EQ(RTERR_STREAM_IN_USE, rtxStreamMemoryAttach(&ctxt, text, 7, QSRTSTRMF_INPUT));
   QSOCTET buf[8] = {};
   EXPECT_EQ(4, rtxStreamRead(&ctxt, buf, 4));
   EXPECT_EQ(0, std::memcmp(buf, "{\"a\"", 4));
   EXPECT_EQ(3, rtxStreamRead(&ctxt, buf, 8));
   EXPECT_EQ(0, std::memcmp(buf, ":1}", 3));
   EXPECT_EQ(0, rtxStreamRead(&ctxt, buf, 8));
   EXPECT_EQ(0, rtxStreamRelease(&ctxt));
   EXPECT_EQ(RTERR_READ_ERROR, rtxStreamRead(&ctxt, buf, 1));
   EXPECT_EQ(RTERR_FEATURE_NOT_SUPPORTED, rtxStreamMemoryAttach(&ctxt, text, 7, QSRTSTRMF_OUTPUT));
   rtxFreeContext(&ctxt);
}
