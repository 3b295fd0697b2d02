#include "node/config_section.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "vtapi.h"

#include "node/fleet.h"
#include "node/fleet_file.h"
#include "node/options.h"

namespace vt::node {
namespace {

constexpr int kBlanksAllowed = 2;

std::string Quoted(std::string_view key) { return "'" + std::string(key) + "'"; }

std::string Short(double number) {
  std::ostringstream text;
  text << number;
  return text.str();
}

}  // namespace

void Section::AllowOnly(std::initializer_list<std::string_view> keys) const {
  for (const auto& [key, value] : table_) {
    if (std::ranges::find(keys, key.str()) == keys.end()) {
      RejectAt(key.source().begin, "there is no setting " + Quoted(key.str()) + " here");
    }
  }
}

std::string Section::Text(std::string_view key) const {
  const toml::node& node = Find(key);
  const std::optional<std::string> text = node.value_exact<std::string>();
  if (!text) Reject(key, Quoted(key) + " must be a text");
  CheckText(node, Quoted(key), *text);
  return *text;
}

std::string Section::Text(std::string_view key, const std::string& fallback) const {
  return Has(key) ? Text(key) : fallback;
}

std::optional<std::string> Section::OptionalText(std::string_view key) const {
  return Has(key) ? std::optional(Text(key)) : std::nullopt;
}

std::string Section::AnyText(std::string_view key) const {
  const std::optional<std::string> text = Find(key).value_exact<std::string>();
  if (!text || text->empty() || text->find('\0') != std::string::npos) {
    Reject(key, Quoted(key) + " must be a text that is not empty");
  }
  return *text;
}

std::vector<std::string> Section::AnyTexts(std::string_view key) const {
  std::vector<std::string> texts;
  for (const toml::node& item : List(key, "texts")) {
    const std::optional<std::string> text = item.value_exact<std::string>();
    if (!text || text->find('\0') != std::string::npos) {
      RejectAt(item.source().begin, Quoted(key) + " must be a list of texts");
    }
    texts.push_back(*text);
  }
  return texts;
}

std::string Section::Id(std::string_view key) const {
  std::string id = Text(key);
  if (id.size() != kIdLength) {
    Reject(key, Quoted(key) + " must have 32 characters, and has " + std::to_string(id.size()));
  }
  return id;
}

std::string Section::Keywords(std::string_view key) const {
  if (!Has(key)) return {};
  std::string joined;
  for (const toml::node& item : List(key, "texts")) {
    const std::optional<std::string> word = item.value_exact<std::string>();
    if (!word || word->find(',') != std::string::npos) {
      RejectAt(item.source().begin, "a keyword must be a text without a comma");
    }
    CheckText(item, "a keyword", *word);
    joined += (joined.empty() ? "" : ",") + *word;
  }
  if (joined.size() > kLongestText) Reject(key, "the keywords are longer than 255 characters");
  return joined;
}

std::int64_t Section::Number(std::string_view key, std::int64_t least,
                             std::int64_t greatest) const {
  return NumberOf(Find(key), Quoted(key), least, greatest);
}

std::int64_t Section::Number(std::string_view key, std::int64_t least, std::int64_t greatest,
                             std::int64_t fallback) const {
  return Has(key) ? Number(key, least, greatest) : fallback;
}

std::int64_t Section::Millionths(std::string_view key, double least, double greatest,
                                 std::int64_t fallback) const {
  if (!Has(key)) return fallback;
  constexpr double million = 1e6;
  return std::llround(FractionOf(Find(key), Quoted(key), least, greatest) * million);
}

bool Section::Flag(std::string_view key, bool fallback) const {
  if (!Has(key)) return fallback;
  const std::optional<bool> flag = Find(key).value_exact<bool>();
  if (!flag) Reject(key, Quoted(key) + " must be true or false");
  return *flag;
}

std::int32_t Section::Word(std::string_view key, Words words, std::int32_t fallback) const {
  if (!Has(key)) return fallback;
  const std::string text = Text(key);
  std::string all;
  for (const auto& [word, value] : words) {
    if (word == text) return value;
    all += (all.empty() ? "" : ", ") + std::string(word);
  }
  Reject(key, Quoted(key) + " must be one of " + all);
}

std::optional<sockaddr_in> Section::Address(std::string_view key) const {
  if (!Has(key)) return std::nullopt;
  const std::optional<sockaddr_in> address = ParseEndpoint(Text(key));
  if (!address) Reject(key, Quoted(key) + " must be HOST:PORT with an IPv4 address");
  return address;
}

std::vector<std::int64_t> Section::Numbers(std::string_view key, std::int64_t least,
                                           std::int64_t greatest) const {
  std::vector<std::int64_t> numbers;
  for (const toml::node& item : List(key, "numbers")) {
    numbers.push_back(NumberOf(item, "a number in " + Quoted(key), least, greatest));
  }
  return numbers;
}

std::vector<double> Section::Fractions(std::string_view key, double least, double greatest) const {
  std::vector<double> numbers;
  for (const toml::node& item : List(key, "numbers")) {
    numbers.push_back(FractionOf(item, "a number in " + Quoted(key), least, greatest));
  }
  return numbers;
}

std::vector<Section> Section::Tables(std::string_view key) const {
  std::vector<Section> sections;
  if (!Has(key)) return sections;
  for (const toml::node& item : List(key, "tables")) {
    const toml::table* table = item.as_table();
    if (table == nullptr) RejectAt(item.source().begin, Quoted(key) + " must be a list of tables");
    sections.emplace_back(*table, path_);
  }
  return sections;
}

std::optional<Section> Section::Table(std::string_view key) const {
  if (!Has(key)) return std::nullopt;
  const toml::table* table = Find(key).as_table();
  if (table == nullptr) Reject(key, Quoted(key) + " must be a table");
  return Section(*table, path_);
}

bool Section::IsText(std::string_view key) const { return Has(key) && Find(key).is_string(); }

void Section::Reject(std::string_view key, const std::string& message) const {
  const toml::node* node = table_.get(key);
  if (node == nullptr) Reject(message);
  RejectAt(node->source().begin, message);
}

void Section::Reject(const std::string& message) const { RejectAt(table_.source().begin, message); }

const toml::node& Section::Find(std::string_view key) const {
  const toml::node* node = table_.get(key);
  if (node == nullptr) Reject(Quoted(key) + " is missing");
  return *node;
}

const toml::array& Section::List(std::string_view key, const std::string& of_what) const {
  const toml::array* items = Find(key).as_array();
  if (items == nullptr) Reject(key, Quoted(key) + " must be a list of " + of_what);
  return *items;
}

void Section::CheckText(const toml::node& node, const std::string& what,
                        const std::string& text) const {
  if (text.size() > kLongestText) {
    RejectAt(node.source().begin, what + " is longer than 255 characters");
  }
  if (text.find('\0') != std::string::npos ||
      vtn_string_in_whitelist(text.c_str(), kBlanksAllowed) == 0) {
    RejectAt(node.source().begin, what +
                                      " must not be empty, and may have letters, digits, blanks "
                                      "and ~!@#$%^&()_-+={}[]\\:.,></ only");
  }
}

std::int64_t Section::NumberOf(const toml::node& node, const std::string& what, std::int64_t least,
                               std::int64_t greatest) const {
  const std::optional<std::int64_t> number = node.value_exact<std::int64_t>();
  if (number && *number >= least && *number <= greatest) return *number;
  RejectAt(node.source().begin, what + " must be a whole number from " + std::to_string(least) +
                                    " to " + std::to_string(greatest));
}

double Section::FractionOf(const toml::node& node, const std::string& what, double least,
                           double greatest) const {
  const std::optional<double> number =
      node.is_number() ? node.value<double>() : std::optional<double>();
  // Written so that "not a number" fails too.
  if (number && *number >= least && *number <= greatest) return *number;
  RejectAt(node.source().begin,
           what + " must be a number from " + Short(least) + " to " + Short(greatest));
}

void Section::RejectAt(const toml::source_position& place, const std::string& message) const {
  throw FleetError(path_, place.line, place.column, message);
}

}  // namespace vt::node
