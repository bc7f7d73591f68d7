/*
 * XML pull reader.
 */
#include "rtxmlsrc/rtXml.h"

#include "rtxmlsrc/rtXmlInternal.h"

void xmlimpl::freeReader(QSCTXT*)
{
}
