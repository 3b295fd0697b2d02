#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/support/log_settings.h"

namespace {

using namespace vt::testing;

// What the settings were before main, hence before any test changed them.
const struct {
  std::uint32_t level = getLogLevel();
  std::FILE* file = getLogFile();
  log_callback callback = getLogCallback();
  std::uint32_t enable = getLogCallbackEnable();
} initial;

// One call for each level that logs exactly one line of that level.
struct Sample {
  std::uint32_t level;
  const char* word;
  const char* function;
  const char* message;
  void (*emit)();

  std::string text() const { return std::string(function) + ": " + message; }
};

const Sample kSamples[] = {
    {kTrace, "TRACE", "voltaris_dump_digest", "digest: 000102030405060708090a0b0c0d0e0f10111213",
     [] {
       const Bytes digest = Hex("00010203 04050607 08090a0b 0c0d0e0f 10111213");
       voltaris_dump_digest(digest.data());
     }},
    {kDebug, "DEBUG", "cv_mkevent_from_rawbuffer", "Dropping truncated packet",
     [] {
       const Bytes image(59);
       cv_mkevent_from_rawbuffer(59, image.data());
     }},
    {kInfo, "INFO", "cv_mkevent_from_rawbuffer", "Can't allocate memory for pkt creation",
     [] {
       const Bytes image(60);
       const AllocationFault second = AllocationFault::Nth(1);
       cv_mkevent_from_rawbuffer(60, image.data());
     }},
    {kWarn, "WARN", "voltaris_dump_payload", "NULL", [] { voltaris_dump_payload(nullptr); }},
    {kError, "ERROR", "createUdpSocket", "Socket creation failed",
     [] {
       const SocketHook hook([](int, int, int) {
         errno = EMFILE;
         return -1;
       });
       createUdpSocket(0);
     }},
    {kFatal, "FATAL", "voltaris_createSession", "Badly formatted target address: nowhere",
     [] { voltaris_createSession("nowhere", 1, nullptr, nullptr, 0); }},
};

void EmitAll() {
  for (const Sample& sample : kSamples) sample.emit();
}

void EmitFatal(const std::string& address) {
  voltaris_createSession(address.c_str(), 1, nullptr, nullptr, 0);
}
const char kFatalStart[] = "voltaris_createSession: Badly formatted target address: ";

// ExpectPrinted tests one printed line, without its newline: time, level word, function, message.
void ExpectPrinted(const Sample& sample, const std::string& line) {
  static const std::regex kTime(
      "^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4} ");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(line, match, kTime)) << line;
  EXPECT_EQ(std::string("[") + sample.word + "] " + sample.text(), match.suffix().str());
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  if (start < text.size()) lines.push_back(text.substr(start) + " (no newline)");
  return lines;
}

// Two callbacks to tell apart.
std::vector<LogLine> first_lines;
std::vector<LogLine> second_lines;
void First(std::uint32_t level, const char* text) { first_lines.push_back({level, text}); }
void Second(std::uint32_t level, const char* text) { second_lines.push_back({level, text}); }

void InstallFirst(std::uint32_t level) {
  setLogLevel(kSilent);
  setLogCallback(&First);
  enableLogCallback(1);
  first_lines.clear();
  second_lines.clear();
  setLogLevel(level);
}

std::string SetCallbackText(log_callback callback) {
  char text[100];
  std::snprintf(text, sizeof text, "setLogCallback: Setting log callback address to %p",
                reinterpret_cast<void*>(callback));
  return text;
}

TEST(LogSettings, InitiallyInfoOnStandardOutputWithoutCallback) {
  EXPECT_EQ(2u, initial.level);
  EXPECT_EQ(stdout, initial.file);
  EXPECT_EQ(nullptr, initial.callback);
  EXPECT_EQ(0u, initial.enable);
}

TEST(LogSettings, LevelIsStoredWithoutRangeCheck) {
  const LogSettings restore;
  for (const std::uint32_t level : {0u, 5u, 6u, 1000u, 0xFFFFFFFFu}) {
    setLogLevel(level);
    EXPECT_EQ(level, getLogLevel());
  }
}

TEST(LogSettings, NullFileMeansStandardOutput) {
  const LogSettings restore;
  setLogFile(stderr);
  EXPECT_EQ(stderr, getLogFile());
  setLogFile(nullptr);
  EXPECT_EQ(stdout, getLogFile());
}

TEST(LogSettings, NullCallbackIsRefusedAndTheStoredOneStays) {
  const LogSettings restore;
  InstallFirst(kTrace);
  EXPECT_EQ(0, setLogCallback(nullptr));
  EXPECT_EQ(&First, getLogCallback());
  EXPECT_TRUE(first_lines.empty());
}

TEST(LogSettings, EnableFlagIsOneByteKeptAsItIs) {
  const LogSettings restore;
  setLogLevel(kSilent);
  enableLogCallback(5);
  EXPECT_EQ(5u, getLogCallbackEnable());
  enableLogCallback(0x100);
  EXPECT_EQ(0u, getLogCallbackEnable());
  enableLogCallback(0x1FF);
  EXPECT_EQ(0xFFu, getLogCallbackEnable());
  enableLogCallback(0);
  EXPECT_EQ(0u, getLogCallbackEnable());
}

TEST(LogSettings, FlagOf256SendsLinesToTheFileAgain) {
  const LogSettings restore;
  InstallFirst(kSilent);
  FileLog file(kWarn);
  enableLogCallback(1);
  enableLogCallback(0x100);
  voltaris_dump_payload(nullptr);
  EXPECT_TRUE(first_lines.empty());
  EXPECT_EQ(1u, file.Lines().size());
}

TEST(LogSettings, ChangeOfTheCallbackIsReportedToTheOneBefore) {
  const LogSettings restore;
  InstallFirst(kDebug);
  EXPECT_EQ(1, setLogCallback(&Second));
  EXPECT_EQ(&Second, getLogCallback());
  EXPECT_EQ((std::vector<LogLine>{{kDebug, SetCallbackText(&Second)}}), first_lines);
  EXPECT_TRUE(second_lines.empty());
}

TEST(LogSettings, ChangeOfTheCallbackIsReportedToTheFileWhileDisabled) {
  const LogSettings restore;
  FileLog file(kDebug);
  EXPECT_EQ(1, setLogCallback(&Second));
  ASSERT_EQ(1u, file.Lines().size());
  EXPECT_NE(std::string::npos, file.Lines()[0].find("[DEBUG] " + SetCallbackText(&Second)));
}

// Deliberate: the message precedes the change.
TEST(LogSettings, SwitchingOnReportsToTheFileAndSwitchingOffToTheCallback) {
  const LogSettings restore;
  InstallFirst(kSilent);
  FileLog file(kSilent);
  setLogLevel(kDebug);
  enableLogCallback(7);
  EXPECT_TRUE(first_lines.empty());
  ASSERT_EQ(1u, file.Lines().size());
  const std::string on = "[DEBUG] enableLogCallback: Log callback feature is being ENABLED";
  EXPECT_NE(std::string::npos, file.Lines()[0].find(on)) << file.Lines()[0];
  enableLogCallback(0);
  EXPECT_EQ(
      (std::vector<LogLine>{{kDebug, "enableLogCallback: Log callback feature is being DISABLED"}}),
      first_lines);
  EXPECT_EQ(1u, file.Lines().size());
}

TEST(Log, MessagePassesWhenTheConfiguredLevelIsAtMostItsOwn) {
  for (const std::uint32_t configured : {0u, 1u, 2u, 3u, 4u, 5u}) {
    SCOPED_TRACE(configured);
    LogCapture log(configured);
    EmitAll();
    for (const Sample& sample : kSamples) {
      EXPECT_EQ(configured <= sample.level ? 1u : 0u, log.Count(sample.level, sample.text()))
          << sample.word;
    }
    for (const LogLine& line : log.lines()) EXPECT_GE(line.level, configured);
  }
}

TEST(Log, LevelZeroLetsTraceThrough) {
  LogCapture log(0);
  kSamples[0].emit();
  EXPECT_EQ((std::vector<LogLine>{{kTrace, kSamples[0].text()}}), log.lines());
}

TEST(Log, LevelFiveLetsOnlyFatalThrough) {
  LogCapture log(5);
  EmitAll();
  EXPECT_EQ((std::vector<LogLine>{{kFatal, kSamples[5].text()}}), log.lines());
}

TEST(Log, LevelSixAndAboveSilenceEverything) {
  for (const std::uint32_t configured : {6u, 7u, 0x80000000u}) {
    LogCapture log(configured);
    EmitAll();
    EXPECT_TRUE(log.lines().empty()) << configured;
  }
}

TEST(Log, NegativeLevelIsAHugeNumberAndSilencesEverything) {
  LogCapture log(static_cast<std::uint32_t>(-1));
  EmitAll();
  EXPECT_TRUE(log.lines().empty());
}

TEST(Log, DefaultSettingsPrintFromInfoUpwardsOnStandardOutput) {
  const LogSettings restore;
  setLogLevel(kSilent);
  enableLogCallback(initial.enable);
  setLogFile(nullptr);
  setLogLevel(initial.level);
  ::testing::internal::CaptureStdout();
  EmitAll();
  const std::vector<std::string> lines = SplitLines(::testing::internal::GetCapturedStdout());
  ASSERT_EQ(4u, lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) ExpectPrinted(kSamples[kInfo + i], lines[i]);
}

TEST(Log, PrintedLineNamesTimeLevelFunctionAndMessage) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.word);
    FileLog file(sample.level);
    sample.emit();
    const std::string text = file.text();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ('\n', text.back());
    ASSERT_EQ(1u, file.Lines().size());
    ExpectPrinted(sample, file.Lines()[0]);
  }
}

TEST(Log, PrintedLineIsFlushed) {
  FileLog file(kWarn);
  voltaris_dump_payload(nullptr);
  // Past the stream's buffer, which FileLog::text would flush.
  char byte = 0;
  EXPECT_EQ(1, pread(fileno(file.stream()), &byte, 1, 0));
}

TEST(Log, StreamIsNeverClosed) {
  const LogSettings restore;
  FileLog file(kWarn);
  voltaris_dump_payload(nullptr);
  setLogFile(nullptr);
  EXPECT_GE(std::fputs("still open", file.stream()), 0);
  EXPECT_EQ(0, std::fflush(file.stream()));
}

// A fresh process, because a callback can be stored but never removed again.
TEST(LogDeathTest, EnabledWithoutCallbackPrintsToTheFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        if (getLogCallback() != nullptr) std::exit(3);
        setLogFile(stderr);
        enableLogCallback(1);
        voltaris_dump_payload(nullptr);
        std::exit(getLogCallbackEnable() == 1 ? 0 : 4);
      },
      ::testing::ExitedWithCode(0), "\\[WARN\\] voltaris_dump_payload: NULL\n");
}

TEST(Log, CallbackReceivesFunctionAndMessageWithoutTimeOrNewline) {
  LogCapture log(kWarn);
  voltaris_dump_payload(nullptr);
  EXPECT_EQ((std::vector<LogLine>{{kWarn, "voltaris_dump_payload: NULL"}}), log.lines());
}

TEST(Log, CallbackTakesTheLineAwayFromTheFile) {
  const LogSettings restore;
  FileLog file(kWarn);
  LogCapture log(kWarn);
  voltaris_dump_payload(nullptr);
  EXPECT_EQ(1u, log.lines().size());
  EXPECT_TRUE(file.text().empty());
}

TEST(Log, CallbackReceivesAtMost511Characters) {
  const std::size_t start = sizeof kFatalStart - 1;
  for (const std::size_t total : {510u, 511u, 512u, 513u, 2000u}) {
    LogCapture log(kFatal);
    const std::string address(total - start, 'x');
    EmitFatal(address);
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ((kFatalStart + address).substr(0, 511), log.lines()[0].text) << total;
  }
}

TEST(Log, FileReceivesTheWholeMessage) {
  FileLog file(kFatal);
  const std::string address(5000, 'x');
  EmitFatal(address);
  ASSERT_EQ(1u, file.Lines().size());
  const std::string line = file.Lines()[0];
  const std::string expected = std::string("[FATAL] ") + kFatalStart + address;
  ASSERT_GT(line.size(), expected.size());
  EXPECT_EQ(expected, line.substr(line.size() - expected.size()));
}

TEST(Log, TextFromOutsideIsNeverAFormat) {
  {
    LogCapture log(kFatal);
    EmitFatal("%n%s%s%n%1000d");
    EXPECT_TRUE(log.Has(kFatal, std::string(kFatalStart) + "%n%s%s%n%1000d"));
  }
  FileLog file(kFatal);
  EmitFatal("%n%s");
  ASSERT_EQ(1u, file.Lines().size());
  EXPECT_NE(std::string::npos, file.Lines()[0].find(std::string(kFatalStart) + "%n%s"));
}

TEST(Log, CallbackThatSetsErrnoDoesNotChangeIt) {
  const ErrnoSpoiler log(kWarn);
  errno = 42;
  voltaris_dump_payload(nullptr);
  EXPECT_EQ(42, errno);
  EXPECT_EQ(1u, log.lines().size());
}

TEST(Log, FailingFileDoesNotChangeErrno) {
  const LogSettings restore;
  std::FILE* const full = std::fopen("/dev/full", "w");
  ASSERT_NE(nullptr, full);
  setLogLevel(kSilent);
  enableLogCallback(0);
  setLogFile(full);
  setLogLevel(kWarn);
  errno = 42;
  voltaris_dump_payload(nullptr);
  EXPECT_EQ(42, errno);
  // The write did fail, so there was something to keep away from errno.
  EXPECT_NE(0, std::ferror(full));
  setLogFile(nullptr);
  std::fclose(full);
}

TEST(Log, SilencedMessageLeavesErrno) {
  const ErrnoSpoiler log(kSilent);
  errno = 42;
  voltaris_dump_payload(nullptr);
  EXPECT_EQ(42, errno);
}

}  // namespace
