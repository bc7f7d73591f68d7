// The exported XML conversions: the same drivers as the JSON ones, with the XML buffers.
#include "src/etsi_v2x.h"

#include "rtxmlsrc/QSXMLMessageBuffer.h"
#include "rtxmlsrc/asn1XmlGen.h"
#include "src/etsiDrivers.h"
#include "src/etsi/CAM-PDU-Descriptions.h"
#include "src/etsi/DENM-PDU-Descriptions.h"
#include "src/etsi/IVIM-PDU-Descriptions.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "src/etsi/SPATEM-PDU-Descriptions.h"
#include "src/etsi/SREM-PDU-Descriptions.h"
#include "src/etsi/SSEM-PDU-Descriptions.h"

// The generated functions of a message for the drivers' direct paths: its UPER coders and its
// XML document writer and reader, on a context set up as QSXMLEncodeBuffer (QSXMLDecodeBuffer)
// and the control class set it up.
#define ETSI_XML_DIRECT(M)                                                                          \
   ETSI_PER_DIRECT(M)                                                                               \
   struct M##XmlDirect : M##PerDirect {                                                             \
      static int write(QSCTXT* ctxt, ASN1T_##M* value, QSOCTET* buf, size_t size)                   \
      {                                                                                             \
         int stat = rtXmlSetEncBufPtr(ctxt, buf, size);                                             \
         if (stat != 0) return stat;                                                                \
         ctxt->flags &= ~(QSXMLSTARTOPEN | QSXMLEMPTY | QSXMLNIL);                                  \
         return XmlEncDoc_##M(ctxt, value);                                                         \
      }                                                                                             \
      static int read(QSCTXT* ctxt, ASN1T_##M* value)                                               \
      {                                                                                             \
         int stat;                                                                                  \
         if (ctxt->pAppInfo[0] == nullptr && (stat = rtXmlInitCtxtAppInfo(ctxt)) != 0) return stat; \
         asn1Init_##M(value, 0, ctxt);                                                              \
         return XmlDecDoc_##M(ctxt, value);                                                         \
      }                                                                                             \
   };

#define ETSI_XML_CONVERSIONS(M)                                                                     \
   int etsi_##M##_to_xml(const char* data, size_t len, char** out, char** err, bool trace)          \
   {                                                                                                \
      return etsi::to_text<ASN1T_##M, ASN1X_##M, QSXMLEncodeBuffer, M##XmlDirect>(data, len, out, err, trace); \
   }                                                                                                \
   int etsi_##M##_from_xml(const char* text, char** out, size_t* outLen, char** err, bool trace)    \
   {                                                                                                \
      return etsi::from_text<ASN1T_##M, ASN1X_##M, QSXMLDecodeBuffer, M##XmlDirect>(text, out, outLen, err, trace); \
   }

ETSI_XML_DIRECT(CAM)
ETSI_XML_DIRECT(DENM)
ETSI_XML_DIRECT(SPATEM)
ETSI_XML_DIRECT(MAPEM)
ETSI_XML_DIRECT(IVIM)
ETSI_XML_DIRECT(SREM)
ETSI_XML_DIRECT(SSEM)

extern "C" {

ETSI_XML_CONVERSIONS(CAM)
ETSI_XML_CONVERSIONS(DENM)
ETSI_XML_CONVERSIONS(SPATEM)
ETSI_XML_CONVERSIONS(MAPEM)
ETSI_XML_CONVERSIONS(IVIM)
ETSI_XML_CONVERSIONS(SREM)
ETSI_XML_CONVERSIONS(SSEM)

}
