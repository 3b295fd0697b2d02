// Text in the format of Prometheus, read as strictly as the format says.
#ifndef VT_TESTS_HARNESS_EXPOSITION_H_
#define VT_TESTS_HARNESS_EXPOSITION_H_

#include <map>
#include <set>
#include <string>

namespace vt::testing {

// Exposition is a text that was read: each family once, with HELP and TYPE in front of its samples,
// which stand together; each sample once. What breaks that fails the test.
class Exposition {
 public:
  explicit Exposition(const std::string& text);

  // At is the value of a sample, named with its labels; it fails the test when there is none.
  double At(const std::string& sample) const;
  // TypeOf is "none" for a family that is not there.
  std::string TypeOf(const std::string& family) const;
  const std::map<std::string, std::string>& types() const { return types_; }
  const std::map<std::string, double>& samples() const { return samples_; }

 private:
  void Take(const std::string& line);
  bool IsOfFamily(const std::string& name) const;

  std::string family_;
  std::set<std::string> helped_;
  std::map<std::string, std::string> types_;
  std::map<std::string, double> samples_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_EXPOSITION_H_
