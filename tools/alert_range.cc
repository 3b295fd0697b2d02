#include "tools/alert_range.h"

#include <charconv>
#include <limits>

namespace vt::tools {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// ParseNumber takes decimal numbers alone, and neither "inf" nor "nan".
std::optional<double> ParseNumber(std::string_view text) {
  if (text.find_first_not_of("0123456789.-") != std::string_view::npos) return std::nullopt;
  double number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<double> ParseStart(std::string_view text) {
  return text == "~" ? -kInfinity : ParseNumber(text);
}

std::optional<double> ParseEnd(std::string_view text) {
  return text.empty() ? kInfinity : ParseNumber(text);
}

}  // namespace

std::optional<AlertRange> AlertRange::Parse(std::string_view text) {
  AlertRange range;
  range.text_ = text;
  range.is_inside_ = text.starts_with('@');
  if (range.is_inside_) text.remove_prefix(1);
  const std::size_t colon = text.find(':');
  const bool has_start = colon != std::string_view::npos;
  const std::optional<double> start = has_start ? ParseStart(text.substr(0, colon)) : 0;
  const std::optional<double> end =
      has_start ? ParseEnd(text.substr(colon + 1)) : ParseNumber(text);
  if (!start || !end || *start > *end) return std::nullopt;
  range.start_ = *start;
  range.end_ = *end;
  return range;
}

bool AlertRange::IsAlert(double value) const {
  const bool is_inside = value >= start_ && value <= end_;
  return is_inside == is_inside_;
}

bool AlertRange::IsAlertFrom(double value) const {
  return is_inside_ ? value >= start_ && end_ == kInfinity : value > end_;
}

bool AlertRange::IsAlertUpTo(double value) const {
  return is_inside_ ? value <= end_ && start_ == -kInfinity : value < start_;
}

}  // namespace vt::tools
