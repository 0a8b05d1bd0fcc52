// vormelt-cli codec as users run it: standard input in, the result out byte for byte, exit
// status 2 with one line on stderr for a bad command line.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/process.hpp"
#include "tools/codec.hpp"
#include "tools/codec_stream.hpp"

namespace vormelt {
namespace {

using CliRun = test::ProcessRun;

// `arguments` are blank-separated words after "codec"; `input` goes to standard input.
CliRun RunCodec(const std::string& arguments, std::string_view input) {
  std::vector<std::string> words{"codec"};
  std::istringstream split(arguments);
  for (std::string word; split >> word;) words.push_back(word);
  return test::RunCli(std::move(words), input);
}

TEST(CliCodec, WritesTheResultWithNothingAdded) {
  const CliRun md5 = RunCodec("--in text --out md5", "abc");
  EXPECT_EQ(md5.status, 0);
  EXPECT_EQ(md5.out, "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5.err, "");
  // "xxx" is "eHh4": 48 bytes make one full line of 64, which ends with CR LF.
  std::string line;
  for (int i = 0; i < 16; ++i) line += "eHh4";
  EXPECT_EQ(RunCodec("--out base64 --clean --in text", std::string(48, 'x')).out, line + "\r\n");
}

TEST(CliCodec, BinaryInputAndOutputPassUntouched) {
  const std::string binary("\0\x01\xff\r\n\x1a", 6);
  EXPECT_EQ(RunCodec("--in text --out hex", binary).out, "0001FF0D0A1A");
  EXPECT_EQ(RunCodec("--in hex --out text --null-to-space", "00 01 FF 0D 0A 1A").out,
            std::string(" \x01\xff\r\n\x1a", 6));
  // Nothing decoded: nothing written, and that is no error.
  const CliRun empty = RunCodec("--in base64 --out text", "====\n");
  EXPECT_EQ(empty.status, 0);
  EXPECT_EQ(empty.out, "");
}

TEST(CliCodec, LargeInputsMatchTheEngineInBothReadingPaths) {
  std::mt19937_64 rng(11);
  std::string data(3 * tools::StreamConverter::kPieceBytes + 5, '\0');
  for (char& c : data) c = static_cast<char>(rng());
  // The command converts piece by piece; the window's one-shot conversion is the reference.
  const std::string base64 = tools::Convert(data, tools::InputType::Text, tools::OutputType::Base64).output;
  EXPECT_EQ(RunCodec("--in text --out base64", data).out, base64);
  const CliRun back = RunCodec("--in base64 --out md5", base64);
  EXPECT_EQ(back.out, tools::Convert(data, tools::InputType::Text, tools::OutputType::Md5).output);
}

TEST(CliCodec, BadCommandLinesExitWithStatusTwoAndOneLine) {
  for (const char* arguments : {"--in text", "--in octal --out hex", "--in text --out hex --wrap",
                                "--in text --out"}) {
    SCOPED_TRACE(arguments);
    const CliRun run = RunCodec(arguments, "abc");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    ASSERT_FALSE(run.err.empty());
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1);
  }
}

}  // namespace
}  // namespace vormelt
