#include "node/reply_desk.h"

#include <algorithm>
#include <iterator>

#include "node/spoil.h"

namespace vt::node {

ReplyDesk::ReplyDesk(const ReceivedQuery& query, const std::string& sender)
    : query_(query), sender_(sender), well_(query, sender, query.domain()) {}

ReplyPacker& ReplyDesk::For(const Fault* fault) {
  if (fault == nullptr || !SpoilsMessages(fault->kind)) return well_;
  return spoiled_.try_emplace(fault, query_, sender_, query_.domain()).first->second;
}

std::uint32_t ReplyDesk::accepted() const {
  std::uint32_t count = well_.accepted();
  for (const auto& [fault, packer] : spoiled_) count += packer.accepted();
  return count;
}

std::uint32_t ReplyDesk::refused() const {
  std::uint32_t count = well_.refused();
  for (const auto& [fault, packer] : spoiled_) count += packer.refused();
  return count;
}

std::vector<Bytes> ReplyDesk::Finish() {
  std::vector<Bytes> messages = well_.Finish();
  for (auto& [fault, packer] : spoiled_) {
    std::vector<Bytes> spoiled = packer.Finish();
    Spoil(*fault, query_.key(), spoiled);
    std::ranges::move(spoiled, std::back_inserter(messages));
  }
  return messages;
}

}  // namespace vt::node
