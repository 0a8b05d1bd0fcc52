// The filter setup window driven through its controls: ranges, ports and texts reach
// FilterSettings on OK and refusals show their messages. The
// editing rules and the profile format are tested in tests/packetmode.
#include <QCheckBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QtTest>

// moc reads this file for the test class and cannot read the text catalogue behind these.
#ifndef Q_MOC_RUN
#include "filters/filter_profile.hpp"
#include "filters/filter_window_model.hpp"
#include "support/ui/widgets.hpp"
#include "ui/shell/filter_setup_window.hpp"
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
    QCOMPARE(Child<QListWidget>(window, "rangeList").count(), 1);

    Type(window, "port2", "53, 0");
    Type(window, "mustContainEntry", "GET");
    Click(window, "mustContainAdd");
    Child<QCheckBox>(window, "allowArp").setChecked(false);

    Click(window, "ok");
    QVERIFY(!window.isVisible());
    const FilterValues v = settings.Values();
    QCOMPARE(v.sourceInRanges.size(), std::size_t{1});
    QCOMPARE(FormatRangeItem(v.sourceInRanges[0]), std::string("10.0.0.1 - 10.0.0.9"));
    QCOMPARE(v.destPorts, std::vector<std::uint16_t>{53});
    QCOMPARE(v.mustContain, std::vector<std::string>{"GET"});
    QVERIFY(!v.allowArp && v.allowTcp);

    // Filtering was off, so closing asked whether to switch it on.
    QVERIFY(window.changesApplied());
    QCOMPARE(log_->asked.size(), size_t{1});
    QCOMPARE(log_->asked[0].caption, QStringLiteral("Enable filtering?"));
    QVERIFY(window.enableFilteringRequested());
  }

  // The editing rules are FilterWindowModel's; the window shows their refusals.
  void refusalsAreReportedAndCancelChangesNothing() {
    FilterSettings settings;
    FilterSetupWindow window(settings, FilterMode::Packet, true);
    Child<QRadioButton>(window, "rangeKind3").click();
    Type(window, "from", "0.0.0.0");
    Type(window, "to", "10.0.0.1");
    Click(window, "addRange");
    QCOMPARE(log_->asked.back().text, QStringLiteral("The IP address range must not contain a NULL IP."));

    window.reject();
    QVERIFY(!window.changesApplied());
    QCOMPARE(settings.Values(), FilterValues{});
  }
};

QTEST_MAIN(FilterSetupWindowTest)
#include "filter_setup_window_test.moc"
