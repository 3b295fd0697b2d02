#include "node/host/power_source.h"

#include <array>
#include <cmath>
#include <utility>

#include "vtapi.h"

namespace vt::node {
namespace {

constexpr double kGreatestMilliwatts = 1e12;
constexpr std::size_t kLongestPart = 64;

struct CaliberRow {
  std::string_view word;
  std::int32_t library;
};
constexpr std::array<CaliberRow, 2> kCalibers = {{
    {"measured", CV_CORVANE_USAGE_CALIBER_ACTUAL},
    {"estimated", CV_CORVANE_USAGE_CALIBER_PRESUMED},
}};

struct CategoryRow {
  std::string_view word;
  std::int32_t library;
};
constexpr std::array<CategoryRow, 3> kCategories = {{
    {"consumer", CV_CORVANE_USAGE_CONSUMER},
    {"producer", CV_CORVANE_USAGE_PRODUCER},
    {"meter", CV_CORVANE_USAGE_METER},
}};

constexpr std::array<std::string_view, 6> kTroubles = {"none", "waiting", "denied",
                                                       "gone", "faulty",  "unreachable"};

const CaliberRow& Row(Caliber caliber) { return kCalibers.at(static_cast<std::size_t>(caliber)); }

const CategoryRow& Row(Category category) {
  return kCategories.at(static_cast<std::size_t>(category));
}

bool IsPrintable(char letter) { return letter >= ' ' && letter <= '~'; }

// Not std::isalnum, which asks the locale.
bool MayStandInKey(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') ||
         std::string_view("._:+-").find(letter) != std::string_view::npos;
}

}  // namespace

std::int32_t LibraryCaliber(Caliber caliber) { return Row(caliber).library; }

std::int32_t LibraryCategory(Category category) { return Row(category).library; }

std::string_view Word(Caliber caliber) { return Row(caliber).word; }

std::string_view Word(Category category) { return Row(category).word; }

std::string_view Word(Trouble trouble) { return kTroubles.at(static_cast<std::size_t>(trouble)); }

Reading Reading::Failed(Trouble trouble, std::string detail) {
  Reading reading;
  reading.trouble = trouble;
  reading.detail = std::move(detail);
  return reading;
}

Reading PlausibleReading(double milliwatts, Category category, const std::string& where) {
  // Written so that what is not a number fails, too.
  if (!(milliwatts >= 0 && milliwatts <= kGreatestMilliwatts)) {
    return Reading::Failed(Trouble::kFaulty, where + ": no host has such a power");
  }
  return {std::llround(milliwatts), category, Trouble::kNone, {}};
}

std::string PrintableText(std::string_view text) {
  std::string result(text.substr(0, kLongestPart));
  for (char& letter : result) {
    if (!IsPrintable(letter)) letter = '?';
  }
  return result;
}

std::string KeyText(std::string_view text) {
  std::string result(text.substr(0, kLongestPart));
  for (char& letter : result) {
    if (!MayStandInKey(letter)) letter = '_';
  }
  return result;
}

}  // namespace vt::node
