// The shared part of the mode windows. The commands follow the capture on a timer rather than
// being set when pressed: a capture ends on its own (end of file, a limit, an error) and a
// restart passes through a moment with nothing listening, and the buttons must show what is
// true now, not what the last press expected.
#include "ui/shell/mode_window.hpp"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QWidget>

#include "app/modes.hpp"
#include "capture/library_version.hpp"
#include "common/install_record.hpp"
#include "common/settings_store.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/interface_chooser.hpp"
#include "ui/shell/mode_switch.hpp"
#include "ui/shell/mode_tray.hpp"
#include "ui/shell/qt_text.hpp"

// Resources of a static library are registered by hand; the macro must stand outside any
// namespace.
static void RegisterPictureResources() { Q_INIT_RESOURCE(resources); }

namespace vormelt::ui {
namespace {

void EnsureResources() {
  static const bool registered = [] {
    RegisterPictureResources();
    return true;
  }();
  (void)registered;
}

QAction* Command(QWidget& window, Text menuText, Text buttonText, QStyle::StandardPixmap icon) {
  auto* action = new QAction(QApplication::style()->standardIcon(icon), T(menuText), &window);
  action->setIconText(T(buttonText));
  return action;
}

}  // namespace

QIcon ProgramIcon() {
  EnsureResources();
  QIcon icon;
  for (const char* size : {"16", "32", "64", "256"}) {
    icon.addFile(QStringLiteral(":/vormelt/icon-%1.png").arg(QLatin1String(size)));
  }
  return icon;
}

QPixmap MakerLogo() {
  EnsureResources();
  return QPixmap(QStringLiteral(":/vormelt/logo.png"));
}

ModeShell::ModeShell(QWidget& window, CaptureHooks& capture, ProgramSettings& settings,
                     ProgramMode mode, Text title, Text help, std::filesystem::path settingsFile)
    : QObject(&window), window_(window), capture_(capture), settings_(settings), mode_(mode),
      help_(help),
      settingsFile_(settingsFile.empty() ? DefaultSettingsFile() : std::move(settingsFile)) {
  window.setWindowTitle(T(title));
  window.setWindowIcon(ProgramIcon());
  start_ = Command(window, Text::PacketMenuStart, Text::PacketButtonStart, QStyle::SP_MediaPlay);
  stop_ = Command(window, Text::PacketMenuStop, Text::PacketButtonStop, QStyle::SP_MediaStop);
  choose_ = Command(window, Text::PacketMenuChooseInterface, Text::PacketButtonChooseInterface,
                    QStyle::SP_ComputerIcon);
  open_ = Command(window, Text::PacketMenuOpenCaptureFile, Text::PacketButtonOpenCaptureFile,
                  QStyle::SP_DialogOpenButton);
  open_->setShortcut(QKeySequence::Open);
  connect(start_, &QAction::triggered, this, [this] { Start(); });
  connect(stop_, &QAction::triggered, this, [this] { Stop(); });
  connect(choose_, &QAction::triggered, this, [this] { ChooseInterface(); });
  connect(open_, &QAction::triggered, this, [this] { OpenCaptureFileDialog(); });
  tray_ = AddModeTray(window, title, [this] { Exit(); });
  connect(&tick_, &QTimer::timeout, this, &ModeShell::Tick);
  tick_.start(kTickMilliseconds);
}

ModeShell::~ModeShell() = default;

QPushButton* ModeShell::Button(QAction& action, QWidget* parent) {
  auto* button = new QPushButton(action.iconText(), parent);
  button->setEnabled(action.isEnabled());
  connect(button, &QPushButton::clicked, &action, &QAction::trigger);
  connect(&action, &QAction::changed, button, [button, &action] {
    button->setEnabled(action.isEnabled());
  });
  return button;
}

void OpenCaptureFileWhenShown(ModeShell& shell, const ModeWindowStart& start) {
  if (start.captureFile.empty()) return;
  const QString path = QFile::decodeName(start.captureFile.c_str());
  QTimer::singleShot(0, &shell, [&shell, path] { shell.OpenCaptureFile(path); });
}

void ModeShell::StartAsAsked(bool startMinimized, bool autoListen) {
  RestorePlace();
  if (startMinimized) window_.setWindowState(window_.windowState() | Qt::WindowMinimized);
  if (autoListen) QTimer::singleShot(0, this, &ModeShell::Start);
}

WindowState& ModeShell::Place() {
  switch (mode_) {
    case ProgramMode::File: return settings_.fileMode.window;
    case ProgramMode::Statistical: return settings_.statistics.window;
    case ProgramMode::GraphicalPackets: return settings_.graphical.window;
    default: return settings_.packetMode.window;
  }
}

void ModeShell::RestorePlace() {
  const WindowState& saved = Place();
  const QRect wanted(saved.x, saved.y, saved.width, saved.height);
  // A place on a screen that is no longer attached would open the window out of sight.
  const QScreen* screen = saved.valid ? QGuiApplication::screenAt(wanted.center()) : nullptr;
  if (screen && saved.width > 0 && saved.height > 0) {
    window_.setGeometry(wanted);
  } else if (const QScreen* primary = QGuiApplication::primaryScreen()) {
    window_.resize(window_.size().boundedTo(primary->availableSize() * 0.95));
  }
  if (saved.maximized) window_.setWindowState(window_.windowState() | Qt::WindowMaximized);
}

void ModeShell::SavePlace() {
  WindowState& state = Place();
  // The place to come back to is the normal one, not the maximized or minimized frame.
  const QRect normal = window_.isMaximized() || window_.isMinimized() ? window_.normalGeometry()
                                                                       : window_.geometry();
  state.valid = normal.isValid();
  state.x = normal.x();
  state.y = normal.y();
  state.width = normal.width();
  state.height = normal.height();
  state.maximized = window_.isMaximized();
  state.minimized = window_.isMinimized() || window_.isHidden();
}

void ModeShell::Start() {
  if (capture_.Capturing() || capture_.Busy()) return;
  if (capture_.StartsOnChosenInterface() && !HasChosenInterface(settings_.interface) &&
      !InterfaceChooser::Choose(settings_, &window_)) {
    return;
  }
  settings_.interface.kindInUse = settings_.interface.chosenKind;
  capture_.StartOn(CaptureTarget::FromSettings(settings_.interface));
  Tick();
  capture_.CaptureChanged();
}

// Always passed on, even when nothing seems to listen: a restart may be about to take over,
// and this Stop must cancel it too.
void ModeShell::Stop() {
  capture_.StopCapture();
  Tick();
  capture_.CaptureChanged();
}

void ModeShell::ChooseInterface() {
  if (!InterfaceChooser::Choose(settings_, &window_)) return;
  // A file being read is not "listening on an interface": the choice waits for the next Start.
  if (!capture_.Capturing() || capture_.ReadingFile()) {
    ShowNotice(&window_, Text::NoticeCaption, T(Text::InterfaceChangeNotice),
               MessageIcon::Information);
    return;
  }
  settings_.interface.kindInUse = settings_.interface.chosenKind;
  capture_.RestartOn(CaptureTarget::FromSettings(settings_.interface));
  Tick();
  capture_.CaptureChanged();
}

std::string& ModeShell::CaptureFolder() {
  return mode_ == ProgramMode::File ? settings_.fileMode.lastCaptureFolder
                                    : settings_.packetMode.lastFolder;
}

void ModeShell::OpenCaptureFileDialog() {
  const QString filter =
      T(Text::PacketCaptureFileFilter) + QStringLiteral(";;") + T(Text::PacketAllFilesFilter);
  const QString path = QFileDialog::getOpenFileName(
      &window_, T(Text::PacketOpenCaptureCaption), QString::fromStdString(CaptureFolder()), filter);
  if (path.isEmpty()) return;
  CaptureFolder() = QFileInfo(path).absolutePath().toStdString();
  OpenCaptureFile(path);
}

bool ModeShell::OpenCaptureFile(const QString& path) {
  if (capture_.Capturing() || capture_.Busy()) {
    ShowNotice(&window_, Text::ProgramTitle, T(Text::PacketStopListeningFirst), MessageIcon::Stop);
    return false;
  }
  const bool started = capture_.StartOn(CaptureTarget::File(QFile::encodeName(path).toStdString()));
  Tick();
  capture_.CaptureChanged();
  return started;
}

void ModeShell::SwitchTo(ProgramMode target) {
  if (SwitchModesFrom(&window_, settings_, mode_, target) != SwitchDecision::CloseThenRelaunch) {
    return;
  }
  capture_.StopCapture();
  pendingSwitch_ = static_cast<std::int32_t>(target);
  window_.close();
}

void ModeShell::Exit() {
  exitRequested_ = true;
  window_.close();
}

void ModeShell::AddSwitchEntries(QMenu& menu) {
  for (const ModeEntry& entry : ModeList()) {
    if (entry.mode == mode_ || entry.relaunchWord.empty()) continue;
    const ProgramMode target = entry.mode;
    menu.addAction(T(entry.name), this, [this, target] { SwitchTo(target); });
  }
}

void ModeShell::AddHelpEntries(QMenu& menu) {
  menu.addAction(T(Text::ShellMenuKeys), this, &ModeShell::ShowHelp);
  menu.addAction(T(Text::ShellMenuAbout), this, &ModeShell::ShowAbout);
}

void ModeShell::AddSwitchAndHelpMenus(QMenuBar& bar) {
  AddSwitchEntries(*bar.addMenu(T(Text::PacketMenuSwitchModes)));
  AddHelpEntries(*bar.addMenu(T(Text::ShellMenuHelp)));
}

void ModeShell::ShowHelp() {
  ShowNotice(&window_, Text::ShellMenuHelpCaption, FromCrLf(Tr(help_, Language())),
             MessageIcon::Information);
}

void ModeShell::ShowAbout() {
  const std::string pcap = CaptureLibraryVersion();
  ShowNotice(&window_, Text::ShellAboutCaption,
             FromCrLf(FormatText(Text::ShellAboutText, Language(), kProductName.data(),
                                 kProgramVersion.data(), Tr(ModeName(mode_), Language()),
                                 qVersion(), pcap.c_str())),
             MessageIcon::Information);
}

void ModeShell::Tick() {
  if (closing_) return;
  const bool capturing = capture_.Capturing();
  const bool busy = capture_.Busy();
  start_->setEnabled(!capturing && !busy);
  stop_->setEnabled(capturing);
  open_->setEnabled(!capturing && !busy);
  capture_.Ticked();
  // The timer keeps ticking inside a message box's own loop: one box at a time.
  if (showingMessages_) return;
  showingMessages_ = true;
  for (const CaptureMessage& message : capture_.TakeMessages()) {
    ShowCaptureMessage(&window_, message);
  }
  showingMessages_ = false;
}

void ModeShell::SetTrayTip(const QString& tip) {
  if (tray_ && tray_->toolTip() != tip) tray_->setToolTip(tip);
}

bool ModeShell::BeginClose(QCloseEvent& event) {
  if (closing_) {
    event.accept();
    return false;
  }
  // The capture goes on in the notification area when the user asked for that.
  if (settings_.minimizeToTrayOnClose && !exitRequested_ && pendingSwitch_ == kNoPendingSwitch) {
    event.ignore();
    if (tray_) {
      window_.hide();
    } else {
      window_.showMinimized();
    }
    return false;
  }
  closing_ = true;
  tick_.stop();
  capture_.QuitCapture();
  return true;
}

void ModeShell::EndClose(QCloseEvent& event) {
  SavePlace();
  SaveSettingsOrWarn(&window_, settings_, settingsFile_);
  if (pendingSwitch_ != kNoPendingSwitch) {
    Relaunch(static_cast<ProgramMode>(pendingSwitch_));
    pendingSwitch_ = kNoPendingSwitch;
  }
  if (tray_) tray_->hide();
  event.accept();
  QCoreApplication::quit();
}

}  // namespace vormelt::ui
