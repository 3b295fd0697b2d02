# libcrypto and libuuid, as the targets vtapi::crypto and vtapi::uuid, libsmartcols, which lays out the
# tables of voltaris, as vtapi::smartcols, and for its live table curses with wide characters and the
# library of terminals below it, as vtapi::ncursesw and vtapi::tinfo. A build for another word size
# sets VTAPI_SYSROOT to the folder in which Debian's packages were unpacked; otherwise the system's
# own are used.

function(vtapi_import name header)
  string(TOUPPER ${name} upper)
  if(VTAPI_SYSROOT)
    set(where PATHS "${VTAPI_SYSROOT}/usr/lib/${VTAPI_SYSROOT_ARCH}"
              "${VTAPI_SYSROOT}/lib/${VTAPI_SYSROOT_ARCH}" NO_DEFAULT_PATH)
    set(include_where PATHS "${VTAPI_SYSROOT}/usr/include" NO_DEFAULT_PATH)
  endif()
  # The run-time file comes first: the development package's link may point outside the sysroot.
  find_library(VTAPI_${upper}_LIBRARY NAMES ${ARGN} ${name} ${where} REQUIRED)
  find_path(VTAPI_${upper}_INCLUDE NAMES ${header} ${include_where} REQUIRED)
  mark_as_advanced(VTAPI_${upper}_LIBRARY VTAPI_${upper}_INCLUDE)

  set(include_dirs "${VTAPI_${upper}_INCLUDE}")
  if(VTAPI_SYSROOT)
    # Headers that differ by architecture (openssl/opensslconf.h) lie in a folder of their own.
    list(PREPEND include_dirs "${VTAPI_SYSROOT}/usr/include/${VTAPI_SYSROOT_ARCH}")
  endif()
  add_library(vtapi::${name} SHARED IMPORTED)
  set_target_properties(
    vtapi::${name} PROPERTIES IMPORTED_LOCATION "${VTAPI_${upper}_LIBRARY}"
                              INTERFACE_INCLUDE_DIRECTORIES "${include_dirs}")
endfunction()

vtapi_import(crypto openssl/sha.h libcrypto.so.3)
vtapi_import(uuid uuid/uuid.h libuuid.so.1)
vtapi_import(smartcols libsmartcols/libsmartcols.h libsmartcols.so.1)
vtapi_import(ncursesw curses.h libncursesw.so.6)
vtapi_import(tinfo term.h libtinfo.so.6)

# asio, without Boost: headers alone, which serve both word sizes.
find_path(VTAPI_ASIO_INCLUDE asio.hpp REQUIRED)
mark_as_advanced(VTAPI_ASIO_INCLUDE)
add_library(vtapi_asio INTERFACE)
add_library(vtapi::asio ALIAS vtapi_asio)
target_include_directories(vtapi_asio SYSTEM INTERFACE "${VTAPI_ASIO_INCLUDE}")
# Whether asio has aligned_alloc it decides by what was included before it, and so differently in the
# files of one program: one would release with free what another has taken from new.
target_compile_definitions(vtapi_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED
                                                ASIO_DISABLE_STD_ALIGNED_ALLOC)
# The thread sanitizer does not know fences, of which g++ warns. asio has some beside its locks.
target_compile_options(
  vtapi_asio
  INTERFACE $<$<AND:$<STREQUAL:${VTAPI_SANITIZE},thread>,$<CXX_COMPILER_ID:GNU>>:-Wno-tsan>)
