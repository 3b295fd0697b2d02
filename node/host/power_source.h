// What all sources of this host's power have in common: each finds entities and reads them. The
// sources are files below a root directory and servers on the network; none of them is trusted to
// be there, to be readable or to make sense.
//
// Categories are chosen so that consumers can be added up: what contains another entity (the whole
// host, as its mains input or its uninterruptible supply see it) is a meter, never a consumer.
#ifndef VT_NODE_HOST_POWER_SOURCE_H_
#define VT_NODE_HOST_POWER_SOURCE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vt::node {

// MonotonicClock tells the time; tests have one of their own.
using MonotonicClock = std::function<std::chrono::steady_clock::time_point()>;

// kMostEntities bounds what one source lists.
inline constexpr std::size_t kMostEntities = 64;

enum class Caliber { kMeasured, kEstimated };
enum class Category { kConsumer, kProducer, kMeter };

// LibraryCaliber is the value of enum cv_corvane_usage_caliber: actual or presumed.
std::int32_t LibraryCaliber(Caliber caliber);
// LibraryCategory is the value of enum cv_corvane_usage_category.
std::int32_t LibraryCategory(Category category);
std::string_view Word(Caliber caliber);
std::string_view Word(Category category);

struct HostEntity {
  std::string key;   // the same after each start: letters, digits, "/" and "._:+-#"
  std::string name;  // for people: printable ASCII
  Caliber caliber = Caliber::kMeasured;
  Category category = Category::kConsumer;  // when it was found; readings tell the present one
};

enum class Trouble {
  kNone,
  kWaiting,      // power is the difference of two readings, and this is the first
  kDenied,       // it is there, but not for this user
  kGone,         // it is not there, or no longer
  kFaulty,       // what is there makes no sense
  kUnreachable,  // a server that cannot be talked to
};
std::string_view Word(Trouble trouble);

// Reading is the power of one entity, or why there is none.
struct Reading {
  std::int64_t milliwatts = 0;              // never negative
  Category category = Category::kConsumer;  // of a battery it changes with the direction
  Trouble trouble = Trouble::kNone;
  std::string detail;  // of the trouble: what was tried and what came of it, printable

  bool ok() const { return trouble == Trouble::kNone; }
  static Reading Failed(Trouble trouble, std::string detail);
};

// PlausibleReading is a reading of that power, or a faulty one when no host has such a power: one
// that is negative, not a number, or more than a gigawatt. where tells what was read.
Reading PlausibleReading(double milliwatts, Category category, const std::string& where);

// Findings are what a source has found. Where that is nothing, the note says why, and the trouble
// is that which kept it from looking, if any did.
struct Findings {
  std::vector<HostEntity> entities;  // kMostEntities at most
  std::string note;
  Trouble trouble = Trouble::kNone;
};

// PowerSource belongs to one thread at a time. Its calls do not throw for anything that files or
// servers do.
class PowerSource {
 public:
  PowerSource() = default;
  virtual ~PowerSource() = default;
  PowerSource(const PowerSource&) = delete;
  PowerSource& operator=(const PowerSource&) = delete;

  // kind is one word for tables and messages.
  virtual std::string_view kind() const = 0;
  // Find looks for entities anew and forgets those it has found before.
  virtual Findings Find() = 0;
  // Read reads all that the last Find has found, in that order.
  virtual std::vector<Reading> Read() = 0;
  // Advice tells an operator what to do about a reading that failed; it may have several lines.
  virtual std::string Advice(Trouble trouble) const = 0;
};

// PrintableText is the text with a question mark for all that is not printable ASCII, and cut to 64
// characters: it comes from drivers and servers and goes to terminals, logs and the network.
std::string PrintableText(std::string_view text);

// KeyText is the text as a part of a key: what must not stand in one becomes an underscore.
std::string KeyText(std::string_view text);

}  // namespace vt::node

#endif  // VT_NODE_HOST_POWER_SOURCE_H_
