// Random values and canonical printing for tests: the primitives that the generated
// asn1Rand_<T> / asn1Print_<T> functions are built from.
#ifndef ASN1_TEST_SUPPORT_H
#define ASN1_TEST_SUPPORT_H

#include <stdint.h>
#include <string.h>

#include <new>
#include <string>

#include "rtsrc/asn1CppTypes.h"

// A small reproducible generator (splitmix64) with the choices the value builders need.
// Sizes stay small by default so that thousands of messages are cheap, but every bound of
// every constraint is reached now and then.
struct Asn1Random {
   uint64_t state;
   int depth = 0;
   // Values that must survive the text forms: no unknown extensions, alternatives or regions,
   // no enumeration values beyond the root.
   bool textSafe = false;
   // Set when a value needed something textSafe excludes (a mandatory unbound region).
   bool spoiled = false;
   // Most optional members present, deeper: reaches the corners of large messages.
   bool rich = false;

   explicit Asn1Random(uint64_t seed) : state(seed) {}

   uint64_t next()
   {
      uint64_t z = (state += 0x9E3779B97F4A7C15ull);
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
      return z ^ (z >> 31);
   }
   uint64_t below(uint64_t n) { return n == 0 ? 0 : next() % n; }
   bool percent(unsigned p) { return below(100) < p; }

   // A value of lo..hi: the bounds and their neighbours often, anything in between otherwise.
   int64_t range(int64_t lo, int64_t hi)
   {
      uint64_t span = (uint64_t)hi - (uint64_t)lo;
      switch (below(8)) {
         case 0: return lo;
         case 1: return hi;
         case 2: return span >= 1 ? lo + 1 : lo;
         case 3: return span >= 1 ? hi - 1 : hi;
         default: return span == UINT64_MAX ? (int64_t)next() : lo + (int64_t)below(span + 1);
      }
   }
   // A value of an extensible range: sometimes outside the root.
   int64_t extInt(int64_t lo, int64_t hi, bool isUnsigned)
   {
      if (!percent(15)) return range(lo, hi);
      int64_t delta = 1 + (int64_t)below(below(2) ? 300 : 100000);
      if (isUnsigned || below(2)) return hi + delta;
      return lo - delta;
   }
   int64_t anyInt64(int64_t lo)
   {
      static const int64_t interesting[] = { 0, 1, -1, 127, 128, -128, -129, 255, 256, 65535, 65536,
                                             2147483647LL, -2147483647LL - 1, INT64_MAX, INT64_MIN };
      int64_t v = below(3) ? interesting[below(sizeof(interesting) / sizeof(interesting[0]))]
                           : (int64_t)(next() >> below(64));
      return v < lo ? lo + (int64_t)below(1000) : v;
   }
   // Optional components: present about half the time, rarer deep in a value.
   bool optional()
   {
      if (rich) return depth <= 9 && percent(depth > 6 ? 40 : 85);
      return depth > 6 ? false : percent(depth > 3 ? 30 : 55);
   }
   bool addition() { return depth > (rich ? 9 : 6) ? false : percent(rich ? 70 : 30); }
   bool unknownAlternative() { return !textSafe && percent(4); }

   QSSIZE count(QSSIZE lo, QSSIZE hi)
   {
      if (depth > (rich ? 7 : 4) || hi == lo) return lo;
      QSSIZE cap = lo + (depth > 2 ? 1 : 3);
      if (percent(5)) return hi > lo + 40 ? lo + 40 : hi;
      return lo + (QSSIZE)below((hi < cap ? hi : cap) - lo + 1);
   }

   void bits32(ASN1TBitStr32& v, QSUINT32 lo, QSUINT32 hi)
   {
      v.numbits = (QSUINT32)count(lo, hi > 32 ? 32 : hi);
      if (percent(50)) v.numbits = hi > 32 ? 32 : hi;
      memset(v.data, 0, sizeof(v.data));
      for (QSUINT32 i = 0; i < v.numbits; i++)
         if (below(2)) v.data[i / 8] |= (QSOCTET)(0x80 >> (i % 8));
   }
   void dynBits(QSCTXT* ctxt, ASN1TDynBitStr& v, QSSIZE lo, QSSIZE hi)
   {
      v.numbits = (QSUINT32)count(lo, hi);
      QSOCTET* p = (QSOCTET*)rtxMemHeapAllocZ(ctxt, v.numbits / 8 + 1);
      for (QSUINT32 i = 0; i < v.numbits; i++)
         if (below(2)) p[i / 8] |= (QSOCTET)(0x80 >> (i % 8));
      v.data = p;
   }
   template <class T> void octets(QSCTXT* ctxt, T& v, QSSIZE lo, QSSIZE hi)
   {
      v.numocts = (QSUINT32)count(lo, hi);
      QSOCTET* p = (QSOCTET*)rtxMemHeapAlloc(ctxt, v.numocts + 1);
      for (QSSIZE i = 0; i < v.numocts; i++) p[i] = (QSOCTET)next();
      v.data = p;
   }
   const char* chars(QSCTXT* ctxt, const char* alphabet, QSSIZE lo, QSSIZE hi)
   {
      QSSIZE n = count(lo, hi), na = strlen(alphabet);
      char* s = (char*)rtxMemHeapAlloc(ctxt, n + 1);
      for (QSSIZE i = 0; i < n; i++) s[i] = alphabet[below(na)];
      s[n] = 0;
      return s;
   }
   // Text of lo..hi bytes, some of its characters outside ASCII (valid UTF-8).
   const char* utf8(QSCTXT* ctxt, QSSIZE lo, QSSIZE hi)
   {
      static const char* const pieces[] = { "a", "Z", "0", " ", "-", "\xC3\xA9", "\xE2\x82\xAC", "x" };
      QSSIZE n = count(lo, hi);
      std::string s;
      while (s.size() < n) {
         const char* piece = pieces[below(8)];
         s += s.size() + strlen(piece) <= n ? piece : "a";
      }
      char* p = (char*)rtxMemHeapAlloc(ctxt, s.size() + 1);
      memcpy(p, s.c_str(), s.size() + 1);
      return p;
   }
   // Extension additions this version does not know: kept as raw open types.
   void unknownAdditions(QSCTXT* ctxt, ASN1TSeqExt& list)
   {
      rtxDListInit(&list);
      if (textSafe || depth > 5 || !percent(6)) return;
      QSSIZE n = 1 + below(2);
      for (QSSIZE i = 0; i < n; i++) {
         ASN1TOpenType* ot = 0;
         if (i + 1 == n || below(2)) {
            ot = new (rtxMemHeapAlloc(ctxt, sizeof(ASN1TOpenType))) ASN1TOpenType();
            octets(ctxt, *ot, 1, 5);
         }
         rtxDListAppend(ctxt, &list, ot);
      }
   }
};

// The full error report of a context.
inline std::string errorText(QSCTXT* ctxt)
{
   char buf[2000];
   rtxErrGetTextBuf(ctxt, buf, sizeof(buf));
   return buf;
}

inline void asn1PrintHex(std::string& out, QSSIZE n, const QSOCTET* data)
{
   static const char hex[] = "0123456789abcdef";
   out += "'";
   for (QSSIZE i = 0; i < n; i++) {
      out += hex[data[i] >> 4];
      out += hex[data[i] & 15];
   }
   out += "'H";
}

inline void asn1PrintBits(std::string& out, QSSIZE nbits, const QSOCTET* data)
{
   out += "'";
   for (QSSIZE i = 0; i < nbits; i++) out += ((data[i / 8] >> (7 - i % 8)) & 1) ? '1' : '0';
   out += "'B";
}

inline void asn1PrintString(std::string& out, const char* s)
{
   out += '"';
   if (s != 0) out += s;
   out += '"';
}

inline void asn1PrintExtList(std::string& out, const ASN1TSeqExt& list)
{
   if (list.count == 0) return;
   out += "...=[";
   for (const QSRTDListNode* node = list.head; node != 0; node = node->next) {
      const ASN1TOpenType* ot = (const ASN1TOpenType*)node->data;
      if (ot != 0) asn1PrintHex(out, ot->numocts, ot->data);
      else out += "-";
      out += node->next ? "," : "";
   }
   out += "]";
}

// One generated type, reached through untyped wrappers so that a test can walk all of them.
struct EtsiTestType {
   const char* name;                       // C name without ASN1T_
   bool message;
   void* (*make)(QSCTXT* ctxt);            // a new initialised value in the context heap
   void (*rand)(Asn1Random& r, QSCTXT* ctxt, void* value);
   void (*print)(std::string& out, const void* value);
   int (*encode)(QSCTXT* ctxt, void* value);   // asn1PE_<T>
   int (*decode)(QSCTXT* ctxt, void* value);   // asn1PD_<T>
   int (*jsonEncode)(QSCTXT* ctxt, void* value);   // asn1JsonEnc_<T>
   int (*jsonDecode)(QSCTXT* ctxt, void* value);   // asn1JsonDec_<T>
   int (*xmlEncode)(QSCTXT* ctxt, void* value, const QSUTF8CHAR* elemName);   // XmlEnc_<T>
   int (*xmlDecode)(QSCTXT* ctxt, void* value);    // XmlDec_<T>
};

extern const EtsiTestType etsiTestTypes[];
extern const size_t etsiTestTypeCount;

#endif
