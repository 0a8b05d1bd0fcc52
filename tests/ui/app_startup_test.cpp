// Start-up with windows, run against a temporary configuration folder with every message box
// and program launch answered by the test: the deinstaller, the installation check and
// its answers, damaged settings, and the switch-modes question. What start-up decides is
// tested in tests/app; this is what the windows ask and launch.
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/install_record.hpp"
#include "common/settings_store.hpp"
#include "ui/shell/app_startup.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/mode_switch.hpp"
#include "ui/shell/qt_text.hpp"
#include "support/ui/widgets.hpp"
#endif

using namespace vormelt;

namespace {

const QString kProgram = QStringLiteral("/opt/hollowbright/bin/vormelt");

}  // namespace

class AppStartupTest : public QObject {
  Q_OBJECT

 private slots:
  void init() {
    folder_ = std::make_unique<QTemporaryDir>();
    QVERIFY(folder_->isValid());
    paths_ = {std::filesystem::path(folder_->path().toStdString()), kProgram};
    choiceCalls_ = 0;
    ui::SetLanguage(UiLanguage::English);
  }

  void deinstallerRemovesRecordAndSettingsOnlyOnYes() {
    for (const bool yes : {false, true}) {
      Install(kProgram);
      QVERIFY(SaveSettings(ProgramSettings{}, paths_.SettingsFile(), nullptr));
      test::MessageLog seams;
      seams.answers = {yes ? MessageAnswer::Yes : MessageAnswer::No};
      QVERIFY(!Run("-uninstall").window);
      QCOMPARE(std::filesystem::exists(paths_.InstallRecordFile()), !yes);
      QCOMPARE(std::filesystem::exists(paths_.SettingsFile()), !yes);
      QCOMPARE(seams.asked.size(), size_t{yes ? 2u : 1u});
    }
    QCOMPARE(choiceCalls_, 0);
  }

  // Whether to install is decided in common/install_record; here: what the answers start.
  void installationCheckAnswers() {
    test::MessageLog seams;
    QVERIFY(Run("").window);  // the first start installs and goes on
    QCOMPARE(QString::fromStdString(LoadInstallRecord(paths_.InstallRecordFile()).record->installedPath), kProgram);

    const QString script = folder_->filePath(QStringLiteral("installed-vormelt"));
    QFile file(script);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    Install(script);
    seams.answers = {MessageAnswer::Cancel};
    QVERIFY(!Run("").window);
    QVERIFY(seams.launches.empty());
    seams.answers = {MessageAnswer::No};  // run the installed copy instead of this one
    QVERIFY(!Run("").window);
    QCOMPARE(seams.launches, (std::vector<QStringList>{{script, QStringLiteral("NoInstall")}}));
  }

  void damagedSettingsAreKeptAsideReportedOnceAndRewritten() {
    QFile file(QString::fromStdString(paths_.SettingsFile().string()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("{\"rememberedMode\": 3,,,");
    file.close();
    test::MessageLog seams;
    QCOMPARE(Run("-noinstall").window, ProgramMode::Packet);
    QCOMPARE(seams.asked.size(), size_t{1});  // reported once, naming the kept copy
    QVERIFY(seams.asked[0].text.contains(QStringLiteral("settings.json.bad")));
    QVERIFY(std::filesystem::exists(paths_.configDirectory / "settings.json.bad"));
    QVERIFY(!LoadSettings(paths_.SettingsFile()).problem);  // a fresh file took its place
    QCOMPARE(choiceCalls_, 1);                               // the defaults show the mode choice
  }

  void newerSettingsFileReportedOnceAndLeftAlone() {
    const QByteArray newer = "{\"version\": 999999, \"rememberedMode\": 3}";
    QFile file(QString::fromStdString(paths_.SettingsFile().string()));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(newer) == newer.size());
    file.close();
    test::MessageLog seams;
    Run("-noinstall");
    QCOMPARE(seams.asked.size(), size_t{1});  // the notice, not also a failed save
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), newer);
  }

  void switchQuestionAndGraphicalWarning() {
    test::MessageLog seams;
    ProgramSettings settings;
    const auto ask = [&](ProgramMode to) { return ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, to); };
    seams.answers = {MessageAnswer::Yes, MessageAnswer::No, MessageAnswer::Cancel};
    QCOMPARE(ask(ProgramMode::File), ui::SwitchDecision::CloseThenRelaunch);
    QCOMPARE(ask(ProgramMode::File), ui::SwitchDecision::RelaunchAndKeepRunning);
    QCOMPARE(ask(ProgramMode::File), ui::SwitchDecision::Cancel);

    // Graphical Packets: the warning comes first; declined, the switch question never comes.
    seams.answers = {MessageAnswer::No};
    QCOMPARE(ask(ProgramMode::GraphicalPackets), ui::SwitchDecision::Cancel);
    QCOMPARE(seams.asked.size(), size_t{4});
    QCOMPARE(seams.asked[3].text, ui::FromCrLf(Tr(Text::GraphicalWarning, ui::Language())));
    // Warning heeded, then the switch cancelled: the warning is still owed.
    seams.answers = {MessageAnswer::Yes, MessageAnswer::Cancel};
    QCOMPARE(ask(ProgramMode::GraphicalPackets), ui::SwitchDecision::Cancel);
    QVERIFY(!settings.graphicalWarningAcknowledged);
    seams.answers = {MessageAnswer::Yes, MessageAnswer::No};
    QCOMPARE(ask(ProgramMode::GraphicalPackets), ui::SwitchDecision::RelaunchAndKeepRunning);
    QVERIFY(settings.graphicalWarningAcknowledged);
    seams.answers = {MessageAnswer::Cancel};
    ask(ProgramMode::GraphicalPackets);
    QCOMPARE(seams.asked.size(), size_t{9});  // acknowledged: only the switch question
  }

 private:
  ui::StartupOutcome Run(const QString& commandLine) {
    ProgramSettings settings;
    return ui::PrepareStartup(commandLine.toStdString(), paths_,
                              LoadSettings(paths_.SettingsFile()), settings,
                              [this](ProgramSettings& s, StartupDecision& d) {
                                ++choiceCalls_;
                                return ApplyModeChoice(ModeChoiceButton::Packet, false, true, s, d);
                              });
  }
  void Install(const QString& path) {
    QVERIFY(SaveInstallRecord(MakeInstallRecord(path.toStdString()), paths_.InstallRecordFile(), nullptr));
  }

  std::unique_ptr<QTemporaryDir> folder_;
  ui::StartupPaths paths_;
  int choiceCalls_ = 0;
};

QTEST_MAIN(AppStartupTest)
#include "app_startup_test.moc"
