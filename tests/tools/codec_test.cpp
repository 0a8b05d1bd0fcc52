// The encoder tool's conversions: decoding rules that forgive foreign characters, the clean
// output layouts, the empty-result rule, the memory limit, piecewise conversion, the CP437
// option, and openssl as an oracle for Base64. The fuzz target checks the decoders' bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tools/code_page.hpp"
#include "tools/codec.hpp"
#include "tools/codec_stream.hpp"
#include "tools/tools_test_support.hpp"

namespace vormelt::tools {
namespace {

using test::RandomBytes;

// The converted text; a conversion that ends otherwise fails the test.
std::string Converted(std::string_view input, InputType in, OutputType out, CodecOptions options = {}) {
  const ConversionResult result = Convert(input, in, out, options);
  EXPECT_EQ(result.status, ConversionStatus::Converted) << "input: " << input;
  return result.output;
}

TEST(CodecDecode, ForeignCharactersAreSkippedAndTailsKept) {
  EXPECT_EQ(Converted("48:65\r\n6C-6c_6F", InputType::Hex, OutputType::Text), "Hello");
  EXPECT_EQ(Converted("0x41", InputType::Hex, OutputType::Hex), "0410");  // a lone last digit is padded
  EXPECT_EQ(Converted("SGVsbG8s\r\nIFdv cmxk\nIQ", InputType::Base64, OutputType::Text), "Hello, World!");
  // Base64 tails: 2 characters give one byte, 3 give two, a single one gives nothing; "=" in the
  // middle is just another skipped character.
  EXPECT_EQ(Converted("QUJD" "QUI", InputType::Base64, OutputType::Hex), "4142434142");
  EXPECT_EQ(Converted("QUJD" "Q", InputType::Base64, OutputType::Hex), "414243");
  EXPECT_EQ(Converted("QQ==QQ==", InputType::Base64, OutputType::Hex), "410410");
}

TEST(CodecEncode, CleanOutputBreaksLinesWithoutTrailingSpacesPaddingIncluded) {
  std::vector<std::uint8_t> data(17, 0xAB);
  EXPECT_EQ(EncodeHex(data, true), "AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB\r\nAB");
  const auto random = RandomBytes(97, 2);
  const std::string plain = EncodeBase64(random, false);
  EXPECT_EQ(EncodeBase64(random, true),
            plain.substr(0, 64) + "\r\n" + plain.substr(64, 64) + "\r\n" + plain.substr(128));
  EXPECT_EQ(EncodeBase64(std::span(random).first(47), true).substr(63), "=\r\n");  // padding is the 64th
}

TEST(CodecEncode, Base64MatchesOpensslAndDecodesItsWrappedForm) {
  if (!test::OpensslAvailable()) GTEST_SKIP() << "openssl is not installed; it is the oracle here";
  for (std::size_t n : {1u, 2u, 3u, 46u, 47u, 48u, 49u, 50u, 1000u, 65537u, (2u << 20) + 1u}) {
    const auto data = RandomBytes(n, n + 100);
    // openssl breaks lines every 64 characters with LF; without those it is the one-line form.
    const auto wrapped = test::Openssl("base64", data);
    ASSERT_TRUE(wrapped) << n;
    std::string oneLine = *wrapped;
    std::erase(oneLine, '\n');
    ASSERT_EQ(EncodeBase64(data, false), oneLine) << n << " bytes";
    std::vector<std::uint8_t> decoded(DecodedCapacity(InputType::Base64, wrapped->size()));
    decoded.resize(DecodeBase64(*wrapped, decoded));
    ASSERT_EQ(decoded, data) << n << " bytes";
  }
}

TEST(CodecConvert, NothingDecodedClearsAndTooLargeABufferFailsLikeAnAllocation) {
  EXPECT_EQ(Convert("zz = !", InputType::Hex, OutputType::Text).status, ConversionStatus::Empty);
  EXPECT_EQ(Converted("zz", InputType::Hex, OutputType::Md5), "d41d8cd98f00b204e9800998ecf8427e");
  CodecOptions options;
  options.memoryLimit = WorkingBufferSize(InputType::Hex, OutputType::Hex, 6);
  EXPECT_EQ(Converted("414243", InputType::Hex, OutputType::Hex, options), "414243");
  options.memoryLimit -= 1;
  const ConversionResult result = Convert("414243", InputType::Hex, OutputType::Hex, options);
  EXPECT_EQ(result.status, ConversionStatus::OutOfMemory);
  EXPECT_TRUE(result.output.empty());
}

// Input drawn from characters that matter to every decoder: hex digits, the Base64 alphabet,
// separators, zero bytes and the pieces of multi-byte UTF-8 characters.
TEST(CodecStream, PiecesOfAnySizeGiveWhatTheWholeConversionGives) {
  static const std::string_view kParts[] = {"0", "7", "a", "F", "Q", "+", "/", "=", " ", "\r\n", std::string_view("\0", 1),
                                            "ü", "€", "\xF0\x9F\x98\x80", "\xE2\x82", "\xFF", "z"};
  std::mt19937_64 rng(21);
  for (int round = 0; round < 600; ++round) {
    std::string input;
    for (const std::size_t size = rng() % 300; input.size() < size;) input += kParts[rng() % std::size(kParts)];
    const auto in = static_cast<InputType>(round % 3);
    const auto out = static_cast<OutputType>(round / 3 % 4);
    CodecOptions options;
    options.asciiText = rng() % 2;
    options.cleanOutput = rng() % 2;
    options.nullToSpace = rng() % 2;
    StreamConverter stream(in, out, options);
    std::string joined;
    for (std::size_t at = 0; at < input.size();) {
      const std::size_t take = std::min<std::size_t>(1 + rng() % 40, input.size() - at);
      stream.Feed(std::string_view(input).substr(at, take), joined);
      at += take;
    }
    stream.Finish(joined);
    ASSERT_EQ(joined, Convert(input, in, out, options).output)
        << "round " << round << ", input " << ::testing::PrintToString(input);
  }
}

TEST(CodePage, EveryCp437ByteSurvivesTheRoundTripAndNothingIsDroppedSilently) {
  std::string all(256, '\0');
  for (int i = 0; i < 256; ++i) all[i] = static_cast<char>(i);
  const std::string utf8 = OemToSystem(all);
  EXPECT_EQ(std::count(utf8.begin(), utf8.end(), '?'), 1);  // only the one for 0x3F
  EXPECT_EQ(SystemToOem(utf8), all);
  // A character CP437 lacks is one '?'; a malformed UTF-8 byte is read as Latin-1 (é = 0x82),
  // and a truncated sequence at the end still yields a byte.
  EXPECT_EQ(SystemToOem("a€b"), "a?b");
  EXPECT_EQ(SystemToOem("\xE9t\xC3"), "\x82t?");
  // Through the codec's option, and untouched without it.
  CodecOptions ascii;
  ascii.asciiText = true;
  EXPECT_EQ(Converted("Grüße", InputType::Text, OutputType::Hex, ascii), "477281E165");
  EXPECT_EQ(Converted("81 E1", InputType::Hex, OutputType::Text, ascii), "üß");
  EXPECT_EQ(Converted("81 E1", InputType::Hex, OutputType::Text), "\x81\xE1");
}

}  // namespace
}  // namespace vormelt::tools
