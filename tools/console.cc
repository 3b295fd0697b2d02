#include "tools/console.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>

#include "vtapi.hpp"

#include "tools/json_text.h"
#include "tools/printable.h"
#include "tools/standard_output.h"

namespace vt::tools {
namespace {

struct Console {
  LogFormat format = LogFormat::kText;
  int verbosity = 0;
  bool progress = false;
  bool has_progress = false;  // a text of progress stands in the last line
};

constinit Console console;

constexpr std::array<std::string_view, 6> kLevels = {"trace", "debug", "info",
                                                     "warn",  "error", "fatal"};

// There is nobody to tell that standard error cannot be written.
void WriteError(std::string_view text) { (void)WritePatiently(STDERR_FILENO, text); }

std::string TimeText() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {text.data(), length};
}

// ObjectLine is as docs/schema/voltaris-log-1.json describes.
std::string ObjectLine(std::string_view level, std::string_view message) {
  return JsonLine({{"time", TimeText()}, {"level", level}, {"message", message}});
}

void WriteLine(std::string_view level, std::string_view mark, std::string_view message) {
  ShowProgress("");
  if (console.format == LogFormat::kJson) {
    WriteError(ObjectLine(level, message));
    return;
  }
  std::string line = "voltaris: ";
  line.append(mark).append(Printable(message)).append("\n");
  WriteError(line);
}

void TakeLibraryLine(std::uint32_t level, const char* text) {
  const std::string_view word = kLevels[std::min<std::size_t>(level, kLevels.size() - 1)];
  std::string mark = "[";
  mark.append(word).append("] ");
  WriteLine(word, mark, text);
}

// The tool itself tells what went wrong with each node; the library's lines on it are for those who
// want to know more.
voltaris::LogLevel LibraryLevel(int verbosity) {
  switch (verbosity) {
    case -1:
    case 0:
      return voltaris::LogLevel::kFatal;
    case 1:
      return voltaris::LogLevel::kInfo;
    case 2:
      return voltaris::LogLevel::kDebug;
    default:
      return voltaris::LogLevel::kTrace;
  }
}

}  // namespace

void OpenConsole(const ConsoleSettings& settings) {
  console.format = settings.format;
  console.verbosity = settings.verbosity;
  console.progress = settings.progress;
  voltaris::set_log(LibraryLevel(settings.verbosity), TakeLibraryLine);
}

void Complain(std::string_view message) { WriteLine("error", "", message); }

void Warn(std::string_view message) {
  if (console.verbosity >= 0) WriteLine("warn", "warning: ", message);
}

void Notice(std::string_view message) {
  if (console.verbosity >= 0) WriteLine("info", "", message);
}

void TellChange(std::string_view message) { WriteLine("info", "", message); }

void ShowProgress(std::string_view text) {
  if (!console.progress || (text.empty() && !console.has_progress)) return;
  // Back to the first column, and nothing left of what stood there.
  std::string line = "\r\033[K";
  line.append(text);
  WriteError(line);
  console.has_progress = !text.empty();
}

}  // namespace vt::tools
