/*
 * Everything the generated code needs from the runtime core.
 */
#ifndef ASN1CPPTYPES_H
#define ASN1CPPTYPES_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxDList.h"
#include "rtxsrc/rtxEnum.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/QSRTContext.h"
#include "rtxsrc/QSRTMessageBuffer.h"
#include "rtxsrc/QSRTInputStream.h"
#include "rtsrc/asn1type.h"
#include "rtsrc/ASN1XType.h"

#endif
