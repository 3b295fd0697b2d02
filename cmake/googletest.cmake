# GoogleTest from the sources that Debian's package googletest installs, compiled here because the
# packaged archives exist for one word size alone. Targets: vtapi_gtest (with main), vtapi_gmock.
find_path(VTAPI_GOOGLETEST NAMES googletest/src/gtest-all.cc PATHS /usr/src/googletest
          NO_DEFAULT_PATH REQUIRED)
mark_as_advanced(VTAPI_GOOGLETEST)

function(vtapi_googletest_library name folder)
  add_library(${name} STATIC EXCLUDE_FROM_ALL ${ARGN})
  target_include_directories(${name} PRIVATE "${VTAPI_GOOGLETEST}/${folder}")
  target_include_directories(${name} SYSTEM PUBLIC "${VTAPI_GOOGLETEST}/${folder}/include")
  target_compile_options(${name} PRIVATE -O1 -w)
endfunction()

vtapi_googletest_library(
  vtapi_gtest googletest "${VTAPI_GOOGLETEST}/googletest/src/gtest-all.cc"
  "${VTAPI_GOOGLETEST}/googletest/src/gtest_main.cc")
vtapi_googletest_library(vtapi_gmock googlemock "${VTAPI_GOOGLETEST}/googlemock/src/gmock-all.cc")
target_link_libraries(vtapi_gmock PUBLIC vtapi_gtest)
