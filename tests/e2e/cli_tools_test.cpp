// vormelt-cli codec and names as users run them: standard input in, the result out byte for
// byte (table texts with their trailing blanks and UTF-8 filler), exit status 2 with one line on
// stderr for a bad command line.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <utility>
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

TEST(CliCodec, WritesTheResultWithNothingAddedAndBinaryPassesUntouched) {
  const CliRun md5 = RunCodec("--in text --out md5", "abc");
  EXPECT_EQ(md5.out, "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_TRUE(md5.status == 0 && md5.err.empty()) << md5.err;
  const std::string binary("\0\x01\xff\r\n\x1a", 6);
  EXPECT_EQ(RunCodec("--in text --out hex", binary).out, "0001FF0D0A1A");
  EXPECT_EQ(RunCodec("--in hex --out text --null-to-space", "00 01 FF 0D 0A 1A").out,
            std::string(" \x01\xff\r\n\x1a", 6));
}

TEST(CliCodec, LargeInputsMatchTheEngineInBothReadingPaths) {
  std::mt19937_64 rng(11);
  std::string data(3 * tools::StreamConverter::kPieceBytes + 5, '\0');
  for (char& c : data) c = static_cast<char>(rng());
  // The command converts piece by piece; the window's one-shot conversion is the reference.
  const std::string base64 = tools::Convert(data, tools::InputType::Text, tools::OutputType::Base64).output;
  EXPECT_EQ(RunCodec("--in text --out base64", data).out, base64);
  EXPECT_EQ(RunCodec("--in base64 --out md5", base64).out, tools::Convert(data, tools::InputType::Text, tools::OutputType::Md5).output);
}

TEST(CliCodec, BadCommandLinesExitWithStatusTwoAndOneLine) {
  for (const char* arguments : {"--in text", "--in octal --out hex", "--in text --out hex --wrap",
                                "--in text --out"}) {
    const CliRun run = RunCodec(arguments, "abc");
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << arguments;  // one line, not empty
  }
}

TEST(CliNames, PrintsTableTextsByteForByte) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"names", "vendor", "00-00-03-aa-bb-cc"}, "XEROX CORPORATION\n"},
      {{"names", "tcp", "1"}, "Port Service Multiplexer\n"},
      {{"names", "proto", "35"}, "IDPR \n"},  // the table's own trailing blank stays
      {{"names", "proto", "200"}, "\xC2\xBF?\n"},  // the filler character arrives as UTF-8
      {{"names", "proto", "58"}, "ICMPv6\n"},
      {{"names", "vendor", "08:00:30"}, "NETWORK RESEARCH CORPORATION\n"},  // first of three
      {{"names", "vendor", "12:34:56"}, "_Unknown vendor code_\n"},
      {{"names", "ethertype", "34902"}, "bootstrap/config\n"},  // 0x8856: the later entry wins
  };
  for (const auto& [words, expected] : cases) {
    const CliRun run = test::RunCli(words);
    EXPECT_EQ(run.out, expected) << words[1] << " " << words[2] << run.err;
  }
}

}  // namespace
}  // namespace vormelt
