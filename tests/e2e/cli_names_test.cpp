// vormelt-cli names as a user runs it: output bytes, exit status and the one-line errors. The
// tables themselves are tested with the packets.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/process.hpp"

namespace {

using CliRun = vormelt::test::ProcessRun;

// Runs "vormelt-cli names WORDS..." without a shell, so arguments arrive exactly as given.
CliRun RunCli(std::vector<std::string> words) {
  words.insert(words.begin(), "names");
  return vormelt::test::RunCli(std::move(words));
}

TEST(CliNames, PrintsTableTexts) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"vendor", "00-00-03-aa-bb-cc"}, "XEROX CORPORATION\n"},
      {{"tcp", "1"}, "Port Service Multiplexer\n"},
      {{"proto", "35"}, "IDPR \n"},  // the table's own trailing blank stays
      {{"proto", "200"}, "\xC2\xBF?\n"},  // the filler character arrives as UTF-8
      {{"ethertype", "34525"}, "IP version 6\n"},
      {{"vendor", "12:34:56"}, "_Unknown vendor code_\n"},
  };
  for (const auto& [words, expected] : cases) {
    const CliRun run = RunCli(words);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, expected) << words[0] << " " << words[1];
    EXPECT_EQ(run.err, "");
  }
}

TEST(CliNames, BadValuesAndWordsAreRejected) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"proto", "256"}, {"proto", "-1"}, {"tcp", "0x"}, {"ethertype", " 8"},
           {"vendor", "00:0C:2Z"}, {"port", "80"}, {"tcp", "80", "extra"}, {}}) {
    const CliRun run = RunCli(words);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    ASSERT_FALSE(run.err.empty());
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << "one line expected: " << run.err;
  }
}

}  // namespace
