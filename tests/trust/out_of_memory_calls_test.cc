// Every exported call without memory. Calls that allocate have each allocation failed, once and
// from there on: the status is the stated one, what they were given is untouched, nothing leaks.
// All others are held to allocate nothing. The list of exports says which calls there are, so that
// a new one cannot be left out.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/note.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

using TlvPtr = std::unique_ptr<Tlv, ReleaseWith<&vt_free_tlv_ptr>>;

// The names between "global:" and "local:" in the closed list of exports.
std::set<std::string> ExportedNames() {
  std::ifstream map(VT_TEST_DIR "/../cmake/vtapi.map");
  EXPECT_TRUE(map.good());
  std::set<std::string> names;
  std::string word;
  while (map >> word && word != "global:") {
  }
  while (map >> word && word != "local:") {
    EXPECT_EQ(word.back(), ';') << word;
    word.pop_back();
    names.insert(word);
  }
  return names;
}

std::set<std::string> covered;
std::size_t failed_in_turn = 0;

// Quiet makes a call that must not allocate and returns what it returns.
template <class Call>
auto Quiet(const char* name, Call call) {
  covered.insert(name);
  const AllocationCount count;
  const LiveBlocks live;
  if constexpr (std::is_void_v<decltype(call())>) {
    call();
    EXPECT_EQ(count.allocations(), 0u) << name;
    EXPECT_LE(live.count(), 0) << name;
  } else {
    const auto result = call();
    EXPECT_EQ(count.allocations(), 0u) << name;
    EXPECT_LE(live.count(), 0) << name;
    return result;
  }
}
#define QUIET(call, ...) Quiet(#call, [&] { return call(__VA_ARGS__); })

// Sweep fails each allocation of body, which makes the named call and releases what it made.
template <class Body>
void Sweep(const char* name, Body body) {
  SCOPED_TRACE(name);
  covered.insert(name);
  const std::size_t failed = SweepAllocationFailures([&](AllocationFault& fault) {
    const LiveBlocks live;
    {
      const FillAllocations fill;
      const LogCapture log(kInfo);
      body(fault);
    }
    EXPECT_EQ(live.count(), 0) << "blocks leaked";
  });
  EXPECT_GT(failed, 0u);
  failed_in_turn += failed;
}

// Prepared makes what a call needs with memory, whatever the fault.
template <class Make>
auto Prepared(Make make) {
  const AllocationFault::Pause pause;
  return make();
}

// ExpectOutcome holds what a call returned against what is stated for it without memory and with.
// As an argument, the call is over before the fault is asked.
template <class T>
void ExpectOutcome(const AllocationFault& fault, T outcome, T without, T with) {
  EXPECT_EQ(outcome, fault.hit() ? without : with);
}

// The calls that read a value into a new block: null with status 1, the count of bytes consistent.
template <class T, class Unpack, class Release, class Pack>
void SweepUnpack(const char* name, Unpack unpack, Release release, Pack pack, const Bytes& wire) {
  Sweep(name, [&](AllocationFault& fault) {
    std::uint32_t consumed = 77;
    auto remaining = static_cast<std::int32_t>(wire.size());
    std::uint32_t status = 77;
    T* const value = unpack(wire.data(), &consumed, &remaining, &status);
    EXPECT_EQ(value == nullptr, fault.hit());
    EXPECT_EQ(status, fault.hit() ? 1u : 0u);
    EXPECT_EQ(consumed + static_cast<std::uint32_t>(remaining), wire.size());
    if (value == nullptr) return;
    EXPECT_EQ(remaining, 0);
    Bytes again(wire.size());
    EXPECT_EQ(pack(again.data(), value), wire.size());
    EXPECT_EQ(again, wire);
    release(value);
  });
}

// The calls that copy a value into a new block.
template <class T, class Clone, class Release, class Pack>
void SweepClone(const char* name, Clone clone, Release release, Pack pack, const T* value,
                const Bytes& wire) {
  Sweep(name, [&](AllocationFault& fault) {
    std::uint32_t status = 77;
    auto* const copy = clone(value, &status);
    EXPECT_EQ(copy == nullptr, fault.hit());
    EXPECT_EQ(status, fault.hit() ? 1u : 0u);
    if (copy == nullptr) return;
    Bytes again(wire.size());
    EXPECT_EQ(pack(again.data(), copy), wire.size());
    EXPECT_EQ(again, wire);
    release(copy);
  });
}

#define SWEEP_UNPACK(T, name, release, pack, wire) \
  SweepUnpack<T>("vt_unpack_" #name "_ptr", vt_unpack_##name##_ptr, release, pack, wire)
#define SWEEP_CLONE(name, release, pack, value, wire) \
  SweepClone("vt_clone_" #name "_ptr", vt_clone_##name##_ptr, release, pack, value, wire)

template <class T, class Unpack>
void ExpectRead(Unpack unpack, const Bytes& wire) {
  T value;
  std::uint32_t consumed = 0;
  auto remaining = static_cast<std::int32_t>(wire.size());
  std::uint32_t status = 77;
  unpack(wire.data(), &value, &consumed, &remaining, &status);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(consumed, wire.size());
}
#define QUIET_UNPACK(T, name, wire) \
  Quiet("vt_unpack_" #name, [&] { ExpectRead<T>(vt_unpack_##name, wire); })

template <class T>
Bytes QuietPack(const char* name, std::uint32_t (*pack)(void*, const T*), const T& value) {
  Bytes wire(256);
  wire.resize(Quiet(name, [&] { return pack(wire.data(), &value); }));
  return wire;
}
#define QUIET_PACK(name, value) QuietPack("vt_pack_" #name, vt_pack_##name, value)

#define COVER_SCALAR(T, name, number)                             \
  do {                                                            \
    const T value = (number);                                     \
    const Bytes wire = QUIET_PACK(name, value);                   \
    QUIET_UNPACK(T, name, wire);                                  \
    SWEEP_UNPACK(T, name, vt_free_ptr, vt_pack_##name, wire);     \
    SWEEP_CLONE(name, vt_free_ptr, vt_pack_##name, &value, wire); \
  } while (0)

void CoverScalars() {
  COVER_SCALAR(std::int8_t, int8, -3);
  COVER_SCALAR(std::uint8_t, uint8, 200);
  COVER_SCALAR(std::uint16_t, uint16, 50000);
  COVER_SCALAR(std::int32_t, int32, -70000);
  COVER_SCALAR(std::uint32_t, uint32, 0x80000001u);
  COVER_SCALAR(std::int32_t, long, -70001);
  const std::int32_t yes = 1;
  QUIET_UNPACK(std::int32_t, boolean, QUIET_PACK(boolean, yes));
  QUIET(vt_free_ptr, nullptr);
}

// A block that a call reads or copies: null and status 1, or the text "abc".
void ExpectAbc(const AllocationFault& fault, void* block, std::uint32_t status, std::size_t size) {
  EXPECT_EQ(block == nullptr, fault.hit());
  EXPECT_EQ(status, fault.hit() ? 1u : 0u);
  if (block != nullptr) {
    EXPECT_EQ(std::memcmp(block, "abc", size), 0);
  }
  vt_free_ptr(block);
}

void CoverTextsAndBlocks() {
  const std::uint8_t counted[] = {0, 0, 0, 3, 'a', 'b', 'c'};
  std::uint8_t wire[7];
  std::uint32_t consumed = 0;
  std::int32_t remaining = 0;
  std::uint32_t status = 77;
  EXPECT_EQ(QUIET(vt_pack_string_tlv, wire, "abc"), 3u);
  EXPECT_EQ(QUIET(vt_pack_string, wire, "abc"), 7u);
  EXPECT_EQ(QUIET(vt_pack_void_tlv, wire, "abc", 3), 3u);
  EXPECT_EQ(QUIET(vt_pack_void, wire, "abc", 3), 7u);

  Sweep("vt_unpack_string_tlv_ptr", [&](AllocationFault& fault) {
    remaining = 3;
    char* const text = vt_unpack_string_tlv_ptr("abc", 3, &consumed, &remaining, &status);
    EXPECT_EQ(consumed + static_cast<std::uint32_t>(remaining), 3u);
    ExpectAbc(fault, text, status, 4);
  });
  Sweep("vt_unpack_string_ptr", [&](AllocationFault& fault) {
    remaining = 7;
    char* const text = vt_unpack_string_ptr(counted, &consumed, &remaining, &status);
    EXPECT_EQ(consumed + static_cast<std::uint32_t>(remaining), 7u);
    ExpectAbc(fault, text, status, 4);
  });
  Sweep("vt_clone_string", [&](AllocationFault& fault) {
    char* const text = vt_clone_string("abc", &status);
    ExpectAbc(fault, text, status, 4);
  });
  Sweep("vt_unpack_void_tlv_ptr", [&](AllocationFault& fault) {
    remaining = 3;
    void* const block = vt_unpack_void_tlv_ptr("abc", 3, &consumed, &remaining, &status);
    EXPECT_EQ(consumed + static_cast<std::uint32_t>(remaining), 3u);
    ExpectAbc(fault, block, status, 3);
  });
  Sweep("vt_unpack_void_ptr", [&](AllocationFault& fault) {
    std::int32_t length = 77;
    remaining = 7;
    void* const block = vt_unpack_void_ptr(counted, &length, &consumed, &remaining, &status);
    EXPECT_EQ(length, 3);
    EXPECT_EQ(consumed + static_cast<std::uint32_t>(remaining), 7u);
    ExpectAbc(fault, block, status, 3);
  });
  Sweep("vt_clone_void_ptr", [&](AllocationFault& fault) {
    void* const block = vt_clone_void_ptr("abc", 3, &status);
    ExpectAbc(fault, block, status, 3);
  });
}

// The calls that copy into a caller's record: without memory it is left zero-filled.
template <class T, class Clone, class Release, class Pack>
void SweepCloneInto(const char* name, Clone clone, Release release, Pack pack, const T& value,
                    const Bytes& wire) {
  Sweep(name, [&](AllocationFault& fault) {
    T copy;
    std::memset(&copy, 0xA5, sizeof copy);
    std::uint32_t status = 77;
    ExpectOutcome(fault, clone(&value, &copy, &status), 1u, 0u);
    EXPECT_EQ(status, fault.hit() ? 1u : 0u);
    if (fault.hit()) {
      EXPECT_EQ(HostBytes(copy), Bytes(sizeof copy, 0));
    } else {
      Bytes again(wire.size());
      EXPECT_EQ(pack(again.data(), &copy), wire.size());
      EXPECT_EQ(again, wire);
    }
    release(&copy);
  });
}

// The calls that read into a caller's record: without memory no owned part is left in it.
template <class T, class Unpack, class Release, class Pack>
void SweepUnpackInto(const char* name, Unpack unpack, Release release, Pack pack,
                     const Bytes& wire) {
  Sweep(name, [&](AllocationFault& fault) {
    T value;
    std::memset(&value, 0xA5, sizeof value);
    std::uint32_t consumed = 0;
    auto remaining = static_cast<std::int32_t>(wire.size());
    std::uint32_t status = 77;
    unpack(wire.data(), &value, &consumed, &remaining, &status);
    EXPECT_EQ(status, fault.hit() ? 1u : 0u);
    EXPECT_EQ(consumed + static_cast<std::uint32_t>(remaining), wire.size());
    if (!fault.hit()) {
      Bytes again(wire.size());
      EXPECT_EQ(pack(again.data(), &value), wire.size());
      EXPECT_EQ(again, wire);
    }
    const LiveBlocks live;
    release(&value);
    if (fault.hit()) {
      EXPECT_EQ(live.count(), 0) << "something was left";
    }
  });
}

void CoverIdentities() {
  const corvane_id id = {{1, 2, 3}};
  const Bytes id_wire = QUIET_PACK(corvane_id, id);
  QUIET_UNPACK(corvane_id, corvane_id, id_wire);
  SWEEP_UNPACK(corvane_id, corvane_id, vt_free_ptr, vt_pack_corvane_id, id_wire);

  std::uint32_t status = 77;
  const sender_id sender = {{{4, 5, 6}}, 7};
  const Bytes sender_wire = QUIET_PACK(sender_id, sender);
  EXPECT_EQ(QUIET(vt_get_sender_id_size, &sender), 36u);
  SWEEP_UNPACK(sender_id, sender_id, vt_free_ptr, vt_pack_sender_id, sender_wire);
  SWEEP_CLONE(sender_id, vt_free_ptr, vt_pack_sender_id, &sender, sender_wire);
  sender_id sender_copy;
  EXPECT_EQ(QUIET(vt_clone_sender_id, &sender, &sender_copy, &status), 0u);

  const event_id event = {8, {{9, 10}}};
  const Bytes event_wire = QUIET_PACK(event_id, event);
  EXPECT_EQ(QUIET(vt_get_event_id_size, &event), 36u);
  SWEEP_UNPACK(event_id, event_id, vt_free_ptr, vt_pack_event_id, event_wire);
  SWEEP_CLONE(event_id, vt_free_ptr, vt_pack_event_id, &event, event_wire);
  event_id event_copy;
  EXPECT_EQ(QUIET(vt_clone_event_id, &event, &event_copy, &status), 0u);
}

void CoverStructures() {
  char text[] = "text";
  char other[] = "other text";
  std::uint8_t data[] = {1, 2, 3, 4, 5};
  const device_header device = {{{1}}, sizeof data, data};
  const Bytes device_wire = QUIET_PACK(deviceheader, device);
  EXPECT_EQ(QUIET(vt_get_deviceheader_size, &device), device_wire.size());
  SweepUnpackInto<device_header>("vt_unpack_deviceheader", vt_unpack_deviceheader,
                                 vt_free_deviceheader, vt_pack_deviceheader, device_wire);
  SweepCloneInto("vt_clone_deviceheader", vt_clone_deviceheader, vt_free_deviceheader,
                 vt_pack_deviceheader, device, device_wire);
  QUIET(vt_free_deviceheader, nullptr);

  const usage_cmn_hdr usage = {1, -2, text, other, 3, 4, 5, text};
  const Bytes usage_wire = QUIET_PACK(usage_cmn_hdr, usage);
  EXPECT_EQ(QUIET(vt_get_usage_cmn_hdr_size, &usage), usage_wire.size());
  SweepUnpackInto<usage_cmn_hdr>("vt_unpack_usage_cmn_hdr", vt_unpack_usage_cmn_hdr,
                                 vt_free_usage_cmn_hdr, vt_pack_usage_cmn_hdr, usage_wire);
  SweepCloneInto("vt_clone_usage_cmn_hdr", vt_clone_usage_cmn_hdr, vt_free_usage_cmn_hdr,
                 vt_pack_usage_cmn_hdr, usage, usage_wire);
  QUIET(vt_free_usage_cmn_hdr, nullptr);

  const alarm_value alarm = {1, 2, 3, -4, -5};
  const Bytes alarm_wire = QUIET_PACK(alarm, alarm);
  EXPECT_EQ(QUIET(vt_get_alarm_size, &alarm), alarm_wire.size());
  SWEEP_UNPACK(alarm_value, alarm, vt_free_ptr, vt_pack_alarm, alarm_wire);
  SWEEP_CLONE(alarm, vt_free_ptr, vt_pack_alarm, &alarm, alarm_wire);

  const recurrence recur = {text, 1, 2, 3};
  const Bytes recur_wire = QUIET_PACK(recurrence, recur);
  EXPECT_EQ(QUIET(vt_get_recurrence_size, &recur), recur_wire.size());
  SWEEP_UNPACK(recurrence, recurrence, vt_free_recurrence_ptr, vt_pack_recurrence, recur_wire);
  SWEEP_CLONE(recurrence, vt_free_recurrence_ptr, vt_pack_recurrence, &recur, recur_wire);
  QUIET(vt_free_recurrence_ptr, nullptr);

  const neighbor ngbr = {0, {{6}}, other, sizeof data, data, 1, {}};
  const Bytes ngbr_wire = QUIET_PACK(neighbor, ngbr);
  EXPECT_EQ(QUIET(vt_get_neighbor_size, &ngbr), ngbr_wire.size());
  SWEEP_UNPACK(neighbor, neighbor, vt_free_neighbor_ptr, vt_pack_neighbor, ngbr_wire);
  SWEEP_CLONE(neighbor, vt_free_neighbor_ptr, vt_pack_neighbor, &ngbr, ngbr_wire);
  QUIET(vt_free_neighbor_ptr, nullptr);

  const delta_vector deltas = {{-1, 2, -3}};
  const Bytes deltas_wire = QUIET_PACK(delta_vector, deltas);
  QUIET_UNPACK(delta_vector, delta_vector, deltas_wire);
  SWEEP_UNPACK(delta_vector, delta_vector, vt_free_ptr, vt_pack_delta_vector, deltas_wire);

  const usage_vector usages = {{1, 2, 3}};
  const Bytes usages_wire = QUIET_PACK(usage_vector, usages);
  QUIET_UNPACK(usage_vector, usage_vector, usages_wire);
  SWEEP_UNPACK(usage_vector, usage_vector, vt_free_ptr, vt_pack_usage_vector, usages_wire);
}

void CoverElements() {
  for (const TlvVector& vector : AllVectors()) {
    SCOPED_TRACE(vector);
    const Bytes wire = Hex(vector.wire);
    HeapBytes exact(wire);
    Sweep("cv_create_tlv_from_raw_buf", [&](AllocationFault& fault) {
      std::uint8_t* cursor = exact.data();
      auto remaining = static_cast<std::int32_t>(wire.size());
      const TlvPtr tlv(cv_create_tlv_from_raw_buf(&remaining, &cursor));
      EXPECT_EQ(tlv == nullptr, fault.hit());
      EXPECT_EQ(remaining, 0);
      EXPECT_EQ(cursor - exact.data(), fault.hit() ? 0 : static_cast<std::ptrdiff_t>(wire.size()));
      if (tlv == nullptr) return;
      Bytes again(wire.size());
      EXPECT_EQ(QUIET(vt_get_tlv_size, tlv.get()), wire.size());
      EXPECT_EQ(QUIET(cv_update_raw_buf_from_tlv, tlv.get(), again.data()), wire.size());
      EXPECT_EQ(again, wire);
    });

    std::uint8_t* begin = exact.data();
    auto size = static_cast<std::int32_t>(wire.size());
    const TlvPtr original(cv_create_tlv_from_raw_buf(&size, &begin));
    ASSERT_NE(original, nullptr);
    if (original->value == nullptr) continue;  // nothing to copy
    const std::uint32_t length = original->length - VT_TLV_HEADER_SIZE;
    Sweep("vt_clone_tlv_ptr", [&](AllocationFault& fault) {
      std::uint32_t status = 77;
      const TlvPtr copy(Prepared([] { return static_cast<Tlv*>(std::calloc(1, sizeof(Tlv))); }));
      *copy = {original->type, original->length, original->qualifier, nullptr};
      copy->value = vt_clone_tlv_ptr(original->type, length, original->value, &status);
      EXPECT_EQ(copy->value == nullptr, fault.hit());
      EXPECT_EQ(status, fault.hit() ? 1u : 0u);
      if (!fault.hit()) {
        EXPECT_EQ(Wire(copy.get()), wire);
      }
    });
  }
  QUIET(vt_free_tlv_ptr, nullptr);
}

void CoverLogAndText() {
  const std::uint32_t level = QUIET(getLogLevel);
  QUIET(setLogLevel, level);
  std::FILE* const file = QUIET(getLogFile);
  QUIET(setLogFile, file == stdout ? nullptr : file);
  const std::uint32_t enabled = QUIET(getLogCallbackEnable);
  QUIET(enableLogCallback, enabled);
  QUIET(setLogCallback, QUIET(getLogCallback));
  EXPECT_STREQ(QUIET(voltaris_utl_getVersion), "-2.0.136");

  hmac_context context = {};
  std::uint8_t digest[20];
  char text[49];
  QUIET(hmac_shainit, &context, "key", 3);
  QUIET(hmac_sha_msg, &context, "abc", 3, digest);
  QUIET(hmac_shaupdate, &context, "abc", 3);
  QUIET(hmac_shafinal, digest, &context);
  QUIET(hmac_sha, "key", 3, "abc", 3, digest);
  QUIET(sha_hash, "a", 1, "bc", 2, digest);
  QUIET(sha1DigestToString, text, digest);
  QUIET(macAddressToString, text, digest);
  QUIET(voltaris_dump_digest, digest);
  QUIET(voltaris_dump_buf, digest, 20);
  {
    // Lines to a stream need no memory either.
    const FileLog log(kTrace);
    const AllocationFault fault = AllocationFault::FromNth(0);
    voltaris_dump_buf(digest, 20);
    EXPECT_EQ(log.Lines().size(), 3u);
  }
  QUIET(voltaris_utl_composeKey, "secret", 6, kIdentity, digest, 20);
  QUIET(voltaris_utl_composeNonce, "secret", 6, "data", 4, digest);

  std::uint8_t uuid[16];
  QUIET(uuidFromMacAddress, uuid, digest);
  QUIET(convertUuidString, text, uuid);
  QUIET(generateUuid, uuid);
  QUIET(newUUID, text);
  QUIET(voltaris_utl_createUuid, text);
  QUIET(voltaris_utl_createUuidFromMac, text, digest);
  QUIET(voltaris_utl_createUuidFromDetails, text, "ABCDEFGHIJKLMNOPQR", "123", "45678", "abcdef");
  QUIET(voltaris_idtos, text, kIdentity, 32);
  EXPECT_EQ(QUIET(corvane_id_cmp, kIdentity, kIdentity), 0);
}

int InOrder(void* existing, void* added) { return existing < added ? 1 : -1; }

void CoverQueues() {
  queue q = {};
  queue_element e[3] = {};
  QUIET(queue_init, &q, 10);
  EXPECT_EQ(QUIET(enqueue, &q, &e[0]), 1u);
  EXPECT_EQ(QUIET(m_enqueue, &q, &e[1]), 1u);
  EXPECT_EQ(QUIET(queryqueuedepth, &q), 2);
  EXPECT_EQ(QUIET(queryqueuesize, &q), 10);
  EXPECT_EQ(QUIET(peekqueuehead, &q), &e[0]);
  EXPECT_EQ(QUIET(peekqueuetail, &q), &e[1]);
  EXPECT_EQ(QUIET(checkqueue, &q, &e[1]), 1);
  EXPECT_EQ(QUIET(validqueue, &q, 1), 1);
  EXPECT_EQ(QUIET(dequeue, &q), &e[0]);
  EXPECT_EQ(QUIET(m_dequeue, &q), &e[1]);
  EXPECT_EQ(QUIET(requeue, &q, &e[0]), 1u);
  EXPECT_EQ(QUIET(m_requeue, &q, &e[1]), 1u);
  EXPECT_EQ(QUIET(insqueue, &q, &e[2], &e[1]), 1u);
  EXPECT_EQ(QUIET(unqueue, &q, &e[1]), 1u);
  EXPECT_EQ(QUIET(m_unqueue, &q, &e[0]), 1u);
  EXPECT_EQ(QUIET(queue_insert_comp, &q, &e[0], InOrder), 1u);
  EXPECT_EQ(QUIET(remqueue, &q, &e[2], &e[0]), &e[2]);
  EXPECT_EQ(QUIET(unqueuenext, &q, &q), 1u);
}

#define COVER_ENUMERATION(word, LIST)                                           \
  EXPECT_EQ(QUIET(cv_util_s2e_##word, "no such name"), VT_UNKNOWN_NAME);        \
  if (const char* const name = QUIET(cv_util_e2s_##word, 1); name != nullptr) { \
    (void)QUIET(cv_util_s2e_##word, name);                                      \
  }

void CoverCatalogue() {
  CV_ENUMERATION_LIST(COVER_ENUMERATION)
  EXPECT_EQ(QUIET(vtn_getTypeLength, 13), 2u);
  EXPECT_EQ(QUIET(vtn_getTypeLength, 99), 255u);
  EXPECT_EQ(QUIET(cv_is_combo_tlv, 43), 1);
  EXPECT_EQ(QUIET(vt_get_tlv_enum_type, 8), 13);
  EXPECT_EQ(QUIET(vt_get_external_tlv_enum_type, 13), 8);
  EXPECT_EQ(QUIET(vt_get_internal_nanny_bit_type, 0), 5);
  EXPECT_EQ(QUIET(vt_get_class_enum_type, 1), 10);
  EXPECT_EQ(QUIET(vt_get_action_enum_type, 1, 2), 11);
}

EventPtr MadeEvent() {
  return Prepared([] { return EventPtr(corvane_create_my_packet()); });
}

std::uint32_t Held(const Event* ev) {
  std::uint32_t held = 0;
  for (std::uint32_t i = 0; i < ev->tlv_capacity; ++i) held += ev->tlvs[i] != nullptr ? 1 : 0;
  return held;
}

// Adding to a list of full slots: the status, and either the list as before or none at all.
template <class Add>
void SweepAdd(const char* name, std::uint32_t before, Add add) {
  Sweep(name, [&](AllocationFault& fault) {
    const EventPtr ev = MadeEvent();
    Prepared([&] {
      for (std::uint32_t i = 0; i < before; ++i) EXPECT_EQ(cv_add_tlv(ev.get(), 9, 16, "fan"), 0);
      return 0;
    });
    ExpectOutcome(fault, add(ev.get()), 1, 0);
    EXPECT_EQ(ev->pak->tlv_count, before + (fault.hit() ? 0 : 1));
    const bool lost_list = before % 16 == 0 && ev->tlvs == nullptr;
    EXPECT_TRUE(lost_list || Held(ev.get()) == before + (fault.hit() ? 0 : 1));
    if (lost_list) {
      EXPECT_TRUE(fault.hit());
    }
    // It can be added to again.
    fault.Disarm();
    const std::uint32_t held = Held(ev.get());
    EXPECT_EQ(cv_add_tlv(ev.get(), 9, 16, "fan"), 0);
    EXPECT_EQ(Held(ev.get()), held + 1);
    EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), Held(ev.get()) * 15);
  });
}

int MakePdu(Event* ev, const hmac_context* key) {
  return vtn_createPdu(ev, 1, 0, 10, 11, kIdentity, 3, key, 2);
}

void CoverOutgoingEvents() {
  const hmac_context key = Keyed(SessionKey());
  Sweep("corvane_create_my_packet", [](AllocationFault& fault) {
    const EventPtr ev(corvane_create_my_packet());
    EXPECT_EQ(ev == nullptr, fault.hit());
  });
  for (const std::uint32_t before : {0u, 1u, 15u, 16u, 32u}) {
    SweepAdd("cv_add_tlv", before, [](Event* ev) { return cv_add_tlv(ev, 9, 16, "fan"); });
    SweepAdd("cv_add_tlv_common", before,
             [](Event* ev) { return cv_add_tlv_common(ev, 7, 16, "fan", 1); });
  }
  Sweep("cv_pack_event", [&](AllocationFault& fault) {
    const EventPtr ev = MadeEvent();
    std::uint32_t bytes = 77;
    ExpectOutcome(fault, cv_pack_event(ev.get(), &bytes), 1, 0);
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(ev->state, fault.hit() ? CV_EVENT_STATE_FAILED : CV_EVENT_STATE_OK);
    EXPECT_EQ(ev->sec == nullptr, fault.hit());
    fault.Disarm();
    EXPECT_EQ(cv_pack_event(ev.get(), &bytes), 0) << "with memory again";
  });
  Sweep("vtn_createPdu", [&](AllocationFault& fault) {
    const EventPtr ev = MadeEvent();
    Prepared([&] { return cv_add_tlv(ev.get(), 9, 16, "fan"); });
    ExpectOutcome(fault, MakePdu(ev.get(), &key), 1, 0);
    EXPECT_EQ(ev->raw == nullptr, fault.hit());
    fault.Disarm();
    if (ev->raw == nullptr) {
      EXPECT_EQ(MakePdu(ev.get(), &key), 0) << "with memory again";
    }
    EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
    EXPECT_EQ(ev->raw_len, 80u + 15u);
  });

  Event* ev = corvane_create_my_packet();
  const std::uint8_t level = 3;
  ASSERT_EQ(cv_add_tlv_common(ev, 14, 13, &level, 1), 0);
  ASSERT_EQ(cv_add_tlv(ev, 41, 13, &level), 0);
  std::int32_t index = 0;
  std::uint32_t length = 0;
  QUIET(cv_set_common_hdr, ev);
  EXPECT_NE(QUIET(cv_get_next_tlv, ev, 14), nullptr);
  EXPECT_NE(QUIET(cv_get_next_tlv_value_common, ev, &index, 14, &length, 1), nullptr);
  EXPECT_EQ(QUIET(cv_get_timeout_val_from_query, ev), 3u);
  EXPECT_EQ(QUIET(vt_get_total_tlvs_data_size, ev), 26u);
  ASSERT_EQ(MakePdu(ev, &key), 0);
  QUIET(cv_pack_tlvs, ev);
  EXPECT_EQ(QUIET(vtn_validateMessageHeader, ev, &key), 1);
  {
    const LogCapture log(kTrace);
    const std::uint8_t* const raw = ev->raw;
    EXPECT_EQ(QUIET(vtn_getPduSize, ev->raw_hdr), 48u + 26u);
    EXPECT_EQ(QUIET(vtn_isValidPduAddress, ev->raw_hdr, raw), 0);
    QUIET(voltaris_dump_pdu, ev);
    QUIET(voltaris_dump_payload, ev->raw_hdr);
    QUIET(voltaris_dump_buf, raw, 80);
    QUIET(voltaris_dump_digest, raw + 12);
    EXPECT_GT(log.lines().size(), 10u);
  }
  QUIET(cv_free_tlvs, ev);
  QUIET(cv_free_data, ev);
  QUIET(corvane_try_gc, ev);
  ev = corvane_create_my_packet();
  ev->state = CV_EVENT_STATE_REPLY;
  QUIET(corvane_free_rply, ev);
  ev = corvane_create_my_packet();
  QUIET(cv_cleanup_event, ev);
  ev = corvane_create_my_packet();
  std::free(ev->pak);
  QUIET(vtn_releasePacket, ev);

  message_header message = {};
  security_header security = {};
  std::uint8_t wire[48] = {};
  QUIET(cv_corvane_event_host_to_nw, &message, wire);
  QUIET(cv_corvane_event_nw_to_host, wire, &message);
  QUIET(cv_corvane_secure_host_to_nw, &security, wire);
  QUIET(cv_corvane_secure_nw_to_host, wire, &security);
}

void CoverIncomingEvents() {
  const hmac_context key = Keyed(SessionKey());
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    const auto size = static_cast<std::int32_t>(message.wire.size());
    Sweep("cv_mkevent_from_rawbuffer", [&](AllocationFault& fault) {
      const EventPtr ev(cv_mkevent_from_rawbuffer(size, message.wire.data()));
      EXPECT_EQ(ev == nullptr, fault.hit());
    });
    Sweep("cv_unpack_event", [&](AllocationFault& fault) {
      const EventPtr ev =
          Prepared([&] { return EventPtr(cv_mkevent_from_rawbuffer(size, message.wire.data())); });
      const int status = cv_unpack_event(ev.get(), &key);
      EXPECT_EQ(status, fault.hit() ? 1 : 0);
      EXPECT_EQ(ev->pak_valid, fault.hit() ? 0u : 1u);
      EXPECT_NE(ev->raw == nullptr, status != 0 || ev->pak->tlv_count == 0);
      if (status == 0) {
        EXPECT_EQ(ev->state, CV_EVENT_STATE_OK);
        return;
      }
      EXPECT_EQ(ev->tlvs, nullptr);
      fault.Disarm();
      if (ev->pak != nullptr) {
        // Only without memory for the list of elements: counted to be none, the state as it was.
        EXPECT_EQ(ev->pak->tlv_count, 0);
        EXPECT_EQ(ev->state, CV_EVENT_STATE_OK);
        return;
      }
      EXPECT_EQ(ev->state, CV_EVENT_STATE_FAILED);
      EXPECT_EQ(cv_unpack_event(ev.get(), &key), 0) << "with memory again";
      EXPECT_EQ(ev->pak_valid, 1u);
    });
    Sweep("cv_unpack_tlvs", [&](AllocationFault& fault) {
      // An Event with its headers and its image, but no elements: an empty slot more than there
      // are, so that also a message without elements has something to allocate.
      const EventPtr ev = Prepared([&] {
        EventPtr made(cv_mkevent_from_rawbuffer(size, message.wire.data()));
        made->raw_hdr = made->raw + 32;
        made->pak = static_cast<message_header*>(std::calloc(1, sizeof(message_header)));
        cv_corvane_event_nw_to_host(made->raw_hdr, made->pak);
        made->tlv_capacity = made->pak->tlv_count + 1u;
        return made;
      });
      ev->tlvs = static_cast<Tlv**>(std::calloc(ev->tlv_capacity, sizeof(Tlv*)));
      if (ev->tlvs == nullptr) {
        ev->tlv_capacity = 0;
        return;
      }
      ExpectOutcome(fault, cv_unpack_tlvs(ev.get()), 1, 0);
      EXPECT_EQ(Held(ev.get()), fault.hit() ? 0u : ev->pak->tlv_count);
      fault.Disarm();
      if (fault.hit()) {
        EXPECT_EQ(cv_unpack_tlvs(ev.get()), 0) << "with memory again";
      }
    });
  }
}

const plain_entry* PlainEntry(const aggregated_value* aggregate, std::uint32_t i) {
  return static_cast<const plain_entry*>(aggregate->entries[i]);
}

void CoverAggregates() {
  char text[] = "text";
  std::uint8_t data[] = {1, 2, 3};
  const device_header device = {{{'d'}}, sizeof data, data};
  const usage_cmn_hdr usage = {1, 2, text, text, 3, 4, 5, text};
  const delta_vector value = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};  // enough for every type

  Sweep("vt_create_aggr_tlv", [&](AllocationFault& fault) {
    const EventPtr ev = MadeEvent();
    const Tlv* const tlv = vt_create_aggr_tlv(ev.get(), 13, &device);
    EXPECT_EQ(tlv == nullptr, fault.hit());
    EXPECT_EQ(ev->pak->tlv_count, fault.hit() ? 0 : 1);
  });
  Sweep("cv_get_next_tlv_by_dh", [&](AllocationFault& fault) {
    const EventPtr ev = MadeEvent();
    const Tlv* const tlv = cv_get_next_tlv_by_dh(ev.get(), 13, &device, 1);
    EXPECT_EQ(tlv == nullptr, fault.hit());
    fault.Disarm();
    EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0), tlv);
  });

  for (const std::uint32_t type :
       {7u, 9u, 48u, 10u, 12u, 14u, 16u, 17u, 13u, 38u, 51u, 39u, 36u, 43u, 44u, 45u}) {
    for (const std::uint32_t before : {0u, 1u, 15u, 16u}) {
      SCOPED_TRACE("type " + std::to_string(type) + " behind " + std::to_string(before));
      const void* const source = type <= 10 || type == 48 ? static_cast<const void*>(text) : &value;
      Sweep("cv_add_aggr_type_tlv", [&](AllocationFault& fault) {
        const EventPtr ev = MadeEvent();
        Prepared([&] {
          EXPECT_NE(vt_create_aggr_tlv(ev.get(), type, &device), nullptr);
          for (std::uint32_t i = 0; i < before; ++i) {
            EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), type, source, i, &device, &usage), 0);
          }
          return 0;
        });
        const auto* aggregate = static_cast<const aggregated_value*>(ev->tlvs[0]->value);
        ExpectOutcome(fault, cv_add_aggr_type_tlv(ev.get(), type, source, before, &device, &usage),
                      1, 0);
        if (fault.hit()) {
          // All are lost with an array that cannot grow.
          const bool lost = aggregate->entries == nullptr && aggregate->entry_count == 0;
          EXPECT_TRUE(aggregate->entry_count == before || (before % 16 == 0 && lost));
        } else {
          EXPECT_EQ(aggregate->entry_count, before + 1);
        }
        const std::uint32_t left = aggregate->entry_count;
        fault.Disarm();
        EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), type, source, 99, &device, &usage), 0);
        ASSERT_EQ(aggregate->entry_count, left + 1);
        EXPECT_EQ(PlainEntry(aggregate, left)->tag, 99u);
      });
    }
  }
  Sweep("cv_add_aggr_type_tlv", [&](AllocationFault& fault) {
    // An aggregate that cannot be made is no error.
    const EventPtr ev = MadeEvent();
    const int status = cv_add_aggr_type_tlv(ev.get(), 13, &value, 1, &device, nullptr);
    EXPECT_TRUE(status == 0 || (status == 1 && ev->pak->tlv_count == 1 && fault.hit()));
    if (!fault.hit()) {
      EXPECT_EQ(ev->pak->tlv_count, 1);
    }
  });

  for (const std::uint32_t before : {0u, 1u, 15u, 16u}) {
    Sweep("cv_aggr_ack", [&](AllocationFault& fault) {
      const EventPtr ev = MadeEvent();
      Prepared([&] {
        EXPECT_NE(vt_create_aggr_tlv(ev.get(), 42, &device), nullptr);
        for (std::uint32_t i = 0; i < before; ++i) EXPECT_EQ(cv_aggr_ack(ev.get(), i, &device), 0);
        return 0;
      });
      const auto* aggregate = static_cast<const aggregated_value*>(ev->tlvs[0]->value);
      ExpectOutcome(fault, cv_aggr_ack(ev.get(), before, &device), 1, 0);
      EXPECT_TRUE(aggregate->entry_count == before + (fault.hit() ? 0 : 1) ||
                  (before % 16 == 0 && fault.hit() && aggregate->entry_count == 0));
    });
  }

  for (const std::uint32_t type : {7u, 10u, 13u, 36u}) {
    Sweep("cv_populate_aggr_tlv_data", [&](AllocationFault& fault) {
      plain_entry entry = {};
      const void* const source = type <= 10 ? static_cast<const void*>(text) : &value;
      ExpectOutcome(fault, cv_populate_aggr_tlv_data(&entry, type, source, 5), 0, 1);
      EXPECT_EQ(entry.data == nullptr, fault.hit());
      vt_free_ptr(entry.data);
    });
  }
  for (const std::uint32_t type : {43u, 44u, 45u}) {
    Sweep("cv_populate_combo_tlv_data", [&](AllocationFault& fault) {
      combo_entry entry = {};
      ExpectOutcome(fault, cv_populate_combo_tlv_data(&entry, type, &value, 5, &usage), 0, 1);
      EXPECT_EQ(entry.data == nullptr, fault.hit());
      vt_free_ptr(entry.data);
      vt_free_usage_cmn_hdr(&entry.usage);
      vt_free_usage_cmn_hdr(&entry.usage);
    });
  }
}

void CoverKeywordsAndFilters() {
  char text[] = "a,b";
  QUIET(cv_wildcard_match, "lamp-1", "lamp*");
  QUIET(cv_comma_list2kwl, text);
  QUIET(vtn_string_in_whitelist, "lamp", 0);
  Sweep("corvane_conv_kw_list", [](AllocationFault& fault) {
    char* const list = corvane_conv_kw_list("a,b");
    EXPECT_EQ(list == nullptr, fault.hit());
    vt_free_ptr(list);
  });
  Sweep("cv_get_comma_sep_list", [](AllocationFault& fault) {
    char* const list = cv_get_comma_sep_list("a\0b", 4);
    EXPECT_EQ(list == nullptr, fault.hit());
    vt_free_ptr(list);
  });
  Sweep("createKeywordList", [](AllocationFault& fault) {
    const LogCapture log(kInfo);
    char** const list = createKeywordList(" a, b c");
    EXPECT_EQ(list == nullptr, fault.hit());
    const Lines copy = {{kError, "createKeywordList: strdup failed"}};
    const Lines items = {{kFatal, "createKeywordList: out of memory"}};
    EXPECT_TRUE(!fault.hit() || log.lines() == copy || log.lines() == items);
    EXPECT_EQ(log.lines().empty(), !fault.hit());
    QUIET(freeKeywordList, list);
  });

  corvane_endpoint endpoint = {};
  endpoint.name = "lamp-1";
  endpoint.role = "lamp";
  endpoint.keywords = "floor1,floor2";
  const EventPtr ev(corvane_create_my_packet());
  ASSERT_EQ(cv_add_tlv_common(ev.get(), 9, 12 + 6, "lamp*", 1), 0);
  ASSERT_EQ(cv_add_tlv_common(ev.get(), 10, 12 + 7, "floor3", 1), 0);
  // The keywords of the query are not the endpoint's; who cannot tell lets the query pass.
  const auto sweep = [&](const char* name, auto filter) {
    Sweep(name, [&](AllocationFault& fault) {
      const LogCapture log(kInfo);
      ExpectOutcome(fault, filter(), 1, 0);
      EXPECT_EQ(log.lines(), fault.hit()
                                 ? (Lines{{kError, "cv_keyword_filter: memory allocation failed"}})
                                 : Lines{});
    });
  };
  sweep("cv_keyword_filter", [&] { return cv_keyword_filter(ev.get(), &endpoint); });
  sweep("cv_sender_id_or_wildcard_filter",
        [&] { return cv_sender_id_or_wildcard_filter(ev.get(), &endpoint); });
  sweep("cv_exec_filter", [&] { return cv_exec_filter(ev.get(), &endpoint, 0); });
  QUIET(cv_role_filter, ev.get(), &endpoint);
  QUIET(cv_name_filter, ev.get(), &endpoint);
  QUIET(cv_category_filter, ev.get(), &endpoint);
}

void CoverTransport() {
  const Bytes message = SignedReply(RichReply());
  std::uint8_t buf[VT_MAX_PDU_SIZE];
  const auto buf_size = static_cast<std::int32_t>(sizeof buf);
  const LogCapture log(kTrace);
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int port = QUIET(bindTcpListener, listener, 0);
  ASSERT_GT(port, 0);
  ASSERT_EQ(listen(listener, 5), 0);
  SocketEndpoint endpoint = {};
  const int near_fd =
      QUIET(openConnectedSocket, &endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
  ASSERT_GE(near_fd, 0);
  std::uint32_t peer = 0;
  timeval timeout = {20, 0};
  const int far_fd = QUIET(waitfor_tcp_connect, listener, &peer, &timeout);
  ASSERT_GE(far_fd, 0);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(send(far_fd, message.data(), message.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(message.size()));
  }
  sockaddr_in sender = {};
  EXPECT_GT(QUIET(vtn_read_tcp_message, near_fd, buf, buf_size, &sender), 0);
  EXPECT_GT(QUIET(waitfor_tcp_message, near_fd, buf, buf_size, &timeout), 0);
  for (const int fd : {near_fd, far_fd, listener}) QUIET(closeSocket, fd);

  const int receiver = QUIET(createUdpSocket, 0);
  const int bound = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(QUIET(bindUdpSocket, bound, 0), bound);
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  ASSERT_EQ(getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &size), 0);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(sendto(bound, "abc", 3, 0, reinterpret_cast<sockaddr*>(&address), sizeof address), 3);
  EXPECT_EQ(QUIET(vtn_read_udp_message, receiver, buf, buf_size), 3);
  std::uint32_t needed = 0;
  EXPECT_EQ(QUIET(vtn_frame_message, buf, 3u, &needed), 0);
  QUIET(closeSocket, bound);
  QUIET(closeSocket, receiver);
  QUIET(vtn_getErrorCode);
}

// The calls that make a query.
template <class Create>
void SweepCreate(const char* name, Create create) {
  Sweep(name, [&](AllocationFault& fault) {
    const QueryPtr query(create());
    EXPECT_TRUE(query != nullptr || fault.hit());
    if (query == nullptr) return;
    // The domain may be missing; the query serves without it.
    EXPECT_EQ(query->event->pak->tlv_count, fault.hit() ? 0 : 1);
    fault.Disarm();
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  });
}

template <class Add>
void SweepQualifier(const char* name, std::int32_t tolerated, Add add) {
  Sweep(name, [&](AllocationFault& fault) {
    const QueryPtr query = Prepared([] { return QueryPtr(voltaris_createSetQuery("office", 1)); });
    const std::int32_t status = add(query.get());
    EXPECT_TRUE(status == (fault.hit() ? -1 : 0) || status == tolerated) << status;
    EXPECT_EQ(query->event->pak->tlv_count, status == 0 ? 2 : 1);
    fault.Disarm();
    EXPECT_EQ(add(query.get()), 0) << "with memory again";
  });
}

void CoverSessionsAndQueries() {
  const Bytes key = SessionKey();
  Sweep("new_session", [](AllocationFault& fault) {
    const SessionPtr session(new_session());
    EXPECT_EQ(session == nullptr, fault.hit());
  });
  Sweep("voltaris_createSession", [](AllocationFault& fault) {
    ExpectOutcome(fault, LoopbackSession(1) == nullptr, true, false);
  });
  Session* const session = new_session();
  EXPECT_EQ(QUIET(getNextSequenceNumber, session), 0u);
  QUIET(voltaris_closeSession, session);

  Sweep("new_query", [](AllocationFault& fault) {
    const QueryPtr query(new_query());
    EXPECT_EQ(query == nullptr, fault.hit());
  });
  SweepCreate("voltaris_createQuery", [] { return voltaris_createQuery(1, 3, "office", 1); });
  SweepCreate("voltaris_createSetQuery", [] { return voltaris_createSetQuery("office", 1); });
  SweepCreate("voltaris_createCollectQuery",
              [] { return voltaris_createCollectQuery("office", 1); });
  Sweep("voltaris_createSumQuery", [](AllocationFault& fault) {
    const QueryPtr query(voltaris_createSumQuery("office", 1));
    EXPECT_TRUE(query != nullptr || fault.hit());
  });
  Sweep("voltaris_addGetAttribute", [](AllocationFault& fault) {
    const QueryPtr query =
        Prepared([] { return QueryPtr(voltaris_createCollectQuery("office", 1)); });
    ExpectOutcome(fault, voltaris_addGetAttribute(query.get(), 8), -1, 0);
    fault.Disarm();
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  });
  Sweep("voltaris_addSetAttribute", [](AllocationFault& fault) {
    const QueryPtr query = Prepared([] { return QueryPtr(voltaris_createSetQuery("office", 1)); });
    ExpectOutcome(fault, voltaris_addSetAttribute(query.get(), 4, "lamp"), -1, 0);
    fault.Disarm();
    EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "lamp"), 0);
  });
  const sender_id id = {{{'i'}}, 1};
  SweepQualifier("voltaris_addQualifier", -1,
                 [](Query* query) { return voltaris_addQualifier(query, 4, "lamp"); });
  SweepQualifier("voltaris_addIdQualifier", -1,
                 [&](Query* query) { return voltaris_addIdQualifier(query, &id); });
  SweepQualifier("voltaris_addRoleQualifier", -1,
                 [](Query* query) { return voltaris_addRoleQualifier(query, "lamp"); });
  SweepQualifier("voltaris_addNameQualifier", -1,
                 [](Query* query) { return voltaris_addNameQualifier(query, "lamp"); });
  // Keywords travel as they are when they cannot be made into a list.
  SweepQualifier("voltaris_addKeyQualifier", 0,
                 [](Query* query) { return voltaris_addKeyQualifier(query, "a,b"); });
  Query* const query = voltaris_createCollectQuery("office", 1);
  ASSERT_EQ(voltaris_addGetAttribute(query, 8), 0);
  EXPECT_EQ(QUIET(vtn_get_tlv_index_from_query, query, 8), 0);
  QUIET(voltaris_releaseQuery, query);
}

void CoverFleets() {
  Sweep("voltaris_createFleet", [](AllocationFault& fault) {
    CollectionFleet* const fleet = voltaris_createFleet(1);
    fault.Disarm();
    EXPECT_EQ(fleet == nullptr, fault.hit());
    voltaris_releaseFleet(fleet);
  });
  const SessionPtr session = LoopbackSession(1);
  const ConnectHook refused([](int, const sockaddr*, socklen_t) -> std::optional<int> {
    errno = ECONNREFUSED;
    return -1;
  });
  Sweep("voltaris_addToFleet", [&](AllocationFault& fault) {
    const std::unique_ptr<CollectionFleet, ReleaseWith<& voltaris_releaseFleet>> fleet =
        Prepared([] {
          return std::unique_ptr<CollectionFleet, ReleaseWith<&voltaris_releaseFleet>>(
              voltaris_createFleet(1));
        });
    const QueryPtr query =
        Prepared([] { return QueryPtr(voltaris_createCollectQuery("office", 1)); });
    ReplyCollection* const added =
        voltaris_addToFleet(fleet.get(), session.get(), query.get(), nullptr, nullptr);
    fault.Disarm();
    if (added == nullptr) EXPECT_TRUE(fault.hit());
    EXPECT_EQ(voltaris_runFleet(fleet.get(), nullptr, nullptr), 0);
    EXPECT_EQ(voltaris_getFleetCounters(fleet.get())->ended, added != nullptr ? 1u : 0u);
    voltaris_releaseCollection(voltaris_takeEnded(fleet.get(), nullptr));
  });
  const QueryPtr query(voltaris_createCollectQuery("office", 1));
  CollectionFleet* const fleet = voltaris_createFleet(1);
  ASSERT_NE(voltaris_addToFleet(fleet, session.get(), query.get(), nullptr, nullptr), nullptr);
  EXPECT_NE(QUIET(voltaris_getFleetDescriptor, fleet), -1);
  EXPECT_EQ(QUIET(voltaris_getFleetTimeout, fleet), 0);
  EXPECT_EQ(QUIET(voltaris_getFleetCounters, fleet)->waiting, 1u);
  EXPECT_EQ(QUIET(voltaris_stepFleet, fleet), 0);
  EXPECT_EQ(QUIET(voltaris_runFleet, fleet, nullptr, nullptr), 0);
  QUIET(voltaris_cancelFleet, fleet);
  ReplyCollection* const ended = QUIET(voltaris_takeEnded, fleet, nullptr);
  EXPECT_NE(ended, nullptr);
  voltaris_releaseCollection(ended);
  QUIET(voltaris_releaseFleet, fleet);
}

void CoverExecutionAndCollection() {
  const Bytes reply = SignedReply(RichReply());
  Sweep("voltaris_startCollection", [](AllocationFault& fault) {
    const ConnectHook pending([](int, const sockaddr*, socklen_t) -> std::optional<int> {
      errno = EINPROGRESS;
      return -1;
    });
    const SessionPtr session = Prepared([] { return LoopbackSession(1); });
    const QueryPtr query =
        Prepared([] { return QueryPtr(voltaris_createCollectQuery("office", 1)); });
    ReplyCollection* const made = voltaris_startCollection(session.get(), query.get(), nullptr);
    fault.Disarm();
    if (made == nullptr) EXPECT_TRUE(fault.hit());
    voltaris_releaseCollection(made);
  });
  {
    const ConnectHook pending([](int, const sockaddr*, socklen_t) -> std::optional<int> {
      errno = EINPROGRESS;
      return -1;
    });
    const SessionPtr session = LoopbackSession(1);
    const QueryPtr query(voltaris_createCollectQuery("office", 1));
    ReplyCollection* const c = voltaris_startCollection(session.get(), query.get(), nullptr);
    ASSERT_NE(c, nullptr);
    EXPECT_NE(QUIET(voltaris_getCollectionDescriptor, c), -1);
    EXPECT_NE(QUIET(voltaris_getCollectionEvents, c), 0);
    EXPECT_GT(QUIET(voltaris_getCollectionTimeout, c), 0);
    EXPECT_EQ(QUIET(voltaris_stepCollection, c), VT_COLLECTION_PENDING);
    QUIET(voltaris_cancelCollection, c);
    EXPECT_EQ(QUIET(voltaris_getCollectionOutcome, c), VT_COLLECTION_CANCELLED);
    EXPECT_EQ(QUIET(voltaris_getCollectionErrno, c), ECANCELED);
    EXPECT_EQ(QUIET(voltaris_getCollectionCounters, c)->accepted, 0u);
    const ResultPtr result(QUIET(voltaris_takeCollectionResult, c));
    EXPECT_NE(result, nullptr);
    QUIET(voltaris_releaseCollection, c);
    EXPECT_STREQ(QUIET(voltaris_nameOutcome, VT_COLLECTION_CANCELLED), "cancelled");
  }

  Sweep("voltaris_execQuery", [](AllocationFault& fault) {
    const SocketHook sockets([](int, int, int) { return 1000000; });
    const ConnectHook connects([](int, const sockaddr*, socklen_t) { return 0; });
    const SendHook sends(
        [](int, const void*, std::size_t size, int) { return static_cast<ssize_t>(size); });
    const CloseHook closes([](int) { return 0; });
    const SessionPtr session = Prepared([] { return LoopbackSession(1); });
    const QueryPtr query =
        Prepared([] { return QueryPtr(voltaris_createCollectQuery("office", 1)); });
    const std::int32_t status = voltaris_execQuery(session.get(), query.get());
    EXPECT_TRUE(status == 0 || (status == -1 && fault.hit()));
    fault.Disarm();
    // Executed, or ready to be.
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), status == 0 ? -1 : 0);
  });

  for (const bool whole : {false, true}) {
    Sweep(whole ? "voltaris_queryResults" : "vtn_queryLoop", [&](AllocationFault& fault) {
      std::unique_ptr<ConnectedPair> pair;
      SessionPtr session;
      std::unique_ptr<Collection> collection;
      Prepared([&] {
        pair = std::make_unique<ConnectedPair>();
        pair->far().Send(reply + reply);
        pair->far().HalfClose();
        session = LoopbackSession(1);
        session->descriptor = pair->near().fd();
        collection = std::make_unique<Collection>(std::initializer_list<std::int32_t>{8, 4});
        return 0;
      });
      ResultPtr own;
      ResultSet* result = collection->result();
      if (whole) {
        own.reset(voltaris_queryResults(session.get(), collection->query()));
        result = own.get();
      } else {
        vtn_queryLoop(session.get(), result);
      }
      if (result == nullptr) {
        EXPECT_TRUE(fault.hit());
        return;
      }
      if (!fault.hit()) {
        EXPECT_EQ(voltaris_getErrorCode(result), 0);
        EXPECT_EQ(voltaris_getRowCount(result), 4);
        EXPECT_EQ(result->answers_received, 2);
      } else {
        EXPECT_TRUE(result->error_code == 12 || result->events.depth < 2);
      }
      EXPECT_EQ(static_cast<std::int32_t>(RowNames(result).size()), voltaris_getRowCount(result));
    });
  }

  Sweep("vtn_processReply", [&](AllocationFault& fault) {
    const auto collection = Prepared([] {
      return std::make_unique<Collection>(std::initializer_list<std::int32_t>{8, 4});
    });
    collection->Process(reply);
    EXPECT_TRUE(fault.hit() ? collection->result()->error_code == 12 ||
                                  collection->result()->events.depth == 0
                            : collection->result()->row_count == 4);
    fault.Disarm();
    collection->Process(reply);
    EXPECT_EQ(collection->result()->row_count, 4) << "with memory again";
  });
  Sweep("vtn_addResult", [&](AllocationFault& fault) {
    const auto collection = Prepared([] {
      return std::make_unique<Collection>(std::initializer_list<std::int32_t>{8, 4});
    });
    const EventPtr event = Prepared([] { return Decoded(RichReply()); });
    vtn_addResult(event.get(), collection->result());
    EXPECT_EQ(collection->result()->error_code, fault.hit() ? 12 : 0);
  });
}

void CoverResults() {
  Sweep("new_resultset", [](AllocationFault& fault) {
    ResultSet* const result = new_resultset();
    EXPECT_EQ(result == nullptr, fault.hit());
    if (result != nullptr) voltaris_releaseResult(result);
  });
  // The arrays grow at 1028 entries; the entry that finds no memory is lost alone.
  const AckEntry entry = {{'a'}, 1};
  const auto sweep = [&](const char* name, auto add, auto count) {
    Sweep(name, [&](AllocationFault& fault) {
      const QueryPtr query = Prepared([] { return QueryPtr(new_query()); });
      const ResultPtr result = Prepared([&] { return EmptyResult(query.get()); });
      for (int i = 0; i < 1028; ++i) add(result.get(), &entry);
      EXPECT_FALSE(fault.hit());
      add(result.get(), &entry);
      EXPECT_EQ(count(result.get()), fault.hit() ? 1028 : 1029);
      fault.Disarm();
      add(result.get(), &entry);
      EXPECT_EQ(count(result.get()), fault.hit() ? 1029 : 1030);
    });
  };
  sweep("add_ack", add_ack, voltaris_getAckCount);
  sweep("add_nack", add_nack, voltaris_getNakCount);
  Sweep("add_acks", [&](AllocationFault& fault) {
    const QueryPtr query = Prepared([] { return QueryPtr(new_query()); });
    const ResultPtr result = Prepared([&] { return EmptyResult(query.get()); });
    const EventPtr will = Prepared([] {
      return Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(1), Entry(2), Entry(3)})}, -1));
    });
    for (int i = 0; i < 1027; ++i) add_ack(result.get(), &entry);
    add_acks(will.get(), result.get());
    // The second entry and, if nothing else changes, the third one too find the array full.
    EXPECT_LE(result->ack_count, 1030);
    EXPECT_GE(result->ack_count, fault.hit() ? 1028 : 1030);
    EXPECT_EQ(result->answers_pending, 1);
  });

  const std::uint32_t index = 7;
  Sweep("vtn_checkQueue", [&](AllocationFault& fault) {
    queue q = {};
    std::int32_t created = 77;
    void* const node =
        vtn_checkQueue(&q, &index, ent_entidx_compare, sizeof(entity_node), &created);
    EXPECT_EQ(node == nullptr, fault.hit());
    EXPECT_EQ(created, fault.hit() ? 0 : 1);
    EXPECT_EQ(q.depth, fault.hit() ? 0 : 1);
    std::free(node);
  });
  const auto sweep_row = [&](const char* name, std::int32_t attributes, auto add) {
    Sweep(name, [&](AllocationFault& fault) {
      const auto collection = Prepared([] {
        return std::make_unique<Collection>(std::initializer_list<std::int32_t>{8, 9});
      });
      entity_node entity = {};
      add(&entity, collection->result());
      EXPECT_EQ(collection->result()->error_code, fault.hit() ? 12 : 0);
      EXPECT_EQ(entity.attributes.depth + static_cast<std::int32_t>(fault.failed()), attributes);
      while (void* const node = dequeue(&entity.attributes)) std::free(node);
    });
  };
  std::uint16_t watts = 60;
  combo_entry combo = {};
  combo.data = &watts;
  sweep_row("vtn_addTlvToResultRow", 1, [&](entity_node* entity, ResultSet* result) {
    vtn_addTlvToResultRow(entity, 8, 2, &watts, result);
  });
  // Usage, its units and the level.
  sweep_row("vtn_addComboTlvsToResultRow", 3, [&](entity_node* entity, ResultSet* result) {
    vtn_addComboTlvsToResultRow(entity, &combo, result, 43);
  });

  Collection collection({8, 4});
  collection.Process(SignedReply(RichReply(-1)));
  ResultSet* const result = collection.result();
  std::uint32_t length = 0;
  ResultRow* const row = QUIET(voltaris_getNextRow, result);
  ASSERT_NE(row, nullptr);
  for (std::int32_t attribute = 0; attribute <= 23; ++attribute) {
    (void)QUIET(voltaris_getAttributeFromRowByType, row, attribute, &length);
  }
  ResultCursor cursor;
  QUIET(voltaris_startCursor, &cursor, result);
  EXPECT_EQ(QUIET(voltaris_advanceCursor, &cursor), 1);
  EXPECT_EQ(QUIET(voltaris_countValues, &cursor, 1), 1u);
  EXPECT_NE(QUIET(voltaris_readValue, &cursor, 1, 0u, &length), nullptr);
  EXPECT_EQ(QUIET(voltaris_getRowCount, result), 4);
  EXPECT_EQ(QUIET(voltaris_getErrorCode, result), 0);
  EXPECT_EQ(QUIET(voltaris_getAckCount, result), 2);
  EXPECT_EQ(QUIET(voltaris_getNakCount, result), 0);
  EXPECT_NE(QUIET(voltaris_getAcks, result), nullptr);
  EXPECT_NE(QUIET(voltaris_getNaks, result), nullptr);
  const auto* const device = reinterpret_cast<const device_node*>(result->rows.head);
  EXPECT_EQ(QUIET(dh_id_compare, device, device->key), 1u);
  EXPECT_LE(QUIET(ent_entidx_compare, device->entities.head, &index), 2u);
  const Bytes payload = Element(8, 0, Text("room"));
  EXPECT_NE(
      QUIET(vtn_getDomainFromPayload, payload.data(), static_cast<std::uint32_t>(payload.size())),
      0u);
  const QueryPtr query(new_query());
  ResultSet* const empty = EmptyResult(query.get()).release();
  QUIET(voltaris_releaseResult, empty);
}

TEST(OutOfMemory, EveryExportedCallFailsAsStatedOrAllocatesNothing) {
  const std::pair<const char*, void (*)()> kLayers[] = {
      {"log, digests, identities as text", CoverLogAndText},
      {"queues", CoverQueues},
      {"catalogue and enumerations", CoverCatalogue},
      {"scalars", CoverScalars},
      {"texts and blocks", CoverTextsAndBlocks},
      {"identities", CoverIdentities},
      {"structures", CoverStructures},
      {"elements of every type", CoverElements},
      {"outgoing events", CoverOutgoingEvents},
      {"incoming events of every type", CoverIncomingEvents},
      {"aggregates", CoverAggregates},
      {"keywords and filters", CoverKeywordsAndFilters},
      {"sockets", CoverTransport},
      {"sessions and queries", CoverSessionsAndQueries},
      {"execution and collection", CoverExecutionAndCollection},
      {"fleets", CoverFleets},
      {"results", CoverResults},
  };
  std::size_t all = 0;
  for (const auto& [name, cover] : kLayers) {
    SCOPED_TRACE(name);
    failed_in_turn = 0;
    {
      const LogCapture log(kTrace);  // so that every line is formatted
      cover();
    }
    if (HasFailure()) return;
    Note() << name << ": " << failed_in_turn << " allocations failed in turn\n";
    all += failed_in_turn;
  }
  EXPECT_EQ(covered, ExportedNames());
  Note() << covered.size() << " exported calls, " << all
         << " allocations failed in turn, once and from there on\n";
}

}  // namespace
