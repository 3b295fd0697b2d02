# The benchmarks that hold the library against peers: libraries that Debian packages, as they ship.
# Their programs link dynamically on both sides.

if(VTAPI_SYSROOT)
  set(unpacked "${PROJECT_SOURCE_DIR}/build/i386-peers/usr")
  set(library_where PATHS "${unpacked}/lib/${VTAPI_SYSROOT_ARCH}" NO_DEFAULT_PATH)
  set(include_where PATHS "${unpacked}/include" NO_DEFAULT_PATH)
endif()

# vtapi_peer(NAME HEADER LIBRARY...) makes the target peer::NAME.
function(vtapi_peer name header)
  find_path(VTAPI_PEER_${name}_INCLUDE NAMES ${header} ${include_where} REQUIRED)
  mark_as_advanced(VTAPI_PEER_${name}_INCLUDE)
  add_library(peer::${name} INTERFACE IMPORTED)
  target_include_directories(peer::${name} INTERFACE "${VTAPI_PEER_${name}_INCLUDE}")
  foreach(library IN LISTS ARGN)
    find_library(VTAPI_PEER_${library}_LIBRARY NAMES ${library} ${library_where} REQUIRED)
    mark_as_advanced(VTAPI_PEER_${library}_LIBRARY)
    target_link_libraries(peer::${name} INTERFACE "${VTAPI_PEER_${library}_LIBRARY}")
  endforeach()
endfunction()

vtapi_peer(snmp net-snmp/net-snmp-config.h netsnmp)
vtapi_peer(cbor cbor.h cbor)
vtapi_peer(protobuf_c protobuf-c/protobuf-c.h protobuf-c)
find_library(VTAPI_PEER_LIBCOAP NAMES libcoap-3-notls.so.3 ${library_where} REQUIRED)
mark_as_advanced(VTAPI_PEER_LIBCOAP)

# The code that protobuf-c generates is compiled as it asks to be, not as ours.
find_program(VTAPI_PROTOC_C NAMES protoc-c REQUIRED)
mark_as_advanced(VTAPI_PROTOC_C)
set(generated "${CMAKE_CURRENT_BINARY_DIR}/peer_reply.pb-c")
add_custom_command(
  OUTPUT "${generated}.c" "${generated}.h"
  COMMAND "${VTAPI_PROTOC_C}" "--proto_path=${CMAKE_CURRENT_SOURCE_DIR}"
          "--c_out=${CMAKE_CURRENT_BINARY_DIR}" peer_reply.proto
  DEPENDS peer_reply.proto
  VERBATIM)
add_library(peer_reply STATIC "${generated}.c" "${generated}.h")
target_include_directories(peer_reply SYSTEM INTERFACE "${CMAKE_CURRENT_BINARY_DIR}")
target_link_libraries(peer_reply PUBLIC peer::protobuf_c)

# vtapi_peer_benchmark(NAME PEERS SOURCES...) makes the program NAME, which links the PEERS.
function(vtapi_peer_benchmark name peers)
  vtapi_benchmark(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE bench_content ${peers})
  if(VTAPI_SYSROOT)
    set_property(TARGET ${name} APPEND
                 PROPERTY INSTALL_RPATH "${unpacked}/lib/${VTAPI_SYSROOT_ARCH}")
  endif()
endfunction()

vtapi_peer_benchmark(peer_snmp_bench peer::snmp peer_snmp_bench.cc main.cc)
vtapi_peer_benchmark(peer_encodings_bench "peer_reply;peer::cbor" peer_encodings_bench.cc main.cc)

# The library that this one loads must not be linked.
add_executable(load_bench load_bench.cc main.cc)
target_link_libraries(load_bench PRIVATE vtapi_options vtapi::benchmark)
target_include_directories(load_bench PRIVATE "${PROJECT_SOURCE_DIR}")
target_compile_definitions(load_bench PRIVATE "VT_LIBCOAP=\"${VTAPI_PEER_LIBCOAP}\"")
set_target_properties(load_bench PROPERTIES INSTALL_RPATH "$ORIGIN/..;${benchmark_folder}")
add_dependencies(load_bench vtapi)
add_dependencies(benchmarks load_bench)

# An agent of 32 bits would need most of a system of 32 bits.
if(NOT VTAPI_SYSROOT)
  vtapi_peer(snmp_agent net-snmp/net-snmp-config.h netsnmpagent netsnmp)
  vtapi_peer_benchmark(peer_snmp_agent peer::snmp_agent peer_snmp_agent.cc)
  vtapi_peer_benchmark(table_probe "" table_probe.cc peer.cc)
endif()
