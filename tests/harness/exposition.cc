#include "tests/harness/exposition.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace vt::testing {

Exposition::Exposition(const std::string& text) {
  EXPECT_TRUE(text.ends_with('\n'));
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) Take(line);
}

double Exposition::At(const std::string& sample) const {
  const auto found = samples_.find(sample);
  if (found == samples_.end()) ADD_FAILURE() << "there is no " << sample;
  return found != samples_.end() ? found->second : -1;
}

std::string Exposition::TypeOf(const std::string& family) const {
  const auto found = types_.find(family);
  return found != types_.end() ? found->second : "none";
}

void Exposition::Take(const std::string& line) {
  static const std::regex help(R"(# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) (\S.*))");
  static const std::regex type(R"(# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge|histogram))");
  static const std::regex sample(
      R"re(([a-zA-Z_:][a-zA-Z0-9_:]*)(\{[a-zA-Z_]\w*="([^"\\]|\\["\\n])*"(,[a-zA-Z_]\w*="([^"\\]|\\["\\n])*")*\})? ([0-9.eE+-]+))re");
  std::smatch part;
  if (std::regex_match(line, part, help)) {
    EXPECT_TRUE(helped_.insert(part[1]).second) << "twice: " << line;
    family_ = part[1];
  } else if (std::regex_match(line, part, type)) {
    EXPECT_EQ(part[1], family_) << "HELP and TYPE belong together";
    EXPECT_TRUE(types_.emplace(part[1], part[2]).second) << "twice: " << line;
  } else if (std::regex_match(line, part, sample)) {
    const std::string name = part[1];
    EXPECT_TRUE(IsOfFamily(name)) << line << " in " << family_;
    EXPECT_TRUE(samples_.emplace(name + part[2].str(), std::stod(part[6])).second) << line;
  } else {
    ADD_FAILURE() << "not of the format: " << line;
  }
}

bool Exposition::IsOfFamily(const std::string& name) const {
  if (TypeOf(family_) != "histogram") return name == family_;
  return name == family_ + "_bucket" || name == family_ + "_sum" || name == family_ + "_count";
}

}  // namespace vt::testing
