#include "tools/record_command.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "recording/anonymize.h"
#include "recording/recording.h"
#include "recording/recording_file.h"
#include "recording/recording_text.h"
#include "tools/answer.h"
#include "tools/console.h"
#include "tools/exit_code.h"
#include "tools/inquiry.h"
#include "tools/query.h"
#include "tools/report.h"
#include "tools/standard_output.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

// --- values: each as the recording holds it, where the device told it ---

// A text that is empty says no more than none.
template <class A>
void TakeText(const voltaris::Row& row, A attribute, std::optional<std::string>& out) {
  const auto told = row.get(attribute);
  if (told && !told->empty()) out = *told;
}

template <class A, class T>
void TakeNumber(const voltaris::Row& row, A attribute, std::optional<T>& out) {
  if (const auto told = row.get(attribute)) out = static_cast<T>(*told);
}

std::optional<std::int8_t> UnitsOf(const std::optional<int>& exponent) {
  return exponent ? std::optional(static_cast<std::int8_t>(*exponent)) : std::nullopt;
}

template <class A, class Scaled>
void TakePower(const voltaris::Row& row, A attribute, std::optional<Scaled>& out) {
  if (const auto told = row.get(attribute)) out = Scaled{told->raw, UnitsOf(told->exponent)};
}

// The address with all of its bytes, whatever they mean.
void TakeAddress(const voltaris::Row& row, std::optional<recording::AddressBytes>& out) {
  std::uint32_t length = 0;
  const void* told = voltaris_readValue(&row.cursor(), voltaris::address.number, 0, &length);
  if (told == nullptr || length != sizeof(recording::AddressBytes)) return;
  recording::AddressBytes bytes{};
  std::memcpy(bytes.data(), told, bytes.size());
  out = bytes;
}

void TakeNeighbors(const voltaris::Row& row, std::vector<recording::Neighbor>& out) {
  for (const voltaris::Neighbor& told : row.all(voltaris::neighbor)) {
    const auto* data = reinterpret_cast<const char*>(told.data.data());
    out.push_back({told.device, std::string(told.label),
                   std::string(data, told.data.empty() ? 0 : told.data.size()), told.flag});
  }
  std::sort(out.begin(), out.end());
}

void TakeRecurrence(const voltaris::Row& row, std::optional<recording::Recurrence>& out) {
  if (const auto told = row.get(voltaris::recurrence)) {
    out = recording::Recurrence{std::string(told->text), told->byte1, told->byte2, told->flag};
  }
}

recording::Entity EntityOf(const voltaris::Row& row) {
  recording::Entity entity;
  entity.id = row.id();
  TakeText(row, voltaris::role, entity.role);
  TakeText(row, voltaris::name, entity.name);
  entity.keywords = row.get(voltaris::keywords);
  TakeText(row, voltaris::error_text, entity.error_text);
  TakeNumber(row, voltaris::units, entity.units);
  TakePower(row, voltaris::usage, entity.usage);
  TakeNumber(row, voltaris::level, entity.level);
  TakeNumber(row, voltaris::importance, entity.importance);
  TakeNumber(row, voltaris::entity_type, entity.entity_type);
  TakeAddress(row, entity.address);
  TakeNeighbors(row, entity.neighbors);
  TakeNumber(row, voltaris::neighbor_count, entity.neighbor_count);
  TakeNumber(row, voltaris::nanny_vector, entity.nanny_vector);
  TakePower(row, voltaris::delta_vector, entity.delta_vector);
  TakeNumber(row, voltaris::caliber, entity.caliber);
  TakePower(row, voltaris::usage_vector, entity.usage_vector);
  TakeRecurrence(row, entity.recurrence);
  TakeText(row, voltaris::text_21, entity.text_21);
  TakeNumber(row, voltaris::category, entity.category);
  return entity;
}

// Columns that were not asked for come along: the address with every row, the units with usage.
void LeaveOutUnasked(const std::vector<std::int32_t>& asked, recording::Entity& entity) {
  const auto is_asked = [&asked](std::int32_t number) {
    return std::ranges::find(asked, number) != asked.end();
  };
  if (!is_asked(voltaris::address.number)) entity.address.reset();
  if (!is_asked(voltaris::units.number)) entity.units.reset();
}

// The identity of the node stands in each of its messages.
voltaris::DeviceId NodeOf(const voltaris::Results& results) {
  voltaris::DeviceId node;
  node.bytes.fill('0');
  if (results.get() == nullptr) return node;
  for (const void* at = results.get()->events.head; at != nullptr;) {
    const auto* event = static_cast<const Event*>(at);
    if (event->pak_valid == 1 && event->pak != nullptr) {
      static_assert(sizeof event->pak->voltarisid == sizeof node.bytes);
      std::memcpy(node.bytes.data(), event->pak->voltarisid, node.bytes.size());
      return node;
    }
    at = event->next;
  }
  return node;
}

recording::Recording RecordingOf(const Options& options, const voltaris::Results& results) {
  recording::Recording made;
  made.node = NodeOf(results);
  made.domain = DomainOf(options, options.targets.front());
  made.time = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  made.attributes = options.recorded;
  std::unordered_set<voltaris::EntityId> accepted;
  for (const AckEntry& entry : results.accepted()) accepted.emplace(entry);
  for (const voltaris::Row row : results.rows()) {
    // A refusal that names an entity makes a row of its own, which says nothing.
    if (HoldsNothing(row) && !accepted.contains(row.id())) continue;
    recording::Entity entity = EntityOf(row);
    LeaveOutUnasked(options.recorded, entity);
    made.entities.push_back(std::move(entity));
  }
  if (options.anonymize) recording::Anonymize(made, recording::RandomKey());
  return made;
}

void Write(const recording::Recording& recording, const Options& options) {
  const std::string text = recording::WriteRecording(recording);
  if (!options.output_file) {
    WriteOut(text);
    return;
  }
  try {
    recording::SaveText(*options.output_file, text);
  } catch (const std::system_error& error) {
    throw Failure(kExitInternal, error.what());
  }
}

int Tell(const NodeAnswer& answer) {
  if (answer.verdict.status == Status::kOk) return kExitOk;
  Complain(NodeName(*answer.target) + ": " + answer.verdict.reason + "; nothing was recorded");
  const std::string_view hint = HintOf(answer.verdict.status);
  if (!hint.empty()) Complain("hint: " + std::string(hint));
  return StopSignal() != 0 ? kExitSignal + StopSignal() : int{CodeOf(answer.verdict.status)};
}

}  // namespace

int RunRecord(const Options& options) {
  Inquiry inquiry(options);
  NodeAnswer answer;
  recording::Recording made;
  inquiry.Ask(
      inquiry.AllNodes(),
      [&options](const Target& target) {
        return DescribeCollect(options, target, options.recorded);
      },
      options.retries,
      [&](std::size_t /*node*/, NodeAnswer ended, const voltaris::Results* results) {
        if (results != nullptr) made = RecordingOf(options, *results);
        answer = std::move(ended);
      });
  const bool is_whole = answer.verdict.status == Status::kOk;
  if (is_whole && made.entities.empty()) {
    answer.verdict = {Status::kNothingMatched, "the devices have nothing of what was asked for"};
  }
  const int code = Tell(answer);
  if (code == kExitOk) Write(made, options);
  return code;
}

}  // namespace vt::tools
