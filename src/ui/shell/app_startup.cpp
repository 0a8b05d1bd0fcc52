// Start-up with windows: each step asks app/startup what to do and shows the matching box or
// window. Every message goes through ShowMessage so that tests can answer without a display
// loop; the only modal windows opened here directly are the mode choice and the encoder.
#include "ui/shell/app_startup.hpp"

#include <QApplication>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QLocale>
#include <QPixmap>
#include <QStyleFactory>
#include <QTranslator>

#include "app/file_mode.hpp"
#include "common/install_record.hpp"
#include "common/paths.hpp"
#include "common/settings_store.hpp"
#include "ui/tools/codec_window.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/graphical/graphical_mode_window.hpp"
#include "ui/shell/mode_choice_window.hpp"
#include "ui/shell/mode_switch.hpp"
#include "ui/packetmode/packet_mode_window.hpp"
#include "ui/shell/qt_text.hpp"
#include "ui/filemode/file_mode_window.hpp"
#include "ui/statistics/statistical_mode_window.hpp"

namespace vormelt::ui {
namespace {

// The style whose drawing follows the palette exactly, so the start-up colours show as chosen.
constexpr char kPaletteStyle[] = "Fusion";

QString Q(const std::string& text) { return FromCrLf(text); }

void Tell(MessageIcon icon, const QString& text) {
  MessageRequest request;
  request.caption = T(Text::ProgramTitle);
  request.text = text;
  request.icon = icon;
  ShowMessage(nullptr, request);
}

MessageAnswer Ask(MessageButtons buttons, const QString& text, MessageAnswer onDismiss) {
  MessageRequest request;
  request.caption = T(Text::ProgramTitle);
  request.text = text;
  request.icon = MessageIcon::Question;
  request.buttons = buttons;
  request.onDismiss = onDismiss;
  return ShowMessage(nullptr, request);
}


StartupOutcome Finish(const StartupDecision& decision, int exitCode = 0) {
  StartupOutcome outcome;
  outcome.decision = decision;
  outcome.exitCode = exitCode;
  return outcome;
}

// Asks, then removes the install record and the settings. The process finishes either way.
void RunDeinstaller(const StartupPaths& paths) {
  const std::string question = FormatText(Text::DeinstallQuestion, Language(),
                                          kProgramVersion.data(), paths.configDirectory.c_str());
  if (Ask(MessageButtons::YesNo, Q(question), MessageAnswer::No) != MessageAnswer::Yes) return;
  std::string error;
  if (RemoveInstallation(paths.configDirectory, &error)) {
    Tell(MessageIcon::Information, T(Text::DeinstallNotice));
    return;
  }
  Tell(MessageIcon::Stop, Q(FormatText(Text::DeinstallFailed, Language(), error.c_str())));
}

// Installing on this system means recording which program file is the installed one. A failure
// is reported, and the program still runs: nothing else depends on the record.
void RunInstaller(const StartupPaths& paths) {
  std::string error;
  const std::string program = paths.programPath.toStdString();
  if (!SaveInstallRecord(MakeInstallRecord(program), paths.InstallRecordFile(), &error)) {
    Tell(MessageIcon::Stop, Q(FormatText(Text::InstallFailed, Language(), error.c_str())));
    return;
  }
  Tell(MessageIcon::Information,
       Q(FormatText(Text::InstallerNotice, Language(), kProgramVersion.data(), program.c_str(),
                    paths.configDirectory.c_str())));
}

// The installed copy runs instead of this one when it can be started.
bool LaunchInstalledCopy(const std::string& installedPath) {
  const QString program = QString::fromStdString(installedPath);
  const QFileInfo file(program);
  if (!file.isFile() || !file.isExecutable()) return false;
  QStringList arguments;
  for (const std::string& word : InstalledCopyArguments()) arguments << QString::fromStdString(word);
  return LaunchProgram(program, arguments);
}

// Returns false when the process is to finish.
bool RunInstallationCheck(const StartupPaths& paths) {
  const InstallRecordLoad load = LoadInstallRecord(paths.InstallRecordFile());
  const std::string problem = LoadProblemMessage(load, Language());
  if (!problem.empty()) Tell(MessageIcon::Warning, Q(problem));

  const InstallDecision decision = DecideInstall(load.record, paths.programPath.toStdString());
  switch (decision.action) {
    case InstallAction::Proceed: return true;
    case InstallAction::RunInstaller: RunInstaller(paths); return true;
    case InstallAction::Ask: break;
  }
  const MessageAnswer answer = Ask(MessageButtons::YesNoCancel,
                                   Q(InstallQuestionMessage(decision, Language())),
                                   MessageAnswer::Cancel);
  switch (AfterInstallQuestion(answer)) {
    case InstallStep::EndProcess: return false;
    case InstallStep::RunInstaller: RunInstaller(paths); return true;
    case InstallStep::LaunchInstalledCopy: break;
  }
  if (LaunchInstalledCopy(load.record->installedPath)) return false;
  Tell(MessageIcon::Stop, T(Text::InstalledProgramNotExecutable));
  return true;
}

// Qt's own texts (standard buttons "Yes"/"No", file dialogs) in the run's language, when the
// toolkit's translations are installed; without them those few words stay English.
void LoadToolkitTexts(QTranslator& translator, UiLanguage language) {
  QCoreApplication::removeTranslator(&translator);
  if (language != UiLanguage::German) return;
  const QLocale german(QLocale::German, QLocale::Germany);
  if (translator.load(german, QStringLiteral("qtbase"), QStringLiteral("_"),
                      QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
    QCoreApplication::installTranslator(&translator);
  }
}

void ApplyPalette(const QPalette& palette) {
  if (auto* style = QStyleFactory::create(kPaletteStyle)) QApplication::setStyle(style);
  QApplication::setPalette(palette);
}

ModeWindowStart WindowStart(const ModeStart& start) {
  // A capture file given on the command line is read instead of listening.
  const std::string& file = start.decision.captureFile;
  return {start.decision.startMinimized, start.decision.autoListen && file.empty(), start.settingsFile, file};
}

int RunPacketMode(const ModeStart& start) {
  return RunPacketModeWindow(start.settings, WindowStart(start));
}

int RunStatisticalMode(const ModeStart& start) {
  return RunStatisticalModeWindow(start.settings, WindowStart(start));
}

int RunGraphicalPacketsMode(const ModeStart& start) {
  return RunGraphicalModeWindow(start.settings, WindowStart(start),
                                QFile::decodeName(start.decision.captureFile.c_str()));
}

int RunFileMode(const ModeStart& start) { return RunFileModeWindow(start.settings, WindowStart(start)); }

int RunStandaloneEncoder(const ModeStart& start) {
  CodecWindow window(start.settings, /*standalone=*/true);
  window.exec();
  // The encoder keeps its choices in the settings; as the process's only window it also writes
  // them, as every mode window does on close.
  SaveSettingsOrWarn(nullptr, start.settings, start.settingsFile);
  return 0;
}

}  // namespace

std::filesystem::path StartupPaths::SettingsFile() const {
  return configDirectory / kSettingsFileName;
}

std::filesystem::path StartupPaths::InstallRecordFile() const {
  return configDirectory / DefaultInstallRecordFile().filename();
}

StartupPaths StartupPaths::Defaults() {
  return {ConfigDirectory(), QCoreApplication::applicationFilePath()};
}

ModeChoiceResult RunModeChoiceWindow(ProgramSettings& settings, StartupDecision& decision) {
  ModeChoiceWindow window(settings, decision);
  window.exec();
  return window.choice();
}

StartupOutcome PrepareStartup(std::string_view commandLine, const StartupPaths& paths,
                              const SettingsLoad& load, ProgramSettings& settings,
                              const ModeChoiceRunner& runModeChoice, QTranslator* toolkitTexts) {
  settings = load.settings;
  StartupDecision decision = DecideStartup(commandLine, settings);
  if (decision.languageKeyword) settings.language = *decision.languageKeyword;
  SetLanguage(decision.language);
  if (toolkitTexts) LoadToolkitTexts(*toolkitTexts, decision.language);

  const std::string problem = LoadProblemMessage(load, Language());
  if (!problem.empty()) Tell(MessageIcon::Warning, Q(problem));

  switch (decision.action) {
    case StartupAction::ShowHelp:
    case StartupAction::ShowUnknownCommandLine:
      Tell(MessageIcon::Information, Q(Tr(decision.message, Language())));
      return Finish(decision);
    case StartupAction::RunDeinstaller:
      RunDeinstaller(paths);
      return Finish(decision);
    case StartupAction::Continue: break;
  }

  if (!decision.noInstall && !RunInstallationCheck(paths)) return Finish(decision);
  // A file from a newer version is left as it is (the notice above said so); trying to write it
  // would only add a second message about the same file.
  if (load.problem != Text::SettingsFileTooNew) {
    SaveSettingsOrWarn(nullptr, settings, paths.SettingsFile());
  }

  if (ShouldShowModeChoice(decision, settings) &&
      runModeChoice(settings, decision) == ModeChoiceResult::Exit) {
    return Finish(decision);
  }

  StartupOutcome outcome;
  outcome.decision = decision;
  outcome.window = ChooseWindow(decision, settings);
  if (outcome.window) ApplyModeWindowColours(*outcome.window, settings);
  return outcome;
}

void RegisterModeWindows() {
  RegisterModeWindow(ProgramMode::Packet, RunPacketMode);
  RegisterModeWindow(ProgramMode::File, RunFileMode);
  RegisterModeWindow(ProgramMode::Statistical, RunStatisticalMode);
  RegisterModeWindow(ProgramMode::GraphicalPackets, RunGraphicalPacketsMode);
  RegisterModeWindow(ProgramMode::Decoder, RunStandaloneEncoder);
}

int RunModeWindow(ProgramMode mode, const StartupDecision& decision, ProgramSettings& settings,
                  const StartupPaths& paths) {
  const ModeRunner window = FindMode(mode).window;
  if (!window) {
    Tell(MessageIcon::Information, Q(ModeNotAvailableMessage(mode, Language())));
    return 0;
  }
  return window(ModeStart{decision, settings, paths.SettingsFile()});
}

int RunDesktopProgram(std::string_view commandLine, const SettingsLoad& load) {
  RegisterModeWindows();
  QApplication::setWindowIcon(ProgramIcon());
  const StartupPaths paths = StartupPaths::Defaults();
  ProgramSettings settings;
  QTranslator toolkitTexts;
  const StartupOutcome outcome =
      PrepareStartup(commandLine, paths, load, settings, RunModeChoiceWindow, &toolkitTexts);
  if (!outcome.window) return outcome.exitCode;
  return RunModeWindow(*outcome.window, outcome.decision, settings, paths);
}

QPalette DialogPalette(QColor background, QColor text) {
  QPalette palette(background);  // derives light, dark, mid and shadow from the background
  for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::ButtonText,
                                         QPalette::Text, QPalette::ToolTipText}) {
    palette.setColor(role, text);
  }
  palette.setColor(QPalette::Window, background);
  palette.setColor(QPalette::Button, background);
  palette.setColor(QPalette::Base, background.lightness() < 128 ? background.darker(130)
                                                                : QColor(Qt::white));
  palette.setColor(QPalette::AlternateBase, palette.color(QPalette::Base).darker(105));
  palette.setColor(QPalette::ToolTipBase, background);
  palette.setColor(QPalette::PlaceholderText, text.darker(140));
  // setColor() above painted every colour group; greyed-out controls must still look greyed
  // out, so the disabled group's texts sit halfway between text and background.
  const QColor disabled = QColor((text.red() + background.red()) / 2,
                                 (text.green() + background.green()) / 2,
                                 (text.blue() + background.blue()) / 2);
  for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::ButtonText,
                                         QPalette::Text}) {
    palette.setColor(QPalette::Disabled, role, disabled);
  }
  return palette;
}

void ApplyModeWindowColours(ProgramMode mode, const ProgramSettings& settings) {
  // The Graphical Packets picture is drawn on black, so its dialogs are too, whatever the
  // desktop's colours.
  if (mode == ProgramMode::GraphicalPackets) {
    ApplyPalette(DialogPalette(QColor(kGraphicalBackground), QColor(kGraphicalText)));
    return;
  }
  if (settings.useSystemColors) return;
  ApplyPalette(DialogPalette(QColor(kModeWindowBackground), QColor(kModeWindowText)));
}

}  // namespace vormelt::ui
