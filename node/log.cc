#include "node/log.h"

#include <nlohmann/json.hpp>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <memory>
#include <utility>

#include "vtapi.h"

namespace vt::node {
namespace {

constexpr std::array<std::string_view, 6> kWords = {"TRACE", "DEBUG", "INFO",
                                                    "WARN",  "ERROR", "FATAL"};
constexpr std::array<std::string_view, 6> kFieldWords = {"trace", "debug", "info",
                                                         "warn",  "error", "fatal"};

// LevelWord writes the level as the library names it.
class LevelWord : public spdlog::custom_flag_formatter {
 public:
  explicit LevelWord(const std::array<std::string_view, 6>& words) : words_(words) {}

  void format(const spdlog::details::log_msg& line, const std::tm&,
              spdlog::memory_buf_t& out) override {
    const std::string_view word =
        words_[std::min<std::size_t>(static_cast<std::size_t>(line.level), words_.size() - 1)];
    out.append(word.data(), word.data() + word.size());
  }

  std::unique_ptr<custom_flag_formatter> clone() const override {
    return std::make_unique<LevelWord>(words_);
  }

 private:
  const std::array<std::string_view, 6>& words_;
};

std::unique_ptr<spdlog::formatter> FormatterFor(LogFormat format) {
  auto formatter = std::make_unique<spdlog::pattern_formatter>();
  if (format == LogFormat::kJson) {
    formatter->add_flag<LevelWord>('q', kFieldWords);
    // The payload is the remaining members.
    formatter->set_pattern(R"({"time":"%Y-%m-%dT%H:%M:%S.%e%z","level":"%q",%v})");
  } else {
    formatter->add_flag<LevelWord>('q', kWords);
    formatter->set_pattern("%Y-%m-%d %H:%M:%S [%q] %v");
  }
  return formatter;
}

// Output is where lines go. The sink writes each with one call, and takes its turn for it.
class Output {
 public:
  static Output& Instance() {
    static Output output;
    return output;
  }

  void Use(LogFormat format) {
    format_ = format;
    logger_.set_formatter(FormatterFor(format));
  }

  LogFormat format() const { return format_; }

  void Write(std::uint32_t level, const std::string& payload) {
    const auto word = static_cast<spdlog::level::level_enum>(
        std::min<std::uint32_t>(level, spdlog::level::critical));
    logger_.log(word, spdlog::string_view_t(payload.data(), payload.size()));
  }

 private:
  Output() : logger_("voltaris-node", std::make_shared<spdlog::sinks::stderr_sink_mt>()) {
    logger_.set_level(spdlog::level::trace);  // what is admitted is the library's setting
    Use(LogFormat::kText);
  }

  LogFormat format_ = LogFormat::kText;
  spdlog::logger logger_;
};

std::string Quoted(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

std::string JsonMembers(std::string_view message, LogFields fields) {
  std::string members = "\"message\":" + Quoted(message);
  for (const LogField& field : fields) {
    members += ',';
    members += Quoted(field.name);
    members += ':';
    members += Quoted(field.value);
  }
  return members;
}

// The dumps of the library have several lines. Those behind the first one are set off, so that none
// looks like a line of the log.
std::string SetOff(std::string_view text) {
  std::string out;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (begin != 0) out += "\n    ";
    out += EscapeControls(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return out;
}

// WriteLibraryLine is called by the library, for the levels that it admits.
void WriteLibraryLine(std::uint32_t level, const char* text) {
  Output& output = Output::Instance();
  output.Write(level, output.format() == LogFormat::kJson ? JsonMembers(text, {}) : SetOff(text));
}

// ControlAt is how many bytes at that place are a control character, or 0. Those beyond ASCII are
// two bytes of UTF-8; terminals obey them, too.
std::size_t ControlAt(std::string_view text, std::size_t at) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(at) < 0x20 || byte(at) == 0x7F) return 1;
  const bool is_long =
      byte(at) == 0xC2 && at + 1 < text.size() && byte(at + 1) >= 0x80 && byte(at + 1) < 0xA0;
  return is_long ? 2 : 0;
}

void AppendEscaped(char character, std::string& out) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character);
  switch (character) {
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      out += "\\x";
      out += digits[byte >> 4];
      out += digits[byte & 15];
  }
}

}  // namespace

std::string EscapeControls(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t control = ControlAt(text, i);
    for (std::size_t end = i + control; i < end; ++i) AppendEscaped(text[i], out);
    if (control == 0) out += text[i++];
  }
  return out;
}

void StartLog(std::uint32_t level, LogFormat format) {
  Output::Instance().Use(format);
  // The two calls report themselves at DEBUG, to standard output, which belongs to scripts.
  setLogLevel(VT_LOG_FATAL + 1);
  setLogCallback(WriteLibraryLine);
  enableLogCallback(1);
  setLogLevel(level);
}

void Log(std::uint32_t level, const std::string& message, LogFields fields) {
  if (level < getLogLevel()) return;
  Output& output = Output::Instance();
  output.Write(level, output.format() == LogFormat::kJson ? JsonMembers(message, fields)
                                                          : EscapeControls(message));
}

void RateLimit::Log(std::uint32_t level, const std::string& message, LogFields fields) {
  if (level < getLogLevel()) return;
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (now - second_ >= std::chrono::seconds(1)) {
    second_ = now;
    lines_ = 0;
    if (const std::uint64_t count = std::exchange(untold_, 0); count != 0) {
      node::Log(VT_LOG_WARN, std::to_string(count) + " lines like the last ones were left out");
    }
  }
  if (lines_ == kLinesASecond) {
    ++untold_;
    ++left_out_;
  } else {
    ++lines_;
    node::Log(level, message, fields);
  }
}

std::uint64_t RateLimit::left_out() const {
  const std::lock_guard lock(mutex_);
  return left_out_;
}

}  // namespace vt::node
