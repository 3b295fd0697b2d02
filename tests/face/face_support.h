// What the tests of the C++ interface share: sessions with a scripted node, and results made of
// hand-written replies.
#ifndef VT_TESTS_FACE_FACE_SUPPORT_H_
#define VT_TESTS_FACE_FACE_SUPPORT_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi.hpp"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace vt::testing {

inline voltaris::Identity FaceIdentity() {
  return voltaris::Identity::from_text({kIdentity, 36}).value();
}

inline voltaris::Key FaceKey() {
  const Bytes bytes = SessionKey();
  return voltaris::Key::from_bytes(std::span<const std::uint8_t, 20>(bytes.data(), 20));
}

inline voltaris::Session FaceSession(std::uint16_t port) {
  return voltaris::Session::open("127.0.0.1", port, FaceIdentity(), FaceKey()).value();
}

// Answering is a peer's script: it reads the query, sends the replies and closes.
inline ScriptedPeer::Script Answering(std::vector<Bytes> replies) {
  return [replies = std::move(replies)](PeerConnection& c) {
    c.ReadPdu();
    for (const Bytes& reply : replies) c.Send(reply);
  };
}

inline Bytes SignedElements(std::vector<Bytes> elements) {
  return ReplyWith(std::move(elements)).Signed(SessionKey());
}

// kLevels asks for levels, LevelReply tells one.
inline const voltaris::QueryDescription kLevels =
    voltaris::collect_query("office").get(voltaris::level);

inline Bytes LevelReply(std::string_view device, std::uint32_t entity, std::uint8_t number) {
  return SignedElements({Aggregate(14, device, {Entry(entity, {number})})});
}

// Acknowledgement tells of entities that will (-1) or will not (-2) answer.
inline Bytes Acknowledgement(std::int8_t shipment, std::string_view device,
                             const std::vector<std::uint32_t>& entities) {
  std::vector<Bytes> entries;
  for (const std::uint32_t entity : entities) entries.push_back(Entry(entity));
  PduImage image = ReplyWith({Aggregate(42, device, entries)}, shipment);
  image.cls = 13;
  return image.Signed(SessionKey());
}

// ResultsOf executes a query on a node that sends these elements in one reply.
inline voltaris::Results ResultsOf(const voltaris::QueryDescription& description,
                                   std::vector<Bytes> elements) {
  ScriptedPeer peer(Answering({SignedElements(std::move(elements))}));
  voltaris::Session session = FaceSession(peer.port());
  return session.execute(description).value();
}

// Plain is an element with one value, of entity 1 of the device "lamp".
inline Bytes Plain(std::uint32_t type, const Bytes& value) {
  return Aggregate(type, "lamp", {Entry(1, value)});
}

// OnlyRow is the one row that there has to be.
inline voltaris::Row OnlyRow(const voltaris::Results& results) {
  EXPECT_EQ(results.row_count(), 1u);
  return *results.rows().begin();
}

inline std::string DeviceName(const voltaris::Row& row) {
  const auto bytes = row.device().bytes;
  const std::string text(bytes.begin(), bytes.end());
  return text.substr(0, text.find('\0'));
}

}  // namespace vt::testing

#endif  // VT_TESTS_FACE_FACE_SUPPORT_H_
