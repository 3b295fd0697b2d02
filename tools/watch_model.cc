#include "tools/watch_model.h"

#include <algorithm>
#include <functional>
#include <variant>

#include "tools/report.h"

namespace vt::tools {
namespace {

constexpr std::size_t kNameIndex = 0;
constexpr std::size_t kUsageIndex = 1;
constexpr std::size_t kLevelIndex = 2;
constexpr std::size_t kCategoryIndex = 3;

std::optional<double> WattsOf(const Value& value) {
  const auto* usage = std::get_if<Power>(&value);
  if (usage == nullptr || !usage->units) return std::nullopt;
  return voltaris::to_watts(usage->raw, *usage->units);
}

// Devices that tell no category are taken for consumers, as devices take queries without one.
WatchGroup GroupOf(const Value& value) {
  const auto* word = std::get_if<std::string>(&value);
  if (word == nullptr) return WatchGroup::kConsumers;
  if (*word == voltaris::name_of(voltaris::Category::kProducer)) return WatchGroup::kProducers;
  if (*word == voltaris::name_of(voltaris::Category::kMeter)) return WatchGroup::kMeters;
  return WatchGroup::kConsumers;
}

char Small(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool Holds(const std::string& text, const std::string& part) {
  const auto is_same = [](char a, char b) { return Small(a) == Small(b); };
  const auto found = std::search(text.begin(), text.end(), part.begin(), part.end(), is_same);
  return found != text.end() || part.empty();
}

bool IsMeant(const WatchRow& row, const std::string& filter) {
  return Holds(row.name, filter) || Holds(row.key.device, filter) || Holds(row.node, filter);
}

// What has no value comes last, whichever way the others go.
template <typename T>
bool IsBefore(const std::optional<T>& a, const std::optional<T>& b, bool descending) {
  if (!a || !b) return a && !b;
  return descending ? *b < *a : *a < *b;
}

std::optional<std::string> TextOf(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

bool IsBefore(const WatchRow& a, const WatchRow& b, const WatchOrder& order) {
  switch (order.column) {
    case WatchColumn::kDevice:
      return order.descending ? std::less()(b.key, a.key) : std::less()(a.key, b.key);
    case WatchColumn::kName:
      return IsBefore(TextOf(a.name), TextOf(b.name), order.descending);
    case WatchColumn::kLevel:
      return IsBefore(a.level, b.level, order.descending);
    case WatchColumn::kUsage:
      return IsBefore(a.watts, b.watts, order.descending);
    case WatchColumn::kChange:
      break;
  }
  return IsBefore(a.change(), b.change(), order.descending);
}

}  // namespace

std::vector<const Attribute*> WatchAttributes() {
  return {&FindAttribute("name"), &FindAttribute("usage"), &FindAttribute("level"),
          &FindAttribute("category")};
}

std::optional<double> WatchRow::change() const {
  if (!watts || !first_watts) return std::nullopt;
  return *watts - *first_watts;
}

void WatchModel::Take(std::span<const NodeAnswer> nodes) {
  ++rounds_;
  nodes_.clear();
  failures_.clear();
  for (auto& [key, row] : rows_) {
    ++row.absent;
    row.history.emplace_back();
  }
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const NodeAnswer& node = nodes[i];
    const std::string name = NodeName(*node.target);
    for (const Row& row : node.answer.rows) TakeRow({i, row.device, row.entity}, name, row);
    nodes_.push_back(node.verdict);
    if (node.verdict.status == Status::kOk) continue;
    std::string failure = name + ": ";
    failure.append(StatusWord(node.verdict.status)).append(": ").append(node.verdict.reason);
    failures_.push_back(std::move(failure));
  }
  Forget();
  SumUp();
}

void WatchModel::TakeRow(const WatchKey& key, const std::string& node, const Row& told) {
  const auto [at, is_new] = rows_.try_emplace(key);
  WatchRow& row = at->second;
  if (is_new) {
    row.key = key;
    row.node = node;
    row.history.emplace_back();
  }
  row.absent = 0;
  const auto* name = std::get_if<std::string>(&told.values[kNameIndex]);
  row.name = name != nullptr ? *name : "";
  const auto* level = std::get_if<std::int64_t>(&told.values[kLevelIndex]);
  row.level = level != nullptr ? std::optional(*level) : std::nullopt;
  row.group = GroupOf(told.values[kCategoryIndex]);
  row.watts = WattsOf(told.values[kUsageIndex]);
  if (!row.first_watts) row.first_watts = row.watts;
  row.history.back() = row.watts;
}

void WatchModel::Forget() {
  std::erase_if(rows_, [](const auto& entry) { return entry.second.absent >= kLongestHistory; });
  for (auto& [key, row] : rows_) {
    if (row.history.size() > kLongestHistory) row.history.pop_front();
  }
}

void WatchModel::SumUp() {
  sums_ = {};
  absent_ = 0;
  for (const auto& [key, row] : rows_) {
    if (row.absent > 0) {
      ++absent_;
      continue;
    }
    WatchSum& sum = sums_[static_cast<std::size_t>(row.group)];
    ++sum.entities;
    sum.watts += row.watts.value_or(0);
  }
  for (std::size_t i = 0; i < kWatchGroups; ++i) {
    if (sums_[i].entities > 0 && !first_sums_[i]) first_sums_[i] = sums_[i].watts;
    sums_[i].change = sums_[i].watts - first_sums_[i].value_or(sums_[i].watts);
  }
}

std::vector<const WatchRow*> WatchModel::Rows(const WatchOrder& order,
                                              const std::string& filter) const {
  std::vector<const WatchRow*> rows;
  for (const auto& [key, row] : rows_) {
    if (IsMeant(row, filter)) rows.push_back(&row);
  }
  std::ranges::stable_sort(
      rows, [&order](const WatchRow* a, const WatchRow* b) { return IsBefore(*a, *b, order); });
  return rows;
}

}  // namespace vt::tools
