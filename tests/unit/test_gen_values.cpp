// The generated value layer: structure shapes, enumeration tables, initialisation and release.
#include <gtest/gtest.h>

#include <algorithm>
#include <string.h>
#include <type_traits>

#include "src/etsi/CAM-PDU-Descriptions.h"
#include "src/etsi/DSRC.h"
#include "src/etsi/EfcDsrcApplication.h"
#include "src/etsi/GDD.h"
#include "src/etsi/IVI.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "src/etsi/RTCMEM-PDU-Descriptions.h"
#include "src/etsi/etsiInventory.h"

#define EXPECT_TYPE(expr, type) EXPECT_TRUE((std::is_same<decltype(expr), type>::value)) << #expr

namespace {

TEST(GeneratedStructures, ScalarsUseTheNarrowestIntegerOfTheirRange)
{
   EXPECT_TYPE(ASN1T_ITS_ItsPduHeader::protocolVersion, QSUINT8);  // an inline INTEGER (0..255)
   EXPECT_TRUE((std::is_same<ASN1T_ITS_StationID, QSUINT32>::value));
   EXPECT_TRUE((std::is_same<ASN1T_ITS_Latitude, QSINT32>::value));
   EXPECT_TRUE((std::is_same<ASN1T_GenerationDeltaTime, QSUINT16>::value));
   EXPECT_TRUE((std::is_same<ASN1T_ITS_ItsPduHeader_messageID, QSUINT8>::value));  // INTEGER with named numbers
   EXPECT_TRUE((std::is_same<ASN1T_ITS_CauseCodeType, QSUINT8>::value));
   EXPECT_TRUE((std::is_same<ASN1T_ITS_DrivingLaneStatus, ASN1TBitStr32>::value));    // SIZE(1..13)
   EXPECT_TRUE((std::is_same<ASN1T_ITS_StationType, QSUINT8>::value));
   EXPECT_TRUE((std::is_same<ASN1T_ITS_PathHistory, ASN1TSeqOfList>::value));
   EXPECT_TRUE((std::is_same<ASN1T_IVI_IviType, QSUINT8>::value));
   EXPECT_EQ(ASN1V_ITS_ItsPduHeader_messageID_cam, 2);
}

TEST(GeneratedStructures, SequencesHavePresentBitsComponentsAndExtensions)
{
   ASN1T_CamParameters p;
   EXPECT_EQ(p.m.lowFrequencyContainerPresent, 0u);
   EXPECT_EQ(p.m.specialVehicleContainerPresent, 0u);
   EXPECT_TYPE(p.basicContainer, ASN1T_BasicContainer);
   EXPECT_TYPE(p.extElem1, ASN1TSeqExt);
   EXPECT_EQ(p.extElem1.count, 0u);
   EXPECT_EQ(p.extElem1.head, nullptr);

   // IVI's extension addition groups are typed members with present bits.
   ASN1T_IVI_TcPart tc;
   EXPECT_TYPE(tc.iviType, ASN1T_IVI_IviType);
   EXPECT_EQ(tc.m.iviTypePresent, 0u);
   EXPECT_EQ(tc.m.vehicleCharacteristicsPresent, 0u);
}

TEST(GeneratedStructures, ChoicesHaveSelectorAndPointerUnion)
{
   ASN1T_HighFrequencyContainer h;
   EXPECT_EQ(h.t, 0u);
   EXPECT_TYPE(h.u.basicVehicleContainerHighFrequency, ASN1T_BasicVehicleContainerHighFrequency*);
   EXPECT_TYPE(h.u.extElem1, ASN1TOpenType*);
   EXPECT_EQ(T_HighFrequencyContainer_rsuContainerHighFrequency, 2u);
}

TEST(GeneratedStructures, RegionalExtensionsCarryTheirObjectSet)
{
   ASN1T_ETSI_DSRC_MapData_regional_element e;
   EXPECT_TYPE(e.regionId, ASN1T_ETSI_DSRC_RegionId);
   EXPECT_TYPE(e.regExtValue.t, QSUINT16);
   EXPECT_TYPE(e.regExtValue.u.addGrpC, ASN1T_ETSI_GrpC_MapData_addGrpC*);
   EXPECT_TYPE(e.regExtValue.u.extElem1, ASN1TOpenType*);
   EXPECT_TRUE((std::is_same<ASN1T_ETSI_DSRC_MapData_regional, ASN1TSeqOfList>::value));
}

TEST(GeneratedStructures, MessagesDeriveFromThePduBase)
{
   EXPECT_TRUE((std::is_base_of<ASN1TPDU, ASN1T_CAM>::value));
   EXPECT_TRUE((std::is_base_of<ASN1TPDU, ASN1T_RTCMEM>::value));
   ASN1T_MAPEM m;
   EXPECT_TYPE(m.header, ASN1T_ITS_ItsPduHeader);
   EXPECT_TYPE(m.map, ASN1T_ETSI_DSRC_MapData);
   EXPECT_TRUE((std::is_base_of<ASN1XType, ASN1X_RTCMEM>::value));
}

TEST(GeneratedEnumerations, NameTableIsSortedAndMapsValuesInOneStep)
{
   const QSRTEnumTableEntry* tab = ASN1T_ITS_HardShoulderStatus_ENUMTAB;
   // availableForStopping(0), closed(1), availableForDriving(2), sorted by name.
   EXPECT_STREQ((const char*)tab[0].name, "availableForDriving");
   EXPECT_STREQ((const char*)tab[1].name, "availableForStopping");
   EXPECT_STREQ((const char*)tab[2].name, "closed");
   for (int v = 0; v < 3; v++) EXPECT_EQ(tab[tab[v].transidx].value, v);
   EXPECT_STREQ(ASN1T_ITS_HardShoulderStatus_ToString(2), "availableForDriving");
   EXPECT_STREQ(ASN1T_ITS_HardShoulderStatus_ToString(-1), "_UNKNOWN_");
   EXPECT_STREQ(ASN1T_ITS_HardShoulderStatus_ToString(3), "_UNKNOWN_");
}

TEST(GeneratedEnumerations, LookupComparesTextAndLength)
{
   QSCTXT ctxt;
   ASSERT_EQ(rtxInitContext(&ctxt), 0);
   QSUINT32 v = 99;
   EXPECT_EQ(ASN1T_ITS_HardShoulderStatus_ToEnum(&ctxt, (const QSUTF8CHAR*)"closed", &v), 0);
   EXPECT_EQ(v, 1u);
   EXPECT_EQ(ASN1T_ITS_HardShoulderStatus_ToEnum2(&ctxt, (const QSUTF8CHAR*)"closedX", 6, &v), 0);
   v = 99;
   EXPECT_EQ(ASN1T_ITS_HardShoulderStatus_ToEnum(&ctxt, (const QSUTF8CHAR*)"clos", &v), RTERR_ENUM_NOT_IN_SET);
   EXPECT_EQ(ASN1T_ITS_HardShoulderStatus_ToEnum(&ctxt, (const QSUTF8CHAR*)"closedd", &v), RTERR_ENUM_NOT_IN_SET);
   EXPECT_EQ(v, 99u);
   EXPECT_EQ(rtxErrGetErrorCnt(&ctxt), 0) << "a failed lookup records nothing";
   rtxFreeContext(&ctxt);
}

TEST(GeneratedEnumerations, ToStringNamesOnlyValuesBelowTheItemCount)
{
   // LPN.alphabetIndicator is the one enumeration whose values are not 0..n-1: 33 items, values 1..33.
   EXPECT_STREQ(ASN1T_LPN_alphabetIndicator_ToString(ASN1V_LPN_alphabetIndicator_latinAlphabetNo1),
                "latinAlphabetNo1");
   EXPECT_STREQ(ASN1T_LPN_alphabetIndicator_ToString(ASN1V_LPN_alphabetIndicator_reservedForUse20),
                "reservedForUse20");
   EXPECT_STREQ(ASN1T_LPN_alphabetIndicator_ToString(ASN1V_LPN_alphabetIndicator_reservedForUse21), "_UNKNOWN_");
   EXPECT_STREQ(ASN1T_LPN_alphabetIndicator_ToString(0), "_UNKNOWN_");  // no identifier has 0
   EXPECT_STREQ(ASN1T_LPN_alphabetIndicator_ToString(-1), "_UNKNOWN_");

   // The name table and the lookup still know the identifier beyond the count.
   const QSRTEnumTableEntry* tab = ASN1T_LPN_alphabetIndicator_ENUMTAB;
   EXPECT_TRUE(std::any_of(tab, tab + 33, [](const QSRTEnumTableEntry& e) { return e.value == 33; }));
   QSCTXT ctxt;
   ASSERT_EQ(rtxInitContext(&ctxt), 0);
   QSUINT32 v = 0;
   EXPECT_EQ(ASN1T_LPN_alphabetIndicator_ToEnum(&ctxt, (const QSUTF8CHAR*)"reservedForUse21", &v), 0);
   EXPECT_EQ(v, 33u);
   rtxFreeContext(&ctxt);
}

class GeneratedLifecycle : public ::testing::Test {
 protected:
   void SetUp() override { ASSERT_EQ(rtxInitContext(&ctxt), 0); }
   void TearDown() override { rtxFreeContext(&ctxt); }
   QSCTXT ctxt;
};

TEST_F(GeneratedLifecycle, ChoiceInitWithFreeFirstKeepsTheSelector)
{
   ASN1T_HighFrequencyContainer h;
   h.t = T_HighFrequencyContainer_rsuContainerHighFrequency;
   h.u.rsuContainerHighFrequency =
      new (rtxMemHeapAlloc(&ctxt, sizeof(ASN1T_RSUContainerHighFrequency))) ASN1T_RSUContainerHighFrequency();
   asn1Init_HighFrequencyContainer(&h, 1, &ctxt);
   EXPECT_EQ(h.t, 2u);
   EXPECT_EQ(h.u.rsuContainerHighFrequency, nullptr);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt)) << "the alternative went back to the heap";

   h.t = 1;
   asn1Init_HighFrequencyContainer(&h, 0, &ctxt);
   EXPECT_EQ(h.t, 0u);
}

TEST_F(GeneratedLifecycle, ChoiceInitWithFreeFirstClearsThePointerWhateverTheSelector)
{
   // Where the release has nothing to free, the pointer is cleared all the same and the
   // selector kept. The stale pointers below are never freed, so they need not be heap memory.
   QSUINT32 stale = 0;
   ASN1T_HighFrequencyContainer h;
   h.t = 0;  // no selection
   h.u.rsuContainerHighFrequency = (ASN1T_RSUContainerHighFrequency*)&stale;
   asn1Init_HighFrequencyContainer(&h, 1, &ctxt);
   EXPECT_EQ(h.t, 0u);
   EXPECT_EQ(h.u.rsuContainerHighFrequency, nullptr);

   ASN1T_ETSI_DSRC_VehicleID id;  // no extension marker: 3 selects nothing
   id.t = 3;
   id.u.stationID = &stale;
   asn1Init_ETSI_DSRC_VehicleID(&id, 1, &ctxt);
   EXPECT_EQ(id.t, 3u);
   EXPECT_EQ(id.u.stationID, nullptr);

   // An unknown alternative whose record holds no data: the record goes back to the heap.
   h.t = 3;
   h.u.extElem1 = (ASN1TOpenType*)rtxMemHeapAllocZ(&ctxt, sizeof(ASN1TOpenType));
   asn1Init_HighFrequencyContainer(&h, 1, &ctxt);
   EXPECT_EQ(h.t, 3u);
   EXPECT_EQ(h.u.extElem1, nullptr);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(GeneratedLifecycle, SequenceReleaseSkipsAbsentOptionalComponents)
{
   ASN1T_CamParameters p;
   // An absent optional CHOICE holding garbage is never touched.
   p.lowFrequencyContainer.t = 1;
   p.lowFrequencyContainer.u.basicVehicleContainerLowFrequency = (ASN1T_BasicVehicleContainerLowFrequency*)0x1;
   p.highFrequencyContainer.t = 2;
   p.highFrequencyContainer.u.rsuContainerHighFrequency =
      new (rtxMemHeapAlloc(&ctxt, sizeof(ASN1T_RSUContainerHighFrequency))) ASN1T_RSUContainerHighFrequency();
   asn1Free_CamParameters(&ctxt, &p);
   EXPECT_EQ(p.highFrequencyContainer.u.rsuContainerHighFrequency, nullptr);
   EXPECT_EQ(p.lowFrequencyContainer.u.basicVehicleContainerLowFrequency, (void*)0x1);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(GeneratedLifecycle, ReleaseGivesListsStringsAndUnknownAdditionsBack)
{
   ASN1T_ITS_PathHistory ph;
   rtxDListInit(&ph);
   for (int i = 0; i < 3; i++)
      rtxDListAppend(&ctxt, &ph, new (rtxMemHeapAlloc(&ctxt, sizeof(ASN1T_ITS_PathPoint))) ASN1T_ITS_PathPoint());
   ASN1T_BasicContainer bc;
   ASN1TOpenType* ot = (ASN1TOpenType*)rtxMemHeapAllocZ(&ctxt, sizeof(ASN1TOpenType));
   ot->numocts = 3;
   ot->data = (const QSOCTET*)rtxMemHeapAlloc(&ctxt, 3);
   rtxDListAppend(&ctxt, &bc.extElem1, ot);
   EXPECT_FALSE(rtxMemHeapIsEmpty(&ctxt));
   asn1Free_ITS_PathHistory(&ctxt, &ph);
   asn1Free_BasicContainer(&ctxt, &bc);
   EXPECT_EQ(ph.count, 0u);
   EXPECT_EQ(bc.extElem1.count, 0u);
   EXPECT_TRUE(rtxMemHeapIsEmpty(&ctxt));
}

TEST_F(GeneratedLifecycle, NewAllocatesFromTheControlObjectsHeap)
{
   ASN1T_CAM cam;
   ASN1X_CAM control(cam);
   ASN1T_CamParameters* p = new_ASN1T_CamParameters(control);
   ASSERT_NE(p, nullptr);
   EXPECT_EQ(p->m.lowFrequencyContainerPresent, 0u);
   EXPECT_FALSE(rtxMemHeapIsEmpty(control.getCtxtPtr()));
   rtxMemHeapFreePtr(control.getCtxtPtr(), p);
   EXPECT_TRUE(rtxMemHeapIsEmpty(control.getCtxtPtr()));
}

TEST(GeneratedInventory, ListsEveryTypeOnce)
{
   EXPECT_EQ(etsiTypeCount, 682u);
   EXPECT_EQ(etsiMessageCount, 8u);
   size_t sum = 0;
   for (size_t i = 0; i < etsiModuleCount; i++) sum += etsiModules[i].typeCount;
   EXPECT_EQ(sum, 682u);
   for (size_t i = 1; i < etsiTypeCount; i++)
      for (size_t j = 0; j < i; j++) ASSERT_STRNE(etsiTypes[i].cName, etsiTypes[j].cName);
}

}  // namespace
