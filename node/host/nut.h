// The uninterruptible supplies that a NUT server knows, over its line protocol. Each is a meter: it
// measures what it feeds, which is this host and perhaps others. ups.realpower is measured; where
// it is missing, ups.load (a percentage) of ups.realpower.nominal is an estimate.
//
// The server is not trusted: lines, their number and the time of a whole exchange are bounded, and
// what it names is checked before it is sent back to it.
#ifndef VT_NODE_HOST_NUT_H_
#define VT_NODE_HOST_NUT_H_

#include <netinet/in.h>

#include <chrono>
#include <string>
#include <vector>

#include "node/host/power_source.h"

namespace vt::node {

class NutSource : public PowerSource {
 public:
  // NutSource asks the server at that address. Each Find and each Read is one connection, and takes
  // patience at most.
  NutSource(const sockaddr_in& server, std::chrono::milliseconds patience, MonotonicClock clock);

  std::string_view kind() const override { return "nut"; }
  Findings Find() override;
  std::vector<Reading> Read() override;
  std::string Advice(Trouble trouble) const override;

 private:
  struct Supply {
    std::string name;
    bool tells_power;  // in watts, not only as a share of what it can give
  };

  sockaddr_in server_;
  std::chrono::milliseconds patience_;
  MonotonicClock clock_;
  std::vector<Supply> supplies_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_NUT_H_
