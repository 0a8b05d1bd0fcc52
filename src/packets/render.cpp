// Text rendering of stored packets: summary line, data blocks, pane dumps, Hex viewer columns.
// Saving and logging render millions of packets, so bytes are formatted from lookup tables
// into buffers sized up front, never with one printf per byte and never past the record.
#include "packets/render.hpp"

#include <array>
#include <cstring>

#include "packets/headers.hpp"
#include "packets/list_row.hpp"

namespace vormelt {
namespace {

constexpr std::string_view kLineBreak = "\r\n";
constexpr std::size_t kMacWidth = 17;
constexpr std::size_t kIpWidth = 15;
constexpr std::size_t kPortWidth = 5;
constexpr std::size_t kTypeWidth = 4;
constexpr std::size_t kSizeWidth = 4;
constexpr std::size_t kDecPerLine = 10;
constexpr std::size_t kHexPerLine = 16;
// "XX " for each of 16 bytes, "| ", 16 characters, CR LF.
constexpr std::size_t kHexTextLine = kHexPerLine * 3 + 2 + kHexPerLine + 2;

struct ByteTables {
  std::array<char, 512> hex{};        // two upper-case digits per byte
  std::array<char, 768> dec{};        // "%3u" per byte
  std::array<char, 256> printable{};  // the byte itself or '.'
};

constexpr ByteTables MakeTables() {
  ByteTables t;
  constexpr char digits[] = "0123456789ABCDEF";
  for (int b = 0; b < 256; ++b) {
    t.hex[2 * b] = digits[b >> 4];
    t.hex[2 * b + 1] = digits[b & 15];
    t.dec[3 * b] = b >= 100 ? static_cast<char>('0' + b / 100) : ' ';
    t.dec[3 * b + 1] = b >= 10 ? static_cast<char>('0' + b / 10 % 10) : ' ';
    t.dec[3 * b + 2] = static_cast<char>('0' + b % 10);
    const bool printable = b >= 32 && b != 127 && b != 129 && (b < 141 || b > 144);
    t.printable[b] = printable ? static_cast<char>(b) : '.';
  }
  return t;
}

constexpr ByteTables kTables = MakeTables();

// Grows `out` by `count` bytes and returns where they start.
char* Grow(std::string& out, std::size_t count) {
  const std::size_t old = out.size();
  out.resize(old + count);
  return out.data() + old;
}

char* PutHex(char* p, std::uint8_t b) {
  p[0] = kTables.hex[2 * b];
  p[1] = kTables.hex[2 * b + 1];
  return p + 2;
}

char* PutBreak(char* p) {
  p[0] = '\r';
  p[1] = '\n';
  return p + 2;
}

// Unsigned decimal digits of `value`; returns their count, written at the end of `buffer`.
std::size_t Digits(std::uint32_t value, char (&buffer)[10]) {
  std::size_t n = 0;
  do {
    buffer[sizeof buffer - 1 - n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  return n;
}

// Appends `text` right-aligned in `width` columns; longer text overflows, as printf does.
void AppendRight(std::string& out, std::string_view text, std::size_t width) {
  if (text.size() < width) out.append(width - text.size(), ' ');
  out.append(text);
}

void AppendUnsignedRight(std::string& out, std::uint32_t value, std::size_t width) {
  char buffer[10];
  const std::size_t n = Digits(value, buffer);
  AppendRight(out, std::string_view(buffer + sizeof buffer - n, n), width);
}

void AppendMac(std::string& out, PacketRef packet, bool source) {
  const std::uint8_t* mac =
      packet.kind == InterfaceKind::PacketDriver ? FrameView(packet).mac(source) : nullptr;
  if (!mac) {
    out.append(kMacWidth, ' ');
    return;
  }
  char* p = Grow(out, kMacWidth);
  for (std::size_t i = 0; i < 6; ++i) {
    p = PutHex(p, mac[i]);
    if (i != 5) *p++ = ':';
  }
}

void AppendDottedRight(std::string& out, const std::uint8_t* address) {
  char text[kIpWidth];
  std::size_t length = 0;
  for (int i = 0; i < 4; ++i) {
    char buffer[10];
    const std::size_t n = Digits(address[i], buffer);
    std::memcpy(text + length, buffer + sizeof buffer - n, n);
    length += n;
    if (i != 3) text[length++] = '.';
  }
  AppendRight(out, std::string_view(text, length), kIpWidth);
}

void AppendAddresses(std::string& out, const FrameView& frame, const PacketHeaders& headers,
                     IpGap gap) {
  const std::size_t gapWidth = gap == IpGap::Wide ? 4 : 1;
  const std::uint8_t* source = nullptr;
  const std::uint8_t* destination = nullptr;
  if (headers.ipv4) {
    source = headers.ipv4->sourceBytes();
    destination = headers.ipv4->destinationBytes();
  } else if (headers.arp) {
    // The pane's bound: against the network length, not the whole frame.
    if (const auto spots = headers.arp->Ipv4Addresses(frame.networkLength())) {
      source = headers.arp->AddressBytes(spots->sender);
      destination = headers.arp->AddressBytes(spots->target);
    }
  }
  if (source) {
    AppendDottedRight(out, source);
    out.append(gapWidth, ' ');
    AppendDottedRight(out, destination);
    return;
  }
  if (headers.ipv6) {
    // IPv6 text runs past the IPv4 column where it must; the columns after it move on.
    char text[IpAddress::kMaxTextLength];
    AppendRight(out, std::string_view(text, headers.ipv6->source().ToChars(text)), kIpWidth);
    out.append(gapWidth, ' ');
    AppendRight(out, std::string_view(text, headers.ipv6->destination().ToChars(text)), kIpWidth);
    return;
  }
  out.append(2 * kIpWidth + gapWidth, ' ');
}

// Ports from the transport header where IHL (or the IPv6 extension chain) puts it, unlike
// the list's fixed IPv4 columns.
void AppendPorts(std::string& out, const FrameView& frame, const PacketHeaders& headers) {
  std::optional<PortsView> ports;
  if (headers.ipv4) {
    if (headers.ipv4->carriesPorts()) ports = PortsView::Parse(headers.ipv4->transport());
  } else if (headers.ipv6) {
    const NetworkLayer layer = NetworkOf(*headers.ipv6, frame);
    if (layer.carriesPorts()) ports = PortsView::Parse(layer.transport);
  }
  if (!ports) {
    out.append(2 * kPortWidth + 1, ' ');
    return;
  }
  AppendUnsignedRight(out, ports->source(), kPortWidth);
  out.push_back(' ');
  AppendUnsignedRight(out, ports->destination(), kPortWidth);
}

void AppendHexText(std::string& out, std::span<const std::uint8_t> bytes) {
  const std::size_t full = bytes.size() / kHexPerLine;
  const std::size_t rest = bytes.size() % kHexPerLine;
  char* p = Grow(out, full * kHexTextLine + (rest ? kHexPerLine * 3 + 2 + rest : 0));
  for (std::size_t line = 0; line * kHexPerLine < bytes.size(); ++line) {
    const std::uint8_t* b = bytes.data() + line * kHexPerLine;
    const std::size_t n = line < full ? kHexPerLine : rest;
    for (std::size_t i = 0; i < n; ++i) {
      p = PutHex(p, b[i]);
      *p++ = ' ';
    }
    // A short last line keeps its text column aligned under the full lines.
    std::memset(p, ' ', (kHexPerLine - n) * 3);
    p += (kHexPerLine - n) * 3;
    *p++ = '|';
    *p++ = ' ';
    for (std::size_t i = 0; i < n; ++i) *p++ = kTables.printable[b[i]];
    if (n == kHexPerLine) p = PutBreak(p);
  }
}

// "XX" or "nnn" values, each followed by a space or, after every `perLine`-th, by CR LF.
template <std::size_t Width>
void AppendValues(std::string& out, std::span<const std::uint8_t> bytes, const char* table,
                  std::size_t perLine) {
  const std::size_t n = bytes.size();
  char* p = Grow(out, n * (Width + 1) + n / perLine);
  std::size_t column = 0;
  for (const std::uint8_t b : bytes) {
    std::memcpy(p, table + Width * b, Width);
    p += Width;
    if (++column == perLine) {
      p = PutBreak(p);
      column = 0;
    } else {
      *p++ = ' ';
    }
  }
}

// Removes a final CR LF: the Hex viewer's boxes have no break after their last line.
void TrimFinalBreak(std::string& text) {
  if (text.size() >= 2 && text.ends_with(kLineBreak)) text.resize(text.size() - 2);
}

}  // namespace

std::optional<DataForm> ParseDataForm(std::string_view word) {
  if (word == "none") return DataForm::None;
  if (word == "text") return DataForm::Text;
  if (word == "dec") return DataForm::Dec;
  if (word == "hex") return DataForm::Hex;
  if (word == "hex+text") return DataForm::HexText;
  return std::nullopt;
}


void AppendSummaryLine(std::string& out, PacketRef packet, IpGap gap) {
  const FrameView frame(packet);
  const PacketHeaders headers = HeadersOf(frame);
  ListTextBuffer scratch;
  AppendRight(out, ListColumnText(packet, nullptr, ListColumn::Type, scratch), kTypeWidth);
  out.push_back(' ');
  AppendUnsignedRight(out, frame.displayedSize(), kSizeWidth);
  out.append("  ");
  AppendMac(out, packet, true);
  out.append("  ");
  AppendMac(out, packet, false);
  out.append("  ");
  AppendAddresses(out, frame, headers, gap);
  out.append("  ");
  AppendPorts(out, frame, headers);
  out.append("  [");
  out.append(packet.timeText);
  out.push_back(']');
}

void AppendDataBytes(std::string& out, std::span<const std::uint8_t> bytes, DataForm form) {
  switch (form) {
    case DataForm::None: return;
    case DataForm::Text:
      out.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      return;
    case DataForm::Dec: AppendValues<3>(out, bytes, kTables.dec.data(), kDecPerLine); return;
    case DataForm::Hex: AppendValues<2>(out, bytes, kTables.hex.data(), kHexPerLine); return;
    case DataForm::HexText: AppendHexText(out, bytes); return;
  }
}

void AppendPaneDump(std::string& out, std::span<const std::uint8_t> bytes, DumpForm form) {
  switch (form) {
    case DumpForm::Text:
      // A text box ends at the first NUL, so the pane skips zero bytes instead.
      for (const std::uint8_t b : bytes) {
        if (b != 0) out.push_back(static_cast<char>(b));
      }
      return;
    case DumpForm::Dec: AppendDataBytes(out, bytes, DataForm::Dec); return;
    case DumpForm::Hex: AppendDataBytes(out, bytes, DataForm::Hex); return;
  }
}

template <typename Emit>
bool PacketRenderer::Emit3(PacketRef packet, Emit&& emit) {
  const bool withData = options_.form != DataForm::None;
  summary_.clear();
  summary_.append(kLineBreak);
  if (withData) summary_.append(kLineBreak);
  AppendSummaryLine(summary_, packet, options_.gap);
  if (!emit(std::string_view(summary_))) return false;
  if (!withData) return true;
  data_.clear();
  data_.append(kLineBreak);
  data_.append(kLineBreak);
  AppendDataBytes(data_, DataBytes(packet, options_.level), options_.form);
  return emit(std::string_view(data_));
}

std::size_t PacketRenderer::Append(PacketRef packet, std::string& out) {
  const std::size_t before = out.size();
  Emit3(packet, [&out](std::string_view part) {
    out.append(part);
    return true;
  });
  return out.size() - before;
}

bool PacketRenderer::Write(PacketRef packet, std::FILE* file) {
  return Emit3(packet, [file](std::string_view part) {
    return std::fwrite(part.data(), 1, part.size(), file) == part.size();
  });
}

bool PacketRenderer::Write(PacketRef packet, OutputSink& sink) {
  return Emit3(packet, [&sink](std::string_view part) { return sink.Write(part); });
}

bool BuildHexViewerTexts(std::span<const std::uint8_t> bytes, HexViewerTexts& out) {
  if (bytes.empty()) return false;
  out.offsets.clear();
  out.hex.clear();
  out.characters.clear();
  const std::size_t lines = (bytes.size() + kHexPerLine - 1) / kHexPerLine;
  out.offsets.reserve(lines * 10);
  for (std::size_t line = 0; line < lines; ++line) {
    char buffer[16];
    const int n = std::snprintf(buffer, sizeof buffer, "%08X\r\n",
                                static_cast<unsigned>(line * kHexPerLine));
    out.offsets.append(buffer, static_cast<std::size_t>(n));
  }
  AppendDataBytes(out.hex, bytes, DataForm::Hex);
  out.characters.reserve(lines * (kHexPerLine + 2));
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    out.characters.push_back(kTables.printable[bytes[i]]);
    if (i % kHexPerLine == kHexPerLine - 1) out.characters.append(kLineBreak);
  }
  TrimFinalBreak(out.offsets);
  TrimFinalBreak(out.hex);
  TrimFinalBreak(out.characters);
  return true;
}

}  // namespace vormelt
