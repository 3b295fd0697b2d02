// The two names that every target defines: its entry, and how its inputs are laid out for the
// mutator.
#ifndef VT_FUZZ_TARGET_H_
#define VT_FUZZ_TARGET_H_

#include <cstddef>
#include <cstdint>

namespace vt::fuzz {

enum class Layout {
  kMessages,          // messages, then bytes of the target's own
  kPrefixedMessages,  // n % 16 in the first byte, n bytes, then messages
  kElements,          // elements back to back
  kBytes,             // none
};

extern const Layout kInputLayout;

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // VT_FUZZ_TARGET_H_
