// Feeds arbitrary bytes to the settings reader: whatever a damaged or hostile settings.json
// holds, reading it must either give settings that save and read back the same, or a clean error.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/settings_store.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string error;
  (void)vormelt::ParseJsonObject(text, &error);
  const auto settings = vormelt::SettingsFromJson(text, &error);
  if (!settings) return 0;
  // What was accepted must survive its own round trip unchanged.
  const auto again = vormelt::SettingsFromJson(vormelt::SettingsToJson(*settings), &error);
  if (!again || !(*again == *settings)) std::abort();
  return 0;
}
