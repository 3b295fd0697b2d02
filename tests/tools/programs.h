// The two programs, run as an operator runs them: as processes, with their real arguments, over
// real connections on 127.0.0.1. Every wait ends: by what is waited for, or after kProgramPatience.
#ifndef VT_TESTS_TOOLS_PROGRAMS_H_
#define VT_TESTS_TOOLS_PROGRAMS_H_

#include <nlohmann/json.hpp>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/harness/hex.h"
#include "tests/harness/peer.h"

namespace vt::testing {

// kProgramPatience is reached only when something is broken; sanitizers make programs slow.
inline constexpr std::chrono::seconds kProgramPatience{40};

// TempFolder is a folder of its own that goes with all it holds.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  // Write makes a file that only its owner may open, or one with the given mode, and returns its
  // path.
  std::string Write(const std::string& name, const std::string& content, mode_t mode = 0600) const;
  std::string path(const std::string& name) const { return path_ + "/" + name; }
  // Read is what a file holds, empty when it is not there.
  std::string Read(const std::string& name) const;

 private:
  std::string path_;
};

using Environment = std::map<std::string, std::string>;

// Outcome is how a program ended and what it wrote. A signal that ended it is 1000 + its number.
struct Outcome {
  int exit_code = -1;
  std::string out;
  std::string err;

  // json parses out, or fails the test.
  nlohmann::json json() const;
  // answer is json and a document of the schema of docs/schema/ that it names, or fails the test;
  // answer_lines is the same for each line. Both are in answer_schema.cc.
  nlohmann::json answer() const;
  std::vector<nlohmann::json> answer_lines() const;
};

// IsAnswer tells whether a document is of that schema, and if not why. In answer_schema.cc.
bool IsAnswer(const nlohmann::json& document, std::string* faults = nullptr);
// MatchesSchema does the same for a schema of docs/schema/, by its name.
bool MatchesSchema(const std::string& name, const nlohmann::json& document, std::string* faults);

// LogLines parses each line of a log and holds it against voltaris-log-1, or fails the test. In
// answer_schema.cc.
std::vector<nlohmann::json> LogLines(const std::string& text);

// Which ends of a program are a terminal: standard output; standard input and standard error, which
// are one then; or standard input and output, for a program that fills the screen.
enum class Terminal { kNone, kOutput, kDialogue, kScreen };

// Program is a running process of one of the programs. Variables of the environment that configure
// voltaris are not inherited.
class Program {
 public:
  Program(const std::string& name, const std::vector<std::string>& arguments,
          const Environment& environment = {}, Terminal terminal = Terminal::kNone);
  // The destructor kills what still runs.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  // ReadLine waits for the next line of its standard output; empty when there is none.
  std::string ReadLine();
  void Signal(int number) const;
  // Type writes to the terminal of a dialogue or a screen, as somebody at the keyboard would.
  void Type(const std::string& text) const;
  // AwaitError waits until its standard error holds a text; it fails the test without.
  void AwaitError(const std::string& text);
  // AwaitOutput reads its standard output until a condition on all that came holds; it fails the
  // test when there is no more and it does not.
  void AwaitOutput(const std::function<bool(const std::string&)>& is_enough);
  // terminal is the descriptor of the other end of its screen.
  int terminal() const { return out_; }
  // CloseOutput is what a reader does that has seen enough.
  void CloseOutput();
  // AwaitEnd waits for the end of the process alone, while nobody reads its output.
  void AwaitEnd() const;
  // Finish waits for the end of the process and of its output.
  Outcome Finish();

 private:
  // ReadOutput reads until a condition holds, or to the end of the output.
  void ReadOutput(const std::function<bool()>& is_enough);

  pid_t pid_ = -1;
  Terminal kind_;
  int out_ = -1;
  int err_ = -1;
  std::string out_text_;
  std::string err_text_;
  std::size_t lines_end_ = 0;
};

// Foreign runs a program of the system that is found along PATH; its exit code is 127 where there
// is none.
Outcome Foreign(const std::vector<std::string>& command);

// Voltaris runs voltaris to its end.
Outcome Voltaris(const std::vector<std::string>& arguments, const Environment& environment = {},
                 Terminal terminal = Terminal::kNone);

// What a node answers from.
enum class NodeFile { kConfiguration, kRecording };

// Node is a voltaris-node on a free port, with a configuration or a recording of its own.
class Node {
 public:
  explicit Node(const std::string& content, const std::vector<std::string>& arguments = {},
                NodeFile kind = NodeFile::kConfiguration);

  std::uint16_t port() const { return port_; }
  // address is 127.0.0.1:port.
  std::string address() const;
  // Ask runs voltaris against this node.
  Outcome Ask(std::vector<std::string> arguments, Environment environment = {}) const;
  // Connect makes a connection of its own.
  PeerConnection Connect() const;
  // Stop ends the node with SIGTERM.
  Outcome Stop();
  Program& program() { return program_; }

 private:
  TempFolder folder_;
  Program program_;
  std::uint16_t port_ = 0;
};

// AddressList is addresses as -n takes them. At NobodysAddress connections are refused.
std::string AddressList(const std::vector<std::string>& addresses);
std::string NobodysAddress();

// ProcFile is what the system tells of a process in a file of /proc, as others see it.
std::string ProcFile(pid_t pid, const std::string& name);

// Holds tells whether a text has that part.
bool Holds(const std::string& text, const std::string& part);

// DeviceId is a readable identity of 32 characters.
std::string DeviceId(int number);

// DeviceToml is a [[device]] of domain "test" with 11 usages 0, 1, .. 10 times step.
struct DeviceToml {
  int number = 1;
  int entity = 1;
  std::string name = "lamp-1";
  std::string role = "lamp";
  std::string keywords = "\"light\"";
  int importance = 10;
  int level = 10;
  int units = 0;
  int step = 1;
  std::string more = {};

  std::string Text() const;
};

// CompleteDevice is a device with every attribute that one can have, but for an address and
// neighbors.
DeviceToml CompleteDevice();

// NodeToml is the [node] table, with the devices behind it.
std::string NodeToml(const std::vector<DeviceToml>& devices);

// FaultToml is a [[fault]] table of that kind.
std::string FaultToml(const std::string& kind, const std::string& more = "");

// OneLamp configures a node with a lamp of that number alone, TwoLamps one with lamp-1 and lamp-2.
// They use 10 W each.
std::string OneLamp(int number);
std::string TwoLamps(const std::string& faults = "");

// HostileRecording is one of a device in the domain "test" whose name steers terminals and breaks
// lines: ESC ]0;owned BEL LF |.
std::string HostileRecording();

// KeyHex is a key as hexadecimal digits, KeyBytes the same as bytes.
extern const char kKeyHex[];
Bytes KeyBytes();

// SplitPdus cuts a stream into its messages; what does not come out even is a last one.
std::vector<Bytes> SplitPdus(const Bytes& stream);

}  // namespace vt::testing

#endif  // VT_TESTS_TOOLS_PROGRAMS_H_
