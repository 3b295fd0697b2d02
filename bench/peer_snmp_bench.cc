// P4: verifying and decoding a full reply against what net-snmp needs to verify and decode an
// SNMPv3 response (authNoPriv, HMAC-SHA1) with the same values.
//
// Each value of a row is a variable: texts are octet strings, numbers are integers, and devices are
// numbered, so that the names stay as short as those of any table with two indices. Our side has
// the longer identities and the addresses of the devices to decode as well. Both sides start at
// bytes as they were received, end with everything released, and run the same libcrypto.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bench/content.h"
#include "bench/measure.h"
#include "bench/net_snmp.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

char user_name[] = "bench";
std::array<u_char, 12> engine_id = {0x80, 0x00, 0x1f, 0x88, 0x04, 'b',
                                    'e',  'n',  'c',  'h',  '-',  '1'};

void* Copy(const void* bytes, std::size_t size) {
  void* const copy = std::malloc(size);
  Require(copy != nullptr, "no memory");
  return std::memcpy(copy, bytes, size);
}

// Clock sets what the receiver believes the sender's clock shows: messages that are more than 150
// seconds off are refused.
void SetEngineClock() {
  constexpr u_int kBoots = 1;
  constexpr u_int kSeconds = 1000;
  set_enginetime(engine_id.data(), engine_id.size(), kBoots, kSeconds, TRUE);
}

// Snmp is the receiver: it knows one user, by the key that our replies are signed with.
class Snmp {
 public:
  Snmp() {
    // Not init_snmp, which reads the configuration of the machine and makes folders for its own.
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE, "bench");
    snmp_sess_init(&session_);
    init_secmod();
    setup_engineID(nullptr, "bench-0");
    snmp_disable_log();
    session_.version = SNMP_VERSION_3;
    session_.securityModel = SNMP_SEC_MODEL_USM;

    usmUser* const user = usm_create_user();
    Require(user != nullptr, "no memory");
    user->name = strdup(user_name);
    user->secName = strdup(user_name);
    user->engineID = static_cast<u_char*>(Copy(engine_id.data(), engine_id.size()));
    user->engineIDLen = engine_id.size();
    std::free(user->authProtocol);
    user->authProtocol =
        static_cast<oid*>(Copy(usmHMACSHA1AuthProtocol, sizeof usmHMACSHA1AuthProtocol));
    user->authProtocolLen = OID_LENGTH(usmHMACSHA1AuthProtocol);
    user->authKey = static_cast<u_char*>(Copy(Key().data(), Key().size()));
    user->authKeyLen = Key().size();
    user->userStatus = RS_ACTIVE;
    Require(usm_add_user(user) != nullptr, "no user");
    SetEngineClock();
  }

  // Response returns a signed response.
  Bytes Response(const Content& content, const Shape& shape) {
    netsnmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_RESPONSE);
    Require(pdu != nullptr, "no memory");
    pdu->version = SNMP_VERSION_3;
    pdu->securityModel = SNMP_SEC_MODEL_USM;
    pdu->securityLevel = SNMP_SEC_LEVEL_AUTHNOPRIV;
    pdu->securityName = strdup(user_name);
    pdu->securityNameLen = std::strlen(user_name);
    pdu->securityEngineID = static_cast<u_char*>(Copy(engine_id.data(), engine_id.size()));
    pdu->securityEngineIDLen = engine_id.size();
    pdu->contextEngineID = static_cast<u_char*>(Copy(engine_id.data(), engine_id.size()));
    pdu->contextEngineIDLen = engine_id.size();
    pdu->contextName = strdup("");
    for (std::size_t device = 0; device < content.devices.size(); ++device) {
      for (const ContentRow& row : content.devices[device].rows) {
        AddRow(pdu, device, row, shape);
      }
    }
    std::size_t room = VT_MAX_PDU_SIZE;  // to begin with
    auto* packet = static_cast<u_char*>(std::malloc(room));
    std::size_t size = 0;
    // It is written from its end.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_REVERSE_ENCODE, 1);
    const int failed = snmp_build(&packet, &room, &size, &session_, pdu);
    Require(failed == 0, snmp_api_errstring(session_.s_snmp_errno));
    const Bytes response(packet + room - size, packet + room);
    std::free(packet);
    snmp_free_pdu(pdu);
    return response;
  }

  // Parse does what the library does with a message that it received, and returns the message, or
  // null for one that is refused. It blots out the digest in the bytes.
  netsnmp_pdu* Parse(Bytes& message) {
    netsnmp_pdu* const pdu = snmp_pdu_create(0);
    if (snmp_parse(nullptr, &session_, pdu, message.data(), message.size()) == 0) return pdu;
    Free(pdu);
    return nullptr;
  }

  // error tells why the last message was refused.
  [[nodiscard]] int error() const { return session_.s_snmp_errno; }

  static void Free(netsnmp_pdu* pdu) {
    static const snmp_secmod_def* const model = find_sec_mod(SNMP_SEC_MODEL_USM);
    if (pdu->securityStateRef != nullptr) {
      model->pdu_free_state_ref(pdu->securityStateRef);
      pdu->securityStateRef = nullptr;
    }
    snmp_free_pdu(pdu);
  }

 private:
  static void AddRow(netsnmp_pdu* pdu, std::size_t device, const ContentRow& row,
                     const Shape& shape) {
    for (std::size_t column = 0; column < kColumns; ++column) {
      // A table below the enterprise that is there for examples: its entry, the column, and the two
      // indices.
      const std::array<oid, 12> name = {1,     3, 6, 1,          4,          1,
                                        50000, 1, 1, column + 1, device + 1, row.entity};
      const Value& value = row.values[column];
      const bool text = shape[column].size == 0;
      const long number = value.number;
      Require(
          snmp_pdu_add_variable(pdu, name.data(), name.size(), text ? ASN_OCTET_STR : ASN_INTEGER,
                                text ? static_cast<const void*>(value.text.data()) : &number,
                                text ? value.text.size() : sizeof number) != nullptr,
          "a variable cannot be added");
    }
  }

  netsnmp_session session_{};
};

Snmp& TheSnmp() {
  static Snmp snmp;
  return snmp;
}

std::vector<Bytes> Responses() {
  std::vector<Bytes> responses;
  for (const Sample& sample : Samples()) {
    for (const Content& content : sample.contents) {
      responses.push_back(TheSnmp().Response(content, sample.shape));
    }
  }
  return responses;
}

// Holds a decoded variable against what was put in.
void CheckVariables(const netsnmp_pdu& pdu, const Content& content, const Shape& shape) {
  const netsnmp_variable_list* variable = pdu.variables;
  for (const ContentDevice& device : content.devices) {
    for (const ContentRow& row : device.rows) {
      for (std::size_t column = 0; column < kColumns; ++column) {
        Require(variable != nullptr, "a variable is missing");
        const Value& value = row.values[column];
        const bool same = shape[column].size == 0
                              ? std::string(reinterpret_cast<const char*>(variable->val.string),
                                            variable->val_len) == value.text
                              : *variable->val.integer == value.number;
        Require(same && variable->name[variable->name_length - 1] == row.entity,
                "a variable is another");
        variable = variable->next_variable;
      }
    }
  }
  Require(variable == nullptr, "there are more variables");
}

// What is measured has to check and to decode: a message with one bit changed is refused, wherever
// that is.
void CheckResponses(const std::vector<Bytes>& responses) {
  auto response = responses.begin();
  for (const Sample& sample : Samples()) {
    for (const Content& content : sample.contents) {
      Bytes intact = *response++;
      netsnmp_pdu* const pdu = TheSnmp().Parse(intact);
      Require(pdu != nullptr, "net-snmp refuses a response");
      CheckVariables(*pdu, content, sample.shape);
      Snmp::Free(pdu);
    }
  }
  for (const int from_end : {1, 100, 1000}) {
    Bytes changed = responses.front();
    changed.end()[-from_end] ^= 1;
    Require(TheSnmp().Parse(changed) == nullptr &&
                TheSnmp().error() == SNMPERR_USM_AUTHENTICATIONFAILURE,
            "net-snmp does not check the digest");
  }
}

// Nor are our replies taken in with a bit changed; what decodes them here is what collects them.
void CheckReplies() {
  const Sample& sample = Samples().front();
  Bytes changed = sample.replies.front();
  changed.back() ^= 1;
  const QueryPtr query = CollectQuery(sample.shape);
  ResultSet* const result = NewResult(query.get());
  vtn_processReply(changed.data(), static_cast<std::int32_t>(changed.size()), result,
                   &KeyContext());
  Require(voltaris_getRowCount(result) == 0, "the digest of a reply is not checked");
  Release(result);
}

double ParseAll(const std::vector<Bytes>& responses) {
  SetEngineClock();
  std::vector<Bytes> received = responses;
  return TimeNs([&] {
    for (Bytes& response : received) {
      netsnmp_pdu* const pdu = TheSnmp().Parse(response);
      Require(pdu != nullptr, "net-snmp refuses a response");
      Snmp::Free(pdu);
    }
  });
}

double DecodeAll() {
  return TimeNs([] {
    for (const Sample& sample : Samples()) {
      for (const Bytes& reply : sample.replies) {
        Event* const event =
            cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(reply.size()), reply.data());
        Require(cv_unpack_event(event, &KeyContext()) == 0 && event->pak_valid == 1,
                "a reply was refused");
        (void)cv_cleanup_event(event);
      }
    }
  });
}

void NetSnmp(benchmark::State& state) {
  const std::vector<Bytes> responses = Responses();
  CheckResponses(responses);
  CheckReplies();
  CompareInTurn(state, kSampledValues, DecodeAll, [&] { return ParseAll(responses); });
}

BENCHMARK(NetSnmp)->Name("P4/net_snmp")->UseManualTime();

}  // namespace
