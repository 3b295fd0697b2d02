// One table of the configuration: its members, checked, and the place of what is wrong with them.
#ifndef VT_NODE_CONFIG_SECTION_H_
#define VT_NODE_CONFIG_SECTION_H_

#include <netinet/in.h>
#include <toml++/toml.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vt::node {

// Words are what a setting may say, with the values that they stand for.
using Words = std::initializer_list<std::pair<std::string_view, std::int32_t>>;

// Section refers to the table, which has to outlive it. What is wrong it throws as a FleetError.
class Section {
 public:
  Section(const toml::table& table, std::string path) : table_(table), path_(std::move(path)) {}

  // AllowOnly rejects the first member that is none of these.
  void AllowOnly(std::initializer_list<std::string_view> keys) const;

  bool Has(std::string_view key) const { return table_.contains(key); }

  // Each of the following returns a member; without a fallback it must be there.

  // A text has 1 to 255 of the characters that the protocol allows.
  std::string Text(std::string_view key) const;
  std::string Text(std::string_view key, const std::string& fallback) const;
  std::optional<std::string> OptionalText(std::string_view key) const;
  // Anything but a zero byte may stand in a path and in other texts that are no names.
  std::string AnyText(std::string_view key) const;
  std::vector<std::string> AnyTexts(std::string_view key) const;
  std::string Id(std::string_view key) const;
  // Keywords are a list of texts, which is returned with commas between.
  std::string Keywords(std::string_view key) const;
  std::int64_t Number(std::string_view key, std::int64_t least, std::int64_t greatest) const;
  std::int64_t Number(std::string_view key, std::int64_t least, std::int64_t greatest,
                      std::int64_t fallback) const;
  // Millionths takes a number with or without a fraction.
  std::int64_t Millionths(std::string_view key, double least, double greatest,
                          std::int64_t fallback) const;
  bool Flag(std::string_view key, bool fallback) const;
  std::int32_t Word(std::string_view key, Words words, std::int32_t fallback) const;
  std::optional<sockaddr_in> Address(std::string_view key) const;
  // Numbers is a list of whole numbers, Fractions one of numbers with or without a fraction.
  std::vector<std::int64_t> Numbers(std::string_view key, std::int64_t least,
                                    std::int64_t greatest) const;
  std::vector<double> Fractions(std::string_view key, double least, double greatest) const;
  // Tables is a list of tables, empty when there is none.
  std::vector<Section> Tables(std::string_view key) const;
  std::optional<Section> Table(std::string_view key) const;
  bool IsText(std::string_view key) const;

  // Reject throws a FleetError with the place of the member, or of the table when there is none.
  [[noreturn]] void Reject(std::string_view key, const std::string& message) const;
  [[noreturn]] void Reject(const std::string& message) const;

  const std::string& path() const { return path_; }

 private:
  const toml::node& Find(std::string_view key) const;
  const toml::array& List(std::string_view key, const std::string& of_what) const;
  void CheckText(const toml::node& node, const std::string& what, const std::string& text) const;
  std::int64_t NumberOf(const toml::node& node, const std::string& what, std::int64_t least,
                        std::int64_t greatest) const;
  double FractionOf(const toml::node& node, const std::string& what, double least,
                    double greatest) const;
  [[noreturn]] void RejectAt(const toml::source_position& place, const std::string& message) const;

  const toml::table& table_;
  std::string path_;
};

}  // namespace vt::node

#endif  // VT_NODE_CONFIG_SECTION_H_
