// Prints random messages of one type as hex lines, for tshark to judge:
//   random_messages MESSAGE COUNT SEED [rich]
// Values stay inside what the text forms carry (no unknown extensions or regions).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "rtpersrc/asn1per.h"
#include "src/etsi/testsupport/etsiTestSupport.h"
#include "src/etsiConversions.h"

int main(int argc, char** argv)
{
   if (argc != 4 && !(argc == 5 && strcmp(argv[4], "rich") == 0)) {
      fprintf(stderr, "usage: random_messages MESSAGE COUNT SEED [rich]\n");
      return 2;
   }
   const EtsiTestType* type = nullptr;
   for (size_t i = 0; i < etsiTestTypeCount; i++)
      if (etsiTestTypes[i].message && strcmp(etsiTestTypes[i].name, argv[1]) == 0) type = &etsiTestTypes[i];
   if (type == nullptr) {
      fprintf(stderr, "random_messages: unknown message %s\n", argv[1]);
      return 2;
   }
   // The header as a real sender fills it: tshark picks its schema by protocol version and
   // message identifier, which open every message as its first two octets.
   const etsi::Conversions* conv = etsi::conversionsOf(argv[1]);
   int messageID = conv != nullptr ? conv->messageId : -1;
   Asn1Random r(strtoull(argv[3], nullptr, 10));
   r.textSafe = true;
   r.rich = argc == 5;
   for (int done = 0, n = atoi(argv[2]); done < n;) {
      QSCTXT c;
      if (rtxInitContext(&c) != 0) return 1;
      r.spoiled = false;
      void* v = type->make(&c);
      type->rand(r, &c, v);
      if (!r.spoiled && pu_setBuffer(&c, nullptr, 0, 0) == 0 && type->encode(&c, v) == 0) {
         QSOCTET* p = c.buffer.data;
         if (messageID >= 0) {
            p[0] = 2;
            p[1] = (QSOCTET)messageID;
         }
         for (QSSIZE i = 0, len = pu_getMsgLen(&c); i < len; i++) printf("%02x", p[i]);
         printf("\n");
         done++;
      }
      rtxFreeContext(&c);
   }
   return 0;
}
