// Ranges as monitoring plug-ins write them: what is outside of one, or inside with a leading @, is
// an alert.
#ifndef VT_TOOLS_ALERT_RANGE_H_
#define VT_TOOLS_ALERT_RANGE_H_

#include <optional>
#include <string>
#include <string_view>

namespace vt::tools {

// AlertRange is two ends that belong to it, and which side of it is the alert:
//
//   20      below 0 or above 20     10:     below 10
//   10:20   below 10 or above 20    ~:5     above 5
//   @10:20  from 10 to 20
class AlertRange {
 public:
  // Parse returns nothing for a text that is no range, such as one that ends before it starts.
  static std::optional<AlertRange> Parse(std::string_view text);

  bool IsAlert(double value) const;

  // IsAlertFrom tells whether a value is an alert and every greater one is, too; IsAlertUpTo, every
  // smaller one.
  bool IsAlertFrom(double value) const;
  bool IsAlertUpTo(double value) const;

  // text is what was parsed.
  const std::string& text() const { return text_; }

 private:
  AlertRange() = default;

  std::string text_;
  double start_ = 0;
  double end_ = 0;
  bool is_inside_ = false;  // the alert
};

}  // namespace vt::tools

#endif  // VT_TOOLS_ALERT_RANGE_H_
