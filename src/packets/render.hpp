// Turns stored packets into text: the summary line with its data block (saving and logging)
// and the Hex viewer's three columns. Never allocates per packet once its buffers are warm,
// and never reads outside the record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "packets/decoder.hpp"
#include "packets/record.hpp"

namespace vormelt {

// The data block that follows a summary line.
enum class DataForm : std::uint8_t { None, Text, Dec, Hex, HexText };
// The command-line words "none", "text", "dec", "hex", "hex+text".
std::optional<DataForm> ParseDataForm(std::string_view word);

// One space or four between the two IP columns.
enum class IpGap : std::uint8_t { Narrow, Wide };

struct RenderOptions {
  DataForm form = DataForm::None;
  IpGap gap = IpGap::Narrow;
  DataLevel level = DataLevel::Datalink;
};


// The pieces, each appended to `out`:
// the summary fields (no line break; the type column is the packet list's type text), ...
void AppendSummaryLine(std::string& out, PacketRef packet, IpGap gap);
// ... and the bytes in one data form (Text, Dec, Hex, Hex + Text), without the leading breaks.
void AppendDataBytes(std::string& out, std::span<const std::uint8_t> bytes, DataForm form);

// Where rendered packets go in the stream form.
class OutputSink {
 public:
  virtual ~OutputSink() = default;
  // False when the write failed; the renderer stops writing that packet.
  virtual bool Write(std::string_view bytes) = 0;
};

// Renders packets with fixed options into buffers it keeps and reuses, one for the summary and
// one for the data block, so a save or log run allocates only while the buffers grow.
class PacketRenderer {
 public:
  explicit PacketRenderer(RenderOptions options) : options_(options) {}
  const RenderOptions& options() const { return options_; }

  // Buffer form: appends lead-in, summary and data block to `out`; returns the bytes appended.
  std::size_t Append(PacketRef packet, std::string& out);
  // Stream form: writes the same parts, in that order. False on the first failed write.
  bool Write(PacketRef packet, std::FILE* file);
  bool Write(PacketRef packet, OutputSink& sink);

 private:
  template <typename Emit>
  bool Emit3(PacketRef packet, Emit&& emit);

  RenderOptions options_;
  std::string summary_;
  std::string data_;
};

// The Hex viewer's three boxes for `bytes`: offsets ("%08X" per line of 16), hex values and
// printable characters, lines joined by CR LF with no break after the last line.
struct HexViewerTexts {
  std::string offsets;
  std::string hex;
  std::string characters;
};
// False for an empty range: the viewer then leaves its boxes as they were.
bool BuildHexViewerTexts(std::span<const std::uint8_t> bytes, HexViewerTexts& out);

}  // namespace vormelt
