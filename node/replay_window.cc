#include "node/replay_window.h"

namespace vt::node {

bool ReplayWindow::Admit(const Digest& digest, Time now) {
  while (!order_.empty() && now - order_.front().at >= length_) Forget();
  const auto [place, is_new] = digests_.insert(digest);
  if (!is_new) return false;
  order_.push_back({now, place});
  if (order_.size() > capacity_) Forget();
  return true;
}

void ReplayWindow::Forget() {
  digests_.erase(order_.front().digest);
  order_.pop_front();
}

}  // namespace vt::node
