// The exported JSON conversions: each forwards to one instance of the drivers.
#include "src/etsi_v2x.h"

#include "rtjsonsrc/QSJSONMessageBuffer.h"
#include "src/etsiDrivers.h"
#include "src/etsi/CAM-PDU-Descriptions.h"
#include "src/etsi/DENM-PDU-Descriptions.h"
#include "src/etsi/IVIM-PDU-Descriptions.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "src/etsi/SPATEM-PDU-Descriptions.h"
#include "src/etsi/SREM-PDU-Descriptions.h"
#include "src/etsi/SSEM-PDU-Descriptions.h"

#define ETSI_JSON_CONVERSIONS(M)                                                                     \
   int etsi_##M##_to_json(const char* data, size_t len, char** out, char** err, bool trace)          \
   {                                                                                                 \
      return etsi::to_text<ASN1T_##M, ASN1X_##M, QSJSONEncodeBuffer>(data, len, out, err, trace);   \
   }                                                                                                 \
   int etsi_##M##_from_json(const char* text, char** out, size_t* outLen, char** err, bool trace)   \
   {                                                                                                 \
      return etsi::from_text<ASN1T_##M, ASN1X_##M, QSJSONDecodeBuffer>(text, out, outLen, err, trace); \
   }

extern "C" {

ETSI_JSON_CONVERSIONS(CAM)
ETSI_JSON_CONVERSIONS(DENM)
ETSI_JSON_CONVERSIONS(SPATEM)
ETSI_JSON_CONVERSIONS(MAPEM)
ETSI_JSON_CONVERSIONS(IVIM)
ETSI_JSON_CONVERSIONS(SREM)
ETSI_JSON_CONVERSIONS(SSEM)

void etsi_delete_array(char* p)
{
   delete[] p;
}

}
