#include "tools/attrs_command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "recording/quoted_text.h"
#include "tools/attribute_catalogue.h"
#include "tools/json_text.h"
#include "tools/text_table.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;
using Entries = std::vector<CatalogueEntry>;

struct AttrsArguments {
  std::vector<std::string> names;
  std::string format = "table";
};

// Chosen are the entries of that name, in the order of the names, or all.
Entries Chosen(const std::vector<std::string>& names) {
  Entries all = AttributeCatalogue();
  if (names.empty()) return all;
  Entries chosen;
  for (const std::string& name : names) {
    const auto found = std::ranges::find(all, name, &CatalogueEntry::name);
    if (found == all.end()) {
      throw Failure(kExitUsage, "there is no attribute " + recording::Quote(name) +
                                    "; voltaris attrs lists them");
    }
    chosen.push_back(*found);
  }
  return chosen;
}

std::string UseOf(const CatalogueEntry& entry) {
  if (entry.settable) return "collect, set";
  return entry.collectable ? "collect" : "record";
}

std::string WordList(const CatalogueEntry& entry) {
  std::string list;
  for (const auto& [word, number] : entry.words) {
    list += (list.empty() ? "" : ", ") + word + " (" + std::to_string(number) + ")";
  }
  return list;
}

void PrintForPeople(std::ostream& out, const Entries& entries) {
  TextTable attributes;
  attributes.AddColumn("attribute");
  for (const char* heading : {"number", "element"}) {
    attributes.AddColumn(heading, TextTable::Side::kRight);
  }
  for (const char* heading : {"type", "use", "meaning"}) attributes.AddColumn(heading);
  for (const CatalogueEntry& entry : entries) {
    attributes.AddLine({std::string(entry.name), std::to_string(entry.number),
                        std::to_string(entry.element_type), std::string(entry.value_type),
                        UseOf(entry), std::string(entry.meaning)});
  }
  out << attributes.Text();
  const auto has_words = [](const CatalogueEntry& entry) { return !entry.words.empty(); };
  if (std::ranges::none_of(entries, has_words)) return;
  TextTable enumerations;
  for (const char* heading : {"enumeration", "words"}) enumerations.AddColumn(heading);
  for (const CatalogueEntry& entry : entries) {
    if (has_words(entry)) enumerations.AddLine({std::string(entry.name), WordList(entry)});
  }
  out << '\n' << enumerations.Text();
}

Json JsonOf(const CatalogueEntry& entry) {
  Json members = {{"name", entry.name},
                  {"number", entry.number},
                  {"element_type", entry.element_type},
                  {"type", entry.value_type},
                  {"collectable", entry.collectable},
                  {"settable", entry.settable},
                  {"meaning", entry.meaning}};
  Json values = Json::array();
  for (const auto& [word, number] : entry.words) {
    values.push_back({{"word", word}, {"number", number}});
  }
  if (!values.empty()) members["values"] = std::move(values);
  return members;
}

void PrintForPrograms(std::ostream& out, const Entries& entries) {
  Json attributes = Json::array();
  for (const CatalogueEntry& entry : entries) attributes.push_back(JsonOf(entry));
  const Json document = {{"schema", "voltaris-attrs-1"}, {"attributes", std::move(attributes)}};
  out << JsonDocument(document);
}

}  // namespace

void AddAttrsCommand(CLI::App& app, Action& chosen) {
  const auto arguments = std::make_shared<AttrsArguments>();
  CLI::App* attrs = app.add_subcommand(
      "attrs", "Lists attributes: numbers, types, and what can be done with them.");
  attrs->footer("Examples:\n  voltaris attrs\n  voltaris attrs level caliber -o json\n");
  attrs->add_option("attribute", arguments->names, "attributes to list (default: all)")
      ->type_name("NAME");
  attrs->add_option("-o,--output", arguments->format, "table (default) or json")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"table", "json"}));
  attrs->callback([arguments, &chosen] {
    chosen = [arguments](const Streams& streams) {
      const Entries entries = Chosen(arguments->names);
      if (arguments->format == "json") {
        PrintForPrograms(streams.out, entries);
      } else {
        PrintForPeople(streams.out, entries);
      }
      return kExitOk;
    };
  });
}

}  // namespace vt::tools
