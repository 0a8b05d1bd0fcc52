// Filter profiles: a full round trip through file and settings, what a damaged or foreign file
// gives, and a damaged current profile met at start-up.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>

#include "filters/filter_profile.hpp"
#include "support/pcap_file.hpp"

namespace vormelt {
namespace {

IpRange Range(std::string_view from, std::string_view to) {
  return {ParseIpv4(from).value(), ParseIpv4(to).value()};
}

FilterProfile FullProfile() {
  FilterProfile p;
  p.values.sourceInRanges = {Range("10.0.0.1", "10.0.0.9"), Range("10.1.0.0", "10.1.255.255")};
  p.values.sourceNotInRanges = {Range("10.0.0.5", "10.0.0.5")};
  p.values.destInRanges = {Range("192.168.0.0", "192.168.0.255")};
  p.values.eitherInRanges = {Range("1.1.1.1", "9.9.9.9"), *ParseIpRange("2001:db8::", "2001:db8::1:0")};
  p.values.sourceNotPorts = {1, 65535};
  p.values.destPorts = {80, 443};
  p.values.eitherPorts = {8080};
  p.values.mustContain = {"GET", " spaced ", "Gr\xC3\xBC\xC3\x9F" "e", "quote\" back\\slash"};
  p.values.mustNotContain = {"Set-Cookie"};
  p.values.extensionsDenied = {"exe", "js"};
  p.values.minPacketSize = 60;
  p.values.maxPacketSize = 4294967295u;
  p.values.allowTcp = false;
  p.window.selectedRangeKind = 3;
  p.window.fromText = "10.0.0.1";
  p.window.mustContainEntry = "typed, not added";
  p.window.geometry = WindowState{true, -20, 30, 800, 600, false, false};
  return p;
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteAll(const std::string& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
}

TEST(FilterProfile, RoundTripsThroughFileAndSettings) {
  const FilterProfile profile = FullProfile();
  test::TempDir dir;
  const std::string file = dir.File("mine.HBFP");
  ASSERT_TRUE(SaveFilterProfile(profile, file).ok());
  const ProfileResult loaded = LoadFilterProfile(file);
  ASSERT_TRUE(loaded.ok()) << loaded.detail;
  EXPECT_EQ(*loaded.profile, profile);

  FilterSettings settings;
  ApplyProfile(profile, settings);
  EXPECT_EQ(ProfileFromSettings(settings, profile.window), profile);
}

TEST(FilterProfile, GarbageIsRefusedWithTheReason) {
  struct Case {
    std::string_view text;
    ProfileProblem problem;
    std::string_view detail;
  };
  const Case cases[] = {
      {"", ProfileProblem::NotJson, ""},
      {"[1,2]", ProfileProblem::Invalid, "not an object"},
      {R"({"sourcePorts":[53]})", ProfileProblem::Invalid, "version"},
      {R"({"version":2})", ProfileProblem::TooNew, ""},
      {R"({"version":1,"eitherPorts":[65536]})", ProfileProblem::Invalid, "eitherPorts"},
      {R"({"version":1,"destInRanges":[{"from":"0.0.0.0","to":"10.0.0.1"}]})",
       ProfileProblem::Invalid, "destInRanges"},
      {R"({"version":1,"destInRanges":[{"from":"10.0.0.1","to":"::1"}]})",
       ProfileProblem::Invalid, "destInRanges"},
      {R"({"version":1,"window":{"selectedRangeKind":5}})", ProfileProblem::Invalid,
       "window.selectedRangeKind"},
      {R"({"version":1,"window":{"geometry":{"y":1048577}}})", ProfileProblem::Invalid,
       "window.geometry.y"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.text));
    const ProfileResult result = ParseFilterProfile(c.text);
    EXPECT_EQ(result.problem, c.problem);
    EXPECT_FALSE(result.profile.has_value());
    if (!c.detail.empty()) {
      EXPECT_EQ(result.detail, c.detail);
    }
  }
}

TEST(FilterProfile, FailedLoadsAndSavesLeaveFilesAlone) {
  test::TempDir dir;
  const std::string damaged = dir.File("damaged.HBFP");
  WriteAll(damaged, "{\"version\":1,\"sourcePorts\":[");
  const ProfileResult result = LoadFilterProfile(damaged);
  EXPECT_EQ(result.problem, ProfileProblem::NotJson);
  EXPECT_EQ(ReadAll(damaged), "{\"version\":1,\"sourcePorts\":[");

  EXPECT_EQ(LoadFilterProfile(dir.File("none.HBFP")).problem, ProfileProblem::Missing);

  const ProfileResult save = SaveFilterProfile(FullProfile(), damaged + "/under-a-file.HBFP");
  EXPECT_EQ(save.problem, ProfileProblem::WriteFailed);
  EXPECT_NE(DescribeProfileProblem(save, "x.HBFP", UiLanguage::English).find("could not be saved"),
            std::string::npos);
}

// Points the configuration folder at a temporary one for the test's length.
class CurrentProfile : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const char* old = std::getenv("XDG_CONFIG_HOME")) saved_ = old;
    setenv("XDG_CONFIG_HOME", dir_.path().c_str(), 1);
  }
  void TearDown() override {
    if (saved_) setenv("XDG_CONFIG_HOME", saved_->c_str(), 1);
    else unsetenv("XDG_CONFIG_HOME");
  }

  test::TempDir dir_;
  std::optional<std::string> saved_;
};

TEST_F(CurrentProfile, DamagedProfileIsKeptAsideAndReportedOnce) {
  const std::filesystem::path file = CurrentProfilePath(FilterMode::File);
  WriteAll(file.string(), "{\"version\":1,\"allowTcp\":\"yes\"}");
  FilterSettings settings;
  FilterValues seven;
  seven.minPacketSize = 7;
  settings.SetAll(seven);
  const std::string message = LoadCurrentProfileInto(FilterMode::File, settings,
                                                     UiLanguage::English);
  EXPECT_NE(message.find("is not a valid filter profile (allowTcp)"), std::string::npos)
      << message;
  EXPECT_NE(message.find(".bad"), std::string::npos);
  EXPECT_EQ(settings.Values().minPacketSize, 7u);  // nothing was applied
  std::filesystem::path aside = file;
  aside += ".bad";
  EXPECT_EQ(ReadAll(aside.string()), "{\"version\":1,\"allowTcp\":\"yes\"}");
  EXPECT_EQ(LoadCurrentProfileInto(FilterMode::File, settings, UiLanguage::English), "");
}

}  // namespace
}  // namespace vormelt
