#include "node/host/nut_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <utility>

namespace vt::node {
namespace {

constexpr std::size_t kLongestLine = 512;
constexpr std::size_t kMostWords = 8;
constexpr std::size_t kLongestName = 64;
constexpr std::size_t kLongestNumber = 18;

using NutWords = std::vector<std::string>;

NutError Unreachable(int error) {
  return {Trouble::kUnreachable, std::generic_category().message(error)};
}

NutError Nonsense(const std::string& what) { return {Trouble::kFaulty, what}; }

std::string Quoted(const NutWords& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return "\"" + PrintableText(text) + "\"";
}

// A name goes back to the server in requests, so it must neither end a line nor begin a new word.
bool IsName(const std::string& name) {
  return !name.empty() && name.size() <= kLongestName && KeyText(name) == name &&
         name.find_first_of(":+") == std::string::npos;
}

bool IsError(const NutWords& words) { return !words.empty() && words[0] == "ERR"; }

[[noreturn]] void Refuse(const NutWords& words) {
  const bool denied = words.size() > 1 && words[1] == "ACCESS-DENIED";
  throw NutError(denied ? Trouble::kDenied : Trouble::kFaulty,
                 "the server answers " + Quoted(words));
}

}  // namespace

std::optional<std::vector<std::string>> ParseNutLine(std::string_view line) {
  NutWords words;
  bool in_word = false;
  bool in_quotes = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char letter = line[i];
    if (!in_quotes && (letter == ' ' || letter == '\t')) {
      in_word = false;
      continue;
    }
    if (!in_word) {
      if (words.size() == kMostWords) return std::nullopt;
      words.emplace_back();
      in_word = true;
    }
    if (letter == '"') {
      in_quotes = !in_quotes;
      continue;
    }
    if (letter == '\\') {
      if (++i == line.size()) return std::nullopt;
      letter = line[i];
    }
    words.back() += letter;
  }
  if (in_quotes) return std::nullopt;
  return words;
}

std::optional<double> ParseNutDecimal(const std::string& text) {
  const bool well_formed = !text.empty() && text.size() <= kLongestNumber &&
                           text.find_first_not_of("0123456789.") == std::string::npos;
  if (!well_formed) return std::nullopt;
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

NutConnection::NutConnection(const sockaddr_in& server, std::chrono::milliseconds patience,
                             const MonotonicClock& clock)
    : clock_(clock),
      deadline_(clock() + patience),
      socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (socket_.get() < 0) throw Unreachable(errno);
  Connect(server);
}

void NutConnection::Await(short events) const {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - clock_()).count();
    pollfd waiting{socket_.get(), events, 0};
    const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
    if (ready > 0) return;
    if (ready == 0) throw NutError(Trouble::kUnreachable, "the server took too long");
    if (errno != EINTR) throw Unreachable(errno);
  }
}

void NutConnection::Connect(const sockaddr_in& server) {
  if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0) {
    return;
  }
  if (errno != EINPROGRESS) throw Unreachable(errno);
  Await(POLLOUT);
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
  if (error != 0) throw Unreachable(error);
}

void NutConnection::Send(const std::string& line) const {
  for (std::size_t sent = 0; sent < line.size();) {
    Await(POLLOUT);
    const ssize_t count = send(socket_.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno != EINTR && errno != EAGAIN) {
      throw Unreachable(errno);
    }
  }
}

std::string NutConnection::ReadLine() {
  std::string line;
  for (;;) {
    const char* const first = buffer_.data() + begin_;
    const char* const last = buffer_.data() + end_;
    const char* const line_end = std::find(first, last, '\n');
    line.append(first, line_end);
    if (line.size() > kLongestLine) throw Nonsense("the server sends a line without an end");
    if (line_end != last) {
      begin_ = static_cast<std::size_t>(line_end - buffer_.data()) + 1;
      if (line.ends_with('\r')) line.pop_back();
      return line;
    }
    begin_ = end_ = 0;
    Await(POLLIN);
    const ssize_t count = recv(socket_.get(), buffer_.data(), buffer_.size(), 0);
    if (count == 0) throw NutError(Trouble::kUnreachable, "the server closed the connection");
    if (count > 0) {
      end_ = static_cast<std::size_t>(count);
    } else if (errno != EINTR && errno != EAGAIN) {
      throw Unreachable(errno);
    }
  }
}

std::vector<std::string> NutConnection::ReadWords() {
  const std::string line = ReadLine();
  std::optional<NutWords> words = ParseNutLine(line);
  if (!words) throw Nonsense("the server answers \"" + PrintableText(line) + "\"");
  return *std::move(words);
}

std::vector<std::string> NutConnection::Request(const std::string& line) {
  Send(line + "\n");
  return ReadWords();
}

std::vector<NutConnection::Listed> NutConnection::List() {
  NutWords words = Request("LIST UPS");
  if (IsError(words)) Refuse(words);
  if (words != NutWords{"BEGIN", "LIST", "UPS"})
    throw Nonsense("the server answers " + Quoted(words));
  std::vector<Listed> listed;
  for (words = ReadWords(); words != NutWords{"END", "LIST", "UPS"}; words = ReadWords()) {
    const bool well_formed =
        (words.size() == 2 || words.size() == 3) && words[0] == "UPS" && IsName(words[1]);
    if (!well_formed) throw Nonsense("the server lists " + Quoted(words));
    if (listed.size() == kMostEntities) throw Nonsense("the server lists too many supplies");
    listed.push_back({words[1], words.size() == 3 ? words[2] : std::string()});
  }
  return listed;
}

std::optional<std::string> NutConnection::Variable(const std::string& supply,
                                                   const std::string& variable) {
  NutWords words = Request("GET VAR " + supply + " " + variable);
  if (words.size() == 4 && words[0] == "VAR" && words[1] == supply && words[2] == variable) {
    return std::move(words[3]);
  }
  if (words.size() > 1 && IsError(words) && words[1] == "VAR-NOT-SUPPORTED") return std::nullopt;
  if (IsError(words)) Refuse(words);
  throw Nonsense("the server answers " + Quoted(words));
}

std::optional<double> NutConnection::Number(const std::string& supply,
                                            const std::string& variable) {
  const std::optional<std::string> text = Variable(supply, variable);
  if (!text) return std::nullopt;
  const std::optional<double> number = ParseNutDecimal(*text);
  if (!number) throw Nonsense(supply + " " + variable + ": not a number: " + PrintableText(*text));
  return number;
}

}  // namespace vt::node
