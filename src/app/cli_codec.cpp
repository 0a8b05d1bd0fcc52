// vormelt-cli codec (being built).
#include <istream>
#include <ostream>
#include "app/cli.hpp"
namespace vormelt::cli {
int RunCodec(std::span<const std::string>, std::istream&, std::ostream&, std::ostream& err) {
  err << "vormelt-cli: the codec command is not available yet\n";
  return 1;
}
}  // namespace vormelt::cli
