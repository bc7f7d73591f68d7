/* Helpers shared by the PER runtime sources (not part of the public API). */
#ifndef PERINTERNAL_H
#define PERINTERNAL_H

#include "rtpersrc/asn1per.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

/* Records a failure at the current source line of the including file,
 * which defines PER_MODULE. */
#define PER_LOG(ctxt, stat) rtxErrSetData(ctxt, stat, PER_MODULE, __LINE__)

/* Trace helpers: one flag test when tracing is off. */
#define PER_FIELD(ctxt, name) \
   do { if ((ctxt)->flags & QSTRACE) rtxDiagNewBitField(ctxt, name); } while (0)
#define PER_FIELD_END(ctxt) \
   do { if ((ctxt)->flags & QSTRACE) rtxDiagSetBitFldCount(ctxt); } while (0)

namespace perimpl {

/* Length encoder: writes the determinant for n under the pending
 * constraint; *pFrag tells whether a fragment header was written. Returns
 * the item count to write or a negative status (recorded). */
int encLength(QSCTXT* ctxt, QSSIZE n, bool* pFrag);

/* Unconstrained length determinant without trace fields. */
int encUnconsLength(QSCTXT* ctxt, QSSIZE n, bool* pFrag);

/* Unconstrained length reader without trace fields (0, or 2 = fragment). */
int decUnconsLength(QSCTXT* ctxt, QSUINT64* pvalue);

/* Minimal number of octets of a value in two's complement (1..8). */
inline QSUINT32 signedOctets(QSINT64 v)
{
   QSUINT32 n = 1;
   while (n < 8) {
      QSINT64 lim = (QSINT64)1 << (8 * n - 1);
      if (v >= -lim && v < lim) break;
      n++;
   }
   return n;
}

/* Minimal number of octets of an unsigned value (1 for 0). */
inline QSUINT32 unsignedOctets(QSUINT64 v)
{
   QSUINT32 n = 1;
   while (n < 8 && (v >> (8 * n)) != 0) n++;
   return n;
}

} // namespace perimpl

#endif
