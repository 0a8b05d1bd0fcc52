// Decoding of one stored packet into the texts of the Packet Mode detail pane, the data-level
// offsets shared by every dump, and the byte ↔ character arithmetic of field selection.
// Pure functions of a PacketRef: no store, no window, no Qt; reads stay inside the record.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/wire.hpp"
#include "common/texts.hpp"
#include "packets/record.hpp"

namespace vormelt {

// The level from which packet bytes are shown, saved and logged.
enum class DataLevel : std::uint8_t { Datalink = 0, Network = 1, Transport = 2, Presentation = 3 };
inline constexpr int kDataLevelCount = 4;

// "Datalink", "Network", "Transport", "Presentation" (the same in both languages).
const char* DataLevelLabel(DataLevel level);
// The command-line words "datalink", "network", "transport", "presentation".
std::optional<DataLevel> ParseDataLevel(std::string_view word);

// Where the bytes of `level` start, relative to the first network byte (−14 = whole frame).
std::int32_t DataStartOffset(PacketRef packet, DataLevel level);
// The bytes from that start to the end of the network bytes; empty when the start lies beyond.
std::span<const std::uint8_t> DataBytes(PacketRef packet, DataLevel level);

// Which label groups of the pane are visible.
struct PaneLayout {
  bool arpFields = false;    // hardware/protocol address space, option code, the two lengths
  bool ipv4Fields = false;   // packet type, protocol #, TTL, IP checksum
  bool ipBoxes = false;      // source and destination IP
  bool portFields = false;   // Port:, :Port, Port use:, :Port use
  bool tcpGroup = false;     // window, sequence, acknowledgement, the six flags
  bool icmpGroup = false;    // ICMP type, ICMP code
  bool ipv6Fields = false;   // traffic class, flow label, payload length, hop limit
  bool operator==(const PaneLayout&) const = default;
};

// Remembers the EtherType and IP protocol the pane was last laid out for, so the window only
// re-lays when they change. Transport groups change only on IPv4 and IPv6 packets: an ARP or
// other packet keeps the port/TCP/ICMP groups of the last IP packet, as the pane always has.
class PaneLayoutMemory {
 public:
  // Feeds one decoded packet; true when the layout changed and the window must re-lay.
  bool Apply(std::uint16_t etherType, std::uint8_t ipProtocol);
  const PaneLayout& layout() const { return layout_; }

 private:
  std::optional<std::uint16_t> etherType_;
  std::optional<std::uint8_t> ipProtocol_;
  std::uint16_t ipEtherType_ = 0;  // the family ipProtocol_ belongs to
  PaneLayout layout_;
};

// The six TCP flag labels the pane shows.
struct TcpFlagsShown {
  bool urg = false, ack = false, psh = false, rst = false, syn = false, fin = false;
  bool operator==(const TcpFlagsShown&) const = default;
};
// Peels the raw flags byte from the top without masking it first, so the two reserved high
// bits show as URG and let the lower flags through (0x52 → URG ACK PSH RST SYN, no FIN).
TcpFlagsShown PeelTcpFlags(std::uint8_t flags);

// Every text of the detail pane for one packet. Texts that do not apply stay empty.
struct PacketDetails {
  std::uint16_t etherType = 0;
  std::uint8_t ipProtocol = 0;        // IPv4, or IPv6's transport behind its extension headers
  std::uint32_t ipHeaderLength = 0;   // H: IPv4 IHL, or IPv6 with its extension headers
  // False for EtherTypes other than IPv4 and IPv6 and for ARP that fails the address rule: the
  // window then keeps whatever its IP boxes showed before.
  bool addressesSet = false;

  std::string packetType;       // IPv4, IPv6: protocol keyword
  std::string sourceIp, destinationIp;
  std::string sourceMac, destinationMac;
  std::string packetSize;       // frame length
  std::string etherTypeText;    // "0x%X - name"
  std::string protocolNumber, ttl, checksum;                 // IPv4 (protocol # also IPv6)
  std::string trafficClass, flowLabel, payloadLength, hopLimit;  // IPv6 ("0x%02X", "0x%05X")
  std::string sourcePort, destinationPort;                   // TCP/UDP
  std::string sourcePortName, destinationPortName;           // TCP/UDP
  std::string window, sequence, acknowledgement;             // TCP
  TcpFlagsShown flags;                                       // TCP
  std::string icmpType, icmpCode;                            // ICMP, ICMPv6 "%u - name"
  std::string arpHardwareType, arpProtocolType, arpOperation;  // "0x%04X - name"
  std::string arpHardwareLength, arpProtocolLength;            // "0x%02X"

  // The bytes the dump and the Hex viewer show at the decoded level.
  std::span<const std::uint8_t> dataBytes;
};

// Decodes `packet`. The MAC texts are the list row's (empty for Raw Sockets rows).
PacketDetails DecodePacket(PacketRef packet, UiLanguage language, DataLevel level,
                           std::string_view sourceMacText, std::string_view destinationMacText);

// The ICMP type and code texts, "%u - name" (names in English only; "Unknown" translated).
std::string IcmpTypeText(std::uint8_t type, UiLanguage language);
std::string IcmpCodeText(std::uint8_t type, std::uint8_t code, UiLanguage language);
std::string Icmpv6TypeText(std::uint8_t type, UiLanguage language);
std::string Icmpv6CodeText(std::uint8_t type, std::uint8_t code, UiLanguage language);

// A record the store cannot hand out readable: what the dump boxes say and what is asked.
struct UnreadableRecordNotice {
  Text dumpText;   // InvalidPacketPtr or InvalidPacketData
  Text question;   // the Yes/No question (question icon)
  Text caption;    // DeleteInvalidPacketCaption
};
// A long record (20 bytes or more) is blamed on its pointer, a short one on its data.
UnreadableRecordNotice UnreadableRecord(std::uint32_t networkLength);

// The three dump forms of the detail pane.
enum class DumpForm : std::uint8_t { Text, Dec, Hex };
// Text: non-zero bytes as they are; Dec: "%3u" + space, CR LF after every 10th;
// Hex: "%02X" + space, CR LF after every 16th. Appends to `out`.
void AppendPaneDump(std::string& out, std::span<const std::uint8_t> bytes, DumpForm form);

// A selection in a CR LF text, in character positions [start, end).
struct TextSelection {
  int start = 0;
  int end = 0;
  bool operator==(const TextSelection&) const = default;
};

// The detail fields whose bytes can be selected.
enum class DetailField : std::uint8_t {
  PacketType, ProtocolNumber, Ttl, IpChecksum, SourceIp, DestinationIp, PacketSize,
  SourcePort, SourcePortName, DestinationPort, DestinationPortName,
  Window, Sequence, Acknowledgement,
  ArpHardwareType, ArpProtocolType, ArpHardwareLength, ArpProtocolLength, ArpOperation,
  SourceMac, DestinationMac, EtherType,
  TrafficClass, FlowLabel, PayloadLength, HopLimit,
};
inline constexpr DetailField kLastDetailField = DetailField::HopLimit;

struct FieldBytes {
  std::int32_t frameOffset = 0;
  std::int32_t width = 0;
  bool operator==(const FieldBytes&) const = default;
};
// Where a field's bytes lie in the frame; nullopt when the field has no bytes for this packet.
// `shownProtocol` is the value in the pane's "Protocol #:" box: it decides whether port and
// TCP fields exist, so a selection always matches what the pane shows.
std::optional<FieldBytes> FieldFrameBytes(PacketRef packet, DetailField field,
                                          std::uint8_t shownProtocol);

// Positions in a Dec (10 per line) or Hex (16 per line) dump of `count` bytes from `firstByte`
// (a byte index into the dump; may be negative). Text has no selection (nullopt).
std::optional<TextSelection> DumpSelection(DumpForm form, std::int32_t firstByte,
                                           std::int32_t count);
// The whole chain: field → frame bytes → bytes of the dump at `level` → positions.
std::optional<TextSelection> FieldSelection(PacketRef packet, DataLevel level, DumpForm form,
                                            DetailField field, std::uint8_t shownProtocol);

// Hex viewer arithmetic: a hex box line is 16 × "XX " less the last space plus CR LF = 49
// characters, a character box line 16 + CR LF = 18.
inline constexpr int kHexViewerHexLine = 49;
inline constexpr int kHexViewerCharLine = 18;
std::int32_t HexViewerByteAt(std::int32_t hexPosition);
std::int32_t HexViewerCharPosition(std::int32_t byteIndex);
// Mirrors a hex-box selection into the character box: reversed ranges are swapped, an empty
// one is widened to one character; (0, 0) means "clear the selection" (nullopt).
std::optional<TextSelection> MirrorHexSelection(TextSelection hexSelection);
// A field's selection in the Hex viewer's hex box (same layout as the pane's Hex dump).
std::optional<TextSelection> HexViewerFieldSelection(PacketRef packet, DataLevel level,
                                                     DetailField field,
                                                     std::uint8_t shownProtocol);

// Vendor lookup for a MAC text: nullopt for an empty text (nothing happens); otherwise the
// vendor's name or "_Unknown vendor code_".
std::optional<std::string> VendorForMacText(std::string_view macText, UiLanguage language);
// The "Vendor name" message body: "MAC:" CR LF, 4 spaces, MAC, CR LF CR LF, "Vendor:" ...
std::string VendorMessageText(std::string_view macText, std::string_view vendor,
                              UiLanguage language);

}  // namespace vormelt
