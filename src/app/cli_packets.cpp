// vormelt-cli packets (being built).
#include <ostream>
#include "app/cli.hpp"
namespace vormelt::cli {
int RunPackets(std::span<const std::string>, std::ostream&, std::ostream& err) {
  err << "vormelt-cli: the packets command is not available yet\n";
  return 1;
}
}  // namespace vormelt::cli
