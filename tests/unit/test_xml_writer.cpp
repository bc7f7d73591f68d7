// XML writer: exact document layout in ASN.1 XML mode, escaping, hex and bit
// forms, open types, buffer termination and the encode buffer class.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "rtxmlsrc/QSXMLMessageBuffer.h"
#include "rtxmlsrc/rtXml.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"

namespace {

const QSUTF8CHAR* U(const char* s) { return reinterpret_cast<const QSUTF8CHAR*>(s); }

/* An encode buffer prepared the way a message's control class does it:
 * XML information record, ASN.1 XML mode, declaration, root start tag left
 * open. */
class XmlWriterTest : public ::testing::Test {
protected:
   QSXMLEncodeBuffer buf;
   QSCTXT* ctxt = nullptr;

   void SetUp() override
   {
      ctxt = buf.getCtxtPtr();
      ASSERT_NE(nullptr, ctxt);
      ASSERT_EQ(nullptr, ctxt->pAppInfo[0]);
      ASSERT_EQ(0, rtErrXmlInit());
      ASSERT_EQ(0, rtXmlInitCtxtAppInfo(ctxt));
      rtxCtxtSetFlag(ctxt, QSXMLCTXT);
   }

   void startRoot(const char* name = "CAM")
   {
      ASSERT_EQ(0, rtXmlEncStartDocument(ctxt));
      ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U(name), nullptr, nullptr, FALSE));
   }

   std::string text()
   {
      return std::string(reinterpret_cast<const char*>(buf.getMsgPtr()), buf.getMsgLen());
   }

   /* The document between the root tags (root start and end tag lines removed). */
   std::string body(const char* root = "CAM")
   {
      EXPECT_EQ(0, rtXmlEncEndElement(ctxt, U(root), nullptr));
      std::string t = text();
      std::string head = std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<") + root + ">";
      std::string tail = std::string("\n</") + root + ">";
      if (t.compare(0, head.size(), head) != 0 || t.size() < head.size() + tail.size() ||
          t.compare(t.size() - tail.size(), tail.size(), tail) != 0)
         return "<<" + t + ">>";
      return t.substr(head.size(), t.size() - head.size() - tail.size());
   }
};

/* ---- layout ----------------------------------------------------------------------------------- */

TEST_F(XmlWriterTest, CamLikeDocumentLayout)
{
   startRoot();
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U(""), nullptr, nullptr, TRUE));  // PDU content straight in
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("header"), nullptr, nullptr, TRUE));
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 2, U("protocolVersion"), nullptr));
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 2, U("messageID"), nullptr));
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 12345, U("stationID"), nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("header"), nullptr));
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("cam"), nullptr, nullptr, TRUE));
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 1000, U("generationDeltaTime"), nullptr));
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("camParameters"), nullptr, nullptr, TRUE));
   ASSERT_EQ(0, rtXmlEncInt(ctxt, -5, U("latitude"), nullptr));
   ASSERT_EQ(0, rtXmlEncBool(ctxt, TRUE, U("elevatedTemperature"), nullptr));
   ASSERT_EQ(0, rtXmlEncEnum(ctxt, U("passengerCar"), U("stationType"), nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("camParameters"), nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("cam"), nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("CAM"), nullptr));
   EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
             "<CAM>\n"
             "   <header>\n"
             "      <protocolVersion>2</protocolVersion>\n"
             "      <messageID>2</messageID>\n"
             "      <stationID>12345</stationID>\n"
             "   </header>\n"
             "   <cam>\n"
             "      <generationDeltaTime>1000</generationDeltaTime>\n"
             "      <camParameters>\n"
             "         <latitude>-5</latitude>\n"
             "         <elevatedTemperature>\n"
             "            <true/>\n"
             "         </elevatedTemperature>\n"
             "         <stationType>\n"
             "            <passengerCar/>\n"
             "         </stationType>\n"
             "      </camParameters>\n"
             "   </cam>\n"
             "</CAM>",
             text());
   // the last byte is the '>' of the root end tag, a NUL follows outside the length
   EXPECT_EQ('>', buf.getMsgPtr()[buf.getMsgLen() - 1]);
   EXPECT_EQ(0, buf.getMsgPtr()[buf.getMsgLen()]);
   EXPECT_EQ(0, ctxt->xmlDepth);
   EXPECT_EQ(nullptr, rtxCtxtPeekElemName(ctxt));
   EXPECT_EQ(0, rtxErrGetErrorCnt(ctxt));
}

TEST_F(XmlWriterTest, EmptyContentCollapsesToEmptyElement)
{
   startRoot();
   // SEQUENCE with all members absent: '>' already written is taken back
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("seq"), nullptr, nullptr, TRUE));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("seq"), nullptr));
   ASSERT_EQ(0, rtXmlEncUTF8Str(ctxt, U(""), U("str"), nullptr));
   ASSERT_EQ(0, rtXmlEncUTF8Str(ctxt, nullptr, U("nullStr"), nullptr));
   ASSERT_EQ(0, rtXmlEncHexBinary(ctxt, 0, nullptr, U("octets"), nullptr));
   ASSERT_EQ(0, rtXmlEncBitString(ctxt, 0, nullptr, U("bits"), nullptr));
   ASSERT_EQ(0, rtXmlEncNull(ctxt, U("null"), nullptr));
   EXPECT_EQ("\n   <seq/>\n   <str/>\n   <nullStr/>\n   <octets/>\n   <bits/>\n   <null/>", body());
}

TEST_F(XmlWriterTest, EmptyRootAndOpenStartTag)
{
   startRoot();
   // the root start tag is still open: the end tag closes it as "/>"
   EXPECT_TRUE(ctxt->flags & QSXMLSTARTOPEN);
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("CAM"), nullptr));
   EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CAM/>", text());
   EXPECT_FALSE(ctxt->flags & QSXMLSTARTOPEN);
}

TEST_F(XmlWriterTest, EscapingOfTheFiveCharacters)
{
   startRoot();
   ASSERT_EQ(0, rtXmlEncUTF8Str(ctxt, U("a<&>'\"b \xC3\xA9\t"), U("name"), nullptr));
   EXPECT_EQ("\n   <name>a&lt;&amp;&gt;&apos;&quot;b \xC3\xA9\t</name>", body());
}

TEST_F(XmlWriterTest, IntegersAtTheLimits)
{
   startRoot();
   ASSERT_EQ(0, rtXmlEncInt64(ctxt, INT64_MIN, U("a"), nullptr));
   ASSERT_EQ(0, rtXmlEncUInt64(ctxt, UINT64_MAX, U("b"), nullptr));
   ASSERT_EQ(0, rtXmlEncInt(ctxt, 0, U("c"), nullptr));
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 4294967295u, U("d"), nullptr));
   EXPECT_EQ("\n   <a>-9223372036854775808</a>\n   <b>18446744073709551615</b>\n   <c>0</c>\n"
             "   <d>4294967295</d>",
             body());
}

TEST_F(XmlWriterTest, HexIsUppercaseAndContinuousPast80Digits)
{
   startRoot();
   QSOCTET data[45];
   for (int i = 0; i < 45; i++) data[i] = (QSOCTET)(0xA0 + i);
   ASSERT_EQ(0, rtXmlEncHexBinary(ctxt, sizeof data, data, U("octets"), nullptr));
   std::string hex;
   for (int i = 0; i < 45; i++) {
      char two[3];
      std::snprintf(two, sizeof two, "%02X", 0xA0 + i);
      hex += two;
   }
   EXPECT_EQ(90u, hex.size());
   EXPECT_EQ("\n   <octets>" + hex + "</octets>", body());
}

TEST_F(XmlWriterTest, HexOutsideAsn1ModeAndNegativeLength)
{
   rtxCtxtClearFlag(ctxt, QSXMLCTXT);
   startRoot();
   const QSOCTET data[] = { 0xAB, 0x0C };
   ASSERT_EQ(0, rtXmlEncHexBinary(ctxt, 2, data, U("lower"), nullptr));
   rtxCtxtSetFlag(ctxt, QSXMLHEXUPPER);
   ASSERT_EQ(0, rtXmlEncHexBinary(ctxt, 2, data, U("upper"), nullptr));
   EXPECT_EQ("\n   <lower>ab0c</lower>\n   <upper>AB0C</upper>", body());
   EXPECT_EQ(RTERR_VALUE_WILL_NOT_FIT, rtXmlEncHexBinary(ctxt, (QSSIZE)-1, data, U("x"), nullptr));
}

TEST_F(XmlWriterTest, BitStringsFirstBitFirst)
{
   startRoot();
   const QSOCTET data[] = { 0xA5, 0x80 };
   ASSERT_EQ(0, rtXmlEncBitString(ctxt, 9, data, U("bits"), nullptr));
   const QSOCTET ext[] = { 0x40 };
   ASSERT_EQ(0, rtXmlEncBitStringExt(ctxt, 10, data, 1, ext, U("ext"), nullptr));
   std::string many(100, '1');
   QSOCTET ones[13];
   std::memset(ones, 0xFF, sizeof ones);
   ASSERT_EQ(0, rtXmlEncBitString(ctxt, 100, ones, U("long"), nullptr));
   EXPECT_EQ("\n   <bits>101001011</bits>\n   <ext>1010010101</ext>\n   <long>" + many + "</long>", body());
}

TEST_F(XmlWriterTest, NamedBitsOutsideAsn1Mode)
{
   const QSXmlNamedBit table[] = { { "brake", 0 }, { "horn", 3 }, { "late", 9 } };
   const QSOCTET data[] = { 0x90, 0x40 };
   rtxCtxtClearFlag(ctxt, QSXMLCTXT);
   startRoot();
   ASSERT_EQ(0, rtXmlEncNamedBits(ctxt, table, 3, 9, data, U("named"), nullptr));
   rtxCtxtSetFlag(ctxt, QSXMLCTXT);
   ASSERT_EQ(0, rtXmlEncNamedBits(ctxt, table, 3, 9, data, U("digits"), nullptr));
   EXPECT_EQ("\n   <named>brake horn</named>\n   <digits>100100000</digits>", body());
}

TEST_F(XmlWriterTest, BooleanOutsideAsn1ModeIsText)
{
   rtxCtxtClearFlag(ctxt, QSXMLCTXT);
   startRoot();
   ASSERT_EQ(0, rtXmlEncBool(ctxt, FALSE, U("flag"), nullptr));
   EXPECT_EQ("\n   <flag>false</flag>", body());
}

TEST_F(XmlWriterTest, OpenTypes)
{
   startRoot();
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("choice"), nullptr, nullptr, TRUE));
   const char* xml = "<newAlt><x>1</x></newAlt>";
   ASSERT_EQ(0, rtAsn1XmlEncOpenType(ctxt, U(xml), std::strlen(xml), nullptr, nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("choice"), nullptr));
   const QSOCTET opaque[] = { 0x01, 0xFE, 0x3C };
   ASSERT_EQ(0, rtAsn1XmlEncOpenType(ctxt, opaque, 3, U("named"), nullptr));
   // "<a>" is XML-like but too short; invalid UTF-8 makes the text opaque
   ASSERT_EQ(0, rtAsn1XmlEncOpenType(ctxt, U("<a>"), 3, nullptr, nullptr));
   ASSERT_EQ(0, rtAsn1XmlEncOpenType(ctxt, U("<a>\xFF</a>"), 8, nullptr, nullptr));

   // extension list: each element without a name
   QSRTDList list;
   rtxDListInit(&list);
   ASN1TOpenType ot1 = { 2, opaque };
   ASN1TOpenType ot2 = { (QSUINT32)std::strlen(xml), U(xml) };
   ASSERT_NE(nullptr, rtxDListAppend(ctxt, &list, &ot1));
   ASSERT_NE(nullptr, rtxDListAppend(ctxt, &list, &ot2));
   ASSERT_EQ(0, rtAsn1XmlEncOpenTypeExt(ctxt, &list));
   rtxDListFreeNodes(ctxt, &list);

   EXPECT_EQ("\n   <choice>\n      <newAlt><x>1</x></newAlt>\n   </choice>"
             "\n   <named>01FE3C</named>"
             "\n   <binext>3C613E</binext>"
             "\n   <binext>3C613EFF3C2F613E</binext>"
             "\n   <binext>01FE</binext>"
             "\n   <newAlt><x>1</x></newAlt>",
             body());
}

TEST_F(XmlWriterTest, ValuesWithoutElementName)
{
   startRoot();
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 7, nullptr, nullptr));
   ASSERT_EQ(0, rtXmlEncStringValue(ctxt, U("&")));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("CAM"), nullptr));
   EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CAM>7&amp;</CAM>", text());
}

TEST_F(XmlWriterTest, MismatchedEndTagIsNotedNotFatal)
{
   startRoot();
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("a"), nullptr, nullptr, TRUE));
   EXPECT_EQ(0, rtXmlEncEndElement(ctxt, U("b"), nullptr));
   EXPECT_EQ(0, rtxErrGetStatus(ctxt));
   EXPECT_EQ(RTERR_XML_TAG_MISMATCH, rtxErrCheckNonFatal(ctxt));
}

TEST_F(XmlWriterTest, SettingsIndentAndPrefix)
{
   ASSERT_EQ(3, buf.getIndent());
   ASSERT_EQ(' ', buf.getIndentChar());
   ASSERT_EQ(0, buf.setIndent(1));
   ASSERT_EQ(0, buf.setIndentChar('\t'));
   startRoot("R");
   QSXmlNamespace ns = { nullptr, U("p") };
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("a"), &ns, nullptr, TRUE));
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 1, U("b"), nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("a"), &ns));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("R"), nullptr));
   EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R>\n\t<p:a>\n\t\t<b>1</b>\n\t</p:a>\n</R>", text());
}

TEST_F(XmlWriterTest, NoFormattingFragmentAndNamespaces)
{
   rtxCtxtClearFlag(ctxt, QSXMLCTXT);
   ASSERT_EQ(0, buf.setFormatting(false));
   buf.setFragment(true);
   buf.setNamespace(nullptr, U("urn:a"));
   buf.setNamespace(U("x"), U("urn:\"b\""));
   startRoot("R");
   ASSERT_EQ(0, rtXmlEncUInt(ctxt, 1, U("v"), nullptr));
   ASSERT_EQ(0, rtXmlEncEndElement(ctxt, U("R"), nullptr));
   EXPECT_EQ("<R xmlns=\"urn:a\" xmlns:x=\"urn:&quot;b&quot;\"><v>1</v></R>", text());
}

/* ---- buffers ---------------------------------------------------------------------------------- */

TEST(XmlEncodeBuffer, KindsAndInitialState)
{
   QSXMLEncodeBuffer buf;
   EXPECT_TRUE(buf.isA(QSRTMessageBufferIF::XMLEncode));
   for (auto t : { QSRTMessageBufferIF::PEREncode, QSRTMessageBufferIF::PERDecode,
                   QSRTMessageBufferIF::XMLDecode, QSRTMessageBufferIF::JSONEncode,
                   QSRTMessageBufferIF::JSONDecode })
      EXPECT_FALSE(buf.isA(t));
   ASSERT_EQ(0, buf.getStatus());
   EXPECT_EQ(0u, buf.getMsgLen());
   ASSERT_NE(nullptr, buf.getMsgPtr());
   EXPECT_EQ(0, buf.getMsgPtr()[0]);
   EXPECT_TRUE(buf.getCtxtPtr()->flags & QSXMLBUFDYN);
}

TEST(XmlEncodeBuffer, StaticBufferOverflowIsReported)
{
   unsigned char mem[48];
   QSXMLEncodeBuffer buf(mem, sizeof mem);
   QSCTXT* ctxt = buf.getCtxtPtr();
   ASSERT_EQ(0, rtXmlInitCtxtAppInfo(ctxt));
   ctxt->flags |= QSXMLCTXT;
   ASSERT_EQ(0, rtXmlEncStartDocument(ctxt));  // 38 bytes + NUL
   ASSERT_EQ(0, rtXmlEncStartElement(ctxt, U("R"), nullptr, nullptr, TRUE));
   EXPECT_EQ(RTERR_ENCODE_BUFFER_OVERFLOW, rtXmlEncUTF8Str(ctxt, U("too long for the rest"), U("s"), nullptr));
   // what was written stays a C string inside the caller's buffer
   std::string written((const char*)mem, strnlen((const char*)mem, sizeof mem));
   EXPECT_LT(written.size(), sizeof mem);
   EXPECT_EQ(0u, written.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R>", 0));
   EXPECT_NE(nullptr, rtxErrGetText(ctxt, nullptr, nullptr));
}

TEST(XmlEncodeBuffer, HeaderTextAndInit)
{
   QSXMLEncodeBuffer buf;
   ASSERT_EQ(0, buf.addXMLHeader(U("1.1"), U("ISO-8859-1"), TRUE));
   ASSERT_EQ(0, buf.addXMLText(U("<r/>")));
   EXPECT_EQ(std::string("<?xml version=\"1.1\" encoding=\"ISO-8859-1\"?>\n<r/>"),
             std::string((const char*)buf.getMsgPtr(), buf.getMsgLen()));
   ASSERT_EQ(0, buf.init());
   EXPECT_EQ(0u, buf.getMsgLen());
   EXPECT_EQ(0, buf.getMsgPtr()[0]);
}

TEST(XmlEncodeBuffer, AttributesAndNil)
{
   QSXMLEncodeBuffer buf;
   QSCTXT* ctxt = buf.getCtxtPtr();
   buf.setFragment(true);
   ASSERT_EQ(0, buf.startElement(U("r"), nullptr, nullptr, FALSE));
   ASSERT_EQ(0, buf.encodeAttr(U("a"), U("x\ty<")));
   rtxCtxtSetFlag(ctxt, QSXMLNIL);
   ASSERT_EQ(0, buf.startElement(U("n")));
   ASSERT_EQ(0, buf.endElement(U("n")));
   ASSERT_EQ(0, buf.endElement(U("r")));
   EXPECT_EQ(std::string("<r a=\"x&#x9;y&lt;\">\n   <n xsi:nil=\"true\"/>\n</r>"),
             std::string((const char*)buf.getMsgPtr(), buf.getMsgLen()));
}

TEST(XmlErrorTexts, RegisteredTable)
{
   QSXMLEncodeBuffer buf;
   QSCTXT* ctxt = buf.getCtxtPtr();
   ASSERT_EQ(0, rtErrXmlInit());
   struct { int code; const char* text; } cases[] = {
      { RTERR_XML_GENERAL, "General error" },
      { RTERR_XML_UNEXPECTED_EOF, "Unexpected end-of-file (document) found" },
      { RTERR_XML_REQUIRED_ELEMENTS_MISSED, "One or more required element missed" },
      { RTERR_XML_ELEMENT_NOT_EMPTY, "Element is not empty, as is required." },
      { -221, "unrecognized completion status" },
      { -299, "unrecognized completion status" },
   };
   for (const auto& c : cases) {
      rtxErrReset(ctxt);
      rtxErrSetData(ctxt, c.code, nullptr, 0);
      char msg[200];
      const QSRTErrInfo* rec = static_cast<const QSRTErrInfo*>(ctxt->errInfoList.head->data);
      EXPECT_STREQ(c.text, rtxErrFmtMsg(rec, msg, sizeof msg)) << c.code;
   }
   rtxErrReset(ctxt);
   rtxErrAddStrParm(ctxt, "");
   rtxErrAddStrParm(ctxt, "CAM");
   rtxErrAddStrParm(ctxt, "");
   rtxErrAddStrParm(ctxt, "DENM");
   rtxErrSetData(ctxt, RTERR_XML_UNEXPECTED_IDENTIFIER, nullptr, 0);
   char msg[200];
   EXPECT_STREQ("Unexpected identifier encountered:\n   expected = '':CAM,\n   parsed = '':DENM",
                rtxErrFmtMsg(static_cast<const QSRTErrInfo*>(ctxt->errInfoList.head->data), msg, sizeof msg));
}

} // namespace
