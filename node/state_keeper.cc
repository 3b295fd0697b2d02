#include "node/state_keeper.h"

#include <utility>

namespace vt::node {

StateKeeper::StateKeeper(const std::optional<std::string>& path) {
  if (path) file_.emplace(*path);
}

std::vector<std::string> StateKeeper::Restore(Fleet& fleet) {
  std::vector<std::string> notes;
  if (!file_) return notes;
  StateFile::Loaded loaded = file_->Load();
  if (loaded.set_aside) notes.push_back(*loaded.set_aside);
  absent_.clear();
  for (StateRecord& record : loaded.records) {
    if (const auto index = fleet.Find(record.id, record.entity)) {
      fleet.Apply(*index, record.changes);
    } else {
      absent_.push_back(std::move(record));
    }
  }
  if (!absent_.empty()) {
    notes.push_back(file_->path() + " tells of " + std::to_string(absent_.size()) +
                    " entities that the fleet does not have");
  }
  return notes;
}

void StateKeeper::Keep(const Fleet& fleet) const {
  if (!file_) return;
  std::vector<StateRecord> records = absent_;
  for (std::uint32_t i = 0; i < fleet.entity_count(); ++i) {
    Changes changes = fleet.ChangesOf(i);
    if (!changes.empty()) {
      records.push_back({fleet.IdOf(i), fleet.EntityAt(i).number, std::move(changes)});
    }
  }
  file_->Save(records);
}

}  // namespace vt::node
