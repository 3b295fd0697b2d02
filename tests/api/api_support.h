// What the tests of the client interface share: owners of its records, replies as a node would send
// them, and a query with a result set that replies can be folded into.
#ifndef VT_TESTS_API_API_SUPPORT_H_
#define VT_TESTS_API_API_SUPPORT_H_

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"

namespace vt::testing {

template <auto Release>
struct ReleaseWith {
  template <class Record>
  void operator()(Record* record) const {
    Release(record);
  }
};

// Declare them in this order: they are released in the reverse one, as the library demands.
using SessionPtr = std::unique_ptr<Session, ReleaseWith<&voltaris_closeSession>>;
using QueryPtr = std::unique_ptr<Query, ReleaseWith<&voltaris_releaseQuery>>;
using ResultPtr = std::unique_ptr<ResultSet, ReleaseWith<&voltaris_releaseResult>>;
using EventPtr = std::unique_ptr<Event, ReleaseWith<&cv_cleanup_event>>;
using CollectionPtr = std::unique_ptr<ReplyCollection, ReleaseWith<&voltaris_releaseCollection>>;
using FleetPtr = std::unique_ptr<CollectionFleet, ReleaseWith<&voltaris_releaseFleet>>;

using Lines = std::vector<LogLine>;

// 36 characters, of which messages carry the first 32.
inline constexpr char kIdentity[] = "0123456789abcdeffedcba9876543210#001";

inline Bytes SessionKey() { return Hex("a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3"); }

inline hmac_context Keyed(const Bytes& key) {
  hmac_context context = {};
  hmac_shainit(&context, key.data(), static_cast<std::uint32_t>(key.size()));
  return context;
}

// A session with the node at 127.0.0.1.
inline SessionPtr LoopbackSession(std::uint32_t port) {
  const Bytes key = SessionKey();
  return SessionPtr(voltaris_createSession("127.0.0.1", port, kIdentity, key.data(), 20));
}

// QueryCreator makes a query for a domain, with a priority.
using QueryCreator = Query* (*)(const char*, std::uint32_t);

inline Query* CreateFurtherQuery(const char* domain, std::uint32_t priority) {
  return voltaris_createQuery(1, 3, domain, priority);
}

inline QueryPtr CollectQuery() { return QueryPtr(voltaris_createCollectQuery("office", 7)); }

// BindAsExecuted leaves the query as execution does, without a message having been sent.
inline void BindAsExecuted(Query* query, Session* session) {
  cv_cleanup_event(query->event);
  query->event = nullptr;
  query->session = session;
}

// The lines that one function reported.
inline Lines From(const LogCapture& log, std::string_view function) {
  const std::string prefix = std::string(function) + ": ";
  Lines result;
  for (const LogLine& line : log.lines()) {
    if (line.text.starts_with(prefix)) result.push_back(line);
  }
  return result;
}

// A pointer as "%p" prints it.
inline std::string Printed(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return text;
}

template <class Value>
Bytes HostBytes(const Value& value) {
  Bytes result(sizeof value);
  std::memcpy(result.data(), &value, sizeof value);
  return result;
}

// Text with its terminator, as rows hand it out.
inline Bytes Terminated(std::string_view text) { return Text(text) + Bytes{0}; }

// The application numbers of the query's columns, in order.
inline std::vector<std::int32_t> Columns(const Query* query) {
  std::vector<std::int32_t> result;
  const queue_element* element = query->attributes.head;
  for (; element != nullptr; element = element->next) {
    result.push_back(reinterpret_cast<const attribute_list_entry*>(element)->attribute);
  }
  return result;
}

// The element that a query got last.
inline const Tlv* LastElement(const Query* query) {
  return query->event->tlvs[query->event->pak->tlv_count - 1];
}

// The wire form of an element of a query.
inline Bytes Wire(const Tlv* tlv) {
  Bytes result(vt_get_tlv_size(tlv));
  EXPECT_EQ(cv_update_raw_buf_from_tlv(tlv, result.data()), result.size());
  return result;
}

// FillTo adds one opaque element, so that the elements of the query take exactly total bytes.
inline void FillTo(Query* query, std::uint32_t total) {
  const std::uint32_t used = vt_get_total_tlvs_data_size(query->event);
  ASSERT_LE(used + 12, total);
  const Bytes filling(total - used, 0xEE);
  ASSERT_EQ(cv_add_tlv(query->event, 0, total - used, filling.data()), 0);
  ASSERT_EQ(vt_get_total_tlvs_data_size(query->event), total);
}

// 192.168.1.7, port 7440: the socket address that a device header carries.
inline Bytes DeviceAddress() { return Hex("0200 1d10 c0a80107 8*00"); }

// An entry of an aggregate: the entity index and the value.
inline Bytes Entry(std::uint32_t entity, const Bytes& value = {}) { return U32(entity) + value; }

// A combined entry, wire fields in order.
struct Combined {
  std::uint32_t word = 0;
  std::int32_t caliber = 0;
  std::string_view name = "";
  std::string_view role = "";
  std::uint8_t units = 0;
  std::uint8_t level = 0;
  std::uint8_t importance = 0;
  std::string_view keywords = "";
  Bytes data;

  Bytes At(std::uint32_t entity) const {
    return Cat({U32(entity),
                U32(word),
                U32(static_cast<std::uint32_t>(caliber)),
                Counted(Text(name)),
                Counted(Text(role)),
                {units, level, importance},
                Counted(Text(keywords)),
                data});
  }
};

// An aggregated element of a base type.
inline Bytes Aggregate(std::uint32_t type, std::string_view device,
                       const std::vector<Bytes>& entries, const Bytes& address = DeviceAddress()) {
  Bytes value = DeviceHeader(device, address) + U32(static_cast<std::uint32_t>(entries.size()));
  for (const Bytes& entry : entries) value = std::move(value) + entry;
  return Element(0x80000000u | type, 0, value);
}

// A reply to a collect query.
inline PduImage ReplyWith(std::vector<Bytes> elements, std::int8_t shipment = 1) {
  PduImage image;
  image.shipment = static_cast<std::uint8_t>(shipment);
  image.elements = std::move(elements);
  return image;
}

// A signed reply with one usage value.
inline Bytes UsageReply(std::string_view device, std::uint32_t entity, std::uint8_t usage) {
  return ReplyWith({Aggregate(13, device, {Entry(entity, {0, usage})})}).Signed(SessionKey());
}

// AfterQuery is a peer's script: it reads the query, does the rest and closes.
inline ScriptedPeer::Script AfterQuery(ScriptedPeer::Script rest) {
  return [rest = std::move(rest)](PeerConnection& c) {
    c.ReadPdu();
    rest(c);
  };
}

// A signed message as the library decodes it.
inline EventPtr Decoded(const Bytes& wire) {
  const hmac_context key = Keyed(SessionKey());
  EventPtr event(cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(wire.size()), wire.data()));
  EXPECT_NE(event, nullptr);
  EXPECT_EQ(cv_unpack_event(event.get(), &key), 0);
  return event;
}

inline EventPtr Decoded(const PduImage& image) { return Decoded(image.Signed(SessionKey())); }

// A result set as collection begins with it.
inline ResultPtr EmptyResult(Query* query) {
  ResultPtr result(new_resultset());
  result->query = query;
  result->acks = static_cast<AckEntry*>(std::malloc(37008));
  result->naks = static_cast<AckEntry*>(std::malloc(37008));
  return result;
}

// A query with its columns and a result set that replies are folded into.
class Collection {
 public:
  explicit Collection(std::initializer_list<std::int32_t> attributes,
                      QueryCreator create = voltaris_createCollectQuery)
      : query_(create("office", 0)), result_(EmptyResult(query_.get())) {
    for (const std::int32_t attribute : attributes) {
      EXPECT_EQ(voltaris_addGetAttribute(query_.get(), attribute), 0);
    }
  }

  Query* query() { return query_.get(); }
  ResultSet* result() { return result_.get(); }

  void Process(const Bytes& wire) {
    const hmac_context key = Keyed(SessionKey());
    vtn_processReply(wire.data(), static_cast<std::int32_t>(wire.size()), result(), &key);
  }
  void Reply(const PduImage& image) { Process(image.Signed(SessionKey())); }
  void Reply(std::vector<Bytes> elements) { Reply(ReplyWith(std::move(elements))); }

 private:
  QueryPtr query_;
  ResultPtr result_;
};

// The next value of an attribute, or nothing when the call gives null; then the length that the
// call was given must be untouched.
inline std::optional<Bytes> Read(ResultRow* row, std::int32_t attribute) {
  std::uint32_t len = 0xABCDEF01;
  const void* const value = voltaris_getAttributeFromRowByType(row, attribute, &len);
  if (value == nullptr) {
    EXPECT_EQ(len, 0xABCDEF01) << "attribute " << attribute;
    return std::nullopt;
  }
  Bytes result(len);
  std::memcpy(result.data(), value, len);
  return result;
}

// Rows as text: "identity/index", identities cut at their first zero byte.
inline std::vector<std::string> RowNames(ResultSet* result) {
  std::vector<std::string> names;
  while (const ResultRow* const row = voltaris_getNextRow(result)) {
    const auto* const id = reinterpret_cast<const char*>(row->device->device.id.bytes);
    names.push_back(std::string(id, strnlen(id, 32)) + "/" + std::to_string(row->entity_index));
  }
  return names;
}

// SpoilErrno makes the log callback of the innermost LogCapture leave errno at 99.
class SpoilErrno {
 public:
  SpoilErrno() {
    inner_ = getLogCallback();
    Install(&SpoilErrno::Receive);
  }
  ~SpoilErrno() { Install(inner_); }
  SpoilErrno(const SpoilErrno&) = delete;
  SpoilErrno& operator=(const SpoilErrno&) = delete;

 private:
  static void Receive(std::uint32_t level, const char* text) {
    inner_(level, text);
    errno = 99;
  }
  static void Install(log_callback callback) {
    const std::uint32_t level = getLogLevel();
    setLogLevel(kSilent);
    setLogCallback(callback);
    setLogLevel(level);
  }

  static inline log_callback inner_ = nullptr;
};

}  // namespace vt::testing

#endif  // VT_TESTS_API_API_SUPPORT_H_
