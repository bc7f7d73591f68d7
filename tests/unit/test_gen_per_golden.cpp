// Whole values built by hand and checked bit by bit against their UPER encoding, and the
// construct rules that random values rarely reach.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "rtpersrc/asn1PerCppTypes.h"
#include "src/etsi/CAM-PDU-Descriptions.h"
#include "rtpersrc/asn1PerGen.h"
#include "rtxsrc/rtxPrintStream.h"
#include "src/etsi/AddGrpC.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "tests/support/corpus.h"

namespace {

// Expected encodings are written field by field: value and width in bits.
class Bits {
 public:
   Bits& add(unsigned long long v, int n)
   {
      for (int i = n - 1; i >= 0; i--) bits_.push_back((v >> i) & 1);
      return *this;
   }
   std::string hex() const
   {
      std::vector<unsigned char> bytes((bits_.size() + 7) / 8, 0);
      for (size_t i = 0; i < bits_.size(); i++)
         if (bits_[i]) bytes[i / 8] |= (unsigned char)(0x80 >> (i % 8));
      return hexOf(bytes.data(), bytes.size());
   }

 private:
   std::vector<int> bits_;
};

// Encodes a message through its control class, as the conversion code does.
template <class T, class X> std::string encodeMessage(T& value, int* pstat)
{
   ASN1PEREncodeBuffer buf(0);
   X control(value);
   *pstat = control.EncodeTo(buf);
   return *pstat == 0 ? hexOf(buf.getMsgPtr(), buf.getMsgLen()) : std::string();
}

void fillMinimalCam(ASN1T_CAM& cam)
{
   cam.header.protocolVersion = 2;
   cam.header.messageID = ASN1V_ITS_ItsPduHeader_messageID_cam;
   cam.header.stationID = 1234;
   cam.cam.generationDeltaTime = 100;
   ASN1T_BasicContainer& bc = cam.cam.camParameters.basicContainer;
   bc.stationType = ASN1V_ITS_StationType_roadSideUnit;
   bc.referencePosition.latitude = 515000000;
   bc.referencePosition.longitude = 72000000;
   bc.referencePosition.positionConfidenceEllipse.semiMajorConfidence = 4095;
   bc.referencePosition.positionConfidenceEllipse.semiMinorConfidence = 1;
   bc.referencePosition.positionConfidenceEllipse.semiMajorOrientation = 3601;
   bc.referencePosition.altitude.altitudeValue = -100;
   bc.referencePosition.altitude.altitudeConfidence = ASN1V_ITS_AltitudeConfidence_unavailable;
   static ASN1T_RSUContainerHighFrequency rsu;
   cam.cam.camParameters.highFrequencyContainer.t = T_HighFrequencyContainer_rsuContainerHighFrequency;
   cam.cam.camParameters.highFrequencyContainer.u.rsuContainerHighFrequency = &rsu;
}

TEST(PerGolden, MinimalCamBitByBit)
{
   ASN1T_CAM cam;
   fillMinimalCam(cam);
   int stat;
   std::string got = encodeMessage<ASN1T_CAM, ASN1X_CAM>(cam, &stat);
   ASSERT_EQ(stat, 0);
   Bits want;
   want.add(2, 8).add(2, 8).add(1234, 32)            // header: protocolVersion, messageID, stationID
      .add(100, 16)                                 // generationDeltaTime
      .add(0, 1).add(0, 2)                          // camParameters: extension bit, two optional bits
      .add(0, 1).add(15, 8)                         // basicContainer: extension bit, stationType
      .add(515000000 + 900000000ull, 31)            // latitude, offset from -900000000
      .add(72000000 + 1800000000ull, 32)            // longitude, offset from -1800000000
      .add(4095, 12).add(1, 12).add(3601, 12)       // confidence ellipse
      .add(-100 + 100000, 20).add(15, 4)            // altitude value (from -100000), confidence
      .add(0, 1).add(1, 1)                          // highFrequencyContainer: extension bit, index 1
      .add(0, 1).add(0, 1);                         // RSU container: extension bit, optional bit
   EXPECT_EQ(got, want.hex());

   // And back: the same fields come out of the decoder.
   std::vector<unsigned char> bytes = bytesOf(got);
   ASN1PERDecodeBuffer in(bytes.data(), bytes.size(), 0);
   ASN1T_CAM back;
   ASN1X_CAM control(in, back);
   ASSERT_EQ(control.Decode(0), 0);
   EXPECT_EQ(back.header.stationID, 1234u);
   EXPECT_EQ(back.cam.camParameters.basicContainer.referencePosition.altitude.altitudeValue, -100);
   EXPECT_EQ(back.cam.camParameters.highFrequencyContainer.t, 2u);
   EXPECT_EQ(in.getByteIndex(), bytes.size()) << "the decode buffer is left byte-aligned";
}

class PerConstructs : public ::testing::Test {
 protected:
   void SetUp() override
   {
      ASSERT_EQ(rtxInitContext(&ctxt), 0);
      ASSERT_EQ(pu_setBuffer(&ctxt, nullptr, 0, 0), 0);
   }
   void TearDown() override { rtxFreeContext(&ctxt); }
   std::string written() { return hexOf(ctxt.buffer.data, pu_getMsgLen(&ctxt)); }
   void startDecode(const std::vector<unsigned char>& bytes)
   {
      input = bytes;
      ASSERT_EQ(pu_setBuffer(&ctxt, input.data(), input.size(), 0), 0);
   }
   QSCTXT ctxt;
   std::vector<unsigned char> input;
};

TEST_F(PerConstructs, UnknownChoiceAlternativeIsKeptRaw)
{
   static const QSOCTET raw[] = { 0x12, 0x34 };
   ASN1TOpenType ot = { 2, raw };
   ASN1T_HighFrequencyContainer h;
   h.t = 3;
   h.u.extElem1 = &ot;
   ASSERT_EQ(asn1PE_HighFrequencyContainer(&ctxt, &h), 0);
   // extension bit 1, small number 0 in 7 bits, open type of 2 octets
   EXPECT_EQ(written(), Bits().add(1, 1).add(0, 7).add(2, 8).add(0x1234, 16).hex());

   startDecode({ 0x80, 0x02, 0x12, 0x34 });
   ASN1T_HighFrequencyContainer back;
   ASSERT_EQ(asn1PD_HighFrequencyContainer(&ctxt, &back), 0);
   EXPECT_EQ(back.t, 3u);
   ASSERT_EQ(back.u.extElem1->numocts, 2u);
   EXPECT_EQ(hexOf(back.u.extElem1->data, 2), "1234");
}

TEST_F(PerConstructs, IntegerRangesAreNotCheckedEitherWay)
{
   ASSERT_EQ(asn1PE_ITS_Latitude(&ctxt, 900000002), 0);
   EXPECT_EQ(written(), Bits().add(1800000002u, 31).hex());
   startDecode({ 0xFF, 0xFF, 0xFF, 0xFE });
   ASN1T_ITS_Latitude lat;
   ASSERT_EQ(asn1PD_ITS_Latitude(&ctxt, &lat), 0);
   EXPECT_EQ(lat, 2147483647 - 900000000);
}

TEST_F(PerConstructs, ListSizesAreChecked)
{
   ASN1T_ITS_PathHistory ph;
   rtxDListInit(&ph);
   for (int i = 0; i < 41; i++)
      rtxDListAppend(&ctxt, &ph, new (rtxMemHeapAlloc(&ctxt, sizeof(ASN1T_ITS_PathPoint))) ASN1T_ITS_PathPoint());
   EXPECT_EQ(asn1PE_ITS_PathHistory(&ctxt, &ph), RTERR_VALUE_CONSTRAINT_VIOLATION);

   ASN1T_ETSI_DSRC_MapData_regional none;
   rtxDListInit(&none);
   EXPECT_EQ(asn1PE_ETSI_DSRC_MapData_regional(&ctxt, &none), RTERR_VALUE_CONSTRAINT_VIOLATION);

   // A count field above the upper bound: 6 bits can say 63 for SIZE(0..40).
   startDecode({ 0xFC });
   ASN1T_ITS_PathHistory back;
   EXPECT_EQ(asn1PD_ITS_PathHistory(&ctxt, &back), RTERR_VALUE_CONSTRAINT_VIOLATION);
}

TEST_F(PerConstructs, UnknownRegionIsKeptRawAndRegionThreeIsTyped)
{
   // regionId 7, open type of 3 octets
   startDecode({ 0x07, 0x03, 0xAA, 0xBB, 0xCC });
   ASN1T_ETSI_DSRC_MapData_regional_element e;
   ASSERT_EQ(asn1PD_ETSI_DSRC_MapData_regional_element(&ctxt, &e), 0);
   EXPECT_EQ(e.regionId, 7);
   EXPECT_EQ(e.regExtValue.t, 0);
   ASSERT_NE(e.regExtValue.u.extElem1, nullptr);
   EXPECT_EQ(hexOf(e.regExtValue.u.extElem1->data, e.regExtValue.u.extElem1->numocts), "aabbcc");

   ASSERT_EQ(pu_setBuffer(&ctxt, nullptr, 0, 0), 0);
   ASSERT_EQ(asn1PE_ETSI_DSRC_MapData_regional_element(&ctxt, &e), 0);
   EXPECT_EQ(written(), "0703aabbcc");

   // Region 3 carries the Group C type; its encoding is padded to whole octets inside the open type.
   ASN1T_ETSI_GrpC_MapData_addGrpC grpc;
   ASN1T_ETSI_DSRC_MapData_regional_element typed;
   typed.regionId = 3;
   typed.regExtValue.t = 1;
   typed.regExtValue.u.addGrpC = &grpc;
   ASSERT_EQ(pu_setBuffer(&ctxt, nullptr, 0, 0), 0);
   ASSERT_EQ(asn1PE_ETSI_DSRC_MapData_regional_element(&ctxt, &typed), 0);
   std::string hex = written();
   ASSERT_GE(hex.size(), 6u);
   EXPECT_EQ(hex.substr(0, 2), "03");

   std::vector<unsigned char> bytes = bytesOf(hex);
   startDecode(bytes);
   ASN1T_ETSI_DSRC_MapData_regional_element back;
   ASSERT_EQ(asn1PD_ETSI_DSRC_MapData_regional_element(&ctxt, &back), 0);
   EXPECT_EQ(back.regExtValue.t, 1);
   EXPECT_EQ(rtxGetBitPos(&ctxt), bytes.size() * 8) << "the padding of the inner value is skipped";
}

TEST_F(PerConstructs, RegionalValueLongerThanItsOpenTypeIsRejected)
{
   startDecode({ 0x03, 0x00, 0x00 });  // regionId 3, empty open type: the Group C value still reads 2 bits
   ASN1T_ETSI_DSRC_MapData_regional_element e;
   EXPECT_EQ(asn1PD_ETSI_DSRC_MapData_regional_element(&ctxt, &e), RTERR_OPEN_TYPE_OVERRUN);
}

TEST_F(PerConstructs, ExtensibleEnumerations)
{
   ASSERT_EQ(asn1PE_ITS_ProtectedZoneType(&ctxt, ASN1V_ITS_ProtectedZoneType_temporaryCenDsrcTolling), 0);
   EXPECT_EQ(written(), Bits().add(1, 1).add(0, 7).hex());  // extension bit, extension index 0

   startDecode({ 0x85 });  // extension bit, extension index 5
   ASN1T_ITS_ProtectedZoneType v = 0;
   ASSERT_EQ(asn1PD_ITS_ProtectedZoneType(&ctxt, &v), 0);
   EXPECT_EQ(v, 0xFFFFFFFFu) << "an extension value this version does not know";

   ASSERT_EQ(pu_setBuffer(&ctxt, nullptr, 0, 0), 0);
   EXPECT_EQ(asn1PE_ITS_ProtectedZoneType(&ctxt, 7), RTERR_ENUM_NOT_IN_SET);
   EXPECT_EQ(asn1PE_ITS_RelevanceDistance(&ctxt, 8), RTERR_ENUM_NOT_IN_SET);
}

TEST_F(PerConstructs, EncodeToWithADecodeBufferIsRefused)
{
   ASN1T_CAM cam;
   unsigned char byte = 0;
   ASN1PERDecodeBuffer in(&byte, 1, 0);
   ASN1X_CAM control(cam);
   EXPECT_EQ(control.EncodeTo(in), RTERR_FEATURE_NOT_SUPPORTED);
}

TEST_F(PerConstructs, FailedEncodeStillLeavesTheBufferAligned)
{
   ASN1T_CAM cam;
   fillMinimalCam(cam);
   cam.cam.camParameters.highFrequencyContainer.t = 9;   // not an alternative of a non-extended value
   cam.cam.camParameters.highFrequencyContainer.u.extElem1 = nullptr;
   cam.cam.camParameters.basicContainer.referencePosition.altitude.altitudeConfidence = 99;
   ASN1PEREncodeBuffer buf(0);
   ASN1X_CAM control(cam);
   EXPECT_EQ(control.EncodeTo(buf), RTERR_ENUM_NOT_IN_SET);
   EXPECT_EQ(buf.getCtxtPtr()->buffer.bitOffset, 8);
}

// The bit trace of a decoded message, printed through a print stream.
void capture(void* user, const char* fmt, va_list args)
{
   char buf[512];
   vsnprintf(buf, sizeof(buf), fmt, args);
   *(std::string*)user += buf;
}

TEST(PerMessageTrace, DecodedMessageDumpMatchesGolden)
{
   ASN1T_CAM cam;
   fillMinimalCam(cam);
   int stat;
   std::string hex = encodeMessage<ASN1T_CAM, ASN1X_CAM>(cam, &stat);
   ASSERT_EQ(stat, 0);
   std::vector<unsigned char> bytes = bytesOf(hex);
   ASN1PERDecodeBuffer in(bytes.data(), bytes.size(), 0);
   std::string out;
   rtxSetPrintStream(in.getCtxtPtr(), capture, &out);
   in.setTrace(1);
   ASN1T_CAM back;
   ASN1X_CAM control(in, back);
   ASSERT_EQ(control.Decode(0), 0);
   in.binDump("data");
   std::string path = std::string(ETSI_SOURCE_DIR) + "/tests/golden/cam_min_trace.txt";
   if (getenv("ETSI_UPDATE_GOLDEN") != nullptr) std::ofstream(path, std::ios::binary) << out;
   std::vector<unsigned char> golden = readFile(path);
   EXPECT_EQ(out, std::string(golden.begin(), golden.end()));
}

}  // namespace

namespace {

// Records the named events of a decode as text.
class Recorder : public Asn1NamedEventHandler64 {
 public:
   std::string log;
   void startElement(const char* name, QSINT64 index) override
   {
      log += std::string("<") + name + (index >= 0 ? "[" + std::to_string(index) + "]" : "") + " ";
   }
   void endElement(const char* name, QSINT64) override { log += std::string(">") + name + " "; }
   void uIntValue(QSUINT64 v) override { log += "u" + std::to_string(v) + " "; }
   void intValue(QSINT64 v) override { log += "i" + std::to_string(v) + " "; }
   void enumValue(QSUINT32, const char* text) override { log += std::string("e:") + text + " "; }
};

TEST(PerEvents, DecoderReportsComponentsAndLeaves)
{
   ASN1T_CAM cam;
   fillMinimalCam(cam);
   int stat;
   std::string hex = encodeMessage<ASN1T_CAM, ASN1X_CAM>(cam, &stat);
   ASSERT_EQ(stat, 0);
   std::vector<unsigned char> bytes = bytesOf(hex);
   ASN1PERDecodeBuffer in(bytes.data(), bytes.size(), 0);
   Recorder rec;
   ASSERT_EQ(Asn1NamedEventHandler64::addEventHandler(in.getCtxtPtr(), &rec), 0);
   ASN1T_CAM back;
   ASN1X_CAM control(in, back);
   ASSERT_EQ(control.Decode(0), 0);
   EXPECT_EQ(rec.log.substr(0, 119),
             "<header <protocolVersion u2 >protocolVersion <messageID u2 >messageID <stationID u1234 >stationID >header "
             "<cam <generat");
   EXPECT_NE(rec.log.find("<altitudeValue i-100 >altitudeValue <altitudeConfidence e:unavailable >altitudeConfidence"),
             std::string::npos) << rec.log;
   EXPECT_EQ(in.getCtxtPtr()->level, 0) << "every component's level is given back";
   Asn1NamedEventHandler64::removeEventHandler(in.getCtxtPtr(), &rec);
   EXPECT_EQ(in.getCtxtPtr()->pEventHandlers, nullptr);
}

}  // namespace
