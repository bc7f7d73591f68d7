// The exported conversions try a direct path first (the generated codecs on one stack context)
// and fall back to the general path over the buffer and control classes. Both must give the same
// result for every input: the same status, the same bytes or text, the same error report.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rtjsonsrc/QSJSONMessageBuffer.h"
#include "rtxmlsrc/QSXMLMessageBuffer.h"
#include "src/etsi/CAM-PDU-Descriptions.h"
#include "src/etsi/DENM-PDU-Descriptions.h"
#include "src/etsi/IVIM-PDU-Descriptions.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "src/etsi/SPATEM-PDU-Descriptions.h"
#include "src/etsi/SREM-PDU-Descriptions.h"
#include "src/etsi/SSEM-PDU-Descriptions.h"
#include "src/etsiDrivers.h"
#include "tests/support/conversions.h"
#include "tests/support/textConversions.h"

namespace {

// The general path alone: the drivers without the message's direct functions.
struct GeneralPaths {
   const char* name;
   ToText toJson;
   FromText fromJson;
   ToText toXml;
   FromText fromXml;
};

#define GENERAL(M)                                                                                   \
   { #M, etsi::to_text<ASN1T_##M, ASN1X_##M, QSJSONEncodeBuffer>,                                    \
     etsi::from_text<ASN1T_##M, ASN1X_##M, QSJSONDecodeBuffer>,                                      \
     etsi::to_text<ASN1T_##M, ASN1X_##M, QSXMLEncodeBuffer>,                                         \
     etsi::from_text<ASN1T_##M, ASN1X_##M, QSXMLDecodeBuffer> }
const GeneralPaths kGeneral[] = { GENERAL(CAM), GENERAL(DENM), GENERAL(SPATEM), GENERAL(MAPEM),
                                  GENERAL(IVIM), GENERAL(SREM), GENERAL(SSEM) };
#undef GENERAL

const GeneralPaths* generalOf(const std::string& name)
{
   for (const GeneralPaths& g : kGeneral)
      if (name == g.name) return &g;
   return nullptr;
}

// Runs both functions on the same bytes and compares everything they give back; the text of a
// successful call is returned for the next step.
std::string sameToText(ToText exported, ToText general, const std::string& bytes, const std::string& what)
{
   Result a, b;
   a.status = exported(bytes.data(), bytes.size(), &a.out, &a.err, false);
   b.status = general(bytes.data(), bytes.size(), &b.out, &b.err, false);
   EXPECT_EQ(a.status, b.status) << what;
   EXPECT_EQ(a.text(), b.text()) << what;
   EXPECT_EQ(a.error(), b.error()) << what;
   return a.text();
}

void sameFromText(FromText exported, FromText general, const std::string& text, const std::string& what)
{
   Result a, b;
   a.status = exported(text.c_str(), &a.out, &a.outLen, &a.err, false);
   b.status = general(text.c_str(), &b.out, &b.outLen, &b.err, false);
   EXPECT_EQ(a.status, b.status) << what;
   EXPECT_EQ(a.bytes(), b.bytes()) << what;
   EXPECT_EQ(a.error(), b.error()) << what;
}

}  // namespace

// Every captured message, whole and cut short, and its texts, whole, cut short and with a value
// made invalid: the direct and the general path agree in all four directions.
TEST(DirectPaths, AgreeWithTheGeneralPathOnTheCorpusAndOnBrokenInput)
{
   int compared = 0;
   for (const CorpusMessage& m : loadCorpus()) {
      const Message* exported = messageByName(m.type);
      const GeneralPaths* general = generalOf(m.type);
      ASSERT_NE(exported, nullptr) << m.type;
      ASSERT_NE(general, nullptr) << m.type;
      std::string bytes = str(m.bytes);
      std::string json = sameToText(exported->toJson, general->toJson, bytes, m.file + " to_json");
      std::string xml = sameToText(exported->toXml, general->toXml, bytes, m.file + " to_xml");
      sameToText(exported->toJson, general->toJson, bytes.substr(0, bytes.size() / 2), m.file + " cut");
      sameToText(exported->toXml, general->toXml, bytes.substr(0, bytes.size() / 3), m.file + " cut");
      if (json.empty() || xml.empty()) continue;  // older editions: the error was compared
      sameFromText(exported->fromJson, general->fromJson, json, m.file + " from_json");
      sameFromText(exported->fromXml, general->fromXml, xml, m.file + " from_xml");
      sameFromText(exported->fromJson, general->fromJson, json.substr(0, json.size() / 2), m.file + " cut");
      sameFromText(exported->fromXml, general->fromXml, xml.substr(0, xml.size() / 2), m.file + " cut");
      // the first digit of the text becomes a letter: a value of the wrong kind somewhere inside
      std::string badJson = json, badXml = xml;
      size_t dj = badJson.find_first_of("0123456789"), dx = badXml.find_first_of("0123456789", badXml.find("?>") + 2);
      if (dj != std::string::npos) badJson[dj] = 'x';
      if (dx != std::string::npos) badXml[dx] = 'x';
      sameFromText(exported->fromJson, general->fromJson, badJson, m.file + " bad json");
      sameFromText(exported->fromXml, general->fromXml, badXml, m.file + " bad xml");
      compared++;
   }
   EXPECT_GT(compared, 500);
}
