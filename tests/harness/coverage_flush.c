/*
 * In the coverage build alone, linked into the library: writes what was counted when an assertion
 * aborts the process, which ends without the exit handler that otherwise writes it.
 */
#include <signal.h>

int __llvm_profile_write_file(void);

/* It returns, and abort then ends the process as it would have. */
static void WriteCounts(int number) {
  (void)number;
  (void)__llvm_profile_write_file();
}

__attribute__((constructor)) static void WriteCountsOnAbort(void) { signal(SIGABRT, WriteCounts); }
