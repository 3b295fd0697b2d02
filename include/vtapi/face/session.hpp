// Where to ask, who asks, and with which key.
#ifndef VTAPI_FACE_SESSION_HPP
#define VTAPI_FACE_SESSION_HPP

#include <arpa/inet.h>
#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "vtapi/face/collection.hpp"
#include "vtapi/face/error.hpp"
#include "vtapi/face/identity.hpp"
#include "vtapi/face/key.hpp"
#include "vtapi/face/query.hpp"
#include "vtapi/face/results.hpp"
#include "vtapi/session.h"

namespace voltaris {

// Session is a node to ask. Any number of collections can run on it at once; none of them, and no
// results, need it any more once they are started. It belongs to one thread at a time.
class Session {
 public:
  // open makes a session with the node at an IPv4 address in dotted text; nothing is sent. With a
  // key all messages are signed with it; without one, with the first 32 characters of the identity,
  // which keeps nobody out.
  static Expected<Session> open(const std::string& host, std::uint16_t port,
                                const Identity& who = Identity::fresh()) {
    return Open(host, port, who, nullptr);
  }
  static Expected<Session> open(const std::string& host, std::uint16_t port, const Identity& who,
                                const Key& key) {
    if (!key.present()) return detail::MakeError(Cause::kUsed, {"the key was moved away"});
    return Open(host, port, who, key.secret_bytes().data());
  }
  static Expected<Session> open(const std::string& host, std::uint16_t port, const Key& key) {
    return open(host, port, Identity::fresh(), key);
  }

  // start begins to execute a query, without waiting. That a node cannot be reached is no error but
  // an outcome.
  Expected<Collection> start(const QueryDescription& description, const Deadlines& deadlines = {}) {
    Expected<Query> query = description.build();
    if (!query) return query.error();
    return start(*std::move(query), deadlines);
  }
  Expected<Collection> start(Query query, const Deadlines& deadlines = {}) {
    if (Error error; !CanStart(query, error)) return error;
    const CollectionOptions options = detail::OptionsOf(deadlines);
    ReplyCollection* started = voltaris_startCollection(get(), query.get(), &options);
    if (started == nullptr)
      return detail::MakeError(Cause::kNoMemory, {"out of memory for a collection"});
    return Collection(std::move(query), started);
  }

  // execute executes a query and waits until the end: until the node has answered, or until a
  // deadline. Unless it is given some it waits 10 seconds for a connection, and then 2 seconds
  // longer than the devices may take. What came until then is in the results, which tell how it
  // ended.
  Expected<Results> execute(const QueryDescription& description) {
    return execute(description, DefaultDeadlines(description));
  }
  Expected<Results> execute(const QueryDescription& description, const Deadlines& deadlines) {
    Expected<Collection> collection = start(description, deadlines);
    if (!collection) return collection.error();
    (void)collection->run();
    return collection->take_results();
  }

  // get is the session for calls of the C interface; null in one that was moved from.
  ::Session* get() const { return session_.get(); }

 private:
  friend class Fleet;

  // Release leaves nothing of the key behind.
  struct Release {
    void operator()(::Session* session) const {
      detail::Wipe(&session->key, sizeof session->key);
      detail::Wipe(session->identity, sizeof session->identity);
      voltaris_closeSession(session);
    }
  };

  explicit Session(::Session* session) : session_(session) {}

  static Deadlines DefaultDeadlines(const QueryDescription& description) {
    constexpr std::chrono::seconds grace{2};  // the answer still has to travel
    Deadlines deadlines;
    deadlines.idle = description.timeout() + grace;
    deadlines.total = *deadlines.connect + description.timeout() + grace;
    return deadlines;
  }

  static Expected<Session> Open(const std::string& host, std::uint16_t port, const Identity& who,
                                const std::uint8_t* key) {
    in_addr parsed{};
    const bool is_dotted =
        host.find('\0') == std::string::npos && inet_pton(AF_INET, host.c_str(), &parsed) == 1;
    if (!is_dotted || parsed.s_addr == INADDR_NONE || port == 0) {
      return detail::MakeError(
          Cause::kBadAddress,
          {"a node has an IPv4 address such as 192.0.2.7 and a port from 1 to 65535, not ", host,
           ":", std::to_string(port)});
    }
    const auto key_size = static_cast<std::int32_t>(key != nullptr ? Key::kSize : 0);
    ::Session* made = voltaris_createSession(host.c_str(), port, who.text().data(), key, key_size);
    if (made == nullptr) {
      return detail::MakeError(Cause::kNoMemory, {"out of memory for a session"});
    }
    return Session(made);
  }

  bool CanStart(const Query& query, Error& error) const {
    if (get() == nullptr) {
      error = detail::MakeError(Cause::kUsed, {"the session was moved away"});
    } else if (query.get() == nullptr || query.get()->event == nullptr) {
      error = detail::MakeError(Cause::kUsed, {"the query was executed before"});
    } else {
      return true;
    }
    return false;
  }

  std::unique_ptr<::Session, Release> session_;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_SESSION_HPP
