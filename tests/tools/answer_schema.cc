// What voltaris prints as JSON, held against the schema that the tree publishes.
#include <gtest/gtest.h>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include <fstream>
#include <map>
#include <memory>

#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Adapter = valijson::adapters::NlohmannJsonAdapter;

// SchemaOf is docs/schema/NAME.json, read once.
const valijson::Schema& SchemaOf(const std::string& name) {
  static std::map<std::string, std::unique_ptr<valijson::Schema>> schemas;
  std::unique_ptr<valijson::Schema>& schema = schemas[name];
  if (schema == nullptr) {
    std::ifstream file(VT_TEST_DIR "/../docs/schema/" + name + ".json");
    const nlohmann::json document = nlohmann::json::parse(file);
    schema = std::make_unique<valijson::Schema>();
    valijson::SchemaParser parser(valijson::SchemaParser::kDraft7);
    parser.populateSchema(Adapter(document), *schema);
  }
  return *schema;
}

std::string Faults(valijson::ValidationResults& results) {
  std::string faults;
  valijson::ValidationResults::Error error;
  while (results.popError(error)) {
    for (const std::string& part : error.context) faults += part;
    faults += ": " + error.description + '\n';
  }
  return faults;
}

}  // namespace

bool IsAnswer(const nlohmann::json& document, std::string* faults) {
  return MatchesSchema("voltaris-answer-1", document, faults);
}

bool MatchesSchema(const std::string& name, const nlohmann::json& document, std::string* faults) {
  valijson::Validator validator;
  valijson::ValidationResults results;
  const bool is_valid = validator.validate(SchemaOf(name), Adapter(document), &results);
  if (faults != nullptr) *faults = Faults(results);
  return is_valid;
}

nlohmann::json Outcome::answer() const {
  nlohmann::json document = json();
  const bool is_named = document.is_object() && document.contains("schema");
  const std::string schema = is_named ? document["schema"] : "voltaris-answer-1";
  std::string faults;
  EXPECT_TRUE(MatchesSchema(schema, document, &faults)) << faults << out;
  return document;
}

std::vector<nlohmann::json> Outcome::answer_lines() const {
  std::vector<nlohmann::json> lines;
  for (std::size_t start = 0; start < out.size();) {
    const std::size_t end = std::min(out.find('\n', start), out.size());
    lines.push_back(Outcome{exit_code, out.substr(start, end - start), err}.answer());
    start = end + 1;
  }
  return lines;
}

std::vector<nlohmann::json> LogLines(const std::string& text) {
  std::vector<nlohmann::json> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string line = text.substr(start, end - start);
    nlohmann::json parsed = nlohmann::json::parse(line, nullptr, false);
    std::string faults;
    EXPECT_TRUE(MatchesSchema("voltaris-log-1", parsed, &faults)) << faults << line;
    lines.push_back(std::move(parsed));
    start = end + 1;
  }
  return lines;
}

}  // namespace vt::testing
