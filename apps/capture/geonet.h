// Reading C-ITS messages out of captured frames: link layer (Ethernet, IEEE 802.11 with or without
// radiotap, Linux cooked capture), GeoNetworking (basic header versions 0 and 1, common header,
// every extended header type), the two signed envelopes (the version 2 secured message and the
// version 3 Ieee1609Dot2Data in canonical OER), BTP-A/B and the ITS PDU header.
//
// Everything works on a byte span and never reads outside it: any frame, however cut or damaged,
// gives an outcome and, where something is wrong, a reason.

#ifndef ETSI_CAPTURE_GEONET_H
#define ETSI_CAPTURE_GEONET_H

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace capture {

// Link types as numbered in pcap files (the DLT_ / LINKTYPE_ values).
enum LinkType : int {
   kLinkEthernet = 1,      // EN10MB
   kLinkIeee80211 = 105,   // IEEE802_11
   kLinkLinuxSll = 113,    // LINUX_SLL
   kLinkRadiotap = 127,    // IEEE802_11_RADIO
   kLinkLinuxSll2 = 276,   // LINUX_SLL2
};

bool linkTypeSupported(int linkType);

const uint16_t kEtherTypeGeoNetworking = 0x8947;

enum class Outcome {
   NotGeoNetworking,   // some other protocol, or a frame without a payload (e.g. 802.11 management)
   NoMessage,          // GeoNetworking without a BTP payload (beacon, location service, ...)
   OtherPort,          // BTP to a port that carries none of our messages
   Message,            // a C-ITS message: payload and payloadLength
   Error,              // GeoNetworking whose headers or envelope cannot be read: see error
};

struct Packet {
   Outcome outcome = Outcome::NotGeoNetworking;
   // Known once the GeoNetworking basic header is read.
   bool securedKnown = false;
   bool secured = false;
   int gnVersion = -1;
   // Known once the BTP header is read (-1 before).
   int port = -1;
   // Message name by the BTP port (null for other ports or before the BTP header).
   const char* message = nullptr;
   // stationID of the ITS PDU header (-1 when not read).
   int64_t station = -1;
   // The UPER message (ITS PDU header onwards), a view into the frame.
   const uint8_t* payload = nullptr;
   size_t payloadLength = 0;
   std::string error;
};

// The message carried on a BTP destination port: its name and the message ID of its ITS PDU
// header; null when the port carries none of ours.
struct PortMessage {
   uint16_t port;
   const char* name;
   int messageId;
};
const PortMessage* messageForPort(int port);

// Reads one frame of the given link type.
Packet readFrame(int linkType, const uint8_t* data, size_t length);

// Reads a GeoNetworking packet (basic header onwards).
Packet readGeoNetworking(const uint8_t* data, size_t length);

}  // namespace capture

#endif
