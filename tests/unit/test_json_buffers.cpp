// JSON message buffers: encode buffer (dynamic and static), decode buffer
// over a memory stream, memory and a file.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

#include "rtjsonsrc/QSJSONMessageBuffer.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

namespace {

std::string tempPath(const char* tag)
{
   return std::string("/tmp/json_buf_test_") + tag + "_" + std::to_string(getpid());
}

std::string readFile(const std::string& path)
{
   std::string s;
   FILE* fp = std::fopen(path.c_str(), "rb");
   if (fp == nullptr) return "<missing>";
   char buf[256];
   size_t n;
   while ((n = std::fread(buf, 1, sizeof(buf), fp)) > 0) s.append(buf, n);
   std::fclose(fp);
   return s;
}

/* ---- encode buffer ---------------------------------------------------------------------------- */

TEST(JsonEncodeBuffer, DefaultIsEmptyDynamicString)
{
   QSJSONEncodeBuffer eb;
   QSCTXT* ctxt = eb.getCtxtPtr();
   ASSERT_NE(nullptr, ctxt);
   EXPECT_EQ(0, eb.getStatus());
   EXPECT_EQ(0u, eb.getMsgLen());
   ASSERT_NE(nullptr, eb.getMsgPtr());
   EXPECT_STREQ("", (const char*)eb.getMsgPtr());
   EXPECT_EQ(1024u, ctxt->buffer.size);
   EXPECT_TRUE(ctxt->buffer.dynamic);
   EXPECT_EQ(0, ctxt->indent);
}

TEST(JsonEncodeBuffer, IsAOnlyJsonEncode)
{
   QSJSONEncodeBuffer eb;
   for (int t = 2; t <= 7; t++) {
      EXPECT_EQ(t == QSRTMessageBufferIF::JSONEncode,
                (bool)eb.isA((QSRTMessageBufferIF::Type)t)) << t;
   }
}

TEST(JsonEncodeBuffer, CollectsTextAndInit)
{
   QSJSONEncodeBuffer eb;
   QSCTXT* ctxt = eb.getCtxtPtr();
   ASSERT_EQ(0, rtJsonEncOpen(ctxt, '{'));
   ASSERT_EQ(0, rtJsonEncMember(ctxt, 1));
   ASSERT_EQ(0, rtJsonEncKey(ctxt, "a", 1));
   ASSERT_EQ(0, rtxTxtWriteInt(ctxt, -5));
   ASSERT_EQ(0, rtJsonEncClose(ctxt, '}'));
   EXPECT_EQ(std::string("{\n   \"a\":-5\n}"), std::string((const char*)eb.getMsgPtr()));
   EXPECT_EQ(13u, eb.getMsgLen());
   QSOCTET* copy = eb.getMsgCopy();
   ASSERT_NE(nullptr, copy);
   EXPECT_EQ(0, std::memcmp(copy, "{\n   \"a\":-5\n}", 13));
   delete[] copy;
   EXPECT_EQ(0, eb.init());
   EXPECT_EQ(0u, eb.getMsgLen());
}

TEST(JsonEncodeBuffer, GrowsBeyondFirstBlock)
{
   QSJSONEncodeBuffer eb;
   QSCTXT* ctxt = eb.getCtxtPtr();
   std::string expect = "[";
   ASSERT_EQ(0, rtJsonEncOpen(ctxt, '['));
   for (int i = 0; i < 2000; i++) {
      ASSERT_EQ(0, rtJsonEncMember(ctxt, i == 0));
      ASSERT_EQ(0, rtJsonEncStringValue(ctxt, "item"));
      expect += (i == 0) ? "\n   \"item\"" : ",\n   \"item\"";
   }
   ASSERT_EQ(0, rtJsonEncClose(ctxt, ']'));
   expect += "\n]";
   EXPECT_EQ(expect, std::string((const char*)eb.getMsgPtr()));
   EXPECT_EQ(expect.size(), eb.getMsgLen());
}

TEST(JsonEncodeBuffer, StaticBuffer)
{
   unsigned char buf[16];
   std::memset(buf, 'x', sizeof(buf));
   QSJSONEncodeBuffer eb(buf, 8);
   QSCTXT* ctxt = eb.getCtxtPtr();
   EXPECT_EQ(0, buf[0]);
   EXPECT_EQ(buf, eb.getMsgPtr());
   EXPECT_FALSE(ctxt->buffer.dynamic);
   EXPECT_EQ(0, rtJsonEncPutText(ctxt, "1234567", 7));   // 7 + NUL
   EXPECT_STREQ("1234567", (const char*)buf);
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, rtJsonEncPutChar(ctxt, '8'));
   EXPECT_EQ(7u, eb.getMsgLen());
   EXPECT_EQ('x', buf[8]);   // nothing written beyond the given size
}

TEST(JsonEncodeBuffer, WriteToFileAndStream)
{
   QSJSONEncodeBuffer eb;
   ASSERT_EQ(0, rtJsonEncStringValue(eb.getCtxtPtr(), "x\ty"));
   std::string path = tempPath("enc");
   ASSERT_EQ(0, eb.write(path.c_str()));
   EXPECT_EQ("\"x\\ty\"", readFile(path));
   FILE* fp = std::fopen(path.c_str(), "wb");
   ASSERT_NE(nullptr, fp);
   EXPECT_EQ(0, eb.write(fp));
   std::fclose(fp);
   EXPECT_EQ("\"x\\ty\"", readFile(path));
   std::remove(path.c_str());
   EXPECT_EQ(RTERR_FILE_NOT_FOUND, eb.write("/nonexistent-dir/x.json"));
}

/* ---- decode buffer ---------------------------------------------------------------------------- */

TEST(JsonDecodeBuffer, OverMemoryStreamSharesContext)
{
   const char* text = "  {\"a\" : true}";
   QSRTMemoryInputStream in((const unsigned char*)text, strlen(text));
   QSJSONDecodeBuffer db(in);
   QSCTXT* ctxt = db.getCtxtPtr();
   ASSERT_NE(nullptr, ctxt);
   EXPECT_EQ(in.getCtxtPtr(), ctxt);
   EXPECT_EQ(&in, db.getInputStream());
   EXPECT_EQ(0, db.init());
   EXPECT_TRUE(db.isA(QSRTMessageBufferIF::JSONDecode));
   EXPECT_FALSE(db.isA(QSRTMessageBufferIF::JSONEncode));
   EXPECT_FALSE(db.isA(QSRTMessageBufferIF::PERDecode));
   // read in place: the context buffer is the caller's memory
   EXPECT_EQ((const QSOCTET*)text, ctxt->buffer.data);
   EXPECT_FALSE(ctxt->buffer.dynamic);

   static const QSJsonElemName names[] = { { "a", 1 } };
   EXPECT_EQ(0, rtJsonDecMatchObjectStart(ctxt, names, 1));
   QSBOOL v = 0;
   EXPECT_EQ(0, rtJsonDecBool(ctxt, &v));
   EXPECT_EQ(1, v);
   EXPECT_EQ(0, rtJsonDecMatchChar(ctxt, '}'));
   EXPECT_EQ(0, rtxTxtPeekChar2(ctxt, 1));
}

TEST(JsonDecodeBuffer, TokenMatchRestoresOverStream)
{
   const char* text = "\"other\":1";
   QSRTMemoryInputStream in((const unsigned char*)text, strlen(text));
   QSJSONDecodeBuffer db(in);
   QSCTXT* ctxt = db.getCtxtPtr();
   EXPECT_EQ(RTERR_UNEXPECTED_IDENTIFIER, rtJsonDecMatchToken(ctxt, "value"));
   EXPECT_EQ(0u, ctxt->buffer.byteIndex);
   EXPECT_EQ(0, rtJsonDecMatchToken(ctxt, "other"));
   EXPECT_EQ(0, rtJsonDecMatchChar(ctxt, ':'));
}

TEST(JsonDecodeBuffer, SwitchedInputDoesNotReadStreamAgain)
{
   const char* text = "{\"regExtValue\":{\"x\":7},\"regionId\":3}";
   QSRTMemoryInputStream in((const unsigned char*)text, strlen(text));
   QSJSONDecodeBuffer db(in);
   QSCTXT* ctxt = db.getCtxtPtr();
   static const QSJsonElemName names[] = { { "regExtValue", 11 }, { "regionId", 8 } };
   ASSERT_EQ(0, rtJsonDecMatchObjectStart(ctxt, names, 2));
   QSUTF8CHAR* captured = nullptr;
   ASSERT_EQ(0, rtJsonDecAnyType(ctxt, &captured));
   EXPECT_STREQ("{\"x\":7}", (const char*)captured);

   // decode the captured text, then go back to the message
   QSRTBuffer saved = ctxt->buffer;
   ctxt->buffer.data = captured;
   ctxt->buffer.size = strlen((const char*)captured);
   ctxt->buffer.byteIndex = 0;
   static const QSJsonElemName inner[] = { { "x", 1 } };
   ASSERT_EQ(0, rtJsonDecMatchObjectStart(ctxt, inner, 1));
   QSINT32 x = 0;
   ASSERT_EQ(0, rtxTxtReadInt32(ctxt, &x));
   EXPECT_EQ(7, x);
   ASSERT_EQ(0, rtJsonDecMatchChar(ctxt, '}'));
   EXPECT_EQ(0, rtxTxtPeekChar2(ctxt, 1));   // end of the captured text
   ctxt->buffer = saved;
   rtxMemHeapFreePtr(ctxt, captured);

   ASSERT_EQ(0, rtJsonDecMatchChar(ctxt, ','));
   EXPECT_EQ(1, rtJsonGetElemIdx(ctxt, names, 2));
}

TEST(JsonDecodeBuffer, FromMemoryOwnsStream)
{
   const unsigned char text[] = "[1, 2]";
   QSJSONDecodeBuffer db(text, sizeof(text) - 1);
   QSCTXT* ctxt = db.getCtxtPtr();
   ASSERT_NE(nullptr, ctxt);
   ASSERT_NE(nullptr, db.getInputStream());
   QSUTF8CHAR* v = nullptr;
   ASSERT_EQ(0, rtJsonDecAnyType(ctxt, &v));
   EXPECT_STREQ("[1, 2]", (const char*)v);
}

TEST(JsonDecodeBuffer, NullMemoryHasNoInput)
{
   QSJSONDecodeBuffer db((const unsigned char*)nullptr, 0);
   QSCTXT* ctxt = db.getCtxtPtr();
   ASSERT_NE(nullptr, ctxt);
   EXPECT_EQ(nullptr, db.getInputStream());
   EXPECT_EQ(0, rtxTxtPeekChar2(ctxt, 1));
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecMatchChar(ctxt, '{'));
}

TEST(JsonDecodeBuffer, EmptyStream)
{
   QSRTMemoryInputStream in((const unsigned char*)"", 0);
   QSJSONDecodeBuffer db(in);
   QSUTF8CHAR* v = nullptr;
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, rtJsonDecAnyType(db.getCtxtPtr(), &v));
}

TEST(JsonDecodeBuffer, FromFile)
{
   std::string path = tempPath("dec");
   FILE* fp = std::fopen(path.c_str(), "wb");
   ASSERT_NE(nullptr, fp);
   std::string big = "[\"" + std::string(10000, 'z') + "\"]";
   std::fwrite(big.data(), 1, big.size(), fp);
   std::fclose(fp);
   {
      QSJSONDecodeBuffer db(path.c_str());
      EXPECT_EQ(0, db.getStatus());
      QSUTF8CHAR* v = nullptr;
      ASSERT_EQ(0, rtJsonDecAnyType(db.getCtxtPtr(), &v));
      EXPECT_EQ(big, std::string((const char*)v));
   }
   std::remove(path.c_str());
}

TEST(JsonDecodeBuffer, MissingFile)
{
   QSJSONDecodeBuffer db("/nonexistent-dir/none.json");
   EXPECT_EQ(RTERR_FILE_NOT_FOUND, db.getStatus());
   QSJSONDecodeBuffer none((const char*)nullptr);
   EXPECT_EQ(0, none.getStatus());
}

} // namespace
