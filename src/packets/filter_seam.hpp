// The seam through which the packet store asks a packet filter whether to keep a frame.
// The store knows only this interface; the filter engine (filters/) implements it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vormelt {

// The two texts a kept packet's list row shows: which text filters were in force.
struct FilterColumnTexts {
  std::string mustContain;     // list column 7
  std::string mustNotContain;  // list column 8
};

class PacketFilterSeam {
 public:
  virtual ~PacketFilterSeam() = default;
  // Whether the store asks Passes() at all ("Apply filters to incoming packets").
  virtual bool Enabled() const = 0;
  // True keeps the frame. `frame` is the Ethernet header of a record (spare bytes follow it);
  // `frameLength` includes the 14 header bytes. Called on the receive thread.
  virtual bool Passes(const std::uint8_t* frame, std::uint32_t frameLength) = 0;
  // The column texts of a frame kept by this filter, as they are now. Shared between rows
  // until the filter changes, so a million kept packets do not hold a million copies.
  virtual std::shared_ptr<const FilterColumnTexts> ColumnTexts() = 0;
};

}  // namespace vormelt
