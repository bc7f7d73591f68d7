/*
 * XML information record of a context, the XML status texts and the
 * output buffer of the writer.
 */
#include "rtxmlsrc/rtXml.h"

#include <cstdlib>
#include <cstring>

#include "rtxmlsrc/rtXmlInternal.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxMemory.h"

#define XML_MODULE "../../rtxmlsrc/rtXmlCtxt.cpp"

using namespace xmlimpl;

namespace {

/* Texts of the codes -200 (index 0) down to -220; the table is registered
 * over the range -200..-299, the codes without a text format as
 * "unrecognized completion status". */
const char* const g_xmlErrTexts[] = {
   "General error",                                                  /* -200 */
   "Invalid symbol '%s' detected in XML stream",                     /* -201 */
   "Start/end XML tags mismatch: expected '%s', parsed '%s'",        /* -202 */
   "Duplicate attribute found",                                      /* -203 */
   "Bad character reference '%s;' found",                            /* -204 */
   "Invalid data mode",                                              /* -205 */
   "Unexpected end-of-file (document) found",                        /* -206 */
   "Current tag is not matched to specified one",                    /* -207 */
   "Required element '%s' missed",                                   /* -208 */
   "One or more required element missed",                            /* -209 */
   "minOccurs is not reached",                                       /* -210 */
   "Unexpected start tag <%s> found",                                /* -211 */
   "Unexpected end tag </%s> found",                                 /* -212 */
   "Unexpected identifier encountered:\n   expected = '%s':%s,\n   parsed = '%s':%s", /* -213 */
   "Unknown xsi:type '%s':%s",                                       /* -214 */
   "Namespace URI for prefix '%s' not found",                        /* -215 */
   "Key not found in '%s', fields: %s %s %s %s",                     /* -216 */
   "Duplicate key found in '%s', fields: %s %s %s %s",               /* -217 */
   "Field #%s absent in some key of '%s'",                           /* -218 */
   "Key has duplicate field #%s in '%s'",                            /* -219 */
   "Element is not empty, as is required.",                          /* -220 */
   /* -221 .. -298: no text */
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
};
static_assert(sizeof(g_xmlErrTexts) / sizeof(g_xmlErrTexts[0]) == 99,
              "one entry per code of -200..-298");

/* One released information record per thread is kept for the next context that needs one: most
 * threads convert one message after the other, each with a context of its own, and this spares
 * them an allocation and a release per conversion. */
struct SpareInfo {
   QSXmlCtxtInfo* info = nullptr;
   ~SpareInfo() { std::free(info); }
};
thread_local SpareInfo t_spare;

QSXmlCtxtInfo* newInfo()
{
   QSXmlCtxtInfo* info = t_spare.info;
   if (info == nullptr) return static_cast<QSXmlCtxtInfo*>(std::calloc(1, sizeof(QSXmlCtxtInfo)));
   t_spare.info = nullptr;
   std::memset(info, 0, sizeof(QSXmlCtxtInfo));
   return info;
}

void releaseInfo(QSXmlCtxtInfo* info)
{
   if (t_spare.info == nullptr) t_spare.info = info;
   else std::free(info);
}

void freeCtxtInfo(QSCTXT* ctxt, void* p)
{
   QSXmlCtxtInfo* info = static_cast<QSXmlCtxtInfo*>(p);
   if (info == nullptr) return;
   if (ctxt->pAppInfo[0] == info) freeReader(ctxt);
   QSXmlNSDecl* ns = info->nsDecls;
   while (ns != nullptr) {
      QSXmlNSDecl* next = ns->next;
      std::free(ns->prefix);
      std::free(ns->uri);
      std::free(ns);
      ns = next;
   }
   std::free(info->encodingName);
   releaseInfo(info);
}

char* dupText(const QSUTF8CHAR* text)
{
   if (text == nullptr) return nullptr;
   size_t n = std::strlen((const char*)text);
   char* copy = static_cast<char*>(std::malloc(n + 1));
   if (copy != nullptr) std::memcpy(copy, text, n + 1);
   return copy;
}

} // namespace

/* ---- setup ------------------------------------------------------------------------------------ */

int rtErrXmlInit()
{
   rtxErrAddErrorTableEntry(g_xmlErrTexts, RTERR_XML_GENERAL, -299);
   return 0;
}

int rtXmlInitCtxtAppInfo(QSCTXT* ctxt)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   rtErrXmlInit();
   if (ctxt->pAppInfo[0] == nullptr) {
      QSXmlCtxtInfo* info = newInfo();
      if (info == nullptr) return rtxErrSetData(ctxt, RTERR_NO_DYNAMIC_MEMORY, "rtXmlCtxtAppInfo", __LINE__);
      info->indent = 3;
      info->indentChar = ' ';
      info->maxErrors = QSXML_DEFAULT_MAX_ERRORS;
      rtxCtxtSetAppInfo(ctxt, 0, info, freeCtxtInfo);
   }
   ctxt->xmlState = QSXMLINIT;
   return 0;
}

int rtXmlSetIndent(QSCTXT* ctxt, QSUINT8 indent)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   infoOf(ctxt)->indent = indent;
   return 0;
}

int rtXmlGetIndent(QSCTXT* ctxt)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   return infoOf(ctxt)->indent;
}

int rtXmlSetIndentChar(QSCTXT* ctxt, QSUTF8CHAR indentChar)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   infoOf(ctxt)->indentChar = indentChar;
   return 0;
}

int rtXmlGetIndentChar(QSCTXT* ctxt)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   return infoOf(ctxt)->indentChar;
}

int rtXmlSetWriteBOM(QSCTXT* ctxt, QSBOOL write)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   infoOf(ctxt)->writeBOM = write;
   return 0;
}

QSBOOL rtXmlGetWriteBOM(QSCTXT* ctxt)
{
   return (ctxt != nullptr && infoOf(ctxt) != nullptr) ? infoOf(ctxt)->writeBOM : FALSE;
}

int rtXmlSetEncoding(QSCTXT* ctxt, int encoding)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr || encoding < 0 || encoding > 4)
      return RTERR_INVALID_PARAMETER;
   infoOf(ctxt)->encoding = encoding;
   return 0;
}

int rtXmlSetEncodingName(QSCTXT* ctxt, const QSUTF8CHAR* name)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   char* copy = nullptr;
   if (name != nullptr) {
      copy = dupText(name);
      if (copy == nullptr) return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   std::free(infoOf(ctxt)->encodingName);
   infoOf(ctxt)->encodingName = copy;
   return 0;
}

int rtXmlAddNamespaceDecl(QSCTXT* ctxt, const QSUTF8CHAR* prefix, const QSUTF8CHAR* uri)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr || uri == nullptr) return RTERR_INVALID_PARAMETER;
   QSXmlNSDecl* ns = static_cast<QSXmlNSDecl*>(std::calloc(1, sizeof(QSXmlNSDecl)));
   if (ns != nullptr) {
      ns->uri = dupText(uri);
      ns->prefix = (prefix != nullptr && *prefix != 0) ? dupText(prefix) : nullptr;
   }
   if (ns == nullptr || ns->uri == nullptr || (prefix != nullptr && *prefix != 0 && ns->prefix == nullptr)) {
      if (ns != nullptr) {
         std::free(ns->uri);
         std::free(ns->prefix);
         std::free(ns);
      }
      return XML_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
   }
   QSXmlNSDecl** tail = &infoOf(ctxt)->nsDecls;
   while (*tail != nullptr) tail = &(*tail)->next;
   *tail = ns;
   return 0;
}

int rtXmlSetMaxErrors(QSCTXT* ctxt, unsigned maxErrors)
{
   if (ctxt == nullptr || infoOf(ctxt) == nullptr) return RTERR_INVALID_PARAMETER;
   infoOf(ctxt)->maxErrors = maxErrors;
   return 0;
}

/* ---- output buffer ---------------------------------------------------------------------------- */

int rtXmlSetEncBufPtr(QSCTXT* ctxt, QSOCTET* buf, QSSIZE size)
{
   if (ctxt == nullptr) return RTERR_INVALID_PARAMETER;
   int stat = rtxInitContextBuffer(ctxt, buf, size);
   if (stat != 0) return XML_LOG(ctxt, stat);
   if (ctxt->buffer.data != nullptr && ctxt->buffer.size > 0) ctxt->buffer.data[0] = 0;
   ctxt->flags |= QSXMLBUFDYN;
   ctxt->xmlState = QSXMLINIT;
   ctxt->xmlDepth = 0;
   return 0;
}
