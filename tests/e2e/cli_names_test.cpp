// vormelt-cli names as a user runs it: output bytes, exit status and the one-line errors.
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "support/process.hpp"

namespace {

using Run = vormelt::test::ProcessRun;

// Runs vormelt-cli without a shell, so arguments reach the program exactly as given.
Run RunCli(std::initializer_list<std::string> words) {
  return vormelt::test::RunCli(std::vector<std::string>(words));
}

void ExpectPrints(std::initializer_list<std::string> words, const std::string& expected) {
  const Run run = RunCli(words);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, expected);
  EXPECT_EQ(run.err, "");
}

void ExpectRejected(std::initializer_list<std::string> words) {
  const Run run = RunCli(words);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << "one line expected: " << run.err;
}

TEST(CliNames, PrintsTableTexts) {
  ExpectPrints({"names", "vendor", "00:0C:29"}, "VMWARE, INC.\n");
  ExpectPrints({"names", "vendor", "00-00-03-aa-bb-cc"}, "XEROX CORPORATION\n");
  ExpectPrints({"names", "tcp", "1"}, "Port Service Multiplexer\n");
  ExpectPrints({"names", "udp", "0x5"}, "Remote Job Entry\n");
  ExpectPrints({"names", "proto", "35"}, "IDPR \n");
  ExpectPrints({"names", "proto", "0"}, "\n");
  ExpectPrints({"names", "ethertype", "0x0800"}, "DoD Internet Protocol (IP)\n");
  ExpectPrints({"names", "ethertype", "34525"}, "IP version 6\n");
}

TEST(CliNames, ProtocolFillerIsConvertedToUtf8) {
  ExpectPrints({"names", "proto", "200"}, "\xC2\xBF?\n");
}

TEST(CliNames, MissingEntriesPrintTheUnknownTexts) {
  ExpectPrints({"names", "udp", "60000"}, "Unknown\n");
  ExpectPrints({"names", "tcp", "65535"}, "Unknown\n");
  ExpectPrints({"names", "ethertype", "0xFF00"}, "Unknown\n");
  ExpectPrints({"names", "vendor", "12:34:56"}, "_Unknown vendor code_\n");
}

TEST(CliNames, BadValuesAndWordsAreRejected) {
  ExpectRejected({"names", "proto", "256"});
  ExpectRejected({"names", "proto", "-1"});
  ExpectRejected({"names", "tcp", "65536"});
  ExpectRejected({"names", "tcp", "0x"});
  ExpectRejected({"names", "udp", "12ab"});
  ExpectRejected({"names", "ethertype", "0x10000"});
  ExpectRejected({"names", "ethertype", " 8"});
  ExpectRejected({"names", "vendor", "00:0C"});
  ExpectRejected({"names", "vendor", "00:0C:2Z"});
  ExpectRejected({"names", "port", "80"});
  ExpectRejected({"names", "tcp"});
  ExpectRejected({"names", "tcp", "80", "extra"});
  ExpectRejected({"names"});
}

}  // namespace
