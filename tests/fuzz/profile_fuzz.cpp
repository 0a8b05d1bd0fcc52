// Fuzz target for the filter profile reader: the raw input as a profile, a profile built from
// the input that must survive its own round trip, and that profile's text cut or corrupted at
// a place the input chooses.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "filters/filter_profile.hpp"

using namespace vormelt;

namespace {

// Printable ASCII only, so the text survives JSON unchanged and the round trip can be exact.
std::string Printable(std::string_view bytes) {
  std::string text;
  for (char c : bytes) text += static_cast<char>(0x20 + static_cast<unsigned char>(c) % 0x5F);
  return text;
}

FilterProfile BuildProfile(std::string_view in) {
  FilterProfile p;
  const auto byte = [&](std::size_t i) -> std::uint8_t {
    return i < in.size() ? static_cast<std::uint8_t>(in[i]) : 0;
  };
  for (std::size_t i = 0; i + 8 <= in.size() && i < 64; i += 8) {
    std::uint32_t a = (std::uint32_t{byte(i)} << 24) | (byte(i + 1) << 16) | (byte(i + 2) << 8) | 1;
    std::uint32_t b = (std::uint32_t{byte(i + 4)} << 24) | (byte(i + 5) << 16) | 7;
    p.values.Ranges(static_cast<RangeKind>(i / 8 % kRangeKindCount))
        .push_back(a <= b ? IpRange{a, b} : IpRange{b, a});
    const auto port = static_cast<std::uint16_t>((byte(i + 3) << 8) | byte(i + 7));
    if (port != 0) p.values.Ports(static_cast<PortKind>(i / 8 % kPortKindCount)).push_back(port);
  }
  const std::string text = Printable(in.substr(0, std::min<std::size_t>(in.size(), 48)));
  p.values.mustContain = {text.substr(0, text.size() / 2)};
  p.values.extensionsDenied = {text.substr(text.size() / 2)};
  p.values.maxPacketSize = byte(0) * 1000u;
  p.values.allowOther = byte(1) & 1;
  p.window.fromText = text;
  p.window.selectedRangeKind = byte(2) % 6 - 1;
  p.window.geometry.x = -static_cast<int>(byte(3));
  return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const ProfileResult raw = ParseFilterProfile(input);
  if (raw.ok() != raw.profile.has_value()) std::abort();

  const FilterProfile built = BuildProfile(input);
  std::string text = SerializeFilterProfile(built);
  const ProfileResult back = ParseFilterProfile(text);
  if (!back.ok() || !(*back.profile == built)) std::abort();

  if (size > 0) {
    const std::size_t at = data[0] * text.size() / 256;
    std::string cut = text.substr(0, at);
    ParseFilterProfile(cut);
    text[at] = static_cast<char>(size > 1 ? data[1] : 0);
    const ProfileResult mutated = ParseFilterProfile(text);
    if (mutated.ok() != mutated.profile.has_value()) std::abort();
  }
  return 0;
}
