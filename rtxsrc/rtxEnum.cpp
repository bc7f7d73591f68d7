#include "rtxsrc/rtxEnum.h"

#include <cstring>

#include "rtxsrc/rtxErrCodes.h"

size_t rtxUTF8LenBytes(const QSUTF8CHAR* s)
{
   return (s != nullptr) ? std::strlen(reinterpret_cast<const char*>(s)) : 0;
}

int rtxLookupEnum(QSCTXT*, const QSUTF8CHAR* name, size_t len, const QSRTEnumTableEntry* table,
                  QSUINT16 count)
{
   size_t lo = 0, hi = count;
   while (lo < hi) {
      size_t mid = lo + (hi - lo) / 2;
      const QSRTEnumTableEntry& e = table[mid];
      size_t common = (len < e.namelen) ? len : e.namelen;
      int cmp = std::memcmp(name, e.name, common);
      if (cmp == 0) cmp = (len < e.namelen) ? -1 : (len > e.namelen) ? 1 : 0;
      if (cmp == 0) return (int)mid;
      if (cmp < 0) hi = mid;
      else lo = mid + 1;
   }
   return RTERR_ENUM_NOT_IN_SET;
}

const char* rtxEnumValueToString(const QSRTEnumTableEntry* table, QSUINT16 count, QSINT32 value)
{
   if (value >= 0 && value < (QSINT32)count) {
      QSUINT16 idx = table[value].transidx;
      if (idx < count && table[idx].value == value) return reinterpret_cast<const char*>(table[idx].name);
   }
   for (QSUINT16 i = 0; i < count; i++) {
      if (table[i].value == value) return reinterpret_cast<const char*>(table[i].name);
   }
   return "_UNKNOWN_";
}
