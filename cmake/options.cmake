# The compiler and linker options that every target shares, in the interface target vtapi_options;
# sanitizers and optimisation apply to the third-party sources as well and are set globally.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_RELEASE "-O2 -DNDEBUG")
  set(CMAKE_${language}_FLAGS_DEBUG "-O0 -g")
  set(CMAKE_${language}_EXTENSIONS OFF)
  set(CMAKE_${language}_STANDARD_REQUIRED ON)
endforeach()
set(CMAKE_C_STANDARD 99)
set(CMAKE_CXX_STANDARD 20)

# CMake would add the C++ run time to what the C driver links: the library must not have it.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

# The programs find the library beside themselves, and nothing else is recorded.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN")

if(VTAPI_SANITIZE)
  set(CMAKE_C_FLAGS_DEBUG "-O0 -g1")
  set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
  add_compile_options(-fno-omit-frame-pointer)
endif()
if(VTAPI_SANITIZE STREQUAL memory)
  include(memory_sanitizer)
elseif(VTAPI_SANITIZE STREQUAL thread)
  add_compile_options(-fsanitize=thread)
  add_link_options(-fsanitize=thread)
elseif(VTAPI_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()

if(VTAPI_FUZZ)
  # Fuzzers live on how often they can try.
  set(CMAKE_C_FLAGS_DEBUG "-O2 -g1")
  set(CMAKE_CXX_FLAGS_DEBUG "-O2 -g1")
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(VTAPI_COVERAGE)
  # Each program and library adds its counts to a file of its own in each process, whatever its
  # environment says.
  set(CMAKE_C_FLAGS_DEBUG "-O0")
  set(CMAKE_CXX_FLAGS_DEBUG "-O0")
  add_compile_options(-fprofile-instr-generate=${CMAKE_BINARY_DIR}/profiles/%p-%m.profraw
                      -fcoverage-mapping $<$<STREQUAL:${VTAPI_COVERAGE},mcdc>:-fcoverage-mcdc>)
  add_link_options(-fprofile-instr-generate)
endif()

add_library(vtapi_options INTERFACE)
if(TARGET uninstrumented)
  target_sources(vtapi_options INTERFACE $<TARGET_OBJECTS:uninstrumented>)
  target_link_libraries(vtapi_options INTERFACE vtapi::crypto vtapi::uuid)
endif()
target_compile_options(vtapi_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                                               $<$<BOOL:${VTAPI_WERROR}>:-Werror>)
if(VTAPI_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # The instrumentation hides initialisations, and the sizes of strings that are put together, from
  # these warnings; the other builds keep them.
  target_compile_options(vtapi_options INTERFACE -Wno-maybe-uninitialized -Wno-array-bounds
                                                 -Wno-stringop-overflow)
endif()
