#include "tests/node/node_support.h"

#include <algorithm>
#include <utility>

#include "tests/node/element_types.h"

namespace vt::testing {
namespace {

// Cursor reads big-endian numbers and fails the test where there is nothing to read.
class Cursor {
 public:
  Cursor(const Bytes& bytes, std::size_t begin, std::size_t end)
      : bytes_(bytes), at_(begin), end_(end) {}

  bool AtEnd() const { return at_ >= end_; }
  std::size_t position() const { return at_; }

  Bytes Take(std::size_t size) {
    if (size > end_ - at_) {
      ADD_FAILURE() << "the message ends too early at " << at_;
      size = end_ - at_;
    }
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at_);
    at_ += size;
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
  }

  std::uint32_t Number() {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : Take(4)) number = number << 8 | byte;
    return number;
  }

  void SkipCounted() { Take(Number()); }

 private:
  const Bytes& bytes_;
  std::size_t at_;
  std::size_t end_;
};

// SkipValue passes over one value of an aggregated element.
void SkipValue(Cursor& in, std::uint32_t type) {
  const bool combined = type >= 43 && type <= 45;
  if (combined) {
    in.Take(8);
    in.SkipCounted();
    in.SkipCounted();
    in.Take(3);
    in.SkipCounted();
  }
  switch (type) {
    case 7:
    case 9:
    case 10:
    case 11:
    case 48:
      return in.SkipCounted();
    case 1:
      in.Take(36);
      return;
    case 12:
    case 14:
    case 17:
      in.Take(1);
      return;
    case 13:
    case 29:
    case 43:
      in.Take(2);
      return;
    case 22:
    case 34:
    case 38:
    case 51:
      in.Take(4);
      return;
    case 28:
      in.Take(32);
      in.SkipCounted();
      in.SkipCounted();
      in.Take(4);
      return;
    case 36:
    case 45:
      in.Take(44);
      return;
    case 39:
    case 44:
      in.Take(22);
      return;
    case 42:
      return;
    case 46:
      in.SkipCounted();
      in.Take(6);
      return;
    default:
      ADD_FAILURE() << "an element of type " << type << " in an answer";
  }
}

void TakeApart(const Bytes& message, std::vector<Told>& told) {
  constexpr std::size_t shipment_offset = 69;
  Cursor elements(message, kTlvAreaOffset, message.size());
  while (!elements.AtEnd()) {
    const std::size_t begin = elements.position();
    const std::uint32_t flagged = elements.Number();
    const std::uint32_t length = elements.Number();
    EXPECT_EQ(elements.Number(), 0u) << "no qualifiers in answers";
    ASSERT_GE(length, 12u);
    elements.Take(length - 12);
    if (flagged == 8) continue;
    ASSERT_NE(flagged & 0x80000000u, 0u) << "everything but the domain is of a device";
    const std::uint32_t type = flagged & 0x7FFFFFFFu;
    Cursor in(message, begin + 12, begin + length);
    const Bytes id = in.Take(32);
    in.SkipCounted();
    const std::uint32_t count = in.Number();
    for (std::uint32_t i = 0; i < count; ++i) {
      Told entry;
      entry.shipment = static_cast<std::int8_t>(message[shipment_offset]);
      entry.type = type;
      entry.device.assign(id.begin(), id.end());
      entry.entity = in.Number();
      const std::size_t value = in.position();
      SkipValue(in, type);
      entry.value.assign(message.begin() + static_cast<std::ptrdiff_t>(value),
                         message.begin() + static_cast<std::ptrdiff_t>(in.position()));
      told.push_back(std::move(entry));
    }
    EXPECT_TRUE(in.AtEnd()) << "type " << type;
  }
}

// Placeholder is what clients put into the element that asks for an attribute.
Bytes Placeholder(std::uint32_t type) {
  switch (type) {
    case 12:
    case 14:
    case 17:
    case 41:
      return Bytes(1, 0);
    case 13:
    case 29:
      return Bytes(2, 0);
    case 22:
    case 34:
    case 38:
    case 51:
      return Bytes(4, 0);
    case 1:
      return Bytes(36, 0);
    case 23:
      return Bytes(16, 0);
    case 28:
    case 36:
      return Bytes(44, 0);
    case 39:
      return Bytes(22, 0);
    case 46:
      return Bytes(10, 0);
    default:
      return {};
  }
}

}  // namespace

std::string NodeTable(const std::string& more) {
  return "[node]\nid = \"" + DeviceId(0) +
         "\"\ndomain = \"test\"\nname = \"test-node\"\nrole = \"node\"\n" + more + "\n";
}

node::Instant At(std::int64_t seconds) { return node::Instant(std::chrono::seconds(seconds)); }

node::FleetFile Load(const std::string& config, const node::HostProbe& probe) {
  const TempFolder folder;
  return node::LoadFleet(folder.Write("fleet.toml", config), probe);
}

PduImage Asking(const std::vector<std::uint32_t>& types) {
  PduImage image;
  image.pri = 100;
  image.elements = {Element(8, 0, Text("test"))};
  for (const std::uint32_t type : types) {
    image.elements.push_back(Element(type, 0, Placeholder(type)));
  }
  return image;
}

PduImage Setting(const std::vector<Bytes>& elements) {
  PduImage image = Asking({});
  image.action = 10;
  image.elements.insert(image.elements.end(), elements.begin(), elements.end());
  return image;
}

PduImage SettingLevel(std::uint8_t level) { return Setting({Element(kLevel, 0, {level})}); }

PduImage Summing(const std::vector<std::uint32_t>& combined_types) {
  PduImage image = Asking({});
  image.cls = 11;
  image.action = 10;
  for (const std::uint32_t type : combined_types) {
    const Bytes header = Bytes(23, 0);
    const Bytes value = Bytes(type == 43 ? 2 : 44, 0);
    image.elements.push_back(
        Element(type | 0x80000000u, 0, Cat({DeviceHeader(""), U32(1), U32(0), header, value})));
  }
  return image;
}

Bytes KeyOfSender() { return Bytes(32, 'a'); }

std::vector<Told> Answered::Of(std::int8_t shipment) const {
  std::vector<Told> found;
  std::ranges::copy_if(told, std::back_inserter(found),
                       [shipment](const Told& entry) { return entry.shipment == shipment; });
  return found;
}

std::vector<Told> Answered::OfType(std::uint32_t type) const {
  std::vector<Told> found;
  std::ranges::copy_if(told, std::back_inserter(found),
                       [type](const Told& entry) { return entry.type == type; });
  return found;
}

Bytes Answered::Only(std::uint32_t type) const {
  const std::vector<Told> found = OfType(type);
  EXPECT_EQ(found.size(), 1u) << "of type " << type;
  return found.empty() ? Bytes() : found.front().value;
}

FleetUnderTest::FleetUnderTest(const std::string& config, std::optional<std::string> state,
                               const node::HostProbe& probe)
    : responder_([&] {
        node::FleetFile file = Load(config, probe);
        node::HostControl control{file.host_entities, {}};
        if (file.host) control.actions = file.host->actions;
        node::StateKeeper keeper(state);
        (void)keeper.Restore(file.fleet);
        return node::Responder(std::move(file.fleet), std::nullopt, std::move(keeper),
                               std::move(control), TestClocks(),
                               node::Faults(std::move(file.faults)));
      }()) {}

FleetUnderTest::FleetUnderTest(node::Fleet fleet)
    : responder_(std::move(fleet), std::nullopt, node::StateKeeper({}), {}, TestClocks()) {}

node::Clocks FleetUnderTest::TestClocks() {
  return {[this] { return At(now); },
          [this] {
            steady_ += steady_step;
            return steady_;
          }};
}

Answered FleetUnderTest::Ask(const PduImage& image) {
  Answered answered;
  answered.messages = Deliver(image).messages;
  for (const Bytes& message : answered.messages) {
    EXPECT_LE(message.size(), 1400u);
    EXPECT_EQ(Sign(message, KeyOfSender()), message);
    TakeApart(message, answered.told);
  }
  return answered;
}

node::Delivery FleetUnderTest::Deliver(const PduImage& image, const std::string& client) {
  return responder_.Answer(image.Signed(KeyOfSender()), asio::ip::make_address_v4(client));
}

}  // namespace vt::testing
