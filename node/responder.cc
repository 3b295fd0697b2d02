#include "node/responder.h"

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <string>
#include <utility>

#include "vtapi.h"

#include "node/changes.h"
#include "node/power.h"

namespace vt::node {
namespace {

// DeviceEndpoint is a device as the filters want to see it.
class DeviceEndpoint {
 public:
  explicit DeviceEndpoint(const Device& device) : record_{{}, device.category} {
    corvane_endpoint& endpoint = record_.endpoint;
    endpoint.keywords = device.keywords.c_str();
    endpoint.name = device.name.c_str();
    endpoint.role = device.role.c_str();
    std::copy_n(device.id.begin(), std::min(device.id.size(), sizeof endpoint.identity),
                endpoint.identity);
    endpoint.category = CategoryOf;
  }

  const corvane_endpoint* get() const { return &record_.endpoint; }

 private:
  // The endpoint stands first, so that its address is that of the record.
  struct Record {
    corvane_endpoint endpoint;
    std::int32_t category;
  };

  static std::uint32_t CategoryOf(const Event*, const corvane_endpoint* endpoint) {
    return static_cast<std::uint32_t>(reinterpret_cast<const Record*>(endpoint)->category);
  }

  Record record_;
};

// IsInDomain: devices of other domains neither accept nor refuse; the query is none of theirs.
bool IsInDomain(const Device& device, const ReceivedQuery& query) {
  return device.domain == query.domain();
}

bool Concerns(const Device& device, const ReceivedQuery& query) {
  const DeviceEndpoint endpoint(device);
  return cv_exec_filter(query.event(), endpoint.get(), device.importance) == 1;
}

// WantedTypes are the types to tell, each once. As clients expect, units follow every type that is
// scaled by them, and those that are asked for by themselves come on top.
std::vector<std::uint32_t> WantedTypes(const ReceivedQuery& query) {
  std::set<std::uint32_t> seen;
  std::vector<std::uint32_t> types;
  for (const Tlv* element : query.attributes()) {
    const std::uint32_t type = element->type;
    if (!seen.insert(type).second) continue;
    types.push_back(type);
    if (type == CV_CORVANE_TLV_TYPE_USAGE || type == VT_TLV_DELTA_VECTOR ||
        type == VT_TLV_USAGE_VECTOR) {
      types.push_back(CV_CORVANE_TLV_TYPE_UNITS);
    }
  }
  return types;
}

// DeviceTeller adds the attributes of one device to the answer.
class DeviceTeller {
 public:
  DeviceTeller(const Device& device, const DeviceHeader& header, ReplyPacker& replies)
      : device_(device), header_(header), replies_(replies) {}

  // Tell leaves out what the device does not know.
  void Tell(std::uint32_t type) {
    switch (type) {
      case CV_CORVANE_TLV_TYPE_ROLE:
        return TellText(type, device_.role);
      case CV_CORVANE_TLV_TYPE_NAME:
        return TellText(type, device_.name);
      case CV_CORVANE_TLV_TYPE_KEYWORDS:
        return TellText(type, device_.keywords);
      case CV_CORVANE_TLV_TYPE_UNITS:
        return TellValue(type, device_.units);
      case CV_CORVANE_TLV_TYPE_USAGE:
        return TellValue(type, device_.usage);
      case CV_CORVANE_TLV_TYPE_LEVEL_CURRENT:
        return TellValue(type, device_.level);
      case CV_CORVANE_TLV_TYPE_IMPORTANCE_I:
        return TellValue(type, device_.importance);
      case VT_TLV_DELTA_VECTOR:
        return TellValue(type, device_.DeltaVector());
      case VT_TLV_USAGE_CALIBER:
        return TellValue(type, device_.caliber);
      case VT_TLV_USAGE_VECTOR:
        return TellValue(type, device_.usage_vector);
      case VT_TLV_USAGE_CATEGORY:
        return TellValue(type, device_.category);
      default:
        return;
    }
  }

 private:
  void TellText(std::uint32_t type, const std::string& text) {
    replies_.AddText(header_, device_.entity, type, text);
  }

  template <typename T>
  void TellValue(std::uint32_t type, const T& value) {
    replies_.AddValue(header_, device_.entity, type, &value, sizeof value);
  }

  const Device& device_;
  const DeviceHeader& header_;
  ReplyPacker& replies_;
};

UsageHeader UsageHeaderOf(const Device& device) {
  return {device.caliber, device.name,  device.role,      device.keywords,
          device.units,   device.level, device.importance};
}

// Total sums up devices in milliwatts.
class Total {
 public:
  void Add(const Device& device) {
    usage_ += ToMilliwatts(device.usage, device.units);
    const auto delta = device.DeltaVector();
    for (std::size_t i = 0; i < kLevels; ++i) delta_[i] += ToMilliwatts(delta[i], device.units);
    level_ = std::max(level_, device.level);
    importance_ = std::max(importance_, device.importance);
    if (count_ == 0) caliber_ = device.caliber;
    if (caliber_ != device.caliber) caliber_ = CV_CORVANE_USAGE_CALIBER_UNKNOWN;
    ++count_;
  }

  std::size_t count() const { return count_; }

  // Header tells of the node, with the highest level and importance among the devices, and with the
  // caliber that all of them share.
  UsageHeader Header(const NodeDescription& node) const {
    return {caliber_, node.name,  node.role, node.keywords, static_cast<std::int8_t>(Units()),
            level_,   importance_};
  }

  std::uint16_t Usage() const {
    return static_cast<std::uint16_t>(FromMilliwatts(usage_, Units()));
  }

  std::array<std::int32_t, kLevels> Delta() const {
    std::array<std::int32_t, kLevels> delta{};
    for (std::size_t i = 0; i < kLevels; ++i) {
      delta[i] = static_cast<std::int32_t>(FromMilliwatts(delta_[i], Units()));
    }
    return delta;
  }

 private:
  // Units are the same for usage and changes, because a client takes them for both from one column.
  int Units() const {
    constexpr std::int64_t limit = std::numeric_limits<std::int32_t>::max();
    int units = FittingUnits(usage_);
    for (const std::int64_t change : delta_) {
      while (std::abs(FromMilliwatts(change, units)) > limit) ++units;
    }
    return units;
  }

  std::size_t count_ = 0;
  std::int64_t usage_ = 0;
  std::array<std::int64_t, kLevels> delta_{};
  std::int32_t caliber_ = 0;
  std::uint8_t level_ = 0;
  std::uint8_t importance_ = 0;
};

bool Asks(const ReceivedQuery& query, std::uint32_t type) {
  return std::ranges::any_of(query.attributes(),
                             [type](const Tlv* element) { return element->type == type; });
}

}  // namespace

Responder::Responder(Fleet fleet, std::optional<voltaris::Key> key)
    : fleet_(std::move(fleet)), key_(std::move(key)) {}

std::vector<Bytes> Responder::Answer(std::span<const std::uint8_t> message) {
  const std::lock_guard lock(mutex_);
  const ReceivedQuery query(message, key_);
  ReplyPacker replies(query, fleet_.node.id, query.domain());
  const std::pair kind(int{query.header().class_}, int{query.header().action});
  if (kind == std::pair<int, int>(CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_COLLECT) ||
      kind == std::pair<int, int>(CV_CLASS_QUERY, VT_ACTION_QUERY_FURTHER)) {
    Collect(query, replies);
  } else if (kind == std::pair<int, int>(CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_SET)) {
    Set(query, replies);
  } else if (kind ==
             std::pair<int, int>(CV_CLASS_AGGREGATE, CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM)) {
    Sum(query, replies);
  } else {
    throw Rejected("class " + std::to_string(kind.first) + " action " +
                   std::to_string(kind.second) + " is not served");
  }
  return replies.Finish();
}

const sockaddr_in& Responder::AddressOf(const Device& device) const {
  return device.address ? *device.address : fleet_.node.address;
}

void Responder::Collect(const ReceivedQuery& query, ReplyPacker& replies) const {
  const std::vector<std::uint32_t> types = WantedTypes(query);
  std::set<std::string> refused;
  for (const Device& device : fleet_.devices) {
    if (!IsInDomain(device, query)) continue;
    const DeviceHeader header(device.id, AddressOf(device));
    if (!Concerns(device, query)) {
      // Clients make an empty row of every entity that an answer to a collect names, refusals
      // included. Entity 0, the device as a whole, makes none.
      if (refused.insert(device.id).second) replies.Refuse(header, 0);
      continue;
    }
    replies.Accept(header, device.entity);
    DeviceTeller teller(device, header, replies);
    for (const std::uint32_t type : types) teller.Tell(type);
  }
}

void Responder::Set(const ReceivedQuery& query, ReplyPacker& replies) {
  const std::optional<Changes> changes = ReadChanges(query);
  for (Device& device : fleet_.devices) {
    if (!IsInDomain(device, query)) continue;
    const DeviceHeader header(device.id, AddressOf(device));
    if (!changes || !Concerns(device, query)) {
      replies.Refuse(header, device.entity);
      continue;
    }
    changes->ApplyTo(device);
    replies.Accept(header, device.entity);
    // Clients read the answer to a set from combined elements alone.
    replies.AddCombined(header, device.entity, VT_TLV_COMBINED_USAGE, UsageHeaderOf(device),
                        &device.usage, sizeof device.usage);
  }
}

void Responder::Sum(const ReceivedQuery& query, ReplyPacker& replies) const {
  Total total;
  for (const Device& device : fleet_.devices) {
    if (!IsInDomain(device, query)) continue;
    const DeviceHeader header(device.id, AddressOf(device));
    if (!Concerns(device, query)) {
      replies.Refuse(header, device.entity);
      continue;
    }
    replies.Accept(header, device.entity);
    total.Add(device);
  }
  if (total.count() == 0) return;

  constexpr std::uint32_t node_entity = 1;
  const DeviceHeader node(fleet_.node.id, fleet_.node.address);
  const UsageHeader header = total.Header(fleet_.node);
  if (Asks(query, VT_TLV_AGGREGATED | VT_TLV_COMBINED_USAGE)) {
    const std::uint16_t usage = total.Usage();
    replies.AddCombined(node, node_entity, VT_TLV_COMBINED_USAGE, header, &usage, sizeof usage);
  }
  if (Asks(query, VT_TLV_AGGREGATED | VT_TLV_COMBINED_DELTA_VECTOR)) {
    const auto delta = total.Delta();
    replies.AddCombined(node, node_entity, VT_TLV_COMBINED_DELTA_VECTOR, header, &delta,
                        sizeof delta);
  }
}

}  // namespace vt::node
