// P11: building and signing a query, from its creation to its wire image, against the HMAC of its
// bytes.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/hmac_floor.h"
#include "bench/measure.h"
#include "bench/messages.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr std::size_t kQueries = 64;
constexpr std::size_t kAttributes = 8;
constexpr std::uint32_t kComm = 2;

constexpr std::array<std::int32_t, 16> kReadable = {
    VT_ATTRIBUTE_ROLE,         VT_ATTRIBUTE_NAME,           VT_ATTRIBUTE_KEYWORDS,
    VT_ATTRIBUTE_UNITS,        VT_ATTRIBUTE_USAGE,          VT_ATTRIBUTE_LEVEL,
    VT_ATTRIBUTE_IMPORTANCE,   VT_ATTRIBUTE_ENTITY_TYPE,    VT_ATTRIBUTE_NEIGHBOR_COUNT,
    VT_ATTRIBUTE_NANNY_VECTOR, VT_ATTRIBUTE_DELTA_VECTOR,   VT_ATTRIBUTE_USAGE_CALIBER,
    VT_ATTRIBUTE_USAGE_VECTOR, VT_ATTRIBUTE_USAGE_CATEGORY, VT_ATTRIBUTE_TEXT_21,
    VT_ATTRIBUTE_ERROR_STRING};

// Wish is what an application wants to ask.
struct Wish {
  std::string domain;
  std::array<std::int32_t, kAttributes> attributes;
  std::string role;
  std::string name;
  std::string keywords;
};

std::vector<Wish> MakeWishes() {
  Messages messages(20240618);
  std::vector<Wish> wishes(kQueries);
  for (Wish& wish : wishes) {
    std::array<std::int32_t, kReadable.size()> attributes = kReadable;
    messages.Shuffle(attributes);
    std::copy_n(attributes.begin(), kAttributes, wish.attributes.begin());
    wish.domain = messages.Text(messages.Between(3, 16));
    wish.role = messages.Text(messages.Between(3, 12)) + "*";
    wish.name = messages.Text(messages.Between(3, 20));
    wish.keywords =
        messages.Text(messages.Between(3, 8)) + "," + messages.Text(messages.Between(3, 8));
  }
  return wishes;
}

// Make does what an application and then the execution of a query do, up to its wire image.
Query* Make(const Wish& wish, Session* session) {
  constexpr std::uint8_t kTimeoutSeconds = 6;
  Query* const query = voltaris_createQuery(VT_QUERY, VT_QUERY_COLLECT, wish.domain.c_str(), 5);
  int failed = query == nullptr;
  for (const std::int32_t attribute : wish.attributes) {
    failed |= voltaris_addGetAttribute(query, attribute);
  }
  failed |= voltaris_addRoleQualifier(query, wish.role.c_str());
  failed |= voltaris_addNameQualifier(query, wish.name.c_str());
  failed |= voltaris_addKeyQualifier(query, wish.keywords.c_str());
  if (cv_get_timeout_val_from_query(query->event) == 0) {
    failed |= cv_add_tlv_common(query->event, VT_TLV_QUERY_TIMEOUT, VT_TLV_HEADER_SIZE + 1,
                                &kTimeoutSeconds, 0);
  }
  failed |= vtn_createPdu(query->event, query->priority, CV_SHIPMENT_SEND,
                          static_cast<std::uint32_t>(query->class_),
                          static_cast<std::uint32_t>(query->action), session->identity,
                          getNextSequenceNumber(session), &session->key, kComm);
  Require(failed == 0, "a query cannot be made");
  return query;
}

void BuildAndSign(benchmark::State& state) {
  const std::vector<Wish> wishes = MakeWishes();
  const SessionPtr session(voltaris_createSession("127.0.0.1", 1, kIdentity, Key().data(),
                                                  static_cast<std::int32_t>(Key().size())));
  Require(session != nullptr, "no session");
  const HmacFloor floor(Key());

  std::vector<Bytes> images;
  for (const Wish& wish : wishes) {
    const QueryPtr query(Make(wish, session.get()));
    const Event& event = *query->event;
    images.emplace_back(event.raw, event.raw + event.raw_len);
    HmacFloor::Digest digest;
    floor.Compute(Signed(images.back()), digest);
    Require(std::equal(digest.begin(), digest.end(), event.raw + VT_SECURITY_HEADER_SIZE),
            "the floor computes another digest");
  }

  const auto build = [&] {
    std::vector<QueryPtr> queries(wishes.size());
    // The release lies behind the wire image, and is not timed.
    return TimeNs([&] {
      for (std::size_t i = 0; i < wishes.size(); ++i) {
        queries[i].reset(Make(wishes[i], session.get()));
      }
    });
  };
  const auto sign = [&] {
    return TimeNs([&] {
      HmacFloor::Digest digest;
      for (const Bytes& image : images) {
        floor.Compute(Signed(image), digest);
        benchmark::DoNotOptimize(digest);
      }
    });
  };
  CompareInTurn(state, wishes.size(), build, sign);
}

BENCHMARK(BuildAndSign)->Name("P11/build_and_sign")->UseManualTime();

}  // namespace
