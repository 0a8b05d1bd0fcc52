// The notification-area icon every mode window offers: its tip, "Restore" and "Exit", and a
// click that brings the window back. One place, so the modes' trays behave alike.
#pragma once

#include <functional>

#include "common/texts.hpp"

class QSystemTrayIcon;
class QWidget;

namespace vormelt::ui {

// Shows `window` again, un-minimized, raised and active.
void RestoreWindow(QWidget& window);
// Adds and shows the icon, owned by `window`; `exit` runs for "Exit". Null when the desktop has
// no notification area.
QSystemTrayIcon* AddModeTray(QWidget& window, Text tip, std::function<void()> exit);

}  // namespace vormelt::ui
