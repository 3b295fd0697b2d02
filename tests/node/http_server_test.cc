#include "node/http_server.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <thread>

#include "node/http_request.h"
#include "node/monitor.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::HttpError;
using node::HttpRequest;
using node::ParseHttpRequest;

Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// --- heads ---

HttpRequest Parsed(const std::string& lines) {
  return ParseHttpRequest(lines + "Host: localhost\r\n\r\n");
}

int StatusOf(const std::string& head) {
  try {
    (void)ParseHttpRequest(head);
    return 200;
  } catch (const HttpError& error) {
    return error.status();
  }
}

TEST(HttpRequest, HasAPathDecodedFieldsAndTheHost) {
  const HttpRequest request = ParseHttpRequest(
      "GET /api/status?from=20&find=a%2Fb+c&empty&=x&find=last%20one HTTP/1.1\r\n"
      "host:  LocalHost:8040 \r\nAccept: */*\r\n\r\n");
  EXPECT_FALSE(request.is_head);
  EXPECT_EQ(request.path, "/api/status");
  EXPECT_EQ(request.host, "localhost");
  const std::map<std::string, std::string> fields = {
      {"from", "20"}, {"find", "last one"}, {"empty", ""}};
  EXPECT_EQ(request.fields, fields);
  EXPECT_EQ(Parsed("GET /?find=a%2Fb+c HTTP/1.0\r\n").fields.at("find"), "a/b c");
  EXPECT_TRUE(Parsed("HEAD / HTTP/1.1\r\n").is_head);
  EXPECT_EQ(Parsed("GET /? HTTP/1.1\r\n").fields.size(), 0u);
}

TEST(HttpRequest, WhatIsNoneIsRefused) {
  const std::string host = "Host: localhost\r\n\r\n";
  for (const std::string line :
       {"", " ", "GET", "GET /", "GET / ", "GET  / HTTP/1.1", "GET x HTTP/1.1",
        "GET http://localhost/ HTTP/1.1", "GET /\x80 HTTP/1.1", "GET /\t HTTP/1.1",
        "G(T / HTTP/1.1", " GET / HTTP/1.1", "GET /?a=% HTTP/1.1", "GET /?a=%4 HTTP/1.1",
        "GET /?a=%g0 HTTP/1.1", "GET / http/1.1"}) {
    EXPECT_EQ(StatusOf(line + "\r\n" + host), 400) << line;
  }
  for (const std::string header : {": x", "A B: x", "A : x", "no colon", " folded: x", "A: \x01"}) {
    EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\n" + header + "\r\n" + host), 400) << header;
  }
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\n" + std::string("A: x\0y\r\n", 8) + host), 400);
  for (const std::string version : {"HTTP/2", "HTTP/1.2", "HTTP/1.1 ", "HTTP/"}) {
    EXPECT_EQ(StatusOf("GET / " + version + "\r\n" + host), 505) << version;
  }
  for (const std::string method : {"POST", "PUT", "DELETE", "OPTIONS", "get", "CONNECT"}) {
    EXPECT_EQ(StatusOf(method + " / HTTP/1.1\r\n" + host), 405) << method;
  }
}

TEST(HttpRequest, MustNameOneHost) {
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\n\r\n"), 400);
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\nHost:\r\n\r\n"), 400);
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n"), 400);
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\nHost: a:b\r\n\r\n"), 400);
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\nHost: :80\r\n\r\n"), 400);
  EXPECT_EQ(ParseHttpRequest("GET / HTTP/1.1\r\nHost: [::1]:80\r\n\r\n").host, "[::1]");
  EXPECT_EQ(ParseHttpRequest("GET / HTTP/1.1\r\nHost: [::1]\r\n\r\n").host, "[::1]");
}

TEST(HttpRequest, HasNoBody) {
  const std::string start = "GET / HTTP/1.1\r\nHost: localhost\r\n";
  EXPECT_EQ(StatusOf(start + "Content-Length: 0\r\n\r\n"), 200);
  EXPECT_EQ(StatusOf(start + "Content-Length: 1\r\n\r\n"), 413);
  EXPECT_EQ(StatusOf(start + "Transfer-Encoding: chunked\r\n\r\n"), 413);
}

TEST(HttpRequest, EveryTruncationIsRefused) {
  const std::string head = "GET /api/status?find=%41 HTTP/1.1\r\nHost: localhost:1\r\nA: b\r\n\r\n";
  EXPECT_EQ(StatusOf(head), 200);
  for (std::size_t size = 0; size < head.size(); ++size) {
    EXPECT_EQ(StatusOf(head.substr(0, size)), 400) << size;
  }
}

TEST(HttpRequest, NamesOfThisHostAreThoseThatNobodyElseCanHave) {
  for (const char* host : {"localhost", "127.0.0.1", "127.255.1.2", "[::1]"}) {
    EXPECT_TRUE(node::IsLoopbackName(host)) << host;
  }
  for (const char* host : {"", "example.com", "localhost.example.com", "127.0.0.1.example.com",
                           "128.0.0.1", "0.0.0.0", "127.1", "::1", "[::2]", "2130706433"}) {
    EXPECT_FALSE(node::IsLoopbackName(host)) << host;
  }
}

// --- the server ---

struct Answer {
  int status = 0;
  std::string head;
  std::string body;
};

Answer Take(PeerConnection& connection) {
  const Bytes bytes = connection.ReadAll();
  const std::string text(bytes.begin(), bytes.end());
  Answer answer;
  const std::size_t end = text.find("\r\n\r\n");
  if (!text.starts_with("HTTP/1.1 ") || end == std::string::npos) return answer;
  answer.status = std::stoi(text.substr(9, 3));
  answer.head = text.substr(0, end + 2);
  answer.body = text.substr(end + 4);
  return answer;
}

PeerConnection ConnectTo(std::uint16_t port) {
  PeerConnection connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(connection.fd(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer), 0);
  return connection;
}

// WebServer serves on a free port, on a thread of its own, until it goes.
class WebServer {
 public:
  explicit WebServer(node::HttpServer::Handler handler, const node::HttpLimits& limits = {},
                     node::HttpHosts hosts = node::HttpHosts::kLoopback)
      : server_(io_, Loopback(), hosts, limits, std::move(handler)),
        port_(ntohs(server_.address().sin_port)),
        thread_([this] { io_.run(); }) {}
  ~WebServer() {
    asio::post(io_, [this] { server_.Stop(); });
    thread_.join();
  }
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  asio::io_context& io() { return io_; }
  PeerConnection Connect() const { return ConnectTo(port_); }

  Answer Ask(const std::string& request) const {
    PeerConnection connection = Connect();
    connection.Send(BytesOf(request));
    return Take(connection);
  }

 private:
  static sockaddr_in Loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  asio::io_context io_;
  node::HttpServer server_;
  std::uint16_t port_;
  std::thread thread_;
};

void Echo(const HttpRequest& request, const node::HttpServer::Reply& reply) {
  if (request.path == "/missing") throw HttpError(404, "nothing there");
  if (request.path == "/broken") throw std::runtime_error("inner workings");
  reply({200, "text/plain", request.path, {{"X-Own", "yes"}}});
}

const std::string kGet = "GET /x HTTP/1.1\r\nHost: localhost\r\n\r\n";

TEST(HttpServer, AnswersOneRequestAndCloses) {
  const WebServer server(Echo);
  const Answer answer = server.Ask(kGet);
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, "/x");
  for (const char* header :
       {"Content-Type: text/plain", "Content-Length: 2", "Connection: close",
        "Cache-Control: no-store", "X-Content-Type-Options: nosniff", "X-Own: yes",
        "X-Frame-Options: DENY", "Referrer-Policy: no-referrer"}) {
    EXPECT_NE(answer.head.find(std::string(header) + "\r\n"), std::string::npos) << header;
  }
}

TEST(HttpServer, AHeadRequestGetsNoBody) {
  const WebServer server(Echo);
  const Answer answer = server.Ask("HEAD /long HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(answer.status, 200);
  EXPECT_NE(answer.head.find("Content-Length: 5\r\n"), std::string::npos);
  EXPECT_EQ(answer.body, "");
}

TEST(HttpServer, ARequestMayComeInPieces) {
  const WebServer server(Echo);
  PeerConnection connection = server.Connect();
  connection.SendInPieces(BytesOf(kGet), 1);
  EXPECT_EQ(Take(connection).body, "/x");
}

TEST(HttpServer, ErrorsAreAnsweredWithTheirReason) {
  const WebServer server(Echo);
  const Answer missing = server.Ask("GET /missing HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(missing.status, 404);
  EXPECT_EQ(missing.body, "nothing there\n");
  const Answer post =
      server.Ask("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3\r\n\r\nabc");
  EXPECT_EQ(post.status, 405);
  EXPECT_NE(post.head.find("Allow: GET, HEAD\r\n"), std::string::npos);
  EXPECT_EQ(server.Ask("\r\n\r\n").status, 400);
  const Answer broken = server.Ask("GET /broken HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(broken.status, 500);
  EXPECT_EQ(broken.body, "the node cannot answer that now\n") << "the log has the reason";
}

TEST(HttpServer, APageOfAnotherSiteCannotPassItselfOffAsThisHost) {
  const WebServer server(Echo);
  const std::string request = "GET / HTTP/1.1\r\nHost: rebound.example:80\r\n\r\n";
  EXPECT_EQ(server.Ask(request).status, 421);
  const WebServer open(Echo, {}, node::HttpHosts::kAny);
  EXPECT_EQ(open.Ask(request).status, 200);
}

TEST(HttpServer, TheHeadHasABound) {
  const WebServer server(Echo, {.head = 100});
  const std::string start = "GET / HTTP/1.1\r\nHost: localhost\r\nA: ";
  const std::string end = "\r\n\r\n";
  const std::size_t rest = 100 - start.size() - end.size();
  EXPECT_EQ(server.Ask(start + std::string(rest, 'x') + end).status, 200);
  EXPECT_EQ(server.Ask(start + std::string(rest + 1, 'x') + end).status, 431);
  EXPECT_EQ(server.Ask(std::string(100, 'x')).status, 431) << "without an end";
}

TEST(HttpServer, ARequestThatDoesNotComeIsCutOff) {
  const WebServer server(Echo, {.request = std::chrono::milliseconds(50)});
  PeerConnection silent = server.Connect();
  PeerConnection slow = server.Connect();
  slow.Send(BytesOf("GET / HT"));
  EXPECT_TRUE(silent.ReadAll().empty());
  EXPECT_TRUE(slow.ReadAll().empty());
}

TEST(HttpServer, AnAnswerThatDoesNotComeIsCutOff) {
  std::vector<node::HttpServer::Reply> kept;
  const WebServer server([&](const HttpRequest&, const auto& reply) { kept.push_back(reply); },
                         {.connection = std::chrono::milliseconds(50)});
  EXPECT_EQ(server.Ask(kGet).status, 0);
}

TEST(HttpServer, AnAnswerMayComeLaterAndOnlyOnce) {
  WebServer* self = nullptr;
  WebServer server([&](const HttpRequest&, const auto& reply) {
    const auto timer =
        std::make_shared<asio::steady_timer>(self->io(), std::chrono::milliseconds(1));
    timer->async_wait([reply, timer](const asio::error_code&) {
      reply({200, "text/plain", "first", {}});
      reply({200, "text/plain", "second", {}});
    });
  });
  self = &server;
  EXPECT_EQ(server.Ask(kGet).body, "first");
}

TEST(HttpServer, MoreConnectionsThanItServesAtOnceWaitTheirTurn) {
  const WebServer server(Echo, {.connections = 2});
  std::vector<PeerConnection> idle;
  for (int i = 0; i < 2; ++i) idle.push_back(server.Connect());
  PeerConnection third = server.Connect();
  third.Send(BytesOf(kGet));
  idle[0].Send(BytesOf(kGet));
  EXPECT_EQ(Take(idle[0]).status, 200);
  EXPECT_EQ(Take(third).status, 200);
}

TEST(HttpServer, GarbageAndPeersThatLeaveDoNoHarm) {
  const WebServer server(Echo);
  for (int i = 0; i < 200; ++i) {
    PeerConnection connection = server.Connect();
    connection.Send(Bytes(static_cast<std::size_t>(i) * 50 + 1, static_cast<std::uint8_t>(i)));
    if (i % 2 == 0) connection.Reset();
  }
  EXPECT_EQ(server.Ask(kGet).status, 200);
}

// --- the node ---

// WatchedNode is a node with its page.
class WatchedNode {
 public:
  explicit WatchedNode(const std::string& config, std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.end(), {"--http", "127.0.0.1:0"});
    node_ = std::make_unique<Node>(config, arguments);
    const std::string line = node_->program().ReadLine();
    EXPECT_TRUE(line.starts_with("http on 127.0.0.1:")) << line;
    port_ = static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
  }

  Node* operator->() { return node_.get(); }

  Answer Get(const std::string& target, const std::string& host = "localhost") const {
    PeerConnection connection = ConnectTo(port_);
    connection.Send(BytesOf("GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n"));
    return Take(connection);
  }

  nlohmann::json Status(const std::string& fields = "") const {
    const Answer answer = Get("/api/status" + fields);
    EXPECT_EQ(answer.status, 200) << answer.body;
    nlohmann::json json = nlohmann::json::parse(answer.body, nullptr, false);
    EXPECT_TRUE(json.is_object()) << answer.body;
    return json;
  }

 private:
  std::unique_ptr<Node> node_;
  std::uint16_t port_ = 0;
};

std::string SmallFleet() {
  return NodeToml({{.number = 1, .name = "lamp-1", .step = 5},
                   {.number = 2, .name = "lamp-2", .level = 2, .step = 5}});
}

TEST(Monitor, ServesThePageWithAPolicyThatLetsNothingElseIn) {
  const WatchedNode node(SmallFleet());
  const Answer first = node.Get("/");
  EXPECT_EQ(first.status, 200);
  EXPECT_NE(first.head.find("Content-Type: text/html; charset=utf-8\r\n"), std::string::npos);
  EXPECT_TRUE(first.body.starts_with("<!DOCTYPE html>"));
  EXPECT_EQ(first.body.find("{nonce}"), std::string::npos);
  const std::string mark = "script-src 'nonce-";
  const std::size_t at = first.head.find(mark);
  ASSERT_NE(at, std::string::npos) << first.head;
  const std::string nonce = first.head.substr(at + mark.size(), 32);
  EXPECT_NE(first.head.find("default-src 'none';"), std::string::npos);
  EXPECT_NE(first.body.find("<script nonce=\"" + nonce + "\">"), std::string::npos);
  EXPECT_NE(first.body.find("<style nonce=\"" + nonce + "\">"), std::string::npos);
  EXPECT_EQ(node.Get("/").head.find(nonce), std::string::npos) << "each response has its own";
}

TEST(Monitor, KnowsItsPathsAndNoOthers) {
  const WatchedNode node(SmallFleet());
  EXPECT_EQ(node.Get("/healthz").body, "ok\n");
  EXPECT_NE(node.Get("/metrics").head.find("text/plain; version=0.0.4"), std::string::npos);
  for (const char* path : {"/index.html", "/api", "/api/status/", "//", "/..%2f", "/metrics/"}) {
    EXPECT_EQ(node.Get(path).status, 404) << path;
  }
  EXPECT_EQ(node.Get("/", "example.com").status, 421);
}

TEST(Monitor, StatusTellsOfTheNodeAndItsFleet) {
  WatchedNode node(SmallFleet());
  const nlohmann::json status = node.Status();
  EXPECT_EQ(status["node"]["name"], "test-node");
  EXPECT_EQ(status["node"]["id"], DeviceId(0));
  EXPECT_EQ(status["node"]["address"], node->address());
  EXPECT_EQ(status["entities"]["matching"], 2);
  const nlohmann::json& row = status["entities"]["rows"][1];
  EXPECT_EQ(row["name"], "lamp-2");
  EXPECT_EQ(row["id"], DeviceId(2));
  EXPECT_EQ(row["level"], 2);
  EXPECT_EQ(row["importance"], 10);
  EXPECT_EQ(row["watts"], 10);
  EXPECT_EQ(row["domain"], "test");
  EXPECT_EQ(row["category"], "consumer");
}

TEST(Monitor, ASetQueryChangesTheRowTheTotalAndTheListOfQueries) {
  WatchedNode node(SmallFleet());
  while (node.Status()["totals"]["watts"]["consumer"] != 60) {
    // Until it was measured first.
  }
  EXPECT_EQ(node->Ask({"set", "--name", "lamp-1", "level=1", "--yes"}).exit_code, 0);
  nlohmann::json status = node.Status();
  EXPECT_EQ(status["entities"]["rows"][0]["level"], 1);
  EXPECT_EQ(status["entities"]["rows"][0]["watts"], 5);
  const nlohmann::json& query = status["queries"]["recent"][0];
  EXPECT_EQ(query["kind"], "set");
  EXPECT_EQ(query["changes"], "level 1");
  EXPECT_EQ(query["domain"], "test");
  EXPECT_EQ(query["accepted"], 1);
  EXPECT_EQ(query["refused"], 1);
  EXPECT_TRUE(query["peer"].get<std::string>().starts_with("127.0.0.1:"));
  EXPECT_EQ(status["queries"]["total"]["set"], 1);
  while (node.Status()["totals"]["watts"]["consumer"] != 15) {
    // Until it was measured again.
  }
  status = node.Status();
  EXPECT_EQ(status["history"][0][1], 60);
  EXPECT_EQ(status["history"].back()[1], 15);
}

TEST(Monitor, BadPeersAreToldWithTheirReason) {
  WatchedNode node(SmallFleet());
  PeerConnection forger = node->Connect();
  forger.Send(Asking({9}).Signed(Bytes(20, 9)));
  forger.WaitForClose();
  PeerConnection leaver = node->Connect();
  leaver.Send(Bytes(4, 0));
  leaver.HalfClose();
  leaver.WaitForClose();
  PduImage unknown = Asking({9});
  unknown.action = 99;
  PeerConnection asker = node->Connect();
  asker.Send(unknown.Signed(KeyOfSender()));
  asker.WaitForClose();
  const nlohmann::json peers = node.Status()["bad_peers"];
  EXPECT_EQ(peers["total"]["bad_digest"], 1);
  EXPECT_EQ(peers["total"]["incomplete"], 1);
  EXPECT_EQ(peers["total"]["not_served"], 1);
  ASSERT_EQ(peers["recent"].size(), 3u);
  EXPECT_EQ(peers["recent"][2]["reason"], "bad_digest");
  const std::string metrics = node.Get("/metrics").body;
  EXPECT_NE(metrics.find("voltaris_node_rejected_total{reason=\"bad_digest\"} 1\n"),
            std::string::npos)
      << metrics;
}

TEST(Monitor, OfALargeFleetAPageAtATimeIsShown) {
  const WatchedNode node(NodeTable() +
                         "[[group]]\ncount = 10000\nname = \"desk-{n:05}\"\nrole = \"phone\"\n"
                         "watts = [0, 4]\nlevel = 5\n");
  nlohmann::json status = node.Status();
  EXPECT_EQ(status["entities"]["rows"].size(), 50u);
  EXPECT_EQ(status["entities"]["matching"], 10000);
  status = node.Status("?count=4000000000&from=9999&find=DESK-0");
  EXPECT_EQ(status["entities"]["matching"], 9999);
  EXPECT_EQ(status["entities"]["rows"].size(), 0u);
  status = node.Status("?count=1000");
  EXPECT_EQ(status["entities"]["rows"].size(), 200u);
  status = node.Status("?find=desk-0123&from=2&count=3");
  EXPECT_EQ(status["entities"]["matching"], 10);
  EXPECT_EQ(status["entities"]["rows"][0]["name"], "desk-01232");
  EXPECT_EQ(status["entities"]["rows"].size(), 3u);
}

TEST(Monitor, FieldsThatMeanNothingAreRefused) {
  const WatchedNode node(SmallFleet());
  for (const char* fields :
       {"?from=-1", "?from=x", "?from=", "?count=4294967296", "?sort=up", "?from=1%00"}) {
    EXPECT_EQ(node.Get(std::string("/api/status") + fields).status, 400) << fields;
  }
  EXPECT_EQ(node.Get("/api/status?find=" + std::string(257, 'x')).status, 400);
  EXPECT_EQ(node.Status("?find=%ff%3Cb%3E&other=1")["entities"]["matching"], 0);
}

TEST(Monitor, ShowsTheFleetAfterAReload) {
  const TempFolder folder;
  const std::string config = folder.Write("fleet.toml", SmallFleet());
  Program node("voltaris-node",
               {"--config", config, "--listen", "127.0.0.1:0", "--http", "127.0.0.1:0"});
  (void)node.ReadLine();
  const std::string line = node.ReadLine();
  const auto port = static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
  const auto get = [port](const std::string& path) {
    PeerConnection connection = ConnectTo(port);
    connection.Send(BytesOf("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    return Take(connection).body;
  };
  folder.Write("fleet.toml", NodeToml({{}}));
  node.Signal(SIGHUP);
  while (get("/metrics").find("voltaris_node_reloads_total{result=\"ok\"} 1\n") ==
         std::string::npos) {
    // Until the signal has arrived.
  }
  EXPECT_EQ(nlohmann::json::parse(get("/api/status"))["entities"]["matching"], 1);
  folder.Write("fleet.toml", "[node");
  node.Signal(SIGHUP);
  while (get("/metrics").find("voltaris_node_reloads_total{result=\"failed\"} 1\n") ==
         std::string::npos) {
    // Until the signal has arrived.
  }
  EXPECT_EQ(nlohmann::json::parse(get("/api/status"))["entities"]["matching"], 1);
  node.Signal(SIGTERM);
  EXPECT_EQ(node.Finish().exit_code, 0);
}

TEST(Monitor, IsForThisHostAloneUnlessItIsSaidTwice) {
  const TempFolder folder;
  const std::string config = folder.Write("fleet.toml", SmallFleet());
  Outcome outcome = Program("voltaris-node", {"--config", config, "--http", "0.0.0.0:0"}).Finish();
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("--http-anywhere"), std::string::npos) << outcome.err;
  outcome = Program("voltaris-node", {"--config", config, "--http", "localhost"}).Finish();
  EXPECT_EQ(outcome.exit_code, 2);
  Program node("voltaris-node", {"--config", config, "--listen", "127.0.0.1:0", "--http",
                                 "0.0.0.0:0", "--http-anywhere"});
  (void)node.ReadLine();
  EXPECT_TRUE(node.ReadLine().starts_with("http on 0.0.0.0:"));
  node.Signal(SIGTERM);
  EXPECT_EQ(node.Finish().exit_code, 0);
}

TEST(Monitor, APortThatIsTakenEndsTheStart) {
  const TempFolder folder;
  WatchedNode first(SmallFleet());
  const Outcome outcome =
      Program("voltaris-node", {"--config", folder.Write("fleet.toml", SmallFleet()), "--listen",
                                "127.0.0.1:0", "--http", first->address()})
          .Finish();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.err.find("cannot serve HTTP on " + first->address()), std::string::npos)
      << outcome.err;
}

TEST(Monitor, IsNotWellWhileTheThreadThatAnswersIsStuck) {
  const node::FleetFile file = Load(SmallFleet());
  asio::io_context io;
  sockaddr_in loopback{};
  loopback.sin_family = AF_INET;
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  node::Traffic traffic;
  node::Server server(io, loopback, {}, traffic, [](auto&&...) { return node::Delivery(); });
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<int> looks = 0;
  const auto look = [&](const auto& show) {
    if (++looks == 2) released.wait();  // the first one by the thread that answers
    show(file.fleet, At(0));
  };
  node::Monitor monitor(io, loopback, node::HttpHosts::kLoopback, server, traffic, look,
                        std::chrono::milliseconds(10));
  std::thread loop([&io] { io.run(); });
  const auto health = [port = ntohs(monitor.address().sin_port)] {
    PeerConnection connection = ConnectTo(port);
    connection.Send(BytesOf("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    return Take(connection).status;
  };
  while (health() != 503) {
    // Until it has been stuck for long enough.
  }
  release.set_value();
  while (health() != 200) {
    // Until it has come to an end.
  }
  asio::post(io, [&] {
    monitor.Stop();
    server.Stop();
  });
  loop.join();
}

// --- the key of the service manager ---

TEST(Credentials, TheKeyIsTakenFromTheFolderOfTheServiceManager) {
  const TempFolder folder;
  folder.Write("voltaris.key", kKeyHex);
  const std::string config = folder.Write("fleet.toml", SmallFleet());
  const std::string other = folder.Write("other", std::string(40, '7'));
  const auto rows = [&](const Environment& environment, const std::string& key) {
    Program node("voltaris-node", {"--config", config, "--listen", "127.0.0.1:0"}, environment);
    const std::string line = node.ReadLine();
    const Outcome outcome = Voltaris({"collect", "-o", "json", "--domain", "test", "--node",
                                      line.substr(line.rfind(' ') + 1), "--key-file", key});
    node.Signal(SIGTERM);
    EXPECT_EQ(node.Finish().exit_code, 0);
    return outcome.exit_code == 0 ? outcome.answer()["rows"].size() : 0;
  };
  const std::string credentials = folder.path(".");
  EXPECT_EQ(rows({{"CREDENTIALS_DIRECTORY", credentials}}, folder.path("voltaris.key")), 2u);
  EXPECT_EQ(rows({{"CREDENTIALS_DIRECTORY", credentials}, {"VOLTARIS_KEY_FILE", other}}, other), 2u)
      << "what names a file comes first";
  EXPECT_EQ(rows({{"CREDENTIALS_DIRECTORY", folder.path("nowhere")}}, other), 0u)
      << "a node without a key";
}

}  // namespace
}  // namespace vt::testing
