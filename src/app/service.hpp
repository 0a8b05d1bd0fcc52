// The service run (vormelt -service): the remembered mode runs headless with capture started,
// reporting to systemd through sd_notify and to the journal through stderr. Started by hand,
// without NOTIFY_SOCKET, it runs the same way in the foreground until SIGINT or SIGTERM.
#pragma once

#include <string>

#include "common/settings_store.hpp"

namespace vormelt {

// Runs the service to its end and returns the exit status: 0 after a stop on request, 1 when
// the capture failed, 78 when the settings give it nothing it can run (final for the unit).
// `load` is the settings as read once at start-up, with any problem still to be told.
int RunService(const std::string& commandLine, const SettingsLoad& load);

}  // namespace vormelt
