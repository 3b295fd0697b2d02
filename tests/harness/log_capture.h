// Log output as data. LogCapture collects the lines that the log facility hands to its callback,
// FileLog collects what it prints to its file. Both change the process-wide log settings for their
// lifetime and put them back, so a test that uses one leaves no trace for the next test.
//
//   LogCapture log(kTrace);
//   voltaris_closeSession(session);
//   EXPECT_TRUE(log.Has(kWarn, "voltaris_closeSession: ..."));
//
// Code inside a vt:: namespace must write ::testing for GoogleTest's namespace, because plain
// `testing` finds vt::testing first.
#ifndef VT_TESTS_HARNESS_LOG_CAPTURE_H_
#define VT_TESTS_HARNESS_LOG_CAPTURE_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace vt::testing {

inline constexpr std::uint32_t kTrace = 0;
inline constexpr std::uint32_t kDebug = 1;
inline constexpr std::uint32_t kInfo = 2;
inline constexpr std::uint32_t kWarn = 3;
inline constexpr std::uint32_t kError = 4;
inline constexpr std::uint32_t kFatal = 5;
// kSilent as a level setting lets no message through.
inline constexpr std::uint32_t kSilent = 6;

// LogLine is one call of the log callback; text is "function: message" exactly as received.
struct LogLine {
  std::uint32_t level = 0;
  std::string text;

  friend bool operator==(const LogLine&, const LogLine&) = default;
};

// Printed as: WARN "function: message".
std::ostream& operator<<(std::ostream& out, const LogLine& line);
void PrintTo(const LogLine& line, std::ostream* out);

// LogCapture installs a callback and sets the level, without recording the facility's own lines
// about the switch. The destructor restores the level, the enable flag and, when there was one, the
// earlier callback (the facility cannot store a null callback, so otherwise ours stays, ignoring
// what it gets). Captures nest: the innermost receives. Lines of any thread are collected.
class LogCapture {
 public:
  explicit LogCapture(std::uint32_t level = kTrace);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // lines returns a copy of what was collected so far, in order of arrival.
  std::vector<LogLine> lines() const;
  // Take returns the lines collected so far and forgets them.
  std::vector<LogLine> Take();
  // Count tells how many lines have this level and exactly this text.
  std::size_t Count(std::uint32_t level, std::string_view text) const;
  bool Has(std::uint32_t level, std::string_view text) const;
  // HasMatch tells whether the POSIX extended regular expression ("[0-9]+", not "\d+") is found
  // somewhere in a line of this level.
  bool HasMatch(std::uint32_t level, const std::string& regex) const;
  // AtOrAbove returns the lines whose level is at least this one.
  std::vector<LogLine> AtOrAbove(std::uint32_t level) const;
  void Clear();

 private:
  static void Receive(std::uint32_t level, const char* text);

  std::vector<LogLine> lines_;
  LogCapture* outer_ = nullptr;
  std::uint32_t saved_level_;
  std::uint32_t saved_enable_;
  void (*saved_callback_)(std::uint32_t, const char*);
};

// FileLog sends the log to an unnamed temporary file (callback disabled) and reads it back. Its
// stream buffer is its own, so failing allocations do not disturb it.
class FileLog {
 public:
  explicit FileLog(std::uint32_t level = kTrace);
  ~FileLog();
  FileLog(const FileLog&) = delete;
  FileLog& operator=(const FileLog&) = delete;

  // stream is the file that was handed to the facility.
  std::FILE* stream() const { return stream_; }
  // text returns everything printed so far.
  std::string text() const;
  // Lines returns text cut at its newlines; what follows the last newline, if anything, is last.
  std::vector<std::string> Lines() const;

 private:
  std::FILE* stream_;
  std::vector<char> buffer_;
  std::uint32_t saved_level_;
  std::uint32_t saved_enable_;
  std::FILE* saved_file_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_LOG_CAPTURE_H_
