// Class layer: context ownership by reference counts, message buffers, control objects.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "rtsrc/asn1CppTypes.h"
#include "rtxsrc/rtxStream.h"

namespace {

int g_contextsAlive = 0;

class CountedContext : public QSRTContext {
public:
   CountedContext() { g_contextsAlive++; }
   ~CountedContext() override { g_contextsAlive--; }
};

// A decode buffer over caller bytes, as the concrete buffers are built.
class TestDecodeBuffer : public QSRTMessageBuffer {
public:
   int inits = 0;
   int initResult = 0;
   TestDecodeBuffer(const QSOCTET* data, size_t len, QSRTContext* ctx = nullptr)
      : QSRTMessageBuffer(PERDecode, ctx)
   {
      initBuffer(const_cast<QSOCTET*>(data), len);
   }
   QSBOOL isA(Type t) override { return t == PERDecode; }
   int init() override
   {
      inits++;
      return (initResult != 0) ? initResult : QSRTMessageBuffer::init();
   }
};

struct TestValue : public ASN1TPDU {
   char* text = nullptr;
   QSRTContext* context() const { return mpContext.get(); }
};

// A control class as generated: decodes the buffer's bytes into a heap string.
class TestControl : public ASN1XType {
public:
   TestValue& value;
   int failWith = 0;
   TestControl(QSRTMessageBufferIF& buf, TestValue& v) : ASN1XType(buf), value(v) {}
   explicit TestControl(TestValue& v) : ASN1XType(), value(v) {}

   int DecodeFrom(QSRTMessageBufferIF& buf, unsigned char) override
   {
      int stat = setMsgBuf(buf, 1);
      if (stat != 0) return stat;
      value.setContext(buf.getContext().get());
      QSCTXT* ctxt = buf.getCtxtPtr();
      if (failWith != 0) {
         rtxErrAddStrParm(ctxt, "field");
         rtxErrAddStrParm(ctxt, "9");
         return rtxErrSetData(ctxt, failWith, "../src/etsi/Test.cpp", 7);
      }
      value.text = static_cast<char*>(rtxMemHeapAlloc(ctxt, ctxt->buffer.size + 1));
      std::memcpy(value.text, ctxt->buffer.data, ctxt->buffer.size);
      value.text[ctxt->buffer.size] = '\0';
      ctxt->buffer.byteIndex = ctxt->buffer.size;
      return 0;
   }
};

const QSOCTET kBytes[] = { 'h', 'e', 'l', 'l', 'o' };

}  // namespace

TEST(ContextClass, SmartPointersShareAndDeleteAtTheLastReference)
{
   {
      QSRTCtxtPtr a(new CountedContext());
      EXPECT_EQ(1, g_contextsAlive);
      EXPECT_TRUE(a->isInitialized());
      EXPECT_EQ(1, a->getRefCount());
      {
         QSRTCtxtPtr b(a);
         QSRTCtxtPtr c;
         EXPECT_FALSE(c);
         c = b;
         c = c;
         EXPECT_EQ(3, a->getRefCount());
         EXPECT_EQ(a.get(), c.get());
      }
      EXPECT_EQ(1, a->getRefCount());
      a = new CountedContext();
      EXPECT_EQ(1, g_contextsAlive);
   }
   EXPECT_EQ(0, g_contextsAlive);
}

TEST(ContextClass, StatusIsStoredOrTakenFromTheErrorList)
{
   QSRTCtxtPtr ctx(new QSRTContext());
   EXPECT_EQ(0, ctx->getStatus());
   rtxErrSetData(ctx->getPtr(), RTERR_READ_ERROR, "m.c", 1);
   EXPECT_EQ(RTERR_READ_ERROR, ctx->getStatus());
   ctx->setStatus(RTERR_INVALID_PARAMETER);
   EXPECT_EQ(RTERR_INVALID_PARAMETER, ctx->getStatus());
   ctx->resetErrorInfo();
   EXPECT_EQ(0, ctx->getStatus());
   const unsigned char key[] = "k";
   EXPECT_EQ(0, ctx->setRunTimeKey(key, 1));
   EXPECT_EQ(key, ctx->getPtr()->key);

   QSRTCtxtHolder holder(ctx.get());
   EXPECT_EQ(ctx->getPtr(), holder.getCtxtPtr());
   EXPECT_EQ(2, ctx->getRefCount());
}

TEST(MessageBuffer, TypeContextAndErrorInfo)
{
   TestDecodeBuffer buf(kBytes, sizeof(kBytes));
   EXPECT_TRUE(buf.isA(QSRTMessageBufferIF::PERDecode));
   EXPECT_FALSE(buf.isA(QSRTMessageBufferIF::PEREncode));
   EXPECT_EQ(3, (int)QSRTMessageBufferIF::PERDecode);
   EXPECT_EQ(7, (int)QSRTMessageBufferIF::JSONDecode);
   ASSERT_NE(nullptr, buf.getCtxtPtr());
   EXPECT_EQ(buf.getContext()->getPtr(), buf.getCtxtPtr());
   EXPECT_EQ(kBytes, buf.getMsgPtr());

   buf.getCtxtPtr()->buffer.byteIndex = 3;
   EXPECT_EQ(3u, buf.getMsgLen());
   QSOCTET* copy = buf.getMsgCopy();
   ASSERT_NE(nullptr, copy);
   EXPECT_EQ(0, std::memcmp(copy, "hel", 3));
   delete[] copy;

   int tag = 0;
   buf.setAppInfo(&tag);
   EXPECT_EQ(&tag, buf.getAppInfo());
   buf.setNamespace((const QSUTF8CHAR*)"p", (const QSUTF8CHAR*)"urn:x");

   buf.setDiag(1);
   EXPECT_TRUE(rtxDiagEnabled(buf.getCtxtPtr()));
   buf.setDiag(0);
   rtxErrSetData(buf.getCtxtPtr(), RTERR_READ_ERROR, "m.c", 4);
   buf.setDiag(1);  // refused while the status is not 0
   EXPECT_FALSE(rtxDiagEnabled(buf.getCtxtPtr()));
   EXPECT_EQ(nullptr, buf.getMsgCopy());

   EXPECT_STREQ("ERROR: Status -29\nRead error\nStack trace:\n  Module: m.c Line 4\n", buf.getErrorInfo());
   char small[18];
   size_t size = sizeof(small);
   EXPECT_STREQ("ERROR: Status -29", buf.getErrorInfo(small, size));
   testing::internal::CaptureStdout();
   buf.printErrorInfo();
   EXPECT_EQ("ERROR: Status -29\nRead error\nStack trace:  Module: m.c, Line 4\n",
             testing::internal::GetCapturedStdout());
   buf.resetErrorInfo();
   EXPECT_EQ(0, buf.getStatus());
   EXPECT_EQ(0, buf.init());
   EXPECT_EQ(0u, buf.getByteIndex());
}

TEST(ControlClass, DecodedValueKeepsTheBufferContextAlive)
{
   TestValue value;
   {
      TestDecodeBuffer buf(kBytes, sizeof(kBytes));
      TestControl control(buf, value);
      EXPECT_EQ(buf.getCtxtPtr(), control.getCtxtPtr());
      EXPECT_EQ(0, control.Decode());
      EXPECT_EQ(1, buf.inits);
      EXPECT_EQ(3, buf.getContext()->getRefCount() - 1);  // buffer, control, value (+ this temporary)
   }
   ASSERT_NE(nullptr, value.getCtxtPtr());
   EXPECT_EQ(1, value.context()->getRefCount());
   EXPECT_STREQ("hello", value.text);
   EXPECT_TRUE(rtxMemHeapCheckPtr(value.getCtxtPtr(), value.text));
   value.setContext(nullptr);
   EXPECT_EQ(nullptr, value.getCtxtPtr());
}

TEST(ControlClass, DecodeRecordsFailuresAtItsOwnModule)
{
   TestValue value;
   TestDecodeBuffer buf(kBytes, sizeof(kBytes));
   TestControl control(buf, value);
   control.failWith = RTERR_ENUM_NOT_IN_SET;
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, control.Decode());
   EXPECT_STREQ(
      "ERROR: Status -4\n"
      "Enumerated value field not in defined set 9\n"
      "Stack trace:\n"
      "  Module: ../../rtsrc/ASN1XType.cpp Line 85\n"
      "  Module: ../src/etsi/Test.cpp Line 7\n",
      buf.getErrorInfo());
   // a control object whose context failed refuses further work
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, control.Decode());
   EXPECT_EQ(RTERR_ENUM_NOT_IN_SET, control.setMsgBuf(buf, 1));
   EXPECT_EQ(1, buf.inits);
}

TEST(ControlClass, ConstraintViolationsKeepTheCodecsRecord)
{
   TestValue value;
   TestDecodeBuffer buf(kBytes, sizeof(kBytes));
   TestControl control(buf, value);
   control.failWith = RTERR_VALUE_CONSTRAINT_VIOLATION;
   EXPECT_EQ(RTERR_VALUE_CONSTRAINT_VIOLATION, control.Decode());
   EXPECT_STREQ(
      "ERROR: Status -16\n"
      "Value constraint violation: field field, value 9\n"
      "Stack trace:\n"
      "  Module: ../src/etsi/Test.cpp Line 7\n",
      buf.getErrorInfo());
}

TEST(ControlClass, ControlWithItsOwnContextBindsBuffersOnDemand)
{
   TestValue value;
   TestControl control(value);
   ASSERT_NE(nullptr, control.getCtxtPtr());
   EXPECT_EQ(RTERR_INVALID_MESSAGE_BUFFER, control.Decode());
   void* p = control.memAlloc(40);
   EXPECT_TRUE(rtxMemHeapCheckPtr(control.getCtxtPtr(), p));

   const unsigned char key[] = "key";
   control.getContext()->setRunTimeKey(key, 3);
   TestDecodeBuffer buf(kBytes, sizeof(kBytes));
   EXPECT_EQ(0, control.DecodeFrom(buf, 0));
   EXPECT_EQ(key, buf.getCtxtPtr()->key);
   EXPECT_EQ(buf.getCtxtPtr(), value.getCtxtPtr());
   EXPECT_NE(buf.getCtxtPtr(), control.getCtxtPtr());
   EXPECT_STREQ("hello", value.text);

   ASN1XType& base = control;
   EXPECT_EQ(RTERR_FEATURE_NOT_SUPPORTED, base.EncodeTo(buf));
   EXPECT_EQ(RTERR_FEATURE_NOT_SUPPORTED, control.ASN1XType::DecodeFrom(buf));
   control.MemFree();
}

TEST(ControlClass, InitFailureOfTheBufferBecomesTheStatus)
{
   TestValue value;
   TestDecodeBuffer buf(kBytes, sizeof(kBytes));
   TestControl control(buf, value);
   buf.initResult = RTERR_INVALID_MESSAGE_BUFFER;
   EXPECT_EQ(RTERR_INVALID_MESSAGE_BUFFER, control.setMsgBuf(buf, 1));
   EXPECT_EQ(RTERR_INVALID_MESSAGE_BUFFER, control.getStatus());
   EXPECT_EQ(RTERR_INVALID_MESSAGE_BUFFER, control.Decode());
}

TEST(ControlClass, BuffersShareAGivenContext)
{
   QSRTCtxtPtr shared(new CountedContext());
   {
      TestDecodeBuffer a(kBytes, 2, shared.get());
      TestDecodeBuffer b(kBytes, 3, shared.get());
      EXPECT_EQ(a.getCtxtPtr(), b.getCtxtPtr());
      EXPECT_EQ(3, shared->getRefCount());
   }
   EXPECT_EQ(1, shared->getRefCount());
   EXPECT_EQ(1, g_contextsAlive);
}

TEST(InputStream, MemoryStreamReadsTheCallersText)
{
   const char text[] = "<a>1</a>";
   QSRTMemoryInputStream in(reinterpret_cast<const unsigned char*>(text), 8);
   ASSERT_TRUE(in.isInitialized());
   EXPECT_EQ(0, in.getStatus());
   QSOCTET buf[5];
   EXPECT_EQ(5, in.read(buf, 5));
   EXPECT_EQ(0, std::memcmp(buf, "<a>1<", 5));
   // a text buffer built over the stream's context reads on from there
   TestDecodeBuffer over(nullptr, 0, in.getContext().get());
   EXPECT_EQ(3, rtxStreamRead(over.getCtxtPtr(), buf, 5));
   EXPECT_EQ(0, std::memcmp(buf, "/a>", 3));
   EXPECT_EQ(0, in.read(buf, 5));
}

TEST(InputStream, AttachFailureIsKeptAsStatus)
{
   QSRTMemoryInputStream in(nullptr, 4);
   EXPECT_EQ(RTERR_INVALID_PARAMETER, in.getStatus());
   EXPECT_STREQ(
      "ERROR: Status -20\n"
      "Invalid parameter passed to function or method\n"
      "Stack trace:\n"
      "  Module: ../../rtxsrc/QSRTMemoryInputStream Line 36\n",
      in.getContext()->getErrorInfo());
}
