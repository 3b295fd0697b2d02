// A NUT server that says what a test wants it to say.
#ifndef VT_TESTS_NODE_HOST_NUT_SCRIPT_H_
#define VT_TESTS_NODE_HOST_NUT_SCRIPT_H_

#include <netinet/in.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "tests/harness/peer.h"

namespace vt::testing {

// kNutPatience is for servers that do answer: reached only when something is broken.
inline constexpr std::chrono::milliseconds kNutPatience{20000};

// LoopbackAddress is that port of 127.0.0.1.
inline sockaddr_in LoopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Dialogue is requests, each with the answer to it, both without the last line end.
using Dialogue = std::vector<std::pair<std::string, std::string>>;
using Dialogues = std::vector<Dialogue>;

// Play expects the requests, answers them and waits for the other side to close.
inline void Play(PeerConnection& connection, const Dialogue& dialogue) {
  for (const auto& [request, answer] : dialogue) {
    const Bytes got = connection.ReadExactly(request.size() + 1);
    if (got != Text(request + "\n")) {
      throw PeerError("expected " + request + ", got " + std::string(got.begin(), got.end()));
    }
    connection.Send(Text(answer + "\n"));
  }
  connection.WaitForClose();
}

// NutScript is a server with one dialogue for each connection, in that order.
inline ScriptedPeer::Script NutScript(Dialogues dialogues) {
  return [dialogues = std::move(dialogues), next = std::size_t{0}](
             PeerConnection& connection) mutable { Play(connection, dialogues.at(next++)); };
}

}  // namespace vt::testing

#endif  // VT_TESTS_NODE_HOST_NUT_SCRIPT_H_
