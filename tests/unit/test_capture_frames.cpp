// The frame reader of `etsi-convert capture` on frames built here: the length forms of both
// envelopes, link layer variants, and every cut and damaged frame in a buffer of exactly its
// size (so that the sanitizer build sees any read past the end).

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "apps/capture/geonet.h"

namespace {

using Bytes = std::vector<uint8_t>;
using capture::Outcome;
using capture::Packet;

Bytes cat(std::initializer_list<Bytes> parts)
{
   Bytes out;
   for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
   return out;
}

Bytes zeros(size_t n) { return Bytes(n, 0); }

// BTP-B to port 2001 and a (short) CAM: ITS PDU header of station 0x01020304, then two bytes.
Bytes btpCam() { return { 0x07, 0xd1, 0x00, 0x00, 0x02, 0x02, 0x01, 0x02, 0x03, 0x04, 0xaa, 0xbb }; }

Bytes commonHeader(size_t payload, uint8_t typeByte = 0x50)
{
   return { 0x20, typeByte, 0, 0, (uint8_t)(payload >> 8), (uint8_t)payload, 1, 0 };
}

Bytes shbInner() { return cat({ commonHeader(btpCam().size()), zeros(28), btpCam() }); }

Bytes ethernet(const Bytes& gn) { return cat({ Bytes(12, 0xff), { 0x89, 0x47 }, gn }); }

// Reads the frame from a heap buffer of exactly its size; a message lies inside the frame.
Packet readExact(int linkType, const Bytes& frame)
{
   std::unique_ptr<uint8_t[]> copy(new uint8_t[frame.size() ? frame.size() : 1]);
   std::copy(frame.begin(), frame.end(), copy.get());
   Packet p = capture::readFrame(linkType, copy.get(), frame.size());
   if (p.outcome == Outcome::Message) {
      EXPECT_GE(p.payload, copy.get());
      EXPECT_LE(p.payload + p.payloadLength, copy.get() + frame.size());
   }
   if (p.outcome == Outcome::Error) {
      EXPECT_FALSE(p.error.empty());
   }
   p.payload = nullptr;   // the buffer goes away here
   return p;
}

void expectCam(const Packet& p, bool secured)
{
   ASSERT_EQ(p.outcome, Outcome::Message) << p.error;
   EXPECT_STREQ(p.message, "CAM");
   EXPECT_EQ(p.port, 2001);
   EXPECT_EQ(p.secured, secured);
   EXPECT_EQ(p.station, 0x01020304);
   EXPECT_EQ(p.payloadLength, btpCam().size() - 4);
}

TEST(CaptureFrames, EnvelopeLengthForms)
{
   Bytes inner = shbInner();
   // Version 2: header fields and payload with one-, two- and three-byte lengths.
   for (int form = 0; form < 3; form++) {
      Bytes fields = zeros(form == 0 ? 10 : 300);
      Bytes fieldsLength = form == 0 ? Bytes{ 10 } : form == 1 ? Bytes{ 0x81, 0x2c } : Bytes{ 0xc0, 0x01, 0x2c };
      Bytes payloadLength = form == 2 ? Bytes{ 0xc0, 0x00, (uint8_t)inner.size() } : Bytes{ (uint8_t)inner.size() };
      Bytes v2 = cat({ { 0x02, 0x00, 0x1a, 0x01, 0x02 }, fieldsLength, fields, { 0x01 }, payloadLength, inner, zeros(20) });
      expectCam(readExact(capture::kLinkEthernet, ethernet(v2)), true);
   }
   // Version 3: unsecured data with short and long length determinants, and signed data.
   Bytes padded = cat({ inner, zeros(200) });   // the common header's payload length ends the message
   Bytes longForm = cat({ { 0x12, 0x00, 0x1a, 0x01, 0x03, 0x80, 0x81, (uint8_t)padded.size() }, padded });
   expectCam(readExact(capture::kLinkEthernet, ethernet(longForm)), true);
   Bytes signed3 = cat({ { 0x12, 0x00, 0x1a, 0x01, 0x03, 0x81, 0x00, 0x40, 0x03, 0x80, (uint8_t)inner.size() }, inner,
                         zeros(30) });
   expectCam(readExact(capture::kLinkEthernet, ethernet(signed3)), true);
}

TEST(CaptureFrames, LinkLayerVariants)
{
   Bytes gn = cat({ { 0x11, 0x00, 0x1a, 0x01 }, shbInner() });
   Bytes vlan = cat({ Bytes(12, 0xff), { 0x81, 0x00, 0x00, 0x05, 0x89, 0x47 }, gn });
   expectCam(readExact(capture::kLinkEthernet, vlan), false);
   Bytes snap = { 0xaa, 0xaa, 0x03, 0, 0, 0, 0x89, 0x47 };
   // Four addresses (to and from DS), QoS with HT control.
   Bytes wlan = cat({ { 0x88, 0x83 }, zeros(2 + 6 * 4 + 2 + 2 + 4), snap, gn });
   expectCam(readExact(capture::kLinkIeee80211, wlan), false);
   // Radiotap with a second present word, no flags field.
   Bytes radio = cat({ { 0, 0, 12, 0, 0x00, 0, 0, 0x80, 0, 0, 0, 0 }, { 0x08, 0x00 }, zeros(22), snap, gn });
   expectCam(readExact(capture::kLinkRadiotap, radio), false);
   // Radiotap flags: padding after the (QoS, 26-byte) 802.11 header, FCS at the end.
   Bytes padded = cat({ { 0, 0, 9, 0, 0x02, 0, 0, 0, 0x30 }, { 0x88, 0x00 }, zeros(24 + 2), snap, gn, zeros(4) });
   expectCam(readExact(capture::kLinkRadiotap, padded), false);
   // Not ours: another EtherType, an unknown link type.
   EXPECT_EQ(readExact(capture::kLinkEthernet, cat({ Bytes(12, 0xff), { 0x08, 0x00 }, gn })).outcome,
             Outcome::NotGeoNetworking);
   EXPECT_EQ(readExact(12345, ethernet(gn)).outcome, Outcome::NotGeoNetworking);
   EXPECT_FALSE(capture::linkTypeSupported(101));
   EXPECT_EQ(capture::messageForPort(2005), nullptr);
   EXPECT_EQ(capture::messageForPort(2008)->messageId, 10);
}

// Every prefix and every single-byte change of frames of each kind: always an outcome, an error
// with a reason, never a read outside the frame.
TEST(CaptureFrames, CutAndDamagedFramesStayInside)
{
   Bytes inner = shbInner();
   std::vector<std::pair<int, Bytes>> frames = {
      { capture::kLinkEthernet, ethernet(cat({ { 0x11, 0x00, 0x1a, 0x01 }, inner })) },
      { capture::kLinkEthernet, ethernet(cat({ { 0x02, 0x00, 0x1a, 0x01, 0x02, 0x80, 0x02, 0x05, 0x24 }, { 0x01, (uint8_t)inner.size() },
                                               inner })) },
      { capture::kLinkEthernet, ethernet(cat({ { 0x12, 0x00, 0x1a, 0x01, 0x03, 0x81, 0x00, 0x40, 0x03, 0x80,
                                                 (uint8_t)inner.size() }, inner })) },
      { capture::kLinkRadiotap, cat({ { 0, 0, 17, 0, 0x03, 0, 0, 0 }, zeros(8), { 0x10, 0x88, 0x00 }, zeros(24),
                                      { 0xaa, 0xaa, 0x03, 0, 0, 0, 0x89, 0x47, 0x11, 0x00, 0x1a, 0x01 }, inner,
                                      zeros(4) }) },
      { capture::kLinkLinuxSll2, cat({ { 0x89, 0x47 }, zeros(18), { 0x11, 0x00, 0x1a, 0x01 }, inner }) },
   };
   std::mt19937 rng(10);
   size_t errors = 0;
   for (const auto& f : frames) {
      Packet whole = readExact(f.first, f.second);
      EXPECT_EQ(whole.outcome, Outcome::Message) << whole.error;
      for (size_t n = 0; n < f.second.size(); n++) {
         Packet p = readExact(f.first, Bytes(f.second.begin(), f.second.begin() + n));
         EXPECT_NE(p.outcome, Outcome::Message) << n;   // the message is at the very end
         errors += p.outcome == Outcome::Error;
      }
      for (size_t i = 0; i < f.second.size(); i++) {
         for (int k = 0; k < 6; k++) {
            Bytes damaged = f.second;
            damaged[i] = (uint8_t)rng();
            readExact(f.first, damaged);
         }
      }
   }
   EXPECT_GT(errors, 100u);
}

}  // namespace
