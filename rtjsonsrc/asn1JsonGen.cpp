#include "rtjsonsrc/asn1JsonGen.h"

static const char* const THIS_FILE = "../../rtjsonsrc/asn1JsonGen.cpp";
#define LOG_RTERR(ctxt, stat) rtxErrSetData(ctxt, stat, THIS_FILE, __LINE__)

static QSSIZE utf8Chars(const QSOCTET* s, QSSIZE n)
{
   QSSIZE chars = 0;
   for (QSSIZE i = 0; i < n; i++)
      if ((s[i] & 0xC0) != 0x80) chars++;
   return chars;
}

int rtJsonDecUnknownMember(QSCTXT* ctxt, const char* key, ASN1TOpenType** ppElem)
{
   QSUTF8CHAR* text = 0;
   int stat = rtJsonDecAnyType(ctxt, &text);
   if (stat != 0) return LOG_RTERR(ctxt, stat);
   QSSIZE klen = strlen(key), tlen = strlen((const char*)text);
   QSSIZE n = klen + 3 + tlen;
   ASN1TOpenType* ot = (ASN1TOpenType*)rtxMemHeapAllocZ(ctxt, sizeof(ASN1TOpenType));
   QSOCTET* frag = (QSOCTET*)rtxMemHeapAlloc(ctxt, n + 1);
   if (ot == 0 || frag == 0) {
      rtxMemHeapFreePtr(ctxt, ot);
      rtxMemHeapFreePtr(ctxt, text);
      return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   frag[0] = '"';
   memcpy(frag + 1, key, klen);
   frag[klen + 1] = '"';
   frag[klen + 2] = ':';
   memcpy(frag + klen + 3, text, tlen + 1);
   rtxMemHeapFreePtr(ctxt, text);
   ot->data = frag;
   ot->numocts = (QSUINT32)(utf8Chars(frag, n) + 1);
   *ppElem = ot;
   return 0;
}

int rtJsonDecRereadKey(QSCTXT* ctxt, QSSIZE keyStart, char** pkey)
{
   ctxt->buffer.byteIndex = keyStart;
   int stat = rtJsonDecStringValue(ctxt, pkey);
   if (stat == 0) stat = rtJsonDecMatchChar(ctxt, ':');
   return stat == 0 ? 0 : LOG_RTERR(ctxt, stat);
}

int rtJsonDecCaptureOpenType(QSCTXT* ctxt, ASN1TOpenType** ppElem)
{
   QSUTF8CHAR* text = 0;
   int stat = rtJsonDecAnyType(ctxt, &text);
   if (stat != 0) return LOG_RTERR(ctxt, stat);
   ASN1TOpenType* ot = (ASN1TOpenType*)rtxMemHeapAllocZ(ctxt, sizeof(ASN1TOpenType));
   if (ot == 0) {
      rtxMemHeapFreePtr(ctxt, text);
      return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   ot->data = text;
   ot->numocts = (QSUINT32)strlen((const char*)text);
   *ppElem = ot;
   return 0;
}

void rtJsonDecBeginText(QSCTXT* ctxt, QSJsonSavedInput* saved, const QSOCTET* text, QSSIZE nbytes)
{
   saved->buffer = ctxt->buffer;
   saved->lastChar = ctxt->lastChar;
   ctxt->buffer.data = const_cast<QSOCTET*>(text);
   ctxt->buffer.byteIndex = 0;
   ctxt->buffer.size = nbytes;
   ctxt->buffer.bitOffset = 8;
   ctxt->buffer.dynamic = 0;
}

void rtJsonDecEndText(QSCTXT* ctxt, const QSJsonSavedInput* saved)
{
   ctxt->buffer = saved->buffer;
   ctxt->lastChar = saved->lastChar;
}

int rtJsonMissingMember(QSCTXT* ctxt, const char* name, const char* module, int line)
{
   rtxErrAddStrParm(ctxt, name);
   return rtxErrSetData(ctxt, RTERR_MISSING_REQUIRED_ELEMENT, module, line);
}
