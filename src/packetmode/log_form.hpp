// How packets become bytes in a log file. The logger knows files, bounds and the index; a form
// knows only its own file's layout, so a new form (a capture-file form, say) is one small class.
// A form's Add runs under the store lock and must do no file I/O; Flush runs without it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "packets/record.hpp"
#include "packets/render.hpp"

namespace vormelt {

enum class LogOpen : std::uint8_t { Opened, Exists, Failed };

class LogForm {
 public:
  virtual ~LogForm() = default;
  // Opens `path`: a new file when `fresh` (Exists when the name is taken: nothing is replaced),
  // else the one file appended to. Writes whatever a file of this form begins with.
  virtual LogOpen Open(const std::string& path, bool fresh) = 0;
  // Under the store lock: copies or renders one packet into the form's own buffer.
  // Returns the bytes it will add to the file.
  virtual std::size_t Add(PacketRef packet) = 0;
  // Without the lock: writes what Add took and no Flush wrote yet. False when a write failed;
  // what was not written stays for the next Flush (into this file or the next one opened),
  // so a full disk loses nothing that a later write can still place.
  virtual bool Flush() = 0;
  // Taken by Add and not yet written.
  virtual bool Pending() const = 0;
  // Why the last Open or Flush failed, in the system's words.
  virtual std::string Failure() const = 0;
  virtual void Close() = 0;
  // A file is open (a form may close its file itself when a write fails).
  virtual bool IsOpen() const = 0;
  // The open file's size: what it held when opened plus what was written since.
  virtual std::uint64_t FileSize() const = 0;
};

// The text forms: each packet exactly as a saved packet list renders it.
std::unique_ptr<LogForm> MakeTextLogForm(RenderOptions options);
// The capture-file form: each packet as an Enhanced Packet Block of a pcapng file, with its
// capture time, so a log opens in any capture tool. Appending to a file adds a new section.
std::unique_ptr<LogForm> MakePcapngLogForm();

}  // namespace vormelt
