#include "node/fault.h"

#include <algorithm>
#include <array>
#include <utility>

#include "vtapi.h"

#include "node/log.h"

namespace vt::node {
namespace {

constexpr std::int64_t kCertain = 1'000'000;

struct KindRow {
  FaultKind kind;
  std::string_view word;
  bool of_device;
};

constexpr std::array kKinds = {
#define VT_NODE_FAULT_KIND(kind, word, of_device) KindRow{FaultKind::kind, word, of_device},
    VT_NODE_FAULT_KINDS(VT_NODE_FAULT_KIND)
#undef VT_NODE_FAULT_KIND
};

const KindRow& RowOf(FaultKind kind) { return kKinds[static_cast<std::size_t>(kind)]; }

// HasItem looks for an item in a comma list.
bool HasItem(std::string_view list, std::string_view item) {
  for (;;) {
    const std::size_t comma = list.find(',');
    if (list.substr(0, comma) == item) return true;
    if (comma == std::string_view::npos) return false;
    list.remove_prefix(comma + 1);
  }
}

bool Contains(const asio::ip::network_v4& network, const asio::ip::address_v4& address) {
  return (address.to_uint() & network.netmask().to_uint()) == network.network().to_uint();
}

}  // namespace

std::string_view WordOf(FaultKind kind) { return RowOf(kind).word; }

bool IsOfDevice(FaultKind kind) { return RowOf(kind).of_device; }

bool FaultTarget::NamesDevices() const {
  return !devices.empty() || id || role || keyword || domain;
}

bool FaultTarget::HasEntity(const Fleet& fleet, std::uint32_t entity) const {
  if (id && fleet.IdOf(entity) != *id) return false;
  if (domain && fleet.ModelOf(entity).domain != *domain) return false;
  if (role && fleet.RoleOf(entity) != *role) return false;
  if (keyword && !HasItem(fleet.KeywordsOf(entity), *keyword)) return false;
  if (devices.empty()) return true;
  std::string name;
  fleet.WriteNameOf(entity, name);
  return std::ranges::any_of(devices, [&name](const std::string& pattern) {
    return cv_wildcard_match(name.c_str(), pattern.c_str()) == 1;
  });
}

bool FaultTarget::HasQuery(QueryKind kind, const asio::ip::address_v4& client) const {
  if ((queries & QueryBit(kind)) == 0) return false;
  return clients.empty() || std::ranges::any_of(clients, [&client](const auto& network) {
           return Contains(network, client);
         });
}

std::string Fault::title() const {
  const std::string word(WordOf(kind));
  return name.empty() ? "fault " + word : "fault '" + name + "' (" + word + ")";
}

std::optional<std::string> Enable(std::vector<Fault>& faults,
                                  const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const auto found = std::ranges::find(faults, name, &Fault::name);
    if (name.empty() || found == faults.end()) return name;
    found->enabled = true;
  }
  return std::nullopt;
}

Chance::Chance(std::int64_t millionths, std::uint64_t seed)
    : millionths_(millionths), numbers_(seed) {}

bool Chance::Draw() {
  // The remainder is as good as even: the numbers have 64 bits.
  return numbers_() % kCertain < static_cast<std::uint64_t>(millionths_);
}

Faults::Faults(std::vector<Fault> faults) {
  for (Fault& fault : faults) {
    if (!fault.enabled) continue;
    const Chance chance(fault.probability, fault.seed);
    armed_.push_back({std::move(fault), chance});
  }
}

Strikes::Strikes(Faults& faults, const Fleet& fleet, QueryKind kind,
                 const asio::ip::address_v4& client)
    : fleet_(fleet) {
  for (Faults::Armed& armed : faults.armed_) {
    const FaultTarget& target = armed.fault.target;
    if (!target.HasQuery(kind, client)) continue;
    std::vector<Candidate>& candidates =
        IsOfDevice(armed.fault.kind) ? of_devices_ : of_connection_;
    candidates.push_back({&armed, !target.NamesDevices()});
  }
}

bool Strikes::IsForAny(const Candidate& candidate, std::span<const std::uint32_t> entities) const {
  return std::ranges::any_of(entities, [&](std::uint32_t entity) {
    return candidate.armed->fault.target.HasEntity(fleet_, entity);
  });
}

const Fault* Strikes::OnDevice(std::span<const std::uint32_t> concerned,
                               std::span<const std::uint32_t> others) {
  for (Candidate& candidate : of_connection_) {
    candidate.is_met = candidate.is_met || IsForAny(candidate, concerned);
  }
  for (Candidate& candidate : of_devices_) {
    const bool is_for = IsForAny(candidate, concerned) || IsForAny(candidate, others);
    if (!is_for || !candidate.armed->chance.Draw()) continue;
    ++candidate.strikes;
    return &candidate.armed->fault;
  }
  return nullptr;
}

const Fault* Strikes::OnConnection() {
  for (Candidate& candidate : of_connection_) {
    if (!candidate.is_met || !candidate.armed->chance.Draw()) continue;
    ++candidate.strikes;
    return &candidate.armed->fault;
  }
  return nullptr;
}

void Strikes::Log() const {
  for (const auto* candidates : {&of_devices_, &of_connection_}) {
    for (const Candidate& candidate : *candidates) {
      if (candidate.strikes == 0) continue;
      const Fault& fault = candidate.armed->fault;
      node::Log(VT_LOG_INFO,
                fault.title() + (IsOfDevice(fault.kind)
                                     ? " struck devices: " + std::to_string(candidate.strikes)
                                     : std::string(" struck the connection")));
    }
  }
}

}  // namespace vt::node
