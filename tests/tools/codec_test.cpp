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

using test::Bytes;
using test::RandomBytes;

// The converted text; a conversion that ends otherwise fails the test.
std::string Converted(std::string_view input, InputType in, OutputType out, CodecOptions options = {}) {
  const ConversionResult result = Convert(input, in, out, options);
  EXPECT_EQ(result.status, ConversionStatus::Converted) << "input: " << input;
  return result.output;
}

TEST(CodecDecode, HexSkipsEveryNonDigitAndPadsALoneLastDigit) {
  EXPECT_EQ(Converted("48 65 6c 6c 6f", InputType::Hex, OutputType::Text), "Hello");
  EXPECT_EQ(Converted("48:65\r\n6C-6c_6F", InputType::Hex, OutputType::Text), "Hello");
  EXPECT_EQ(Converted("ABC", InputType::Hex, OutputType::Hex), "ABC0");
  // Only the x goes: the 0 of a "0x" prefix is a digit like any other.
  EXPECT_EQ(Converted("0x41", InputType::Hex, OutputType::Hex), "0410");
}

TEST(CodecDecode, Base64IgnoresLineBreaksPaddingAndStrayCharacters) {
  const std::string clean = Converted("SGVsbG8sIFdvcmxkIQ==", InputType::Base64, OutputType::Text);
  EXPECT_EQ(clean, "Hello, World!");
  EXPECT_EQ(Converted("SGVsbG8s\r\nIFdv cmxk\nIQ", InputType::Base64, OutputType::Text), clean);
  // Tails: 2 characters give one byte, 3 give two, a single one gives nothing.
  EXPECT_EQ(Converted("QUJD" "QQ", InputType::Base64, OutputType::Hex), "41424341");
  EXPECT_EQ(Converted("QUJD" "QUI", InputType::Base64, OutputType::Hex), "4142434142");
  EXPECT_EQ(Converted("QUJD" "Q", InputType::Base64, OutputType::Hex), "414243");
  // "=" in the middle is just another skipped character.
  EXPECT_EQ(Converted("QQ==QQ==", InputType::Base64, OutputType::Hex), "410410");
}

TEST(CodecEncode, CleanHexBreaksAfterSixteenBytesWithoutTrailingSpace) {
  std::vector<std::uint8_t> data(17);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 0x11);
  EXPECT_EQ(EncodeHex(data, true),
            "00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF\r\n10");
  EXPECT_EQ(EncodeHex(std::span(data).first(16), true),
            "00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF\r\n");
  EXPECT_EQ(EncodeHex(std::span(data).first(3), false), "001122");
}

TEST(CodecEncode, CleanBase64BreaksEverySixtyFourCharactersPaddingIncluded) {
  const auto data = RandomBytes(97, 2);
  const std::string plain = EncodeBase64(data, false);
  ASSERT_EQ(plain.size(), 132u);
  EXPECT_EQ(EncodeBase64(data, true), plain.substr(0, 64) + "\r\n" + plain.substr(64, 64) + "\r\n" + plain.substr(128));
  // 48 bytes fill exactly one line, which still ends with its break.
  EXPECT_EQ(EncodeBase64(std::span(data).first(48), true), plain.substr(0, 64) + "\r\n");
  // 47 bytes: the padding is the 64th character.
  const std::string padded = EncodeBase64(std::span(data).first(47), true);
  EXPECT_EQ(padded.substr(63), "=\r\n");
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

TEST(CodecConvert, NothingDecodedClearsTheOutputExceptForMd5) {
  EXPECT_EQ(Convert("", InputType::Text, OutputType::Hex).status, ConversionStatus::Empty);
  EXPECT_EQ(Convert("zz = !", InputType::Hex, OutputType::Text).status, ConversionStatus::Empty);
  EXPECT_EQ(Converted("zz", InputType::Hex, OutputType::Md5), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Converted("61 62 63", InputType::Hex, OutputType::Md5), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(CodecConvert, ABufferBeyondTheMemoryLimitFailsLikeAnAllocation) {
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
std::string MixedInput(std::mt19937_64& rng, std::size_t size) {
  static const std::string_view kParts[] = {"0", "7", "a", "F", "Q", "+", "/", "=", " ", "\r\n", std::string_view("\0", 1),
                                            "ü", "€", "\xF0\x9F\x98\x80", "\xE2\x82", "\xFF", "z"};
  std::string text;
  while (text.size() < size) text += kParts[rng() % std::size(kParts)];
  return text;
}

TEST(CodecStream, PiecesOfAnySizeGiveWhatTheWholeConversionGives) {
  std::mt19937_64 rng(21);
  for (int round = 0; round < 600; ++round) {
    const std::string input = MixedInput(rng, rng() % 300);
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

TEST(CodePage, AsciiOptionConvertsBetweenUtf8AndCp437) {
  CodecOptions ascii;
  ascii.asciiText = true;
  ascii.cleanOutput = true;
  EXPECT_EQ(Converted("Grüße", InputType::Text, OutputType::Hex, ascii), "47 72 81 E1 65");
  EXPECT_EQ(Converted("Grüße", InputType::Text, OutputType::Text, ascii), "Grüße");
  EXPECT_EQ(Converted("81 E1", InputType::Hex, OutputType::Text, ascii), "üß");
  // Without the option the same bytes reach the output untouched.
  EXPECT_EQ(Converted("81 E1", InputType::Hex, OutputType::Text), "\x81\xE1");
}

TEST(CodePage, EveryCp437ByteSurvivesTheRoundTrip) {
  std::string all(256, '\0');
  for (int i = 0; i < 256; ++i) all[i] = static_cast<char>(i);
  const std::string utf8 = OemToSystem(all);
  EXPECT_EQ(std::count(utf8.begin(), utf8.end(), '?'), 1);  // only the one for 0x3F
  EXPECT_EQ(SystemToOem(utf8), all);
}

TEST(CodePage, NothingIsDroppedSilently) {
  // A character CP437 lacks is one '?'; a malformed UTF-8 byte is read as Latin-1 (é = 0x82),
  // and a truncated sequence at the end still yields a byte.
  EXPECT_EQ(SystemToOem("a€b"), "a?b");
  EXPECT_EQ(SystemToOem("\xE9t\xC3"), "\x82t?");
  // An encoded surrogate is malformed: its three bytes are three Latin-1 characters
  // (í, no-break space, and a C1 control that CP437 lacks).
  EXPECT_EQ(SystemToOem("\xC3\xA9\xED\xA0\x80"), "\x82\xA1\xFF?");
}

}  // namespace
}  // namespace vormelt::tools
