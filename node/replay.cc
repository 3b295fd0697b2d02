#include "node/replay.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "vtapi.h"

#include "node/fleet_file.h"
#include "node/reply_packer.h"
#include "recording/recording_file.h"
#include "recording/recording_text.h"

namespace vt::node {
namespace {

std::string Text(const voltaris::DeviceId& id) { return {id.bytes.begin(), id.bytes.end()}; }

DeviceIdText IdText(const voltaris::DeviceId& id) {
  DeviceIdText text{};
  std::ranges::copy(id.bytes, text.begin());
  return text;
}

std::string Joined(const std::vector<std::string>& items) {
  std::string list;
  for (std::size_t i = 0; i < items.size(); ++i) list += (i > 0 ? "," : "") + items[i];
  return list;
}

// EntityReader turns what was recorded of one entity into a model of its own.
class EntityReader {
 public:
  EntityReader(const std::string& path, const recording::Entity& entity)
      : path_(path), recorded_(entity) {}

  Model Read(const std::string& domain) {
    // Identity, domain and address are part of every row.
    model_.attributes = Bit(VT_ATTRIBUTE_ID);
    model_.domain = domain;
    largest_value_ = LargestValue(domain);
    ReadTexts();
    ReadNumbers();
    ReadPower();
    ReadNeighbors();
    return std::move(model_);
  }

 private:
  static std::uint32_t Bit(vt_attribute attribute) { return std::uint32_t{1} << attribute; }

  [[noreturn]] void Reject(const std::string& message) const {
    throw FleetError(path_, recorded_.line, 1, message);
  }

  void Has(vt_attribute attribute) { model_.attributes |= Bit(attribute); }

  // Texts travel with their length, which has 4 bytes, and what else is in their value.
  void CheckSize(std::string_view what, std::size_t size) const {
    if (size <= largest_value_) return;
    Reject("the " + std::string(what) +
           " of this entity does not fit into a message beside the domain");
  }

  template <class To>
  void ReadText(vt_attribute attribute, std::string_view what,
                const std::optional<std::string>& from, To& to) {
    if (!from) return;
    CheckSize(what, sizeof(std::uint32_t) + from->size() + 1);
    Has(attribute);
    to = *from;
  }

  template <class From, class To>
  void ReadNumber(vt_attribute attribute, const std::optional<From>& from, To& to) {
    if (!from) return;
    Has(attribute);
    to = *from;
  }

  void ReadTexts() {
    ReadText(VT_ATTRIBUTE_ROLE, "role", recorded_.role, model_.role);
    std::string name;
    ReadText(VT_ATTRIBUTE_NAME, "name", recorded_.name, name);
    model_.name = Pattern::Plain(std::move(name));
    if (recorded_.keywords) {
      const std::optional<std::string> list = Joined(*recorded_.keywords);
      ReadText(VT_ATTRIBUTE_KEYWORDS, "keywords", list, model_.keywords);
    }
    ReadText(VT_ATTRIBUTE_ERROR_STRING, "error", recorded_.error_text, model_.error_text);
    ReadText(VT_ATTRIBUTE_TEXT_21, "text-21", recorded_.text_21, model_.text_21);
    if (const auto& recurrence = recorded_.recurrence) {
      constexpr std::size_t besides_text = 10;
      CheckSize("recurrence", besides_text + recurrence->text.size());
      Has(VT_ATTRIBUTE_RECURRENCE);
      model_.recurrence =
          Recurrence{recurrence->text, recurrence->byte1, recurrence->byte2, recurrence->flag};
    }
  }

  void ReadNumbers() {
    ReadNumber(VT_ATTRIBUTE_ENTITY_TYPE, recorded_.entity_type, model_.entity_type);
    ReadNumber(VT_ATTRIBUTE_USAGE_CALIBER, recorded_.caliber, model_.caliber);
    // Queries that select by category take devices that do not tell theirs for consumers.
    model_.category = CV_CORVANE_USAGE_CONSUMER;
    ReadNumber(VT_ATTRIBUTE_USAGE_CATEGORY, recorded_.category, model_.category);
    ReadNumber(VT_ATTRIBUTE_NANNY_VECTOR, recorded_.nanny_vector, model_.nanny_vector);
    if (recorded_.level) Has(VT_ATTRIBUTE_LEVEL);
    if (recorded_.importance) Has(VT_ATTRIBUTE_IMPORTANCE);
    if (!recorded_.address) return;
    sockaddr_in address{};
    static_assert(sizeof address == sizeof *recorded_.address);
    std::memcpy(&address, recorded_.address->data(), sizeof address);
    model_.address = address;
  }

  // One number of units goes with all that a node tells of an entity, for clients take them from
  // one column, wherever it stands.
  void ReadUnits(const std::optional<std::int8_t>& units) {
    if (seen_units_ && *seen_units_ != units) {
      Reject("the units of the values of this entity differ, and a node tells one for all");
    }
    seen_units_ = units;
    ReadNumber(VT_ATTRIBUTE_UNITS, units, model_.units);
  }

  void ReadPower() {
    RecordedPower power;
    const auto read = [this](vt_attribute attribute, const auto& from, auto& to) {
      if (!from) return;
      ReadUnits(from->units);
      Has(attribute);
      to = from->raw;
    };
    read(VT_ATTRIBUTE_USAGE, recorded_.usage, power.usage);
    read(VT_ATTRIBUTE_USAGE_VECTOR, recorded_.usage_vector, power.usage_vector);
    read(VT_ATTRIBUTE_DELTA_VECTOR, recorded_.delta_vector, power.delta_vector);
    if (recorded_.units) ReadUnits(recorded_.units);
    model_.recorded = power;
  }

  void ReadNeighbors() {
    for (const recording::Neighbor& neighbor : recorded_.neighbors) {
      constexpr std::size_t besides_texts = VT_IDENTITY_SIZE + 3 * sizeof(std::uint32_t);
      CheckSize("neighbor", besides_texts + neighbor.label.size() + neighbor.data.size());
      Has(VT_ATTRIBUTE_NEIGHBOR);
      model_.neighbors.push_back(
          {Text(neighbor.device), neighbor.label, neighbor.data, neighbor.flag});
    }
    ReadNumber(VT_ATTRIBUTE_NEIGHBOR_COUNT, recorded_.neighbor_count, model_.neighbor_count);
  }

  const std::string& path_;
  const recording::Entity& recorded_;
  Model model_;
  std::size_t largest_value_ = 0;
  std::optional<std::optional<std::int8_t>> seen_units_;
};

recording::Recording Load(const std::string& path) {
  try {
    return recording::ReadRecording(recording::LoadText(path));
  } catch (const recording::RecordingError& error) {
    throw FleetError(path, error.line(), error.column(), error.what());
  } catch (const std::system_error& error) {
    throw FleetError(path, 0, 0, error.what());
  }
}

}  // namespace

Fleet LoadReplay(const std::string& path) {
  const recording::Recording recording = Load(path);
  if (recording.entities.empty()) throw FleetError(path, 0, 0, "the recording has no entities");
  Fleet fleet;
  // The name, the role and the keywords of the node itself are in no answer that could be recorded.
  fleet.node.id = Text(recording.node);
  fleet.node.domain = recording.domain;
  for (const recording::Entity& recorded : recording.entities) {
    Fleet::Entity entity;
    entity.model = fleet.AddModel(EntityReader(path, recorded).Read(recording.domain));
    entity.number = recorded.id.index;
    entity.level = recorded.level.value_or(entity.level);
    entity.importance = recorded.importance.value_or(entity.importance);
    fleet.AddEntity(IdText(recorded.id.device), 1, entity);
  }
  // No entity stands in a recording twice.
  (void)fleet.Finish();
  return fleet;
}

}  // namespace vt::node
