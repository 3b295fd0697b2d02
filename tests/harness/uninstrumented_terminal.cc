// For the memory sanitizer, like uninstrumented.cc: what voltaris calls to lay out tables and to
// draw on terminals. In its archive alone, for the library has nothing to do with them.
#include <sanitizer/msan_interface.h>

#include <cstdint>

extern "C" {

int __real_scols_print_table_to_string(void* table, char** data);

// Everything that a table was made of has passed through libsmartcols, which has its own copies.
int __wrap_scols_print_table_to_string(void* table, char** data) {
  __msan_scoped_disable_interceptor_checks();
  const int result = __real_scols_print_table_to_string(table, data);
  __msan_scoped_enable_interceptor_checks();
  __msan_unpoison(data, sizeof *data);
  if (result == 0 && *data != nullptr) __msan_unpoison_string(*data);
  return result;
}

// curses keeps what it has of terminals in memory of its own, which these functions read. Only what
// voltaris calls is here.
#define VT_WRAP_CURSES(name, parameters, arguments) \
  int __real_##name parameters;                     \
  int __wrap_##name parameters {                    \
    __msan_scoped_disable_interceptor_checks();     \
    const int result = __real_##name arguments;     \
    __msan_scoped_enable_interceptor_checks();      \
    return result;                                  \
  }
VT_WRAP_CURSES(del_curterm, (void* terminal), (terminal))
VT_WRAP_CURSES(start_color, (), ())
VT_WRAP_CURSES(use_default_colors, (), ())
VT_WRAP_CURSES(init_pair, (short pair, short front, short back), (pair, front, back))
VT_WRAP_CURSES(cbreak, (), ())
VT_WRAP_CURSES(noecho, (), ())
VT_WRAP_CURSES(keypad, (void* window, bool is_on), (window, is_on))
VT_WRAP_CURSES(curs_set, (int visibility), (visibility))
VT_WRAP_CURSES(werase, (void* window), (window))
VT_WRAP_CURSES(wrefresh, (void* window), (window))
VT_WRAP_CURSES(resizeterm, (int lines, int columns), (lines, columns))
VT_WRAP_CURSES(endwin, (), ())
#undef VT_WRAP_CURSES

int __real_setupterm(const char* name, int descriptor, int* error);
void* __real_newterm(const char* name, void* output, void* input);
char* __real_tigetstr(const char* name);
int __real_mvwaddstr(void* window, int row, int column, const char* text);
int __real_wget_wch(void* window, unsigned* code);
void __real_delscreen(void* screen);

int __wrap_setupterm(const char* name, int descriptor, int* error) {
  __msan_scoped_disable_interceptor_checks();
  const int result = __real_setupterm(name, descriptor, error);
  __msan_scoped_enable_interceptor_checks();
  __msan_unpoison(error, sizeof *error);
  return result;
}

void* __wrap_newterm(const char* name, void* output, void* input) {
  __msan_scoped_disable_interceptor_checks();
  void* const screen = __real_newterm(name, output, input);
  __msan_scoped_enable_interceptor_checks();
  return screen;
}

char* __wrap_tigetstr(const char* name) {
  __msan_scoped_disable_interceptor_checks();
  char* const text = __real_tigetstr(name);
  __msan_scoped_enable_interceptor_checks();
  const bool is_text = text != nullptr && reinterpret_cast<std::intptr_t>(text) != -1;
  if (is_text) __msan_unpoison_string(text);
  return text;
}

int __wrap_mvwaddstr(void* window, int row, int column, const char* text) {
  __msan_check_mem_is_initialized(text, __builtin_strlen(text) + 1);
  __msan_scoped_disable_interceptor_checks();
  const int result = __real_mvwaddstr(window, row, column, text);
  __msan_scoped_enable_interceptor_checks();
  return result;
}

int __wrap_wget_wch(void* window, unsigned* code) {
  __msan_scoped_disable_interceptor_checks();
  const int result = __real_wget_wch(window, code);
  __msan_scoped_enable_interceptor_checks();
  __msan_unpoison(code, sizeof *code);
  return result;
}

void __wrap_delscreen(void* screen) {
  __msan_scoped_disable_interceptor_checks();
  __real_delscreen(screen);
  __msan_scoped_enable_interceptor_checks();
}

}  // extern "C"
