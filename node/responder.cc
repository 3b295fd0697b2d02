#include "node/responder.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "vtapi.h"

#include "node/changes.h"
#include "node/log.h"
#include "node/spoil.h"
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

QueryKind KindOf(const message_header& header) {
  const auto is = [&header](int message_class, int action) {
    return header.class_ == message_class && header.action == action;
  };
  if (is(CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_COLLECT)) return QueryKind::kCollect;
  if (is(CV_CLASS_QUERY, VT_ACTION_QUERY_FURTHER)) return QueryKind::kFurther;
  if (is(CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_SET)) return QueryKind::kSet;
  if (is(CV_CLASS_AGGREGATE, CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM)) return QueryKind::kSum;
  throw Rejected("class " + std::to_string(header.class_) + " action " +
                     std::to_string(header.action) + " is not served",
                 Rejection::kNotServed);
}

bool Asks(const ReceivedQuery& query, std::uint32_t type) {
  return std::ranges::any_of(query.attributes(),
                             [type](const Tlv* element) { return element->type == type; });
}

bool Has(const Fault* fault, FaultKind kind) { return fault != nullptr && fault->kind == kind; }

// Answers tells whether a device with that fault, or none, does what the query says.
bool Answers(const Fault* fault) {
  return !Has(fault, FaultKind::kNak) && !Has(fault, FaultKind::kLater) &&
         !Has(fault, FaultKind::kSilent);
}

// Excuse is what a device says of an entity instead of an answer.
void Excuse(const Fault& fault, const DeviceHeader& device, std::uint32_t entity,
            ReplyPacker& replies) {
  if (fault.kind == FaultKind::kNak) replies.Refuse(device, entity);
  if (fault.kind == FaultKind::kLater) replies.Postpone(device, entity);
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
                     HostControl host, Clocks clocks, Faults faults)
    : fleet_(std::move(fleet)),
      key_(std::move(key)),
      state_(std::move(state)),
      host_(std::move(host)),
      clocks_(std::move(clocks)),
      faults_(std::move(faults)) {}

Delivery Responder::Answer(std::span<const std::uint8_t> message,
                           const asio::ip::address_v4& client, QueryNote* note) {
  const Clocks::Steady start = clocks_.steady();
  const ReceivedQuery query(message, key_);
  const QueryKind kind = KindOf(query.header());
  const std::lock_guard lock(mutex_);
  if (window_ != nullptr && !window_->Admit(query.digest(), start)) {
    throw Rejected("it was sent before", Rejection::kReplayed);
  }
  Selection selection(fleet_, query, clocks_, start);
  Strikes strikes(faults_, fleet_, kind, client);
  ReplyDesk desk(query, fleet_.node.id);
  switch (kind) {
    case QueryKind::kCollect:
    case QueryKind::kFurther:
      Collect(query, selection, strikes, desk);
      break;
    case QueryKind::kSet:
      Set(query, selection, strikes, desk);
      break;
    case QueryKind::kSum:
      Sum(query, selection, strikes, desk);
      break;
  }
  if (note != nullptr) {
    *note = {kind, query.domain(), {}, desk.accepted(), desk.refused()};
    if (kind == QueryKind::kSet) note->changes = Describe(ReadChanges(query));
  }
  Delivery delivery;
  delivery.messages = desk.Finish();
  if (const Fault* fault = strikes.OnConnection()) SpoilDelivery(*fault, query.key(), delivery);
  strikes.Log();
  return delivery;
}

void Responder::Look(const std::function<void(const Fleet&, Instant)>& look) {
  const std::lock_guard lock(mutex_);
  look(fleet_, clocks_.wall());
}

void Responder::Measured(std::span<const Reading> readings) {
  const std::lock_guard lock(mutex_);
  TakeReadings(fleet_, host_.entities, readings);
}

DeviceHeader Responder::HeaderOf(std::uint32_t entity) const {
  const DeviceIdText& id = fleet_.IdOf(entity);
  return {std::string_view(id.data(), id.size()), fleet_.AddressOf(entity)};
}

void Responder::Collect(const ReceivedQuery& query, Selection& selection, Strikes& strikes,
                        ReplyDesk& desk) const {
  Teller teller(query, fleet_, clocks_.wall());
  selection.ForEachDevice([&](const std::vector<std::uint32_t>& concerned,
                              const std::vector<std::uint32_t>& others) {
    const Fault* fault = strikes.OnDevice(concerned, others);
    if (Has(fault, FaultKind::kSilent)) return;
    const DeviceHeader header = HeaderOf(concerned.empty() ? others.front() : concerned.front());
    ReplyPacker& replies = desk.For(fault);
    const bool all_tell =
        !Has(fault, FaultKind::kNak) && (concerned.empty() || !teller.KnowsNothing());
    if (all_tell && Answers(fault)) teller.Tell(header, concerned, replies);
    if (all_tell && Has(fault, FaultKind::kLater)) {
      for (const std::uint32_t entity : concerned) {
        replies.Postpone(header, fleet_.EntityAt(entity).number);
      }
    }
    // Clients make an empty row of every entity that an answer to a collect names, refusals
    // included. Entity 0, the device as a whole, makes none.
    if (!others.empty() || !all_tell) replies.Refuse(header, 0);
  });
}

void Responder::Set(const ReceivedQuery& query, Selection& selection, Strikes& strikes,
                    ReplyDesk& desk) {
  const std::optional<Changes> changes = ReadChanges(query);
  std::vector<std::uint32_t> to_set;
  std::vector<ReplyPacker*> packers;  // of those to set
  std::vector<std::uint32_t> refusing;
  const auto refuse = [&](ReplyPacker& replies, std::uint32_t entity) {
    replies.Refuse(HeaderOf(entity), fleet_.EntityAt(entity).number);
  };
  selection.ForEachDevice(
      [&](const std::vector<std::uint32_t>& concerned, const std::vector<std::uint32_t>& others) {
        const Fault* fault = strikes.OnDevice(concerned, others);
        ReplyPacker& replies = desk.For(fault);
        for (const std::uint32_t entity : concerned) {
          if (!Answers(fault)) {
            Excuse(*fault, HeaderOf(entity), fleet_.EntityAt(entity).number, replies);
          } else if (changes && IsSettable(entity, *changes)) {
            to_set.push_back(entity);
            packers.push_back(&replies);
          } else {
            refuse(replies, entity);
          }
        }
        if (Has(fault, FaultKind::kSilent)) return;
        for (const std::uint32_t entity : others) refuse(replies, entity);
      });
  // The client has given up by then, and would not know what was set.
  if (selection.IsOver()) {
    throw Rejected("its time was over before it was set", Rejection::kOverdue);
  }
  const bool is_set = changes && Change(to_set, *changes);
  Teller teller(query, fleet_, clocks_.wall());
  for (std::size_t i = 0; i < to_set.size(); ++i) {
    if (!is_set) {
      refuse(*packers[i], to_set[i]);
      continue;
    }
    const DeviceHeader header = HeaderOf(to_set[i]);
    packers[i]->Accept(header, fleet_.EntityAt(to_set[i]).number);
    // Clients read the answer to a set from combined elements alone.
    teller.TellCombined(header, to_set[i], *packers[i]);
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

void Responder::Sum(const ReceivedQuery& query, Selection& selection, Strikes& strikes,
                    ReplyDesk& desk) const {
  const FactorsAt factors(fleet_, clocks_.wall());
  Total total;
  selection.ForEachDevice([&](const std::vector<std::uint32_t>& concerned,
                              const std::vector<std::uint32_t>& others) {
    const Fault* fault = strikes.OnDevice(concerned, others);
    ReplyPacker& replies = desk.For(fault);
    const DeviceHeader header = HeaderOf(concerned.empty() ? others.front() : concerned.front());
    for (const std::uint32_t entity : concerned) {
      const std::uint32_t number = fleet_.EntityAt(entity).number;
      if (!Answers(fault)) {
        Excuse(*fault, header, number, replies);
      } else if (!HasPower(fleet_.ModelOf(entity))) {
        replies.Refuse(header, number);
      } else {
        replies.Accept(header, number);
        total.Add(fleet_.ModelOf(entity), fleet_.EntityAt(entity), factors.PowerOf(entity));
      }
    }
    if (Has(fault, FaultKind::kSilent)) return;
    for (const std::uint32_t entity : others) {
      replies.Refuse(header, fleet_.EntityAt(entity).number);
    }
  });
  if (total.count() == 0) return;

  // What the node itself tells is of no device, and right.
  ReplyPacker& replies = desk.For(nullptr);
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
