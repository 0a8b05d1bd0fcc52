// Start-up with windows, run against a temporary configuration folder with every message box
// and program launch answered by the test: the deinstaller, the installation check and
// its answers, damaged settings, and the switch-modes question. What start-up decides is
// tested in tests/app; this is what the windows ask and launch.
#include <QApplication>
#include <QFile>
#include <QStyle>
#include <QTemporaryDir>
#include <QtTest>

// moc reads this file too, and cannot parse the text catalogue's generated enum.
#ifndef Q_MOC_RUN
#include "common/install_record.hpp"
#include "common/settings_store.hpp"
#include "ui/app_startup.hpp"
#include "ui/dialogs.hpp"
#include "ui/mode_switch.hpp"
#include "ui/qt_text.hpp"
#include "support/ui/widgets.hpp"
#endif

using namespace vormelt;

namespace {

const QString kProgram = QStringLiteral("/opt/hollowbright/bin/vormelt");

QString Catalogue(Text key) { return ui::FromCrLf(Tr(key, ui::Language())); }

}  // namespace

class AppStartupTest : public QObject {
  Q_OBJECT

 private slots:
  void init() {
    folder_ = std::make_unique<QTemporaryDir>();
    QVERIFY(folder_->isValid());
    paths_ = {std::filesystem::path(folder_->path().toStdString()), kProgram};
    choiceCalls_ = 0;
    choicePress_ = ModeChoiceButton::Packet;
    QApplication::setPalette(QApplication::style()->standardPalette());
    ui::SetLanguage(UiLanguage::English);
  }

  void deinstallerRemovesRecordAndSettingsOnlyOnYes_data() {
    QTest::addColumn<QString>("commandLine");
    QTest::addColumn<bool>("yes");
    QTest::newRow("yes") << "-uninstall" << true;
    QTest::newRow("no") << "/uninstall" << false;
  }
  void deinstallerRemovesRecordAndSettingsOnlyOnYes() {
    QFETCH(QString, commandLine);
    QFETCH(bool, yes);
    Install(kProgram);
    QVERIFY(SaveSettings(ProgramSettings{}, paths_.SettingsFile(), nullptr));
    test::MessageLog seams;
    seams.answers = {yes ? MessageAnswer::Yes : MessageAnswer::No};
    QVERIFY(!Run(commandLine).window);
    QCOMPARE(choiceCalls_, 0);
    QCOMPARE(seams.asked[0].buttons, ui::MessageButtons::YesNo);
    QCOMPARE(std::filesystem::exists(paths_.InstallRecordFile()), !yes);
    QCOMPARE(std::filesystem::exists(paths_.SettingsFile()), !yes);
    QCOMPARE(seams.asked.size(), size_t{yes ? 2u : 1u});
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
    QCOMPARE(seams.asked.size(), size_t{1});
    QVERIFY(seams.asked[0].text.contains(QStringLiteral("settings.json.bad")));
    QVERIFY(std::filesystem::exists(paths_.configDirectory / "settings.json.bad"));
    QVERIFY(!LoadSettings(paths_.SettingsFile()).problem);  // a fresh file took its place
    QCOMPARE(choiceCalls_, 1);                               // the defaults show the mode choice
  }

  void switchQuestionAndGraphicalWarning() {
    test::MessageLog seams;
    ProgramSettings settings;
    seams.answers = {MessageAnswer::Yes, MessageAnswer::No, MessageAnswer::Cancel};
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::File),
             ui::SwitchDecision::CloseThenRelaunch);
    QCOMPARE(seams.asked[0].caption, QStringLiteral("Switch modes?"));
    QVERIFY(seams.asked[0].text.startsWith(QStringLiteral(
        "Would you like to to switch modes?\n\nSwitching to File Mode will cancel the current operation (Packet Mode).")));
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::File),
             ui::SwitchDecision::RelaunchAndKeepRunning);
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::File),
             ui::SwitchDecision::Cancel);

    // Graphical Packets: the warning comes first; declined, the switch question never comes.
    seams.answers = {MessageAnswer::No};
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::GraphicalPackets),
             ui::SwitchDecision::Cancel);
    QCOMPARE(seams.asked.size(), size_t{4});
    QCOMPARE(seams.asked[3].text, Catalogue(Text::GraphicalWarning));
    // Warning heeded, then the switch cancelled: the warning is still owed.
    seams.answers = {MessageAnswer::Yes, MessageAnswer::Cancel};
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::GraphicalPackets),
             ui::SwitchDecision::Cancel);
    QVERIFY(!settings.graphicalWarningAcknowledged);
    seams.answers = {MessageAnswer::Yes, MessageAnswer::No};
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::GraphicalPackets),
             ui::SwitchDecision::RelaunchAndKeepRunning);
    QVERIFY(settings.graphicalWarningAcknowledged);
    seams.answers = {MessageAnswer::Cancel};
    ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::GraphicalPackets);
    QCOMPARE(seams.asked.size(), size_t{9});  // acknowledged: only the switch question
  }

 private:
  ui::StartupOutcome Run(const QString& commandLine) {
    ProgramSettings settings;
    return ui::PrepareStartup(commandLine.toStdString(), paths_,
                              LoadSettings(paths_.SettingsFile()), settings,
                              [this](ProgramSettings& s, StartupDecision& d) {
                                ++choiceCalls_;
                                return ApplyModeChoice(choicePress_, false, true, s, d);
                              });
  }
  void Install(const QString& path) {
    QVERIFY(SaveInstallRecord(MakeInstallRecord(path.toStdString()), paths_.InstallRecordFile(), nullptr));
  }

  std::unique_ptr<QTemporaryDir> folder_;
  ui::StartupPaths paths_;
  int choiceCalls_ = 0;
  ModeChoiceButton choicePress_ = ModeChoiceButton::Packet;
};

QTEST_MAIN(AppStartupTest)
#include "app_startup_test.moc"
