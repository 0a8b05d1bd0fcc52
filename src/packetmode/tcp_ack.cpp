// Acknowledgement navigation. The running best of each command starts where it always has:
// "next" at 4,294,967,295 with a strict test (that sequence is never chosen), "previous" at 0
// with a strict test (0 is never chosen). Users rely on these limits; they stay.
#include "packetmode/tcp_ack.hpp"

#include <algorithm>
#include <vector>

#include "common/wire.hpp"
#include "packets/headers.hpp"

namespace vormelt {
namespace {

constexpr std::uint32_t kMinTcpNetworkLength = 40;
constexpr std::uint32_t kSequenceAt = 4, kAcknowledgementAt = 8;
constexpr std::int32_t kSlotsPerLock = 4096;

std::uint32_t ReadBe32(const std::uint8_t* p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         std::uint32_t{p[3]};
}

// Calls visit(index, numbers) for every valid TCP slot, holding the lock a slice at a time.
template <typename Visit>
void ForEachTcpSlot(const PacketStore& store, Visit&& visit) {
  const std::int32_t end = store.ItemCount();
  for (std::int32_t first = 0; first < end; first += kSlotsPerLock) {
    auto lock = store.Lock();
    const std::int32_t last = std::min(end, first + kSlotsPerLock);
    for (std::int32_t index = first; index < last; ++index) {
      if (auto numbers = TcpNumbersOf(store.Get(index))) visit(index, *numbers);
    }
  }
}

std::optional<TcpNumbers> SelectedNumbers(const PacketStore& store, std::int32_t selected) {
  auto lock = store.Lock();
  return TcpNumbersOf(store.Get(selected));
}

}  // namespace

namespace {

// An IPv6 packet whose extension chain leads to a whole TCP header in the captured bytes.
std::optional<TcpView> Ipv6Tcp(PacketRef packet) {
  if (!packet.frame || packet.networkLength() < Ipv6View::kFixedLength) return std::nullopt;
  const FrameView frame(packet);
  if (frame.etherType() != kEtherTypeIpv6) return std::nullopt;
  const auto layer = NetworkOf(frame);
  if (!layer || layer->protocol != kProtocolTcp || !layer->carriesPorts() ||
      layer->transportOffset + TcpView::kFixedLength > frame.networkLength()) {
    return std::nullopt;
  }
  return TcpView::Parse(layer->transport);
}

}  // namespace

bool IsValidTcpSlot(PacketRef packet) {
  if (!packet.frame || packet.networkLength() < kMinTcpNetworkLength) return false;
  const std::uint16_t etherType = (packet.frame[12] << 8) | packet.frame[13];
  return etherType == kEtherTypeIpv4 || (etherType == kEtherTypeIpv6 && Ipv6Tcp(packet));
}

std::optional<TcpNumbers> TcpNumbersOf(PacketRef packet) {
  if (!IsValidTcpSlot(packet)) return std::nullopt;
  if (((packet.frame[12] << 8) | packet.frame[13]) == kEtherTypeIpv6) {
    const auto tcp = Ipv6Tcp(packet);
    return TcpNumbers{tcp->sequence(), tcp->acknowledgement()};
  }
  // A header length nibble of up to 60 bytes plus 12 stays inside the record's spare bytes,
  // which are zero past the frame.
  const std::uint32_t transport = (packet.network()[0] & 0x0F) * 4u;
  const std::uint8_t* tcp = packet.network() + transport;
  return TcpNumbers{ReadBe32(tcp + kSequenceAt), ReadBe32(tcp + kAcknowledgementAt)};
}

AckResult FindSameAck(const PacketStore& store, std::int32_t selected, AckMove move) {
  const std::optional<TcpNumbers> mine = SelectedNumbers(store, selected);
  if (!mine) return {AckOutcome::InvalidTcp, -1};
  std::uint32_t best = move == AckMove::Next ? 0xFFFFFFFFu : 0;
  std::int32_t chosen = -1;
  ForEachTcpSlot(store, [&](std::int32_t index, TcpNumbers n) {
    if (n.acknowledgement != mine->acknowledgement) return;
    const std::uint32_t seq = n.sequence;
    switch (move) {
      case AckMove::Next:  // lowest slot wins a tie
        if (seq > mine->sequence && seq < best) best = seq, chosen = index;
        break;
      case AckMove::Previous:  // lowest slot wins a tie
        if (seq < mine->sequence && seq > best) best = seq, chosen = index;
        break;
      case AckMove::First:  // less-or-equal: the highest slot wins a tie
        if (chosen < 0 || seq <= best) best = seq, chosen = index;
        break;
      case AckMove::Last:  // strict: the lowest slot wins a tie
        if (chosen < 0 || seq > best) best = seq, chosen = index;
        break;
    }
  });
  if (chosen < 0) return {AckOutcome::NothingFound, -1};
  if ((move == AckMove::First || move == AckMove::Last) && chosen == selected) {
    return {AckOutcome::AlreadySelected, chosen};
  }
  if (!store.RowOfIndex(chosen)) return {AckOutcome::Gone, chosen};
  return {AckOutcome::Found, chosen};
}

void FreeGoneSlot(PacketStore& store, std::int32_t index) { store.Delete(index); }

std::optional<std::size_t> DeleteByAck(PacketStore& store, std::int32_t selected, bool same) {
  const std::optional<TcpNumbers> mine = SelectedNumbers(store, selected);
  if (!mine) return std::nullopt;
  std::vector<std::int32_t> doomed;
  ForEachTcpSlot(store, [&](std::int32_t index, TcpNumbers n) {
    if ((n.acknowledgement == mine->acknowledgement) == same && store.RowOfIndex(index)) {
      doomed.push_back(index);
    }
  });
  return store.DeleteMany(doomed);
}

}  // namespace vormelt
