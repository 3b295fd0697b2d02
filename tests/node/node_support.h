// What the tests of the node's fleet share: configurations, queries, and the node without its
// network.
#ifndef VT_TESTS_NODE_NODE_SUPPORT_H_
#define VT_TESTS_NODE_NODE_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "node/fleet_file.h"
#include "node/responder.h"
#include "tests/harness/hex.h"
#include "tests/harness/pdu_image.h"
#include "tests/tools/programs.h"

namespace vt::testing {

// NodeTable is the [node] table, of domain "test".
std::string NodeTable(const std::string& more = "");

// At is an instant so many seconds after 1970 began.
node::Instant At(std::int64_t seconds);

// Load loads a configuration that stands in a folder of its own.
node::FleetFile Load(const std::string& config, const node::HostProbe& probe = {});

// Asking is a collect of these element types for the domain "test", as clients write it; its sender
// is the default one, so that a node without a key takes it with KeyOfSender.
PduImage Asking(const std::vector<std::uint32_t>& types);
PduImage Setting(const std::vector<Bytes>& elements);
PduImage SettingLevel(std::uint8_t level);
PduImage Summing(const std::vector<std::uint32_t>& combined_types);
Bytes KeyOfSender();

// Told is one entry of an answer: which element it stands in, and what.
struct Told {
  std::int8_t shipment = 0;
  std::uint32_t type = 0;
  std::string device;
  std::uint32_t entity = 0;
  Bytes value;  // as it travels; of combined elements with the header
};

// Answered is an answer taken apart with this file's own reading of the wire.
struct Answered {
  std::vector<Bytes> messages;
  std::vector<Told> told;

  std::vector<Told> Of(std::int8_t shipment) const;
  std::vector<Told> OfType(std::uint32_t type) const;
  // Only is the value of the one entry of a type that there has to be.
  Bytes Only(std::uint32_t type) const;
  std::size_t accepted() const { return Of(-1).size(); }
  std::size_t refused() const { return Of(-2).size(); }
};

// FleetUnderTest answers queries for a fleet, at a time that the test sets.
class FleetUnderTest {
 public:
  explicit FleetUnderTest(const std::string& config, std::optional<std::string> state = {},
                          const node::HostProbe& probe = {});
  explicit FleetUnderTest(node::Fleet fleet);

  // Ask takes for granted that nothing is wrong with the messages; Deliver does not look at them.
  Answered Ask(const PduImage& image);
  node::Delivery Deliver(const PduImage& image, const std::string& client = "127.0.0.1");
  void Measured(const std::vector<node::Reading>& readings) { responder_.Measured(readings); }

  std::int64_t now = 0;                 // seconds after 1970
  std::chrono::seconds steady_step{0};  // by which the other clock goes on when it is looked at

 private:
  node::Clocks TestClocks();

  node::Clocks::Steady steady_{};
  node::Responder responder_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_NODE_NODE_SUPPORT_H_
