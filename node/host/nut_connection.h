// One connection to a NUT server: requests and answers as lines, every wait bounded by one deadline
// for all.
#ifndef VT_NODE_HOST_NUT_CONNECTION_H_
#define VT_NODE_HOST_NUT_CONNECTION_H_

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_descriptor.h"
#include "node/host/power_source.h"

namespace vt::node {

// NutError is why a server did not give what it was asked for, in printable text.
class NutError : public std::runtime_error {
 public:
  NutError(Trouble trouble, const std::string& what)
      : std::runtime_error(what), trouble_(trouble) {}
  Trouble trouble() const { return trouble_; }

 private:
  Trouble trouble_;
};

// ParseNutLine takes a line apart into its words, of which those in double quotes may hold blanks
// and, behind backslashes, quotes and backslashes. It returns nothing for a line that is not one:
// with an open quote, or with more than eight words.
std::optional<std::vector<std::string>> ParseNutLine(std::string_view line);

// ParseNutDecimal reads a number such as 12 or 12.5, in at most 18 characters; no sign, no
// exponent.
std::optional<double> ParseNutDecimal(const std::string& text);

class NutConnection {
 public:
  // NutConnection connects. It and all other calls throw NutError, in the end because the deadline,
  // patience from now, has passed.
  NutConnection(const sockaddr_in& server, std::chrono::milliseconds patience,
                const MonotonicClock& clock);

  struct Listed {
    std::string name;  // letters, digits and "._-" only
    std::string description;
  };
  // List returns the supplies that the server knows, kMostEntities at most: more are an error.
  std::vector<Listed> List();

  // Variable returns the value of a variable; nothing when the supply has no such variable.
  std::optional<std::string> Variable(const std::string& supply, const std::string& variable);
  // Number returns the value of a variable that must be a decimal number.
  std::optional<double> Number(const std::string& supply, const std::string& variable);

 private:
  void Await(short events) const;
  void Connect(const sockaddr_in& server);
  void Send(const std::string& line) const;
  std::string ReadLine();
  std::vector<std::string> ReadWords();
  // Request sends a line and returns the words of the first line of the answer.
  std::vector<std::string> Request(const std::string& line);

  const MonotonicClock& clock_;
  std::chrono::steady_clock::time_point deadline_;
  files::FileDescriptor socket_;
  std::array<char, 512> buffer_{};
  std::size_t begin_ = 0;  // of what has been received and not yet been read
  std::size_t end_ = 0;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_NUT_CONNECTION_H_
