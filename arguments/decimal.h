// Whole numbers on the command line.
#ifndef VT_ARGUMENTS_DECIMAL_H_
#define VT_ARGUMENTS_DECIMAL_H_

#include <string>

namespace vt::arguments {

// DecimalFault is a check for options: what is wrong with a number, or nothing. The parser by
// itself takes 010 for eight and 0x10 for sixteen.
inline std::string DecimalFault(const std::string& text) {
  const bool is_decimal = !text.empty() &&
                          text.find_first_not_of("0123456789") == std::string::npos &&
                          (text.size() == 1 || text.front() != '0');
  return is_decimal ? "" : "must be a whole number, not '" + text + "'";
}

}  // namespace vt::arguments

#endif  // VT_ARGUMENTS_DECIMAL_H_
