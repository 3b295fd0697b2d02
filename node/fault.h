// Faults on demand: what goes wrong on purpose, for whom, and how often. A fault belongs to a
// device, which then refuses, is silent, or tells something that cannot be believed or decoded; or
// to a connection, whose answer then comes late, in crumbs, in part or in a wrong shape.
#ifndef VT_NODE_FAULT_H_
#define VT_NODE_FAULT_H_

#include <asio/ip/address_v4.hpp>
#include <asio/ip/network_v4.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "node/fleet.h"
#include "node/query_kind.h"

namespace vt::node {

// The kinds: their name here, in a configuration, and whether they belong to a device.
#define VT_NODE_FAULT_KINDS(X)          \
  X(kNak, "nak", true)                  \
  X(kLater, "later", true)              \
  X(kSilent, "silent", true)            \
  X(kWrongDigest, "wrong-digest", true) \
  X(kMalformed, "malformed", true)      \
  X(kDuplicate, "duplicate", true)      \
  X(kDelay, "delay", false)             \
  X(kDrip, "drip", false)               \
  X(kDrop, "drop", false)               \
  X(kCloseEarly, "close-early", false)  \
  X(kBadLength, "bad-length", false)    \
  X(kOverSize, "over-size", false)

enum class FaultKind : std::uint8_t {
#define VT_NODE_FAULT_KIND(kind, word, of_device) kind,
  VT_NODE_FAULT_KINDS(VT_NODE_FAULT_KIND)
#undef VT_NODE_FAULT_KIND
};

// WordOf is how a kind is written in a configuration.
std::string_view WordOf(FaultKind kind);
// IsOfDevice tells whether it belongs to a device, and not to a connection.
bool IsOfDevice(FaultKind kind);

// kAllQueries are the bits of all kinds.
inline constexpr std::uint8_t kAllQueries = 0xFF;

// FaultTarget is whom a fault is for. What it does not name is any.
struct FaultTarget {
  std::vector<std::string> devices;  // names; a star at the end stands for any rest
  std::optional<DeviceIdText> id;
  std::optional<std::string> role;
  std::optional<std::string> keyword;
  std::optional<std::string> domain;
  std::vector<asio::ip::network_v4> clients;
  std::uint8_t queries = kAllQueries;  // of QueryBit

  // NamesDevices tells whether it is for some devices and not for others.
  bool NamesDevices() const;
  bool HasEntity(const Fleet& fleet, std::uint32_t entity) const;
  bool HasQuery(QueryKind kind, const asio::ip::address_v4& client) const;
};

// Fault is one [[fault]] of a configuration. Of the numbers, those of its kind count.
struct Fault {
  FaultKind kind = FaultKind::kNak;
  std::string name;  // empty when it has none
  bool enabled = true;
  FaultTarget target;
  std::int64_t probability = 1'000'000;  // in millionths
  std::uint64_t seed = 0;

  std::chrono::milliseconds delay{0};  // kDelay
  std::size_t bytes = 0;               // kDrip: at a time
  std::chrono::milliseconds pause{0};  // kDrip: in between
  std::optional<std::size_t> after;    // kDrop: bytes; else in the middle of the last message
  std::size_t messages = 0;            // kCloseEarly: that are sent
  bool reset = false;                  // kDrop, kCloseEarly
  std::int32_t by = 0;                 // kBadLength: bytes too many, or too few when negative
  std::size_t size = 0;                // kOverSize: of the message

  // title is how the log calls it.
  std::string title() const;
};

// Enable switches on the faults of these names, and returns the first name that none has.
std::optional<std::string> Enable(std::vector<Fault>& faults,
                                  const std::vector<std::string>& names);

// Chance is true as often as its probability says, in an order that the seed determines alone: the
// same on every machine.
class Chance {
 public:
  Chance(std::int64_t millionths, std::uint64_t seed);

  bool Draw();

 private:
  std::int64_t millionths_;
  std::mt19937_64 numbers_;
};

// Faults are those that are enabled, with the chance of each. They belong to one thread at a time.
class Faults {
 public:
  Faults() = default;
  explicit Faults(std::vector<Fault> faults);

  std::size_t count() const { return armed_.size(); }

 private:
  friend class Strikes;
  struct Armed {
    Fault fault;
    Chance chance;
  };

  std::vector<Armed> armed_;
};

// Strikes decides which faults strike during one answer: one at most for each device and one for
// the connection, the first of the configuration whose chance is true. faults and fleet must
// outlive it; what it returns belongs to faults.
class Strikes {
 public:
  Strikes(Faults& faults, const Fleet& fleet, QueryKind kind, const asio::ip::address_v4& client);

  // OnDevice decides about a device, with those of its entities that the query concerns and the
  // others, and is called once for each device of the domain. It returns the fault, or null.
  const Fault* OnDevice(std::span<const std::uint32_t> concerned,
                        std::span<const std::uint32_t> others);

  // OnConnection decides about the connection when all devices have been decided about: faults
  // that name devices strike when the query concerns one of them. It returns the fault, or null.
  const Fault* OnConnection();

  // Log tells of the faults that struck.
  void Log() const;

 private:
  struct Candidate {
    Faults::Armed* armed;
    bool is_met;  // of a connection: whether the query concerns whom it names
    std::size_t strikes = 0;
  };

  bool IsForAny(const Candidate& candidate, std::span<const std::uint32_t> entities) const;

  const Fleet& fleet_;
  std::vector<Candidate> of_devices_;
  std::vector<Candidate> of_connection_;
};

}  // namespace vt::node

#endif  // VT_NODE_FAULT_H_
