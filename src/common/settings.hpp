// ProgramSettings: the one record of persisted settings, grouped by the window that owns each
// group. Start-up reads it once; mode windows read it and write it back when they close.
// The JSON store (settings_store) reads and writes it; this header holds only the data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/texts.hpp"
#include "common/types.hpp"

namespace vormelt {

// A window's place on screen. `valid` is false until the window has been shown once.
struct WindowState {
  bool valid = false;
  int x = 0, y = 0, width = 0, height = 0;
  bool maximized = false;
  bool minimized = false;

  friend bool operator==(const WindowState&, const WindowState&) = default;
};

// The kernel buffer of a live capture, in MiB ("capture.bufferMiB" in the file). Chosen by
// measurement with bench/downloads.bench.sh: twelve 20 MB downloads on loopback, four at a time,
// 1 Gbit/s in all, captured by `vormelt-cli files --live` on a busy two-core machine (load 3 to
// 18). Runs without a kernel drop: 16 MiB 0 of 3, 32 MiB 0 of 6, 64 MiB 1 of 6, 128 MiB 3 of 6
// (drops whenever the load passed about 7), 256 MiB 5 of 6 (the sixth dropped one packet). A
// bounded burst is what the buffer rides out while File Mode catches up, and 256 MiB holds the
// whole 240 MB of this one. The cost is that much kernel memory per running live capture
// (libpcap settles for less when the kernel has not got it); a small machine may set less.
inline constexpr std::int32_t kDefaultCaptureBufferMiB = 256;
// A buffer below 1 MiB holds too few blocks to be worth having; above 1 GiB it is kernel memory
// no monitor of one host needs (and pcap_set_buffer_size takes an int of bytes).
inline constexpr std::int32_t kMinCaptureBufferMiB = 1, kMaxCaptureBufferMiB = 1024;

struct InterfaceSettings {
  InterfaceKind chosenKind = InterfaceKind::RawSockets;
  std::string address;             // dotted IPv4, for Raw Sockets
  std::string adapterDevice;       // pcap device name, for the adapter kind
  std::string adapterDisplayName;  // shown to the user
  InterfaceKind kindInUse = InterfaceKind::RawSockets;  // copied when a capture starts
  // How the interface is captured (the file's "capture" group): the live kernel buffer in MiB.
  std::int32_t bufferMiB = kDefaultCaptureBufferMiB;

  friend bool operator==(const InterfaceSettings&, const InterfaceSettings&) = default;
};

// Whether an interface of the chosen kind has been picked at all (Start asks for one if not).
inline bool HasChosenInterface(const InterfaceSettings& s) {
  return s.chosenKind == InterfaceKind::RawSockets ? !s.address.empty() : !s.adapterDevice.empty();
}

// The "Saving options" of Packet Mode: what Save to text file and Save as capture file write.
struct SavingSettings {
  bool saveData = true;      // "Save packet data for each packet"
  int dataForm = 1;          // 1 Text, 2 Dec, 3 Hex, 4 Hex + Text (the renderer's DataForm values)
  int dataLevel = 0;         // DataLevel: 0 Datalink .. 3 Presentation
  bool onlyListed = false;   // "Only save listed packets"
  bool append = false;       // "Append to file (do not overwrite)"
  std::string lastFolder;    // where the last dump or capture file was saved or loaded
  int loadForm = 1;          // the form last declared when loading a dump file
  bool loadThroughFilters = false;

  friend bool operator==(const SavingSettings&, const SavingSettings&) = default;
};

struct PacketModeSettings {
  WindowState window;
  std::vector<int> columnOrder;   // visual order of the eleven list columns; empty = natural
  std::vector<int> columnWidths;  // pixels per column; empty = defaults
  bool filteringEnabled = false;  // "Apply filters to incoming packets"
  bool matchCase = false;         // "Match case for Find and Filters"
  std::string dateTimeTemplate = "%Y.%MY.%D - %H24:%MN:%S.%MS";
  bool wrapDump = true;           // detail-pane dump goes to the wrapping box
  int dataLevel = 0;              // DataLevel of the detail pane: 0 Datalink .. 3 Presentation
  int dumpForm = 2;               // detail-pane dump form: 0 Text, 1 Dec, 2 Hex
  bool newPacketSound = false;    // play a sound for each new packet
  WindowState hexViewer;
  bool hexViewerOpen = false;
  WindowState filterWindow;
  std::string lastFolder;  // last folder used by Open capture file
  SavingSettings saving;

  friend bool operator==(const PacketModeSettings&, const PacketModeSettings&) = default;
};

struct CodecSettings {
  WindowState window;
  int inputType = 0;   // 0 Text, 1 Hex, 2 Base64
  int outputType = 1;  // 0 Text, 1 Hex, 2 Base64, 3 MD5
  bool asciiText = false;
  bool cleanOutput = true;
  bool nullToSpace = false;
  bool wordWrap = true;
  std::string font = "Courier New";

  friend bool operator==(const CodecSettings&, const CodecSettings&) = default;
};

// Statistical Mode's list limits: the maximum records per list (1..8192) and the policy that
// picks the record to replace when a list is full (0 longest ago, 1 lowest, 2 highest count).
struct StatisticsSettings {
  std::int32_t maxItems = 256;
  std::int32_t victimPolicy = 0;
  WindowState window;

  friend bool operator==(const StatisticsSettings&, const StatisticsSettings&) = default;
};

// Graphical Packets Mode: the view state its keys change and the options of its settings
// dialog. Bounds are the reader's business (settings_store, graphical/view_state).
struct GraphicalSettings {
  bool pixelMode = false;        // F3: pixels travel instead of lines being drawn
  bool curvedLines = false;      // F4
  bool slowMode = true;          // F5: lines stay long enough for a 60 Hz display to show them
  std::int32_t blinkMode = -1;   // F9: -1 off, 0 Slow Squared, 1 Fast Squared, 2 Slow Cubed, 3 Fast Cubed
  std::int32_t ipTimeout = 30;   // F7/F8: seconds a quiet label lives, 0..300
  bool straightPixels = false;   // "Pixel Mode - Travel in a straight line."
  bool quadPixels = false;       // "Pixel Mode - Do quad sized pixels."
  bool refreshPeriodically = false;  // "Periodically refresh the screen at interval:"
  std::int32_t refreshSeconds = 60;
  std::int32_t pixelSpeed = 5;       // "Speed of Pixels:" 1..10
  std::int32_t extraDelayMs = 0;     // "Extra delay (for line and pixel modes):" 0..1000
  std::int32_t circularity = 0;      // "Pixel Mode - Circularity:" 0..20 pixels
  bool oscillate = false;            // "Pixel Mode - Oscillate instead of Circulate."
  bool chirp = false;                // "Play a chirp with the PC speaker ..."
  std::int32_t replaySpeed = 1;      // capture files replay at x1, x10 or x100
  WindowState window;

  friend bool operator==(const GraphicalSettings&, const GraphicalSettings&) = default;
};

// File Mode's options, naming and counters. The sub-folder levels hold 0/-1 None, 1 source
// address, 2 destination address, 3 extension.
struct FileModeSettings {
  WindowState window;
  WindowState filterWindow;
  bool overwrite = false;         // "Over-Write files of same name"
  bool onlyHttp = true;           // "Only store HTTP based file streams as files"
  bool acceptPartial = false;     // "Accept partial content"
  bool dirtyMode = false;         // "Dirty Mode (may be faster)"
  bool pshOnly = false;           // "Only watch PSH packets."
  bool latestDuplicates = false;  // "Use latest of duplicate packets."
  bool applyFilters = false;      // "Apply filters to packets and files."
  bool shortExtensions = false;   // "Use short file extensions (when available)."
  std::int32_t ackTimeoutMs = 1000;
  std::string folder;             // empty: the user's Downloads folder is offered
  std::string nameTemplate = "%SIP to %DIP - [%DAT]";
  std::string dateTimeTemplate = "%Y.%MY.%D - %H24:%MN:%S.%MS";
  bool createSubfolders = false;
  std::vector<int> subfolderLevels = {0, 0, 0};
  std::uint64_t countInstalled = 0;  // %FCI: kept across runs
  std::uint64_t countCustom = 0;     // %FCC: set by the user
  std::string lastCaptureFolder;     // last folder of "Open capture file..."

  friend bool operator==(const FileModeSettings&, const FileModeSettings&) = default;
};

// Automatic logging of the Packet Mode store. Durations are seconds; `form` is 0 heading only,
// 1 Text, 2 Dec, 3 Hex, 4 Hex + Text, 5 capture file (pcapng).
inline constexpr std::int32_t kLogFormPcapng = 5;
struct LoggingSettings {
  bool enabled = false;
  std::int32_t intervalSeconds = 10;
  bool clearAfterLog = false;
  std::int32_t form = 4;
  std::int32_t dataLevel = 0;  // DataLevel of the logged bytes
  bool wideIpGap = false;
  std::string nameTemplate = "%DAT.txt";
  std::string folder;
  std::int32_t method = 1;  // 0 single file, 1 by size, 2 by time span, 3 by size and/or span
  std::int64_t maxFileKilobytes = 1024;
  std::int64_t maxSpanSeconds = 3600;
  std::string singleFilePath;
  bool deleteOld = false;
  std::int64_t maxAgeSeconds = 7 * 86400;
  std::int64_t ageCheckSeconds = 3600;
  WindowState window;

  friend bool operator==(const LoggingSettings&, const LoggingSettings&) = default;
};

// The service's own options.
struct ServiceSettings {
  // Where the running service serves its counts for Prometheus ("PORT" on loopback, or
  // "ADDRESS:PORT"); empty: not served.
  std::string metricsListen;

  friend bool operator==(const ServiceSettings&, const ServiceSettings&) = default;
};

struct ProgramSettings {
  // Read at start-up.
  bool showModeChoiceAtStartup = true;  // "Show mode choice at startup."
  std::int32_t rememberedMode = 0;      // a ProgramMode value; anything outside 0..3 runs nothing
  UiLanguage language = UiLanguage::English;
  bool useSystemColors = false;  // "Use Windows colors ..." (here: the desktop's palette)
  bool graphicalWarningAcknowledged = false;
  // Shared by the mode windows.
  bool minimizeToTrayOnClose = false;
  WindowState modeChoiceWindow;
  InterfaceSettings interface;
  PacketModeSettings packetMode;
  CodecSettings codec;
  StatisticsSettings statistics;
  GraphicalSettings graphical;
  FileModeSettings fileMode;
  LoggingSettings logging;
  ServiceSettings service;

  friend bool operator==(const ProgramSettings&, const ProgramSettings&) = default;
};

}  // namespace vormelt
