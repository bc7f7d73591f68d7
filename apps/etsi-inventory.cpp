// Prints what the library carries: the ASN.1 modules with their type counts, the messages and
// the regional-extension bindings; with --types, every generated type.

#include <stdio.h>
#include <string.h>

#include "src/etsi/etsiInventory.h"

static int usage(const char* prog)
{
   fprintf(stderr, "usage: %s [--types]\n"
                   "Lists the ASN.1 modules, messages and regional extensions of the ITS message set;\n"
                   "--types also lists every generated type with its module, construct and C name.\n", prog);
   return 2;
}

int main(int argc, char** argv)
{
   bool types = false;
   for (int i = 1; i < argc; i++) {
      if (strcmp(argv[i], "--types") == 0) types = true;
      else return usage(argv[0]);
   }

   printf("ASN.1 modules (%zu), %zu types:\n", etsiModuleCount, etsiTypeCount);
   for (size_t i = 0; i < etsiModuleCount; i++) {
      const EtsiModuleInfo& m = etsiModules[i];
      printf("  %-56s %-11s %4zu types\n", m.name, *m.prefix ? m.prefix : "(no prefix)", m.typeCount);
   }

   printf("\nMessages (%zu):\n", etsiMessageCount);
   for (size_t i = 0; i < etsiMessageCount; i++) {
      const EtsiMessageInfo& m = etsiMessages[i];
      printf("  %-8s header + %-6s %s\n", m.name, m.bodyComponent, m.bodyType);
   }

   printf("\nRegional extensions bound to a region:\n");
   for (size_t i = 0; i < etsiRegionBindingCount; i++) {
      const EtsiRegionBinding& b = etsiRegionBindings[i];
      if (b.type) printf("  %-30s region %d -> %s\n", b.set, b.regionId, b.type);
   }

   if (types) {
      printf("\nTypes:\n");
      for (size_t i = 0; i < etsiTypeCount; i++) {
         const EtsiTypeInfo& t = etsiTypes[i];
         printf("  %-22s %-60s %-30s %s\n", t.module, t.asn1Name, t.construct, t.cName);
      }
   }
   return 0;
}
