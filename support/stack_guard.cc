// What 32-bit code of g++ calls when the guard of a stack frame was overwritten. The C library's
// own comes from an archive that is not marked for control-flow protection, and would take the mark
// from the whole library.
#if defined(__i386__) && !defined(__clang__)

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the C library's
extern "C" [[noreturn]] void __stack_chk_fail();

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the compiler's
extern "C" [[noreturn]] __attribute__((visibility("hidden"))) void __stack_chk_fail_local();
void __stack_chk_fail_local() { __stack_chk_fail(); }

#endif
