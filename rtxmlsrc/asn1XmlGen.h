/*
 * Support for the generated XML encoders and decoders: the namespaces an
 * encoder writes with, the document frame of the control classes, and the
 * XER forms of BOOLEAN, ENUMERATED, unknown CHOICE alternatives and regional
 * extensions.
 */
#ifndef ASN1XMLGEN_H
#define ASN1XMLGEN_H

#include <string.h>

#include "rtxmlsrc/rtXml.h"
#include "rtxmlsrc/rtXmlFastEnc.h"
#include "rtxsrc/rtxEnum.h"
#include "rtxsrc/rtxErrCodes.h"
#include "rtxsrc/rtxError.h"
#include "rtxsrc/rtxMemory.h"

/* Namespaces of one encoder: its own element's (the URI it was given) and its members' (the
 * module's record, only outside ASN.1 XML mode). The own record is filled only when there is a
 * URI, so that the common case stores nothing. */
struct QSXmlNS {
   QSXmlNamespace own;
   const QSXmlNamespace* pOwn;
   const QSXmlNamespace* pChild;
   const QSUTF8CHAR* childURI;

   QSXmlNS(const QSCTXT* ctxt, const QSUTF8CHAR* nsURI, const QSXmlNamespace* module)
   {
      pOwn = 0;
      if (nsURI != 0) {
         own.uri = nsURI;
         own.prefix = 0;
         pOwn = &own;
      }
      bool plain = (ctxt->flags & QSXMLCTXT) == 0;
      pChild = plain ? module : 0;
      childURI = plain ? module->uri : 0;
   }
};

/* rtXmlEncStartElement(ctxt, elemName, pNS, 0, 1) and rtXmlEncEndElement(ctxt, elemName, pNS) for
 * the element of an encoder's value, without a call when the name is empty and there is nothing to
 * do (no start tag pending, no nil mark). */
inline int rtXmlEncStartContent(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt != 0 && elemName != 0 && elemName[0] == 0 && ctxt->pAppInfo[0] != 0 &&
       (ctxt->flags & (QSXMLSTARTOPEN | QSXMLNIL)) == 0)
      return 0;
   return rtXmlEncStartElement(ctxt, elemName, pNS, 0, 1);
}

inline int rtXmlEncEndContent(QSCTXT* ctxt, const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS)
{
   if (ctxt != 0 && elemName != 0 && elemName[0] == 0) return 0;
   return rtXmlEncEndElement(ctxt, elemName, pNS);
}

/* Document start of a message: the XML information record (created when the context has
 * none), ASN.1 XML mode, the declaration and the root start tag. */
int rtXmlEncBeginDocument(QSCTXT* ctxt, const QSUTF8CHAR* rootName);

/* The same for decoding: information record, ASN.1 XML mode, the pull reader. */
int rtXmlpBeginDocument(QSCTXT* ctxt);

/* ENUMERATED: the element holding an empty element named by the value's identifier;
 * RTERR_ENUM_NOT_IN_SET for a value the table does not have. */
int rtXmlEncEnumValue(QSCTXT* ctxt, const QSRTEnumTableEntry* table, QSUINT16 count, QSINT32 value,
                      const QSUTF8CHAR* elemName, const QSXmlNamespace* pNS);

/* Content of a BOOLEAN element: exactly one empty child "true" or "false". */
int rtXmlpDecXerBool(QSCTXT* ctxt, QSBOOL* pvalue);

/* Content of an ENUMERATED element: one empty child named by an identifier, mapped with the
 * type's name lookup; identifiers of values above `top` are refused too. */
typedef int (*QSXmlToEnumFunc)(QSCTXT* ctxt, const QSUTF8CHAR* value, size_t valueLen, QSUINT32* pvalue);
int rtXmlpDecXerEnum(QSCTXT* ctxt, QSXmlToEnumFunc toEnum, QSUINT32 top, QSUINT32* pvalue);

/* An unknown alternative of an extensible CHOICE, left in place by the lookup: the whole
 * element as text in a new open-type record. */
int rtXmlpDecUnknownAlt(QSCTXT* ctxt, ASN1TOpenType** ppvalue);


/* The single child of a regional extension's value element, whose name is not checked: after
 * this the caller decodes its content and matches its end tag. */
int rtXmlpDecRegionalStart(QSCTXT* ctxt);

#endif
