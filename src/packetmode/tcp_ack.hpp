// Navigation among the TCP packets of the store that carry the same acknowledgement number,
// and the two deletes by acknowledgement. Slots are walked in store order; the choice and tie
// rules of each command are kept exactly, limits included (see tcp_ack.cpp).
#pragma once

#include <cstdint>
#include <optional>

#include "packets/store.hpp"

namespace vormelt {

// Data present, at least 40 network bytes, EtherType IPv4 (the protocol byte is not looked at:
// the commands are only offered on TCP rows), or IPv6 whose extension chain leads to a whole
// TCP header.
bool IsValidTcpSlot(PacketRef packet);

struct TcpNumbers {
  std::uint32_t sequence = 0;
  std::uint32_t acknowledgement = 0;
};
// nullopt unless IsValidTcpSlot.
std::optional<TcpNumbers> TcpNumbersOf(PacketRef packet);

enum class AckMove : std::uint8_t { Next, Previous, First, Last };

enum class AckOutcome : std::uint8_t {
  InvalidTcp,       // the selected packet is not valid TCP
  NothingFound,
  AlreadySelected,  // First/Last: the selected slot is the one chosen
  Gone,             // found, but the slot has no list row
  Found,
};

struct AckResult {
  AckOutcome outcome = AckOutcome::NothingFound;
  std::int32_t index = -1;  // Gone, Found, AlreadySelected
};

// One search from `selected`. The store is read under its lock in slices.
AckResult FindSameAck(const PacketStore& store, std::int32_t selected, AckMove move);

// The "Packet gone" answer Yes: the slot's packet is freed so the next search passes it over.
void FreeGoneSlot(PacketStore& store, std::int32_t index);

// Deletes the listed valid TCP packets whose acknowledgement equals (`same`) or differs from
// the selected one's. nullopt when the selected packet is not valid TCP; else the count.
std::optional<std::size_t> DeleteByAck(PacketStore& store, std::int32_t selected, bool same);

}  // namespace vormelt
