#include "rtxsrc/rtxError.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rtxsrc/rtxMemory.h"

namespace {

/* Templates of codes -1 (index 0) to -98; codes without text stay null. */
const char* const g_rtErrTexts[98] = {
   "Encode buffer overflow",
   "Unexpected end of buffer on decode",
   "Unexpected identifier encountered: expected = %s, parsed = %s",
   "Enumerated value %s not in defined set",
   "Duplicate element in container object (SEQUENCE, SET, etc.)",
   "Missing required element %s in container object (SEQUENCE, SET, etc.)",
   "Element index %s not within bounds of ASN.1 SET or XSD all type",
   "Max elements defined for repeating field exceeded",
   "Element with identifier %s is an invalid option in choice",
   "No dynamic memory available",
   "Invalid hex string",
   "Invalid real value",
   "Max items in sized character or binary string field exceeded",
   "Invalid value specification",
   "Nesting level too deep",
   "Value constraint violation: field %s, value %s",
   "Unexpected end of file detected",
   "Invalid UTF-8 character at index %s",
   "Array index out of bounds",
   "Invalid parameter passed to function or method",
   "Invalid value format",
   "Context is not initialized",
   "Value will not fit in target variable: element '%s'",
   "Character is not within the defined character set",
   "Invalid XML state for attempted operation",
   "Error condition returned from XML parser:\n%s",
   "Sequence elements not in correct order",
   "File not found or can't be opened",
   "Read error",
   "Write error",
   "Invalid Base64 string",
   "Socket error",
   "Attribute \"%s.%s\" not defined",
   "Regexp error: %s: %s",
   "Pattern match violation: field %s, value %s",
   "Missing required attribute \"%s\"",
   "Host name could not be resolved",
   "HTTP error: %s",
   "SOAP error. Code: %s, Reason:\n%s",
   "",
   "Unexpected element \"%s\" found",
   "Invalid number of occurences of element %s (%s)",
   "Invalid message buffer",
   "Decode \"%s\" for element \"%s.%s\" failed",
   "Decode of attribute \"%s.%s\" failed",
   "Current stream must be closed before opening a new stream",
   "Unexpected null pointer value: %s",
   "General failure: %s",
   "Attribute '%s' value '%s' does not match defined fixed value",
   "Multiple errors; see context error list for details on each error",
   "Derived type could not be decoded due to missing type info",
   "Address is already in use",
   "Remote connection was reset",
   "Host was unreachable due to network or host failure",
   "Socket is not connected",
   "Connection refused",
   "Invalid socket option",
   "SOAP fault message",
   "Mark is not supported on this type of stream",
   "Feature not supported: %s",
   "Unbalanced structure detected",
   "Expected name in name/value pair but encountered value instead",
   "Invalid Unicode character encountered",
   "Invalid Boolean value keyword encountered",
   "Invalid null or nil value keyword encountered",
   "Invalid field length detected",
   "Unknown information element received, ID = %d",
   "Element expected to start on byte boundary",
   "Extraneous data exists in buffer after decode complete",
   "Invalid Message Authentication Code; expected = %s; computed = %s",
   "No security parameters were provided to decrypt/validate message",
   "Copy operation failed",
   "Unable to parse message '%s'",
   "Values not equal: element '%s', value1 '%s', value2 '%s'",
   "Buffers not equal: element '%s', diffs = '%s'",
   "Bit string value contains unused bits that have not been set to zero",
   "Licence manager error: %s",
   "No decoder generated for type found in encoding",
   "Socket would have blocked",
   "CDR or message file contains no data records",
   "Error returned from MBEDTLS function %d, status = %d",
   "Arithmetic operation caused integer value to overflow",
   "Operation was aborted as requested",
};

const char* const NORMAL_TEXT = "normal completion status";
const char* const UNKNOWN_TEXT = "unrecognized completion status";

QSRTErrTableEntry g_errTables[QSERR_MAXTABLES];
int g_errTableCount = 0;

/* Template of a negative code; null when no table covers it or it has no text. */
const char* findTemplate(int status)
{
   for (int i = 0; i < g_errTableCount; i++) {
      const QSRTErrTableEntry& t = g_errTables[i];
      if (t.end < status && status <= t.first) return t.texts[t.first - status];
   }
   return nullptr;
}

/* A record together with its list node, allocated in one piece. */
struct ErrEntry {
   QSRTDListNode node;
   QSRTErrInfo info;
};

inline QSRTErrInfo* infoOf(const QSRTDListNode* node) { return static_cast<QSRTErrInfo*>(node->data); }

inline bool builtinLinked(const QSCTXT* ctxt) { return ctxt->errNode.data != nullptr; }

ErrEntry* newEntry(QSCTXT* ctxt)
{
   ErrEntry* e = static_cast<ErrEntry*>(rtxMemHeapAllocZ(ctxt, sizeof(ErrEntry)));
   if (e != nullptr) e->node.data = &e->info;
   return e;
}

/* Appends a new fatal record; the built-in one when memory is out for
 * RTERR_NO_DYNAMIC_MEMORY. Null when nothing can be recorded. */
QSRTErrInfo* newRecord(QSCTXT* ctxt, int status)
{
   ErrEntry* e = newEntry(ctxt);
   if (e != nullptr) {
      e->info.fatal = 1;
      rtxDListAppendNode(&ctxt->errInfoList, &e->node);
      ctxt->errInfo.status = 0;
      return &e->info;
   }
   if (status == RTERR_NO_DYNAMIC_MEMORY && ctxt->errInfo.status == 0 && !builtinLinked(ctxt)) {
      ctxt->errInfo.fatal = 1;
      ctxt->errNode.data = &ctxt->errInfo;
      rtxDListAppendNode(&ctxt->errInfoList, &ctxt->errNode);
      return &ctxt->errInfo;
   }
   return nullptr;
}

void freeParms(QSCTXT* ctxt, QSRTErrInfo* rec)
{
   for (int i = 0; i < rec->parmcnt; i++) rtxMemHeapFreePtr(ctxt, rec->parms[i]);
   std::memset(rec->parms, 0, sizeof(rec->parms));
   rec->parmcnt = 0;
   rtxMemHeapFreePtr(ctxt, rec->elemName);
   rec->elemName = nullptr;
}

void emptyBuiltin(QSCTXT* ctxt)
{
   freeParms(ctxt, &ctxt->errInfo);
   std::memset(&ctxt->errInfo, 0, sizeof(QSRTErrInfo));
}

void removeRecord(QSCTXT* ctxt, QSRTDListNode* node)
{
   rtxDListRemove(&ctxt->errInfoList, node);
   if (node == &ctxt->errNode) {
      emptyBuiltin(ctxt);
      ctxt->errNode.data = nullptr;
   }
   else {
      freeParms(ctxt, infoOf(node));
      rtxMemHeapFreePtr(ctxt, node);
   }
}

char* heapCopy(QSCTXT* ctxt, const char* text, size_t len)
{
   char* copy = static_cast<char*>(rtxMemHeapAlloc(ctxt, len + 1));
   if (copy != nullptr) {
      std::memcpy(copy, text, len);
      copy[len] = '\0';
   }
   return copy;
}

/* Deep copy of a record into ctxt's heap. */
int copyRecord(QSCTXT* ctxt, QSRTErrInfo* to, const QSRTErrInfo* from)
{
   *to = *from;
   std::memset(to->parms, 0, sizeof(to->parms));
   to->parmcnt = 0;
   to->elemName = nullptr;
   for (int i = 0; i < from->parmcnt; i++) {
      to->parms[i] = heapCopy(ctxt, from->parms[i], std::strlen(from->parms[i]));
      if (to->parms[i] == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
      to->parmcnt++;
   }
   if (from->elemName != nullptr) {
      to->elemName = heapCopy(ctxt, from->elemName, std::strlen(from->elemName));
      if (to->elemName == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   }
   return 0;
}

/* Appends a copy of each of the first count records of src to dest. */
int appendCopies(QSCTXT* dest, const QSCTXT* src, QSSIZE count)
{
   const QSRTDListNode* node = src->errInfoList.head;
   for (; node != nullptr && count > 0; node = node->next, count--) {
      ErrEntry* e = newEntry(dest);
      if (e == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
      if (copyRecord(dest, &e->info, infoOf(node)) != 0) {
         freeParms(dest, &e->info);
         rtxMemHeapFreePtr(dest, e);
         return RTERR_NO_DYNAMIC_MEMORY;
      }
      rtxDListAppendNode(&dest->errInfoList, &e->node);
   }
   return 0;
}

/* Stores an owned heap text as pending parameter. */
int addOwnedParm(QSCTXT* ctxt, char* copy)
{
   QSRTErrInfo& pend = ctxt->errInfo;
   if (copy == nullptr) return 0;
   if (pend.parmcnt >= QSERR_MAXPARMS) {
      rtxMemHeapFreePtr(ctxt, copy);
      return 0;
   }
   pend.parms[pend.parmcnt++] = copy;
   return 1;
}

int setData(QSCTXT* ctxt, int status, const char* module, int lineno, bool forceNew)
{
   if (ctxt == nullptr) return status;
   if (status == RTERR_VALUE_WILL_NOT_FIT) rtxErrAddElemNameParm(ctxt);

   QSRTDListNode* tail = ctxt->errInfoList.tail;
   QSRTErrInfo* rec = (tail != nullptr) ? infoOf(tail) : nullptr;
   if (forceNew || rec == nullptr || (rec->status != 0 && rec->status != status)) {
      rec = newRecord(ctxt, status);
      if (rec == nullptr) return RTERR_NO_DYNAMIC_MEMORY;
   }
   if (rec->status == 0) rec->status = (QSINT16)status;

   QSRTErrInfo& pend = ctxt->errInfo;
   if (rec != &pend && pend.parmcnt > 0) {
      for (int i = 0; i < rec->parmcnt; i++) rtxMemHeapFreePtr(ctxt, rec->parms[i]);
      std::memcpy(rec->parms, pend.parms, sizeof(rec->parms));
      rec->parmcnt = pend.parmcnt;
      std::memset(pend.parms, 0, sizeof(pend.parms));
      pend.parmcnt = 0;
   }
   if (!(ctxt->flags & QSNOERRTRACE)) {
      if (rec->stkx < QSERR_MAXLOCN && module != nullptr && *module != '\0') {
         rec->stack[rec->stkx].module = module;
         rec->stack[rec->stkx].lineno = lineno;
         rec->stkx++;
      }
      if (status != RTERR_NO_DYNAMIC_MEMORY && (rec->elemName == nullptr || *rec->elemName == '\0')) {
         rtxMemHeapFreePtr(ctxt, rec->elemName);
         rec->elemName = rtxCtxtGetElemNamePath(ctxt);
      }
   }
   return rtxErrGetStatus(ctxt);
}

/* Output into a caller's buffer: pieces are added whole or not at all; once
 * one does not fit, everything after it is dropped too. Always NUL-terminated. */
struct TextOut {
   char* buf;
   size_t size;
   size_t len;
   bool full;

   TextOut(char* b, size_t s) : buf(b), size(s), len(0), full(false) { buf[0] = '\0'; }

   bool put(const char* s, size_t n)
   {
      if (full || len + n + 1 > size) return !(full = true);
      std::memcpy(buf + len, s, n);
      len += n;
      buf[len] = '\0';
      return true;
   }
   bool put(const char* s) { return put(s, std::strlen(s)); }
   bool putInt(long long v)
   {
      char num[24];
      return put(num, (size_t)std::snprintf(num, sizeof(num), "%lld", v));
   }
};

/* Template with each "%s" replaced by the next parameter ("?" when there is
 * none), then the unused parameters after single spaces. */
void formatTemplate(const char* tmpl, char* const* parms, int nparms, TextOut& out)
{
   int used = 0;
   for (const char* p = tmpl; *p != '\0' && !out.full;) {
      if (p[0] == '%' && p[1] == 's') {
         const char* value = (used < nparms && parms[used] != nullptr) ? parms[used] : "?";
         if (used < nparms) used++;
         out.put(value);
         p += 2;
      }
      else {
         out.put(p++, 1);
      }
   }
   for (; used < nparms && !out.full; used++) {
      const char* value = (parms[used] != nullptr) ? parms[used] : "";
      size_t n = std::strlen(value);
      if (out.len + n + 2 > out.size) out.full = true;
      else out.put(" ") && out.put(value, n);
   }
}

inline bool hasElemName(const QSRTErrInfo* rec) { return rec->elemName != nullptr && *rec->elemName != '\0'; }

}  // namespace

/* ---- registry --------------------------------------------------------------------------------- */

int rtxErrAddErrorTableEntry(const char* const* texts, int first, int end)
{
   for (int i = 0; i < g_errTableCount; i++) {
      if (g_errTables[i].texts == texts) return 0;
   }
   if (g_errTableCount >= QSERR_MAXTABLES) return 0;
   g_errTables[g_errTableCount++] = QSRTErrTableEntry{ texts, first, end };
   return 1;
}

int rtxErrInit()
{
   rtxErrAddErrorTableEntry(g_rtErrTexts, -1, -99);
   return 0;
}

/* ---- recording -------------------------------------------------------------------------------- */

int rtxErrSetData(QSCTXT* ctxt, int status, const char* module, int lineno)
{
   return setData(ctxt, status, module, lineno, false);
}

int rtxErrSetNewData(QSCTXT* ctxt, int status, const char* module, int lineno)
{
   return setData(ctxt, status, module, lineno, true);
}

int rtxErrAddStrnParm(QSCTXT* ctxt, const char* text, QSSIZE len)
{
   if (ctxt == nullptr || ctxt->errInfo.parmcnt >= QSERR_MAXPARMS) return 0;
   if (text == nullptr) {
      text = "(null)";
      len = 6;
   }
   const void* nul = std::memchr(text, '\0', len);
   if (nul != nullptr) len = (QSSIZE)(static_cast<const char*>(nul) - text);
   return addOwnedParm(ctxt, heapCopy(ctxt, text, len));
}

int rtxErrAddStrParm(QSCTXT* ctxt, const char* text)
{
   return rtxErrAddStrnParm(ctxt, text, (text != nullptr) ? std::strlen(text) : 0);
}

int rtxErrAddIntParm(QSCTXT* ctxt, int value)
{
   return rtxErrAddInt64Parm(ctxt, value);
}

int rtxErrAddUIntParm(QSCTXT* ctxt, unsigned int value)
{
   return rtxErrAddUInt64Parm(ctxt, value);
}

int rtxErrAddInt64Parm(QSCTXT* ctxt, QSINT64 value)
{
   char num[24];
   std::snprintf(num, sizeof(num), "%lld", value);
   return rtxErrAddStrParm(ctxt, num);
}

int rtxErrAddUInt64Parm(QSCTXT* ctxt, QSUINT64 value)
{
   char num[24];
   std::snprintf(num, sizeof(num), "%llu", value);
   return rtxErrAddStrParm(ctxt, num);
}

int rtxErrAddSizeParm(QSCTXT* ctxt, QSSIZE value)
{
   return rtxErrAddUInt64Parm(ctxt, value);
}

int rtxErrAddDoubleParm(QSCTXT* ctxt, double value)
{
   char num[201];
   std::snprintf(num, sizeof(num), "%E", value);
   return rtxErrAddStrParm(ctxt, num);
}

int rtxErrAddUniStrParm(QSCTXT* ctxt, const QSUINT16* text)
{
   if (ctxt == nullptr || ctxt->errInfo.parmcnt >= QSERR_MAXPARMS) return 0;
   size_t len = 0;
   for (const QSUINT16* p = text; p != nullptr && *p != 0; p++) len += (*p < 0x80) ? 1 : (*p < 0x800) ? 2 : 3;
   char* copy = static_cast<char*>(rtxMemHeapAlloc(ctxt, len + 1));
   if (copy == nullptr) return 0;
   char* out = copy;
   for (const QSUINT16* p = text; p != nullptr && *p != 0; p++) {
      unsigned c = *p;
      if (c < 0x80) {
         *out++ = (char)c;
      }
      else if (c < 0x800) {
         *out++ = (char)(0xC0 | (c >> 6));
         *out++ = (char)(0x80 | (c & 0x3F));
      }
      else {
         *out++ = (char)(0xE0 | (c >> 12));
         *out++ = (char)(0x80 | ((c >> 6) & 0x3F));
         *out++ = (char)(0x80 | (c & 0x3F));
      }
   }
   *out = '\0';
   return addOwnedParm(ctxt, copy);
}

int rtxErrAddCtxtBufParm(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return 0;
   const QSRTBuffer& b = ctxt->buffer;
   if (b.data == nullptr) return rtxErrAddStrParm(ctxt, nullptr);
   QSSIZE left = (b.byteIndex < b.size) ? b.size - b.byteIndex : 0;
   return rtxErrAddStrnParm(ctxt, reinterpret_cast<const char*>(b.data + b.byteIndex), left);
}

int rtxErrAddElemNameParm(QSCTXT* ctxt)
{
   if (ctxt == nullptr || ctxt->errInfo.parmcnt >= QSERR_MAXPARMS) return 0;
   char* path = rtxCtxtGetElemNamePath(ctxt);
   return (path != nullptr) ? addOwnedParm(ctxt, path) : rtxErrAddStrParm(ctxt, "?");
}

int rtxErrInvUIntOpt(QSCTXT* ctxt, QSUINT32 value)
{
   rtxErrAddUIntParm(ctxt, value);
   return RTERR_INVALID_CHOICE_OPTION;
}

/* ---- inspection ------------------------------------------------------------------------------- */

int rtxErrGetStatus(const QSCTXT* ctxt)
{
   if (ctxt == nullptr) return 0;
   int status = 0, fatal = 0;
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr; n = n->next) {
      if (infoOf(n)->fatal) {
         status = infoOf(n)->status;
         fatal++;
      }
   }
   return (fatal > 1) ? RTERR_MULTIPLE_ERRORS : status;
}

int rtxErrGetFirstError(const QSCTXT* ctxt)
{
   return (ctxt != nullptr && ctxt->errInfoList.head != nullptr) ? infoOf(ctxt->errInfoList.head)->status : 0;
}

int rtxErrGetLastError(const QSCTXT* ctxt)
{
   return (ctxt != nullptr && ctxt->errInfoList.tail != nullptr) ? infoOf(ctxt->errInfoList.tail)->status : 0;
}

QSSIZE rtxErrGetErrorCnt(const QSCTXT* ctxt)
{
   return (ctxt != nullptr) ? ctxt->errInfoList.count : 0;
}

int rtxErrCheckNonFatal(const QSCTXT* ctxt)
{
   int status = rtxErrGetFirstError(ctxt);
   if (status == 0) return 0;
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr; n = n->next) {
      if (infoOf(n)->status != status) return RTERR_MULTIPLE_ERRORS;
   }
   return status;
}

void rtxErrSetNonFatal(QSCTXT* ctxt)
{
   if (ctxt != nullptr && ctxt->errInfoList.tail != nullptr) infoOf(ctxt->errInfoList.tail)->fatal = 0;
}

/* ---- clean-up and copying --------------------------------------------------------------------- */

void rtxErrResetLastErrors(QSCTXT* ctxt, QSSIZE count)
{
   if (ctxt == nullptr) return;
   for (; count > 0 && ctxt->errInfoList.tail != nullptr; count--) removeRecord(ctxt, ctxt->errInfoList.tail);
}

int rtxErrReset(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return 0;
   rtxCtxtPopAllElemNames(ctxt);
   rtxErrResetLastErrors(ctxt, ctxt->errInfoList.count);
   emptyBuiltin(ctxt);
   rtxCtxtPopAllContainers(ctxt);
   return 0;
}

void rtxErrFreeParms(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return;
   for (QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr; n = n->next) freeParms(ctxt, infoOf(n));
   freeParms(ctxt, &ctxt->errInfo);
}

int rtxErrCopy(QSCTXT* dest, QSCTXT* src)
{
   if (dest == nullptr || src == nullptr) return RTERR_INVALID_PARAMETER;
   if (dest == src) return 0;
   rtxErrReset(dest);
   int stat = copyRecord(dest, &dest->errInfo, &src->errInfo);
   if (stat == 0) stat = appendCopies(dest, src, src->errInfoList.count);
   if (stat != 0) rtxErrReset(dest);
   return stat;
}

int rtxErrAppend(QSCTXT* dest, QSCTXT* src)
{
   if (dest == nullptr || src == nullptr) return RTERR_INVALID_PARAMETER;
   return appendCopies(dest, src, src->errInfoList.count);
}

/* ---- texts ------------------------------------------------------------------------------------ */

char* rtxErrFmtMsg(const QSRTErrInfo* errInfo, char* buffer, QSSIZE bufsize)
{
   if (errInfo == nullptr || buffer == nullptr || bufsize == 0) return nullptr;
   if (errInfo->status == RTERR_MULTIPLE_ERRORS) return buffer;
   TextOut out(buffer, bufsize);
   if (errInfo->status >= 0) {
      formatTemplate(NORMAL_TEXT, nullptr, 0, out);
   }
   else {
      const char* tmpl = findTemplate(errInfo->status);
      int nparms = (errInfo->parmcnt < QSERR_MAXPARMS) ? errInfo->parmcnt : QSERR_MAXPARMS;
      if (tmpl != nullptr) formatTemplate(tmpl, errInfo->parms, nparms, out);
      else formatTemplate(UNKNOWN_TEXT, nullptr, 0, out);
   }
   return buffer;
}

char* rtxErrGetTextBuf(QSCTXT* ctxt, char* buffer, QSSIZE bufsize)
{
   if (ctxt == nullptr || buffer == nullptr || bufsize == 0) return nullptr;
   TextOut out(buffer, bufsize);
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr && !out.full; n = n->next) {
      const QSRTErrInfo* rec = infoOf(n);
      char msg[200];
      std::memset(msg, 0, sizeof(msg));
      rtxErrFmtMsg(rec, msg, sizeof(msg));
      out.put("ERROR: Status ") && out.putInt(rec->status) && out.put("\n") && out.put(msg) &&
         out.put("\n");
      if (hasElemName(rec)) out.put("Element name: ") && out.put(rec->elemName) && out.put("\n");
      if (rec->stkx > 0) out.put("Stack trace:") && out.put("\n");
      for (int i = rec->stkx - 1; i >= 0; i--) {
         const QSRTErrLocn& l = rec->stack[i];
         if (l.module == nullptr) continue;
         out.put("  Module: ") && out.put(l.module) && out.put(" Line ") && out.putInt(l.lineno) &&
            out.put("\n");
      }
   }
   return buffer;
}

char* rtxErrGetText(QSCTXT* ctxt, char* buffer, QSSIZE* pBufSize)
{
   if (ctxt == nullptr) return nullptr;
   if (buffer != nullptr && pBufSize != nullptr) return rtxErrGetTextBuf(ctxt, buffer, *pBufSize);
   QSSIZE size = 200;
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr; n = n->next) {
      const QSRTErrInfo* rec = infoOf(n);
      size += ((QSSIZE)rec->stkx + 2) * 100;
      if (rec->elemName != nullptr) size += std::strlen(rec->elemName) + 20;
   }
   char* text = static_cast<char*>(rtxMemHeapAlloc(ctxt, size));
   if (text == nullptr) return nullptr;
   if (pBufSize != nullptr) *pBufSize = size;
   return rtxErrGetTextBuf(ctxt, text, size);
}

char* rtxErrGetMsgText(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return nullptr;
   /* Parameters appended after a template are counted without their spaces,
    * so the last of them may be cut. */
   QSSIZE size = 0;
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr; n = n->next) {
      const QSRTErrInfo* rec = infoOf(n);
      if (rec->elemName != nullptr) size += std::strlen(rec->elemName) + 10;
      const char* tmpl = (rec->status < 0) ? findTemplate(rec->status) : nullptr;
      if (tmpl != nullptr) {
         size += std::strlen(tmpl) + 1;
         for (int i = 0; i < rec->parmcnt; i++) size += std::strlen(rec->parms[i]);
      }
      else {
         size += (rec->status < 0) ? 30 : 24;
      }
      if (n->next != nullptr) size += 2;
   }
   if (size == 0) size = 1;   /* an empty list still gives an empty text */
   char* text = static_cast<char*>(rtxMemHeapAlloc(ctxt, size));
   return (text != nullptr) ? rtxErrGetMsgTextBuf(ctxt, text, size) : nullptr;
}

char* rtxErrGetMsgTextBuf(QSCTXT* ctxt, char* buffer, QSSIZE bufsize)
{
   if (ctxt == nullptr || buffer == nullptr || bufsize == 0) return nullptr;
   TextOut out(buffer, bufsize);
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr && !out.full; n = n->next) {
      const QSRTErrInfo* rec = infoOf(n);
      if (hasElemName(rec)) out.put("Element: ") && out.put(rec->elemName) && out.put("\n");
      if (out.full) break;
      rtxErrFmtMsg(rec, buffer + out.len, bufsize - out.len);
      out.len += std::strlen(buffer + out.len);
      if (n->next != nullptr) out.put("\n");
   }
   return buffer;
}

void rtxErrPrint(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return;
   for (const QSRTDListNode* n = ctxt->errInfoList.head; n != nullptr; n = n->next) {
      const QSRTErrInfo* rec = infoOf(n);
      char msg[400];
      std::memset(msg, 0, sizeof(msg));
      rtxErrFmtMsg(rec, msg, sizeof(msg));
      std::printf("ERROR: Status %d\n", rec->status);
      std::printf("%s\n", msg);
      if (hasElemName(rec)) std::printf("Element name: %s\n", rec->elemName);
      /* the first location follows "Stack trace:" on the same line */
      if (rec->stkx > 0) std::printf("Stack trace:");
      for (int i = rec->stkx - 1; i >= 0; i--) {
         if (rec->stack[i].module != nullptr)
            std::printf("  Module: %s, Line %d\n", rec->stack[i].module, rec->stack[i].lineno);
      }
   }
   std::fflush(stdout);
}

int rtxErrLogUsingCB(QSCTXT* ctxt, rtxErrLogCallback cb, void* userArg)
{
   if (ctxt == nullptr || cb == nullptr) return RTERR_INVALID_PARAMETER;
   char* text = rtxErrGetText(ctxt, nullptr, nullptr);
   cb((text != nullptr) ? text : "ERROR : no memory available", userArg);
   rtxMemHeapFreePtr(ctxt, text);
   rtxErrFreeParms(ctxt);
   return 0;
}

void rtxErrAssertionFailed(const char* condition, int lineno, const char* fileName)
{
   std::printf("Run-time assertion '%s' failed.  Line %d, File %s\n", condition, lineno, fileName);
   std::fflush(stdout);
   std::exit(-1);
}
