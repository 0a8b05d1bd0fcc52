// The mode-choice window. It has no frame of its own, so the title picture doubles as the drag
// handle and the outline is cut with a window mask (round top corners, square bottom ones).
#include "ui/shell/mode_choice_window.hpp"

#include <QCheckBox>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLinearGradient>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QRegion>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include "ui/shell/app_startup.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/mode_switch.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

constexpr int kWindowWidth = 420;
constexpr int kTitleHeight = 150;
constexpr int kLogoSize = 84;
constexpr int kLogoTop = 10;
constexpr int kMargin = 26;
constexpr int kButtonHeight = 34;
// The outline: a rounded rectangle whose corner ellipse is 300 x 150 pixels, joined with a plain
// rectangle from 100 pixels down, so only the top corners are round.
constexpr int kCornerEllipseWidth = 300;
constexpr int kCornerEllipseHeight = 150;
constexpr int kSquareOutlineTop = 100;
constexpr int kDragIntervalMs = 10;

// Buttons a shade lighter than the window, so they read as buttons on the dark green.
constexpr int kButtonLighterPercent = 135;
constexpr QRgb kRingGlow = 0xFFF6A0;
// Rings around the logo; three stay inside the title picture.
constexpr int kTitleRings = 3;

int IndexOf(ModeChoiceButton which) {
  switch (which) {
    case ModeChoiceButton::Packet: return 0;
    case ModeChoiceButton::File: return 1;
    case ModeChoiceButton::GraphicalPackets: return 2;
    case ModeChoiceButton::Statistical: return 3;
    case ModeChoiceButton::ToolsDecoder:
    case ModeChoiceButton::Exit: break;
  }
  return -1;
}

// The picture across the top: a dome of lighter green with faint rings around the logo and
// the program's name. Drawn here, at the window's size, rather than kept as a bitmap.
QPixmap DrawTitlePicture(int width, int height, const QString& name) {
  const qreal ratio = qApp ? qApp->devicePixelRatio() : 1.0;
  QPixmap picture(QSize(width, height) * ratio);
  picture.setDevicePixelRatio(ratio);
  picture.fill(QColor(kModeChoiceBackground));

  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  QLinearGradient sky(0, 0, 0, height);
  sky.setColorAt(0.0, QColor(0x13, 0x8F, 0x36));
  sky.setColorAt(1.0, QColor(kModeChoiceBackground));
  painter.fillRect(QRect(0, 0, width, height), sky);

  const QPointF centre(width / 2.0, kLogoTop + kLogoSize / 2.0);
  QColor glow(kRingGlow);
  for (int ring = 0; ring < kTitleRings; ++ring) {
    glow.setAlpha(48 - ring * 14);
    painter.setPen(QPen(glow, 2.0));
    const qreal radius = kLogoSize / 2.0 + 12 + ring * 18;
    painter.drawEllipse(centre, radius, radius);
  }

  QFont font = painter.font();
  font.setPointSizeF(17);
  font.setBold(true);
  font.setLetterSpacing(QFont::AbsoluteSpacing, 1.5);
  painter.setFont(font);
  const QRect nameBox(0, kLogoTop + kLogoSize + 8, width, height - kLogoTop - kLogoSize - 8);
  painter.setPen(QColor(0, 0, 0, 110));
  painter.drawText(nameBox.translated(1, 2), Qt::AlignHCenter | Qt::AlignTop, name);
  painter.setPen(Qt::white);
  painter.drawText(nameBox, Qt::AlignHCenter | Qt::AlignTop, name);
  return picture;
}

QPalette ModeChoicePalette() {
  QPalette palette = DialogPalette(QColor(kModeChoiceBackground), QColor(kModeChoiceText));
  const QColor raised = QColor(kModeChoiceBackground).lighter(kButtonLighterPercent);
  palette.setColor(QPalette::Button, raised);
  palette.setColor(QPalette::Base, raised);  // the check box must stand out from the window
  return palette;
}

}  // namespace

ModeChoiceWindow::ModeChoiceWindow(ProgramSettings& settings, StartupDecision& decision,
                                   QWidget* parent)
    : QDialog(parent, Qt::Dialog | Qt::FramelessWindowHint),
      settings_(settings),
      decision_(decision) {
  setWindowTitle(T(Text::ModeChoiceCaption));
  setWindowIcon(ProgramIcon());
  setPalette(ModeChoicePalette());
  setAutoFillBackground(true);
  BuildWidgets();

  dragTimer_ = new QTimer(this);
  dragTimer_->setInterval(kDragIntervalMs);
  connect(dragTimer_, &QTimer::timeout, this, [this] { FollowCursor(); });

  setFixedSize(kWindowWidth, sizeHint().height());
  UpdateOutline();
  PlaceWindow();
}

ModeChoiceWindow::~ModeChoiceWindow() = default;

void ModeChoiceWindow::BuildWidgets() {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, kMargin);
  layout->setSpacing(8);

  title_ = new QLabel(this);
  title_->setFixedSize(kWindowWidth, kTitleHeight);
  title_->setPixmap(DrawTitlePicture(kWindowWidth, kTitleHeight, T(Text::ProgramTitle)));
  title_->setToolTip(T(Text::ModeChoiceTitleTip));
  title_->setMouseTracking(true);  // a move without the button must reach us to end a drag
  title_->installEventFilter(this);
  layout->addWidget(title_);

  logo_ = new QLabel(title_);
  logo_->setPixmap(MakerLogo().scaled(kLogoSize, kLogoSize, Qt::KeepAspectRatio,
                                      Qt::SmoothTransformation));
  logo_->setGeometry((kWindowWidth - kLogoSize) / 2, kLogoTop, kLogoSize, kLogoSize);
  logo_->setCursor(Qt::PointingHandCursor);
  logo_->setToolTip(T(Text::ModeChoiceLogoTip));
  logo_->installEventFilter(this);

  auto* body = new QVBoxLayout;
  body->setContentsMargins(kMargin, 0, kMargin, 0);
  body->setSpacing(8);
  layout->addLayout(body);

  auto* prompt = new QLabel(T(Text::ModeChoicePrompt), this);
  prompt->setWordWrap(true);
  prompt->setAlignment(Qt::AlignCenter);
  body->addWidget(prompt);
  body->addSpacing(4);

  AddModeButton(body, ModeChoiceButton::Packet, Text::ModePacket);
  AddModeButton(body, ModeChoiceButton::File, Text::ModeFile);
  AddModeButton(body, ModeChoiceButton::GraphicalPackets, Text::ModeChoiceGraphicalButton);
  AddModeButton(body, ModeChoiceButton::Statistical, Text::ModeStatistical);

  auto* row = new QHBoxLayout;
  tools_ = new QPushButton(T(Text::ModeChoiceTools), this);
  help_ = new QPushButton(T(Text::ModeChoiceHelpButton), this);
  for (QPushButton* button : {tools_, help_}) {
    button->setMinimumHeight(kButtonHeight);
    button->setAutoDefault(false);
    row->addWidget(button);
  }
  body->addLayout(row);

  toolsMenu_ = new QMenu(this);
  toolsMenu_->setPalette(palette());  // a pop-up is a window of its own and inherits nothing
  toolsMenu_->addAction(T(Text::ModeDecoder), this,
                        [this] { Choose(ModeChoiceButton::ToolsDecoder); });
  connect(tools_, &QPushButton::clicked, this, [this] { ShowToolsMenu(); });
  connect(help_, &QPushButton::clicked, this, [this] { ShowHelp(); });

  remember_ = new QCheckBox(T(Text::ModeChoiceRemember), this);
  body->addWidget(remember_, 0, Qt::AlignHCenter);

  exit_ = new QPushButton(T(Text::ModeChoiceExit), this);
  exit_->setMinimumHeight(kButtonHeight);
  exit_->setAutoDefault(false);
  connect(exit_, &QPushButton::clicked, this, [this] { Choose(ModeChoiceButton::Exit); });
  body->addWidget(exit_);

  modeButtons_[0]->setDefault(true);
  modeButtons_[0]->setFocus();
}

QPushButton* ModeChoiceWindow::AddModeButton(QVBoxLayout* layout, ModeChoiceButton which,
                                             Text label) {
  auto* button = new QPushButton(T(label), this);
  button->setMinimumHeight(kButtonHeight);
  QFont font = button->font();
  font.setBold(true);
  button->setFont(font);
  connect(button, &QPushButton::clicked, this, [this, which] { Choose(which); });
  layout->addWidget(button);
  modeButtons_[IndexOf(which)] = button;
  return button;
}

QPushButton* ModeChoiceWindow::modeButton(ModeChoiceButton which) const {
  if (which == ModeChoiceButton::Exit) return exit_;
  const int index = IndexOf(which);
  return index < 0 ? nullptr : modeButtons_[index];
}

void ModeChoiceWindow::Choose(ModeChoiceButton button) {
  const bool warningAccepted = button == ModeChoiceButton::GraphicalPackets &&
                               NeedsGraphicalWarning(ProgramMode::GraphicalPackets, settings_) &&
                               AskGraphicalWarning(this);
  const ModeChoiceResult result =
      ApplyModeChoice(button, remember_->isChecked(), warningAccepted, settings_, decision_);
  if (result == ModeChoiceResult::StayOpen) return;
  choice_ = result;
  if (result == ModeChoiceResult::Exit) {
    reject();
  } else {
    accept();
  }
}

void ModeChoiceWindow::ShowToolsMenu() {
  // popup, not exec: the menu opens below the button and the window keeps its own event loop.
  toolsMenu_->popup(tools_->mapToGlobal(QPoint(0, tools_->height())));
}

void ModeChoiceWindow::ShowHelp() {
  MessageRequest request;
  request.caption = T(Text::ProgramTitle);
  request.text = FromCrLf(Tr(Text::ModeChoiceHelpText, Language()));
  request.icon = MessageIcon::Information;
  ShowMessage(this, request);
}

void ModeChoiceWindow::UpdateOutline() {
  QPainterPath rounded;
  rounded.addRoundedRect(QRectF(0, 0, width(), height()), kCornerEllipseWidth / 2.0,
                         kCornerEllipseHeight / 2.0);
  const QRegion top(rounded.toFillPolygon().toPolygon());
  const QRegion square(0, kSquareOutlineTop, width(), height() - kSquareOutlineTop);
  setMask(top.united(square));
}

void ModeChoiceWindow::resizeEvent(QResizeEvent* event) {
  QDialog::resizeEvent(event);
  UpdateOutline();
}

void ModeChoiceWindow::PlaceWindow() {
  const WindowState& saved = settings_.modeChoiceWindow;
  const QPoint savedTopLeft(saved.x, saved.y);
  if (saved.valid && QGuiApplication::screenAt(savedTopLeft + QPoint(width() / 2, 20))) {
    move(savedTopLeft);
    return;
  }
  if (const QScreen* screen = QGuiApplication::primaryScreen()) {
    move(screen->availableGeometry().center() - rect().center());
  }
}

void ModeChoiceWindow::done(int result) {
  StopDrag();
  settings_.modeChoiceWindow.valid = true;
  settings_.modeChoiceWindow.x = x();
  settings_.modeChoiceWindow.y = y();
  settings_.modeChoiceWindow.width = width();
  settings_.modeChoiceWindow.height = height();
  QDialog::done(result);
}

bool ModeChoiceWindow::isDragging() const { return dragTimer_->isActive(); }

void ModeChoiceWindow::StartDrag(QPoint globalCursor) {
  // Compositors that place windows themselves (Wayland) move them only on request.
  if (QGuiApplication::platformName() == QLatin1String("wayland") && windowHandle()) {
    windowHandle()->startSystemMove();
    return;
  }
  grabOffset_ = globalCursor - pos();
  dragTimer_->start();
}

void ModeChoiceWindow::FollowCursor() {
  if (!(QGuiApplication::mouseButtons() & Qt::LeftButton)) {
    StopDrag();
    return;
  }
  move(QCursor::pos() - grabOffset_);
}

void ModeChoiceWindow::StopDrag() {
  if (dragTimer_) dragTimer_->stop();
}

bool ModeChoiceWindow::HandleTitleEvent(QEvent* event) {
  switch (event->type()) {
    case QEvent::MouseButtonPress: {
      auto* mouse = static_cast<QMouseEvent*>(event);
      if (mouse->button() != Qt::LeftButton) return false;
      StartDrag(mouse->globalPosition().toPoint());
      return true;
    }
    case QEvent::MouseButtonRelease: StopDrag(); return false;
    case QEvent::MouseMove:
      if (!(static_cast<QMouseEvent*>(event)->buttons() & Qt::LeftButton)) StopDrag();
      return false;
    default: return false;
  }
}

bool ModeChoiceWindow::HandleLogoEvent(QEvent* event) {
  switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
      // Taken here so the press does not fall through to the title picture and start a drag.
      return true;
    case QEvent::MouseButtonRelease: {
      auto* mouse = static_cast<QMouseEvent*>(event);
      if (mouse->button() == Qt::LeftButton && logo_->rect().contains(mouse->position().toPoint())) {
        QDesktopServices::openUrl(QUrl(QString::fromLatin1(kMakerPage)));
      }
      return true;
    }
    default: return false;
  }
}

bool ModeChoiceWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == logo_) return HandleLogoEvent(event);
  if (watched == title_) return HandleTitleEvent(event);
  return QDialog::eventFilter(watched, event);
}

}  // namespace vormelt::ui
