// The exported XML conversions: the same drivers as the JSON ones, with the XML buffers.
#include "src/etsi_v2x.h"

#include "rtxmlsrc/QSXMLMessageBuffer.h"
#include "src/etsiDrivers.h"
#include "src/etsi/CAM-PDU-Descriptions.h"
#include "src/etsi/DENM-PDU-Descriptions.h"
#include "src/etsi/IVIM-PDU-Descriptions.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "src/etsi/SPATEM-PDU-Descriptions.h"
#include "src/etsi/SREM-PDU-Descriptions.h"
#include "src/etsi/SSEM-PDU-Descriptions.h"

#define ETSI_XML_CONVERSIONS(M)                                                                      \
   int etsi_##M##_to_xml(const char* data, size_t len, char** out, char** err, bool trace)           \
   {                                                                                                 \
      return etsi::to_text<ASN1T_##M, ASN1X_##M, QSXMLEncodeBuffer>(data, len, out, err, trace);    \
   }                                                                                                 \
   int etsi_##M##_from_xml(const char* text, char** out, size_t* outLen, char** err, bool trace)    \
   {                                                                                                 \
      return etsi::from_text<ASN1T_##M, ASN1X_##M, QSXMLDecodeBuffer>(text, out, outLen, err, trace); \
   }

extern "C" {

ETSI_XML_CONVERSIONS(CAM)
ETSI_XML_CONVERSIONS(DENM)
ETSI_XML_CONVERSIONS(SPATEM)
ETSI_XML_CONVERSIONS(MAPEM)
ETSI_XML_CONVERSIONS(IVIM)
ETSI_XML_CONVERSIONS(SREM)
ETSI_XML_CONVERSIONS(SSEM)

}
