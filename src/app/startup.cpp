// Start-up decisions and their texts. Keyword matching is deliberately loose (substrings of the
// lower-cased line) because relaunches, shortcuts and service entries all spell them differently.
#include "app/startup.hpp"

#include "app/modes.hpp"

#include <algorithm>
#include <cctype>

namespace vormelt {
namespace {

struct ModeKeyword {
  std::string_view keyword;
  bool StartupDecision::*flag;
};

// Order matters only for readability: every keyword is searched. The modes' words come from
// the mode registry.
constexpr ModeKeyword kFlagKeywords[] = {
    {"noinstall", &StartupDecision::noInstall},
    {"uninstall", &StartupDecision::uninstall},
    {"start_minimized", &StartupDecision::startMinimized},
    {"auto_listen", &StartupDecision::autoListen},
    {"-service", &StartupDecision::runAsService},
};

std::string LowerAscii(std::string_view text) {
  std::string out(text);
  std::ranges::transform(out, out.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  return out;
}

bool Contains(std::string_view text, std::string_view word) {
  return text.find(word) != std::string_view::npos;
}

template <typename Strings>
std::string JoinWithBlanks(const Strings& words) {
  std::string out;
  for (const auto& word : words) {
    if (!out.empty()) out += ' ';
    out += word;
  }
  return out;
}

void ApplyKeywords(std::string_view lower, StartupDecision& d) {
  const auto apply = [&](std::string_view keyword, bool StartupDecision::*flag) {
    if (!Contains(lower, keyword)) return;
    d.*flag = true;
    d.keywordRecognised = true;
  };
  for (const ModeKeyword& k : kFlagKeywords) apply(k.keyword, k.flag);
  for (const ModeEntry& mode : ModeList()) apply(mode.keyword, mode.flag);
  // Tested in this order so that "deutsch" wins when both are given.
  if (Contains(lower, "english")) {
    d.languageKeyword = UiLanguage::English;
    d.keywordRecognised = true;
  }
  if (Contains(lower, "deutsch")) {
    d.languageKeyword = UiLanguage::German;
    d.keywordRecognised = true;
  }
}

constexpr std::string_view kReadWord = "--read ";

// The word after "--read", in its own case (it is a path).
std::string ReadFileArgument(std::string_view commandLine, std::string_view lower) {
  const std::size_t at = lower.find(kReadWord);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = commandLine.substr(at + kReadWord.size());
  return std::string(rest.substr(0, rest.find(' ')));
}

bool RememberedIs(const ProgramSettings& settings, ProgramMode mode) {
  return settings.rememberedMode == static_cast<std::int32_t>(mode);
}

}  // namespace

std::string CommandLineText(std::span<const char* const> argumentsAfterProgram) {
  std::vector<std::string_view> words;
  for (const char* word : argumentsAfterProgram) words.emplace_back(word ? word : "");
  return JoinWithBlanks(words);
}

std::string CommandLineText(std::span<const std::string> argumentsAfterProgram) {
  return JoinWithBlanks(argumentsAfterProgram);
}

StartupDecision DecideStartup(std::string_view commandLine, const ProgramSettings& settings) {
  StartupDecision d;
  d.language = settings.language;
  if (commandLine.empty()) return d;

  const std::string lower = LowerAscii(commandLine);
  ApplyKeywords(lower, d);
  d.captureFile = ReadFileArgument(commandLine, lower);
  if (!d.captureFile.empty()) d.keywordRecognised = true;
  if (d.languageKeyword) d.language = *d.languageKeyword;

  // Help is looked for before anything else is acted on, so "-packet_mode -help" still helps.
  if (Contains(lower, "?") || Contains(lower, "help")) {
    d.action = StartupAction::ShowHelp;
    d.message = Text::CommandLineHelp;
  } else if (!d.keywordRecognised) {
    d.action = StartupAction::ShowUnknownCommandLine;
    d.message = Text::CommandLineUnknown;
  } else if (d.uninstall) {
    d.action = StartupAction::RunDeinstaller;
  }
  return d;
}

bool StartupDecision::AnyModeSwitch() const {
  return std::ranges::any_of(ModeList(), [this](const ModeEntry& entry) { return this->*entry.flag; });
}

bool ShouldShowModeChoice(const StartupDecision& decision, const ProgramSettings& settings) {
  return settings.showModeChoiceAtStartup && !decision.AnyModeSwitch() && !decision.runAsService;
}

std::optional<ProgramMode> ChooseWindow(const StartupDecision& decision,
                                        const ProgramSettings& settings) {
  const bool byKeyword = decision.AnyModeSwitch();
  for (const ModeEntry& entry : ModeList()) {
    if (byKeyword ? decision.*entry.flag : entry.rememberable && RememberedIs(settings, entry.mode)) {
      return entry.mode;
    }
  }
  return std::nullopt;
}

bool NeedsGraphicalWarning(ProgramMode target, const ProgramSettings& settings) {
  return FindMode(target).blinkingWarning && !settings.graphicalWarningAcknowledged;
}

ModeChoiceResult ApplyModeChoice(ModeChoiceButton button, bool rememberChoice,
                                 bool warningAccepted, ProgramSettings& settings,
                                 StartupDecision& decision) {
  ProgramMode chosen = ProgramMode::Packet;
  switch (button) {
    case ModeChoiceButton::Exit: return ModeChoiceResult::Exit;
    case ModeChoiceButton::ToolsDecoder:
      // A tool, not a mode: the remembered mode and the check box stay as they are.
      decision.decoder = true;
      return ModeChoiceResult::Close;
    case ModeChoiceButton::Packet: chosen = ProgramMode::Packet; break;
    case ModeChoiceButton::File: chosen = ProgramMode::File; break;
    case ModeChoiceButton::GraphicalPackets: chosen = ProgramMode::GraphicalPackets; break;
    case ModeChoiceButton::Statistical: chosen = ProgramMode::Statistical; break;
  }
  return ChooseMode(chosen, rememberChoice, warningAccepted, settings);
}

ModeChoiceResult ChooseMode(ProgramMode chosen, bool rememberChoice, bool warningAccepted,
                            ProgramSettings& settings) {
  if (NeedsGraphicalWarning(chosen, settings)) {
    if (!warningAccepted) return ModeChoiceResult::StayOpen;
    settings.graphicalWarningAcknowledged = true;
  }
  settings.rememberedMode = static_cast<std::int32_t>(chosen);
  settings.showModeChoiceAtStartup = !rememberChoice;
  return ModeChoiceResult::Close;
}

InstallStep AfterInstallQuestion(MessageAnswer answer) {
  switch (answer) {
    case MessageAnswer::Yes: return InstallStep::RunInstaller;
    case MessageAnswer::No: return InstallStep::LaunchInstalledCopy;
    case MessageAnswer::Ok:
    case MessageAnswer::Cancel: break;
  }
  return InstallStep::EndProcess;
}

std::vector<std::string> InstalledCopyArguments() { return {"NoInstall"}; }

SwitchStep AfterSwitchQuestion(MessageAnswer answer) {
  switch (answer) {
    case MessageAnswer::Yes: return SwitchStep::CloseAndRelaunch;
    case MessageAnswer::No: return SwitchStep::RelaunchAlongside;
    case MessageAnswer::Ok:
    case MessageAnswer::Cancel: break;
  }
  return SwitchStep::Nothing;
}

std::string SwitchModesMessage(ProgramMode target, ProgramMode current, UiLanguage language) {
  return FormatText(Text::SwitchModesQuestion, language, Tr(ModeName(target), language),
                    Tr(ModeName(current), language));
}

std::string ModeNotAvailableMessage(ProgramMode mode, UiLanguage language) {
  return FormatText(Text::ModeNotAvailable, language, Tr(ModeName(mode), language));
}

std::string InstallQuestionMessage(const InstallDecision& decision, UiLanguage language) {
  if (decision.question == Text::AskInstallVersion) {
    return FormatText(decision.question, language, kProgramVersion.data(), kProductName.data());
  }
  return FormatText(decision.question, language, kProductName.data(), kProgramVersion.data());
}

std::string LoadProblemMessage(const LoadProblem& load, UiLanguage language) {
  if (!load.problem) return {};
  // Every problem text takes (file, detail) and may take the kept-aside name third.
  return FormatText(*load.problem, language, load.file.c_str(), load.detail.c_str(),
                    load.keptAs.c_str());
}

}  // namespace vormelt
