// Options of the command line that may be given more than once.
#ifndef VT_ARGUMENTS_REPEATABLE_H_
#define VT_ARGUMENTS_REPEATABLE_H_

#include <CLI/CLI.hpp>

#include <string>

namespace vt::arguments {

// Repeatable makes an option take one value each time that it is given, and keep all of them.
inline CLI::Option* Repeatable(CLI::Option* option, const std::string& type_name) {
  return option->type_name(type_name)->expected(1)->allow_extra_args(false)->take_all();
}

}  // namespace vt::arguments

#endif  // VT_ARGUMENTS_REPEATABLE_H_
