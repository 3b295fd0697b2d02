#include "node/responder.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "vtapi.h"

#include "node/changes.h"
#include "node/log.h"
#include "node/teller.h"
#include "node/total.h"

namespace vt::node {
namespace {

// Endpoint shows one entity after the other to the filters.
class Endpoint {
 public:
  explicit Endpoint(const Fleet& fleet) : fleet_(fleet) { record_.endpoint.category = CategoryOf; }

  bool IsConcernedBy(Event* event, std::uint32_t entity) {
    fleet_.WriteNameOf(entity, name_);
    corvane_endpoint& endpoint = record_.endpoint;
    endpoint.keywords = fleet_.KeywordsOf(entity).c_str();
    endpoint.name = name_.c_str();
    endpoint.role = fleet_.RoleOf(entity).c_str();
    std::ranges::copy(fleet_.IdOf(entity), endpoint.identity);
    record_.category = fleet_.ModelOf(entity).category;
    return cv_exec_filter(event, &endpoint, fleet_.EntityAt(entity).importance) == 1;
  }

 private:
  // The endpoint stands first, so that its address is that of the record.
  struct Record {
    corvane_endpoint endpoint{};
    std::int32_t category = 0;
  };

  static std::uint32_t CategoryOf(const Event*, const corvane_endpoint* endpoint) {
    return static_cast<std::uint32_t>(reinterpret_cast<const Record*>(endpoint)->category);
  }

  const Fleet& fleet_;
  std::string name_;
  Record record_;
};

bool Asks(const ReceivedQuery& query, std::uint32_t type) {
  return std::ranges::any_of(query.attributes(),
                             [type](const Tlv* element) { return element->type == type; });
}

}  // namespace

// Selection walks the devices of the query's domain, those of other domains neither accept nor
// refuse: the query is none of theirs. It ends early when the time of the query is over.
class Responder::Selection {
 public:
  Selection(const Fleet& fleet, const ReceivedQuery& query, const Clocks& clocks,
            Clocks::Steady start)
      : fleet_(fleet), query_(query), clocks_(clocks), end_(start + query.timeout()) {}

  bool IsOver() const { return clocks_.steady() >= end_; }

  // ForEachDevice calls visit(concerned, others) with the entities of a device.
  template <class Visit>
  void ForEachDevice(Visit visit) {
    Endpoint endpoint(fleet_);
    std::vector<std::uint32_t> concerned;
    std::vector<std::uint32_t> others;
    for (const Fleet::Range& range : fleet_.InDomain(query_.domain())) {
      std::uint32_t i = range.first;
      while (i < range.end) {
        if (IsOverNow()) return;
        concerned.clear();
        others.clear();
        const std::uint32_t device = fleet_.EntityAt(i).device;
        for (; i < range.end && fleet_.EntityAt(i).device == device; ++i) {
          (endpoint.IsConcernedBy(query_.event(), i) ? concerned : others).push_back(i);
        }
        visit(concerned, others);
      }
    }
  }

 private:
  // The clock is looked at now and then.
  bool IsOverNow() {
    constexpr std::uint32_t devices_between = 256;
    if (visited_++ % devices_between != 0 || !IsOver()) return false;
    Log(VT_LOG_WARN, "the time of a query was over before all devices had answered");
    return true;
  }

  const Fleet& fleet_;
  const ReceivedQuery& query_;
  const Clocks& clocks_;
  Clocks::Steady end_;
  std::uint32_t visited_ = 0;
};

Clocks Clocks::System() {
  return {
      [] {
        return std::chrono::time_point_cast<Instant::duration>(std::chrono::system_clock::now());
      },
      [] { return std::chrono::steady_clock::now(); }};
}

const Action* HostControl::ActionFor(std::uint8_t level) const {
  const auto found = std::ranges::find(actions, level, &Action::level);
  return found != actions.end() ? &*found : nullptr;
}

Responder::Responder(Fleet fleet, std::optional<voltaris::Key> key, StateKeeper state,
                     HostControl host, Clocks clocks)
    : fleet_(std::move(fleet)),
      key_(std::move(key)),
      state_(std::move(state)),
      host_(std::move(host)),
      clocks_(std::move(clocks)) {}

std::vector<Bytes> Responder::Answer(std::span<const std::uint8_t> message) {
  const Clocks::Steady start = clocks_.steady();
  const ReceivedQuery query(message, key_);
  const std::lock_guard lock(mutex_);
  Selection selection(fleet_, query, clocks_, start);
  ReplyPacker replies(query, fleet_.node.id, query.domain());
  const std::pair kind(int{query.header().class_}, int{query.header().action});
  if (kind == std::pair<int, int>(CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_COLLECT) ||
      kind == std::pair<int, int>(CV_CLASS_QUERY, VT_ACTION_QUERY_FURTHER)) {
    Collect(query, selection, replies);
  } else if (kind == std::pair<int, int>(CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_SET)) {
    Set(query, selection, replies);
  } else if (kind ==
             std::pair<int, int>(CV_CLASS_AGGREGATE, CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM)) {
    Sum(query, selection, replies);
  } else {
    throw Rejected("class " + std::to_string(kind.first) + " action " +
                   std::to_string(kind.second) + " is not served");
  }
  return replies.Finish();
}

void Responder::Measured(std::span<const Reading> readings) {
  const std::lock_guard lock(mutex_);
  TakeReadings(fleet_, host_.entities, readings);
}

DeviceHeader Responder::HeaderOf(std::uint32_t entity) const {
  const DeviceIdText& id = fleet_.IdOf(entity);
  return {std::string_view(id.data(), id.size()), fleet_.AddressOf(entity)};
}

bool Responder::HasUsage(std::uint32_t entity) const {
  return (fleet_.ModelOf(entity).attributes & AttributeBit(CV_CORVANE_TLV_TYPE_USAGE)) != 0;
}

void Responder::Collect(const ReceivedQuery& query, Selection& selection,
                        ReplyPacker& replies) const {
  Teller teller(query, fleet_, clocks_.wall(), replies);
  selection.ForEachDevice([&](const std::vector<std::uint32_t>& concerned,
                              const std::vector<std::uint32_t>& others) {
    const DeviceHeader header = HeaderOf(concerned.empty() ? others.front() : concerned.front());
    const bool all_tell = concerned.empty() || !teller.KnowsNothing();
    if (all_tell) teller.Tell(header, concerned);
    // Clients make an empty row of every entity that an answer to a collect names, refusals
    // included. Entity 0, the device as a whole, makes none.
    if (!others.empty() || !all_tell) replies.Refuse(header, 0);
  });
}

void Responder::Set(const ReceivedQuery& query, Selection& selection, ReplyPacker& replies) {
  const std::optional<Changes> changes = ReadChanges(query);
  std::vector<std::uint32_t> to_set;
  std::vector<std::uint32_t> refusing;
  selection.ForEachDevice(
      [&](const std::vector<std::uint32_t>& concerned, const std::vector<std::uint32_t>& others) {
        for (const std::uint32_t entity : concerned) {
          (changes && IsSettable(entity, *changes) ? to_set : refusing).push_back(entity);
        }
        refusing.insert(refusing.end(), others.begin(), others.end());
      });
  // The client has given up by then, and would not know what was set.
  if (selection.IsOver()) throw Rejected("its time was over before it was set");
  if (changes && !Change(to_set, *changes)) {
    refusing.insert(refusing.end(), to_set.begin(), to_set.end());
    to_set.clear();
  }
  for (const std::uint32_t entity : refusing) {
    replies.Refuse(HeaderOf(entity), fleet_.EntityAt(entity).number);
  }
  Teller teller(query, fleet_, clocks_.wall(), replies);
  for (const std::uint32_t entity : to_set) {
    const DeviceHeader header = HeaderOf(entity);
    replies.Accept(header, fleet_.EntityAt(entity).number);
    // Clients read the answer to a set from combined elements alone.
    teller.TellCombined(header, entity);
  }
}

// Entities of this host can be set to the levels alone that the operator has an action for.
bool Responder::IsSettable(std::uint32_t entity, const Changes& changes) const {
  return !changes.level || !fleet_.ModelOf(entity).is_host ||
         host_.ActionFor(*changes.level) != nullptr;
}

// Change sets all of the entities, on the disk and in the world too, or none of them.
bool Responder::Change(const std::vector<std::uint32_t>& entities, const Changes& changes) {
  std::vector<std::pair<std::uint32_t, Changes>> before;
  for (const std::uint32_t entity : entities) {
    Changes old = fleet_.ChangesOf(entity);
    fleet_.Apply(entity, changes);
    if (fleet_.ChangesOf(entity) != old) before.emplace_back(entity, std::move(old));
  }
  try {
    if (!before.empty()) state_.Keep(fleet_);
    if (ActOnHost(entities, changes)) return true;
  } catch (const std::system_error& error) {
    Log(VT_LOG_ERROR, std::string("a set is refused: ") + error.what());
  }
  if (before.empty()) return false;
  for (const auto& [entity, old] : before) fleet_.Restore(entity, old);
  // The file may be the new one all the same, when only its folder could not be brought to the
  // disk.
  try {
    state_.Keep(fleet_);
  } catch (const std::system_error&) {
    Log(VT_LOG_WARN, "the state file could not be put back either");
  }
  return false;
}

// ActOnHost does what the operator wants done when this host is set to a level, once however many
// of its entities are set.
bool Responder::ActOnHost(const std::vector<std::uint32_t>& entities,
                          const Changes& changes) const {
  const auto is_host = [this](std::uint32_t entity) { return fleet_.ModelOf(entity).is_host; };
  if (!changes.level || std::ranges::none_of(entities, is_host)) return true;
  const std::string level = "level " + std::to_string(*changes.level);
  const std::optional<std::string> failure = RunAction(*host_.ActionFor(*changes.level));
  if (failure) {
    Log(VT_LOG_ERROR, level + " is refused: " + *failure);
  } else {
    Log(VT_LOG_INFO, "this host was set to " + level);
  }
  return !failure;
}

void Responder::Sum(const ReceivedQuery& query, Selection& selection, ReplyPacker& replies) const {
  const FactorsAt factors(fleet_, clocks_.wall());
  Total total;
  selection.ForEachDevice([&](const std::vector<std::uint32_t>& concerned,
                              const std::vector<std::uint32_t>& others) {
    const DeviceHeader header = HeaderOf(concerned.empty() ? others.front() : concerned.front());
    for (const std::uint32_t entity : concerned) {
      if (!HasUsage(entity)) {
        replies.Refuse(header, fleet_.EntityAt(entity).number);
        continue;
      }
      replies.Accept(header, fleet_.EntityAt(entity).number);
      total.Add(fleet_.ModelOf(entity), fleet_.EntityAt(entity), factors.PowerOf(entity));
    }
    for (const std::uint32_t entity : others) {
      replies.Refuse(header, fleet_.EntityAt(entity).number);
    }
  });
  if (total.count() == 0) return;

  constexpr std::uint32_t node_entity = 1;
  const DeviceHeader node(fleet_.node.id, fleet_.node.address);
  Bytes value;
  ValueWriter writer(value);
  if (Asks(query, VT_TLV_AGGREGATED | VT_TLV_COMBINED_USAGE)) {
    writer.Header(total.Header(fleet_.node));
    writer.Uint16(total.Usage());
    replies.Add(node, node_entity, VT_TLV_COMBINED_USAGE, value);
  }
  value.clear();
  if (Asks(query, VT_TLV_AGGREGATED | VT_TLV_COMBINED_DELTA_VECTOR)) {
    writer.Header(total.Header(fleet_.node));
    writer.Deltas(total.Delta());
    replies.Add(node, node_entity, VT_TLV_COMBINED_DELTA_VECTOR, value);
  }
}

}  // namespace vt::node
