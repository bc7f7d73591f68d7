// The XML reader's direct paths (plain tags, integers, enumerators, end tag and next member in one
// call) against its general path: every example document rewritten into shapes that the direct
// paths do not take, at every place or at the very end of the input, reads to the same bytes.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "tests/support/examples.h"
#include "tests/support/textConversions.h"

namespace {

const char* const kMessages[] = { "CAM", "DENM", "SPATEM", "MAPEM", "IVIM", "SREM", "SSEM" };

void fromXml(const std::string& msg, const std::string& text, Result* r)
{
   r->status = messageByName(msg)->fromXml(text.c_str(), &r->out, &r->outLen, &r->err, false);
}

std::string replacedAll(const std::string& s, const std::string& re, const std::string& fmt)
{
   return std::regex_replace(s, std::regex(re), fmt);
}

TEST(XmlReaderDirectPaths, UnusualShapesReadAsTheUsualOne)
{
   struct Shape {
      const char* what;
      const char* re;
      const char* fmt;
   };
   const Shape shapes[] = {
      { "CRLF line ends", "\n", "\r\n" },
      { "tabs before tags", "\n +<", "\n\t\t<" },
      { "no whitespace between tags", ">\\s+<", "><" },
      { "space inside end tags", "</([^>]+)>", "</$1 >" },
      { "comment after each end tag", "(</[^>]+>)", "$1<!---->" },
      { "comment before each start tag", "(<[A-Za-z][^>]*>)", "<!---->$1" },
      { "empty elements with a space", "<([A-Za-z][-A-Za-z0-9]*)/>", "<$1 />" },
      { "empty elements as start and end tag", "<([A-Za-z][-A-Za-z0-9]*)/>", "<$1></$1>" },
      { "integers with whitespace", ">(-?[0-9]+)</", "> $1\n</" },
      { "attributes on start tags", "<([A-Za-z][-A-Za-z0-9]*)>", "<$1 a=\"1\">" },
      { "another XML declaration", "^<\\?xml[^>]*>", "<?xml version='1.0' standalone='yes'?>" },
      { "no XML declaration", "^<\\?xml[^>]*>\\s*", "" },
      { "whitespace after the root", "$", " \n\t\r\n" },
   };
   for (const char* msg : kMessages) {
      std::string xml = exampleText(msg, ".xml");
      ASSERT_FALSE(xml.empty()) << msg;
      Result want;
      fromXml(msg, xml, &want);
      ASSERT_EQ(want.status, 0) << msg << "\n" << want.error();
      for (const Shape& s : shapes) {
         std::string text = replacedAll(xml, s.re, s.fmt);
         ASSERT_NE(text, xml) << msg << ": " << s.what;
         Result got;
         fromXml(msg, text, &got);
         ASSERT_EQ(got.status, 0) << msg << ": " << s.what << "\n" << got.error();
         EXPECT_EQ(hex(got.bytes()), hex(want.bytes())) << msg << ": " << s.what;
      }
   }
}

// The document ending right behind the root's end tag, and cut anywhere inside its last end tags:
// the direct paths look ahead by a few bytes and must leave such input to the general path.
TEST(XmlReaderDirectPaths, InputEndingAtTheMargin)
{
   for (const char* msg : kMessages) {
      std::string xml = exampleText(msg, ".xml");
      Result want;
      fromXml(msg, xml, &want);
      ASSERT_EQ(want.status, 0) << msg;
      std::string compact = replacedAll(xml, ">\\s+<", "><");
      while (!compact.empty() && isspace((unsigned char)compact.back())) compact.pop_back();
      Result got;
      fromXml(msg, compact, &got);
      ASSERT_EQ(got.status, 0) << msg << "\n" << got.error();
      EXPECT_EQ(hex(got.bytes()), hex(want.bytes())) << msg;
      for (size_t cut = 1; cut < 40 && cut < compact.size(); cut++) {
         Result bad;
         fromXml(msg, compact.substr(0, compact.size() - cut), &bad);
         EXPECT_LT(bad.status, 0) << msg << " cut " << cut;
         EXPECT_NE(bad.error().find("end-of-file"), std::string::npos) << msg << " cut " << cut << "\n" << bad.error();
      }
   }
}

// An enumerator matched in place must be the whole name: a longer name that starts with an
// identifier, or an identifier the type does not have, goes to the general path and fails there.
TEST(XmlReaderDirectPaths, EnumeratorIsTheWholeName)
{
   std::string xml = exampleText("SSEM", ".xml");
   ASSERT_NE(xml.find("<publicTransport/>"), std::string::npos);
   Result longer;
   fromXml("SSEM", replacedAll(xml, "<publicTransport/>", "<publicTransportX/>"), &longer);
   EXPECT_EQ(longer.status, RTERR_ENUM_NOT_IN_SET) << longer.error();
   Result shorter;
   fromXml("SSEM", replacedAll(xml, "<publicTransport/>", "<public/>"), &shorter);
   EXPECT_EQ(shorter.status, RTERR_ENUM_NOT_IN_SET) << shorter.error();
   Result text;
   fromXml("SSEM", replacedAll(xml, "<publicTransport/>", "publicTransport"), &text);
   EXPECT_LT(text.status, 0);
}

} // namespace
