#include "node/signals.h"

#include <asio/buffer.hpp>

#include <cerrno>
#include <system_error>
#include <utility>

namespace vt::node {
namespace {

// Block returns the mask that there was before.
sigset_t Block(const sigset_t& signals) {
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  return before;
}

sigset_t OurSignals() {
  sigset_t ours;
  sigemptyset(&ours);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ours, number);
  return ours;
}

int OpenDescriptor() {
  const sigset_t ours = OurSignals();
  const int descriptor = signalfd(-1, &ours, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  return descriptor;
}

}  // namespace

Signals::Signals(asio::io_context& io)
    : descriptor_(io, OpenDescriptor()), saved_(Block(OurSignals())) {}

void Signals::Start(Handler handler) {
  handler_ = std::move(handler);
  Read();
}

void Signals::Stop() {
  if (!descriptor_.is_open()) return;
  asio::error_code ignored;
  descriptor_.close(ignored);
  pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
}

void Signals::Read() {
  descriptor_.async_read_some(asio::buffer(&signal_, sizeof(signal_)),
                              [this](const asio::error_code& error, std::size_t) {
                                if (error) return;
                                handler_(static_cast<int>(signal_.ssi_signo));
                                if (descriptor_.is_open()) Read();
                              });
}

}  // namespace vt::node
