// The Graphical Packets Mode window. Capture threads only add to their gatherers; the frame
// timer on the window thread takes the gathered pairs, advances the scene and repaints, so the
// picture's cost depends on what is on screen, never on the packet rate. Host names for the
// hover tip are looked up on worker threads and cached.
#include "ui/graphical/graphical_mode_window.hpp"

#include <QApplication>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QKeyEvent>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QSet>
#include <QTimer>
#include <QToolTip>
#include <map>
#include <vector>

#include "capture/interfaces.hpp"
#include "capture/mode_capture.hpp"
#include "common/settings.hpp"
#include "graphical/gatherer.hpp"
#include "graphical/scene.hpp"
#include "graphical/view_state.hpp"
#include "filters/filter_window_model.hpp"
#include "ui/shell/background.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/graphical/graphical_painter.hpp"
#include "ui/graphical/graphical_settings_window.hpp"
#include "ui/shell/interface_chooser.hpp"
#include "ui/shell/mode_window.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

using graphical::Key;
using graphical::KeyAction;

// Beeps come at most this often, whatever the packet rate: a chirp per packet at 20,000
// packets a second would be one long tone.
constexpr std::int64_t kChirpGapMs = 100;
constexpr int kStartSpacing = 40;  // pixels between the two start texts
constexpr int kButtonGap = 12;
const QColor kTextColour(0xFF, 0xFF, 0x00);

// One running capture: an interface (with the host addresses it holds) or a capture file,
// which is fed to the gatherer at its recorded pace times `replaySpeed`.
struct Capture {
  Capture(std::string name, graphical::Colour c, std::optional<int> replaySpeed)
      : device(std::move(name)), colour(c),
        paced(replaySpeed ? std::make_unique<graphical::PacedSink>(gatherer, *replaySpeed) : nullptr),
        capture(paced ? static_cast<FrameSink&>(*paced) : gatherer) {}
  std::string device;
  graphical::Colour colour;
  graphical::PairGatherer gatherer;
  std::unique_ptr<graphical::PacedSink> paced;  // capture files only
  ModeCapture capture;  // declared last: its thread ends before the sinks it feeds go
};

Key KeyOf(int qtKey) {
  static const std::map<int, Key> keys = {
      {Qt::Key_F1, Key::F1},   {Qt::Key_F2, Key::F2},         {Qt::Key_F3, Key::F3},
      {Qt::Key_F4, Key::F4},   {Qt::Key_F5, Key::F5},         {Qt::Key_F6, Key::F6},
      {Qt::Key_F7, Key::F7},   {Qt::Key_F8, Key::F8},         {Qt::Key_F9, Key::F9},
      {Qt::Key_F10, Key::F10}, {Qt::Key_F11, Key::F11},       {Qt::Key_F12, Key::F12},
      {Qt::Key_Space, Key::Space}, {Qt::Key_Escape, Key::Escape},
      {Qt::Key_Return, Key::Enter}, {Qt::Key_Enter, Key::Enter}};
  const auto found = keys.find(qtKey);
  return found == keys.end() ? Key::Other : found->second;
}

// The four bytes of a dotted address for the "%u.%u.%u.%u" notices.
QString AddressNotice(Text text, const std::string& address) {
  const graphical::Ipv4 a = graphical::ParseDotted(address);
  return TF(text, (a >> 24) & 0xFFu, (a >> 16) & 0xFFu, (a >> 8) & 0xFFu, a & 0xFFu);
}

// Every up IPv4 address of the host, by the interface that holds it.
std::map<std::string, std::vector<std::string>> HostAddressesByDevice(std::optional<CaptureMessage>& failure) {
  const InterfaceList list = ListInterfaces();
  failure = list.failure;
  std::map<std::string, std::vector<std::string>> byDevice;
  for (const InterfaceRow& row : list.rows) {
    // IPv4 ones only: the notices name addresses in dotted form, and a capture on an interface's
    // IPv4 address sees its IPv6 traffic as well.
    if (row.kind == InterfaceKind::RawSockets && row.address.find(':') == std::string::npos) {
      byDevice[row.device].push_back(row.address);
    }
  }
  return byDevice;
}

}  // namespace

struct GraphicalModeWindow::Impl : CaptureHooks {
  GraphicalModeWindow& window;
  ProgramSettings& settings;
  graphical::Scene scene;
  graphical::LabelRandom colourRandom;
  std::vector<std::unique_ptr<Capture>> captures;
  std::vector<std::string> knownAddresses;
  bool watchAddresses = false;  // live Raw Sockets captures follow the host's addresses
  QString replayName;
  bool replayEndShown = false;
  QElapsedTimer clock;
  QTimer frameTimer, watchTimer;
  QString noticeText;
  std::int64_t noticeUntil = 0;
  bool helpVisible = false;
  QRect beginRect, kindRect, helpRect;
  QList<QPushButton*> startButtons;
  ModeShell* shell = nullptr;
  std::vector<CaptureMessage> messages;  // taken from sessions before they go
  PaintStyle style;
  LabelTextCache texts;
  QImage image;  // the frame, drawn in full and then shown
  QHash<IpAddress, QString> hostNames;
  QSet<IpAddress> lookups;
  std::int64_t lastChirp = -kChirpGapMs;
  std::int64_t lastRefresh = 0;
  QRect normalGeometry;

  Impl(GraphicalModeWindow& w, ProgramSettings& s)
      : window(w), settings(s),
        scene(graphical::PlacementSeed(QCursor::pos().x(), QCursor::pos().y(),
                                       QDateTime::currentMSecsSinceEpoch()),
              s.graphical),
        colourRandom(static_cast<std::uint32_t>(QDateTime::currentMSecsSinceEpoch())) {}

  std::int64_t Now() const { return clock.elapsed(); }
  graphical::ViewState& State() { return scene.State(); }

  void BuildStartButtons();
  void Begin();
  void StartLive();
  bool StartReplay(const std::string& file);

  bool StartOn(const CaptureTarget& target) override {
    StopCaptures();
    if (target.type == CaptureTarget::Type::File) return StartReplay(target.name);
    StartLive();
    return true;
  }
  void RestartOn(const CaptureTarget& target) override { StartOn(target); }
  void StopCapture() override { StopCaptures(); }
  void QuitCapture() override { StopCaptures(); }
  bool Capturing() const override {
    return std::ranges::any_of(captures, [](const auto& c) { return c->capture.Capturing(); });
  }
  bool ReadingFile() const override {
    return !captures.empty() && captures.front()->capture.ReadingFile();
  }
  CaptureStatusSnapshot StatusSnapshot() const override {
    return captures.empty() ? CaptureStatusSnapshot{} : captures.front()->capture.Status();
  }
  std::vector<CaptureMessage> TakeMessages() override {
    DrainMessages();
    return std::exchange(messages, {});
  }
  std::uint64_t Drops() const override {
    std::uint64_t dropped = 0;
    for (const auto& capture : captures) dropped += capture->capture.Dropped();
    return dropped;
  }
  // Raw Sockets listen on every address of the host; only an adapter must be chosen.
  bool StartsOnChosenInterface() const override {
    return settings.interface.chosenKind == InterfaceKind::PacketDriver;
  }
  void CaptureChanged() override { window.update(); }
  Capture& AddCapture(std::string device, const CaptureTarget& target,
                      std::optional<int> replaySpeed = std::nullopt);
  void StopCaptures();
  void WatchAddresses();
  void DrainMessages();
  void ApplyFullScreen();
  void HandleKey(Key key);
  void PaintStartSurface(QPainter& painter);
  QRect HelpBox(int surfaceWidth) const;
  void LayOutButtons();
  QSize MinimumSize() const;
  void PaintOverlays(QPainter& painter);
  void ShowHoverTip(const QPoint& at, const QPoint& global);
};

void GraphicalModeWindow::Impl::BuildStartButtons() {
  const auto add = [&](Text text, auto slot) {
    auto* button = new QPushButton(T(text), &window);
    connect(button, &QPushButton::clicked, &window, slot);
    startButtons << button;
  };
  add(Text::GpButtonExit, [this] { shell->Exit(); });
  add(Text::GpButtonHelp, [this] {
    helpVisible = !helpVisible;
    window.update();
  });
  add(Text::GpButtonSettings, [this] { window.openSettings(); });
  for (QPushButton* button : startButtons) button->setFocusPolicy(Qt::NoFocus);
}

Capture& GraphicalModeWindow::Impl::AddCapture(std::string device, const CaptureTarget& target,
                                               std::optional<int> replaySpeed) {
  Capture& added = *captures.emplace_back(std::make_unique<Capture>(
      std::move(device), graphical::BrightColour(colourRandom), replaySpeed));
  added.capture.Start(target);
  return added;
}

void GraphicalModeWindow::Impl::StopCaptures() {
  for (auto& capture : captures) {
    if (capture->paced) capture->paced->Cancel();
    capture->capture.Stop();
  }
  DrainMessages();
  captures.clear();  // each capture joins its thread here
  watchAddresses = false;
  replayName.clear();
}

void GraphicalModeWindow::Impl::Begin() {
  State().started = true;
  for (QPushButton* button : startButtons) button->hide();
  helpVisible = false;
}

void GraphicalModeWindow::Impl::WatchAddresses() {
  std::optional<CaptureMessage> failure;
  const auto byDevice = HostAddressesByDevice(failure);
  if (failure) return;  // try again next time; the captures that run go on
  std::vector<std::string> now;
  for (const auto& [device, addresses] : byDevice) now.insert(now.end(), addresses.begin(), addresses.end());
  const graphical::AddressChanges changes = graphical::CompareAddresses(knownAddresses, now);
  knownAddresses = now;
  QStringList notices;
  for (const std::string& gone : changes.removed) {
    notices << AddressNotice(Text::GpInterfaceGone, gone);
  }
  // A capture whose interface holds none of the host's addresses any more ends.
  std::erase_if(captures, [&](const std::unique_ptr<Capture>& c) {
    const bool vanished = !byDevice.contains(c->device);
    if (vanished) c->capture.Stop();
    return vanished;
  });
  for (const std::string& added : changes.added) {
    notices << AddressNotice(Text::GpNewInterface, added);
  }
  for (const auto& [device, addresses] : byDevice) {
    const bool running = std::ranges::any_of(captures, [&](const auto& c) { return c->device == device; });
    if (!running) AddCapture(device, CaptureTarget::Address(addresses.front()));
  }
  if (!notices.isEmpty()) window.showNotice(notices.join(QLatin1Char('\n')));
}

void GraphicalModeWindow::Impl::DrainMessages() {
  for (auto& capture : captures) {
    for (CaptureMessage& message : capture->capture.Messages().Drain()) {
      messages.push_back(std::move(message));
    }
  }
}

void GraphicalModeWindow::Impl::ApplyFullScreen() {
  if (normalGeometry.isNull() && !window.isFullScreen()) normalGeometry = window.geometry();
  QScreen* primary = QGuiApplication::primaryScreen();
  switch (State().fullScreen) {
    case graphical::FullScreen::Off:
      window.setWindowFlags(Qt::Window);
      window.showNormal();
      if (!normalGeometry.isNull()) window.setGeometry(normalGeometry);
      break;
    case graphical::FullScreen::Primary:
      window.setWindowFlags(Qt::Window);
      if (primary) window.setGeometry(primary->geometry());
      window.showFullScreen();
      break;
    case graphical::FullScreen::AllDisplays:
      // One frameless window over the whole virtual desktop: full screen covers one screen only.
      window.setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
      if (primary) window.setGeometry(primary->virtualGeometry());
      window.show();
      break;
  }
}

void GraphicalModeWindow::Impl::HandleKey(Key key) {
  const graphical::KeyOutcome outcome = graphical::HandleKey(State(), key);
  settings.graphical = State().options;
  if (outcome.notice) {
    const graphical::Notice& n = *outcome.notice;
    window.showNotice(n.number ? TF(n.text, *n.number) : T(n.text));
  }
  switch (outcome.action) {
    case KeyAction::None: break;
    case KeyAction::ShowHelp:
      helpVisible = !helpVisible;
      break;
    case KeyAction::ShowAbout: shell->ShowAbout(); break;
    case KeyAction::Redraw: break;
    case KeyAction::ClearAndRestart:
      helpVisible = false;
      scene.Clear();
      frameTimer.start(kFrameMilliseconds);
      break;
    case KeyAction::OpenSettings: window.openSettings(); break;
    case KeyAction::ApplyFullScreen: ApplyFullScreen(); break;
    case KeyAction::ApplyReplaySpeed:
      for (auto& capture : captures) {
        if (capture->paced) capture->paced->SetSpeed(State().options.replaySpeed);
      }
      break;
    case KeyAction::Begin: window.startListening(); break;
  }
  window.update();
}

void GraphicalModeWindow::Impl::PaintStartSurface(QPainter& painter) {
  painter.fillRect(window.rect(), Qt::black);
  painter.setPen(kTextColour);
  QFont font = window.font();
  font.setPointSizeF(font.pointSizeF() * 1.4);
  painter.setFont(font);
  const QFontMetrics metrics(font);
  const QString begin = T(Text::GpStartBegin);
  const Text kindName = settings.interface.chosenKind == InterfaceKind::RawSockets
                            ? Text::GpKindRawSockets : Text::GpKindPacketDriver;
  const QString kind = TF(Text::GpStartInterfaceKind, Tr(kindName, Language()));
  const QPoint centre = window.rect().center();
  beginRect = metrics.boundingRect(begin).adjusted(-6, -4, 6, 4);
  beginRect.moveCenter(QPoint(centre.x(), centre.y() - kStartSpacing / 2));
  kindRect = metrics.boundingRect(kind).adjusted(-6, -4, 6, 4);
  kindRect.moveCenter(QPoint(centre.x(), centre.y() + kStartSpacing / 2));
  painter.drawText(beginRect, Qt::AlignCenter, begin);
  painter.drawText(kindRect, Qt::AlignCenter, kind);
  LayOutButtons();
}

QRect GraphicalModeWindow::Impl::HelpBox(int surfaceWidth) const {
  const QString help = FromCrLf(Tr(Text::GpHelp, Language()));
  const QRect box(0, 0, std::min(760, surfaceWidth - 40), 0);
  return QFontMetrics(window.font())
      .boundingRect(box, Qt::TextWordWrap, help)
      .adjusted(-14, -12, 14, 12);
}

// The buttons sit in a row below the texts, or below the help while it shows; the window's
// minimum size leaves room for both, so neither is ever drawn over the other.
void GraphicalModeWindow::Impl::LayOutButtons() {
  int rowWidth = 0, rowHeight = 0;
  for (QPushButton* b : startButtons) {
    rowWidth += b->sizeHint().width() + kButtonGap;
    rowHeight = std::max(rowHeight, b->sizeHint().height());
  }
  int top = kindRect.bottom() + kStartSpacing;
  if (helpVisible) {
    helpRect = HelpBox(window.width());
    const int total = helpRect.height() + kButtonGap + rowHeight;
    helpRect.moveTopLeft(QPoint((window.width() - helpRect.width()) / 2,
                                std::max(kButtonGap, (window.height() - total) / 2)));
    top = helpRect.bottom() + kButtonGap;
  }
  top = std::min(top, window.height() - rowHeight - kButtonGap);
  int x = window.rect().center().x() - rowWidth / 2;
  for (QPushButton* b : startButtons) {
    b->setGeometry(x, top, b->sizeHint().width(), rowHeight);
    x += b->sizeHint().width() + kButtonGap;
  }
}

// Room for the help with the buttons below it at the narrowest width the help is laid out in.
QSize GraphicalModeWindow::Impl::MinimumSize() const {
  constexpr int kMinimumWidth = 640;
  int rowHeight = 0;
  for (QPushButton* b : startButtons) rowHeight = std::max(rowHeight, b->sizeHint().height());
  return {kMinimumWidth, HelpBox(kMinimumWidth).height() + rowHeight + 4 * kButtonGap};
}

void GraphicalModeWindow::Impl::PaintOverlays(QPainter& painter) {
  painter.setFont(window.font());
  const QFontMetrics metrics(window.font());
  if (const std::uint64_t skipped = scene.NotDrawn(); skipped > 0) {
    painter.setPen(kTextColour);
    painter.drawText(QPoint(8, window.height() - metrics.descent() - 6),
                     TF(Text::GpNotDrawn, static_cast<unsigned long long>(skipped)));
  }
  if (Now() < noticeUntil && !noticeText.isEmpty()) {
    QRect box = metrics.boundingRect(QRect(0, 0, window.width() - 40, 0), Qt::AlignCenter, noticeText);
    box.adjust(-12, -8, 12, 8);
    box.moveCenter(QPoint(window.width() / 2, 20 + box.height() / 2));
    painter.fillRect(box, Qt::black);
    painter.setPen(kTextColour);
    painter.drawRect(box);
    painter.drawText(box, Qt::AlignCenter, noticeText);
  }
  if (helpVisible) {
    const QString help = FromCrLf(Tr(Text::GpHelp, Language()));
    QRect box = helpRect;
    if (State().started) {  // no buttons to make room for
      box = HelpBox(window.width());
      box.moveCenter(window.rect().center());
      if (box.top() < 0) box.moveTop(0);
    }
    painter.fillRect(box, Qt::black);
    painter.setPen(kTextColour);
    painter.drawRect(box);
    painter.drawText(box.adjusted(14, 12, -14, -12), Qt::TextWordWrap, help);
  }
}

void GraphicalModeWindow::Impl::ShowHoverTip(const QPoint& at, const QPoint& global) {
  const graphical::Label* label = scene.Board().At(at.x(), at.y());
  if (!label) {
    QToolTip::hideText();
    return;
  }
  const IpAddress address = label->address;
  QString name;
  if (const auto found = hostNames.find(address); found != hostNames.end()) {
    name = *found;
  } else {
    name = T(Text::GpResolving);
    if (!lookups.contains(address)) {
      lookups.insert(address);
      RunInBackground(
          &window, [text = label->text] { return ReverseResolveAddress(text); },
          [this, address](std::optional<std::string> resolved) {
            lookups.remove(address);
            hostNames.insert(address, resolved ? QString::fromStdString(*resolved) : T(Text::GpNoHostName));
            const QPoint cursor = window.mapFromGlobal(QCursor::pos());
            ShowHoverTip(cursor, QCursor::pos());
          });
    }
  }
  const QString tip = FromCrLf(FormatText(Text::GpTooltip, Language(), label->text.c_str(),
                                          name.toUtf8().constData(),
                                          static_cast<unsigned long long>(label->packets),
                                          static_cast<unsigned long long>(label->bytes)));
  QToolTip::showText(global, tip, &window);
}

GraphicalModeWindow::GraphicalModeWindow(ProgramSettings& settings, bool startMinimized,
                                         bool autoListen, std::filesystem::path settingsFile,
                                         QWidget* parent)
    : QWidget(parent), impl_(std::make_unique<Impl>(*this, settings)) {
  Impl& d = *impl_;
  d.shell = new ModeShell(*this, d, settings, ProgramMode::GraphicalPackets,
                          Text::ModeGraphicalPackets, Text::GpHelp, std::move(settingsFile));
  setAttribute(Qt::WA_OpaquePaintEvent);
  setMouseTracking(true);
  setFocusPolicy(Qt::StrongFocus);
  QPalette black = palette();
  black.setColor(QPalette::Window, Qt::black);
  setPalette(black);
  d.style.labelColour = kTextColour;
  d.style.labelFont = font();
  d.BuildStartButtons();
  setMinimumSize(d.MinimumSize());
  resize(1024, 700);
  d.clock.start();
  connect(&d.frameTimer, &QTimer::timeout, this, &GraphicalModeWindow::frame);
  d.frameTimer.setTimerType(Qt::PreciseTimer);
  d.frameTimer.start(kFrameMilliseconds);
  connect(&d.watchTimer, &QTimer::timeout, this, [this] {
    Impl& i = *impl_;
    if (i.watchAddresses) i.WatchAddresses();
    i.shell->SetTrayTip(trayTip());
  });
  d.watchTimer.start(kAddressWatchMilliseconds);
  d.shell->StartAsAsked(startMinimized, autoListen);
}

GraphicalModeWindow::~GraphicalModeWindow() { impl_->StopCaptures(); }

void GraphicalModeWindow::startListening() { impl_->shell->Start(); }

// Listens on the chosen adapter, or on every address of the host with Raw Sockets.
void GraphicalModeWindow::Impl::StartLive() {
  if (settings.interface.chosenKind == InterfaceKind::PacketDriver) {
    Begin();
    AddCapture(settings.interface.adapterDevice, CaptureTarget::FromSettings(settings.interface));
    return;
  }
  std::optional<CaptureMessage> failure;
  const auto byDevice = HostAddressesByDevice(failure);
  if (failure) {
    messages.push_back(std::move(*failure));
    return;
  }
  Begin();
  knownAddresses.clear();
  for (const auto& [device, addresses] : byDevice) {
    knownAddresses.insert(knownAddresses.end(), addresses.begin(), addresses.end());
    AddCapture(device, CaptureTarget::Address(addresses.front()));
  }
  watchAddresses = true;
}

void GraphicalModeWindow::stopListening() { impl_->shell->Stop(); }

// A replay replaces whatever ran, as a new picture does.
bool GraphicalModeWindow::openCaptureFile(const QString& path) {
  impl_->StopCaptures();
  return impl_->shell->OpenCaptureFile(path);
}

bool GraphicalModeWindow::Impl::StartReplay(const std::string& file) {
  Begin();
  replayName = QFileInfo(QFile::decodeName(file.c_str())).fileName();
  replayEndShown = false;
  Capture& added = *captures.emplace_back(std::make_unique<Capture>(
      file, graphical::BrightColour(colourRandom), State().options.replaySpeed));
  return added.capture.Start(CaptureTarget::File(file));
}

void GraphicalModeWindow::openCaptureFileDialog() {
  impl_->StopCaptures();
  impl_->shell->OpenCaptureFileDialog();
}

void GraphicalModeWindow::openSettings() {
  Impl& d = *impl_;
  GraphicalSettingsWindow dialog(d.State().options, this);
  if (dialog.exec() != QDialog::Accepted) return;
  d.State().options = dialog.options();
  d.settings.graphical = d.State().options;
  for (auto& capture : d.captures) {
    if (capture->paced) capture->paced->SetSpeed(d.State().options.replaySpeed);
  }
}

void GraphicalModeWindow::toggleInterfaceKind() {
  InterfaceKind& kind = impl_->settings.interface.chosenKind;
  kind = kind == InterfaceKind::RawSockets ? InterfaceKind::PacketDriver : InterfaceKind::RawSockets;
  update();
}

void GraphicalModeWindow::switchModes(int targetMode) {
  impl_->shell->SwitchTo(static_cast<ProgramMode>(targetMode));
}

void GraphicalModeWindow::frame() {
  Impl& d = *impl_;
  const std::int64_t now = d.Now();
  std::uint64_t overflow = 0;
  for (auto& capture : d.captures) {
    const std::vector<graphical::PairTraffic> pairs = capture->gatherer.Drain(overflow);
    if (!pairs.empty()) d.scene.Feed(pairs, capture->colour, now);
  }
  d.scene.AddNotDrawn(overflow);
  d.scene.Advance(now);
  const GraphicalSettings& options = d.State().options;
  if (d.scene.TakeDrawnPackets() > 0 && options.chirp && now - d.lastChirp >= kChirpGapMs) {
    d.lastChirp = now;
    QApplication::beep();
  }
  if (options.refreshPeriodically && now - d.lastRefresh >= options.refreshSeconds * 1000LL) {
    d.lastRefresh = now;
    repaint();  // the whole surface at once, not waiting for the next coalesced update
  }
  if (!d.replayName.isEmpty() && !d.replayEndShown && !d.captures.empty() &&
      d.captures.front()->gatherer.Finished()) {
    d.replayEndShown = true;
    showNotice(T(Text::GpReplayFinished));
  }
  update();
}

bool GraphicalModeWindow::isCapturing() const {
  return impl_->Capturing();
}

QString GraphicalModeWindow::notice() const {
  return impl_->Now() < impl_->noticeUntil ? impl_->noticeText : QString();
}

QString GraphicalModeWindow::trayTip() const {
  const Impl& d = *impl_;
  std::string state;
  if (!d.replayName.isEmpty() && isCapturing()) {
    state = FormatText(Text::GpStateReplaying, Language(), d.replayName.toUtf8().constData(),
                       d.scene.Options().replaySpeed);
  } else if (isCapturing()) {
    state = FormatText(Text::GpStateListening, Language(), static_cast<int>(d.captures.size()));
  } else {
    state = Tr(Text::GpStateStopped, Language());
  }
  return FromCrLf(FormatText(Text::GpTrayTip, Language(), state.c_str()));
}

graphical::Scene& GraphicalModeWindow::scene() const { return impl_->scene; }

QRect GraphicalModeWindow::helpArea() const {
  return impl_->helpVisible && !impl_->State().started ? impl_->helpRect : QRect();
}

void GraphicalModeWindow::showNotice(const QString& text) {
  impl_->noticeText = text;
  impl_->noticeUntil = impl_->Now() + graphical::kNoticeMilliseconds;
  update();
}

void GraphicalModeWindow::paintEvent(QPaintEvent*) {
  Impl& d = *impl_;
  QPainter painter(this);
  if (!d.State().started) {
    d.PaintStartSurface(painter);
  } else {
    PaintScene(d.image, d.scene, d.Now(), d.style, d.texts);
    painter.drawImage(0, 0, d.image);
    d.scene.MarkShown();
  }
  d.PaintOverlays(painter);
}

void GraphicalModeWindow::keyPressEvent(QKeyEvent* event) {
  // The context-menu key arrives as a context-menu event of its own.
  if (event->key() == Qt::Key_Menu) return QWidget::keyPressEvent(event);
  const Key key = KeyOf(event->key());
  if (key == Key::Other) return QWidget::keyPressEvent(event);
  impl_->HandleKey(key);
}

void GraphicalModeWindow::mousePressEvent(QMouseEvent* event) {
  Impl& d = *impl_;
  if (d.State().started || event->button() != Qt::LeftButton) return;
  const QPoint at = event->position().toPoint();
  if (d.beginRect.contains(at)) startListening();
  else if (d.kindRect.contains(at)) toggleInterfaceKind();
}

void GraphicalModeWindow::mouseMoveEvent(QMouseEvent* event) {
  if (impl_->State().started) {
    impl_->ShowHoverTip(event->position().toPoint(), event->globalPosition().toPoint());
  }
}

void GraphicalModeWindow::resizeEvent(QResizeEvent*) { impl_->scene.SetSurface(width(), height()); }

void GraphicalModeWindow::contextMenuEvent(QContextMenuEvent* event) {
  if (event->reason() == QContextMenuEvent::Keyboard) return openSettings();
  QMenu menu(this);
  menu.addAction(T(Text::GpMenuOpenCaptureFile), this, &GraphicalModeWindow::openCaptureFileDialog);
  menu.addAction(T(Text::GpButtonSettings), this, &GraphicalModeWindow::openSettings);
  menu.addAction(T(Text::GpMenuStop), this, &GraphicalModeWindow::stopListening);
  impl_->shell->AddSwitchEntries(*menu.addMenu(T(Text::GpMenuSwitchModes)));
  menu.addAction(T(Text::GpButtonHelp), this, [this] { impl_->HandleKey(Key::F1); });
  // The key list is the help overlay above; the About box is the shared one.
  menu.addAction(T(Text::ShellMenuAbout), impl_->shell, &ModeShell::ShowAbout);
  menu.addAction(T(Text::GpButtonExit), impl_->shell, &ModeShell::Exit);
  menu.exec(event->globalPos());
}

void GraphicalModeWindow::closeEvent(QCloseEvent* event) {
  Impl& d = *impl_;
  if (!d.shell->BeginClose(*event)) return;
  d.frameTimer.stop();
  d.watchTimer.stop();
  d.settings.graphical = d.State().options;
  d.shell->EndClose(*event);
}

int RunGraphicalModeWindow(ProgramSettings& settings, const ModeWindowStart& start,
                           const QString& captureFile) {
  GraphicalModeWindow window(settings, start.startMinimized,
                             start.autoListen && captureFile.isEmpty(), start.settingsFile);
  window.show();
  if (!captureFile.isEmpty()) {
    QTimer::singleShot(0, &window, [&window, captureFile] { window.openCaptureFile(captureFile); });
  }
  return QApplication::exec();
}

}  // namespace vormelt::ui
