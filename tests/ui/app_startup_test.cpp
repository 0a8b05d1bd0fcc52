// Start-up with windows, run against a temporary configuration folder with every message box
// and program launch answered by the test: the deinstaller, the installation check and
// its answers, damaged settings, the mode choice, and the switch-modes question.
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
using ui::MessageAnswer;

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

  // Each row: what the record says, the answer to the question, and what must follow.
  void installationCheck_data() {
    QTest::addColumn<QString>("installed");  // "" = no record; "script" = an executable copy
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("window");
    QTest::addColumn<QString>("recordAfter");
    QTest::addColumn<int>("launches");
    QTest::newRow("first start installs") << "" << int(MessageAnswer::Ok) << true << kProgram << 0;
    QTest::newRow("elsewhere, Cancel") << "/usr/bin/vormelt" << int(MessageAnswer::Cancel) << false
                                       << "/usr/bin/vormelt" << 0;
    QTest::newRow("elsewhere, No, runs") << "script" << int(MessageAnswer::No) << false << "script" << 1;
    QTest::newRow("elsewhere, No, gone") << "/nonexistent/vormelt" << int(MessageAnswer::No) << true
                                         << "/nonexistent/vormelt" << 0;
  }
  void installationCheck() {
    QFETCH(QString, installed);
    QFETCH(int, answer);
    QFETCH(bool, window);
    QFETCH(QString, recordAfter);
    QFETCH(int, launches);
    const QString script = folder_->filePath(QStringLiteral("installed-vormelt"));
    if (installed == QLatin1String("script")) {
      QFile file(script);
      QVERIFY(file.open(QIODevice::WriteOnly));
      QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
      installed = recordAfter = script;
    }
    if (!installed.isEmpty()) Install(installed);
    test::MessageLog seams;
    seams.answers = {static_cast<MessageAnswer>(answer)};

    QCOMPARE(Run("").window.has_value(), window);
    const InstallRecordLoad record = LoadInstallRecord(paths_.InstallRecordFile());
    QCOMPARE(QString::fromStdString(record.record->installedPath), recordAfter);
    QCOMPARE(int(seams.launches.size()), launches);
    if (launches) QCOMPARE(seams.launches[0], (QStringList{script, QStringLiteral("NoInstall")}));
    if (installed.startsWith(QLatin1String("/nonexistent"))) {
      QCOMPARE(seams.asked.back().text, Catalogue(Text::InstalledProgramNotExecutable));
    }
    if (installed.startsWith(QLatin1String("/usr"))) {
      QCOMPARE(seams.asked[0].text, QStringLiteral("Would you like to re-install Hollowbright VORMELT 2.2?"));
      QCOMPARE(seams.asked[0].onDismiss, MessageAnswer::Cancel);
    }
    // The settings are written after the check, and only when this copy goes on.
    QCOMPARE(std::filesystem::exists(paths_.SettingsFile()), window);
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

  void modeChoiceShowsOnlyWithoutAModeAndDecidesTheWindow() {
    test::MessageLog seams;
    choicePress_ = ModeChoiceButton::Statistical;
    QCOMPARE(Run("-noinstall").window, ProgramMode::Statistical);
    QCOMPARE(choiceCalls_, 1);
    choicePress_ = ModeChoiceButton::ToolsDecoder;
    QCOMPARE(Run("-noinstall").window, ProgramMode::Decoder);
    choicePress_ = ModeChoiceButton::Exit;
    QVERIFY(!Run("-noinstall").window);
    QCOMPARE(choiceCalls_, 3);
    // Two mode keywords: Packet Mode has precedence, and no mode choice.
    QCOMPARE(Run("/NoInstall /File_Mode /Packet_Mode").window, ProgramMode::Packet);
    QCOMPARE(choiceCalls_, 3);
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
    seams.answers = {MessageAnswer::Yes, MessageAnswer::No};
    QCOMPARE(ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::GraphicalPackets),
             ui::SwitchDecision::RelaunchAndKeepRunning);
    QVERIFY(settings.graphicalWarningAcknowledged);
    seams.answers = {MessageAnswer::Cancel};
    ui::AskSwitchModes(nullptr, settings, ProgramMode::Packet, ProgramMode::GraphicalPackets);
    QCOMPARE(seams.asked.size(), size_t{7});  // acknowledged: only the switch question
  }

 private:
  ui::StartupOutcome Run(const QString& commandLine) {
    ProgramSettings settings;
    return ui::PrepareStartup(commandLine.toStdString(), paths_, settings,
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
