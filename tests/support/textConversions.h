// What the tests of the exported conversions share: the result of one call, byte helpers, and
// the corpus round trip PER -> text -> PER that both text forms must pass.
#ifndef ETSI_TEST_TEXT_CONVERSIONS_H
#define ETSI_TEST_TEXT_CONVERSIONS_H

#include <gtest/gtest.h>

#include <stdio.h>

#include <map>
#include <string>
#include <vector>

#include "src/etsi_v2x.h"
#include "rtxsrc/rtxErrCodes.h"
#include "tests/support/conversions.h"
#include "tests/support/corpus.h"

inline std::string str(const std::vector<unsigned char>& v) { return std::string(v.begin(), v.end()); }
inline std::string hex(const std::string& s) { return hexOf((const unsigned char*)s.data(), s.size()); }
inline std::string unhex(const std::string& h) { return str(bytesOf(h)); }

// The pair of one text form for a message type, or nulls for a type the form does not have.
typedef void (*FormOf)(const std::string& type, ToText* to, FromText* from);

// Every captured message converts to text and back to its own bytes, with the exceptions the
// text forms have by design, each checked for what it is:
// - an older edition whose enumeration values lie beyond today's root is not writable as text;
// - a message with an extension addition this version does not know (`hasUnknownAddition` of
//   its text) is written with the addition's bytes; read back, the addition is kept as text,
//   so the PER differs while the text is a fixed point;
// - bytes after the decoded length are the zero padding of the capture.
// `label` names the form in the printed counts.
inline void corpusRoundTrip(const char* label, FormOf form, bool (*hasUnknownAddition)(const std::string&))
{
   std::map<std::string, int> identical, extensions, older;
   for (const CorpusMessage& m : loadCorpus()) {
      ToText to = nullptr;
      FromText from = nullptr;
      form(m.type, &to, &from);
      ASSERT_NE(to, nullptr) << m.type;
      Result t;
      t.status = to((const char*)m.bytes.data(), m.bytes.size(), &t.out, &t.err, false);
      if (t.status != 0 && m.protocolVersion < 2) {
         EXPECT_EQ(t.status, RTERR_ENUM_NOT_IN_SET) << m.file;
         older[m.type]++;
         continue;
      }
      ASSERT_EQ(t.status, 0) << m.file << "\n" << t.error();
      ASSERT_EQ(t.err, nullptr);
      Result p;
      p.status = from(t.out, &p.out, &p.outLen, &p.err, false);
      ASSERT_EQ(p.status, 0) << m.file << "\n" << p.error();
      if (hasUnknownAddition(t.text())) {
         Result t2;
         t2.status = to(p.out, p.outLen, &t2.out, &t2.err, false);
         ASSERT_EQ(t2.status, 0) << m.file << "\n" << t2.error();
         EXPECT_EQ(t2.text(), t.text()) << m.file;
         extensions[m.type]++;
         continue;
      }
      std::string want = str(m.bytes).substr(0, p.outLen);
      EXPECT_EQ(hex(p.bytes()), hex(want)) << m.file;
      EXPECT_EQ(str(m.bytes).find_first_not_of('\0', p.outLen), std::string::npos) << m.file;
      identical[m.type]++;
   }
   for (const auto& kv : identical) printf("%s %-7s %4d byte-identical\n", label, kv.first.c_str(), kv.second);
   for (const auto& kv : extensions)
      printf("%s %-7s %4d with unknown extensions (text stable)\n", label, kv.first.c_str(), kv.second);
   for (const auto& kv : older)
      printf("%s %-7s %4d older edition, enumeration beyond root\n", label, kv.first.c_str(), kv.second);
   EXPECT_GT(identical["CAM"], 100);
   EXPECT_GT(identical["SPATEM"], 100);
   EXPECT_GT(identical["SSEM"], 100);
}

#endif
