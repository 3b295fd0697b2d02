// What the rounds of a watch have told so far: the entities with their power now, at first and in
// between, and the sums. It knows nothing of screens.
#ifndef VT_TOOLS_WATCH_MODEL_H_
#define VT_TOOLS_WATCH_MODEL_H_

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "tools/answer.h"
#include "tools/attributes.h"
#include "tools/watch_order.h"

namespace vt::tools {

// WatchAttributes are those that the rows of a watch have values of: name, usage, level, category.
std::vector<const Attribute*> WatchAttributes();

// WatchGroup is what entities are summed up by: power that is used and power that is produced do
// not belong into one sum, and a meter measures what others use.
enum class WatchGroup { kConsumers, kProducers, kMeters };
inline constexpr std::size_t kWatchGroups = 3;

struct WatchKey {
  std::size_t node = 0;  // its place among the targets
  std::string device;
  std::uint32_t entity = 0;

  friend bool operator==(const WatchKey&, const WatchKey&) = default;
  friend auto operator<=>(const WatchKey& a, const WatchKey& b) {
    return std::tie(a.node, a.device, a.entity) <=> std::tie(b.node, b.device, b.entity);
  }
};

// WatchRow is an entity.
struct WatchRow {
  WatchKey key;
  std::string node;  // its name
  std::string name;  // empty without one
  std::optional<std::int64_t> level;
  WatchGroup group = WatchGroup::kConsumers;
  std::optional<double> watts;        // told last
  std::optional<double> first_watts;  // told first
  // One for each round, the last one at the end; nothing where the entity told none.
  std::deque<std::optional<double>> history;
  std::size_t absent = 0;  // rounds since it was told of; 0 when the last one did

  // change is since the first time.
  std::optional<double> change() const;
};

// WatchSum is the power of the entities of a group that the last round told of.
struct WatchSum {
  std::size_t entities = 0;
  double watts = 0;
  double change = 0;  // since the first round that told of any
};

class WatchModel {
 public:
  // An entity that was told of no more in so many rounds is forgotten, and histories are as long.
  static constexpr std::size_t kLongestHistory = 120;

  // Take adds a round: the answers of all nodes, in the order of the targets. What a node that
  // failed has told is taken, too.
  void Take(std::span<const NodeAnswer> nodes);

  std::size_t rounds() const { return rounds_; }
  const WatchSum& Sum(WatchGroup group) const { return sums_[static_cast<std::size_t>(group)]; }
  // absent is how many entities that were told of once are not any more.
  std::size_t absent() const { return absent_; }
  std::size_t node_count() const { return nodes_.size(); }
  // The nodes of the last round that failed, a line each, such as "a:7440: unreachable: ...".
  const std::vector<std::string>& failures() const { return failures_; }

  // Rows are those that a filter leaves, in order; they are the model's until the next Take. The
  // filter is found in names, devices or nodes, no matter whether in small letters.
  std::vector<const WatchRow*> Rows(const WatchOrder& order, const std::string& filter) const;

 private:
  void TakeRow(const WatchKey& key, const std::string& node, const Row& told);
  void Forget();
  void SumUp();

  std::map<WatchKey, WatchRow> rows_;
  std::vector<Verdict> nodes_;
  std::vector<std::string> failures_;
  std::array<WatchSum, kWatchGroups> sums_{};
  std::array<std::optional<double>, kWatchGroups> first_sums_{};
  std::size_t absent_ = 0;
  std::size_t rounds_ = 0;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_WATCH_MODEL_H_
