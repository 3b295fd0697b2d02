# The memory sanitizer follows what is initialised only through code that it was compiled into, which
# libstdc++, libcrypto, libuuid, libsmartcols and curses are not. So the templates of the system's
# headers do not report in programs and tests (memory_sanitizer.ignore), and the calls through which
# those libraries read or write the callers' memory pass through wrappers,
# tests/harness/uninstrumented.cc, which every program and library contains. The library itself
# reports everything.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  message(FATAL_ERROR "the memory sanitizer comes with clang alone")
endif()

add_compile_options(-fsanitize=memory -fsanitize-memory-track-origins=1
                    -fsanitize-memory-use-after-dtor)
set(everything_else "$<NOT:$<STREQUAL:$<TARGET_PROPERTY:NAME>,vtapi_objects>>")
add_compile_options(
  "$<${everything_else}:-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/memory_sanitizer.ignore>"
  # libstdc++ puts its own variables where such a stack was.
  "$<${everything_else}:SHELL:-mllvm -msan-poison-stack=0>")
add_link_options(-fsanitize=memory)
# The driver for C leaves out the sanitizer's operator new, which the wrappers replace.
string(REPLACE "<CMAKE_CXX_COMPILER>" "${CMAKE_C_COMPILER}" CMAKE_CXX_LINK_EXECUTABLE
               "${CMAKE_CXX_LINK_EXECUTABLE} -lstdc++ -lm")
foreach(function IN ITEMS SHA1_Init SHA1_Update SHA1_Final HMAC uuid_generate
                          scols_print_table_to_string
                          # curses
                          cbreak curs_set del_curterm delscreen endwin init_pair keypad mvwaddstr
                          newterm noecho resizeterm setupterm start_color tigetstr
                          use_default_colors werase wget_wch wrefresh)
  add_link_options("LINKER:--wrap=${function}")
endforeach()

# Those for terminals are in the archive of the program that calls them, and nowhere else.
foreach(wrappers IN ITEMS uninstrumented uninstrumented_terminal)
  add_library(${wrappers} OBJECT "${PROJECT_SOURCE_DIR}/tests/harness/${wrappers}.cc")
  target_compile_options(${wrappers} PRIVATE -fPIC -fno-sanitize=memory -fno-exceptions
                                             -fno-threadsafe-statics)
endforeach()
