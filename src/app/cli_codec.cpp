// vormelt-cli codec: the Base Encoder/Decoder without its window. Converts standard input as it
// arrives and writes the result byte for byte, with no line break added.
#include <istream>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "app/cli.hpp"
#include "common/texts.hpp"
#include "tools/codec_stream.hpp"

namespace vormelt::cli {
namespace {

constexpr const char* kCodecUsage =
    "Usage: vormelt-cli codec --in text|hex|base64 --out text|hex|base64|md5\n"
    "                         [--clean] [--ascii] [--null-to-space]\n"
    "\n"
    "Reads standard input as the --in type and writes it to standard output as the --out type,\n"
    "byte for byte, with no line break added: MD5 is exactly 32 lower-case hex digits.\n"
    "Hex input skips every character that is not a hex digit; a lone last digit is a high\n"
    "nibble. Base64 input skips every character outside the alphabet, '=' included.\n"
    "  --clean          Hex: a space between bytes, CR LF after every 16 bytes.\n"
    "                   Base64: CR LF after every 64 characters.\n"
    "  --ascii          Read the input text as UTF-8 and convert it to CP437 first; Text\n"
    "                   output is converted back from CP437 to UTF-8.\n"
    "  --null-to-space  Text output: zero bytes become spaces (else the text ends at the first).\n"
    "Nothing decoded (and the output is not MD5): nothing is written.\n";

struct CodecCommand {
  std::optional<tools::InputType> in;
  std::optional<tools::OutputType> out;
  tools::CodecOptions options;
  bool help = false;
};

std::optional<tools::InputType> ParseInputType(std::string_view word) {
  if (word == "text") return tools::InputType::Text;
  if (word == "hex") return tools::InputType::Hex;
  if (word == "base64") return tools::InputType::Base64;
  return std::nullopt;
}

std::optional<tools::OutputType> ParseOutputType(std::string_view word) {
  if (word == "text") return tools::OutputType::Text;
  if (word == "hex") return tools::OutputType::Hex;
  if (word == "base64") return tools::OutputType::Base64;
  if (word == "md5") return tools::OutputType::Md5;
  return std::nullopt;
}

// Fills `command` from the words; on a bad word returns the one-line complaint.
std::optional<std::string> Parse(std::span<const std::string> args, CodecCommand& command) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    if (word == "--help" || word == "-h") {
      command.help = true;
    } else if (word == "--clean") {
      command.options.cleanOutput = true;
    } else if (word == "--ascii") {
      command.options.asciiText = true;
    } else if (word == "--null-to-space") {
      command.options.nullToSpace = true;
    } else if (word == "--in" || word == "--out") {
      if (i + 1 == args.size()) return word + " needs a type";
      const std::string& value = args[++i];
      if (word == "--in") {
        command.in = ParseInputType(value);
        if (!command.in) return "unknown input type '" + value + "' (text, hex or base64)";
      } else {
        command.out = ParseOutputType(value);
        if (!command.out) return "unknown output type '" + value + "' (text, hex, base64 or md5)";
      }
    } else {
      return "unknown option '" + word + "' (try codec --help)";
    }
  }
  if (!command.help && (!command.in || !command.out)) return "--in and --out are both required";
  return std::nullopt;
}

// Converts the input piece by piece as it arrives, so any size works in constant memory.
void ConvertStream(const CodecCommand& command, std::istream& in, std::ostream& out) {
  tools::StreamConverter converter(*command.in, *command.out, command.options);
  std::string piece(tools::StreamConverter::kPieceBytes, '\0');
  std::string output;  // reused: a fresh buffer per piece costs page faults on every piece
  while (in) {
    in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    output.clear();
    converter.Feed(std::string_view(piece).substr(0, static_cast<std::size_t>(in.gcount())), output);
    out.write(output.data(), static_cast<std::streamsize>(output.size()));
  }
  output.clear();
  converter.Finish(output);
  out.write(output.data(), static_cast<std::streamsize>(output.size()));
}

}  // namespace

int RunCodec(std::span<const std::string> args, std::istream& in, std::ostream& out,
             std::ostream& err) {
  CodecCommand command;
  if (const auto complaint = Parse(args, command)) {
    return Usage(err, "codec", *complaint, "\n");
  }
  if (command.help) {
    out << kCodecUsage;
    return kExitOk;
  }
  try {
    ConvertStream(command, in, out);
  } catch (const std::bad_alloc&) {
    err << English(Text::CodecMemoryErrorTitle) << ": " << English(Text::CodecMemoryError) << '\n';
    return kExitFailed;
  }
  if (in.bad()) {
    err << "vormelt-cli codec: reading standard input failed\n";
    return kExitFailed;
  }
  if (!out.flush()) {
    err << "vormelt-cli codec: writing the result failed\n";
    return kExitFailed;
  }
  return kExitOk;
}

}  // namespace vormelt::cli
