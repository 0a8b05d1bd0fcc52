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
#include "support/ui/widgets.hpp"
#include "ui/filter_setup_window.hpp"
#endif

using namespace vormelt;
using namespace vormelt::ui;
using vormelt::test::Child;

class FilterSetupWindowTest : public QObject {
  Q_OBJECT

 private:
  QTemporaryDir config_;
  std::unique_ptr<vormelt::test::MessageLog> log_;

  static void Click(QWidget& window, const char* name) { Child<QPushButton>(window, name).click(); }
  static void Type(QWidget& window, const char* name, const QString& text) {
    Child<QLineEdit>(window, name).setText(text);
  }

 private slots:
  void initTestCase() {
    // Never touch the real configuration folder of whoever runs the test.
    qputenv("XDG_CONFIG_HOME", config_.path().toUtf8());
  }

  void init() {
    log_ = std::make_unique<vormelt::test::MessageLog>();
    log_->answer = MessageAnswer::Yes;
    std::filesystem::remove(CurrentProfilePath(FilterMode::Packet));
    std::filesystem::remove(CurrentProfilePath(FilterMode::File));
  }

  void cleanup() { log_.reset(); }

  void okHandsRangesPortsAndTextsToTheFilter() {
    FilterSettings settings;
    FilterSetupWindow window(settings, FilterMode::Packet, false);
    window.show();
    Child<QRadioButton>(window, "rangeKind1").click();
    Type(window, "from", "10.0.0.9");
    Type(window, "to", "10.0.0.1");
    Click(window, "addRange");
    Click(window, "addRange");  // the same range again is skipped silently
    QListWidget* ranges = &Child<QListWidget>(window, "rangeList");
    QCOMPARE(ranges->count(), 1);
    QCOMPARE(ranges->item(0)->text(), QStringLiteral("10.0.0.1 - 10.0.0.9"));

    Type(window, "port2", "53, 0");
    Type(window, "mustContainEntry", "GET");
    Click(window, "mustContainAdd");
    Type(window, "maxPacketSize", "1500");
    Child<QCheckBox>(window, "allowArp").setChecked(false);
    QVERIFY(log_->asked.empty());

    Click(window, "ok");
    QVERIFY(!window.isVisible());
    const FilterValues v = settings.Values();
    QCOMPARE(v.sourceInRanges.size(), std::size_t{1});
    QCOMPARE(FormatRangeItem(v.sourceInRanges[0]), std::string("10.0.0.1 - 10.0.0.9"));
    QCOMPARE(v.destPorts, std::vector<std::uint16_t>{53});
    QCOMPARE(v.mustContain, std::vector<std::string>{"GET"});
    QCOMPARE(v.maxPacketSize, 1500u);
    QVERIFY(!v.allowArp && v.allowTcp);

    // Filtering was off, so closing asked whether to switch it on.
    QVERIFY(window.changesApplied());
    QCOMPARE(log_->asked.size(), size_t{1});
    QCOMPARE(log_->asked[0].caption, QStringLiteral("Enable filtering?"));
    QCOMPARE(log_->asked[0].onDismiss, MessageAnswer::No);
    QVERIFY(window.enableFilteringRequested());

    // The next opening shows what was applied.
    FilterSettings fresh;
    FilterSetupWindow again(fresh, FilterMode::Packet, true);
    QVERIFY(Child<QRadioButton>(again, "rangeKind1").isChecked());
    QCOMPARE(Child<QListWidget>(again, "rangeList").count(), 1);
    QCOMPARE(Child<QLineEdit>(again, "port2").text(), QStringLiteral("53"));
    QCOMPARE(Child<QListWidget>(again, "mustContainList").count(), 1);
    QVERIFY(!Child<QCheckBox>(again, "allowArp").isChecked());
  }

  // The editing rules are FilterWindowModel's; the window shows their refusals.
  void refusalsAndDamagedProfilesAreReportedAndChangeNothing() {
    FilterSettings settings;
    FilterSetupWindow window(settings, FilterMode::Packet, true);
    Child<QRadioButton>(window, "rangeKind3").click();
    Type(window, "from", "0.0.0.0");
    Type(window, "to", "10.0.0.1");
    Click(window, "addRange");
    QCOMPARE(log_->asked.back().text, QStringLiteral("The IP address range must not contain a NULL IP."));

    // A damaged profile is reported and changes nothing.
    QTemporaryDir dir;
    const QString bad = dir.filePath(QStringLiteral("bad.HBFP"));
    std::ofstream(bad.toStdString()) << "{\"version\": 1, \"destPorts\": [\"x\"]}";
    QVERIFY(!window.loadProfileFile(bad));
    QVERIFY(log_->asked.back().text.contains(QStringLiteral("(destPorts)")));
    QCOMPARE(Child<QLineEdit>(window, "from").text(), QStringLiteral("0.0.0.0"));

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
    QTRY_VERIFY(Child<QLineEdit>(window, "resolver").text().startsWith(QStringLiteral("127.")));
    QCOMPARE(Child<QLineEdit>(window, "from").text(), Child<QLineEdit>(window, "resolver").text());
    QCOMPARE(Child<QLineEdit>(window, "to").text(), Child<QLineEdit>(window, "resolver").text());
    QVERIFY(log_->asked.empty());

    Type(window, "resolver", "not an address");
    window.reverseResolve();
    QTRY_VERIFY_WITH_TIMEOUT(!log_->asked.empty(), 10000);
    QCOMPARE(log_->asked.back().text, QStringLiteral("Unable to reverse resolve address."));
  }
};

QTEST_MAIN(FilterSetupWindowTest)
#include "filter_setup_window_test.moc"
