/*
 * Named events of the decoders: a handler registered on a context is told
 * the start and end of every component the decoders descend into (with the
 * index of a list element, -1 otherwise) and the leaf values they read.
 * Without a registered handler every hook is a single test of a pointer.
 */
#ifndef ASN1EVENTS_H
#define ASN1EVENTS_H

#include "rtxsrc/qstypes.h"
#include "rtxsrc/rtxContext.h"

class Asn1NamedEventHandler64 {
 public:
   virtual ~Asn1NamedEventHandler64() {}
   virtual void startElement(const char* name, QSINT64 index) = 0;
   virtual void endElement(const char* name, QSINT64 index) = 0;
   virtual void uIntValue(QSUINT64) {}
   virtual void intValue(QSINT64) {}
   virtual void enumValue(QSUINT32, const char*) {}
   virtual void bitStrValue(QSSIZE, const QSOCTET*) {}
   virtual void openTypeValue(QSSIZE, const QSOCTET*) {}

   /* Registers / removes a handler on a context (at most 8; the handler is not owned).
    * Returns 0, or RTERR_NO_DYNAMIC_MEMORY / RTERR_INVALID_PARAMETER. */
   static int addEventHandler(QSCTXT* ctxt, Asn1NamedEventHandler64* handler);
   static void removeEventHandler(QSCTXT* ctxt, Asn1NamedEventHandler64* handler);

   static void invokeStartElement(QSCTXT* ctxt, const char* name, QSINT64 index);
   static void invokeEndElement(QSCTXT* ctxt, const char* name, QSINT64 index);
   static void invokeUIntValue(QSCTXT* ctxt, QSUINT64 value);
   static void invokeIntValue(QSCTXT* ctxt, QSINT64 value);
   static void invokeEnumValue(QSCTXT* ctxt, QSUINT32 value, const char* text);
   static void invokeBitStrValue(QSCTXT* ctxt, QSSIZE numbits, const QSOCTET* data);
   static void invokeOpenTypeValue(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data);
};

#define QS_MAX_EVENT_HANDLERS 8
struct QSEventHandlerList {
   Asn1NamedEventHandler64* handlers[QS_MAX_EVENT_HANDLERS];
   int count;
};

#endif
