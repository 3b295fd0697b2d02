// voltaris-node: plays a node with a fleet of devices, so that queries have something to talk to.

#include <signal.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <system_error>

#include "vtapi.hpp"

#include "node/fleet.h"
#include "node/log.h"
#include "node/options.h"
#include "node/responder.h"
#include "node/server.h"

namespace vt::node {
namespace {

enum ExitCode : int { kExitOk = 0, kExitCannotServe = 1, kExitUsage = 2 };

// StopSignals is a descriptor that becomes readable on SIGINT and SIGTERM, which then do nothing
// else. It is made before other threads run, so that they inherit the mask.
Descriptor StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "cannot watch signals");
  return Descriptor(fd);
}

std::optional<voltaris::Key> ReadKey(const Options& options) {
  if (!options.key_file) return std::nullopt;
  std::string warning;
  auto key = voltaris::Key::from_file(*options.key_file, voltaris::KeyFilePolicy::kWarn, &warning);
  if (!key) throw UsageError(key.error().text);
  if (!warning.empty()) std::cerr << "warning: " << warning << std::endl;
  return *std::move(key);
}

ExitCode Run(int argc, const char* const* argv) {
  const std::optional<Options> options = ParseOptions(argc, argv);
  if (!options) return kExitOk;
  // A reader of standard output that goes away must not end the node.
  (void)signal(SIGPIPE, SIG_IGN);
  StartLog(options->log_level);
  std::optional<voltaris::Key> key = ReadKey(*options);
  const Descriptor stop = StopSignals();
  // The fleet is read first: a faulty one must not open the port.
  Fleet fleet = LoadFleet(options->config);
  Server server(options->listen);
  const sockaddr_in address = server.address();
  fleet.node.address = address;

  Responder responder(std::move(fleet), std::move(key));
  std::cout << "listening on " << EndpointText(address) << std::endl;
  server.Run(
      stop.get(),
      [&responder](std::span<const std::uint8_t> message) { return responder.Answer(message); },
      options->connection_timeout);
  Log(VT_LOG_INFO, "ended by a signal");
  return kExitOk;
}

ExitCode Complain(ExitCode code, const std::exception& error) {
  std::cerr << "voltaris-node: " << error.what() << std::endl;
  return code;
}

}  // namespace
}  // namespace vt::node

int main(int argc, char** argv) {
  using vt::node::Complain;
  try {
    return vt::node::Run(argc, argv);
  } catch (const vt::node::UsageError& error) {
    return Complain(vt::node::kExitUsage, error);
  } catch (const vt::node::FleetError& error) {
    return Complain(vt::node::kExitUsage, error);
  } catch (const std::exception& error) {
    return Complain(vt::node::kExitCannotServe, error);
  }
}
