#include "tools/decode_command.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "vtapi.hpp"

#include "arguments/decimal.h"
#include "files/file_content.h"
#include "tools/capture_file.h"
#include "tools/decoded_message.h"
#include "tools/hex_text.h"
#include "tools/json_text.h"
#include "tools/key_material.h"
#include "tools/message_source.h"
#include "tools/message_text.h"

namespace vt::tools {
namespace {

constexpr std::size_t kLargestInput = std::size_t{256} << 20;
constexpr const char* kTooLarge = "the input is larger than 256 MiB";
constexpr std::uint16_t kUsualPort = 7440;

constexpr const char* kDecodeHelp =
    R"help(Examples:
  voltaris decode examples/office.pcap
  voltaris decode --hex "$(cat examples/query.hex)" -o json

The input is a capture (pcap or pcapng, of Ethernet, Linux cooked or raw IP),
hexadecimal digits, or the bytes of a stream; what it is shows from its
beginning. Of a capture, the connections of one port are put together, whatever
the order of their packets.

Exit codes: 0 all messages could be read and, with a key, are signed with it;
1 some; 2 wrong usage; 5 none is signed with the key; 6 none can be read;
8 there is no message.
)help";

struct DecodeArguments {
  std::string file;
  std::string hex;
  std::string key_file;
  std::string format = "text";
  std::optional<unsigned> port;
  bool any_port = false;
};

[[noreturn]] void FailOnInput(const std::string& name, const std::string& why) {
  throw Failure(kExitUsage, name + ": " + why);
}

std::vector<std::uint8_t> ReadStream(std::istream& in) {
  const std::string name = "standard input";
  std::vector<std::uint8_t> bytes;
  std::vector<char> piece(std::size_t{1} << 16);
  while (in.read(piece.data(), static_cast<std::streamsize>(piece.size())) || in.gcount() > 0) {
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + in.gcount());
    if (bytes.size() > kLargestInput) FailOnInput(name, kTooLarge);
  }
  if (in.bad()) FailOnInput(name, "cannot be read");
  return bytes;
}

std::vector<std::uint8_t> ReadFile(const std::string& path) {
  const files::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.is_open()) FailOnInput(path, std::strerror(errno));
  try {
    const std::string content = files::ReadAll(file, kLargestInput, "");
    return {content.begin(), content.end()};
  } catch (const std::system_error& error) {
    FailOnInput(path, error.code().value() == EFBIG ? kTooLarge : error.code().message());
  }
}

std::vector<std::uint8_t> InputOf(const DecodeArguments& arguments, const Streams& streams) {
  if (arguments.file.empty() == arguments.hex.empty()) {
    throw Failure(kExitUsage, "decode needs a FILE (- for standard input) or --hex");
  }
  if (!arguments.hex.empty()) {
    if (auto bytes = ParseHex(arguments.hex)) return *std::move(bytes);
    throw Failure(kExitUsage, "--hex must be pairs of hexadecimal digits");
  }
  return arguments.file == "-" ? ReadStream(streams.in) : ReadFile(arguments.file);
}

std::optional<voltaris::Key> KeyOf(const DecodeArguments& arguments) {
  if (arguments.key_file.empty()) return std::nullopt;
  return ReadKeyFile(arguments.key_file);
}

// Decoding prints the messages as they come, and counts what is to be told in the end.
class Decoding {
 public:
  Decoding(const DecodeArguments& arguments, const Streams& streams)
      : arguments_(arguments), streams_(streams), verifier_(KeyOf(arguments)) {}

  ExitCode Run() {
    const std::vector<std::uint8_t> input = InputOf(arguments_, streams_);
    const MessageSink sink = {
        [this](ByteView bytes, const Passage& passage) { Take(bytes, passage); },
        [this](const std::string& note) { Note(note); }};
    if (arguments_.format == "json") {
      streams_.out << "{\"schema\": \"voltaris-decode-1\", \"messages\": [";
    }
    if (IsCapture(input)) {
      ReadCapturedMessages(input, Port(), sink);
    } else {
      const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
      const auto digits = ParseHex(text);
      ReadStreamMessages(digits ? *digits : input, sink);
    }
    if (arguments_.format == "json") PrintEnd();
    return Judge();
  }

 private:
  std::optional<std::uint16_t> Port() const {
    if (arguments_.any_port) return std::nullopt;
    return static_cast<std::uint16_t>(arguments_.port.value_or(kUsualPort));
  }

  void Take(ByteView bytes, const Passage& passage) {
    const DecodedMessage message = DecodeMessage(bytes, verifier_);
    ++messages_;
    if (!message.fault.empty()) ++unreadable_;
    const bool unsigned_here = verifier_.has_key() && message.signature != Signature::kVerified;
    if (message.fault.empty() && !unsigned_here) ++good_;
    Print(message, passage);
  }

  void Print(const DecodedMessage& message, const Passage& passage) {
    if (arguments_.format == "text") {
      PrintMessage(streams_.out, messages_, message, passage);
      return;
    }
    if (arguments_.format == "json") streams_.out << (messages_ > 1 ? ",\n  " : "\n  ");
    streams_.out << JsonInline(MessageJson(messages_, message, passage));
    if (arguments_.format == "ndjson") streams_.out << '\n';
  }

  void Note(const std::string& note) {
    streams_.complain(note);
    notes_.push_back(note);
  }

  void PrintEnd() {
    streams_.out << (messages_ > 0 ? "\n" : "") << "], \"notes\": " << JsonInline(notes_) << "}\n";
  }

  ExitCode Judge() const {
    if (messages_ == 0) {
      streams_.complain("there is no message in the input");
      return kExitNothingMatched;
    }
    if (good_ == messages_ && notes_.empty()) return kExitOk;
    if (good_ > 0) return kExitPartial;
    return unreadable_ == messages_ ? kExitProtocol : kExitUnverified;
  }

  const DecodeArguments& arguments_;
  const Streams& streams_;
  Verifier verifier_;
  std::vector<std::string> notes_;
  std::size_t messages_ = 0;
  std::size_t unreadable_ = 0;
  std::size_t good_ = 0;
};

}  // namespace

void AddDecodeCommand(CLI::App& app, Action& chosen) {
  const auto arguments = std::make_shared<DecodeArguments>();
  CLI::App* decode =
      app.add_subcommand("decode", "Makes messages of a file or a capture readable.");
  decode->footer(kDecodeHelp);
  decode->add_option("file", arguments->file, "input, - for standard input")->type_name("FILE");
  decode->add_option("--hex", arguments->hex, "input as hexadecimal digits")->type_name("DIGITS");
  decode->add_option("--key-file", arguments->key_file, "file with the key to verify with")
      ->type_name("FILE");
  decode->add_option("-o,--output", arguments->format, "text (default), json or ndjson")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"text", "json", "ndjson"}));
  decode->add_option("-p,--port", arguments->port, "TCP port of the nodes (default 7440)")
      ->type_name("PORT")
      ->check(arguments::DecimalFault)
      ->check(CLI::Range(1, 65535));
  const std::string meaning = "all connections of a capture";
  decode->add_flag("--any-port", arguments->any_port, meaning);
  decode->callback([arguments, &chosen] {
    chosen = [arguments](const Streams& streams) { return Decoding(*arguments, streams).Run(); };
  });
}

}  // namespace vt::tools
