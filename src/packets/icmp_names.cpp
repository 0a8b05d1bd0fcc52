// ICMP type and code names of the detail pane, "%u - name". The names themselves are English
// in both languages; only the fallback "Unknown" is translated.
#include <array>
#include <cstdio>
#include <optional>
#include <span>

#include "packets/decoder.hpp"

namespace vormelt {
namespace {

using Name = std::optional<Text>;

// Indexed by ICMP type; types without an entry are unknown.
constexpr std::array<Name, 19> kTypeNames = {
    Text::IcmpEchoReply,          std::nullopt,
    std::nullopt,                 Text::IcmpDestinationUnreachable,
    Text::IcmpSourceQuench,       Text::IcmpRedirect,
    std::nullopt,                 std::nullopt,
    Text::IcmpEchoRequest,        Text::IcmpRouterAdvertisement,
    Text::IcmpRouterSolicitation, Text::IcmpTimeExceeded,
    Text::IcmpParameterProblem,   Text::IcmpTimestampRequest,
    Text::IcmpTimestampReply,     Text::IcmpInformationRequest,
    Text::IcmpInformationReply,   Text::IcmpAddressMaskRequest,
    Text::IcmpAddressMaskReply,
};

constexpr Text kUnreachableCodes[] = {
    Text::IcmpNetworkUnreachable,      Text::IcmpHostUnreachable,
    Text::IcmpProtocolUnreachable,     Text::IcmpPortUnreachable,
    Text::IcmpFragmentationNeeded,     Text::IcmpSourceRouteFailed,
    Text::IcmpDestinationNetworkUnknown, Text::IcmpDestinationHostUnknown,
    Text::IcmpSourceHostIsolated,      Text::IcmpNetworkProhibited,
    Text::IcmpHostProhibited,          Text::IcmpNetworkUnreachableTos,
    Text::IcmpHostUnreachableTos,      Text::IcmpCommunicationProhibited,
    Text::IcmpHostPrecedenceViolation, Text::IcmpPrecedenceCutoff,
};
constexpr Text kRedirectCodes[] = {Text::IcmpNetworkRedirect, Text::IcmpHostRedirect,
                                   Text::IcmpNetworkRedirectTos, Text::IcmpHostRedirectTos};
constexpr Text kTimeExceededCodes[] = {Text::IcmpTransitTtlExceeded,
                                       Text::IcmpReassemblyTtlExceeded};
constexpr Text kParameterProblemCodes[] = {Text::IcmpUnspecifiedError,
                                           Text::IcmpRequiredOptionMissing};

constexpr std::uint8_t kTypeUnreachable = 3;
constexpr std::uint8_t kTypeRedirect = 5;
constexpr std::uint8_t kTypeTimeExceeded = 11;
constexpr std::uint8_t kTypeParameterProblem = 12;

std::span<const Text> CodeNames(std::uint8_t type) {
  switch (type) {
    case kTypeUnreachable: return kUnreachableCodes;
    case kTypeRedirect: return kRedirectCodes;
    case kTypeTimeExceeded: return kTimeExceededCodes;
    case kTypeParameterProblem: return kParameterProblemCodes;
    default: return {};
  }
}

std::string Numbered(unsigned value, const char* name) {
  char buffer[128];
  const int n = std::snprintf(buffer, sizeof buffer, "%u - %s", value, name);
  return std::string(buffer, n > 0 ? std::min<std::size_t>(n, sizeof buffer - 1) : 0);
}

}  // namespace

std::string IcmpTypeText(std::uint8_t type, UiLanguage language) {
  const Name name = type < kTypeNames.size() ? kTypeNames[type] : std::nullopt;
  return Numbered(type, Tr(name.value_or(Text::Unknown), language));
}

std::string IcmpCodeText(std::uint8_t type, std::uint8_t code, UiLanguage language) {
  // A code without a name of its own is "Null" when it is 0, else unknown — even for types
  // that name other codes.
  const auto codes = CodeNames(type);
  Text name = code == 0 ? Text::IcmpNull : Text::Unknown;
  if (code < codes.size()) name = codes[code];
  return Numbered(code, Tr(name, language));
}

// ICMPv6 has its own numbers; the names the two share are the same texts.
std::string Icmpv6TypeText(std::uint8_t type, UiLanguage language) {
  Name name;
  switch (type) {
    case 1: name = Text::IcmpDestinationUnreachable; break;
    case 2: name = Text::Icmpv6PacketTooBig; break;
    case 3: name = Text::IcmpTimeExceeded; break;
    case 4: name = Text::IcmpParameterProblem; break;
    case 128: name = Text::IcmpEchoRequest; break;
    case 129: name = Text::IcmpEchoReply; break;
    case 133: name = Text::IcmpRouterSolicitation; break;
    case 134: name = Text::IcmpRouterAdvertisement; break;
    case 135: name = Text::Icmpv6NeighborSolicitation; break;
    case 136: name = Text::Icmpv6NeighborAdvertisement; break;
    case 137: name = Text::IcmpRedirect; break;
    default: break;
  }
  return Numbered(type, Tr(name.value_or(Text::Unknown), language));
}

std::string Icmpv6CodeText(std::uint8_t type, std::uint8_t code, UiLanguage language) {
  static constexpr Text kUnreachable[] = {
      Text::IcmpNetworkUnreachable, Text::IcmpCommunicationProhibited, Text::Unknown,
      Text::Icmpv6AddressUnreachable, Text::IcmpPortUnreachable};
  std::span<const Text> codes;
  if (type == 1) codes = kUnreachable;
  if (type == 3) codes = kTimeExceededCodes;
  Text name = code == 0 ? Text::IcmpNull : Text::Unknown;
  if (code < codes.size()) name = codes[code];
  return Numbered(code, Tr(name, language));
}

}  // namespace vormelt
