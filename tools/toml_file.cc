#include "tools/toml_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "files/file_content.h"
#include "recording/quoted_text.h"
#include "tools/exit_code.h"

namespace vt::tools {
namespace {

// People write these files.
constexpr std::size_t kLargestFile = std::size_t{16} << 20;

std::string Quoted(std::string_view key) { return "'" + std::string(key) + "'"; }

bool IsText(const std::string& text) {
  return !text.empty() && text.find('\0') == std::string::npos;
}

// ReadWhole returns what is wrong, or nothing.
std::string ReadWhole(const std::string& path, std::string& content) {
  const files::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.is_open()) return std::strerror(errno);
  try {
    content = files::ReadAll(file, kLargestFile, "");
    return {};
  } catch (const std::system_error& error) {
    if (error.code().value() == EFBIG) return "the file is larger than 16 MiB";
    return error.code().message();
  }
}

}  // namespace

void ThrowFaults(const Faults& faults) {
  if (!faults.empty()) throw Failures(kExitUsage, faults);
}

TomlFile::TomlFile(std::string path, Faults& faults) : path_(std::move(path)), faults_(faults) {
  std::string content;
  if (const std::string fault = ReadWhole(path_, content); !fault.empty()) {
    faults_.push_back(path_ + ": " + fault);
    return;
  }
  try {
    top_ = toml::parse(content, path_);
  } catch (const toml::parse_error& error) {
    Report(error.source().begin, std::string(error.description()));
  }
}

bool TomlFile::Exists(const std::string& path) {
  struct stat status {};
  // What cannot be looked at may be there, and reading it will say why it cannot be.
  return stat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

void TomlFile::Report(const toml::source_position& place, const std::string& message) const {
  faults_.push_back(path_ + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) +
                    ": " + message);
}

void TomlFile::AllowOnly(const toml::table& table,
                         const std::vector<std::string_view>& keys) const {
  for (const auto& [key, value] : table) {
    if (std::ranges::find(keys, key.str()) != keys.end()) continue;
    Report(key.source().begin, "there is no setting " + recording::Quote(key.str()) + " here");
  }
}

std::optional<std::string> TomlFile::Text(const toml::table& table, std::string_view key) const {
  const toml::node* node = table.get(key);
  if (node == nullptr) return std::nullopt;
  std::optional<std::string> text = node->value_exact<std::string>();
  if (text && IsText(*text)) return text;
  Report(*node, Quoted(key) + " must be a text that is not empty");
  return std::nullopt;
}

std::optional<std::vector<std::string>> TomlFile::Texts(const toml::table& table,
                                                        std::string_view key) const {
  const toml::node* node = table.get(key);
  if (node == nullptr) return std::nullopt;
  if (node->is_string()) {
    std::optional<std::string> text = Text(table, key);
    if (!text) return std::nullopt;
    return std::vector<std::string>{*std::move(text)};
  }
  const toml::array* items = node->as_array();
  std::vector<std::string> texts;
  for (std::size_t i = 0; items != nullptr && i < items->size(); ++i) {
    std::optional<std::string> text = items->get(i)->value_exact<std::string>();
    if (text && IsText(*text)) texts.push_back(*std::move(text));
  }
  if (items != nullptr && texts.size() == items->size()) return texts;
  Report(*node, Quoted(key) + " must be a text, or a list of texts, that are not empty");
  return std::nullopt;
}

std::optional<std::int64_t> TomlFile::Number(const toml::table& table, std::string_view key,
                                             std::int64_t least, std::int64_t most) const {
  const toml::node* node = table.get(key);
  if (node == nullptr) return std::nullopt;
  const std::optional<std::int64_t> number = node->value_exact<std::int64_t>();
  if (number && *number >= least && *number <= most) return number;
  Report(*node, Quoted(key) + " must be a whole number from " + std::to_string(least) + " to " +
                    std::to_string(most));
  return std::nullopt;
}

std::string TomlFile::PathFrom(const std::string& path, const std::string& home) const {
  if (path.starts_with("~/") && !home.empty()) return home + path.substr(1);
  const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
  return (folder / path).string();
}

}  // namespace vt::tools
