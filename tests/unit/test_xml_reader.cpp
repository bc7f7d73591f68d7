// XML pull reader: tokenizer events and well-formedness errors, the pull
// operations as the generated decoders call them (SEQUENCE groups, unknown
// elements, extensions, CHOICE, ENUMERATED, BOOLEAN, SEQUENCE OF), value
// readers, error texts, the decode buffer class, and very deep and very
// large documents.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "rtxmlsrc/QSXMLMessageBuffer.h"
#include "rtxmlsrc/rtXml.h"
#include "rtxsrc/QSRTInputStream.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

namespace {

const QSUTF8CHAR* U(const char* s) { return reinterpret_cast<const QSUTF8CHAR*>(s); }

/* Message of one error record (newest when index is -1). */
std::string message(QSCTXT* ctxt, int index = -1)
{
   QSRTDListNode* n = (index < 0) ? ctxt->errInfoList.tail : ctxt->errInfoList.head;
   for (int i = 0; index > 0 && n != nullptr && i < index; i++) n = n->next;
   if (n == nullptr) return "<none>";
   char buf[300];
   buf[0] = 0;
   rtxErrFmtMsg(static_cast<const QSRTErrInfo*>(n->data), buf, sizeof buf);
   return buf;
}

std::string elemNameOf(QSCTXT* ctxt, int index)
{
   QSRTDListNode* n = ctxt->errInfoList.head;
   for (int i = 0; n != nullptr && i < index; i++) n = n->next;
   const QSRTErrInfo* e = (n != nullptr) ? static_cast<const QSRTErrInfo*>(n->data) : nullptr;
   return (e != nullptr && e->elemName != nullptr) ? e->elemName : "";
}

/* Event trace of decodeXML: S(name,level) C(text,level) E(name,level). */
class Recorder : public QSXMLReaderClass {
public:
   std::string trace;
   int startElement(const QSUTF8CHAR* name, size_t len, int level) override
   {
      trace += "S(" + std::string((const char*)name, len) + "," + std::to_string(level) + ")";
      return 0;
   }
   int characters(const QSUTF8CHAR* text, size_t len, int level) override
   {
      trace += "C(" + std::string((const char*)text, len) + "," + std::to_string(level) + ")";
      return 0;
   }
   int endElement(const QSUTF8CHAR* name, size_t len, int level) override
   {
      trace += "E(" + std::string((const char*)name, len) + "," + std::to_string(level) + ")";
      return 0;
   }
};

/* A decode buffer over a memory input stream, as the conversion driver
 * builds it, with the XML information record, ASN.1 XML mode and a reader. */
class XmlReaderTest : public ::testing::Test {
protected:
   std::string doc;
   std::unique_ptr<QSRTMemoryInputStream> strm;
   std::unique_ptr<QSXMLDecodeBuffer> buf;
   QSCTXT* ctxt = nullptr;

   void open(const std::string& text)
   {
      buf.reset();
      doc = text;
      strm.reset(new QSRTMemoryInputStream((const unsigned char*)doc.data(), doc.size()));
      buf.reset(new QSXMLDecodeBuffer(*strm));
      ctxt = buf->getCtxtPtr();
      ASSERT_EQ(ctxt, strm->getCtxtPtr());
      ASSERT_EQ(0, rtXmlInitCtxtAppInfo(ctxt));
      rtxCtxtSetFlag(ctxt, QSXMLCTXT);
      ASSERT_EQ(0, rtXmlpCreateReader(ctxt));
   }

   void TearDown() override
   {
      buf.reset();
      strm.reset();
   }

   int events(const std::string& text, std::string* trace)
   {
      open(text);
      Recorder rec;
      int stat = buf->decodeXML(&rec);
      *trace = rec.trace;
      return stat;
   }

   size_t nameDepth() { return ctxt->elemNameStack.count; }
};

/* ---- tokenizer -------------------------------------------------------------------------------- */

TEST_F(XmlReaderTest, TokenizerEventsAndLevels)
{
   std::string trace;
   ASSERT_EQ(0, events("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c --><?pi x?>"
                       "<!DOCTYPE r [<!ELEMENT r ANY>]>\n"
                       "<r a=\"1\" b='&lt;&#65;'>x&lt;&gt;&amp;&apos;&quot;&#65;&#x42;&#xe9;&#x1F600;"
                       "<![CDATA[<raw>&amp;]]><!--c-->y<?p?>z<e/>\r\n<p:f\n/></r> <!-- after --> <?q?>\n",
                       &trace));
   EXPECT_EQ("S(r,1)C(x<>&'\"AB\xC3\xA9\xF0\x9F\x98\x80<raw>&amp;yz,1)S(e,2)E(e,2)C(\r\n,1)"
             "S(p:f,2)E(p:f,2)E(r,1)",
             trace);
}

TEST_F(XmlReaderTest, TokenizerErrors)
{
   struct Case {
      const char* text;
      int stat;
      const char* msg;   /* exact text of the newest record, or null */
   } cases[] = {
      { "<r>&#0;</r>", RTERR_XML_BAD_CHAR_REFERENCE, "Bad character reference '&#0;' found (line 1, column 4)" },
      { "<r>&#xD800;</r>", RTERR_XML_BAD_CHAR_REFERENCE, nullptr },
      { "<r>&#x110000;</r>", RTERR_XML_BAD_CHAR_REFERENCE, nullptr },
      { "<r>&#99999999999999999999;</r>", RTERR_XML_BAD_CHAR_REFERENCE, nullptr },
      { "<r>&#12a;</r>", RTERR_XML_BAD_CHAR_REFERENCE, nullptr },
      { "<r>&#x;</r>", RTERR_XML_BAD_CHAR_REFERENCE, nullptr },
      { "<r>&foo;</r>", RTERR_XML_BAD_CHAR_REFERENCE, "Bad character reference '&foo;' found (line 1, column 4)" },
      { "<r a='&bar;'/>", RTERR_XML_BAD_CHAR_REFERENCE, nullptr },
      { "<r>a & b</r>", RTERR_XML_INVALID_SYMBOL, "Invalid symbol '&' detected in XML stream (line 1, column 6)" },
      { "<r>\n  <a></b></r>", RTERR_XML_TAG_MISMATCH,
        "Start/end XML tags mismatch: expected 'a', parsed 'b' (line 2, column 6)" },
      { "<r><a>", RTERR_XML_UNEXPECTED_EOF, "Unexpected end-of-file (document) found (line 1, column 7)" },
      { "<r>text", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<r><!-- x", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<r><![CDATA[x]]</r>", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<r a='1", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<r>&#65", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<?xml version='1.0'", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<!-- only -->", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<r a=1/>", RTERR_XML_INVALID_SYMBOL, "Invalid symbol '1' detected in XML stream (line 1, column 6)" },
      { "<r a='<'/>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r a='1'b='2'/>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r a/>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r/ >", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<1r/>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r>< a/></r>", RTERR_XML_INVALID_SYMBOL, "Invalid symbol '#x20' detected in XML stream (line 1, column 5)" },
      { "<r><!x></r>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r>ab<!x></r>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r>ab<", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "<r><", RTERR_XML_UNEXPECTED_EOF, nullptr },
      { "x<r/>", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r/>text", RTERR_XML_INVALID_SYMBOL, nullptr },
      { "<r/><s/>", RTERR_XML_UNEXPECTED_START_TAG, "Unexpected start tag <s> found (line 1, column 5)" },
      { "</r>", RTERR_XML_UNEXPECTED_END_TAG, nullptr },
      { "<r></r></r>", RTERR_XML_UNEXPECTED_END_TAG, nullptr },
   };
   for (const Case& c : cases) {
      std::string trace;
      EXPECT_EQ(c.stat, events(c.text, &trace)) << c.text;
      if (c.msg != nullptr) {
         EXPECT_EQ(c.msg, message(ctxt, 0)) << c.text;
      }
      // the failure is recorded, fatal, with a location of the reader
      EXPECT_EQ(c.stat, rtxErrGetStatus(ctxt)) << c.text;
      char* text = rtxErrGetText(ctxt, nullptr, nullptr);
      ASSERT_NE(nullptr, text);
      EXPECT_NE(nullptr, std::strstr(text, "Module: ../../rtxmlsrc/")) << text;
   }
}

TEST_F(XmlReaderTest, EveryTruncationFailsCleanly)
{
   const std::string full = "<?xml version=\"1.0\"?><!--c--><r a='&amp;&#x41;'><b>t&lt;&#233;<![CDATA[<x>]]></b>"
                            "<?p d?><c/><d>\r\n</d></r>";
   std::string trace;
   ASSERT_EQ(0, events(full, &trace));
   for (size_t n = 0; n < full.size(); n++) {
      int stat = events(full.substr(0, n), &trace);
      EXPECT_LT(stat, 0) << n;
      EXPECT_EQ(stat, rtxErrGetStatus(ctxt)) << n;
   }
}

/* ---- a SEQUENCE decoder as generated --------------------------------------------------------- */

/* SEQUENCE { a INTEGER, b INTEGER OPTIONAL, c BOOLEAN, d OCTET STRING OPTIONAL, ... } */
const QSXmlElemDescr kSeqTab[] = {
   { "a", 1, 0, 0 }, { "b", 1, 0, 1 }, { "c", 1, 0, 2 }, { "d", 1, 0, 3 },
};
const QSXmlGroupDesc kSeqGroups[] = {
   { 0, 1, -1 }, { 1, 2, -1 }, { 2, 1, -1 }, { 3, 1, 4 }, { 4, 0, 4 },
};
const QSXmlElemDescr kBoolTab[] = { { "true", 4, 0, 0 }, { "false", 5, 0, 1 } };

struct Seq {
   QSINT32 a = 0;
   QSINT32 b = 0;
   bool hasB = false;
   QSBOOL c = 2;
   ASN1TDynOctStr64 d = { 0, nullptr };
   QSRTDList ext;
};

int decBool(QSCTXT* ctxt, QSBOOL* pvalue)
{
   int id = rtXmlpGetNextElemID(ctxt, kBoolTab, 2, -1, TRUE);
   if (id < 0) return id;
   if (id == QSXML_END_OF_CONTENT) return RTERR_XML_REQUIRED_ELEMENTS_MISSED;
   *pvalue = (id == 0);
   int stat = rtXmlDecEmptyElement(ctxt);
   if (stat == 0) stat = rtXmlpMatchEndTag(ctxt, -1);
   return stat;
}

int decSeq(QSCTXT* ctxt, Seq* v)
{
   rtxDListInit(&v->ext);
   for (int grp = 0; grp < 5;) {
      int id = rtXmlpGetNextSeqElemID(ctxt, kSeqTab, kSeqGroups, grp, 2, TRUE);
      if (id < 0) return id;
      if (id == QSXML_END_OF_CONTENT) break;
      int stat = 0;
      switch (id) {
         case 0: stat = rtXmlpDecInt(ctxt, &v->a); break;
         case 1: stat = rtXmlpDecInt(ctxt, &v->b); v->hasB = true; break;
         case 2: stat = decBool(ctxt, &v->c); break;
         case 3: stat = rtXmlpDecDynHexStr64(ctxt, &v->d); break;
         default:
            stat = rtXmlpDecExtElems(ctxt, &v->ext, kSeqTab, 4);
            if (stat != 0) return stat;
            grp = id + 1;
            continue;
      }
      if (stat != 0) return stat;
      stat = rtXmlpMatchEndTag(ctxt, -1);
      if (stat != 0) return stat;
      grp = id + 1;
   }
   return 0;
}

class XmlSeqTest : public XmlReaderTest {
protected:
   Seq v;

   int decode(const std::string& text)
   {
      open(text);
      int stat = rtXmlpMatchStartTag(ctxt, U("R"), 0);
      if (stat == 0) stat = decSeq(ctxt, &v);
      if (stat == 0) stat = rtXmlpMatchEndTag(ctxt, -1);
      if (stat == 0) stat = rtXmlpDecodeResult(ctxt);
      return stat;
   }

   std::vector<std::string> extTexts()
   {
      std::vector<std::string> out;
      for (QSRTDListNode* n = v.ext.head; n != nullptr; n = n->next) {
         const ASN1TOpenType* ot = static_cast<const ASN1TOpenType*>(n->data);
         out.emplace_back((const char*)ot->data, ot->numocts);
         EXPECT_EQ(0, ot->data[ot->numocts]);
      }
      return out;
   }
};

TEST_F(XmlSeqTest, MembersInOrderWithWhitespace)
{
   ASSERT_EQ(0, decode("<?xml version=\"1.0\"?>\n<R>\n  <a> 5\n </a>\n  <b>-7</b>\n  <c>\n    <true/>\n  </c>\n"
                       "  <d> 0a\nFF </d>\n</R>\n"));
   EXPECT_EQ(5, v.a);
   EXPECT_TRUE(v.hasB);
   EXPECT_EQ(-7, v.b);
   EXPECT_EQ(TRUE, v.c);
   ASSERT_EQ(2u, v.d.numocts);
   EXPECT_EQ(0x0A, v.d.data[0]);
   EXPECT_EQ(0xFF, v.d.data[1]);
   EXPECT_EQ(0u, v.ext.count);
   EXPECT_EQ(0u, nameDepth());
   EXPECT_EQ(0, rtxErrGetErrorCnt(ctxt));
}

TEST_F(XmlSeqTest, OptionalMemberAbsentAndFalse)
{
   ASSERT_EQ(0, decode("<R><a>1</a><c><false></false></c></R>"));
   EXPECT_FALSE(v.hasB);
   EXPECT_EQ(FALSE, v.c);
   EXPECT_EQ(nullptr, v.d.data);
}

TEST_F(XmlSeqTest, MissingMandatoryMember)
{
   EXPECT_EQ(RTERR_XML_REQUIRED_ELEMENTS_MISSED, decode("<R><a>1</a><b>2</b></R>"));
   EXPECT_EQ("One or more required element missed (line 1, column 20)", message(ctxt));
   EXPECT_EQ("R", elemNameOf(ctxt, 0));
   EXPECT_EQ(RTERR_XML_REQUIRED_ELEMENTS_MISSED, decode("<R/>"));
}

TEST_F(XmlSeqTest, MemberOutOfOrderIsSkippedThenMissed)
{
   // c is not in group 0: skipped and recorded; then c is missing
   EXPECT_EQ(RTERR_XML_REQUIRED_ELEMENTS_MISSED, decode("<R><c><true/></c><a>1</a></R>"));
   ASSERT_EQ(2, rtxErrGetErrorCnt(ctxt));
   EXPECT_EQ("Unexpected element \"c\" found (line 1, column 4)", message(ctxt, 0));
   EXPECT_EQ(RTERR_XML_REQUIRED_ELEMENTS_MISSED, rtxErrGetStatus(ctxt));
}

TEST_F(XmlSeqTest, UnknownElementBeforeExtensionPointFailsAtTheEnd)
{
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, decode("<R><a>1</a>\n<x><y>2</y></x><c><true/></c></R>"));
   EXPECT_EQ(TRUE, v.c);  // the decode went on after the unknown element
   ASSERT_EQ(1, rtxErrGetErrorCnt(ctxt));
   EXPECT_EQ("Unexpected element \"x\" found (line 2, column 1)", message(ctxt));
   EXPECT_EQ("R", elemNameOf(ctxt, 0));
   EXPECT_EQ(0, rtxErrGetStatus(ctxt));  // recorded as non-fatal
}

TEST_F(XmlSeqTest, MemberTwice)
{
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, decode("<R><a>1</a><a>2</a><c><true/></c></R>"));
   EXPECT_EQ(1, v.a);
   EXPECT_EQ("Unexpected element \"a\" found (line 1, column 12)", message(ctxt));
}

TEST_F(XmlSeqTest, UnknownElementsAfterExtensionPointAreKept)
{
   ASSERT_EQ(0, decode("<R><a>1</a><c><true/></c>\n <x k='v'>1<z/></x>  <y/><!-- c -->\n</R>"));
   EXPECT_EQ((std::vector<std::string>{ "<x k='v'>1<z/></x>", "<y/>" }), extTexts());
   EXPECT_EQ(0u, nameDepth());
   EXPECT_EQ(0, rtxErrGetErrorCnt(ctxt));
}

TEST_F(XmlSeqTest, ExtensionCaptureStopsAtAKnownElement)
{
   // d after the extension: the capture leaves it, the member list has ended, the end-tag
   // match records it
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, decode("<R><a>1</a><c><true/></c><x/><d>01</d></R>"));
   EXPECT_EQ((std::vector<std::string>{ "<x/>" }), extTexts());
   EXPECT_EQ("Unexpected element \"d\" found (line 1, column 30)", message(ctxt));
}

TEST_F(XmlSeqTest, EveryTruncationFailsCleanly)
{
   const std::string full = "<R><a>12</a><b>3</b><c><true/></c><d>0A</d><x>1</x></R>";
   ASSERT_EQ(0, decode(full));
   for (size_t n = 0; n < full.size(); n++) {
      v = Seq();
      EXPECT_LT(decode(full.substr(0, n)), 0) << n;
   }
}

TEST_F(XmlSeqTest, BadValues)
{
   struct Case {
      const char* text;
      int stat;
   } cases[] = {
      { "<R><a></a></R>", RTERR_INVALID_VALUE_FORMAT },
      { "<R><a/></R>", RTERR_INVALID_VALUE_FORMAT },
      { "<R><a>  </a></R>", RTERR_INVALID_VALUE_FORMAT },
      { "<R><a>-</a></R>", RTERR_INVALID_VALUE_FORMAT },
      { "<R><a>1 2</a></R>", RTERR_CHARACTER_NOT_IN_SET },
      { "<R><a>0x1</a></R>", RTERR_CHARACTER_NOT_IN_SET },
      { "<R><a>2147483648</a></R>", RTERR_VALUE_WILL_NOT_FIT },
      { "<R><a><z/></a></R>", RTERR_XML_UNEXPECTED_START_TAG },
      { "<R><a>1</a><c><true>x</true></c></R>", RTERR_XML_ELEMENT_NOT_EMPTY },
      { "<R><a>1</a><c><true><z/></true></c></R>", RTERR_XML_ELEMENT_NOT_EMPTY },
      { "<R><a>1</a><c/></R>", RTERR_XML_REQUIRED_ELEMENTS_MISSED },
      { "<R><a>1</a><c>true</c></R>", RTERR_XML_UNEXPECTED_END_TAG },
      { "<R><a>1</a><c><true/></c><d>ABC</d></R>", RTERR_INVALID_HEX_STRING },
      { "<R><a>1</a><c><true/></c><d>AG</d></R>", RTERR_INVALID_HEX_STRING },
      { "<R><a>1</a>", RTERR_XML_UNEXPECTED_EOF },
      { "<R><a>1</a><c><true/></c></R><R/>", RTERR_XML_UNEXPECTED_START_TAG },
      { "<R><a>1</a><c><true/></c></R>x", RTERR_XML_INVALID_SYMBOL },
      { "<R><a>1</a><c><true/></c></R> <!-- c --> <?p?>\n", 0 },
   };
   for (const Case& c : cases) {
      v = Seq();
      EXPECT_EQ(c.stat, decode(c.text)) << c.text;
   }
   decode("<R>\n<a>\n  12x </a></R>");
   EXPECT_EQ("Character is not within the defined character set (line 2, column 4)", message(ctxt));
   decode("<R><a>1</a><c><true>x</true></c></R>");
   EXPECT_EQ("Element is not empty, as is required. (line 1, column 21)", message(ctxt));
   EXPECT_EQ("R.c.true", elemNameOf(ctxt, 0));
}

TEST_F(XmlReaderTest, WrongRootElement)
{
   open("<p:DENM/>");
   EXPECT_EQ(RTERR_XML_UNEXPECTED_IDENTIFIER, rtXmlpMatchStartTag(ctxt, U("CAM"), 0));
   EXPECT_EQ("Unexpected identifier encountered:\n   expected = '':CAM,\n   parsed = 'p':DENM (line 1, column 1)",
             message(ctxt));
   open("  ");
   EXPECT_EQ(RTERR_XML_UNEXPECTED_EOF, rtXmlpMatchStartTag(ctxt, U("CAM"), 0));
   open("<p:CAM></p:CAM>");
   EXPECT_EQ(0, rtXmlpMatchStartTag(ctxt, U("CAM"), 0));
   EXPECT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
}

/* ---- CHOICE, ENUMERATED, SEQUENCE OF ---------------------------------------------------------- */

TEST_F(XmlReaderTest, ChoiceUnknownAlternativeCapturedWhole)
{
   const QSXmlElemDescr alts[] = { { "alt1", 4, 0, 0 } };
   const char* cases[][2] = {
      { "<R><alt2>5</alt2></R>", "<alt2>5</alt2>" },
      { "<R>\n  <alt2/>\n</R>", "<alt2/>" },
      { "<R><alt2 a=\"1\"><q>1</q><q><r/></q> t </alt2></R>", "<alt2 a=\"1\"><q>1</q><q><r/></q> t </alt2>" },
   };
   for (const auto& c : cases) {
      open(c[0]);
      ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
      ASSERT_EQ(RTERR_UNEXPECTED_ELEMENT, rtXmlpGetNextElemID(ctxt, alts, 1, -1, FALSE));
      EXPECT_STREQ("<unknown>", (const char*)rtxCtxtPeekElemName(ctxt));
      EXPECT_EQ(0, rtxErrGetErrorCnt(ctxt));  // the caller decides
      const QSUTF8CHAR* text = nullptr;
      ASSERT_EQ(0, rtXmlpDecAnyElem(ctxt, &text));
      EXPECT_STREQ(c[1], (const char*)text);
      ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));  // the captured element's end tag
      EXPECT_STREQ("R", (const char*)rtxCtxtPeekElemName(ctxt));
      ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
      EXPECT_EQ(0u, nameDepth());
      EXPECT_EQ(0, rtXmlpDecodeResult(ctxt));
   }
   open("<R><alt1>7</alt1></R>");
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, alts, 1, -1, FALSE));
   // put back and found again
   rtxCtxtPopElemName(ctxt);
   ASSERT_EQ(0, rtXmlpMarkLastEventActive(ctxt));
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, alts, 1, -1, FALSE));
   QSUINT8 u8 = 0;
   ASSERT_EQ(0, rtXmlpDecUInt8(ctxt, &u8));
   EXPECT_EQ(7, u8);
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   EXPECT_EQ(QSXML_END_OF_CONTENT, rtXmlpGetNextElemID(ctxt, alts, 1, -1, FALSE));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   // a wildcard entry takes any element
   const QSXmlElemDescr any[] = { { "", 0, -1, 9 } };
   open("<R><zz/></R>");
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   EXPECT_EQ(9, rtXmlpGetNextElemID(ctxt, any, 1, -1, FALSE));
   EXPECT_STREQ("*", (const char*)rtxCtxtPeekElemName(ctxt));
}

TEST_F(XmlReaderTest, EnumeratedChild)
{
   open("<R><e>\n <passengerCar/>\n</e><e><p:x></p:x></e><e/><e>text</e></R>");
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   const QSXmlElemDescr etab[] = { { "e", 1, 0, 0 } };
   QSXmlQName qn;

   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, etab, 1, -1, TRUE));
   ASSERT_EQ(0, rtXmlpGetNextElem(ctxt, &qn, -1));
   EXPECT_STREQ("passengerCar", (const char*)qn.ln);
   EXPECT_EQ(nullptr, qn.nsPrefix);
   EXPECT_STREQ("passengerCar", (const char*)rtxCtxtPeekElemName(ctxt));
   ASSERT_EQ(0, rtXmlDecEmptyElement(ctxt));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));

   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, etab, 1, -1, TRUE));
   ASSERT_EQ(0, rtXmlpGetNextElem(ctxt, &qn, -1));
   EXPECT_STREQ("x", (const char*)qn.ln);
   EXPECT_STREQ("p", (const char*)qn.nsPrefix);
   ASSERT_EQ(0, rtXmlDecEmptyElement(ctxt));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));

   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, etab, 1, -1, TRUE));
   EXPECT_EQ(QSXML_END_OF_CONTENT, rtXmlpGetNextElem(ctxt, &qn, -1));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));

   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, etab, 1, -1, TRUE));
   EXPECT_EQ(RTERR_XML_UNEXPECTED_END_TAG, rtXmlpGetNextElem(ctxt, &qn, -1));
   EXPECT_EQ("Unexpected end tag </e> found (line 3, column 30)", message(ctxt));
}

TEST_F(XmlReaderTest, EmptyElementNeedsAStartTag)
{
   open("<R/>");
   EXPECT_EQ(RTERR_XML_INVALID_DATA_MODE, rtXmlDecEmptyElement(ctxt));
}

TEST_F(XmlReaderTest, EndTagOfAnOuterLevel)
{
   open("<R><a><b>1</b><u/></a><v/></R>");
   const QSXmlElemDescr tab[] = { { "a", 1, 0, 0 }, { "b", 1, 0, 1 } };
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, tab, 2, -1, TRUE));
   ASSERT_EQ(1, rtXmlpGetNextElemID(ctxt, tab, 2, -1, TRUE));
   EXPECT_EQ(3u, nameDepth());
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, 1));
   EXPECT_EQ(0u, nameDepth());
   EXPECT_EQ(2, rtxErrGetErrorCnt(ctxt));  // u and v skipped
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, rtXmlpDecodeResult(ctxt));
   EXPECT_EQ(QSXML_END_OF_CONTENT, rtXmlpGetNextElemID(ctxt, tab, 2, -1, TRUE));
}

TEST_F(XmlReaderTest, SequenceOfAndValueForms)
{
   open("<R><l><i>1</i><i> 2 </i><i>3</i></l>"
        "<s> a &amp; b\n</s><s/><bits> 1 0 1\n1 </bits><bits>102</bits><bits>111111111</bits>"
        "<b>1</b><b> false </b><b>yes</b><b/><u>-0</u><u>-1</u><u>256</u><n>-128</n><n>-129</n>"
        "<L> 1 2  3 </L><o><x a=\"1\">t</x> y</o><o/></R>");
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   auto child = [&](const char* name) {
      QSXmlElemDescr e = { name, (QSSIZE)std::strlen(name), 0, 0 };
      return rtXmlpGetNextElemID(ctxt, &e, 1, -1, TRUE);
   };
   auto end = [&]() { return rtXmlpMatchEndTag(ctxt, -1); };

   ASSERT_EQ(0, child("l"));
   std::vector<QSUINT32> items;
   const QSXmlElemDescr itab[] = { { "i", 1, 0, 0 } };
   int id;
   while ((id = rtXmlpGetNextElemID(ctxt, itab, 1, -1, TRUE)) == 0) {
      QSUINT32 u = 0;
      ASSERT_EQ(0, rtXmlpDecUInt(ctxt, &u));
      ASSERT_EQ(0, end());
      items.push_back(u);
   }
   EXPECT_EQ(QSXML_END_OF_CONTENT, id);
   EXPECT_EQ((std::vector<QSUINT32>{ 1, 2, 3 }), items);
   ASSERT_EQ(0, end());

   const QSUTF8CHAR* s = nullptr;
   ASSERT_EQ(0, child("s"));
   ASSERT_EQ(0, rtXmlpDecDynUTF8Str(ctxt, &s));
   EXPECT_STREQ(" a & b\n", (const char*)s);  // preserved
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("s"));
   ASSERT_EQ(0, rtXmlpDecDynUTF8Str(ctxt, &s));
   EXPECT_STREQ("", (const char*)s);
   ASSERT_EQ(0, end());

   QSOCTET bits[1] = { 0xFF };
   QSSIZE nbits = 0;
   ASSERT_EQ(0, child("bits"));
   ASSERT_EQ(0, rtXmlpDecBitString64(ctxt, bits, &nbits, 1));
   EXPECT_EQ(4u, nbits);
   EXPECT_EQ(0xB0, bits[0]);
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("bits"));
   EXPECT_EQ(RTERR_CHARACTER_NOT_IN_SET, rtXmlpDecBitString64(ctxt, bits, &nbits, 1));
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("bits"));
   EXPECT_EQ(RTERR_MAX_STRING_ITEMS_EXCEEDED, rtXmlpDecBitString64(ctxt, bits, &nbits, 1));
   ASSERT_EQ(0, end());

   const QSBOOL expectBool[] = { TRUE, FALSE };
   for (QSBOOL expected : expectBool) {
      QSBOOL b = 2;
      ASSERT_EQ(0, child("b"));
      ASSERT_EQ(0, rtXmlpDecBool(ctxt, &b));
      EXPECT_EQ(expected, b);
      ASSERT_EQ(0, end());
   }
   QSBOOL b;
   ASSERT_EQ(0, child("b"));
   EXPECT_EQ(RTERR_INVALID_BOOLEAN_KEYWORD, rtXmlpDecBool(ctxt, &b));
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("b"));
   EXPECT_EQ(RTERR_INVALID_VALUE_FORMAT, rtXmlpDecBool(ctxt, &b));
   ASSERT_EQ(0, end());

   QSUINT8 u8 = 9;
   ASSERT_EQ(0, child("u"));
   ASSERT_EQ(0, rtXmlpDecUInt8(ctxt, &u8));
   EXPECT_EQ(0, u8);
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("u"));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtXmlpDecUInt8(ctxt, &u8));
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("u"));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtXmlpDecUInt8(ctxt, &u8));
   EXPECT_EQ("Value will not fit in target variable: element 'R.u'", message(ctxt));
   ASSERT_EQ(0, end());
   QSINT8 i8 = 0;
   ASSERT_EQ(0, child("n"));
   ASSERT_EQ(0, rtXmlpDecInt8(ctxt, &i8));
   EXPECT_EQ(-128, i8);
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("n"));
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtXmlpDecInt8(ctxt, &i8));
   ASSERT_EQ(0, end());

   ASSERT_EQ(0, child("L"));
   ASSERT_EQ(0, rtXmlpSetListMode(ctxt));
   EXPECT_EQ(3, rtXmlpCountListItems(ctxt));
   std::vector<QSUINT16> list;
   while (rtXmlpListHasItem(ctxt)) {
      QSUINT16 u = 0;
      ASSERT_EQ(0, rtXmlpDecUInt16(ctxt, &u));
      list.push_back(u);
   }
   EXPECT_EQ((std::vector<QSUINT16>{ 1, 2, 3 }), list);
   ASSERT_EQ(0, end());

   ASN1TOpenType ot = { 0, nullptr };
   ASSERT_EQ(0, child("o"));
   ASSERT_EQ(0, rtAsn1XmlpDecOpenType(ctxt, &ot));
   EXPECT_EQ("<x a=\"1\">t</x> y", std::string((const char*)ot.data, ot.numocts));
   ASSERT_EQ(0, end());
   ASSERT_EQ(0, child("o"));
   ASSERT_EQ(0, rtAsn1XmlpDecOpenType(ctxt, &ot));
   EXPECT_EQ(0u, ot.numocts);
   ASSERT_EQ(0, end());

   ASSERT_EQ(0, end());
   EXPECT_EQ(0u, nameDepth());
}

TEST_F(XmlReaderTest, BitAndHexStringForms)
{
   open("<R><x>1111111110</x><h>0a1B</h><h>0A0B0C</h><n>horn brake</n><n>late</n></R>");
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   const QSXmlElemDescr any[] = { { "", 0, -1, 0 } };
   QSOCTET data[2];
   QSOCTET* ext = nullptr;
   QSSIZE n = 0;
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, any, 1, -1, TRUE));
   ASSERT_EQ(0, rtXmlpDecBitStringExt64(ctxt, data, &n, &ext, 1));
   EXPECT_EQ(10u, n);
   EXPECT_EQ(0xFF, data[0]);
   ASSERT_NE(nullptr, ext);
   EXPECT_EQ(0x80, ext[0]);
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));

   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, any, 1, -1, TRUE));
   ASSERT_EQ(0, rtXmlpDecHexStr64(ctxt, data, &n, 2));
   EXPECT_EQ(2u, n);
   EXPECT_EQ(0x0A, data[0]);
   EXPECT_EQ(0x1B, data[1]);
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, any, 1, -1, TRUE));
   EXPECT_EQ(RTERR_MAX_STRING_ITEMS_EXCEEDED, rtXmlpDecHexStr64(ctxt, data, &n, 2));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));

   const QSXmlNamedBit table[] = { { "brake", 0 }, { "horn", 3 }, { "late", 9 } };
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, any, 1, -1, TRUE));
   ASSERT_EQ(0, rtXmlpDecNamedBits64(ctxt, table, 3, data, &n, 2));
   EXPECT_EQ(4u, n);
   EXPECT_EQ(0x90, data[0]);
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, any, 1, -1, TRUE));
   ASSERT_EQ(0, rtXmlpDecNamedBits64(ctxt, table, 3, data, &n, 2));
   EXPECT_EQ(10u, n);
   EXPECT_EQ(0x40, data[1]);
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
}

/* ---- limits ----------------------------------------------------------------------------------- */

TEST_F(XmlReaderTest, DeepNestingIsSkippedCapturedAndChecked)
{
   const int depth = 200000;
   std::string deep;
   deep.reserve(depth * 8 + 32);
   for (int i = 0; i < depth; i++) deep += "<x>";
   for (int i = 0; i < depth; i++) deep += "</x>";
   std::string text = "<R>" + deep + "</R>";

   // skipped as an unknown element by the end-tag match
   open(text);
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   EXPECT_EQ(RTERR_UNEXPECTED_ELEMENT, rtXmlpDecodeResult(ctxt));

   // captured whole
   open(text);
   const QSXmlElemDescr none[] = { { "y", 1, 0, 0 } };
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   ASSERT_EQ(RTERR_UNEXPECTED_ELEMENT, rtXmlpGetNextElemID(ctxt, none, 1, -1, FALSE));
   const QSUTF8CHAR* captured = nullptr;
   ASSERT_EQ(0, rtXmlpDecAnyElem(ctxt, &captured));
   EXPECT_EQ(deep.size(), std::strlen((const char*)captured));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));

   // every event, and an unterminated deep document
   std::string trace;
   EXPECT_EQ(0, events(text, &trace));
   EXPECT_EQ(RTERR_XML_UNEXPECTED_EOF, events("<R>" + deep.substr(0, depth * 3), &trace));
}

TEST_F(XmlReaderTest, MultiMegabyteDocument)
{
   const int count = 300000;
   std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R>\n";
   for (int i = 0; i < count; i++) text += "   <i>" + std::to_string(i % 1000) + "</i>\n";
   text += "   <s>" + std::string(2000000, 'a') + "&amp;</s>\n</R>";
   ASSERT_GT(text.size(), 5000000u);
   open(text);
   ASSERT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   const QSXmlElemDescr itab[] = { { "i", 1, 0, 0 } };
   long long sum = 0;
   int n = 0;
   while (rtXmlpGetNextElemID(ctxt, itab, 1, -1, FALSE) == 0) {
      QSUINT16 u = 0;
      ASSERT_EQ(0, rtXmlpDecUInt16(ctxt, &u));
      ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
      sum += u;
      n++;
   }
   EXPECT_EQ(count, n);
   EXPECT_EQ(300LL * 499500, sum);
   rtxCtxtPopElemName(ctxt);  // "<unknown>" pushed for <s>
   const QSXmlElemDescr stab[] = { { "s", 1, 0, 0 } };
   ASSERT_EQ(0, rtXmlpGetNextElemID(ctxt, stab, 1, -1, TRUE));
   const QSUTF8CHAR* s = nullptr;
   ASSERT_EQ(0, rtXmlpDecDynUTF8Str(ctxt, &s));
   EXPECT_EQ(2000001u, std::strlen((const char*)s));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   EXPECT_EQ(0, rtXmlpDecodeResult(ctxt));
}

/* ---- decode buffer ---------------------------------------------------------------------------- */

TEST(XmlDecodeBuffer, ConstructorsKindsAndChecks)
{
   const char* text = "<R><a>1</a></R>";
   QSXMLDecodeBuffer mem((const unsigned char*)text, std::strlen(text));
   EXPECT_TRUE(mem.isA(QSRTMessageBufferIF::XMLDecode));
   EXPECT_FALSE(mem.isA(QSRTMessageBufferIF::XMLEncode));
   EXPECT_FALSE(mem.isA(QSRTMessageBufferIF::JSONDecode));
   ASSERT_EQ(0, mem.init());
   EXPECT_TRUE(mem.isWellFormed());
   QSUTF8CHAR* name = nullptr;
   ASSERT_EQ(0, mem.parseElementName(&name));
   EXPECT_STREQ("R", (const char*)name);
   // the start tag is left for the decoder
   QSCTXT* ctxt = mem.getCtxtPtr();
   EXPECT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   EXPECT_TRUE(mem.isWellFormed());

   const char* bad = "<R><a></R>";
   QSXMLDecodeBuffer badBuf((const unsigned char*)bad, std::strlen(bad));
   EXPECT_FALSE(badBuf.isWellFormed());
   EXPECT_EQ(RTERR_XML_TAG_MISMATCH, rtxErrGetStatus(badBuf.getCtxtPtr()));

   char path[] = "/tmp/xmlrt_reader_XXXXXX";
   int fd = mkstemp(path);
   ASSERT_GE(fd, 0);
   FILE* fp = fdopen(fd, "wb");
   std::fputs("<F>1</F>", fp);
   std::fclose(fp);
   {
      QSXMLDecodeBuffer file(path);
      EXPECT_EQ(0, file.getStatus());
      Recorder rec;
      EXPECT_EQ(0, file.decodeXML(&rec));
      EXPECT_EQ("S(F,1)C(1,1)E(F,1)", rec.trace);
   }
   std::remove(path);
   QSXMLDecodeBuffer missing("/nonexistent/xmlrt.xml");
   EXPECT_EQ(RTERR_FILE_NOT_FOUND, missing.getStatus());
}

TEST(XmlDecodeBuffer, ReaderWithoutInformationRecordOrReader)
{
   QSRTMemoryInputStream s((const unsigned char*)"<R/>", 4);
   QSXMLDecodeBuffer d(s);
   QSCTXT* ctxt = d.getCtxtPtr();
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   ASSERT_EQ(0, rtXmlInitCtxtAppInfo(ctxt));
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtXmlpMatchEndTag(ctxt, -1));
   ASSERT_EQ(0, rtXmlpCreateReader(ctxt));
   EXPECT_EQ(0, rtXmlpMatchStartTag(ctxt, U("R"), 0));
   EXPECT_EQ(RTERR_INVALID_PARAMETER, rtXmlpGetNextElem(ctxt, nullptr, -1));
   EXPECT_EQ(0, rtXmlpMatchEndTag(ctxt, -1));
   EXPECT_EQ(RTERR_XML_TAG_NOT_MATCHED, rtXmlpMatchEndTag(ctxt, -1));
}

} // namespace
