// Find over the Packet Mode store: the payload from each packet's presentation offset, zero
// bytes read as spaces, searched slot by slot in store order (not list order). The scan runs in
// slices so a window can keep its event loop turning and show progress between them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "packets/decoder.hpp"
#include "packets/store.hpp"

namespace vormelt {

inline constexpr std::size_t kMaxFindText = 10'000;

struct FindHit {
  std::int32_t index = -1;          // store slot
  std::int32_t frameOffset = 0;     // first matching byte, from the start of the frame
  std::int32_t length = 0;          // bytes matched
};

// Where `needle` (already lower-cased unless `matchCase`) first occurs in the packet's
// presentation bytes, zero bytes read as spaces; nullopt when it does not.
std::optional<FindHit> FindInPacket(PacketRef packet, std::string_view needle, bool matchCase);

// The characters of a hit in the detail pane's dump at `level` in `form`, in CR LF positions.
// Text skips zero bytes, as that dump does. nullopt when the hit lies outside the dump.
std::optional<TextSelection> FindSelection(PacketRef packet, DataLevel level, DumpForm form,
                                           const FindHit& hit);

class PacketFinder {
 public:
  enum class Step : std::uint8_t { Running, Matched, Finished };

  // A new search from the first slot up to the item count now. The text is cut to
  // kMaxFindText characters.
  void Begin(const PacketStore& store, std::string_view text, bool matchCase);
  // Scans at most `slots` slots; stops at a listed match (Matched, see Hit()) or at the end.
  Step Advance(const PacketStore& store, std::int32_t slots);
  // After Finished: start again from the first slot (the "search again" answer).
  void Restart() { next_ = 0; anyMatch_ = false; }

  const FindHit& Hit() const { return hit_; }
  bool AnyMatch() const { return anyMatch_; }
  std::int32_t Scanned() const { return next_; }
  std::int32_t End() const { return end_; }

 private:
  std::string needle_;
  bool matchCase_ = false;
  std::int32_t next_ = 0;
  std::int32_t end_ = 0;
  bool anyMatch_ = false;
  FindHit hit_;
};

}  // namespace vormelt
