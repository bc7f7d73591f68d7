#include "apps/capture/geonet.h"

#include <stdio.h>

namespace capture {

namespace {

const PortMessage kPorts[] = {
   { 2001, "CAM", 2 },   { 2002, "DENM", 1 }, { 2003, "MAPEM", 5 }, { 2004, "SPATEM", 4 },
   { 2006, "IVIM", 6 },  { 2007, "SREM", 9 }, { 2008, "SSEM", 10 },
};

std::string format(const char* fmt, long a, long b = 0, long c = 0)
{
   char buf[200];
   snprintf(buf, sizeof buf, fmt, a, b, c);
   return buf;
}

unsigned be16(const uint8_t* p) { return (unsigned)p[0] << 8 | p[1]; }
unsigned le16(const uint8_t* p) { return (unsigned)p[1] << 8 | p[0]; }
uint32_t le32(const uint8_t* p) { return (uint32_t)p[3] << 24 | (uint32_t)p[2] << 16 | (uint32_t)p[1] << 8 | p[0]; }

// A span being read front to back.
struct Span {
   const uint8_t* p;
   size_t n;
   bool has(size_t k) const { return n >= k; }
   void skip(size_t k) { p += k; n -= k; }
};

// What the link layer carries: the EtherType and the bytes after it, or nothing.
struct LinkPayload {
   bool found = false;
   unsigned etherType = 0;
   Span rest{ nullptr, 0 };
};

LinkPayload ethernet(Span s)
{
   LinkPayload out;
   if (!s.has(14)) return out;
   unsigned type = be16(s.p + 12);
   s.skip(14);
   // IEEE 802.1Q / 802.1ad tags.
   while ((type == 0x8100 || type == 0x88a8) && s.has(4)) {
      type = be16(s.p + 2);
      s.skip(4);
   }
   out.found = true;
   out.etherType = type;
   out.rest = s;
   return out;
}

// LLC with SNAP: AA AA 03, OUI 00 00 00, EtherType.
LinkPayload llcSnap(Span s)
{
   LinkPayload out;
   if (!s.has(8) || s.p[0] != 0xaa || s.p[1] != 0xaa || s.p[2] != 0x03 || s.p[3] != 0 || s.p[4] != 0 ||
       s.p[5] != 0)
      return out;
   out.found = true;
   out.etherType = be16(s.p + 6);
   s.skip(8);
   out.rest = s;
   return out;
}

// An 802.11 data frame (any subtype with a body), unprotected, with LLC/SNAP. With padded set,
// the header is padded to a multiple of 4 bytes.
LinkPayload ieee80211(Span s, bool padded = false)
{
   LinkPayload out;
   if (!s.has(24)) return out;
   unsigned fc0 = s.p[0], fc1 = s.p[1];
   unsigned type = (fc0 >> 2) & 3, subtype = fc0 >> 4;
   if ((fc0 & 3) != 0 || type != 2) return out;   // protocol version 0, data frames only
   if (subtype & 4) return out;                   // null data: no body
   if (fc1 & 0x40) return out;                    // protected: the body is encrypted
   size_t header = 24;
   if ((fc1 & 3) == 3) header += 6;   // to DS and from DS: fourth address
   bool qos = (subtype & 8) != 0;
   if (qos) header += 2;
   if (qos && (fc1 & 0x80)) header += 4;   // HT control
   if (padded) header = (header + 3) & ~(size_t)3;
   if (!s.has(header)) return out;
   s.skip(header);
   return llcSnap(s);
}

// Radiotap header, then 802.11. The flags field tells whether the frame ends with its FCS and
// whether padding follows the 802.11 header.
LinkPayload radiotap(Span s)
{
   LinkPayload out;
   if (!s.has(8) || s.p[0] != 0) return out;
   size_t length = le16(s.p + 2);
   if (length < 8 || !s.has(length)) return out;
   // Present words: the first, and more as long as bit 31 is set.
   size_t offset = 4;
   uint32_t present = le32(s.p + 4);
   uint32_t word = present;
   while (word & 0x80000000u) {
      offset += 4;
      if (offset + 4 > length) return out;
      word = le32(s.p + offset);
   }
   offset += 4;
   unsigned flags = 0;
   if (present & 2) {   // flags field (bit 1), after the TSFT (bit 0, 8 bytes aligned to 8)
      if (present & 1) offset = ((offset + 7) & ~(size_t)7) + 8;
      if (offset >= length) return out;
      flags = s.p[offset];
   }
   Span frame{ s.p + length, s.n - length };
   if (flags & 0x10) {   // FCS at the end
      if (!frame.has(4)) return out;
      frame.n -= 4;
   }
   return ieee80211(frame, (flags & 0x20) != 0);
}

// Linux cooked capture, version 1 (16 bytes, protocol at offset 14) and version 2 (20 bytes,
// protocol first).
LinkPayload linuxSll(Span s, bool version2)
{
   LinkPayload out;
   size_t header = version2 ? 20 : 16;
   if (!s.has(header)) return out;
   out.found = true;
   out.etherType = be16(s.p + (version2 ? 0 : 14));
   s.skip(header);
   out.rest = s;
   return out;
}

// Variable length of the version 2 envelope: the number of leading one bits of the first byte
// is the number of bytes that follow; the remaining bits of the first byte and those bytes are
// the value.
bool varLength(Span* s, size_t* value)
{
   if (!s->has(1)) return false;
   unsigned first = s->p[0];
   int extra = 0;
   while (extra < 8 && (first & (0x80u >> extra))) extra++;
   if (extra > 3 || !s->has(1 + (size_t)extra)) return false;   // beyond 2^29: not a real length
   size_t v = first & (0xffu >> (extra + 1));
   for (int i = 1; i <= extra; i++) v = v << 8 | s->p[i];
   s->skip(1 + (size_t)extra);
   *value = v;
   return true;
}

// The version 2 secured message: version, header fields, payload (type and data), trailer
// fields. The unsecured content is the data of an unsecured or signed payload.
bool envelopeV2(Span s, Span* inner, std::string* why)
{
   s.skip(1);   // version
   size_t headerLength;
   if (!varLength(&s, &headerLength)) {
      *why = "secured message: header fields length cut short";
      return false;
   }
   if (!s.has(headerLength)) {
      *why = format("secured message: header fields of %ld bytes, only %ld left", (long)headerLength, (long)s.n);
      return false;
   }
   s.skip(headerLength);
   if (!s.has(1)) {
      *why = "secured message: no payload";
      return false;
   }
   unsigned type = s.p[0];
   s.skip(1);
   if (type == 2 || type == 4) {
      *why = "secured message: encrypted payload";
      return false;
   }
   if (type == 3) {
      *why = "secured message: signed payload carried outside the packet";
      return false;
   }
   if (type > 4) {
      *why = format("secured message: unknown payload type %ld", (long)type);
      return false;
   }
   size_t dataLength;
   if (!varLength(&s, &dataLength)) {
      *why = "secured message: payload length cut short";
      return false;
   }
   if (!s.has(dataLength)) {
      *why = format("secured message: payload of %ld bytes, only %ld left", (long)dataLength, (long)s.n);
      return false;
   }
   *inner = Span{ s.p, dataLength };
   return true;
}

// Canonical OER length determinant: one byte below 128, else 0x80 | count and count bytes.
bool oerLength(Span* s, size_t* value)
{
   if (!s->has(1)) return false;
   unsigned first = s->p[0];
   if (first < 0x80) {
      *value = first;
      s->skip(1);
      return true;
   }
   size_t count = first & 0x7f;
   if (count == 0 || count > 4 || !s->has(1 + count)) return false;
   size_t v = 0;
   for (size_t i = 1; i <= count; i++) v = v << 8 | s->p[i];
   s->skip(1 + count);
   *value = v;
   return true;
}

// Ieee1609Dot2Data ::= SEQUENCE { protocolVersion Uint8 (3), content Ieee1609Dot2Content }, in
// canonical OER. unsecuredData is the content itself; signedData holds, after its hash
// algorithm, ToBeSignedData whose first component SignedDataPayload may carry a nested
// Ieee1609Dot2Data (its preamble: extension bit, data present, extDataHash present).
bool envelopeV3(Span s, Span* inner, std::string* why, int depth)
{
   if (depth > 4) {
      *why = "Ieee1609Dot2Data: nested too deep";
      return false;
   }
   if (!s.has(2)) {
      *why = "Ieee1609Dot2Data: cut short";
      return false;
   }
   if (s.p[0] != 3) {
      *why = format("Ieee1609Dot2Data: protocol version %ld", (long)s.p[0]);
      return false;
   }
   unsigned tag = s.p[1];
   s.skip(2);
   if ((tag & 0xc0) != 0x80 || (tag & 0x3f) == 0x3f) {
      *why = format("Ieee1609Dot2Data: content tag 0x%02lx", (long)tag);
      return false;
   }
   switch (tag & 0x3f) {
   case 0: {   // unsecuredData: Opaque
      size_t n;
      if (!oerLength(&s, &n)) {
         *why = "Ieee1609Dot2Data: unsecured data length cut short";
         return false;
      }
      if (!s.has(n)) {
         *why = format("Ieee1609Dot2Data: unsecured data of %ld bytes, only %ld left", (long)n, (long)s.n);
         return false;
      }
      *inner = Span{ s.p, n };
      return true;
   }
   case 1: {   // signedData
      if (!s.has(2)) {
         *why = "Ieee1609Dot2Data: signed data cut short";
         return false;
      }
      unsigned preamble = s.p[1];   // after hashId
      s.skip(2);
      if (!(preamble & 0x40)) {
         *why = "Ieee1609Dot2Data: signed data without an embedded payload";
         return false;
      }
      return envelopeV3(s, inner, why, depth + 1);
   }
   case 2:
      *why = "Ieee1609Dot2Data: encrypted data";
      return false;
   case 3:
      *why = "Ieee1609Dot2Data: signed certificate request";
      return false;
   default:
      *why = format("Ieee1609Dot2Data: unknown content %ld", (long)(tag & 0x3f));
      return false;
   }
}

// Size of the extended header for header type and subtype, 0 for an unknown combination.
size_t extendedHeaderSize(unsigned type, unsigned subtype)
{
   switch (type) {
   case 1: return subtype == 0 ? 24 : 0;                       // beacon: source position vector
   case 2: return subtype == 0 ? 48 : 0;                       // GeoUnicast
   case 3:                                                     // GeoAnycast
   case 4: return subtype <= 2 ? 44 : 0;                       // GeoBroadcast (circle, rectangle, ellipse)
   case 5: return subtype <= 1 ? 28 : 0;                       // single-hop / topologically-scoped broadcast
   case 6: return subtype == 0 ? 36 : subtype == 1 ? 48 : 0;   // location service request / reply
   default: return 0;
   }
}

Packet fail(Packet p, std::string why)
{
   p.outcome = Outcome::Error;
   p.error = std::move(why);
   return p;
}

}  // namespace

bool linkTypeSupported(int linkType)
{
   return linkType == kLinkEthernet || linkType == kLinkIeee80211 || linkType == kLinkLinuxSll ||
          linkType == kLinkRadiotap || linkType == kLinkLinuxSll2;
}

const PortMessage* messageForPort(int port)
{
   for (const PortMessage& m : kPorts)
      if (m.port == port) return &m;
   return nullptr;
}

Packet readFrame(int linkType, const uint8_t* data, size_t length)
{
   Span s{ data, length };
   LinkPayload link;
   switch (linkType) {
   case kLinkEthernet: link = ethernet(s); break;
   case kLinkIeee80211: link = ieee80211(s); break;
   case kLinkRadiotap: link = radiotap(s); break;
   case kLinkLinuxSll: link = linuxSll(s, false); break;
   case kLinkLinuxSll2: link = linuxSll(s, true); break;
   default: break;
   }
   if (!link.found || link.etherType != kEtherTypeGeoNetworking) return Packet();
   return readGeoNetworking(link.rest.p, link.rest.n);
}

Packet readGeoNetworking(const uint8_t* data, size_t length)
{
   Packet p;
   p.outcome = Outcome::Error;
   Span s{ data, length };
   if (!s.has(4)) return fail(p, format("GeoNetworking basic header cut short (%ld of 4 bytes)", (long)s.n));
   unsigned version = s.p[0] >> 4, next = s.p[0] & 15;
   if (version > 1) return fail(p, format("GeoNetworking version %ld", (long)version));
   p.gnVersion = (int)version;
   s.skip(4);
   if (next == 0) {   // any: nothing we can read further
      p.outcome = Outcome::NoMessage;
      return p;
   }
   if (next != 1 && next != 2) return fail(p, format("GeoNetworking basic header: next header %ld", (long)next));
   p.securedKnown = true;
   p.secured = next == 2;
   if (p.secured) {
      if (!s.has(1)) return fail(p, "secured packet: envelope missing");
      Span inner{ nullptr, 0 };
      std::string why;
      bool ok;
      if (s.p[0] == 2) ok = envelopeV2(s, &inner, &why);
      else if (s.p[0] == 3) ok = envelopeV3(s, &inner, &why, 0);
      else {
         ok = false;
         why = format("secured packet: envelope version %ld", (long)s.p[0]);
      }
      if (!ok) return fail(p, why);
      s = inner;
   }
   if (!s.has(8)) return fail(p, format("GeoNetworking common header cut short (%ld of 8 bytes)", (long)s.n));
   unsigned chNext = s.p[0] >> 4, type = s.p[1] >> 4, subtype = s.p[1] & 15;
   size_t payloadLength = be16(s.p + 4);
   s.skip(8);
   size_t ext = extendedHeaderSize(type, subtype);
   if (ext == 0)
      return fail(p, format("GeoNetworking common header: header type %ld subtype %ld", (long)type, (long)subtype));
   if (!s.has(ext))
      return fail(p, format("GeoNetworking extended header cut short (%ld of %ld bytes)", (long)s.n, (long)ext));
   s.skip(ext);
   if (payloadLength > s.n)
      return fail(p, format("GeoNetworking payload length %ld, only %ld bytes left", (long)payloadLength, (long)s.n));
   s.n = payloadLength;   // anything after the payload (padding, a frame check sequence) is not ours
   if (chNext == 0 && (type == 1 || type == 6)) {   // beacon, location service: no payload
      p.outcome = Outcome::NoMessage;
      return p;
   }
   if (chNext != 1 && chNext != 2) {   // IPv6 or nothing we read
      p.outcome = Outcome::NoMessage;
      return p;
   }
   if (!s.has(4)) return fail(p, format("BTP header cut short (%ld of 4 bytes)", (long)s.n));
   p.port = (int)be16(s.p);
   s.skip(4);
   const PortMessage* m = messageForPort(p.port);
   if (m == nullptr) {
      p.outcome = Outcome::OtherPort;
      return p;
   }
   p.message = m->name;
   if (!s.has(6)) return fail(p, format("ITS PDU header cut short (%ld of 6 bytes)", (long)s.n));
   p.station = (int64_t)((uint32_t)s.p[2] << 24 | (uint32_t)s.p[3] << 16 | (uint32_t)s.p[4] << 8 | s.p[5]);
   if (s.p[1] != m->messageId)
      return fail(p, format("message ID %ld on BTP port %ld (expected %ld)", (long)s.p[1], (long)p.port,
                            (long)m->messageId));
   p.outcome = Outcome::Message;
   p.payload = s.p;
   p.payloadLength = s.n;
   return p;
}

}  // namespace capture
