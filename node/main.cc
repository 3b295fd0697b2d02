// voltaris-node: plays a node with a fleet of devices, so that queries have something to talk to.

#include <signal.h>

#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "node/fleet_file.h"
#include "node/host/probe_command.h"
#include "node/log.h"
#include "node/options.h"
#include "node/replay.h"
#include "node/service.h"

namespace vt::node {
namespace {

enum ExitCode : int { kExitOk = 0, kExitCannotServe = 1, kExitUsage = 2 };

void CheckConfiguration(const Options& options) {
  (void)ReadKey(options);
  if (!options.replay.empty()) {
    const std::size_t entities = LoadReplay(options.replay).entity_count();
    std::cout << options.replay << ": " << entities << " entities" << std::endl;
    return;
  }
  FleetFile file = LoadFleet(options.config);
  EnableFaults(options, file);
  std::cout << options.config << ": " << file.fleet.entity_count() << " entities"
            << (file.host ? ", and this host" : "");
  if (!file.faults.empty()) std::cout << ", faults: " << file.faults.size();
  std::cout << std::endl;
}

// Ended is the exit status of what only prints, once all of it has been written.
int Ended(int status) {
  std::cout.flush();
  if (!std::cout) throw std::runtime_error("standard output cannot be written");
  return status;
}

int Run(int argc, const char* const* argv) {
  if (argc > 1 && std::string_view(argv[1]) == "probe") return Ended(RunProbe(argc - 1, argv + 1));
  const std::optional<Options> options = ParseOptions(argc, argv);
  if (!options) return Ended(kExitOk);
  // A reader of standard output that goes away must not end the node.
  (void)signal(SIGPIPE, SIG_IGN);
  StartLog(options->log_level, options->log_format);
  if (options->check_config) {
    CheckConfiguration(*options);
    return Ended(kExitOk);
  }
  // The configuration is read first: a faulty one must not open the port.
  Service service(*options, ReadConfiguration(*options));
  std::cout << "listening on " << EndpointText(service.address()) << std::endl;
  if (const std::optional<sockaddr_in> http = service.http_address()) {
    std::cout << "http on " << EndpointText(*http) << std::endl;
  }
  service.Run();
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
