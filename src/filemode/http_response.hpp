// Recognising an HTTP response in a reassembled stream and walking a chunked body. Works on
// the stream's bytes in place: nothing here reads outside the span it is given, whatever the
// headers claim, and nothing here touches files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vormelt::filemode {

// Header values are copied up to this many bytes, a terminator included.
inline constexpr std::size_t kHeaderValueLimit = 100;
// Where the header scan begins: past "HTTP/1.1 200 OK" and its CR LF.
inline constexpr std::size_t kHeaderScanStart = 17;

struct HttpResponse {
  std::size_t bodyOffset = 0;
  bool crlfStyle = true;
  bool compressed = false;  // Content-Encoding gzip / x-gzip / compress / x-compress
  bool chunked = false;     // Transfer-Encoding: chunked
  std::string contentType;  // lower case; empty when none was read
  std::string extension;    // from the type's text after "/", before the table is asked
  std::optional<std::uint64_t> contentLength;  // only for telling whether a body is whole
};

// The response in `data`, or nothing when it is not a file-bearing HTTP response: a 200 of
// HTTP/1.1 or 1.0, or a 206 of HTTP/1.1 when `acceptPartial`, whose header block ends.
std::optional<HttpResponse> RecognizeHttp(std::span<const std::uint8_t> data, bool acceptPartial);

// Whether a stream whose first payload (by sequence) is `payload` may be such a response: its
// bytes, as far as they go, begin one of the accepted status lines.
bool MayStartFileResponse(std::span<const std::uint8_t> payload, bool acceptPartial);

// The value rule shared by every header: from `at` skip to the first blank, tab or colon, step
// over a colon, skip blanks and tabs, then copy up to CR, LF, ";" or the end, at most
// kHeaderValueLimit - 1 bytes.
std::string HeaderValue(std::string_view text, std::size_t at);

// Walks a chunked body from `offset`, handing each chunk's bytes to `take`, and stops at the
// zero chunk, an unreadable size, or a chunk that does not fit. True when the zero chunk ended
// it and every chunk before it was followed by its CR LF (the body arrived whole).
bool ForEachChunk(std::span<const std::uint8_t> data, std::size_t offset,
                  const std::function<void(std::span<const std::uint8_t>)>& take);

}  // namespace vormelt::filemode
