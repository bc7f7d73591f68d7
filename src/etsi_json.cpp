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

// The generated functions of a message for the drivers' direct paths: its UPER coders and the
// JSON writer, on a context set up as QSJSONEncodeBuffer and the control class set it up, and the
// JSON reader as the control class calls it.
#define ETSI_JSON_DIRECT(M)                                                                         \
   ETSI_PER_DIRECT(M)                                                                               \
   struct M##JsonDirect : M##PerDirect {                                                            \
      static int write(QSCTXT* ctxt, ASN1T_##M* value, QSOCTET* buf, size_t size)                   \
      {                                                                                             \
         ctxt->indent = 0;                                                                          \
         int stat = rtxInitContextBuffer(ctxt, buf, size);                                          \
         if (stat != 0) return stat;                                                                \
         buf[0] = 0;                                                                                \
         return asn1JsonEnc_##M(ctxt, value);                                                       \
      }                                                                                             \
      static int read(QSCTXT* ctxt, ASN1T_##M* value)                                               \
      {                                                                                             \
         asn1Init_##M(value, 0, ctxt);                                                              \
         return asn1JsonDec_##M(ctxt, value);                                                       \
      }                                                                                             \
   };

#define ETSI_JSON_CONVERSIONS(M)                                                                    \
   int etsi_##M##_to_json(const char* data, size_t len, char** out, char** err, bool trace)         \
   {                                                                                                \
      return etsi::to_text<ASN1T_##M, ASN1X_##M, QSJSONEncodeBuffer, M##JsonDirect>(data, len, out, err, trace); \
   }                                                                                                \
   int etsi_##M##_from_json(const char* text, char** out, size_t* outLen, char** err, bool trace)   \
   {                                                                                                \
      return etsi::from_text<ASN1T_##M, ASN1X_##M, QSJSONDecodeBuffer, M##JsonDirect>(text, out, outLen, err, trace); \
   }

ETSI_JSON_DIRECT(CAM)
ETSI_JSON_DIRECT(DENM)
ETSI_JSON_DIRECT(SPATEM)
ETSI_JSON_DIRECT(MAPEM)
ETSI_JSON_DIRECT(IVIM)
ETSI_JSON_DIRECT(SREM)
ETSI_JSON_DIRECT(SSEM)

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
