// Packet text rendering: summary lines against the printf forms they stand for, the four data
// forms, the buffer and stream forms agreeing byte for byte, and the Hex viewer's columns.
#include "packets/render.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "common/byte_order.hpp"
#include "packets/names.hpp"
#include "support/frames.hpp"

// Counts heap allocations so a test can prove the per-packet path allocates nothing.
namespace {
std::atomic<long> gAllocations{0};
}
void* operator new(std::size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace vormelt {
namespace {

using test::Bytes;

RecordBuffer Raw(const Bytes& ip, std::string_view time = "12:00:00") {
  return RecordBuffer(test::RawSocketsFrame(ip), InterfaceKind::RawSockets, time);
}

// The summary line as the printf form "% 4s % 4u  %s  %s  % 15s % 15s  %s %s  [%s]" (with four
// blanks between the IP columns when wide) would print it.
std::string ReferenceSummary(PacketRef p, IpGap gap) {
  const std::uint16_t etherType = p.etherType();
  const std::uint8_t* f = p.frame;
  char type[16];
  if (etherType == 0x0800) {
    std::snprintf(type, sizeof type, "%s", names::ProtocolName(f[23]));
  } else if (etherType == 0x0806) {
    std::snprintf(type, sizeof type, "ARP");
  } else {
    std::snprintf(type, sizeof type, "%X", etherType);
  }
  char source[18], destination[18];
  std::snprintf(source, sizeof source, "%17s", "");
  std::snprintf(destination, sizeof destination, "%17s", "");
  if (p.kind == InterfaceKind::PacketDriver) {
    std::snprintf(source, sizeof source, "%02X:%02X:%02X:%02X:%02X:%02X", f[6], f[7], f[8], f[9],
                  f[10], f[11]);
    std::snprintf(destination, sizeof destination, "%02X:%02X:%02X:%02X:%02X:%02X", f[0], f[1],
                  f[2], f[3], f[4], f[5]);
  }
  char ipSource[16] = "", ipDestination[16] = "";
  const std::uint8_t* a = nullptr;
  const std::uint8_t* b = nullptr;
  if (etherType == 0x0800) {
    a = f + 26, b = f + 30;
  } else if (etherType == 0x0806 && ReadBe16(f + 14) == 1 && ReadBe16(f + 16) == 0x0800 &&
             2u * f[18] + 12 <= p.networkLength() && f[19] == 4) {
    a = f + 22 + f[18], b = f + 26 + 2 * f[18];
  }
  if (a) {
    std::snprintf(ipSource, sizeof ipSource, "%ld.%ld.%ld.%ld", long{a[0]}, long{a[1]},
                  long{a[2]}, long{a[3]});
    std::snprintf(ipDestination, sizeof ipDestination, "%ld.%ld.%ld.%ld", long{b[0]},
                  long{b[1]}, long{b[2]}, long{b[3]});
  }
  char sport[8], dport[8];
  std::snprintf(sport, sizeof sport, "%5s", "");
  std::snprintf(dport, sizeof dport, "%5s", "");
  if (etherType == 0x0800 && (f[23] == 6 || f[23] == 17)) {
    const std::uint8_t* t = f + 14 + (f[14] & 15) * 4;
    std::snprintf(sport, sizeof sport, "% 5u", unsigned{ReadBe16(t)});
    std::snprintf(dport, sizeof dport, "% 5u", unsigned{ReadBe16(t + 2)});
  }
  const std::string time(p.timeText);
  const char* form = gap == IpGap::Wide ? "% 4s % 4u  %s  %s  % 15s    % 15s  %s %s  [%s]"
                                        : "% 4s % 4u  %s  %s  % 15s % 15s  %s %s  [%s]";
  char line[512];
  std::snprintf(line, sizeof line, form, type, p.frameLength, source, destination, ipSource,
                ipDestination, sport, dport, time.c_str());
  return line;
}

// A few thousand packets of every kind the renderer distinguishes, plus random garbage.
std::vector<RecordBuffer> VariedPackets(std::size_t count) {
  std::mt19937 rng(42);
  std::vector<RecordBuffer> out;
  const auto random = [&](std::size_t n) {
    Bytes b(n);
    for (auto& x : b) x = static_cast<std::uint8_t>(rng());
    return b;
  };
  for (std::size_t i = 0; i < count; ++i) {
    test::Ipv4Header ip;
    ip.source = {10, static_cast<std::uint8_t>(rng()), 0, static_cast<std::uint8_t>(rng())};
    ip.destination = {192, 168, static_cast<std::uint8_t>(rng()), 255};
    if (rng() % 4 == 0) ip.options = random(4 * (rng() % 4));
    const Bytes payload = random(rng() % 120);
    Bytes network;
    switch (i % 6) {
      case 0: {
        test::TcpHeader tcp;
        tcp.sourcePort = static_cast<std::uint16_t>(rng());
        tcp.flags = static_cast<std::uint8_t>(rng());
        network = test::TcpPacket(ip, tcp, payload);
        break;
      }
      case 1: network = test::UdpPacket(ip, 53, static_cast<std::uint16_t>(rng()), payload); break;
      case 2: network = test::IcmpPacket(ip, 8, 0, payload); break;
      case 3: {
        test::ArpFields arp;
        arp.hardwareLength = static_cast<std::uint8_t>(rng() % 10);
        arp.protocolLength = rng() % 3 == 0 ? 6 : 4;
        network = test::ArpPacket(arp);
        out.emplace_back(test::EthernetFrame({1, 2, 3, 4, 5, 6}, arp.senderMac, 0x0806, network),
                         InterfaceKind::PacketDriver, "arp time");
        continue;
      }
      case 4:
        out.emplace_back(test::EthernetFrame({}, {9, 9, 9, 9, 9, 9},
                                             static_cast<std::uint16_t>(rng()), payload),
                         InterfaceKind::PacketDriver, "");
        continue;
      default: network = random(rng() % 80); break;
    }
    out.emplace_back(test::RawSocketsFrame(network),
                     i % 7 == 0 ? InterfaceKind::PacketDriver : InterfaceKind::RawSockets,
                     "2024-01-01 10:00:00.123");
  }
  return out;
}

std::string Render(PacketRef packet, RenderOptions options) {
  std::string out;
  PacketRenderer(options).Append(packet, out);
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

TEST(Summary, RawSocketsTcpAtDatalinkInHex) {
  const RecordBuffer record =
      Raw(test::TcpPacket(test::Ipv4Header{}, test::TcpHeader{}, {}), "10:11:12");
  ASSERT_EQ(record.ref().networkLength(), 40u);
  const std::string out = Render(record.ref(), {DataForm::Hex, IpGap::Narrow, DataLevel::Datalink});
  const std::string blanks(17, ' ');
  const std::string expectedLine = "\r\n\r\n TCP   54  " + blanks + "  " + blanks +
                                   "         10.0.0.1        10.0.0.2  40000    80  [10:11:12]";
  ASSERT_EQ(out.substr(0, expectedLine.size()), expectedLine);
  const std::string data = out.substr(expectedLine.size());
  ASSERT_EQ(data.substr(0, 4), "\r\n\r\n");
  // 54 values: three full lines ending in CR LF, then six values each followed by a blank.
  EXPECT_EQ(data.size(), 4 + 54 * 3 + 3);
  EXPECT_EQ(data.substr(4, 12), "00 00 00 00 ");
  EXPECT_EQ(data.substr(4 + 45, 4), "00\r\n");
  EXPECT_EQ(data.substr(data.size() - 3), "00 ");  // last byte of the urgent pointer
}

TEST(DataForms, LeadInsAndEmptyBlocks) {
  const RecordBuffer record = Raw(test::UdpPacket(test::Ipv4Header{}, 1, 2, {}), "t");
  std::string line;
  AppendSummaryLine(line, record.ref(), IpGap::Narrow);
  EXPECT_EQ(Render(record.ref(), {DataForm::None, IpGap::Narrow, DataLevel::Datalink}),
            "\r\n" + line);
  // UDP without payload has nothing at Presentation level: just the break.
  EXPECT_EQ(Render(record.ref(), {DataForm::HexText, IpGap::Narrow, DataLevel::Presentation}),
            "\r\n\r\n" + line + "\r\n\r\n");
}

TEST(DataForms, DecBreaksAfterEveryTenthValue) {
  Bytes bytes(21);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 12);
  std::string dec;
  AppendDataBytes(dec, bytes, DataForm::Dec);
  EXPECT_EQ(dec,
            "  0  12  24  36  48  60  72  84  96 108\r\n"
            "120 132 144 156 168 180 192 204 216 228\r\n"
            "240 ");
}

TEST(DataForms, HexTextPadsTheLastLine) {
  Bytes bytes(17, 'A');
  bytes[16] = 0x81;
  std::string out;
  AppendDataBytes(out, bytes, DataForm::HexText);
  std::string expected;
  for (int i = 0; i < 16; ++i) expected += "41 ";
  expected += "| AAAAAAAAAAAAAAAA\r\n81 " + std::string(45, ' ') + "| .";
  EXPECT_EQ(out, expected);

  out.clear();
  AppendDataBytes(out, Bytes(16, 0xE9), DataForm::HexText);
  EXPECT_EQ(out.substr(out.size() - 20), "| " + std::string(16, '\xE9') + "\r\n");

  out.clear();
  AppendDataBytes(out, Bytes{0, 'z', 0x7F}, DataForm::Text);
  EXPECT_EQ(out, std::string("\0z\x7F", 3));  // Text keeps every byte, NUL included
}

TEST(DataForms, PrintableRuleAndPaneText) {
  for (int b = 0; b < 256; ++b) {
    const bool expected = b >= 32 && b != 127 && b != 129 && !(b >= 141 && b <= 144);
    EXPECT_EQ(IsPrintableByte(static_cast<std::uint8_t>(b)), expected) << b;
  }
  std::string out;
  AppendPaneDump(out, Bytes{'a', 0, 'b', 0, 0, 1}, DumpForm::Text);
  EXPECT_EQ(out, "ab\x01");  // the pane's Text form skips zero bytes
}

// Collects stream-form output in memory; `discard` keeps nothing (for allocation counting).
class StringSink : public OutputSink {
 public:
  explicit StringSink(bool discard = false) : discard_(discard) {}
  bool Write(std::string_view bytes) override {
    if (!discard_) text.append(bytes);
    return true;
  }
  std::string text;

 private:
  bool discard_;
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
      std::size_t fileSize = 0;
      std::FILE* file = open_memstream(&fileText, &fileSize);
      ASSERT_NE(file, nullptr);
      std::size_t total = 0;
      for (const RecordBuffer& record : packets) {
        total += buffered.Append(record.ref(), buffer);
        ASSERT_TRUE(filed.Write(record.ref(), file));
        ASSERT_TRUE(sunk.Write(record.ref(), sink));
      }
      std::fclose(file);
      EXPECT_EQ(total, buffer.size());
      EXPECT_EQ(sink.text, buffer);
      EXPECT_EQ(std::string_view(fileText, fileSize), buffer) << form << " " << level;
      std::free(fileText);
    }
  }
}

TEST(Forms, StreamFormAllocatesNothingOnceWarm) {
  const std::vector<RecordBuffer> packets = VariedPackets(600);
  PacketRenderer renderer({DataForm::HexText, IpGap::Narrow, DataLevel::Datalink});
  StringSink sink(true);
  for (const RecordBuffer& record : packets) renderer.Write(record.ref(), sink);
  const long before = gAllocations.load();
  for (const RecordBuffer& record : packets) renderer.Write(record.ref(), sink);
  EXPECT_EQ(gAllocations.load(), before);
}

TEST(HexViewer, ColumnsHaveNoBreakAfterTheirLastLine) {
  Bytes bytes(16);
  for (std::size_t i = 0; i < 16; ++i) bytes[i] = static_cast<std::uint8_t>(0x40 + i);
  HexViewerTexts texts;
  ASSERT_TRUE(BuildHexViewerTexts(bytes, texts));
  EXPECT_EQ(texts.offsets, "00000000");
  EXPECT_EQ(texts.hex, "40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F");
  EXPECT_EQ(texts.characters, "@ABCDEFGHIJKLMNO");

  bytes.assign(33, 0x8F);
  bytes[17] = 'q';
  ASSERT_TRUE(BuildHexViewerTexts(bytes, texts));
  EXPECT_EQ(texts.offsets, "00000000\r\n00000010\r\n00000020");
  EXPECT_EQ(texts.hex.substr(49 + 3, 2), "71");
  EXPECT_EQ(texts.characters.substr(19), "q" + std::string(14, '.') + "\r\n.");
  // An empty range leaves the boxes as they were.
  EXPECT_FALSE(BuildHexViewerTexts({}, texts));
  EXPECT_EQ(texts.offsets.size(), 28u);
}

}  // namespace
}  // namespace vormelt
