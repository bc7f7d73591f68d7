/* Shared helpers of the PER runtime tests. */
#ifndef TEST_PER_UTIL_H
#define TEST_PER_UTIL_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "rtpersrc/asn1per.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxMemory.h"

/* A context with a dynamic UNALIGNED encode buffer. */
class PerTest : public ::testing::Test {
protected:
   QSCTXT ctxt;

   void SetUp() override
   {
      ASSERT_EQ(0, rtxInitContext(&ctxt));
      ASSERT_EQ(0, pu_setBuffer(&ctxt, nullptr, 0, 0));
   }
   void TearDown() override { rtxFreeContext(&ctxt); }

   /* Bytes written so far (message length, partial byte included). */
   std::vector<QSOCTET> out()
   {
      QSSIZE len = 0;
      QSOCTET* p = pe_GetMsgPtr(&ctxt, &len);
      return std::vector<QSOCTET>(p, p + len);
   }

   /* Switches the context to decoding the given bytes. */
   void setInput(const std::vector<QSOCTET>& bytes)
   {
      input = bytes;
      static QSOCTET none = 0;
      ASSERT_EQ(0, pu_setBuffer(&ctxt, input.empty() ? &none : input.data(),
                                input.size(), 0));
   }

   /* Re-reads what was just encoded. */
   void decodeOutput() { setInput(out()); }

   QSUINT64 bitPos() const { return rtxGetBitPos(&ctxt); }

   std::vector<QSOCTET> input;
};

inline std::vector<QSOCTET> bytes(std::initializer_list<int> l)
{
   std::vector<QSOCTET> v;
   for (int b : l) v.push_back((QSOCTET)b);
   return v;
}

inline std::string hex(const std::vector<QSOCTET>& v)
{
   std::string s;
   char buf[4];
   for (QSOCTET b : v) {
      std::snprintf(buf, sizeof buf, "%02X", (unsigned)b);
      s += buf;
   }
   return s;
}

#endif
