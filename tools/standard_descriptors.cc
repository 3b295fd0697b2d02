#include "tools/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace vt::tools {

void HoldStandardDescriptors() {
  // A descriptor that can only be read cannot be written to, and the other way round.
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_WRONLY};
  static_assert(STDIN_FILENO == 0 && STDOUT_FILENO == 1 && STDERR_FILENO == 2);
  for (int number = 0; number < 3; ++number) {
    // The lowest free number is taken, and those below are in use by now.
    if (fcntl(number, F_GETFD) < 0) (void)open("/dev/null", kModes[number]);
  }
}

}  // namespace vt::tools
