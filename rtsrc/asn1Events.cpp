#include "rtsrc/asn1Events.h"

#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxMemory.h"

int Asn1NamedEventHandler64::addEventHandler(QSCTXT* ctxt, Asn1NamedEventHandler64* handler)
{
   if (ctxt == nullptr || handler == nullptr) return RTERR_INVALID_PARAMETER;
   QSEventHandlerList* list = ctxt->pEventHandlers;
   if (list == nullptr) {
      list = static_cast<QSEventHandlerList*>(rtxMemHeapAllocZ(ctxt, sizeof(QSEventHandlerList)));
      if (list == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
      ctxt->pEventHandlers = list;
   }
   if (list->count == QS_MAX_EVENT_HANDLERS) return RTERR_INVALID_PARAMETER;
   list->handlers[list->count++] = handler;
   return 0;
}

void Asn1NamedEventHandler64::removeEventHandler(QSCTXT* ctxt, Asn1NamedEventHandler64* handler)
{
   QSEventHandlerList* list = ctxt != nullptr ? ctxt->pEventHandlers : nullptr;
   if (list == nullptr) return;
   for (int i = 0; i < list->count; i++) {
      if (list->handlers[i] != handler) continue;
      for (int j = i + 1; j < list->count; j++) list->handlers[j - 1] = list->handlers[j];
      list->count--;
      break;
   }
   if (list->count == 0) {
      rtxMemHeapFreePtr(ctxt, list);
      ctxt->pEventHandlers = nullptr;
   }
}

#define FOR_EACH_HANDLER(ctxt, call)                                        \
   do {                                                                     \
      QSEventHandlerList* list_ = (ctxt)->pEventHandlers;                   \
      if (list_ == nullptr) return;                                         \
      for (int i_ = 0; i_ < list_->count; i_++) list_->handlers[i_]->call;  \
   } while (0)

void Asn1NamedEventHandler64::invokeStartElement(QSCTXT* ctxt, const char* name, QSINT64 index)
{
   FOR_EACH_HANDLER(ctxt, startElement(name, index));
}

void Asn1NamedEventHandler64::invokeEndElement(QSCTXT* ctxt, const char* name, QSINT64 index)
{
   FOR_EACH_HANDLER(ctxt, endElement(name, index));
}

void Asn1NamedEventHandler64::invokeUIntValue(QSCTXT* ctxt, QSUINT64 value)
{
   FOR_EACH_HANDLER(ctxt, uIntValue(value));
}

void Asn1NamedEventHandler64::invokeIntValue(QSCTXT* ctxt, QSINT64 value)
{
   FOR_EACH_HANDLER(ctxt, intValue(value));
}

void Asn1NamedEventHandler64::invokeEnumValue(QSCTXT* ctxt, QSUINT32 value, const char* text)
{
   FOR_EACH_HANDLER(ctxt, enumValue(value, text));
}

void Asn1NamedEventHandler64::invokeBitStrValue(QSCTXT* ctxt, QSSIZE numbits, const QSOCTET* data)
{
   FOR_EACH_HANDLER(ctxt, bitStrValue(numbits, data));
}

void Asn1NamedEventHandler64::invokeOpenTypeValue(QSCTXT* ctxt, QSSIZE numocts, const QSOCTET* data)
{
   FOR_EACH_HANDLER(ctxt, openTypeValue(numocts, data));
}
