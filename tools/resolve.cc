#include "tools/resolve.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "files/file_descriptor.h"

namespace vt::tools {
namespace {

// A look-up waits for name servers and does nothing itself.
constexpr std::size_t kMostThreads = 32;

// Look-ups that nobody waits for any more go on: who resolves names again and again while the name
// server is silent must not have more and more of them. Each has a stack, of which 32 bits hold
// few.
constexpr std::size_t kMostLeftOver = 64;
constinit std::atomic<std::size_t> threads_at_work = 0;

bool IsAddress(const std::string& host) {
  in_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

// Work is shared by whoever waits and the threads, which may outlive him.
struct Work {
  std::mutex mutex;
  // Can be read when nothing is left: it is waited for together with signals.
  files::FileDescriptor done{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  Lookup lookup;
  std::vector<std::string> names;
  std::vector<std::optional<Resolution>> answers;
  std::size_t next = 0;
  std::size_t left = 0;
  bool given_up = false;
};

void Serve(const std::shared_ptr<Work>& work) {
  std::unique_lock lock(work->mutex);
  while (work->next < work->names.size() && !work->given_up) {
    const std::size_t index = work->next++;
    const std::string name = work->names[index];
    lock.unlock();
    Resolution answer = work->lookup(name);
    lock.lock();
    work->answers[index] = std::move(answer);
    if (--work->left == 0) (void)eventfd_write(work->done.get(), 1);
  }
}

// StartThreads returns how many there are: fewer than are wanted when the system has no more.
std::size_t StartThreads(const std::shared_ptr<Work>& work) {
  const std::size_t wanted = std::min(kMostThreads, work->names.size());
  for (std::size_t started = 0; started < wanted; ++started) {
    if (++threads_at_work > kMostLeftOver) {
      --threads_at_work;
      return started;
    }
    try {
      std::thread([work] {
        Serve(work);
        --threads_at_work;
      }).detach();
    } catch (const std::system_error&) {
      --threads_at_work;
      return started;
    }
  }
  return wanted;
}

// NamesToFind are the hosts that are no addresses, once each, with their places in the work.
std::map<std::string, std::size_t> NamesToFind(const std::vector<std::string>& hosts, Work& work) {
  std::map<std::string, std::size_t> places;
  for (const std::string& host : hosts) {
    if (IsAddress(host) || !places.emplace(host, work.names.size()).second) continue;
    work.names.push_back(host);
  }
  work.answers.resize(work.names.size());
  work.left = work.names.size();
  return places;
}

void Await(const Work& work, std::chrono::steady_clock::time_point deadline, int stop_descriptor) {
  using std::chrono::milliseconds;
  std::array<pollfd, 2> watched = {pollfd{work.done.get(), POLLIN, 0},
                                   pollfd{stop_descriptor, POLLIN, 0}};
  for (;;) {
    const auto left =
        std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    constexpr decltype(left) longest = 3600'000;
    const int time = static_cast<int>(std::clamp(left, decltype(left){0}, longest));
    if (poll(watched.data(), watched.size(), time) > 0 || left <= 0) return;
  }
}

}  // namespace

Resolution LookUpIpv4(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int error = getaddrinfo(host.c_str(), nullptr, &hints, &list);
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
  if (error != 0) {
    const char* reason = error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error);
    return {"", std::string("the name was not found: ") + reason};
  }
  sockaddr_in found{};
  std::memcpy(&found, list->ai_addr, sizeof found);
  std::array<char, INET_ADDRSTRLEN> text{};
  return {inet_ntop(AF_INET, &found.sin_addr, text.data(), text.size()), ""};
}

std::vector<Resolution> Resolve(const std::vector<std::string>& hosts,
                                std::chrono::steady_clock::time_point deadline,
                                const Lookup& lookup, int stop_descriptor) {
  const auto work = std::make_shared<Work>();
  work->lookup = lookup;
  const std::map<std::string, std::size_t> places = NamesToFind(hosts, *work);
  const std::size_t threads = StartThreads(work);

  if (threads > 0) Await(*work, deadline, stop_descriptor);

  const std::unique_lock lock(work->mutex);
  work->given_up = true;
  std::vector<Resolution> resolutions;
  resolutions.reserve(hosts.size());
  for (const std::string& host : hosts) {
    const auto place = places.find(host);
    if (place == places.end()) {
      resolutions.push_back({host, ""});
    } else {
      resolutions.push_back(work->answers[place->second].value_or(Resolution{
          "", threads > 0 ? "the name was not found in time" : "too many look-ups are under way"}));
    }
  }
  return resolutions;
}

}  // namespace vt::tools
