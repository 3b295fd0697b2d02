// What a test says of itself: how many cases it took, or why it left some out.
#ifndef VT_TESTS_HARNESS_NOTE_H_
#define VT_TESTS_HARNESS_NOTE_H_

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <type_traits>

namespace vt::testing {

// Note prints what it is given, as std::cout does: by printf, whose arguments the memory sanitizer
// follows, and not by the C++ library, of which it believes that numbers are never written.
class Note {
 public:
  template <class Part>
  const Note& operator<<(const Part& part) const {
    if constexpr (std::is_integral_v<Part> && std::is_signed_v<Part>) {
      (void)std::printf("%" PRIdMAX, static_cast<std::intmax_t>(part));
    } else if constexpr (std::is_integral_v<Part>) {
      (void)std::printf("%" PRIuMAX, static_cast<std::uintmax_t>(part));
    } else {
      const std::string_view text(part);
      (void)std::printf("%.*s", static_cast<int>(text.size()), text.data());
    }
    return *this;
  }
};

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_NOTE_H_
