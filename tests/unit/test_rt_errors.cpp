// Recording failures in a context and the texts made from them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

namespace {

class ErrTest : public ::testing::Test {
protected:
   QSCTXT ctxt;
   void SetUp() override { ASSERT_EQ(0, rtxInitContext(&ctxt)); }
   void TearDown() override { rtxFreeContext(&ctxt); }

   const QSRTErrInfo* record(int i)
   {
      QSRTDListNode* n = ctxt.errInfoList.head;
      while (i-- > 0 && n != nullptr) n = n->next;
      return (n != nullptr) ? static_cast<const QSRTErrInfo*>(n->data) : nullptr;
   }

   std::string text() { return rtxErrGetText(&ctxt, nullptr, nullptr); }
};

std::string fmt(int status, std::initializer_list<const char*> parms, size_t size = 200)
{
   QSRTErrInfo rec{};
   rec.status = (QSINT16)status;
   for (const char* p : parms) rec.parms[rec.parmcnt++] = const_cast<char*>(p);
   std::string buf(size, 'x');
   rtxErrFmtMsg(&rec, &buf[0], size);
   return buf.c_str();
}

}  // namespace

TEST_F(ErrTest, FailurePassedUpThreeLevelsIsOneRecordWithThreeLocations)
{
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"cam");
   rtxCtxtPushArrayElemName(&ctxt, (const QSUTF8CHAR*)"item", 2);
   rtxErrAddStrParm(&ctxt, "speed");
   rtxErrAddIntParm(&ctxt, 20000);
   EXPECT_EQ(-16, rtxErrSetData(&ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION, "../../rtpersrc/pd_int.c", 10));
   rtxCtxtPopElemName(&ctxt);
   EXPECT_EQ(-16, rtxErrSetData(&ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION, "../src/Dec.cpp", 20));
   rtxCtxtPopElemName(&ctxt);
   EXPECT_EQ(-16, rtxErrSetData(&ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION, "../src/Top.cpp", 30));

   EXPECT_EQ(1u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(3, record(0)->stkx);
   EXPECT_EQ(2, record(0)->parmcnt);
   EXPECT_EQ(0, ctxt.errInfo.parmcnt);
   EXPECT_EQ(
      "ERROR: Status -16\n"
      "Value constraint violation: field speed, value 20000\n"
      "Element name: cam.item[2]\n"
      "Stack trace:\n"
      "  Module: ../src/Top.cpp Line 30\n"
      "  Module: ../src/Dec.cpp Line 20\n"
      "  Module: ../../rtpersrc/pd_int.c Line 10\n",
      text());
}

TEST_F(ErrTest, TwoStatusesGiveTwoRecordsAndAnAggregate)
{
   rtxErrAddStrParm(&ctxt, "x");
   rtxErrSetData(&ctxt, RTERR_INVALID_CHOICE_OPTION, "a.c", 1);
   EXPECT_EQ(RTERR_MULTIPLE_ERRORS, rtxErrSetData(&ctxt, RTERR_ENUM_NOT_IN_SET, "b.c", 2));
   EXPECT_EQ(2u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(RTERR_MULTIPLE_ERRORS, rtxErrGetStatus(&ctxt));
   EXPECT_EQ(RTERR_INVALID_CHOICE_OPTION, rtxErrGetFirstError(&ctxt));
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, rtxErrGetLastError(&ctxt));
   EXPECT_EQ(RTERR_MULTIPLE_ERRORS, rtxErrCheckNonFatal(&ctxt));

   EXPECT_EQ(
      "ERROR: Status -9\n"
      "Element with identifier x is an invalid option in choice\n"
      "Stack trace:\n"
      "  Module: a.c Line 1\n"
      "ERROR: Status -4\n"
      "Enumerated value ? not in defined set\n"
      "Stack trace:\n"
      "  Module: b.c Line 2\n",
      text());
   EXPECT_EQ("Element with identifier x is an invalid option in choice\n"
             "Enumerated value ? not in defined set",
             std::string(rtxErrGetMsgText(&ctxt)));

   rtxErrSetNonFatal(&ctxt);
   EXPECT_EQ(RTERR_INVALID_CHOICE_OPTION, rtxErrGetStatus(&ctxt));
   rtxErrResetLastErrors(&ctxt, 1);
   EXPECT_EQ(1u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(RTERR_INVALID_CHOICE_OPTION, rtxErrCheckNonFatal(&ctxt));
   EXPECT_EQ(0, rtxErrReset(&ctxt));
   EXPECT_EQ(0, rtxErrGetStatus(&ctxt));
   EXPECT_EQ(0, rtxErrCheckNonFatal(&ctxt));
   EXPECT_EQ("", text());
}

TEST_F(ErrTest, SetNewDataAlwaysStartsARecord)
{
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "a.c", 1);
   rtxErrSetNewData(&ctxt, RTERR_READ_ERROR, "a.c", 2);
   EXPECT_EQ(2u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(RTERR_READ_ERROR, rtxErrCheckNonFatal(&ctxt));
   EXPECT_EQ(RTERR_MULTIPLE_ERRORS, rtxErrGetStatus(&ctxt));
}

TEST(ErrFormat, ParametersFillTemplatesInOrder)
{
   rtxErrInit();
   EXPECT_EQ("Value constraint violation: field speed, value ?", fmt(-16, { "speed" }));
   EXPECT_EQ("Value constraint violation: field a, value b c", fmt(-16, { "a", "b", "c" }));
   EXPECT_EQ("Encode buffer overflow first second", fmt(-1, { "first", "second" }));
   EXPECT_EQ("Unknown information element received, ID = %d 7", fmt(-67, { "7" }));
   EXPECT_EQ("Error condition returned from XML parser:\nbad", fmt(-26, { "bad" }));
   EXPECT_EQ("Attribute \"a.?\" not defined", fmt(-33, { "a" }));
   EXPECT_EQ("Operation was aborted as requested", fmt(-83, {}));
   EXPECT_EQ("normal completion status", fmt(5, { "p" }));
   EXPECT_EQ("normal completion status", fmt(0, {}));
   EXPECT_EQ("unrecognized completion status", fmt(-120, {}));
   EXPECT_EQ("unrecognized completion status", fmt(-84, {}));
   EXPECT_EQ("unrecognized completion status", fmt(-98, {}));
   EXPECT_EQ("", fmt(-40, {}));
}

TEST(ErrFormat, MultipleErrorsRecordWritesNothing)
{
   QSRTErrInfo rec{};
   rec.status = RTERR_MULTIPLE_ERRORS;
   char buf[32] = "unchanged";
   EXPECT_EQ(buf, rtxErrFmtMsg(&rec, buf, sizeof(buf)));
   EXPECT_STREQ("unchanged", buf);
   EXPECT_EQ(nullptr, rtxErrFmtMsg(nullptr, buf, sizeof(buf)));
   EXPECT_EQ(nullptr, rtxErrFmtMsg(&rec, buf, 0));
}

TEST(ErrFormat, TruncationKeepsWholePiecesOnly)
{
   rtxErrInit();
   // "Value constraint violation: field " is 34 characters; the parameter does not fit whole
   EXPECT_EQ("Value constraint violation: field ", fmt(-16, { "speed" }, 36));
   EXPECT_EQ("Encode", fmt(-1, {}, 7));
   EXPECT_EQ("Encode buffer overflow", fmt(-1, { "toolong" }, 26));
}

TEST_F(ErrTest, PendingParametersAreLimitedToFive)
{
   for (int i = 0; i < 5; i++) EXPECT_EQ(1, rtxErrAddStrParm(&ctxt, "p"));
   EXPECT_EQ(0, rtxErrAddStrParm(&ctxt, "sixth"));
   EXPECT_EQ(0, rtxErrAddIntParm(&ctxt, 6));
   EXPECT_EQ(5, ctxt.errInfo.parmcnt);
   rtxErrSetData(&ctxt, RTERR_GENERAL_FAILURE, "m.c", 1);
   EXPECT_EQ(5, record(0)->parmcnt);
   EXPECT_EQ(0, ctxt.errInfo.parmcnt);
}

TEST_F(ErrTest, ParameterKinds)
{
   rtxErrAddStrParm(&ctxt, nullptr);
   rtxErrAddStrnParm(&ctxt, "abcdef", 3);
   rtxErrAddUInt64Parm(&ctxt, 18446744073709551615ull);
   rtxErrAddInt64Parm(&ctxt, -9223372036854775807ll - 1);
   rtxErrAddDoubleParm(&ctxt, 1.5);
   EXPECT_STREQ("(null)", ctxt.errInfo.parms[0]);
   EXPECT_STREQ("abc", ctxt.errInfo.parms[1]);
   EXPECT_STREQ("18446744073709551615", ctxt.errInfo.parms[2]);
   EXPECT_STREQ("-9223372036854775808", ctxt.errInfo.parms[3]);
   EXPECT_STREQ("1.500000E+00", ctxt.errInfo.parms[4]);
   rtxErrFreeParms(&ctxt);
   EXPECT_EQ(0, ctxt.errInfo.parmcnt);

   const QSUINT16 uni[] = { 'a', 0xE9, 0x20AC, 0 };
   rtxErrAddUniStrParm(&ctxt, uni);
   rtxErrAddUniStrParm(&ctxt, nullptr);
   EXPECT_STREQ("a\xC3\xA9\xE2\x82\xAC", ctxt.errInfo.parms[0]);
   EXPECT_STREQ("", ctxt.errInfo.parms[1]);

   QSOCTET data[] = { 'h', 'e', 'l', 'l', 'o' };
   rtxInitContextBuffer(&ctxt, data, sizeof(data));
   ctxt.buffer.byteIndex = 2;
   rtxErrAddCtxtBufParm(&ctxt);
   EXPECT_STREQ("llo", ctxt.errInfo.parms[2]);

   rtxErrAddElemNameParm(&ctxt);
   EXPECT_STREQ("?", ctxt.errInfo.parms[3]);
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"a");
   rtxCtxtPushElemNameCopy(&ctxt, (const QSUTF8CHAR*)"b");
   rtxErrAddElemNameParm(&ctxt);
   EXPECT_STREQ("a.b", ctxt.errInfo.parms[4]);

   rtxErrReset(&ctxt);
   EXPECT_EQ(RTERR_INVALID_CHOICE_OPTION, rtxErrInvUIntOpt(&ctxt, 42));
   EXPECT_STREQ("42", ctxt.errInfo.parms[0]);
}

TEST_F(ErrTest, ValueWillNotFitNamesTheElement)
{
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"len");
   rtxErrSetData(&ctxt, RTERR_VALUE_WILL_NOT_FIT, "m.c", 5);
   char buf[200];
   rtxErrFmtMsg(record(0), buf, sizeof(buf));
   EXPECT_STREQ("Value will not fit in target variable: element 'len'", buf);
}

TEST_F(ErrTest, NoErrTraceRecordsNoPlaces)
{
   rtxCtxtSetFlag(&ctxt, QSNOERRTRACE);
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"x");
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 5);
   EXPECT_EQ(0, record(0)->stkx);
   EXPECT_EQ(nullptr, record(0)->elemName);
   EXPECT_EQ("ERROR: Status -29\nRead error\n", text());
}

TEST_F(ErrTest, LocationsStopAtEight)
{
   for (int i = 0; i < 10; i++) rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", i);
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, nullptr, 99);
   EXPECT_EQ(8, record(0)->stkx);
   EXPECT_EQ(7, record(0)->stack[7].lineno);
}

TEST_F(ErrTest, TextIntoACallersBufferStopsWhereAPieceDoesNotFit)
{
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 5);
   char buf[42];  // room for the text up to "Stack trace:", not for its line break
   QSSIZE size = sizeof(buf);
   EXPECT_EQ(buf, rtxErrGetText(&ctxt, buf, &size));
   EXPECT_STREQ("ERROR: Status -29\nRead error\nStack trace:", buf);

   QSSIZE allocated = 0;
   char* full = rtxErrGetText(&ctxt, nullptr, &allocated);
   EXPECT_EQ(200u + 3 * 100u, allocated);
   EXPECT_STREQ("ERROR: Status -29\nRead error\nStack trace:\n  Module: m.c Line 5\n", full);
}

TEST_F(ErrTest, PrintWritesEveryRecordToStandardOutput)
{
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"e");
   rtxErrAddStrParm(&ctxt, "f");
   rtxErrSetData(&ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION, "a.c", 1);
   rtxErrSetData(&ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION, "b.c", 2);
   rtxCtxtPopElemName(&ctxt);
   rtxErrSetNewData(&ctxt, RTERR_MULTIPLE_ERRORS, "c.c", 3);
   testing::internal::CaptureStdout();
   rtxErrPrint(&ctxt);
   EXPECT_EQ(
      "ERROR: Status -16\n"
      "Value constraint violation: field f, value ?\n"
      "Element name: e\n"
      "Stack trace:  Module: b.c, Line 2\n"
      "  Module: a.c, Line 1\n"
      "ERROR: Status -50\n"
      "\n"
      "Stack trace:  Module: c.c, Line 3\n",
      testing::internal::GetCapturedStdout());
}

TEST_F(ErrTest, MessageTextWithElementNames)
{
   rtxCtxtPushElemName(&ctxt, (const QSUTF8CHAR*)"el");
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 1);
   rtxErrSetData(&ctxt, -120, "m.c", 2);
   EXPECT_STREQ("Element: el\nRead error\nElement: el\nunrecognized completion status",
                rtxErrGetMsgText(&ctxt));
   char small[16];
   EXPECT_STREQ("Element: el\nRea", rtxErrGetMsgTextBuf(&ctxt, small, sizeof(small)));
}

TEST_F(ErrTest, MessageTextIsSizedWithoutTheSpacesOfAppendedParameters)
{
   // "Encode buffer overflow" has no "%s": its parameter is appended after a space,
   // which the computed size does not count, so the parameter is left out whole.
   rtxErrAddStrParm(&ctxt, "x");
   rtxErrSetData(&ctxt, RTERR_ENCODE_BUFFER_OVERFLOW, "m.c", 1);
   EXPECT_STREQ("Encode buffer overflow", rtxErrGetMsgText(&ctxt));
   rtxErrReset(&ctxt);

   // Parameters in place of "%s" fit: the "%s" itself is counted.
   rtxErrAddStrParm(&ctxt, "f");
   rtxErrAddStrParm(&ctxt, "7");
   rtxErrSetData(&ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION, "m.c", 1);
   EXPECT_STREQ("Value constraint violation: field f, value 7", rtxErrGetMsgText(&ctxt));
   rtxErrReset(&ctxt);

   EXPECT_STREQ("", rtxErrGetMsgText(&ctxt));
}

TEST_F(ErrTest, CopyAndAppendDuplicateRecords)
{
   QSCTXT other;
   ASSERT_EQ(0, rtxInitContext(&other));
   rtxErrAddStrParm(&ctxt, "v");
   rtxErrSetData(&ctxt, RTERR_ENUM_NOT_IN_SET, "m.c", 1);
   rtxErrAddStrParm(&ctxt, "pending");
   rtxErrSetData(&other, RTERR_READ_ERROR, "o.c", 9);

   EXPECT_EQ(0, rtxErrCopy(&other, &ctxt));
   EXPECT_EQ(1u, rtxErrGetErrorCnt(&other));
   EXPECT_EQ(1, other.errInfo.parmcnt);
   EXPECT_EQ(0, rtxErrCopy(&ctxt, &ctxt));
   std::string expected = text();
   rtxErrFreeParms(&ctxt);  // the copies are independent
   EXPECT_EQ(expected, std::string(rtxErrGetText(&other, nullptr, nullptr)));

   EXPECT_EQ(0, rtxErrAppend(&other, &other));
   EXPECT_EQ(2u, rtxErrGetErrorCnt(&other));
   EXPECT_EQ(RTERR_MULTIPLE_ERRORS, rtxErrGetStatus(&other));
   rtxFreeContext(&other);
}

TEST_F(ErrTest, LogUsingCallbackHandsOverTheReport)
{
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 1);
   std::string seen;
   rtxErrLogUsingCB(&ctxt, [](const char* t, void* arg) { *static_cast<std::string*>(arg) = t; }, &seen);
   EXPECT_EQ("ERROR: Status -29\nRead error\nStack trace:\n  Module: m.c Line 1\n", seen);
}

namespace {
bool g_failAlloc = false;
void* failingAlloc(size_t n) { return g_failAlloc ? nullptr : std::malloc(n); }
}  // namespace

TEST(ErrOutOfMemory, TheBuiltInRecordHoldsNoDynamicMemoryOnce)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContextExt(&ctxt, failingAlloc, nullptr, nullptr));
   rtxMemHeapSetFlags(&ctxt, RT_MH_USESYSALLOC);
   g_failAlloc = true;
   EXPECT_EQ(0, rtxErrAddStrParm(&ctxt, "lost"));
   EXPECT_EQ(RTERR_NO_DYNAMIC_MEMORY, rtxErrSetData(&ctxt, RTERR_NO_DYNAMIC_MEMORY, "m.c", 3));
   EXPECT_EQ(1u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(&ctxt.errInfo, ctxt.errInfoList.tail->data);
   EXPECT_EQ(RTERR_NO_DYNAMIC_MEMORY, rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 4));
   EXPECT_EQ(1u, rtxErrGetErrorCnt(&ctxt));
   char buf[200];
   EXPECT_STREQ("ERROR: Status -10\nNo dynamic memory available\nStack trace:\n  Module: m.c Line 3\n",
                rtxErrGetTextBuf(&ctxt, buf, sizeof(buf)));
   EXPECT_EQ(nullptr, rtxErrGetText(&ctxt, nullptr, nullptr));
   std::string seen;
   rtxErrLogUsingCB(&ctxt, [](const char* t, void* arg) { *static_cast<std::string*>(arg) = t; }, &seen);
   EXPECT_EQ("ERROR : no memory available", seen);
   g_failAlloc = false;
   rtxErrReset(&ctxt);
   EXPECT_EQ(0u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(RTERR_READ_ERROR, rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 5));
   rtxFreeContext(&ctxt);
}

TEST(ErrOutOfMemory, ANewRecordClearsTheBuiltInRecordsStatus)
{
   QSCTXT ctxt;
   ASSERT_EQ(0, rtxInitContextExt(&ctxt, failingAlloc, nullptr, nullptr));
   rtxMemHeapSetFlags(&ctxt, RT_MH_USESYSALLOC);
   g_failAlloc = true;
   EXPECT_EQ(RTERR_NO_DYNAMIC_MEMORY, rtxErrSetData(&ctxt, RTERR_NO_DYNAMIC_MEMORY, "m.c", 3));
   g_failAlloc = false;
   rtxErrSetData(&ctxt, RTERR_READ_ERROR, "m.c", 4);
   ASSERT_EQ(2u, rtxErrGetErrorCnt(&ctxt));
   EXPECT_EQ(&ctxt.errInfo, ctxt.errInfoList.head->data);
   EXPECT_EQ(0, ctxt.errInfo.status);
   EXPECT_EQ(0, rtxErrGetFirstError(&ctxt));
   EXPECT_EQ(RTERR_READ_ERROR, rtxErrGetLastError(&ctxt));
   char buf[200];
   EXPECT_STREQ("ERROR: Status 0\nnormal completion status\nStack trace:\n  Module: m.c Line 3\n"
                "ERROR: Status -29\nRead error\nStack trace:\n  Module: m.c Line 4\n",
                rtxErrGetTextBuf(&ctxt, buf, sizeof(buf)));
   rtxFreeContext(&ctxt);
}

namespace {

/* Exercises the process-wide registry; run in a fresh child process (the binary started
 * again for this test alone) so that it starts from the runtime's table only, whatever the
 * tests before it registered, and the full registry does not outlive the test. */
int registryChecks()
{
   static const char* const own[] = { "First own error %s", "Second own error" };
   static const char* const t[5][1] = { { "a" }, { "b" }, { "c" }, { "d" }, { "e" } };
   rtxErrInit();
   if (rtxErrInit() != 0) return 1;  // again: no-op
   if (rtxErrAddErrorTableEntry(own, -300, -302) != 1) return 2;
   if (rtxErrAddErrorTableEntry(own, -300, -302) != 0) return 3;
   if (fmt(-300, { "x" }) != "First own error x" || fmt(-301, {}) != "Second own error" ||
       fmt(-302, {}) != "unrecognized completion status")
      return 4;
   int added = 2;  // the runtime's table and the one above
   for (int i = 0; i < 5 && rtxErrAddErrorTableEntry(t[i], -400 - 10 * i, -401 - 10 * i) == 1; i++) added++;
   if (added != QSERR_MAXTABLES) return 5;  // the sixth was refused
   return (fmt(-420, {}) == "c" && fmt(-430, {}) == "unrecognized completion status") ? 0 : 6;
}

}  // namespace

TEST(ErrRegistry, TablesAreRegisteredOnceAndAtMostFive)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(std::exit(registryChecks()), ::testing::ExitedWithCode(0), "");
}

TEST(ErrAssertion, EndsTheProcessWithTheConditionText)
{
   EXPECT_EXIT(rtxErrAssertionFailed("mem pointer valid", 12, "f.cpp"), ::testing::ExitedWithCode(255), "");
}
