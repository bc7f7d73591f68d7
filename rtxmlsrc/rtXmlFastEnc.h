/*
 * One-piece element writers of the XML writer, inline so that the generated encoders write their
 * most frequent elements (integers, enumerations, booleans, start and end tags of structured
 * members) without a call.
 *
 * They apply to the common shapes only: ASN.1 XML mode or plain, inside the root element, no start
 * tag pending, no nil mark, no canonical form, space indentation, room in the buffer. Runs of
 * spaces and element names are copied a fixed number of bytes at a time, so these writers ask for
 * kFastSlack bytes of room beyond their text; the bytes behind the NUL are not part of the text.
 * When a case does not apply they write nothing and return 1, and the caller takes the general
 * writer at the same point.
 *
 * Element names come with their length (len bytes, no prefix) in storage padded with NULs to a
 * multiple of 16 bytes.
 */
#ifndef RTXMLFASTENC_H
#define RTXMLFASTENC_H

#include <string.h>

#include "rtjsonsrc/rtxText.h"
#include "rtxmlsrc/rtXml.h"
#include "rtxmlsrc/rtXmlInternal.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxEnum.h"

/* The writers below are inlined at every call, where the name and its length are constants. */
#if defined(__GNUC__)
#define XMLFAST_INLINE inline __attribute__((always_inline))
#else
#define XMLFAST_INLINE inline
#endif

namespace xmlfast {

const QSSIZE kFastSlack = 64;

/* 32 spaces. */
extern const char kSpaces32[33];

/* Room for n text bytes (and the slack) at the write position; null when there is none. */
XMLFAST_INLINE QSOCTET* room(QSCTXT* ctxt, QSSIZE n)
{
   QSRTBuffer& b = ctxt->buffer;
   if (b.data == 0 || b.byteIndex + n + kFastSlack > b.size) return 0;
   return b.data + b.byteIndex;
}

/* Ends a fast write at p: NUL behind the text, byte index, last character. */
XMLFAST_INLINE void commit(QSCTXT* ctxt, QSOCTET* p)
{
   *p = 0;
   ctxt->buffer.byteIndex = (QSSIZE)(p - ctxt->buffer.data);
   ctxt->lastChar = p[-1];
}

/* True when the one-piece writers apply in the current state; *pIndent is the indentation width
 * of one level (0: no line ends either). */
XMLFAST_INLINE bool state(const QSCTXT* ctxt, QSSIZE* pIndent)
{
   const QSXmlCtxtInfo* info = static_cast<const QSXmlCtxtInfo*>(ctxt->pAppInfo[0]);
   if (info == 0 || (ctxt->flags & (QSXMLSTARTOPEN | QSXMLNIL | QSXMLC14N)) != 0 ||
       ctxt->xmlState == QSXMLINIT || ctxt->xmlDepth == 0 || (info->indentChar != ' ' && info->indent != 0))
      return false;
   *pIndent = info->indent;
   return true;
}

/* Line end and nindent spaces at p (nothing when indent is 0); the new cursor. */
XMLFAST_INLINE QSOCTET* line(QSOCTET* p, QSSIZE indent, QSSIZE nindent)
{
   *p = '\n';
   p += (indent != 0);
   memcpy(p, kSpaces32, 32);
   for (QSSIZE i = 32; i < nindent; i += 32) memcpy(p + i, kSpaces32, 32);
   return p + nindent;
}

/* '<' or "</", the padded name, '>' at p; the new cursor. */
XMLFAST_INLINE QSOCTET* tag(QSOCTET* p, bool endTag, const char* name, QSSIZE len)
{
   *p++ = '<';
   *p = '/';
   p += endTag;
   memcpy(p, name, 16);
   for (QSSIZE i = 16; i < len; i += 16) memcpy(p + i, name + i, 16);
   p += len;
   *p++ = '>';
   return p;
}

/* <name>[-]digits</name> on a line of its own. */
XMLFAST_INLINE int decimal(QSCTXT* ctxt, bool negative, QSUINT64 magnitude, const char* name, QSSIZE len)
{
   QSSIZE indent;
   if (!state(ctxt, &indent)) return 1;
   QSSIZE nindent = indent * ctxt->xmlDepth;
   QSOCTET* p = room(ctxt, 1 + nindent + 2 * len + 5 + 21);
   if (p == 0) return 1;
   p = tag(line(p, indent, nindent), false, name, len);
   *p = '-';
   p += negative;
   if (magnitude < 10) {
      *p++ = (QSOCTET)('0' + magnitude);
   }
   else if (magnitude < 100) {
      memcpy(p, rtxTxtDigitPairs + 2 * magnitude, 2);
      p += 2;
   }
   else {
      p = rtxTxtPutDigits(p, magnitude);
   }
   commit(ctxt, tag(p, true, name, len));
   ctxt->xmlState = QSXMLEND;
   return 0;
}

/* Three lines: <name>, one level deeper <identifier/> (ilen bytes, not padded), </name>. */
XMLFAST_INLINE int emptyChild(QSCTXT* ctxt, const char* identifier, QSSIZE ilen, const char* name, QSSIZE len)
{
   QSSIZE indent;
   if (!state(ctxt, &indent)) return 1;
   QSSIZE nindent = indent * ctxt->xmlDepth;
   QSOCTET* p = room(ctxt, 3 + 3 * nindent + indent + 2 * len + 5 + ilen + 3);
   if (p == 0) return 1;
   p = tag(line(p, indent, nindent), false, name, len);
   p = line(p, indent, nindent + indent);
   *p++ = '<';
   memcpy(p, identifier, ilen);
   p += ilen;
   *p++ = '/';
   *p++ = '>';
   commit(ctxt, tag(line(p, indent, nindent), true, name, len));
   ctxt->xmlState = QSXMLEND;
   return 0;
}

} // namespace xmlfast

/* ENUMERATED element holding the empty element named by the value's identifier. */
XMLFAST_INLINE int rtXmlEncFastEnum(QSCTXT* ctxt, const QSRTEnumTableEntry* table, QSUINT16 count, QSINT32 value,
                                    const char* name, QSSIZE len)
{
   if (value < 0 || value >= (QSINT32)count) return 1;
   QSUINT16 idx = table[value].transidx;
   if (idx >= count || table[idx].value != value || table[idx].namelen == 0) return 1;
   return xmlfast::emptyChild(ctxt, (const char*)table[idx].name, table[idx].namelen, name, len);
}

/* BOOLEAN element in ASN.1 XML mode, holding <true/> or <false/>. */
XMLFAST_INLINE int rtXmlEncFastBool(QSCTXT* ctxt, QSBOOL value, const char* name, QSSIZE len)
{
   if ((ctxt->flags & QSXMLCTXT) == 0) return 1;
   return xmlfast::emptyChild(ctxt, value ? "true" : "false", value ? 4 : 5, name, len);
}

/* INTEGER element holding the decimal value, written as the general writer would: 0, or 1 when
 * nothing was written. */
XMLFAST_INLINE int rtXmlEncFastUInt(QSCTXT* ctxt, QSUINT64 value, const char* name, QSSIZE len)
{
   return xmlfast::decimal(ctxt, false, value, name, len);
}

XMLFAST_INLINE int rtXmlEncFastInt(QSCTXT* ctxt, QSINT64 value, const char* name, QSSIZE len)
{
   QSUINT64 magnitude = (value < 0) ? (QSUINT64)0 - (QSUINT64)value : (QSUINT64)value;
   return xmlfast::decimal(ctxt, value < 0, magnitude, name, len);
}

/* Start tag of an element whose content follows: written and the name pushed as by
 * rtXmlEncStartElement (0), or nothing done (1). Only while the name fits in the inline part of
 * the name stack, so that the push cannot fail. */
XMLFAST_INLINE int rtXmlEncFastStart(QSCTXT* ctxt, const char* name, QSSIZE len)
{
   QSElemNameStack& st = ctxt->elemNameStack;
   QSSIZE indent;
   if (st.more != 0 || st.count >= QS_ELEMNAME_INLINE || !xmlfast::state(ctxt, &indent)) return 1;
   QSSIZE nindent = indent * ctxt->xmlDepth;
   QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + len + 2);
   if (p == 0) return 1;
   xmlfast::commit(ctxt, xmlfast::tag(xmlfast::line(p, indent, nindent), false, name, len));
   QSElemName& e = st.inlineNames[st.count++];
   e.name = (const QSUTF8CHAR*)name;
   e.kind = 0;
   ctxt->xmlDepth++;
   ctxt->xmlState = QSXMLSTART;
   return 0;
}

/* End tag of the element opened by rtXmlEncFastStart with the same name: always done, in one piece
 * or by rtXmlEncEndElement (whose status is returned). */
XMLFAST_INLINE int rtXmlEncFastEnd(QSCTXT* ctxt, const char* name, QSSIZE len)
{
   QSSIZE indent;
   QSElemNameStack& st = ctxt->elemNameStack;
   QSUINT8 state = ctxt->xmlState;
   /* the element is the newest inline entry of the name stack, pushed by rtXmlEncFastStart */
   if ((state == QSXMLSTART || state == QSXMLDATA || state == QSXMLEND) && st.more == 0 && st.count != 0 &&
       st.inlineNames[st.count - 1].name == (const QSUTF8CHAR*)name && st.inlineNames[st.count - 1].kind == 0 &&
       xmlfast::state(ctxt, &indent)) {
      QSSIZE nindent = indent * (ctxt->xmlDepth - 1);
      QSOCTET* p = xmlfast::room(ctxt, 1 + nindent + len + 3);
      if (p != 0) {
         if (state == QSXMLSTART) {
            /* nothing since the start tag: the element becomes <name/> */
            p[-1] = '/';
            *p++ = '>';
         }
         else {
            if (state == QSXMLEND) p = xmlfast::line(p, indent, nindent);
            p = xmlfast::tag(p, true, name, len);
         }
         xmlfast::commit(ctxt, p);
         ctxt->xmlState = QSXMLEND;
         ctxt->xmlDepth--;
         st.count--;
         return 0;
      }
   }
   return rtXmlEncEndElement(ctxt, (const QSUTF8CHAR*)name, 0);
}

#endif
