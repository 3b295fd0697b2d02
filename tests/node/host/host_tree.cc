#include "tests/node/host/host_tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace vt::testing {

namespace fs = std::filesystem;

HostTree::HostTree() { fs::create_directory(root()); }

void HostTree::Put(const std::string& path, const std::string& text) const {
  const fs::path file = root() + "/" + path;
  fs::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << text << '\n';
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + file.string());
}

void HostTree::MakeFolder(const std::string& path) const {
  fs::create_directories(root() + "/" + path);
}

void HostTree::Link(const std::string& path, const std::string& target) const {
  const fs::path link = root() + "/" + path;
  fs::create_directories(link.parent_path());
  fs::create_symlink(target, link);
}

void HostTree::MakePipe(const std::string& path) const {
  const fs::path pipe = root() + "/" + path;
  fs::create_directories(pipe.parent_path());
  if (mkfifo(pipe.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
}

void HostTree::Remove(const std::string& path) const { fs::remove_all(root() + "/" + path); }

node::Tree::Open HostTree::open() const {
  return [this](const char* path, int flags) {
    if (denied_.contains(path)) {
      errno = EACCES;
      return -1;
    }
    return ::open(path, flags);
  };
}

void HostTree::PutZone(const std::string& folder, const std::string& name,
                       const std::string& energy, const std::string& range) const {
  const std::string zone = "sys/class/powercap/" + folder;
  Put(zone + "/name", name);
  Put(zone + "/max_energy_range_uj", range);
  PutEnergy(folder, energy);
}

void HostTree::PutEnergy(const std::string& folder, const std::string& energy) const {
  Put("sys/class/powercap/" + folder + "/energy_uj", energy);
}

}  // namespace vt::testing
