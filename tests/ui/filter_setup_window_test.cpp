// The filter setup window driven through its controls: ranges, ports and texts reach
// FilterSettings on OK, the profile brings them back, refusals show their messages, and the
// resolver answers off the window's thread.
#include <QCheckBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QtTest>
#include <fstream>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "packetmode/filter_profile.hpp"
#include "packetmode/filter_window_model.hpp"
#include "ui/dialogs.hpp"
#include "ui/filter_setup_window.hpp"
#include "ui/qt_text.hpp"
#endif

using namespace vormelt;
using namespace vormelt::ui;

class FilterSetupWindowTest : public QObject {
  Q_OBJECT

 private:
  QTemporaryDir config_;
  QList<MessageRequest> messages_;
  MessageAnswer answer_ = MessageAnswer::Yes;

  template <typename W>
  static W* Child(QWidget& window, const char* name) {
    W* child = window.findChild<W*>(QString::fromLatin1(name));
    if (!child) qFatal("no control named %s", name);
    return child;
  }
  static void Click(QWidget& window, const char* name) {
    Child<QPushButton>(window, name)->click();
  }
  static void Type(QWidget& window, const char* name, const QString& text) {
    Child<QLineEdit>(window, name)->setText(text);
  }

 private slots:
  void initTestCase() {
    // Never touch the real configuration folder of whoever runs the test.
    qputenv("XDG_CONFIG_HOME", config_.path().toUtf8());
    SetMessageHandler([this](const MessageRequest& request) {
      messages_.append(request);
      return request.buttons == MessageButtons::YesNo ? answer_ : MessageAnswer::Ok;
    });
  }

  void init() {
    messages_.clear();
    answer_ = MessageAnswer::Yes;
    std::filesystem::remove(CurrentProfilePath(FilterMode::Packet));
    std::filesystem::remove(CurrentProfilePath(FilterMode::File));
  }

  void okHandsRangesPortsAndTextsToTheFilter() {
    FilterSettings settings;
    FilterSetupWindow window(settings, FilterMode::Packet, false);
    window.show();
    QRadioButton* sourceIn = Child<QRadioButton>(window, "rangeKind1");
    sourceIn->click();
    Type(window, "from", "10.0.0.9");
    Type(window, "to", "10.0.0.1");
    Click(window, "addRange");
    Click(window, "addRange");  // the same range again is skipped silently
    QListWidget* ranges = Child<QListWidget>(window, "rangeList");
    QCOMPARE(ranges->count(), 1);
    QCOMPARE(ranges->item(0)->text(), QStringLiteral("10.0.0.1 - 10.0.0.9"));
    QCOMPARE(sourceIn->text(), QStringLiteral("&1. (1) Source IP must be in range"));

    Type(window, "port2", "53, 0");
    Type(window, "mustContainEntry", "GET");
    Click(window, "mustContainAdd");
    Type(window, "maxPacketSize", "1500");
    Child<QCheckBox>(window, "allowArp")->setChecked(false);
    QVERIFY(messages_.isEmpty());

    Click(window, "ok");
    QVERIFY(!window.isVisible());
    const FilterValues v = settings.Values();
    QCOMPARE(v.sourceInRanges.size(), std::size_t{1});
    QCOMPARE(FormatRangeItem(v.sourceInRanges[0]), std::string("10.0.0.1 - 10.0.0.9"));
    QCOMPARE(v.destPorts, std::vector<std::uint16_t>{53});
    QCOMPARE(v.mustContain, std::vector<std::string>{"GET"});
    QCOMPARE(v.maxPacketSize, 1500u);
    QVERIFY(!v.allowArp && v.allowTcp);
    QCOMPARE(settings.MustContainText(), std::string("GET"));

    // Filtering was off, so closing asked whether to switch it on.
    QVERIFY(window.changesApplied());
    QCOMPARE(messages_.size(), 1);
    QCOMPARE(messages_[0].caption, QStringLiteral("Enable filtering?"));
    QCOMPARE(messages_[0].onDismiss, MessageAnswer::No);
    QVERIFY(window.enableFilteringRequested());

    // The next opening shows what was applied.
    FilterSettings fresh;
    FilterSetupWindow again(fresh, FilterMode::Packet, true);
    QVERIFY(Child<QRadioButton>(again, "rangeKind1")->isChecked());
    QCOMPARE(Child<QListWidget>(again, "rangeList")->count(), 1);
    QCOMPARE(Child<QLineEdit>(again, "port2")->text(), QStringLiteral("53"));
    QCOMPARE(Child<QListWidget>(again, "mustContainList")->count(), 1);
    QVERIFY(!Child<QCheckBox>(again, "allowArp")->isChecked());
  }

  void refusalsShowTheirMessages() {
    FilterSettings settings;
    FilterSetupWindow window(settings, FilterMode::Packet, true);
    Child<QRadioButton>(window, "rangeKind3")->click();
    Type(window, "from", "0.0.0.0");
    Type(window, "to", "10.0.0.1");
    Click(window, "addRange");
    QCOMPARE(messages_.size(), 1);
    QCOMPARE(messages_.last().text, QStringLiteral("The IP address range must not contain a NULL IP."));

    Click(window, "removeRange");
    QCOMPARE(messages_.last().text, QStringLiteral("No item selected."));
    Click(window, "mustNotContainRemove");
    QCOMPARE(messages_.last().caption, QStringLiteral("None"));

    // A profile may leave every radio button off; then both range buttons say so.
    FilterProfile none;
    none.window.selectedRangeKind = -1;
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("none.HBFP"));
    QVERIFY(SaveFilterProfile(none, file.toStdString()).ok());
    QVERIFY(window.loadProfileFile(file));
    Type(window, "from", "10.0.0.1");
    Type(window, "to", "10.0.0.2");
    Click(window, "addRange");
    QCOMPARE(messages_.last().caption, QStringLiteral("No filter selected"));
    Click(window, "removeRange");
    QCOMPARE(messages_.last().text, QStringLiteral("There does not seem to be a filter type selected."));

    // A damaged profile is reported and changes nothing.
    const QString bad = dir.filePath(QStringLiteral("bad.HBFP"));
    std::ofstream(bad.toStdString()) << "{\"version\": 1, \"destPorts\": [\"x\"]}";
    QVERIFY(!window.loadProfileFile(bad));
    QVERIFY(messages_.last().text.contains(QStringLiteral("(destPorts)")));
    QCOMPARE(Child<QLineEdit>(window, "from")->text(), QStringLiteral("10.0.0.1"));

    window.reject();
    QVERIFY(!window.changesApplied());
    QCOMPARE(settings.Values(), FilterValues{});
  }

  void resolverAnswersWithoutBlockingTheWindow() {
    FilterSettings settings;
    FilterSetupWindow window(settings, FilterMode::Packet, true);
    Type(window, "resolver", "localhost");
    window.copyToFilters();
    QTRY_VERIFY_WITH_TIMEOUT(!window.lookupInProgress(), 10000);
    QTRY_VERIFY(Child<QLineEdit>(window, "resolver")->text().startsWith(QStringLiteral("127.")));
    QCOMPARE(Child<QLineEdit>(window, "from")->text(), Child<QLineEdit>(window, "resolver")->text());
    QCOMPARE(Child<QLineEdit>(window, "to")->text(), Child<QLineEdit>(window, "resolver")->text());
    QVERIFY(messages_.isEmpty());

    Type(window, "resolver", "not an address");
    window.reverseResolve();
    QTRY_VERIFY_WITH_TIMEOUT(!messages_.isEmpty(), 10000);
    QCOMPARE(messages_.last().text, QStringLiteral("Unable to reverse resolve address."));
  }
};

QTEST_MAIN(FilterSetupWindowTest)
#include "filter_setup_window_test.moc"
