#include "node/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <utility>

#include "vtapi.h"

#include "files/file_content.h"
#include "node/changes.h"

namespace vt::node {
namespace {

constexpr std::string_view kTitle = "voltaris-node state ";
constexpr std::string_view kVersion = "1";
constexpr std::string_view kEnd = "end ";
constexpr std::size_t kNone = std::string_view::npos;

// --- the text ---

// Checksum is a digest under a key that everybody knows.
std::string Checksum(std::string_view text) {
  hmac_context context{};
  hmac_shainit(&context, kTitle.data(), static_cast<std::uint32_t>(kTitle.size()));
  hmac_shaupdate(&context, text.data(), static_cast<std::uint32_t>(text.size()));
  std::array<std::uint8_t, VT_DIGEST_SIZE> digest{};
  hmac_shafinal(digest.data(), &context);
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (const std::uint8_t byte : digest) {
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

template <class T>
std::optional<T> Number(std::string_view text) {
  T number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

void PutField(std::string& line, std::string_view name, const std::string& value) {
  line += '\t';
  line += name;
  line += '=';
  line += value;
}

void PutText(std::string& line, std::string_view name, const std::optional<std::string>& text) {
  if (text) PutField(line, name, *text);
}

void PutRecord(std::string& text, const StateRecord& record) {
  text.append(record.id.data(), record.id.size());
  text += '\t' + std::to_string(record.entity);
  const Changes& changes = record.changes;
  if (changes.level) PutField(text, "level", std::to_string(*changes.level));
  if (changes.importance) PutField(text, "importance", std::to_string(*changes.importance));
  PutText(text, "name", changes.name);
  PutText(text, "role", changes.role);
  PutText(text, "keywords", changes.keywords);
  if (changes.recurrence) {
    const Recurrence& recurrence = *changes.recurrence;
    PutField(text, "recurrence",
             std::to_string(recurrence.byte1) + ' ' + std::to_string(recurrence.byte2) + ' ' +
                 std::to_string(recurrence.flag) + ' ' + recurrence.text);
  }
  text += '\n';
}

// Fields takes a line apart.
class Fields {
 public:
  Fields(std::string_view line, char separator) : rest_(line), separator_(separator) {}

  bool AtEnd() const { return at_end_; }

  std::string_view Next() {
    const std::size_t end = rest_.find(separator_);
    const std::string_view field = rest_.substr(0, end);
    at_end_ = end == kNone;
    rest_.remove_prefix(at_end_ ? rest_.size() : end + 1);
    return field;
  }

  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
  char separator_;
  bool at_end_ = false;
};

// RecordReader reads one line. All that a set could not have set is refused.
class RecordReader {
 public:
  explicit RecordReader(std::size_t line) : line_(line) {}

  StateRecord Read(std::string_view line) const {
    Fields fields(line, '\t');
    StateRecord record;
    const std::string_view id = fields.Next();
    if (id.size() != record.id.size()) Fail();
    std::ranges::copy(id, record.id.begin());
    record.entity = Required(Number<std::uint32_t>(fields.Next()));
    while (!fields.AtEnd()) ReadField(fields.Next(), record.changes);
    return record;
  }

 private:
  [[noreturn]] void Fail() const {
    throw StateError("line " + std::to_string(line_) + " is none of a state file");
  }

  template <class T>
  T Required(std::optional<T> value) const {
    if (!value) Fail();
    return *std::move(value);
  }

  void ReadField(std::string_view field, Changes& changes) const {
    const std::size_t equals = field.find('=');
    if (equals == kNone) Fail();
    const std::string_view name = field.substr(0, equals);
    const std::string_view value = field.substr(equals + 1);
    if (name == "level") {
      changes.level = Required(Number<std::uint8_t>(value));
      if (*changes.level >= kLevels) Fail();
    } else if (name == "importance") {
      changes.importance = Required(Number<std::uint8_t>(value));
    } else if (name == "name") {
      changes.name = Text(value);
    } else if (name == "role") {
      changes.role = Text(value);
    } else if (name == "keywords") {
      changes.keywords = Text(value);
    } else if (name == "recurrence") {
      changes.recurrence = ReadRecurrence(value);
    } else {
      Fail();
    }
  }

  std::string Text(std::string_view value) const {
    std::string text(value);
    if (!IsSettableText(text)) Fail();
    return text;
  }

  Recurrence ReadRecurrence(std::string_view value) const {
    Fields fields(value, ' ');
    Recurrence recurrence;
    recurrence.byte1 = Required(Number<std::uint8_t>(fields.Next()));
    recurrence.byte2 = Required(Number<std::uint8_t>(fields.Next()));
    recurrence.flag = Required(Number<std::int32_t>(fields.Next()));
    if (fields.AtEnd()) Fail();
    recurrence.text = fields.rest();
    if (!IsSettableRecurrence(recurrence)) Fail();
    return recurrence;
  }

  std::size_t line_;
};

// CheckEnd compares the last line with what is before it, and returns that.
std::string_view CheckEnd(std::string_view text) {
  if (!text.ends_with('\n')) throw StateError("its last line is not whole");
  const std::size_t before = text.rfind('\n', text.size() - 2);
  if (before == kNone) throw StateError("its last line is missing");
  const std::string_view body = text.substr(0, before + 1);
  const auto lines = std::ranges::count(body, '\n') - 1;
  const std::string end = std::string(kEnd) + std::to_string(lines) + ' ' + Checksum(body) + '\n';
  if (text.substr(before + 1) != end) throw StateError("its checksum is not that of its content");
  return body;
}

// --- the disk ---

using files::FileDescriptor;

// A million entities of which all was set have less.
constexpr std::size_t kLargestFile = std::size_t{2} << 30;

[[noreturn]] void ThrowErrno(const std::string& what) { files::ThrowErrno(errno, what); }

FileDescriptor Open(const std::string& path, int flags, mode_t mode = 0) {
  return FileDescriptor(open(path.c_str(), flags | O_CLOEXEC, mode));
}

void Flush(const FileDescriptor& file, const std::string& path) {
  files::BringToDisk(file, "cannot bring " + path + " to the disk");
}

}  // namespace

std::string WriteState(const std::vector<StateRecord>& records) {
  std::string text(kTitle);
  text += kVersion;
  text += '\n';
  for (const StateRecord& record : records) PutRecord(text, record);
  text += std::string(kEnd) + std::to_string(records.size()) + ' ' + Checksum(text) + '\n';
  return text;
}

std::vector<StateRecord> ReadState(std::string_view text) {
  const std::string_view body = CheckEnd(text);
  Fields lines(body, '\n');
  const std::string_view title = lines.Next();
  if (!title.starts_with(kTitle)) throw StateError("it is no state file");
  const std::string version(title.substr(kTitle.size()));
  if (version != kVersion) throw StateError("its version is " + version + ", not 1");
  std::vector<StateRecord> records;
  while (!lines.rest().empty()) {
    records.push_back(RecordReader(records.size() + 2).Read(lines.Next()));
  }
  return records;
}

std::string StateFile::Folder() const {
  const std::string folder = std::filesystem::path(path_).parent_path().string();
  return folder.empty() ? "." : folder;
}

StateFile::Loaded StateFile::Load() const {
  // A node that could not keep what it is set to should not start and find out later.
  if (access(Folder().c_str(), W_OK | X_OK) != 0) {
    ThrowErrno("cannot write into " + Folder() + ", where the state file is");
  }
  const FileDescriptor file = Open(path_, O_RDONLY);
  if (!file.is_open()) {
    if (errno == ENOENT) return {};
    ThrowErrno("cannot open " + path_);
  }
  const std::string text = files::ReadAll(file, kLargestFile, "cannot read " + path_);
  try {
    return {ReadState(text), std::nullopt};
  } catch (const StateError& error) {
    return {{}, path_ + " is damaged (" + error.what() + ") and was set aside as " + SetAside()};
  }
}

std::string StateFile::SetAside() const {
  constexpr int most = 10'000;
  for (int i = 1; i <= most; ++i) {
    std::string aside = path_ + ".damaged-" + std::to_string(i);
    // A link is never made over something, as a renamed file would be.
    if (link(path_.c_str(), aside.c_str()) == 0) {
      if (unlink(path_.c_str()) != 0) ThrowErrno("cannot set " + path_ + " aside");
      Flush(Open(Folder(), O_RDONLY | O_DIRECTORY), Folder());
      return aside;
    }
    if (errno != EEXIST) break;
  }
  ThrowErrno("cannot set " + path_ + " aside");
}

void StateFile::Save(const std::vector<StateRecord>& records) const {
  // One program writes, so one name is enough; what a crash left there is written over.
  files::UnfinishedFile made(path_ + ".new");
  {
    constexpr mode_t for_the_owner = 0600;
    const FileDescriptor file =
        Open(made.path(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, for_the_owner);
    if (!file.is_open()) ThrowErrno("cannot make " + made.path());
    files::WriteAll(file, WriteState(records), "cannot write " + made.path());
    Flush(file, made.path());
  }
  if (std::rename(made.path().c_str(), path_.c_str()) != 0) {
    ThrowErrno("cannot replace " + path_);
  }
  made.Keep();
  const FileDescriptor folder = Open(Folder(), O_RDONLY | O_DIRECTORY);
  if (!folder.is_open()) ThrowErrno("cannot open " + Folder());
  Flush(folder, Folder());
}

}  // namespace vt::node
