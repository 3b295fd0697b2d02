#include "node/http_request.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <optional>

namespace vt::node {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

[[noreturn]] void Refuse(const std::string& reason) { throw HttpError(400, reason); }

// TakeUntil removes what stands before a mark, and the mark, from the front of text.
std::optional<std::string_view> TakeUntil(std::string_view mark, std::string_view& text) {
  const std::size_t end = text.find(mark);
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end + mark.size());
  return taken;
}

bool IsVisible(char letter) { return letter > ' ' && letter < '\x7F'; }

bool IsTokenLetter(char letter) {
  constexpr std::string_view others = "!#$%&'*+-.^_`|~";
  const bool is_alphanumeric = (letter >= '0' && letter <= '9') ||
                               (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
  return is_alphanumeric || others.find(letter) != std::string_view::npos;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return lower;
}

std::string_view Trim(std::string_view text) {
  const auto is_blank = [](char letter) { return letter == ' ' || letter == '\t'; };
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return text;
}

int HexDigit(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
  if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
  Refuse("a % without two hexadecimal digits");
}

std::string Decoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] != '%') {
      out += text[i];
    } else if (i + 2 < text.size()) {
      out += static_cast<char>(HexDigit(text[i + 1]) << 4 | HexDigit(text[i + 2]));
      i += 2;
    } else {
      Refuse("a % without two hexadecimal digits");
    }
  }
  return out;
}

std::map<std::string, std::string> ParseFields(std::string_view query) {
  std::map<std::string, std::string> fields;
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    std::string_view value = query.substr(0, end);
    query.remove_prefix(std::min(end + 1, query.size()));
    const std::size_t equals = std::min(value.find('='), value.size());
    const std::string_view name = value.substr(0, equals);
    value.remove_prefix(std::min(equals + 1, value.size()));
    if (!name.empty()) fields[Decoded(name)] = Decoded(value);
  }
  return fields;
}

void ParseTarget(std::string_view target, HttpRequest& request) {
  if (target.empty() || target.front() != '/' || !std::ranges::all_of(target, IsVisible)) {
    Refuse("the target is no path");
  }
  const std::size_t question = std::min(target.find('?'), target.size());
  request.path = target.substr(0, question);
  if (question != target.size()) request.fields = ParseFields(target.substr(question + 1));
}

HttpRequest ParseRequestLine(std::string_view line) {
  HttpRequest request;
  const std::optional<std::string_view> method = TakeUntil(" ", line);
  const std::optional<std::string_view> target = TakeUntil(" ", line);
  if (!method || !target || method->empty() || !std::ranges::all_of(*method, IsTokenLetter)) {
    Refuse("the first line is no request");
  }
  if (line != "HTTP/1.1" && line != "HTTP/1.0") {
    if (line.starts_with("HTTP/")) throw HttpError(505, "only HTTP/1.1 and HTTP/1.0 are spoken");
    Refuse("the first line is no request");
  }
  if (*method != "GET" && *method != "HEAD") throw HttpError(405, "only GET and HEAD are served");
  request.is_head = *method == "HEAD";
  ParseTarget(*target, request);
  return request;
}

std::string HostOf(std::string_view value) {
  const bool is_bracketed = value.starts_with('[');
  const std::size_t colon = is_bracketed ? value.find("]:") : value.find(':');
  const std::size_t end = colon == std::string_view::npos ? value.size()
                          : is_bracketed                  ? colon + 1
                                                          : colon;
  const std::string_view port = value.substr(std::min(end + 1, value.size()));
  if (!std::ranges::all_of(port, [](char letter) { return letter >= '0' && letter <= '9'; })) {
    Refuse("the port of the host is no number");
  }
  return Lower(value.substr(0, end));
}

void ParseHeader(std::string_view line, HttpRequest& request) {
  const std::optional<std::string_view> name = TakeUntil(":", line);
  if (!name || name->empty() || !std::ranges::all_of(*name, IsTokenLetter)) {
    Refuse("a header is none");
  }
  const std::string_view value = Trim(line);
  const bool is_clean = std::ranges::all_of(value, [](char letter) {
    return letter == '\t' || static_cast<unsigned char>(letter) >= ' ';
  });
  if (!is_clean) Refuse("a header has a control character");
  const std::string lower = Lower(*name);
  if (lower == "host") {
    if (!request.host.empty() || value.empty()) Refuse("there must be one host");
    request.host = HostOf(value);
  } else if (lower == "transfer-encoding" || (lower == "content-length" && value != "0")) {
    throw HttpError(413, "a request has no body here");
  }
}

}  // namespace

HttpRequest ParseHttpRequest(std::string_view head) {
  const std::optional<std::string_view> first = TakeUntil(kLineEnd, head);
  if (!first) Refuse("the first line is no request");
  HttpRequest request = ParseRequestLine(*first);
  for (;;) {
    const std::optional<std::string_view> line = TakeUntil(kLineEnd, head);
    if (!line) Refuse("the head has no end");
    if (line->empty()) break;
    ParseHeader(*line, request);
  }
  if (request.host.empty()) Refuse("there must be one host");
  return request;
}

bool IsLoopbackName(std::string_view host) {
  if (host == "localhost" || host == "[::1]") return true;
  in_addr address{};
  return inet_pton(AF_INET, std::string(host).c_str(), &address) == 1 &&
         ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
}

}  // namespace vt::node
