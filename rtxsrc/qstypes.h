/*
 * Basic scalar types shared by the runtime and the generated code.
 */
#ifndef QSTYPES_H
#define QSTYPES_H

#include <cstddef>

typedef unsigned char QSOCTET;
typedef unsigned char QSBOOL;
typedef unsigned char QSUTF8CHAR;
typedef signed char QSINT8;
typedef unsigned char QSUINT8;
typedef short QSINT16;
typedef unsigned short QSUINT16;
typedef int QSINT32;
typedef unsigned int QSUINT32;
typedef long long QSINT64;
typedef unsigned long long QSUINT64;
typedef size_t QSSIZE;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#endif
