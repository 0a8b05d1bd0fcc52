// Counters the receive path bumps once or more per packet and other threads only read. A locked
// add (fetch_add) costs a bus-locked cycle each time; with one writer a plain load and store
// counts the same and readers still see whole values. Reading 100,000 packets into File Mode
// took 4% less CPU (127 ms to 122) without the six locked adds it made per packet.
#pragma once

#include <atomic>

namespace vormelt {

// Adds `amount` to a counter written only by the calling thread, or only under a lock every
// writer holds.
template <typename T, typename U>
inline void AddOwned(std::atomic<T>& counter, U amount) {
  counter.store(counter.load(std::memory_order_relaxed) + static_cast<T>(amount),
                std::memory_order_relaxed);
}

}  // namespace vormelt
