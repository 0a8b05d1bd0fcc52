// The manual pages keep up with the programs: every option `vormelt-cli --help` lists, and every
// word of the desktop program's -help text, is described in its page.
#include <gtest/gtest.h>

#include <filesystem>
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

// Tab after "vormelt-cli pa" gives "packets", and every option of the help text can be completed.
TEST(Manual, BashCompletionKnowsTheCommandsAndOptions) {
  if (!std::filesystem::exists("/usr/share/bash-completion/bash_completion")) {
    GTEST_SKIP() << "bash-completion is not installed";
  }
  const std::string script = std::string(VORMELT_SOURCE_DIR) + "/packaging/completion/vormelt-cli";
  int status = -1;
  const std::string offered = test::ShellOutput(
      "bash -c 'source /usr/share/bash-completion/bash_completion; source \"" + script + "\"; "
      "COMP_WORDS=(vormelt-cli pa); COMP_CWORD=1; COMP_LINE=\"vormelt-cli pa\"; "
      "COMP_POINT=${#COMP_LINE}; _vormelt_cli; echo \"${COMPREPLY[*]}\"'", &status);
  EXPECT_EQ(offered, "packets\n");
  std::ifstream in(script);
  std::ostringstream text;
  text << in.rdbuf();
  const test::ProcessRun help = test::RunCli({"--help"});
  for (const std::string& option : Matches(help.out, std::regex(R"((--[a-z0-9][a-z0-9-]*[a-z0-9])(?![-*a-z0-9]))"))) {
    if (option == "--help" || option == "--version") continue;
    EXPECT_NE(text.str().find(option), std::string::npos) << option << " is not completed";
  }
}

}  // namespace
}  // namespace vormelt
