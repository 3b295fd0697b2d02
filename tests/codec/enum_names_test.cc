// The names of every enumeration, value by value, through the exported symbols as a client finds
// them. The table is written out here and shares nothing with the lists of the header.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vtapi.h"

namespace {

constexpr std::int32_t kUnknown = 0x0BADDA7A;

struct Row {
  const char* name;
  std::int32_t value;
  std::int32_t constant;  // what the header gives the name
};
#define VT_ROW(name, value) \
  { #name, value, static_cast < std::int32_t>(name) }

struct Enumeration {
  const char* word;
  std::vector<Row> rows;
};

const std::vector<Enumeration>& Enumerations() {
  static const std::vector<Enumeration> all = {
      {"class",
       {VT_ROW(CV_CLASS_QUERY, 10), VT_ROW(CV_CLASS_AGGREGATE, 11), VT_ROW(CV_CLASS_NOTIFY, 12),
        VT_ROW(CV_CLASS_REPLY, 13), VT_ROW(CV_CLASS_DISCOVERY, 14)}},
      {"type", {VT_ROW(CV_TYPE_MXRT, 10)}},
      {"application", {VT_ROW(CV_APPLICATION_CORVANE, 17)}},
      {"action_mxrt_corvane_query",
       {VT_ROW(CV_ACTION_MXRT_CORVANE_QUERY_SET, 10),
        VT_ROW(CV_ACTION_MXRT_CORVANE_QUERY_COLLECT, 11),
        VT_ROW(CV_ACTION_MXRT_CORVANE_QUERY_COMMIT, 12),
        VT_ROW(CV_ACTION_MXRT_CORVANE_QUERY_INVENTORY, 13)}},
      {"action_mxrt_corvane_aggregate",
       {VT_ROW(CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM, 10),
        VT_ROW(CV_ACTION_MXRT_CORVANE_AGGREGATE_AVERAGE, 11),
        VT_ROW(CV_ACTION_MXRT_CORVANE_AGGREGATE_MIN, 12),
        VT_ROW(CV_ACTION_MXRT_CORVANE_AGGREGATE_MAX, 13)}},
      {"action_mxrt_corvane_notify",
       {VT_ROW(CV_ACTION_MXRT_CORVANE_NOTIFY_CREATE, 10),
        VT_ROW(CV_ACTION_MXRT_CORVANE_NOTIFY_UPDATE, 11),
        VT_ROW(CV_ACTION_MXRT_CORVANE_NOTIFY_DELETE, 12)}},
      {"action_mxrt_corvane_reply",
       {VT_ROW(CV_ACTION_MXRT_CORVANE_REPLY_DONE, 10),
        VT_ROW(CV_ACTION_MXRT_CORVANE_REPLY_DIDNOT, 11)}},
      {"action_mxrt_corvane_discovery",
       {VT_ROW(CV_ACTION_MXRT_CORVANE_DISCOVERY_DISCOVERY_UPDATE, 10),
        VT_ROW(CV_ACTION_MXRT_CORVANE_DISCOVERY_KEEPALIVE, 11),
        VT_ROW(CV_ACTION_MXRT_CORVANE_DISCOVERY_DELETE, 12)}},
      {"shipment",
       {VT_ROW(CV_SHIPMENT_ACK_LATER, -4), VT_ROW(CV_SHIPMENT_ACK_ILL, -3),
        VT_ROW(CV_SHIPMENT_ACK_WONT, -2), VT_ROW(CV_SHIPMENT_ACK_WILL, -1),
        VT_ROW(CV_SHIPMENT_SEND, 0), VT_ROW(CV_SHIPMENT_REPLY_NO_ERROR, 1),
        VT_ROW(CV_SHIPMENT_REPLY_WITH_ERROR, 2)}},
      {"runtime_error",
       {VT_ROW(CV_RUNTIME_ERROR_NONE, 0), VT_ROW(CV_RUNTIME_ERROR_NO_MEMORY, 1),
        VT_ROW(CV_RUNTIME_ERROR_NOT_SUPPORTED, 2), VT_ROW(CV_RUNTIME_ERROR_OVERFLOW, 3),
        VT_ROW(CV_RUNTIME_ERROR_NO_SUCH_DATA, 4), VT_ROW(CV_RUNTIME_ERROR_CANT_DECRYPT, 5),
        VT_ROW(CV_RUNTIME_ERROR_SYSTEM_SERVICES, 6), VT_ROW(CV_RUNTIME_ERROR_NOT_IN_RANGE, 7),
        VT_ROW(CV_RUNTIME_ERROR_ENUM_BAD_MAGIC, 0x0BADDA7A)}},
      {"corvane_tlv_type",
       {VT_ROW(CV_CORVANE_TLV_TYPE_RESERVED, 0),
        VT_ROW(CV_CORVANE_TLV_TYPE_VLTRS_ID, 1),
        VT_ROW(CV_CORVANE_TLV_TYPE_ID, 2),
        VT_ROW(CV_CORVANE_TLV_TYPE_ENT_ID, 3),
        VT_ROW(CV_CORVANE_TLV_TYPE_AUTHORIZATION, 4),
        VT_ROW(CV_CORVANE_TLV_TYPE_ADDRESSEE, 5),
        VT_ROW(CV_CORVANE_TLV_TYPE_RECUR, 6),
        VT_ROW(CV_CORVANE_TLV_TYPE_ROLE, 7),
        VT_ROW(CV_CORVANE_TLV_TYPE_DOMAIN, 8),
        VT_ROW(CV_CORVANE_TLV_TYPE_NAME, 9),
        VT_ROW(CV_CORVANE_TLV_TYPE_KEYWORDS, 10),
        VT_ROW(CV_CORVANE_TLV_TYPE_ERROR_STRING, 11),
        VT_ROW(CV_CORVANE_TLV_TYPE_UNITS, 12),
        VT_ROW(CV_CORVANE_TLV_TYPE_USAGE, 13),
        VT_ROW(CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, 14),
        VT_ROW(CV_CORVANE_TLV_TYPE_LEVEL_PROVISIONED, 15),
        VT_ROW(CV_CORVANE_TLV_TYPE_IMPORTANCE, 16),
        VT_ROW(CV_CORVANE_TLV_TYPE_IMPORTANCE_I, 17),
        VT_ROW(CV_CORVANE_TLV_TYPE_IMPORTANCE_E, 18),
        VT_ROW(CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX, 19),
        VT_ROW(CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX_ID, 20),
        VT_ROW(CV_CORVANE_TLV_TYPE_IMPORTANCE_PARENT, 21),
        VT_ROW(CV_CORVANE_TLV_TYPE_ENTITY_TYPE, 22),
        VT_ROW(CV_CORVANE_TLV_TYPE_REPLY_TO, 23),
        VT_ROW(CV_CORVANE_TLV_TYPE_PROXY_ADDRESS, 24),
        VT_ROW(CV_CORVANE_TLV_TYPE_PROXY_PORT, 25),
        VT_ROW(CV_CORVANE_TLV_TYPE_PROXY_PROTO, 26),
        VT_ROW(CV_CORVANE_TLV_TYPE_PROXY_CLASS, 27),
        VT_ROW(CV_CORVANE_TLV_TYPE_NEIGHBOR, 28),
        VT_ROW(CV_CORVANE_TLV_TYPE_NEIGHBOR_COUNT, 29),
        VT_ROW(CV_CORVANE_TLV_TYPE_PARENT, 30),
        VT_ROW(CV_CORVANE_TLV_TYPE_HEARTBEAT, 31),
        VT_ROW(CV_CORVANE_TLV_TYPE_CLOCK, 32),
        VT_ROW(CV_CORVANE_TLV_TYPE_SENDER_CLOCK, 33),
        VT_ROW(CV_CORVANE_TLV_TYPE_NANNY_VECTOR, 34),
        VT_ROW(CV_CORVANE_TLV_TYPE_EVENT_ID, 35)}},
      {"entity_type",
       {VT_ROW(CV_ENTITY_TYPE_NONE, 0), VT_ROW(CV_ENTITY_TYPE_LOCAL, 1),
        VT_ROW(CV_ENTITY_TYPE_REMOTE, 2), VT_ROW(CV_ENTITY_TYPE_CORVANE, 3),
        VT_ROW(CV_ENTITY_TYPE_ADMIN_OFF, 4), VT_ROW(CV_ENTITY_TYPE_NON_POE, 5)}},
      {"ent_admin_status",
       {VT_ROW(CV_ENT_ADMIN_STATUS_DISABLE, 0), VT_ROW(CV_ENT_ADMIN_STATUS_ENABLE, 1)}},
      {"ent_ops_status",
       {VT_ROW(CV_ENT_OPS_STATUS_ERROR, -1), VT_ROW(CV_ENT_OPS_STATUS_DOWN, 0),
        VT_ROW(CV_ENT_OPS_STATUS_UP, 1)}},
      {"discovery_flags",
       {VT_ROW(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_NONE, 0),
        VT_ROW(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_STATIC, 1),
        VT_ROW(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_NBDP, 2),
        VT_ROW(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_UDP, 4)}},
      {"proxy_proto",
       {VT_ROW(CV_PROXY_PROTO_TCP, 10), VT_ROW(CV_PROXY_PROTO_UDP, 11),
        VT_ROW(CV_PROXY_PROTO_HTTP, 12), VT_ROW(CV_PROXY_PROTO_SNMP, 13)}},
      {"corvane_ngbr_type",
       {VT_ROW(CV_CORVANE_NGBR_TYPE_STATIC, 0), VT_ROW(CV_CORVANE_NGBR_TYPE_DYN_NBDP, 1),
        VT_ROW(CV_CORVANE_NGBR_TYPE_DYN_UDP, 2)}},
      {"corvane_ngbr_state",
       {VT_ROW(CV_CORVANE_NGBR_STATE_LOOSING, -2), VT_ROW(CV_CORVANE_NGBR_STATE_UNREACHABLE, -1),
        VT_ROW(CV_CORVANE_NGBR_STATE_DISCOVERING, 0), VT_ROW(CV_CORVANE_NGBR_STATE_OK, 1)}},
      {"corvane_usage_caliber",
       {VT_ROW(CV_CORVANE_USAGE_CALIBER_MAX, -2), VT_ROW(CV_CORVANE_USAGE_CALIBER_PRESUMED, -1),
        VT_ROW(CV_CORVANE_USAGE_CALIBER_UNKNOWN, 0), VT_ROW(CV_CORVANE_USAGE_CALIBER_ACTUAL, 1),
        VT_ROW(CV_CORVANE_USAGE_CALIBER_TRUSTED, 2)}},
      {"corvane_usage_category",
       {VT_ROW(CV_CORVANE_USAGE_PRODUCER, -1), VT_ROW(CV_CORVANE_USAGE_METER, 0),
        VT_ROW(CV_CORVANE_USAGE_CONSUMER, 1)}},
      {"_internal_etype",
       {VT_ROW(CV__INTERNAL_ETYPE_INTERFACE, 0), VT_ROW(CV__INTERNAL_ETYPE_OTHER, 1)}},
      {"nanny_vector", {VT_ROW(CV_NANNY_VECTOR_BIT_POS_POWER_LAST, 6)}},
      {"error_code_mxrt_corvane_query_set",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_NOT_SUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_WRONGTYPE, 2),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_OUTOFRANGE, 3),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_SWFAULT, 4),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_HWFAULT, 5)}},
      {"error_code_mxrt_corvane_query_collect",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COLLECT_NOT_SUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COLLECT_WRONGTYPE, 2),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COLLECT_OVERFLOW, 3)}},
      {"error_code_mxrt_corvane_query_commit",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COMMIT_UNSUPPORTED, 1)}},
      {"error_code_mxrt_corvane_query_inventory",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_INVENTORY_NSUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_QUERY_INVENTORY_NOTINDOMAIN, 2)}},
      {"error_code_mxrt_corvane_aggregate_sum",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_SUM_NOT_SUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_SUM_NOTINDOMAIN, 2),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_SUM_OVERFLOW, 3)}},
      {"error_code_mxrt_corvane_aggregate_average",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_AVERAGE_NOT_SUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_AVERAGE_OVERFLOW, 2),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_AVERAGE_OUTBOUND, 3)}},
      {"error_code_mxrt_corvane_aggregate_min",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MIN_NOT_SUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MIN_OVERFLOW, 2),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MIN_OUTBOUND, 3)}},
      {"error_code_mxrt_corvane_aggregate_max",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MAX_NOT_SUPPORTED, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MAX_OVERFLOW, 2),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MAX_OUTBOUND, 3)}},
      {"error_code_mxrt_corvane_notify_create",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_CREATE_OVERFLOW, 1)}},
      {"error_code_mxrt_corvane_notify_update",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_UPDATE_OVERFLOW, 1)}},
      {"error_code_mxrt_corvane_notify_delete",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_DELETE_CANT, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_DELETE_NOENTRY, 2)}},
      {"error_code_mxrt_corvane_reply_done",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DONE_WITHERR, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DONE_WITHEXP, 2)}},
      {"error_code_mxrt_corvane_reply_didnot",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DIDNOT_WITHERR, 1),
        VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DIDNOT_WITHEXP, 2)}},
      {"error_code_mxrt_corvane_discovery_discovery_update",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_DISCOVERY_UPDATE_UPDATEERR, 1)}},
      {"error_code_mxrt_corvane_discovery_keepalive",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_KEEPALIVE_HBMISSED, 1)}},
      {"error_code_mxrt_corvane_discovery_delete",
       {VT_ROW(CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_DELETE_DELMISSED, 1)}},
  };
  return all;
}

using ToName = const char* (*)(std::int32_t);
using ToValue = std::int32_t (*)(const char*);

template <class Function>
Function Exported(const char* prefix, const char* word) {
  return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, (std::string(prefix) + word).c_str()));
}

// Pair is the two look-ups of an enumeration.
struct Pair {
  explicit Pair(const Enumeration& e)
      : name(Exported<ToName>("cv_util_e2s_", e.word)),
        value(Exported<ToValue>("cv_util_s2e_", e.word)) {}
  ToName name;
  ToValue value;
};

bool HasPrefixMatch(const std::string& name) {
  return name == "CV_CORVANE_TLV_TYPE_RESERVED" || name == "CV_SHIPMENT_ACK_LATER" ||
         name == "CV_CORVANE_USAGE_CONSUMER" || name == "CV_CORVANE_USAGE_PRODUCER" ||
         name == "CV_CORVANE_USAGE_METER";
}

const Row* Find(const Enumeration& e, std::int32_t value) {
  for (const Row& row : e.rows) {
    if (row.value == value) return &row;
  }
  return nullptr;
}

TEST(EnumNames, ThereAreThirtyEightPairsAndEachIsExported) {
  EXPECT_EQ(Enumerations().size(), 38U);
  std::size_t found = 0;
  for (const Enumeration& e : Enumerations()) {
    SCOPED_TRACE(e.word);
    const Pair pair(e);
    EXPECT_NE(pair.name, nullptr);
    EXPECT_NE(pair.value, nullptr);
    found += (pair.name != nullptr ? 1U : 0U) + (pair.value != nullptr ? 1U : 0U);
  }
  EXPECT_EQ(found, 76U);
}

TEST(EnumNames, ExportedNamesAreThoseOfTheHeader) {
  EXPECT_STREQ(cv_util_e2s_class(10), "CV_CLASS_QUERY");
  EXPECT_EQ(cv_util_s2e_class("CV_CLASS_QUERY"), 10);
  EXPECT_STREQ(cv_util_e2s__internal_etype(0), "CV__INTERNAL_ETYPE_INTERFACE");
  EXPECT_EQ(cv_util_s2e__internal_etype("CV__INTERNAL_ETYPE_OTHER"), 1);
  EXPECT_STREQ(cv_util_e2s_error_code_mxrt_corvane_discovery_discovery_update(1),
               "CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_DISCOVERY_UPDATE_UPDATEERR");
}

TEST(EnumNames, ConstantsOfTheHeaderHaveTheirValues) {
  for (const Enumeration& e : Enumerations()) {
    for (const Row& row : e.rows) EXPECT_EQ(row.constant, row.value) << row.name;
  }
}

TEST(EnumNames, EveryValueHasItsName) {
  for (const Enumeration& e : Enumerations()) {
    const Pair pair(e);
    ASSERT_NE(pair.name, nullptr) << e.word;
    for (const Row& row : e.rows) EXPECT_STREQ(pair.name(row.value), row.name) << e.word;
  }
}

TEST(EnumNames, EveryNameHasItsValue) {
  for (const Enumeration& e : Enumerations()) {
    const Pair pair(e);
    ASSERT_NE(pair.value, nullptr) << e.word;
    for (const Row& row : e.rows) EXPECT_EQ(pair.value(row.name), row.value) << row.name;
  }
}

TEST(EnumNames, ValueWithoutNameIsNull) {
  for (const Enumeration& e : Enumerations()) {
    const Pair pair(e);
    ASSERT_NE(pair.name, nullptr) << e.word;
    for (std::int32_t value = -300; value <= 300; ++value) {
      if (Find(e, value) == nullptr) EXPECT_EQ(pair.name(value), nullptr) << e.word << value;
    }
    EXPECT_EQ(pair.name(INT32_MIN), nullptr) << e.word;
    EXPECT_EQ(pair.name(INT32_MAX), nullptr) << e.word;
    if (Find(e, kUnknown) == nullptr) EXPECT_EQ(pair.name(kUnknown), nullptr) << e.word;
  }
}

TEST(EnumNames, UnknownNameIsTheBadMagic) {
  for (const Enumeration& e : Enumerations()) {
    SCOPED_TRACE(e.word);
    const Pair pair(e);
    ASSERT_NE(pair.value, nullptr);
    EXPECT_EQ(pair.value(""), kUnknown);
    EXPECT_EQ(pair.value("CV_"), kUnknown);
    EXPECT_EQ(pair.value("nothing"), kUnknown);
    EXPECT_EQ(pair.value(nullptr), kUnknown);
    for (const Enumeration& other : Enumerations()) {
      if (&other == &e) continue;
      for (const Row& row : other.rows) EXPECT_EQ(pair.value(row.name), kUnknown) << row.name;
    }
  }
}

TEST(EnumNames, ShortenedNameIsUnknown) {
  for (const Enumeration& e : Enumerations()) {
    const Pair pair(e);
    ASSERT_NE(pair.value, nullptr);
    for (const Row& row : e.rows) {
      const std::string name = row.name;
      EXPECT_EQ(pair.value(name.substr(0, name.size() - 1).c_str()), kUnknown) << name;
      EXPECT_EQ(pair.value(name.substr(1).c_str()), kUnknown) << name;
    }
  }
}

// A longer name is another name, except for the five whose comparison ends with the constant.
TEST(EnumNames, LengthenedNameIsUnknownExceptForTheFivePrefixNames) {
  std::size_t prefixes = 0;
  for (const Enumeration& e : Enumerations()) {
    const Pair pair(e);
    ASSERT_NE(pair.value, nullptr);
    for (const Row& row : e.rows) {
      const std::string name = row.name;
      for (const char* more : {"X", "_", " ", "_AND_MORE"}) {
        EXPECT_EQ(pair.value((name + more).c_str()), HasPrefixMatch(name) ? row.value : kUnknown)
            << name << more;
      }
      prefixes += HasPrefixMatch(name) ? 1U : 0U;
    }
  }
  EXPECT_EQ(prefixes, 5U);
}

TEST(EnumNames, ReservedTlvTypeMatchesByPrefix) {
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_RESERVED"), 0);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_RESERVED_7"), 0);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_RESERVEDX"), 0);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_ID"), 2);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_IDX"), kUnknown);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_RESERVE"), kUnknown);
}

TEST(EnumNames, UsageCategoriesMatchByPrefix) {
  EXPECT_EQ(cv_util_s2e_corvane_usage_category("CV_CORVANE_USAGE_METERING"), 0);
  EXPECT_EQ(cv_util_s2e_corvane_usage_category("CV_CORVANE_USAGE_CONSUMERS"), 1);
  EXPECT_EQ(cv_util_s2e_corvane_usage_category("CV_CORVANE_USAGE_PRODUCER2"), -1);
  EXPECT_EQ(cv_util_s2e_corvane_usage_category("CV_CORVANE_USAGE_METE"), kUnknown);
}

TEST(EnumNames, LaterAcknowledgementMatchesByPrefixButNothingShorter) {
  EXPECT_EQ(cv_util_s2e_shipment("CV_SHIPMENT_ACK_LATER_ON"), -4);
  EXPECT_EQ(cv_util_s2e_shipment("CV_SHIPMENT_ACK_LATE"), kUnknown);
}

// These two are compared over more characters than they have, which is a whole match all the same.
TEST(EnumNames, NamesComparedBeyondTheirEndMatchWhole) {
  EXPECT_EQ(cv_util_s2e_shipment("CV_SHIPMENT_ACK_ILL"), -3);
  EXPECT_EQ(cv_util_s2e_shipment("CV_SHIPMENT_ACK_ILLX"), kUnknown);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_AUTHORIZATION"), 4);
  EXPECT_EQ(cv_util_s2e_corvane_tlv_type("CV_CORVANE_TLV_TYPE_AUTHORIZATIONS"), kUnknown);
}

TEST(EnumNames, ShipmentIsSigned) {
  EXPECT_STREQ(cv_util_e2s_shipment(-4), "CV_SHIPMENT_ACK_LATER");
  EXPECT_EQ(cv_util_e2s_shipment(3), nullptr);
  EXPECT_EQ(cv_util_e2s_shipment(252), nullptr);
}

TEST(EnumNames, CombinationOfFlagsHasNoName) {
  for (const std::int32_t flags : {3, 5, 6, 7}) {
    EXPECT_EQ(cv_util_e2s_discovery_flags(flags), nullptr) << flags;
  }
}

TEST(EnumNames, TlvTypesFromThirtySixOnHaveNoName) {
  for (std::int32_t type = 36; type <= 60; ++type) {
    EXPECT_EQ(cv_util_e2s_corvane_tlv_type(type), nullptr) << type;
  }
}

TEST(EnumNames, BadMagicIsANameAndTheUnknownValue) {
  EXPECT_STREQ(cv_util_e2s_runtime_error(kUnknown), "CV_RUNTIME_ERROR_ENUM_BAD_MAGIC");
  EXPECT_EQ(cv_util_s2e_runtime_error("CV_RUNTIME_ERROR_ENUM_BAD_MAGIC"), kUnknown);
  EXPECT_EQ(cv_util_s2e_runtime_error("CV_RUNTIME_ERROR_ENUM_BAD_MAGI"), kUnknown);
}

}  // namespace
