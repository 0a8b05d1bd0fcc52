// Find: one copy of the payload per packet into a reused buffer, folded and searched there.
#include "packetmode/packet_find.hpp"

#include <algorithm>
#include <cctype>
#include <vector>

namespace vormelt {
namespace {

char Fold(unsigned char c, bool matchCase) {
  return static_cast<char>(matchCase ? c : std::tolower(c));
}

}  // namespace

std::optional<FindHit> FindInPacket(PacketRef packet, std::string_view needle, bool matchCase) {
  if (!packet.frame || needle.empty()) return std::nullopt;
  const std::span<const std::uint8_t> bytes = DataBytes(packet, DataLevel::Presentation);
  if (bytes.size() < needle.size()) return std::nullopt;
  thread_local std::string haystack;
  haystack.resize(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    haystack[i] = bytes[i] == 0 ? ' ' : Fold(bytes[i], matchCase);
  }
  const std::size_t at = haystack.find(needle);
  if (at == std::string::npos) return std::nullopt;
  const std::int32_t start = static_cast<std::int32_t>(bytes.data() - packet.frame);
  return FindHit{-1, start + static_cast<std::int32_t>(at), static_cast<std::int32_t>(needle.size())};
}

std::optional<TextSelection> FindSelection(PacketRef packet, DataLevel level, DumpForm form,
                                           const FindHit& hit) {
  const std::span<const std::uint8_t> dump = DataBytes(packet, level);
  const std::int32_t firstByte = hit.frameOffset - static_cast<std::int32_t>(dump.data() - packet.frame);
  if (firstByte < 0 || firstByte + hit.length > static_cast<std::int32_t>(dump.size())) {
    return std::nullopt;
  }
  if (form != DumpForm::Text) return DumpSelection(form, firstByte, hit.length);
  // The Text dump leaves zero bytes out, so positions count only the others.
  const auto nonZero = [&](std::int32_t from, std::int32_t to) {
    return static_cast<int>(std::count_if(dump.begin() + from, dump.begin() + to,
                                          [](std::uint8_t b) { return b != 0; }));
  };
  const int start = nonZero(0, firstByte);
  return TextSelection{start, start + nonZero(firstByte, firstByte + hit.length)};
}

void PacketFinder::Begin(const PacketStore& store, std::string_view text, bool matchCase) {
  text = text.substr(0, kMaxFindText);
  needle_.assign(text);
  if (!matchCase) {
    for (char& c : needle_) c = Fold(static_cast<unsigned char>(c), false);
  }
  matchCase_ = matchCase;
  next_ = 0;
  end_ = store.ItemCount();
  anyMatch_ = false;
  hit_ = {};
}

PacketFinder::Step PacketFinder::Advance(const PacketStore& store, std::int32_t slots) {
  const std::int32_t stop = std::min(end_, next_ + std::max(slots, 1));
  auto lock = store.Lock();  // the records stay put while this slice reads them
  while (next_ < stop) {
    const std::int32_t index = next_++;
    std::optional<FindHit> hit = FindInPacket(store.Get(index), needle_, matchCase_);
    if (!hit || !store.RowOfIndex(index)) continue;  // a match without a row is passed over
    hit->index = index;
    hit_ = *hit;
    anyMatch_ = true;
    return Step::Matched;
  }
  return next_ >= end_ ? Step::Finished : Step::Running;
}

}  // namespace vormelt
