/*
 * C++ representations of the ASN.1 built-in types used in value structures.
 * Plain aggregates: value-initialise them with {}.
 */
#ifndef ASN1TYPE_H
#define ASN1TYPE_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxDList.h"

typedef QSRTDList ASN1TSeqOfList;
typedef QSRTDList ASN1TSeqExt;

struct ASN1TBitStr32 {
   QSUINT32 numbits;
   QSOCTET data[4];
};

struct ASN1TDynBitStr {
   QSUINT32 numbits;
   const QSOCTET* data;
};

struct ASN1TDynOctStr {
   QSUINT32 numocts;
   const QSOCTET* data;
};

struct ASN1TDynOctStr64 {
   QSSIZE numocts;
   const QSOCTET* data;
};

struct ASN1TOpenType {
   QSUINT32 numocts;
   const QSOCTET* data;
};

#endif
