#include "node/fleet_survey.h"

#include <algorithm>
#include <map>
#include <numeric>

#include "vtapi.h"

#include "node/power_units.h"

namespace vt::node {
namespace {

constexpr std::size_t kMostDomains = 20;

PowerCategory CategoryOf(const Model& model) {
  switch (model.category) {
    case CV_CORVANE_USAGE_PRODUCER:
      return PowerCategory::kProducer;
    case CV_CORVANE_USAGE_METER:
      return PowerCategory::kMeter;
    default:
      return PowerCategory::kConsumer;
  }
}

char Small(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// Search looks for a text in what an entity says of itself, whatever the case of the letters.
class Search {
 public:
  Search(const Fleet& fleet, const std::string& text) : fleet_(fleet), text_(text) {
    std::ranges::transform(text_, text_.begin(), Small);
  }

  bool IsForAll() const { return text_.empty(); }

  bool Matches(std::uint32_t entity) {
    if (IsForAll()) return true;
    fleet_.WriteNameOf(entity, name_);
    const DeviceIdText& id = fleet_.IdOf(entity);
    return IsIn(name_) || IsIn(fleet_.RoleOf(entity)) || IsIn(fleet_.KeywordsOf(entity)) ||
           IsIn(fleet_.ModelOf(entity).domain) || IsIn({id.data(), id.size()});
  }

 private:
  bool IsIn(std::string_view text) const {
    return std::search(text.begin(), text.end(), text_.begin(), text_.end(),
                       [](char there, char wanted) { return Small(there) == wanted; }) !=
           text.end();
  }

  const Fleet& fleet_;
  std::string text_;
  std::string name_;  // kept for its memory
};

EntityRow RowOf(const Fleet& fleet, const FactorsAt& factors, std::uint32_t entity) {
  EntityRow row;
  const Model& model = fleet.ModelOf(entity);
  const DeviceIdText& id = fleet.IdOf(entity);
  row.id.assign(id.data(), id.size());
  row.number = fleet.EntityAt(entity).number;
  fleet.WriteNameOf(entity, row.name);
  row.role = fleet.RoleOf(entity);
  row.keywords = fleet.KeywordsOf(entity);
  row.domain = model.domain;
  row.level = fleet.EntityAt(entity).level;
  row.importance = fleet.EntityAt(entity).importance;
  row.category = CategoryOf(model);
  if (HasPower(model)) {
    row.milliwatts = ToMilliwatts(factors.PowerOf(entity).usage, model.units);
  }
  return row;
}

// ByLevel are the entities by their levels, the highest first, and in their order where equal.
std::vector<std::uint32_t> ByLevel(const Fleet& fleet) {
  std::array<std::uint32_t, kLevels + 1> ends{};
  const auto size = static_cast<std::uint32_t>(fleet.entity_count());
  const auto bucket = [&fleet](std::uint32_t i) {
    return kLevels - 1 - std::min<std::size_t>(fleet.EntityAt(i).level, kLevels - 1);
  };
  for (std::uint32_t i = 0; i < size; ++i) ++ends[bucket(i) + 1];
  std::partial_sum(ends.begin(), ends.end(), ends.begin());
  std::vector<std::uint32_t> order(size);
  for (std::uint32_t i = 0; i < size; ++i) order[ends[bucket(i)]++] = i;
  return order;
}

}  // namespace

FleetTotals FleetSurvey::Measure(const Fleet& fleet, Instant now) {
  FleetTotals totals;
  totals.at = now;
  totals.node_name = fleet.node.name;
  totals.node_id = fleet.node.id;
  totals.devices = fleet.device_count();
  totals.entities = fleet.entity_count();
  const FactorsAt factors(fleet, now);
  std::map<std::string_view, FleetTotals::Domain> domains;
  FleetTotals::Domain* domain = nullptr;
  std::string_view domain_name;
  milliwatts_.resize(fleet.entity_count());
  by_power_.clear();
  for (std::uint32_t i = 0; i < milliwatts_.size(); ++i) {
    const Model& model = fleet.ModelOf(i);
    // Neighbours mostly share their domain.
    if (domain == nullptr || model.domain != domain_name) {
      domain_name = model.domain;
      domain = &domains[domain_name];
    }
    ++domain->entities;
    milliwatts_[i] = -1;
    if (!HasPower(model)) continue;
    milliwatts_[i] = ToMilliwatts(factors.PowerOf(i).usage, model.units);
    std::int64_t& total = totals.milliwatts[static_cast<std::size_t>(CategoryOf(model))];
    total = AddMilliwatts(total, milliwatts_[i]);
    if (CategoryOf(model) == PowerCategory::kConsumer) {
      domain->milliwatts = AddMilliwatts(domain->milliwatts, milliwatts_[i]);
    }
  }
  totals.domain_count = domains.size();
  for (auto& [name, found] : domains) {
    found.name = name;
    totals.domains.push_back(std::move(found));
  }
  std::ranges::stable_sort(totals.domains, std::ranges::greater(), &FleetTotals::Domain::entities);
  if (totals.domains.size() > kMostDomains) totals.domains.resize(kMostDomains);
  return totals;
}

const std::vector<std::uint32_t>& FleetSurvey::ByPower(const Fleet& fleet) {
  // A fleet that has come since has not been measured yet.
  if (milliwatts_.size() != fleet.entity_count()) {
    milliwatts_.assign(fleet.entity_count(), -1);
    by_power_.clear();
  }
  if (by_power_.size() != milliwatts_.size()) {
    by_power_.resize(milliwatts_.size());
    std::iota(by_power_.begin(), by_power_.end(), 0u);
    std::ranges::stable_sort(by_power_, std::ranges::greater(),
                             [this](std::uint32_t i) { return milliwatts_[i]; });
  }
  return by_power_;
}

EntityPage FleetSurvey::Select(const Fleet& fleet, Instant now, const PageRequest& request) {
  EntityPage page;
  const FactorsAt factors(fleet, now);
  Search search(fleet, request.find);
  const std::size_t end =
      std::size_t{request.from} + std::min(request.count, PageRequest::kMostRows);
  const auto visit = [&](std::uint32_t entity) {
    if (!search.Matches(entity)) return;
    const std::size_t place = page.matching++;
    if (place >= request.from && place < end) page.rows.push_back(RowOf(fleet, factors, entity));
  };
  switch (request.order) {
    case EntityOrder::kFleet:
      for (std::uint32_t i = 0; i < fleet.entity_count(); ++i) visit(i);
      break;
    case EntityOrder::kMostPower:
      std::ranges::for_each(ByPower(fleet), visit);
      break;
    case EntityOrder::kLeastPower: {
      const std::vector<std::uint32_t>& order = ByPower(fleet);
      std::for_each(order.rbegin(), order.rend(), visit);
      break;
    }
    case EntityOrder::kHighestLevel:
      std::ranges::for_each(ByLevel(fleet), visit);
      break;
    case EntityOrder::kLowestLevel: {
      const std::vector<std::uint32_t> order = ByLevel(fleet);
      std::for_each(order.rbegin(), order.rend(), visit);
      break;
    }
  }
  return page;
}

}  // namespace vt::node
