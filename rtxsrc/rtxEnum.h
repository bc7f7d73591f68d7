/*
 * Lookup between enumeration identifiers and values.
 */
#ifndef RTXENUM_H
#define RTXENUM_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

struct QSRTEnumTableEntry {
   const QSUTF8CHAR* name;
   QSINT32 value;
   QSUINT16 namelen;
   QSUINT16 transidx;   /* with values 0..n-1: position of the entry whose value is this index */
};

/* Byte length of a NUL-terminated UTF-8 text. */
size_t rtxUTF8LenBytes(const QSUTF8CHAR* s);

/* Position of (name, len) in a table sorted by name bytes, or
 * RTERR_ENUM_NOT_IN_SET. Records nothing. */
int rtxLookupEnum(QSCTXT* ctxt, const QSUTF8CHAR* name, size_t len,
                  const QSRTEnumTableEntry* table, QSUINT16 count);

/* Identifier of value, "_UNKNOWN_" when there is none. */
const char* rtxEnumValueToString(const QSRTEnumTableEntry* table, QSUINT16 count, QSINT32 value);

#endif
