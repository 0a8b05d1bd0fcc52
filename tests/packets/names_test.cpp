// Name tables: the entries other code and saved files depend on, table ranges, and OUI parsing.
#include "packets/names.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vormelt::names {
namespace {

using namespace std::string_literals;

TEST(ProtocolNames, KeywordsFillerAndReservedAreExactBytes) {
  EXPECT_STREQ(ProtocolName(0), "");
  EXPECT_STREQ(ProtocolName(6), "TCP");
  EXPECT_STREQ(ProtocolName(35), "IDPR ");  // the trailing blank is part of saved lines
  EXPECT_STREQ(ProtocolName(93), "AX.25");
  EXPECT_STREQ(ProtocolName(255), "Reserved");
  EXPECT_EQ(std::string(ProtocolName(55)), "\xC2\xBF?"s);  // UTF-8, like every table text
}

TEST(EtherTypeNames, LaterAssignmentWinsRangesRepeatAndNothingFromFF00) {
  EXPECT_STREQ(EtherTypeName(0x0200),
               "Xerox PUP (conflicts with 802.3 Length Field range) (see 0A00)");
  EXPECT_STREQ(EtherTypeName(0x8856), "bootstrap/config");
  EXPECT_STREQ(EtherTypeName(0x100F), "Berkeley Trailer encapsulation for IP");
  EXPECT_STRNE(EtherTypeName(0x1000), "Berkeley Trailer encapsulation for IP");
  int named = 0;
  for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
    const char* name = EtherTypeName(static_cast<std::uint16_t>(code));
    if (code >= 0xFF00) EXPECT_EQ(name, nullptr) << code;
    named += name != nullptr;
  }
  EXPECT_GT(named, 250);
  EXPECT_LT(named, 350);
}

TEST(PortNames, TablesDifferPerProtocolAndEndAtTheirRange) {
  for (const PortProtocol protocol : {PortProtocol::Tcp, PortProtocol::Udp}) {
    EXPECT_STREQ(PortName(protocol, 0), "Reserved");
    EXPECT_STREQ(PortName(protocol, 4), "Unassigned");
    EXPECT_STREQ(PortName(protocol, 1), "Port Service Multiplexer");
  }
  // A service without a description comment is named by its service name.
  EXPECT_STREQ(PortName(PortProtocol::Tcp, 113), "ident");
  EXPECT_STREQ(PortName(PortProtocol::Udp, 512), "comsat");
  EXPECT_EQ(PortName(PortProtocol::Tcp, kLastTcpPort + 1), nullptr);
  EXPECT_EQ(PortName(PortProtocol::Udp, kLastUdpPort + 1), nullptr);
}

TEST(VendorNames, HistoricEntriesAndFirstOfEqualKeysWins) {
  EXPECT_STREQ(VendorName(0x000003), "XEROX CORPORATION");
  EXPECT_STREQ(VendorName(0x000C29), "VMWARE, INC.");
  EXPECT_STREQ(VendorName(0xCCDE48), "_Unknown_");
  EXPECT_EQ(VendorName(0x123456), nullptr);
  EXPECT_EQ(VendorName(0x1000000), nullptr);  // wider than an OUI
  // The registry lists 08:00:30 three times; its first holder answers.
  EXPECT_STREQ(VendorName(0x080030), "NETWORK RESEARCH CORPORATION");
}

TEST(ParseOui, SpellingsAcceptedAndRejected) {
  const std::pair<std::string_view, std::optional<std::uint32_t>> cases[] = {
      {"00:0C:29:12:34:56", 0x000C29u}, {"00-0C-29", 0x000C29u}, {"00:0c:29", 0x000C29u},
      // Separators are dropped wherever they stand; only the first six digits count.
      {"000C:2-9", 0x000C29u}, {"000C29FFFFFFFFFF", 0x000C29u},
      {"", std::nullopt}, {"00:0C:2", std::nullopt}, {"00:0C:2G", std::nullopt},
      {"0:C:29:1", std::nullopt},  // five digits: groups are not padded
      {"00.0C.29", std::nullopt}, {" 00:0C:29", std::nullopt}, {"0x000C29", std::nullopt},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(ParseOui(text), expected) << text;
}

}  // namespace
}  // namespace vormelt::names
