// The header scan is deliberately narrow and always the same: the status line alone decides
// whether a stream is a file at all, only a CR LF header block is searched (a bare-LF response
// keeps "txt" and no type), and the search starts at character 17.
#include "filemode/http_response.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace vormelt::filemode {
namespace {

constexpr std::size_t kStatusLength = 12;
constexpr std::string_view kHttp11Ok = "HTTP/1.1 200";
constexpr std::string_view kHttp10Ok = "HTTP/1.0 200";
constexpr std::string_view kHttp11Partial = "HTTP/1.1 206";
constexpr std::array<std::string_view, 4> kCompressedEncodings = {"GZIP", "X-GZIP", "COMPRESS",
                                                                  "X-COMPRESS"};

char Upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

std::string Transformed(std::string_view text, char (*change)(char)) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), change);
  return out;
}

// True when `data` begins with one of the accepted status texts, or with the start of one when
// `prefixDoes` and it is shorter.
bool StartsFileStatus(std::string_view data, bool acceptPartial, bool prefixDoes) {
  if (data.size() < kStatusLength && !prefixDoes) return false;
  const std::string status = Transformed(data.substr(0, kStatusLength), Upper);
  const auto starts = [&](std::string_view accepted) { return accepted.starts_with(status); };
  return starts(kHttp11Ok) || starts(kHttp10Ok) || (acceptPartial && starts(kHttp11Partial));
}

// Finds `name` (upper case) in the upper-cased header block from the scan start.
std::optional<std::string> FindHeader(std::string_view upperBlock, std::string_view original,
                                      std::string_view name) {
  if (upperBlock.size() <= kHeaderScanStart) return std::nullopt;
  const std::size_t at = upperBlock.find(name, kHeaderScanStart);
  if (at == std::string_view::npos) return std::nullopt;
  return HeaderValue(original, at);
}

void ReadHeaders(std::string_view block, HttpResponse& response) {
  const std::string upper = Transformed(block, Upper);
  if (const auto encoding = FindHeader(upper, upper, "CONTENT-ENCODING:")) {
    response.compressed = std::find(kCompressedEncodings.begin(), kCompressedEncodings.end(),
                                    *encoding) != kCompressedEncodings.end();
  }
  if (const auto transfer = FindHeader(upper, upper, "TRANSFER-ENCODING:")) {
    response.chunked = *transfer == "CHUNKED";
  }
  const std::string lower = Transformed(block, Lower);
  if (const auto type = FindHeader(upper, lower, "CONTENT-TYPE:")) {
    response.contentType = *type;
    if (const std::size_t slash = type->find('/'); slash != std::string::npos) {
      response.extension = type->substr(slash + 1);
    }
  }
  if (const auto length = FindHeader(upper, upper, "CONTENT-LENGTH:")) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(length->data(), length->data() + length->size(), value);
    if (error == std::errc() && end != length->data()) response.contentLength = value;
  }
}

}  // namespace

std::string HeaderValue(std::string_view text, std::size_t at) {
  std::size_t pos = text.find_first_of(" \t:", std::min(at, text.size()));
  if (pos == std::string_view::npos) return {};
  if (text[pos] == ':') ++pos;
  while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
  std::string value;
  while (pos < text.size() && value.size() + 1 < kHeaderValueLimit) {
    const char c = text[pos++];
    if (c == '\r' || c == '\n' || c == ';') break;
    value.push_back(c);
  }
  return value;
}

bool MayStartFileResponse(std::span<const std::uint8_t> payload, bool acceptPartial) {
  return StartsFileStatus({reinterpret_cast<const char*>(payload.data()), payload.size()},
                          acceptPartial, true);
}

std::optional<HttpResponse> RecognizeHttp(std::span<const std::uint8_t> data, bool acceptPartial) {
  const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
  if (!StartsFileStatus(text, acceptPartial, false)) return std::nullopt;
  HttpResponse response;
  response.extension = "txt";
  if (const std::size_t end = text.find("\r\n\r\n"); end != std::string_view::npos) {
    response.bodyOffset = end + 4;
    ReadHeaders(text.substr(0, end), response);
    return response;
  }
  if (const std::size_t end = text.find("\n\n"); end != std::string_view::npos) {
    // A bare-LF header block is never searched: such responses keep "txt" and no type.
    response.bodyOffset = end + 2;
    response.crlfStyle = false;
    return response;
  }
  return std::nullopt;
}

bool ForEachChunk(std::span<const std::uint8_t> data, std::size_t offset,
                  const std::function<void(std::span<const std::uint8_t>)>& take) {
  const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
  std::size_t pos = offset;
  bool framed = true;  // every chunk so far ended with its CR LF
  while (pos < text.size()) {
    std::uint64_t size = 0;
    const char* begin = text.data() + pos;
    const auto [stop, error] = std::from_chars(begin, text.data() + text.size(), size, 16);
    if (error != std::errc() || stop == begin) return false;
    if (size == 0) return framed;
    pos = text.find('\r', pos);
    if (pos == std::string_view::npos) return false;
    // The chunk and its CR LF must lie wholly inside what arrived.
    if (size >= text.size() || pos + 2 > text.size() || text.size() - pos - 2 <= size) {
      return false;
    }
    take(data.subspan(pos + 2, static_cast<std::size_t>(size)));
    pos += 2 + static_cast<std::size_t>(size);
    // The two bytes after the data are stepped over whatever they are, as the sizes have
    // always been read; a body whose chunks lack them is written but not called whole.
    framed = framed && text.substr(pos, 2) == "\r\n";
    pos += 2;
  }
  return false;
}

}  // namespace vormelt::filemode
