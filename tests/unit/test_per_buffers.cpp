/* PER message buffer classes. */
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "rtpersrc/asn1PerCppTypes.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxPrintStream.h"

TEST(PerBuffers, EncodeBufferBasics)
{
   ASN1PEREncodeBuffer enc(0);
   EXPECT_TRUE(enc.isA(QSRTMessageBufferIF::PEREncode));
   EXPECT_FALSE(enc.isA(QSRTMessageBufferIF::PERDecode));
   QSCTXT* ctxt = enc.getCtxtPtr();
   ASSERT_NE(nullptr, ctxt);
   EXPECT_EQ(0, enc.isAligned());
   ASSERT_EQ(0, rtxEncBits(ctxt, 5, 3));
   EXPECT_EQ(1u, enc.getMsgLen());
   ASSERT_EQ(0, enc.byteAlign());
   EXPECT_EQ(1u, enc.getMsgLen());
   EXPECT_EQ(8u, enc.getBitOffset());
   ASSERT_EQ(0, rtxEncBits(ctxt, 0xAB, 8));
   EXPECT_EQ(2, enc.encodeLength(2));
   ASSERT_NE(nullptr, enc.getMsgPtr());
   QSOCTET* copy = enc.getMsgCopy();
   ASSERT_NE(nullptr, copy);
   EXPECT_EQ(0xA0, copy[0]);
   EXPECT_EQ(0xAB, copy[1]);
   EXPECT_EQ(0x02, copy[2]);
   delete[] copy;

   ASSERT_EQ(0, enc.init());
   EXPECT_EQ(0u, enc.getMsgLen());
}

TEST(PerBuffers, EncodeBufferFixedOverflow)
{
   QSOCTET buf[2];
   ASN1PEREncodeBuffer enc(buf, sizeof buf, 0);
   QSOCTET data[3] = {1, 2, 3};
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, enc.encodeBitOrOctStr(3, data, nullptr, 0));
   EXPECT_EQ(nullptr, enc.getMsgPtr());
   EXPECT_EQ(nullptr, enc.getMsgCopy());
}

TEST(PerBuffers, DecodeBufferReads)
{
   const QSOCTET msg[] = {0xA5, 0x12, 0x34, 0x56};
   ASN1PERDecodeBuffer dec(msg, sizeof msg, 0);
   EXPECT_TRUE(dec.isA(QSRTMessageBufferIF::PERDecode));
   EXPECT_FALSE(dec.isA(QSRTMessageBufferIF::PEREncode));
   QSUINT32 v = 0;
   ASSERT_EQ(0, dec.decodeBits(4, v));
   EXPECT_EQ(0xAu, v);
   QSOCTET b = 0;
   ASSERT_EQ(0, dec.peekByte(b));
   EXPECT_EQ(0x12, b);
   ASSERT_EQ(0, dec.byteAlign());
   QSOCTET out[2] = {0, 0};
   ASSERT_EQ(0, dec.readBytes(out, sizeof out, 2));
   EXPECT_EQ(0x12, out[0]);
   EXPECT_EQ(0x34, out[1]);
   EXPECT_EQ(RTERR_UNEXPECTED_END_OF_BUFFER, dec.decodeBytes(2, out, sizeof out));
   ASSERT_EQ(0, dec.decodeBits(8, out, 1));
   EXPECT_EQ(0x56, out[0]);
}

TEST(PerBuffers, DecodeBufferFromFile)
{
   std::string path = ::testing::TempDir() + "per_buffer_test.bin";
   std::FILE* fp = std::fopen(path.c_str(), "wb");
   ASSERT_NE(nullptr, fp);
   std::fwrite("\x81\x02", 1, 2, fp);
   std::fclose(fp);
   ASN1PERDecodeBuffer dec(path.c_str(), 0);
   QSUINT32 v = 0;
   ASSERT_EQ(0, dec.decodeBits(16, v));
   EXPECT_EQ(0x8102u, v);
   std::remove(path.c_str());

   ASN1PERDecodeBuffer missing("/nonexistent/file.per", 0);
   EXPECT_EQ(RTERR_FILE_NOT_FOUND, rtxErrGetStatus(missing.getCtxtPtr()));
   // The PER buffers record their failures under a bare source name, not a path.
   const QSRTErrInfo* rec = static_cast<const QSRTErrInfo*>(missing.getCtxtPtr()->errInfoList.head->data);
   ASSERT_EQ(1, rec->stkx);
   EXPECT_STREQ("asn1PerCppTypes", rec->stack[0].module);
}

TEST(PerBuffers, TraceAndDumpThroughBuffer)
{
   ASN1PEREncodeBuffer enc(0);
   EXPECT_EQ(0, enc.setTrace(1));
   ASSERT_EQ(0, pe_OctetString(enc.getCtxtPtr(), 1, (const QSOCTET*)"A"));
   std::string text;
   rtxSetPrintStream(enc.getCtxtPtr(),
                     [](void* arg, const char* fmt, va_list args) {
                        char buf[256];
                        std::vsnprintf(buf, sizeof buf, fmt, args);
                        static_cast<std::string*>(arg)->append(buf);
                     },
                     &text);
   enc.binDump("v");
   EXPECT_EQ("v.length\n"
             "bit offset: 0\tbit count: 8\tnext bit offset: 8\n"
             "00000001 -------- -------- --------    01------    .---\n"
             "\n"
             "v.OctetString\n"
             "bit offset: 8\tbit count: 8\tnext bit offset: 16\n"
             "01000001 -------- -------- --------    41------    A---\n"
             "\n",
             text);
   EXPECT_EQ(1, enc.setTrace(0));
}
