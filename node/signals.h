// Signals brings those that end the node, or have it read its configuration again, to the loop's
// thread. They stay blocked and are read from a descriptor: no code runs between two instructions
// of other code, and none can get lost on the way to the loop.
#ifndef VT_NODE_SIGNALS_H_
#define VT_NODE_SIGNALS_H_

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <signal.h>
#include <sys/signalfd.h>

#include <functional>

namespace vt::node {

class Signals {
 public:
  using Handler = std::function<void(int number)>;

  // Signals blocks SIGINT, SIGTERM and SIGHUP on this thread, and on those that it starts from now
  // on: it comes before them. What arrives waits for Start. It throws std::system_error.
  explicit Signals(asio::io_context& io);
  ~Signals() { Stop(); }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  // Start has the handler called for each signal while io runs, until Stop.
  void Start(Handler handler);

  // Stop gives the signals on this thread, which is the one that made it, the effect back that they
  // had before, and leaves io nothing to wait for.
  void Stop();

 private:
  void Read();

  asio::posix::stream_descriptor descriptor_;
  const sigset_t saved_;  // the mask of before
  signalfd_siginfo signal_{};
  Handler handler_;
};

}  // namespace vt::node

#endif  // VT_NODE_SIGNALS_H_
