// Name tables: the entries other code and saved files depend on, table ranges, and OUI parsing.
#include "packets/names.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

namespace vormelt::names {
namespace {

using namespace std::string_literals;

TEST(ProtocolNames, KeywordsFillerAndReservedAreExactBytes) {
  EXPECT_STREQ(ProtocolName(0), "");
  EXPECT_STREQ(ProtocolName(1), "ICMP");
  EXPECT_STREQ(ProtocolName(6), "TCP");
  EXPECT_STREQ(ProtocolName(17), "UDP");
  EXPECT_STREQ(ProtocolName(35), "IDPR ");  // the trailing blank is part of saved lines
  EXPECT_STREQ(ProtocolName(54), "NHRP");
  EXPECT_STREQ(ProtocolName(62), "CFTP");
  EXPECT_STREQ(ProtocolName(89), "OSPFIGP");
  EXPECT_STREQ(ProtocolName(93), "AX.25");
  EXPECT_STREQ(ProtocolName(94), "IPIP");
  EXPECT_STREQ(ProtocolName(97), "ETHERIP");
  EXPECT_STREQ(ProtocolName(98), "ENCAP");
  EXPECT_STREQ(ProtocolName(100), "GMTP");
  EXPECT_STREQ(ProtocolName(255), "Reserved");
  EXPECT_EQ(std::string(ProtocolName(200)), "\xBF?"s);
  EXPECT_EQ(std::string(ProtocolName(55)), "\xBF?"s);
}

TEST(ProtocolNames, EveryEntryExistsAndFitsItsTwelveByteSlot) {
  for (int protocol = 0; protocol <= 255; ++protocol) {
    const char* name = ProtocolName(static_cast<std::uint8_t>(protocol));
    ASSERT_NE(name, nullptr) << protocol;
    EXPECT_LT(std::strlen(name), 12u) << protocol;
  }
}

TEST(EtherTypeNames, QuotedEntriesAndLaterAssignmentWins) {
  EXPECT_STREQ(EtherTypeName(0x0800), "DoD Internet Protocol (IP)");
  EXPECT_STREQ(EtherTypeName(0x0806), "Address Resolution Protocol (ARP) (for IP and for CHAOS)");
  EXPECT_STREQ(EtherTypeName(0x9000), "Loopback (Configuration Test Protocol)");
  EXPECT_STREQ(EtherTypeName(0x0200),
               "Xerox PUP (conflicts with 802.3 Length Field range) (see 0A00)");
  EXPECT_STREQ(EtherTypeName(0x86DD), "IP version 6");
  EXPECT_STREQ(EtherTypeName(0x8856), "bootstrap/config");
}

TEST(EtherTypeNames, RangesRepeatTheirName) {
  for (std::uint16_t code = 0x0888; code <= 0x088A; ++code) {
    EXPECT_STREQ(EtherTypeName(code), "Xyplex") << code;
  }
  for (std::uint16_t code = 0x1001; code <= 0x100F; ++code) {
    EXPECT_STREQ(EtherTypeName(code), "Berkeley Trailer encapsulation for IP") << code;
  }
  EXPECT_STRNE(EtherTypeName(0x1000), "Berkeley Trailer encapsulation for IP");
}

TEST(EtherTypeNames, NothingFromFF00UpAndAboutTheListsSize) {
  for (std::uint32_t code = 0xFF00; code <= 0xFFFF; ++code) {
    EXPECT_EQ(EtherTypeName(static_cast<std::uint16_t>(code)), nullptr) << code;
  }
  EXPECT_EQ(EtherTypeName(0x0000), nullptr);
  EXPECT_EQ(EtherTypeName(0x05DC), nullptr);
  int named = 0;
  for (std::uint32_t code = 0; code < 0xFF00; ++code) {
    named += EtherTypeName(static_cast<std::uint16_t>(code)) != nullptr;
  }
  EXPECT_GT(named, 250);
  EXPECT_LT(named, 350);
}

TEST(PortNames, RegistryPlaceholdersAndFirstPortsInBothTables) {
  for (const PortProtocol protocol : {PortProtocol::Tcp, PortProtocol::Udp}) {
    EXPECT_STREQ(PortName(protocol, 0), "Reserved");
    EXPECT_STREQ(PortName(protocol, 1), "Port Service Multiplexer");
    EXPECT_STREQ(PortName(protocol, 2), "Management Utility");
    EXPECT_STREQ(PortName(protocol, 3), "Compression Process");
    EXPECT_STREQ(PortName(protocol, 4), "Unassigned");
    EXPECT_STREQ(PortName(protocol, 5), "Remote Job Entry");
  }
  EXPECT_STREQ(PortName(PortProtocol::Tcp, 80), "World Wide Web HTTP");
  // A service without a description comment is named by its service name.
  EXPECT_STREQ(PortName(PortProtocol::Tcp, 113), "ident");
}

TEST(PortNames, TablesDifferPerProtocolAndEndAtTheirRange) {
  EXPECT_STREQ(PortName(PortProtocol::Tcp, 512),
               "remote process execution; authentication performed using passwords and UNIX "
               "login names");
  EXPECT_STREQ(PortName(PortProtocol::Udp, 512), "comsat");
  EXPECT_EQ(PortName(PortProtocol::Udp, 60'000), nullptr);
  EXPECT_EQ(PortName(PortProtocol::Tcp, 60'000), nullptr);
  EXPECT_EQ(PortName(PortProtocol::Tcp, kLastTcpPort + 1), nullptr);
  EXPECT_EQ(PortName(PortProtocol::Udp, kLastUdpPort + 1), nullptr);
  EXPECT_EQ(PortName(PortProtocol::Tcp, 65'535), nullptr);
  int tcp = 0;
  int udp = 0;
  for (std::uint32_t port = 0; port <= 65'535; ++port) {
    tcp += PortName(PortProtocol::Tcp, static_cast<std::uint16_t>(port)) != nullptr;
    udp += PortName(PortProtocol::Udp, static_cast<std::uint16_t>(port)) != nullptr;
  }
  EXPECT_GT(tcp, 3000);
  EXPECT_GT(udp, 3000);
}

TEST(VendorNames, HistoricAndCurrentEntries) {
  for (std::uint32_t oui = 0x000000; oui <= 0x000007; ++oui) {
    EXPECT_STREQ(VendorName(oui), "XEROX CORPORATION") << oui;
  }
  EXPECT_STREQ(VendorName(0x000C29), "VMWARE, INC.");
  EXPECT_STREQ(VendorName(0x00000C), "CISCO SYSTEMS, INC");
  EXPECT_STREQ(VendorName(0xAA0004), "DIGITAL EQUIPMENT CORPORATION");
  EXPECT_STREQ(VendorName(0xCCDE48), "_Unknown_");
  EXPECT_EQ(VendorName(0x123456), nullptr);
  EXPECT_EQ(VendorName(0x1000000), nullptr);  // wider than an OUI
}

TEST(VendorNames, FirstOfEqualKeysWins) {
  // The registry lists 08:00:30 three times; its first holder answers.
  EXPECT_STREQ(VendorName(0x080030), "NETWORK RESEARCH CORPORATION");
  EXPECT_STREQ(VendorName(0x0001C8), "THOMAS CONRAD CORP.");
}

TEST(VendorNames, NamesAreUpperCaseOnOneLine) {
  for (const std::uint32_t oui : {0x000C29u, 0x3C5AB4u, 0xF4F5D8u, 0x001B63u}) {
    const char* name = VendorName(oui);
    ASSERT_NE(name, nullptr) << oui;
    for (const char c : std::string_view(name)) {
      EXPECT_FALSE(std::islower(static_cast<unsigned char>(c))) << name;
      EXPECT_NE(c, '\n') << name;
    }
  }
}

TEST(ParseOui, AcceptsMacsAndPrefixesInCommonSpellings) {
  EXPECT_EQ(ParseOui("00:0C:29:12:34:56"), 0x000C29u);
  EXPECT_EQ(ParseOui("00-0C-29"), 0x000C29u);
  EXPECT_EQ(ParseOui("000C29"), 0x000C29u);
  EXPECT_EQ(ParseOui("00:0c:29"), 0x000C29u);
  EXPECT_EQ(ParseOui("aa:00:04:00:11:22"), 0xAA0004u);
  // Separators are dropped wherever they stand; only the first six digits count.
  EXPECT_EQ(ParseOui("000C:2-9"), 0x000C29u);
  EXPECT_EQ(ParseOui("000C29FFFFFFFFFF"), 0x000C29u);
}

TEST(ParseOui, RejectsShortOrForeignText) {
  EXPECT_EQ(ParseOui(""), std::nullopt);
  EXPECT_EQ(ParseOui("00:0C"), std::nullopt);
  EXPECT_EQ(ParseOui("00:0C:2"), std::nullopt);
  EXPECT_EQ(ParseOui("0:C:29:1"), std::nullopt);  // five digits: groups are not padded
  EXPECT_EQ(ParseOui("::--::"), std::nullopt);
  EXPECT_EQ(ParseOui("00:0C:2G"), std::nullopt);
  EXPECT_EQ(ParseOui("00.0C.29"), std::nullopt);
  EXPECT_EQ(ParseOui(" 00:0C:29"), std::nullopt);
  EXPECT_EQ(ParseOui("0x000C29"), std::nullopt);
}

}  // namespace
}  // namespace vormelt::names
