#include "ui/shell/mode_tray.hpp"

#include <QMenu>
#include <QSystemTrayIcon>
#include <QWidget>

#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {

void RestoreWindow(QWidget& window) {
  window.show();
  window.setWindowState((window.windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
  window.raise();
  window.activateWindow();
}

QSystemTrayIcon* AddModeTray(QWidget& window, Text tip, std::function<void()> exit) {
  if (!QSystemTrayIcon::isSystemTrayAvailable()) return nullptr;
  auto* tray = new QSystemTrayIcon(window.windowIcon(), &window);
  tray->setToolTip(T(tip));
  auto* menu = new QMenu(&window);
  QObject::connect(menu->addAction(T(Text::TrayRestore)), &QAction::triggered, &window,
                   [&window] { RestoreWindow(window); });
  QObject::connect(menu->addAction(T(Text::TrayExit)), &QAction::triggered, &window,
                   std::move(exit));
  tray->setContextMenu(menu);
  QObject::connect(tray, &QSystemTrayIcon::activated, &window,
                   [&window](QSystemTrayIcon::ActivationReason reason) {
                     if (reason == QSystemTrayIcon::Trigger ||
                         reason == QSystemTrayIcon::DoubleClick) {
                       RestoreWindow(window);
                     }
                   });
  tray->show();
  return tray;
}

}  // namespace vormelt::ui
