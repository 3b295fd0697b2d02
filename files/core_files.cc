#include "files/core_files.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace vt::files {

void ForbidCoreFiles() {
  // The limit alone would not do: a core that goes to a program instead of a file ignores it. The
  // other one alone would, unless somebody makes the process dumpable again. Neither can fail with
  // these arguments, so that there is nothing to tell.
  (void)prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  struct rlimit limit {};
  if (getrlimit(RLIMIT_CORE, &limit) != 0) return;
  limit.rlim_cur = 0;  // the greatest stays, for what this process starts
  (void)setrlimit(RLIMIT_CORE, &limit);
}

}  // namespace vt::files
