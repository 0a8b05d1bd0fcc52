// Packet text rendering: summary lines against the printf forms they stand for, the data forms
// and the buffer, file and stream forms agreeing byte for byte. (That the stream form allocates
// nothing per packet shows in bench/render, not here.)
#include "packets/render.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "common/byte_order.hpp"
#include "packets/names.hpp"
#include "support/frames.hpp"

namespace vormelt {
namespace {

using test::Bytes;

// The summary line as the printf form "% 4s % 4u  %s  %s  % 15s % 15s  %s %s  [%s]" (with four
// blanks between the IP columns when wide) would print it.
std::string ReferenceSummary(PacketRef p, IpGap gap) {
  const std::uint8_t* f = p.frame;
  const unsigned etherType = ReadBe16(f + 12);
  char type[16], mac[2][18] = {}, ip[2][16] = {}, port[2][8];
  std::snprintf(type, sizeof type, "%X", etherType);
  if (etherType == 0x0800) std::snprintf(type, sizeof type, "%s", names::ProtocolName(f[23]));
  if (etherType == 0x0806) std::snprintf(type, sizeof type, "ARP");
  for (int i = 0; i < 2; ++i) {
    const std::uint8_t* m = f + (i == 0 ? 6 : 0);
    std::snprintf(mac[i], sizeof mac[i], "%17s", "");
    if (p.kind == InterfaceKind::PacketDriver) {
      std::snprintf(mac[i], sizeof mac[i], "%02X:%02X:%02X:%02X:%02X:%02X", m[0], m[1], m[2],
                    m[3], m[4], m[5]);
    }
    const std::uint8_t* a = nullptr;
    if (etherType == 0x0800) a = f + 26 + 4 * i;
    if (etherType == 0x0806 && ReadBe16(f + 14) == 1 && ReadBe16(f + 16) == 0x0800 &&
        2u * f[18] + 12 <= p.frameLength - 14 && f[19] == 4) {
      a = f + 22 + f[18] + i * (4 + f[18]);
    }
    if (a) {
      std::snprintf(ip[i], sizeof ip[i], "%ld.%ld.%ld.%ld", long{a[0]}, long{a[1]}, long{a[2]},
                    long{a[3]});
    }
    std::snprintf(port[i], sizeof port[i], "%5s", "");
    if (etherType == 0x0800 && (f[23] == 6 || f[23] == 17)) {
      std::snprintf(port[i], sizeof port[i], "%5u",
                    unsigned{ReadBe16(f + 14 + (f[14] & 15) * 4 + 2 * i)});
    }
  }
  const std::string time(p.timeText);
  const char* form = gap == IpGap::Wide ? "% 4s % 4u  %s  %s  % 15s    % 15s  %s %s  [%s]"
                                        : "% 4s % 4u  %s  %s  % 15s % 15s  %s %s  [%s]";
  char line[512];
  std::snprintf(line, sizeof line, form, type, p.frameLength, mac[0], mac[1], ip[0], ip[1],
                port[0], port[1], time.c_str());
  return line;
}

// A few thousand packets of every kind the renderer distinguishes, plus random garbage.
std::vector<RecordBuffer> VariedPackets(std::size_t count) {
  std::mt19937 rng(42);
  const auto random = [&](std::size_t n) {
    Bytes b(n);
    for (auto& x : b) x = static_cast<std::uint8_t>(rng());
    return b;
  };
  std::vector<RecordBuffer> out;
  for (std::size_t i = 0; i < count; ++i) {
    test::Ipv4Header ip;
    ip.source = {10, static_cast<std::uint8_t>(rng()), 0, static_cast<std::uint8_t>(rng())};
    if (rng() % 4 == 0) ip.options = random(4 * (rng() % 4));
    const Bytes payload = random(rng() % 120);
    test::TcpHeader tcp;
    tcp.sourcePort = static_cast<std::uint16_t>(rng());
    test::ArpFields arp;
    arp.hardwareLength = static_cast<std::uint8_t>(rng() % 10);
    arp.protocolLength = rng() % 3 == 0 ? 6 : 4;
    const auto kind = i % 7 == 0 ? InterfaceKind::PacketDriver : InterfaceKind::RawSockets;
    switch (i % 6) {
      case 0: out.emplace_back(test::RawSocketsFrame(test::TcpPacket(ip, tcp, payload)), kind, "a"); break;
      case 1: out.emplace_back(test::RawSocketsFrame(test::UdpPacket(ip, 53, 9, payload)), kind, "b"); break;
      case 2: out.emplace_back(test::RawSocketsFrame(test::IcmpPacket(ip, 8, 0, payload)), kind, ""); break;
      case 3:
        out.emplace_back(test::EthernetFrame({1, 2, 3, 4, 5, 6}, arp.senderMac, 0x0806,
                                             test::ArpPacket(arp)),
                         InterfaceKind::PacketDriver, "arp time");
        break;
      case 4:
        out.emplace_back(test::EthernetFrame({}, {9, 9, 9, 9, 9, 9},
                                             static_cast<std::uint16_t>(rng()), payload),
                         InterfaceKind::PacketDriver, "");
        break;
      default: out.emplace_back(test::RawSocketsFrame(random(rng() % 80)), kind, "c"); break;
    }
  }
  return out;
}

TEST(Summary, MatchesThePrintfFormForEveryKindOfPacket) {
  for (const RecordBuffer& record : VariedPackets(1200)) {
    for (const IpGap gap : {IpGap::Narrow, IpGap::Wide}) {
      std::string line;
      AppendSummaryLine(line, record.ref(), gap);
      ASSERT_EQ(line, ReferenceSummary(record.ref(), gap));
    }
  }
}

TEST(DataForms, LineBreaksAndPadding) {
  Bytes bytes(21);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 12);
  std::string out;
  AppendDataBytes(out, bytes, DataForm::Dec);  // the 10th, 20th value ends with CR LF
  EXPECT_EQ(out,
            "  0  12  24  36  48  60  72  84  96 108\r\n"
            "120 132 144 156 168 180 192 204 216 228\r\n"
            "240 ");
  bytes.assign(17, 'A');
  bytes[16] = 0x81;
  out.clear();
  AppendDataBytes(out, bytes, DataForm::HexText);
  std::string expected;
  for (int i = 0; i < 16; ++i) expected += "41 ";
  EXPECT_EQ(out, expected + "| AAAAAAAAAAAAAAAA\r\n81 " + std::string(45, ' ') + "| .");
}

// Collects stream-form output in memory.
class StringSink : public OutputSink {
 public:
  bool Write(std::string_view bytes) override {
    text.append(bytes);
    return true;
  }
  std::string text;
};

TEST(Forms, BufferFileAndSinkGiveIdenticalBytes) {
  const std::vector<RecordBuffer> packets = VariedPackets(3000);
  for (int form = 0; form <= static_cast<int>(DataForm::HexText); ++form) {
    for (int level = 0; level < kDataLevelCount; ++level) {
      const RenderOptions options{static_cast<DataForm>(form),
                                  level % 2 ? IpGap::Wide : IpGap::Narrow,
                                  static_cast<DataLevel>(level)};
      PacketRenderer buffered(options), filed(options), sunk(options);
      std::string buffer;
      StringSink sink;
      char* fileText = nullptr;
      std::size_t fileSize = 0, total = 0;
      std::FILE* file = open_memstream(&fileText, &fileSize);
      for (const RecordBuffer& record : packets) {
        total += buffered.Append(record.ref(), buffer);
        ASSERT_TRUE(filed.Write(record.ref(), file) && sunk.Write(record.ref(), sink));
      }
      std::fclose(file);
      EXPECT_EQ(total, buffer.size());
      EXPECT_EQ(sink.text, buffer);
      EXPECT_EQ(std::string_view(fileText, fileSize), buffer) << form << " " << level;
      std::free(fileText);
    }
  }
}

}  // namespace
}  // namespace vormelt
