// vormelt-cli names (being built).
#include <ostream>
#include "app/cli.hpp"
namespace vormelt::cli {
int RunNames(std::span<const std::string>, std::ostream&, std::ostream& err) {
  err << "vormelt-cli: the names command is not available yet\n";
  return 1;
}
}  // namespace vormelt::cli
