#include "tools/sessions.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <utility>

#include "tools/identities.h"
#include "tools/key_material.h"
#include "tools/unwrap.h"

namespace vt::tools {
namespace {

// Files are the keys and identities that were read so far, by their paths.
class Files {
 public:
  // All of them are read until then, where pipes are among them.
  explicit Files(std::chrono::milliseconds patience)
      : deadline_(std::chrono::steady_clock::now() + patience) {}

  const voltaris::Key& KeyOf(const std::string& path) {
    const auto known = keys_.find(path);
    if (known != keys_.end()) return known->second;
    return keys_.emplace(path, ReadKeyFile(path, deadline_)).first->second;
  }

  voltaris::Identity IdentityOf(const std::optional<std::string>& path) {
    if (!path) return voltaris::Identity::fresh();
    const auto known = identities_.find(*path);
    if (known != identities_.end()) return known->second;
    return identities_.emplace(*path, ReadIdentityFile(*path, deadline_)).first->second;
  }

 private:
  std::chrono::steady_clock::time_point deadline_;
  std::map<std::string, voltaris::Key> keys_;
  std::map<std::string, voltaris::Identity> identities_;
};

voltaris::Session OpenSession(const Options& options, const Target& target,
                              const std::string& address, Files& files) {
  const std::optional<std::string>& id_file = target.id_file ? target.id_file : options.id_file;
  const std::optional<std::string>& key_file = target.key_file ? target.key_file : options.key_file;
  const voltaris::Identity identity = files.IdentityOf(id_file);
  if (!key_file) return Unwrap(voltaris::Session::open(address, target.port, identity));
  return Unwrap(voltaris::Session::open(address, target.port, identity, files.KeyOf(*key_file)));
}

}  // namespace

std::vector<std::optional<voltaris::Session>> OpenSessions(
    const Options& options, const std::vector<Resolution>& addresses) {
  Files files(std::min<std::chrono::milliseconds>(options.timeout, kPipePatience));
  std::vector<std::optional<voltaris::Session>> sessions;
  sessions.reserve(options.targets.size());
  for (std::size_t i = 0; i < options.targets.size(); ++i) {
    const std::string& address = addresses[i].address;
    if (address.empty()) {
      sessions.emplace_back();
    } else {
      sessions.emplace_back(OpenSession(options, options.targets[i], address, files));
    }
  }
  return sessions;
}

}  // namespace vt::tools
