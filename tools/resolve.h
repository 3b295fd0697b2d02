// Names of nodes turned into IPv4 addresses, many at once and until a deadline: the system's own
// look-up can neither be ended nor asked how long it will take.
#ifndef VT_TOOLS_RESOLVE_H_
#define VT_TOOLS_RESOLVE_H_

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace vt::tools {

// Resolution is the address of a name, or why there is none.
struct Resolution {
  std::string address;  // dotted, empty without one
  std::string reason;   // empty with an address

  friend bool operator==(const Resolution&, const Resolution&) = default;
};

// Lookup finds one name. It is called in threads of the resolver, several at a time, and may still
// be running when Resolve has returned.
using Lookup = std::function<Resolution(const std::string& host)>;

// LookUpIpv4 asks the system. Of several addresses it takes the first.
Resolution LookUpIpv4(const std::string& host);

// Resolve gives one Resolution for each host, in their order, and returns when all are there or the
// deadline has passed; names without an answer by then have a reason that says so. Addresses are
// taken as they are; a name that is there twice is looked up once. Look-ups that are left over are
// waited for by nobody: they end with the process. It returns sooner when the stop descriptor, if
// there is one, can be read.
std::vector<Resolution> Resolve(const std::vector<std::string>& hosts,
                                std::chrono::steady_clock::time_point deadline,
                                const Lookup& lookup = LookUpIpv4, int stop_descriptor = -1);

}  // namespace vt::tools

#endif  // VT_TOOLS_RESOLVE_H_
