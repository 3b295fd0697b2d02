#include "node/teller.h"

#include <algorithm>
#include <bit>
#include <string_view>

#include "vtapi.h"

namespace vt::node {
namespace {

std::string_view View(const DeviceIdText& id) { return {id.data(), id.size()}; }

// Subject is an entity at the instant of an answer.
struct Subject {
  const Fleet& fleet;
  std::uint32_t index;
  const std::string& name;
  const Power& power;

  const Model& model() const { return fleet.ModelOf(index); }
  const Fleet::Entity& entity() const { return fleet.EntityAt(index); }
};

// Values takes what a row tells: nothing, one value, or several.
class Values {
 public:
  explicit Values(Bytes& bytes, std::vector<std::size_t>& ends) : bytes_(bytes), ends_(ends) {}

  template <class Write>
  void Add(Write write) {
    ValueWriter writer(bytes_);
    write(writer);
    ends_.push_back(bytes_.size());
  }
  void Text(std::string_view text) {
    Add([text](ValueWriter& out) { out.Text(text); });
  }

 private:
  Bytes& bytes_;
  std::vector<std::size_t>& ends_;
};

using TellRow = void (*)(const Subject& subject, Values& values);

void TellRole(const Subject& subject, Values& values) {
  values.Text(subject.fleet.RoleOf(subject.index));
}

void TellName(const Subject& subject, Values& values) { values.Text(subject.name); }

// Keywords travel as one text with commas and its zero byte, as the library gathers them.
void TellKeywords(const Subject& subject, Values& values) {
  const std::string& keywords = subject.fleet.KeywordsOf(subject.index);
  values.Add([&](ValueWriter& out) { out.Block(keywords.c_str(), keywords.size() + 1); });
}

void TellError(const Subject& subject, Values& values) {
  if (subject.model().error_text) values.Text(*subject.model().error_text);
}

void TellUnits(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Int8(subject.model().units); });
}

void TellUsage(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Uint16(subject.power.usage); });
}

void TellLevel(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Uint8(subject.entity().level); });
}

void TellImportance(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Uint8(subject.entity().importance); });
}

void TellEntityType(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Int32(subject.model().entity_type); });
}

void TellNeighbors(const Subject& subject, Values& values) {
  for (const NeighborDescription& neighbor : subject.model().neighbors) {
    values.Add([&](ValueWriter& out) {
      out.Identity(neighbor.id);
      out.Text(neighbor.label);
      out.Text(neighbor.data);
      out.Int32(neighbor.flag);
    });
  }
}

void TellNeighborCount(const Subject& subject, Values& values) {
  const Model& model = subject.model();
  const auto count = static_cast<std::uint16_t>(model.neighbors.size());
  values.Add([&](ValueWriter& out) { out.Uint16(model.neighbor_count.value_or(count)); });
}

void TellNannyVector(const Subject& subject, Values& values) {
  const std::optional<std::uint32_t>& vector = subject.model().nanny_vector;
  if (vector) values.Add([&](ValueWriter& out) { out.Uint32(*vector); });
}

void TellDeltaVector(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Deltas(subject.power.delta_vector); });
}

void TellCaliber(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Int32(subject.model().caliber); });
}

void TellUsageVector(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Usages(subject.power.usage_vector); });
}

void TellRecurrence(const Subject& subject, Values& values) {
  const Recurrence* recurrence = subject.fleet.RecurrenceOf(subject.index);
  if (recurrence == nullptr) return;
  values.Add([&](ValueWriter& out) {
    out.Text(recurrence->text);
    out.Uint8(recurrence->byte1);
    out.Uint8(recurrence->byte2);
    out.Int32(recurrence->flag);
  });
}

void TellText21(const Subject& subject, Values& values) {
  if (subject.model().text_21) values.Text(*subject.model().text_21);
}

void TellCategory(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) { out.Int32(subject.model().category); });
}

// TellIdentity makes a row of an entity. Its identity, its domain and its address travel with
// whatever else it tells, and with this when that is nothing.
void TellIdentity(const Subject& subject, Values& values) {
  values.Add([&](ValueWriter& out) {
    out.Identity(View(subject.fleet.IdOf(subject.index)));
    out.Uint32(subject.entity().number);
  });
}

struct Row {
  std::uint32_t type;
  bool is_in_combined;  // whether combined elements of any type tell it
  TellRow tell;         // cppcheck-suppress unusedStructMember
};

// The attributes that devices tell. What is not here no device knows: the time-out is the query's.
constexpr Row kRows[] = {
    {CV_CORVANE_TLV_TYPE_ROLE, true, TellRole},
    {CV_CORVANE_TLV_TYPE_NAME, true, TellName},
    {CV_CORVANE_TLV_TYPE_KEYWORDS, true, TellKeywords},
    {CV_CORVANE_TLV_TYPE_ERROR_STRING, false, TellError},
    {CV_CORVANE_TLV_TYPE_UNITS, true, TellUnits},
    {CV_CORVANE_TLV_TYPE_USAGE, false, TellUsage},
    {CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, true, TellLevel},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_I, true, TellImportance},
    {CV_CORVANE_TLV_TYPE_ENTITY_TYPE, false, TellEntityType},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR, false, TellNeighbors},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR_COUNT, false, TellNeighborCount},
    {CV_CORVANE_TLV_TYPE_NANNY_VECTOR, false, TellNannyVector},
    {VT_TLV_DELTA_VECTOR, false, TellDeltaVector},
    {VT_TLV_USAGE_CALIBER, true, TellCaliber},
    {VT_TLV_USAGE_VECTOR, false, TellUsageVector},
    {VT_TLV_RECURRENCE, false, TellRecurrence},
    {VT_TLV_TEXT_48, false, TellText21},
    {VT_TLV_USAGE_CATEGORY, false, TellCategory},
    {CV_CORVANE_TLV_TYPE_VLTRS_ID, false, TellIdentity},
};

const Row* RowOf(std::uint32_t type) {
  const auto* found = std::ranges::find(kRows, type, &Row::type);
  return found != std::end(kRows) ? found : nullptr;
}

// The combined types, with the one thing that each of them tells beyond what all tell.
struct CombinedType {
  std::uint32_t type;
  std::uint32_t told;
};
constexpr CombinedType kCombinedTypes[] = {
    {VT_TLV_COMBINED_USAGE, CV_CORVANE_TLV_TYPE_USAGE},
    {VT_TLV_COMBINED_USAGE_VECTOR, VT_TLV_USAGE_VECTOR},
    {VT_TLV_COMBINED_DELTA_VECTOR, VT_TLV_DELTA_VECTOR},
};

bool IsScaledByUnits(std::uint32_t type) {
  return std::ranges::find(kCombinedTypes, type, &CombinedType::told) != std::end(kCombinedTypes);
}

// OneCombinedType is the combined type that tells all scaled attributes that are asked for, or 0.
// With two of them everything else in the row would be told twice.
std::uint32_t OneCombinedType(const std::set<std::uint32_t>& asked) {
  std::uint32_t type = VT_TLV_COMBINED_USAGE;
  int count = 0;
  for (const CombinedType& candidate : kCombinedTypes) {
    if (!asked.contains(candidate.told)) continue;
    type = candidate.type;
    ++count;
  }
  return count <= 1 ? type : 0;
}

// BitsOfCombined is the attributes that a combined element tells.
std::uint32_t BitsOfCombined(std::uint32_t combined_type) {
  std::uint32_t bits = 0;
  for (const Row& row : kRows) {
    if (row.is_in_combined) bits |= AttributeBit(row.type);
  }
  for (const CombinedType& combined : kCombinedTypes) {
    if (combined.type == combined_type) bits |= AttributeBit(combined.told);
  }
  return bits;
}

UsageHeader HeaderOf(const Subject& subject) {
  const Model& model = subject.model();
  const Fleet::Entity& entity = subject.entity();
  return {model.caliber,
          subject.name.c_str(),
          subject.fleet.RoleOf(subject.index).c_str(),
          subject.fleet.KeywordsOf(subject.index).c_str(),
          model.units,
          entity.level,
          entity.importance};
}

}  // namespace

Teller::Teller(const ReceivedQuery& query, const Fleet& fleet, Instant now)
    : fleet_(fleet), factors_(fleet, now), largest_value_(LargestValue(query.domain())) {
  bool asks_for_row = false;
  for (const Tlv* element : query.attributes()) {
    const std::uint32_t type = element->type;
    const bool is_of_the_row = type == CV_CORVANE_TLV_TYPE_VLTRS_ID ||
                               type == CV_CORVANE_TLV_TYPE_DOMAIN ||
                               type == CV_CORVANE_TLV_TYPE_REPLY_TO;
    asks_for_row = asks_for_row || is_of_the_row;
    if (is_of_the_row || !asked_.insert(type).second || RowOf(type) == nullptr) continue;
    AddType(type);
    // As clients expect, units follow everything that is scaled by them, and those that are asked
    // for by themselves come on top.
    if (IsScaledByUnits(type)) AddType(CV_CORVANE_TLV_TYPE_UNITS);
  }
  // Told last, and only when nothing else makes a row.
  if (asks_for_row) AddType(CV_CORVANE_TLV_TYPE_VLTRS_ID);
  combined_type_ = OneCombinedType(asked_);
  combined_bits_ = BitsOfCombined(combined_type_);
}

void Teller::Tell(const DeviceHeader& device, std::span<const std::uint32_t> entities,
                  ReplyPacker& replies) {
  for (const std::uint32_t entity : entities) Gather(entity);
  PreferShorter(entities);
  for (const std::uint32_t entity : entities) {
    replies.Accept(device, fleet_.EntityAt(entity).number);
  }
  Flush(device, replies);
}

void Teller::TellCombined(const DeviceHeader& device, std::uint32_t entity, ReplyPacker& replies) {
  const bool wants_vector =
      asked_.contains(VT_TLV_USAGE_VECTOR) || asked_.contains(VT_TLV_DELTA_VECTOR);
  for (const CombinedType& combined : kCombinedTypes) {
    const bool wanted =
        asked_.contains(combined.told) || (combined.type == VT_TLV_COMBINED_USAGE && !wants_vector);
    if (wanted && HasCombined(entity, BitsOfCombined(combined.type))) {
      GatherCombined(entity, combined.type);
    }
  }
  Flush(device, replies);
}

// HasCombined tells whether an entity has all that a combined element tells. One that lacks a part
// would have to make it up. A device of a recording may have longer texts than a message holds
// together.
bool Teller::HasCombined(std::uint32_t entity, std::uint32_t bits) const {
  if ((fleet_.AttributesOf(entity) & bits) != bits) return false;
  const Model& model = fleet_.ModelOf(entity);
  if (!model.recorded) return true;
  std::string name;
  fleet_.WriteNameOf(entity, name);
  constexpr std::size_t besides_texts = 3 * 4 + 11 + sizeof(delta_vector);  // at most
  return besides_texts + name.size() + fleet_.RoleOf(entity).size() +
             fleet_.KeywordsOf(entity).size() <=
         largest_value_;
}

// Gather adds everything asked for, each value in an element of its type.
void Teller::Gather(std::uint32_t entity) {
  fleet_.WriteNameOf(entity, name_);
  const Power power = factors_.PowerOf(entity);
  const Subject subject{fleet_, entity, name_, power};
  const std::uint32_t attributes = fleet_.AttributesOf(entity);
  const std::size_t before = entries_.size();
  std::uint32_t order = 0;
  for (const auto& [type, bit] : types_) {
    if (type == CV_CORVANE_TLV_TYPE_VLTRS_ID && entries_.size() != before) break;
    if ((attributes & bit) != bit) {
      ++order;
      continue;
    }
    std::size_t start = values_.size();
    ends_.clear();
    Values values(values_, ends_);
    RowOf(type)->tell(subject, values);
    for (const std::size_t end : ends_) {
      entries_.push_back({order, type, subject.entity().number, static_cast<std::uint32_t>(start),
                          static_cast<std::uint32_t>(end - start)});
      start = end;
    }
    ++order;
  }
}

void Teller::GatherCombined(std::uint32_t entity, std::uint32_t type) {
  fleet_.WriteNameOf(entity, name_);
  const Power power = factors_.PowerOf(entity);
  const Subject subject{fleet_, entity, name_, power};
  const std::size_t start = values_.size();
  ValueWriter writer(values_);
  writer.Header(HeaderOf(subject));
  switch (type) {
    case VT_TLV_COMBINED_USAGE_VECTOR:
      writer.Usages(power.usage_vector);
      break;
    case VT_TLV_COMBINED_DELTA_VECTOR:
      writer.Deltas(power.delta_vector);
      break;
    default:
      writer.Uint16(power.usage);
      break;
  }
  entries_.push_back({0, type, subject.entity().number, static_cast<std::uint32_t>(start),
                      static_cast<std::uint32_t>(values_.size() - start)});
}

// IsCombined tells whether the combined type of the query stands for an element type.
bool Teller::IsCombined(std::uint32_t type) const {
  return RowOf(type)->is_in_combined || IsScaledByUnits(type);
}

// PreferShorter puts combined elements in the place of those that they stand for, if they are
// shorter: each element has the device in front, which is most of it.
void Teller::PreferShorter(std::span<const std::uint32_t> entities) {
  const auto tells_combined = [this](std::uint32_t entity) {
    return HasCombined(entity, combined_bits_);
  };
  if (combined_type_ == 0 || !std::ranges::all_of(entities, tells_combined)) return;
  std::size_t plain_size = 0;
  std::uint64_t elements = 0;  // a bit for each; there are fewer rows than bits
  for (const Entry& entry : entries_) {
    if (!IsCombined(entry.type)) continue;
    const std::uint64_t element = std::uint64_t{1} << entry.order;
    plain_size += kTagSize + entry.size + ((elements & element) == 0 ? kAggregateSize : 0);
    elements |= element;
  }
  if (std::popcount(elements) < 2) return;

  const std::size_t count = entries_.size();
  const std::size_t start = values_.size();
  for (const std::uint32_t entity : entities) GatherCombined(entity, combined_type_);
  const std::size_t combined_size =
      kAggregateSize + entities.size() * kTagSize + values_.size() - start;
  if (combined_size >= plain_size) {
    entries_.resize(count);
    return;
  }
  const auto last = entries_.begin() + static_cast<std::ptrdiff_t>(count);
  const auto stays = std::remove_if(entries_.begin(), last,
                                    [this](const Entry& entry) { return IsCombined(entry.type); });
  entries_.erase(stays, last);
}

// Flush adds the entries to the answer, those of one type together.
void Teller::Flush(const DeviceHeader& device, ReplyPacker& replies) {
  std::ranges::stable_sort(entries_, {}, &Entry::order);
  for (const Entry& entry : entries_) {
    replies.Add(device, entry.entity, entry.type,
                std::span(values_).subspan(entry.start, entry.size));
  }
  entries_.clear();
  values_.clear();
}

}  // namespace vt::node
