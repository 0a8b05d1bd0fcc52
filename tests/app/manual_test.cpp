// The manual pages keep up with the programs: every option `vormelt-cli --help` lists, and every
// word of the desktop program's -help text, is described in its page.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "common/texts.hpp"
#include "support/process.hpp"

namespace vormelt {
namespace {

// The page's source as a reader sees it: scdoc's escapes taken out.
std::string PageText(const std::string& name) {
  std::ifstream in(std::string(VORMELT_SOURCE_DIR) + "/packaging/man/" + name + ".1.scd");
  std::ostringstream text;
  text << in.rdbuf();
  std::string page = text.str();
  std::erase(page, '\\');
  return page;
}

std::set<std::string> Matches(const std::string& text, const std::regex& pattern) {
  std::set<std::string> found;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it) {
    found.insert((*it)[1]);
  }
  return found;
}

TEST(Manual, EveryOptionOfTheHelpTextsIsInItsPage) {
  const test::ProcessRun help = test::RunCli({"--help"});
  ASSERT_EQ(help.status, 0);
  const std::set<std::string> cliOptions = Matches(help.out, std::regex(R"((--[a-z0-9][a-z0-9-]*[a-z0-9])(?![-*a-z0-9]))"));
  ASSERT_GT(cliOptions.size(), 40u);
  const std::string cliPage = PageText("vormelt-cli");
  for (const std::string& option : cliOptions) {
    EXPECT_NE(cliPage.find("*" + option + "*"), std::string::npos) << option << " is not in vormelt-cli.1";
  }
  for (const char* command : {"names", "packets", "stats", "files", "codec", "service", "settings"}) {
    EXPECT_NE(cliPage.find(std::string("## ") + command), std::string::npos) << command;
  }

  const std::string programHelp(English(Text::CommandLineHelp));
  const std::set<std::string> words = Matches(programHelp, std::regex(R"(\n(-?[a-z_?]+) )"));
  ASSERT_GT(words.size(), 10u);
  const std::string programPage = PageText("vormelt");
  for (const std::string& word : words) {
    EXPECT_NE(programPage.find("*" + word + "*"), std::string::npos) << word << " is not in vormelt.1";
  }
}

}  // namespace
}  // namespace vormelt
