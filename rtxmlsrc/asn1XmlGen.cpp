/*
 * Support for the generated XML codecs (see asn1XmlGen.h).
 */
#include "rtxmlsrc/asn1XmlGen.h"

#include <new>

static const char* const THIS_FILE = "../../rtxmlsrc/asn1XmlGen.cpp";
#define LOG_RTERR(ctxt, stat) rtxErrSetData(ctxt, stat, THIS_FILE, __LINE__)

/* The XML information record is created once per context, with the XML status texts. */
static int ensureXmlInfo(QSCTXT* ctxt)
{
   if (ctxt->pAppInfo[0] != 0) return 0;
   rtErrXmlInit();
   return rtXmlInitCtxtAppInfo(ctxt);
}

int rtXmlEncBeginDocument(QSCTXT* ctxt, const QSUTF8CHAR* rootName)
{
   int stat = ensureXmlInfo(ctxt);
   if (stat != 0) return stat;
   ctxt->flags |= QSXMLCTXT;
   if ((stat = rtXmlEncStartDocument(ctxt)) != 0) return stat;
   /* the root start tag is closed at once: the message's encoder, called with an empty name,
    * writes its content straight into the root element */
   static const QSXmlNamespace noNamespace = { 0, 0 };
   return rtXmlEncStartElement(ctxt, rootName, &noNamespace, 0, 1);
}

int rtXmlpBeginDocument(QSCTXT* ctxt)
{
   int stat = ensureXmlInfo(ctxt);
   if (stat != 0) return stat;
   ctxt->flags |= QSXMLCTXT;
   return rtXmlpCreateReader(ctxt);
}

int rtXmlEncEnumValue(QSCTXT* ctxt, const QSRTEnumTableEntry* table, QSUINT16 count, QSINT32 value,
                      const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   const char* id = rtxEnumValueToString(table, count, value);
   if (strcmp(id, "_UNKNOWN_") == 0) {
      rtxErrAddIntParm(ctxt, value);
      return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);
   }
   return rtXmlEncEnum(ctxt, (const QSUTF8CHAR*)id, elemName, pNS);
}

/* After the lookup of a value's child element: the child must be empty; its end tag. */
static int finishEmptyChild(QSCTXT* ctxt)
{
   int stat = rtXmlDecEmptyElement(ctxt);
   if (stat != 0) return LOG_RTERR(ctxt, stat);
   if ((stat = rtXmlpMatchEndTag(ctxt, -1)) != 0) return LOG_RTERR(ctxt, stat);
   return 0;
}

int rtXmlpDecXerBool(QSCTXT* ctxt, QSBOOL* pvalue)
{
   static const QSXmlElemDescr boolTab[2] = { { "true", 4, 0, 0 }, { "false", 5, 0, 1 } };
   int id = rtXmlpGetNextElemID(ctxt, boolTab, 2, -1, 1);
   if (id < 0) return LOG_RTERR(ctxt, id);
   if (id == QSXML_END_OF_CONTENT) return LOG_RTERR(ctxt, RTERR_XML_REQUIRED_ELEMENTS_MISSED);
   *pvalue = (QSBOOL)(id == 0);
   return finishEmptyChild(ctxt);
}

int rtXmlpDecXerEnum(QSCTXT* ctxt, QSXmlToEnumFunc toEnum, QSUINT32 top, QSUINT32* pvalue)
{
   QSXmlQName qname = { 0, 0 };
   int stat = rtXmlpGetNextElem(ctxt, &qname, -1);
   if (stat < 0) return LOG_RTERR(ctxt, stat);
   if (stat == QSXML_END_OF_CONTENT) return LOG_RTERR(ctxt, RTERR_XML_REQUIRED_ELEMENTS_MISSED);
   QSUINT32 value = 0;
   if (qname.nsPrefix != 0 && qname.nsPrefix[0] != 0) {
      rtxErrAddStrParm(ctxt, (const char*)qname.ln);
      stat = RTERR_UNEXPECTED_ELEMENT;
   }
   else if (toEnum(ctxt, qname.ln, strlen((const char*)qname.ln), &value) != 0 || value > top) {
      rtxErrAddStrParm(ctxt, (const char*)qname.ln);
      stat = RTERR_ENUM_NOT_IN_SET;
   }
   else stat = 0;
   rtxMemHeapFreePtr(ctxt, (void*)qname.ln);
   if (qname.nsPrefix != 0) rtxMemHeapFreePtr(ctxt, (void*)qname.nsPrefix);
   if (stat != 0) return LOG_RTERR(ctxt, stat);
   *pvalue = value;
   return finishEmptyChild(ctxt);
}

int rtXmlpDecUnknownAlt(QSCTXT* ctxt, ASN1TOpenType** ppvalue)
{
   const QSUTF8CHAR* text = 0;
   int stat = rtXmlpDecAnyElem(ctxt, &text);
   if (stat != 0) return LOG_RTERR(ctxt, stat);
   ASN1TOpenType* ot = (ASN1TOpenType*)rtxMemHeapAlloc(ctxt, sizeof(ASN1TOpenType));
   if (ot == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   ot->numocts = (QSUINT32)strlen((const char*)text);
   ot->data = text;
   *ppvalue = ot;
   return 0;
}

int rtXmlpDecRegionalStart(QSCTXT* ctxt)
{
   QSXmlQName qname = { 0, 0 };
   int stat = rtXmlpGetNextElem(ctxt, &qname, -1);
   if (stat < 0) return LOG_RTERR(ctxt, stat);
   if (stat == QSXML_END_OF_CONTENT) return LOG_RTERR(ctxt, RTERR_XML_REQUIRED_ELEMENTS_MISSED);
   rtxMemHeapFreePtr(ctxt, (void*)qname.ln);
   if (qname.nsPrefix != 0) rtxMemHeapFreePtr(ctxt, (void*)qname.nsPrefix);
   return 0;
}
