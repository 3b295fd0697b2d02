#include "tests/tools/programs.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vt::testing {
namespace {

using Clock = std::chrono::steady_clock;

std::string ProgramPath(const std::string& name) {
  return name.starts_with('/') ? name : std::string(VT_PROGRAM_DIR) + "/" + name;
}

// The size of a terminal, until a test changes it.
constexpr winsize kTerminalSize = {.ws_row = 24, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};

struct Channel {
  int read_end;
  int write_end;
};

Channel OpenPipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  return {ends[0], ends[1]};
}

// OpenTerminal is a pseudo terminal: what the program writes to one end comes out of the other.
Channel OpenTerminal() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    throw std::runtime_error("no pseudo terminal");
  }
  std::array<char, 128> name{};
  if (ptsname_r(master, name.data(), name.size()) != 0) throw std::runtime_error("ptsname_r");
  const int slave = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave < 0) throw std::runtime_error("the terminal cannot be opened");
  if (ioctl(slave, TIOCSWINSZ, &kTerminalSize) != 0) throw std::runtime_error("TIOCSWINSZ");
  return {master, slave};
}

// The environment of the test, without what configures voltaris and the terminal, and with what the
// test adds.
std::vector<std::string> ChildEnvironment(const Environment& added) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    const std::string name = text.substr(0, text.find('='));
    const bool configures = name.starts_with("VOLTARIS_") || name == "NO_COLOR" || name == "TERM";
    if (!configures && !added.contains(name)) variables.push_back(text);
  }
  for (const auto& [name, value] : added) variables.push_back(name + "=" + value);
  // Whoever runs the tests may have settings of his own.
  const bool has_settings = added.contains("VOLTARIS_CONFIG") || added.contains("XDG_CONFIG_HOME");
  if (!has_settings) variables.emplace_back("VOLTARIS_CONFIG=/dev/null");
  return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Everything the child needs is made before the fork: after it, only system calls are safe.
pid_t Spawn(const std::string& name, const std::vector<std::string>& arguments,
            const Environment& environment, int in, int out, int err) {
  std::vector<std::string> words = {ProgramPath(name)};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = ChildEnvironment(environment);
  const std::vector<char*> argv = Pointers(words);
  const std::vector<char*> envp = Pointers(variables);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in >= 0 ? in : nothing, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    // Whoever started the tests may ignore signals, as shells do in the background.
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE}) signal(number, SIG_DFL);
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  close(nothing);
  if (pid < 0) throw std::runtime_error("fork failed");
  return pid;
}

// ReadSome appends what is there to text and closes fd at its end. A terminal whose other end is
// closed ends with EIO.
void ReadSome(int& fd, std::string& text) {
  std::array<char, 4096> buffer{};
  const ssize_t got = read(fd, buffer.data(), buffer.size());
  if (got > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(got));
    return;
  }
  if (got < 0 && errno == EINTR) return;
  close(fd);
  fd = -1;
}

int ExitCode(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

}  // namespace

const char kKeyHex[] = "000102030405060708090a0b0c0d0e0f10111213";

Bytes KeyBytes() { return Hex(kKeyHex); }

TempFolder::TempFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "voltaris-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::Write(const std::string& name, const std::string& content,
                              mode_t mode) const {
  const std::string file = path(name);
  std::ofstream(file, std::ios::binary) << content;
  if (chmod(file.c_str(), mode) != 0) throw std::runtime_error("chmod failed");
  return file;
}

std::string TempFolder::Read(const std::string& name) const {
  std::ifstream file(path(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

nlohmann::json Outcome::json() const {
  nlohmann::json document = nlohmann::json::parse(out, nullptr, false);
  if (document.is_discarded()) ADD_FAILURE() << "not JSON:\n" << out << "\nstderr:\n" << err;
  return document;
}

Program::Program(const std::string& name, const std::vector<std::string>& arguments,
                 const Environment& environment, Terminal terminal)
    : kind_(terminal) {
  const bool is_screen = terminal == Terminal::kScreen;
  const bool is_dialogue = terminal == Terminal::kDialogue;
  const Channel out = is_screen || terminal == Terminal::kOutput ? OpenTerminal() : OpenPipe();
  const Channel err = is_dialogue ? OpenTerminal() : OpenPipe();
  const int in = is_dialogue ? err.write_end : is_screen ? out.write_end : -1;
  pid_ = Spawn(name, arguments, environment, in, out.write_end, err.write_end);
  close(out.write_end);
  close(err.write_end);
  out_ = out.read_end;
  err_ = err.read_end;
}

Program::~Program() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (out_ >= 0) close(out_);
  if (err_ >= 0) close(err_);
}

void Program::Signal(int number) const { kill(pid_, number); }

void Program::Type(const std::string& text) const {
  const int terminal = kind_ == Terminal::kScreen ? out_ : err_;
  if (write(terminal, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    ADD_FAILURE() << "the terminal takes nothing";
  }
}

void Program::AwaitError(const std::string& text) {
  const auto is_there = [&] { return err_text_.find(text) != std::string::npos; };
  ReadOutput(is_there);
  EXPECT_TRUE(is_there()) << "'" << text << "' is not in:\n" << err_text_;
}

void Program::AwaitOutput(const std::function<bool(const std::string&)>& is_enough) {
  const auto holds = [&] { return is_enough(out_text_); };
  ReadOutput(holds);
  EXPECT_TRUE(holds()) << "what was waited for is not in:\n" << out_text_;
}

void Program::AwaitEnd() const {
  pollfd ended{static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)), POLLIN, 0};
  const std::chrono::milliseconds patience = kProgramPatience;
  const int count = poll(&ended, 1, static_cast<int>(patience.count()));
  EXPECT_EQ(count, 1) << "a program did not come to its end";
  close(ended.fd);
}

void Program::CloseOutput() {
  close(out_);
  out_ = -1;
}

void Program::ReadOutput(const std::function<bool()>& is_enough) {
  const Clock::time_point end = Clock::now() + kProgramPatience;
  while (out_ >= 0 || err_ >= 0) {
    if (is_enough()) return;
    std::array<pollfd, 2> watched = {pollfd{out_, POLLIN, 0}, pollfd{err_, POLLIN, 0}};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0 || poll(watched.data(), watched.size(), static_cast<int>(left)) == 0) {
      ADD_FAILURE() << "a program did not come to its end; it wrote:\n" << out_text_ << err_text_;
      return;
    }
    if (watched[0].revents != 0) ReadSome(out_, out_text_);
    if (watched[1].revents != 0) ReadSome(err_, err_text_);
  }
}

std::string Program::ReadLine() {
  ReadOutput([this] { return out_text_.find('\n', lines_end_) != std::string::npos; });
  const std::size_t end = out_text_.find('\n', lines_end_);
  if (end == std::string::npos) return {};
  const std::string line = out_text_.substr(lines_end_, end - lines_end_);
  lines_end_ = end + 1;
  return line;
}

Outcome Program::Finish() {
  ReadOutput([] { return false; });
  // Output that is still open here belongs to a program that hangs.
  if (out_ >= 0 || err_ >= 0) kill(pid_, SIGKILL);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return {ExitCode(status), out_text_, err_text_};
}

Outcome Foreign(const std::vector<std::string>& command) {
  return Program("/usr/bin/env", command).Finish();
}

Outcome Voltaris(const std::vector<std::string>& arguments, const Environment& environment,
                 Terminal terminal) {
  return Program("voltaris", arguments, environment, terminal).Finish();
}

namespace {

std::vector<std::string> NodeArguments(const std::string& path, NodeFile kind,
                                       const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {kind == NodeFile::kRecording ? "--replay" : "--config", path,
                                  "--listen", "127.0.0.1:0"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

}  // namespace

Node::Node(const std::string& content, const std::vector<std::string>& arguments, NodeFile kind)
    : program_("voltaris-node",
               NodeArguments(folder_.Write("fleet.toml", content), kind, arguments)) {
  const std::string greeting = "listening on 127.0.0.1:";
  const std::string line = program_.ReadLine();
  if (!line.starts_with(greeting)) {
    const Outcome outcome = program_.Finish();
    throw std::runtime_error("the node did not start: " + line + outcome.err);
  }
  port_ = static_cast<std::uint16_t>(std::stoul(line.substr(greeting.size())));
}

std::string Node::address() const { return "127.0.0.1:" + std::to_string(port_); }

Outcome Node::Ask(std::vector<std::string> arguments, Environment environment) const {
  environment.try_emplace("VOLTARIS_NODE", address());
  environment.try_emplace("VOLTARIS_DOMAIN", "test");
  return Voltaris(arguments, environment);
}

PeerConnection Node::Connect() const {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  PeerConnection connection(fd);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port_);
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
    throw std::runtime_error("cannot connect to the node");
  }
  return connection;
}

Outcome Node::Stop() {
  program_.Signal(SIGTERM);
  return program_.Finish();
}

std::string AddressList(const std::vector<std::string>& addresses) {
  std::string list;
  for (const std::string& address : addresses) list += (list.empty() ? "" : ",") + address;
  return list;
}

std::string NobodysAddress() { return "127.0.0.1:" + std::to_string(UnusedPort()); }

std::string ProcFile(pid_t pid, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::string DeviceId(int number) {
  std::string digits = std::to_string(number);
  return "device" + std::string(26 - digits.size(), '0') + digits;
}

std::string DeviceToml::Text() const {
  std::string vector;
  for (int i = 0; i <= 10; ++i) vector += (i == 0 ? "" : ", ") + std::to_string(i * step);
  return "[[device]]\nid = \"" + DeviceId(number) + "\"\nentity = " + std::to_string(entity) +
         "\nname = \"" + name + "\"\nrole = \"" + role + "\"\nkeywords = [" + keywords +
         "]\nimportance = " + std::to_string(importance) + "\nlevel = " + std::to_string(level) +
         "\nunits = " + std::to_string(units) + "\nusage_vector = [" + vector + "]\n" + more + "\n";
}

DeviceToml CompleteDevice() {
  DeviceToml device{.number = 1, .name = "all", .role = "lamp", .keywords = "\"f\", \"g\""};
  device.importance = 9;
  device.level = 4;
  device.units = -1;
  device.step = 5;
  device.more =
      "caliber = \"actual\"\ncategory = \"consumer\"\nentity_type = \"remote\"\nerror = \"hot\"\n"
      "text_21 = \"note\"\nnanny_vector = 305419896\n"
      "recurrence = { text = \"0 8 * * *\", byte1 = 1, byte2 = 2, flag = true }\n";
  return device;
}

std::string NodeToml(const std::vector<DeviceToml>& devices) {
  std::string text = "[node]\nid = \"" + DeviceId(0) +
                     "\"\ndomain = \"test\"\nname = \"test-node\"\nrole = \"node\"\n\n";
  for (const DeviceToml& device : devices) text += device.Text();
  return text;
}

std::string FaultToml(const std::string& kind, const std::string& more) {
  return "[[fault]]\nkind = \"" + kind + "\"\n" + more + "\n";
}

std::string OneLamp(int number) {
  return NodeToml({{.number = number, .name = "lamp-" + std::to_string(number)}});
}

std::string TwoLamps(const std::string& faults) {
  return NodeToml({{.number = 1, .name = "lamp-1"}, {.number = 2, .name = "lamp-2"}}) + faults;
}

std::string HostileRecording() {
  return "voltaris recording 1\nnode = \"" + DeviceId(0) +
         "\"\ndomain = \"test\"\ntime = 2026-11-21T15:29:54Z\n"
         "attributes = name, usage, level\n\nentity = \"" +
         DeviceId(1) +
         "\" 1\n  name = \"\\x1b]0;owned\\x07\\n|\"\n  usage = 360 e-1\n  level = 10\n\nend\n";
}

std::vector<Bytes> SplitPdus(const Bytes& stream) {
  constexpr std::size_t header = 80;
  constexpr std::size_t tlv_bytes_offset = 76;
  std::vector<Bytes> messages;
  std::size_t start = 0;
  while (start < stream.size()) {
    std::size_t size = stream.size() - start;
    if (size >= header) {
      const std::size_t at = start + tlv_bytes_offset;
      size = std::min(size, header + static_cast<std::size_t>(stream[at] << 8 | stream[at + 1]));
    }
    const auto first = stream.begin() + static_cast<std::ptrdiff_t>(start);
    messages.emplace_back(first, first + static_cast<std::ptrdiff_t>(size));
    start += size;
  }
  return messages;
}

}  // namespace vt::testing
