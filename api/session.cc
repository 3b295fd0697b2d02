#include "vtapi/session.h"

#include <arpa/inet.h>
#include <string.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vtapi/socket.h"

#include "api/unit.h"
#include "support/assert.h"
#include "support/heap.h"
#include "support/log.h"
#include "transport/address.h"

namespace {

static_assert(sizeof(Session) == 336 && offsetof(Session, reserved) == 237);
// A Session begins with the record that the socket calls fill.
static_assert(offsetof(Session, descriptor) == offsetof(SocketEndpoint, descriptor) &&
              offsetof(Session, local) == offsetof(SocketEndpoint, local) &&
              offsetof(Session, target) == offsetof(SocketEndpoint, remote));

constexpr std::size_t kIdentitySize = 36;
constexpr std::uint32_t kKeySize = 20;          // bytes used of a caller's key
constexpr std::uint32_t kIdentityKeySize = 32;  // bytes of the identity when there is none
constexpr std::uint32_t kSequenceLimit = 0xFFFFFFFF;

void PrepareKey(Session& session, const void* key, std::int32_t key_len) {
  // Deliberate: without a key, the first 32 of the identity's 36 characters are the key.
  if (key_len < 1) {
    VT_LOG_AS(kDebug, "voltaris_createSession", "creating key w/key_len zero");
    hmac_shainit(&session.key, session.identity, kIdentityKeySize);
    return;
  }
  // Deliberate: 20 bytes of the key are used whatever its length; it is meant to be a SHA-1 digest.
  VT_LOG_AS(kDebug, "voltaris_createSession", "using digest key w/len %d > 0", key_len);
  hmac_shainit(&session.key, key, kKeySize);
}

}  // namespace

extern "C" {

Session* new_session() {
  Session* session = vt::support::AllocateZeroed<Session>().release();
  if (session == nullptr) return nullptr;
  // Deliberate: the words are "result node", although it is a Session.
  VT_LOG(kTrace, "allocated %d bytes for result node", static_cast<int>(sizeof(Session)));
  return session;
}

Session* voltaris_createSession(const char* address, std::uint32_t port, const void* identity,
                                const void* key, std::int32_t key_len) {
  vt::support::Owned<Session> session(new_session());
  if (session == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  session->target = vt::transport::MakeAddress(inet_addr(address), port);
  if (session->target.sin_addr.s_addr == INADDR_NONE) {
    // Deliberate: the broadcast address looks the same and is refused as well.
    VT_LOG(kFatal, "Badly formatted target address: %s", address);
    return nullptr;
  }
  if (identity == nullptr) return nullptr;  // Deliberate: without a line.
  std::memcpy(session->identity, identity, kIdentitySize);
  // Deliberate: the local address is unknown until a query connects, so the line shows zeros.
  VT_LOG(kDebug, "local socket address %s:%d id: %s", inet_ntoa(session->local.sin_addr),
         vt::transport::PortOf(session->local), session->identity);
  PrepareKey(*session, key, key_len);
  return session.release();
}

void voltaris_closeSession(Session* session) {
  VT_LOG(kTrace, "free session %p", static_cast<void*>(session));
  if (session != nullptr) explicit_bzero(&session->key, sizeof session->key);
  std::free(session);
}

std::uint32_t getNextSequenceNumber(Session* session) {
  VT_ASSERT(session->sequence_number < kSequenceLimit, "session->sequenceNumber < 0xFFFFFFFF",
            vt::api::kUnit);
  return session->sequence_number++;
}

}  // extern "C"
