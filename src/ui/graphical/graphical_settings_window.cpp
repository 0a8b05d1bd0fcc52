// The settings dialog of Graphical Packets Mode. Spin boxes hold every number inside the
// bounds the picture accepts, so nothing the user can enter needs a question afterwards.
#include "ui/graphical/graphical_settings_window.hpp"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QPalette>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "common/settings.hpp"
#include "graphical/view_state.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {

struct GraphicalSettingsWindow::Impl {
  GraphicalSettings options;
  QCheckBox* straight = nullptr;
  QCheckBox* quad = nullptr;
  QCheckBox* refresh = nullptr;
  QSpinBox* refreshSeconds = nullptr;
  QSpinBox* speed = nullptr;
  QSpinBox* delay = nullptr;
  QSpinBox* circularity = nullptr;
  QCheckBox* oscillate = nullptr;
  QCheckBox* chirp = nullptr;
  QSpinBox* ipTimeout = nullptr;
  QComboBox* replaySpeed = nullptr;
};

namespace {

QSpinBox* Spin(QWidget* parent, int min, int max, int value, Text unit) {
  auto* spin = new QSpinBox(parent);
  spin->setRange(min, max);
  spin->setValue(value);
  spin->setSuffix(QStringLiteral(" ") + T(unit));
  return spin;
}

QSpinBox* Spin(QWidget* parent, int min, int max, int value) {
  auto* spin = new QSpinBox(parent);
  spin->setRange(min, max);
  spin->setValue(value);
  return spin;
}

// On this mode's black palette the style fills the box with the base colour and outlines it
// with a shade of the window colour, both black: an unticked box vanished. A grey box with a
// lighter rim shows on black and keeps the tick in the text colour.
QCheckBox* Check(QWidget* parent, Text text, bool checked) {
  auto* box = new QCheckBox(T(text), parent);
  box->setChecked(checked);
  QPalette palette = box->palette();
  if (palette.color(QPalette::Base).lightness() < 64) {
    palette.setColor(QPalette::Base, QColor(0x30, 0x30, 0x30));
    palette.setColor(QPalette::Window, QColor(0xB0, 0xB0, 0xB0));
    box->setPalette(palette);
  }
  return box;
}

}  // namespace

GraphicalSettingsWindow::GraphicalSettingsWindow(const GraphicalSettings& options, QWidget* parent)
    : QDialog(parent), impl_(std::make_unique<Impl>()) {
  Impl& d = *impl_;
  d.options = options;
  setWindowTitle(T(Text::GpSettingsTitle));
  auto* layout = new QVBoxLayout(this);
  d.straight = Check(this, Text::GpSettingStraight, options.straightPixels);
  d.quad = Check(this, Text::GpSettingQuad, options.quadPixels);
  d.oscillate = Check(this, Text::GpSettingOscillate, options.oscillate);
  d.chirp = Check(this, Text::GpSettingChirp, options.chirp);
  d.refresh = Check(this, Text::GpSettingRefresh, options.refreshPeriodically);
  d.refreshSeconds = Spin(this, 1, 3600, options.refreshSeconds, Text::GpUnitSeconds);
  d.refreshSeconds->setEnabled(options.refreshPeriodically);
  connect(d.refresh, &QCheckBox::toggled, d.refreshSeconds, &QWidget::setEnabled);
  d.speed = Spin(this, 1, 10, options.pixelSpeed);
  d.delay = Spin(this, 0, 1000, options.extraDelayMs, Text::GpUnitMilliseconds);
  d.circularity = Spin(this, 0, 20, options.circularity);
  d.ipTimeout = Spin(this, graphical::kMinIpTimeout, graphical::kMaxIpTimeout, options.ipTimeout,
                     Text::GpUnitSeconds);
  d.replaySpeed = new QComboBox(this);
  for (const int speed : graphical::kReplaySpeeds) {
    d.replaySpeed->addItem(QStringLiteral("x%1").arg(speed), speed);
  }
  d.replaySpeed->setCurrentIndex(std::max(0, d.replaySpeed->findData(options.replaySpeed)));

  layout->addWidget(d.straight);
  layout->addWidget(d.quad);
  layout->addWidget(d.oscillate);
  auto* form = new QFormLayout;
  form->addRow(d.refresh, d.refreshSeconds);
  form->addRow(T(Text::GpSettingSpeed), d.speed);
  form->addRow(T(Text::GpSettingDelay), d.delay);
  form->addRow(T(Text::GpSettingCircularity), d.circularity);
  form->addRow(T(Text::GpSettingIpTimeout), d.ipTimeout);
  form->addRow(T(Text::GpSettingReplaySpeed), d.replaySpeed);
  layout->addLayout(form);
  layout->addWidget(d.chirp);

  auto* buttons = new QDialogButtonBox(this);
  buttons->addButton(T(Text::GpOk), QDialogButtonBox::AcceptRole);
  buttons->addButton(T(Text::GpCancel), QDialogButtonBox::RejectRole);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
}

GraphicalSettingsWindow::~GraphicalSettingsWindow() = default;

GraphicalSettings GraphicalSettingsWindow::options() const {
  const Impl& d = *impl_;
  GraphicalSettings o = d.options;
  o.straightPixels = d.straight->isChecked();
  o.quadPixels = d.quad->isChecked();
  o.oscillate = d.oscillate->isChecked();
  o.chirp = d.chirp->isChecked();
  o.refreshPeriodically = d.refresh->isChecked();
  o.refreshSeconds = d.refreshSeconds->value();
  o.pixelSpeed = d.speed->value();
  o.extraDelayMs = d.delay->value();
  o.circularity = d.circularity->value();
  o.ipTimeout = d.ipTimeout->value();
  o.replaySpeed = d.replaySpeed->currentData().toInt();
  return o;
}

}  // namespace vormelt::ui
