#include "recording/recording_text.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstring>
#include <optional>
#include <unordered_set>
#include <utility>

#include "recording/attribute_lines.h"
#include "recording/quoted_text.h"

namespace vt::recording {
namespace {

constexpr std::string_view kTitle = "voltaris recording ";
constexpr std::string_view kVersion = "1";
constexpr std::string_view kEnd = "end";
constexpr std::size_t kLongestDomain = 255;

// --- time, in UTC: 2026-11-21T15:29:54Z ---

std::string Digits(std::int64_t number, std::size_t width) {
  std::string text = std::to_string(number);
  if (text.size() < width) text.insert(0, width - text.size(), '0');
  return text;
}

std::string TimeText(std::chrono::sys_seconds time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return Digits(static_cast<int>(date.year()), 4) + '-' +
         Digits(static_cast<unsigned>(date.month()), 2) + '-' +
         Digits(static_cast<unsigned>(date.day()), 2) + 'T' + Digits(clock.hours().count(), 2) +
         ':' + Digits(clock.minutes().count(), 2) + ':' + Digits(clock.seconds().count(), 2) + 'Z';
}

std::optional<std::chrono::sys_seconds> ParseTime(std::string_view text) {
  constexpr std::string_view form = "0000-00-00T00:00:00Z";
  if (text.size() != form.size()) return std::nullopt;
  for (std::size_t i = 0; i < form.size(); ++i) {
    const bool is_digit = text[i] >= '0' && text[i] <= '9';
    if (form[i] == '0' ? !is_digit : text[i] != form[i]) return std::nullopt;
  }
  const auto number = [text](std::size_t at, std::size_t size) {
    return *LineReader::ParseNumber<unsigned>(text.substr(at, size));
  };
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(number(0, 4))),
                                         std::chrono::month(number(5, 2)),
                                         std::chrono::day(number(8, 2)));
  const std::chrono::hours hours(number(11, 2));
  const std::chrono::minutes minutes(number(14, 2));
  const std::chrono::seconds seconds(number(17, 2));
  if (!date.ok() || hours.count() > 23 || minutes.count() > 59 || seconds.count() > 59) {
    return std::nullopt;
  }
  return std::chrono::sys_days(date) + hours + minutes + seconds;
}

// --- writing ---

std::string_view Characters(const voltaris::DeviceId& id) {
  return {reinterpret_cast<const char*>(id.bytes.data()), id.bytes.size()};
}

std::string AttributeWords(const std::vector<std::int32_t>& attributes) {
  std::string words;
  for (const std::int32_t number : attributes) {
    words += words.empty() ? "" : ", ";
    words += voltaris::word_of(number);
  }
  return words;
}

// --- reading ---

// Reader reads line by line. What stands above the first entity may come in any order.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  Recording Read() {
    ReadTitle();
    while (!has_end_) {
      const std::string_view text = NextLine();
      LineReader line(text, number_);
      if (!line.AtEnd() && line.Peek() != '#') ReadLine(line);
    }
    if (!rest_.empty()) {
      ++number_;
      LineReader(rest_, number_).Reject("there is something behind the end of the recording");
    }
    return std::move(recording_);
  }

 private:
  // NextLine returns the next line without its end.
  std::string_view NextLine() {
    ++number_;
    const std::size_t size = rest_.find('\n');
    if (rest_.empty()) Reject("the line 'end' is missing: the recording is not whole");
    if (size == std::string_view::npos) Reject("the last line is not whole");
    if (size > kLongestLine) Reject("the line is longer than 16384 bytes");
    const std::string_view line = rest_.substr(0, size);
    rest_.remove_prefix(size + 1);
    return line;
  }

  [[noreturn]] void Reject(const std::string& message) const {
    LineReader({}, number_).Reject(message);
  }

  void ReadTitle() {
    const std::string_view start = rest_.substr(0, kTitle.size());
    if (start != kTitle) {
      number_ = 1;
      Reject("this is no recording: it does not begin with '" + std::string(kTitle) + "'");
    }
    const std::string_view version = NextLine().substr(kTitle.size());
    if (version != kVersion) {
      throw RecordingError(1, static_cast<std::uint32_t>(kTitle.size() + 1),
                           "the version of the recording is not " + std::string(kVersion) +
                               ", the one that is known here");
    }
  }

  void ReadLine(LineReader& line) {
    const std::string word(line.Word("a word"));
    if (word == kEnd) {
      line.ExpectEnd();
      CheckHeader(line);
      has_end_ = true;
      return;
    }
    if (line.Peek() != '=') line.Reject("there should be a = here");
    if (word == "entity") {
      ReadEntity(line);
    } else if (recording_.entities.empty()) {
      ReadHeader(line, word);
    } else {
      ReadAttribute(line, word);
    }
    line.ExpectEnd();
  }

  // --- above the entities ---

  enum HeaderLine : std::size_t { kNode, kDomain, kTime, kAttributes, kHeaderLines };
  static constexpr std::array<std::string_view, kHeaderLines> kHeaderWords = {"node", "domain",
                                                                              "time", "attributes"};

  void ReadHeader(LineReader& line, const std::string& word) {
    const auto* const found = std::ranges::find(kHeaderWords, word);
    if (found == kHeaderWords.end()) {
      line.RejectBack(FindRecordable(word) != nullptr
                          ? Quote(word) + " is of an entity, and none has begun"
                          : "there is no " + Quote(word) + " in a recording");
    }
    const auto kind = static_cast<std::size_t>(found - kHeaderWords.begin());
    if (header_.test(kind)) line.RejectBack(Quote(word) + " stands here a second time");
    header_.set(kind);
    line.Expect('=');
    switch (kind) {
      case kNode:
        recording_.node = ReadIdentity(line, "the identity of the node");
        break;
      case kDomain:
        ReadDomain(line);
        break;
      case kTime:
        ReadTime(line);
        break;
      default:
        ReadAttributes(line);
        break;
    }
  }

  void ReadDomain(LineReader& line) {
    recording_.domain = line.Quoted("the domain", kLongestDomain);
    if (recording_.domain.find('\0') != std::string::npos) {
      line.RejectBack("the domain must not hold a zero byte");
    }
  }

  void ReadTime(LineReader& line) {
    const auto time = ParseTime(line.Word("the time"));
    if (!time) line.RejectBack("the time must be in UTC, such as 2026-11-21T15:29:54Z");
    recording_.time = *time;
  }

  void ReadAttributes(LineReader& line) {
    if (line.AtEnd()) return;
    do {
      const std::string word(line.Word("an attribute"));
      const AttributeLines* attribute = FindRecordable(word);
      if (attribute == nullptr) line.RejectBack("there is no attribute " + Quote(word));
      if (!recording_.attributes.empty() && recording_.attributes.back() >= attribute->number) {
        line.RejectBack(Quote(word) + " is not in its place: each stands once, in this order: " +
                        AttributeWords(AllNumbers()));
      }
      recording_.attributes.push_back(attribute->number);
    } while (line.Take(','));
  }

  static std::vector<std::int32_t> AllNumbers() {
    std::vector<std::int32_t> numbers;
    for (const AttributeLines& row : RecordableAttributes()) numbers.push_back(row.number);
    return numbers;
  }

  void CheckHeader(const LineReader& line) const {
    for (std::size_t i = 0; i < kHeaderLines; ++i) {
      if (header_.test(i)) continue;
      line.RejectBack("'" + std::string(kHeaderWords.at(i)) + "' is missing above");
    }
  }

  // --- entities ---

  static voltaris::DeviceId ReadIdentity(LineReader& line, std::string_view what) {
    const std::string text = line.Quoted(what, VT_IDENTITY_SIZE);
    voltaris::DeviceId id;
    if (text.size() != id.bytes.size()) {
      line.RejectBack(std::string(what) + " must have 32 bytes, and has " +
                      std::to_string(text.size()));
    }
    std::memcpy(id.bytes.data(), text.data(), id.bytes.size());
    return id;
  }

  void ReadEntity(LineReader& line) {
    CheckHeader(line);
    if (recording_.entities.size() == kMostEntities) {
      line.RejectBack("there are more than 1000000 entities");
    }
    line.Expect('=');
    Entity entity;
    entity.id.device = ReadIdentity(line, "the identity of the device");
    // Entity 0 stands for a device as a whole, and has no values.
    entity.id.index = line.Number<std::uint32_t>("the number of the entity", 1);
    if (!known_.insert(entity.id).second) line.RejectBack("this entity stands here a second time");
    entity.line = number_;
    recording_.entities.push_back(std::move(entity));
  }

  void ReadAttribute(LineReader& line, const std::string& word) {
    const AttributeLines* attribute = FindRecordable(word);
    if (attribute == nullptr) line.RejectBack("there is no attribute " + Quote(word));
    if (!std::ranges::binary_search(recording_.attributes, attribute->number)) {
      line.RejectBack("'attributes' above does not list " + Quote(word));
    }
    line.Expect('=');
    attribute->read(line, word, recording_.entities.back());
  }

  std::string_view rest_;
  std::uint32_t number_ = 0;  // of the line
  bool has_end_ = false;
  std::bitset<kHeaderLines> header_;
  std::unordered_set<voltaris::EntityId> known_;
  Recording recording_;
};

}  // namespace

std::string WriteRecording(const Recording& recording) {
  std::string text(kTitle);
  text += kVersion;
  text += "\nnode = " + Quote(Characters(recording.node));
  text += "\ndomain = " + Quote(recording.domain);
  text += "\ntime = " + TimeText(recording.time);
  text += "\nattributes = " + AttributeWords(recording.attributes) + '\n';
  for (const Entity& entity : recording.entities) {
    text += "\nentity = " + Quote(Characters(entity.id.device)) + ' ' +
            std::to_string(entity.id.index) + '\n';
    for (const AttributeLines& row : RecordableAttributes()) row.write(entity, row.word(), text);
  }
  text += "\nend\n";
  return text;
}

Recording ReadRecording(std::string_view text) { return Reader(text).Read(); }

}  // namespace vt::recording
