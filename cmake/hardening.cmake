# How the library and the programs are hardened, in the interface target vtapi_hardening;
# scripts/check-binary looks at the outcome. The sanitizers do the same work, and more, by other
# means, and are left alone.

add_library(vtapi_hardening INTERFACE)
target_link_options(vtapi_hardening INTERFACE "LINKER:-z,relro" "LINKER:-z,now"
                    "LINKER:-z,noexecstack" "LINKER:-z,text")

if(NOT VTAPI_SANITIZE)
  target_compile_options(vtapi_hardening INTERFACE -fstack-protector-strong
                                                   -fstack-clash-protection -fcf-protection=full)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # In 32 bits g++ 12 probes the stack of a function that does not return by pushing %esi and popping
    # it again, and its peephole pass then takes %esi for a register that was saved: a function that
    # throws can change it for those that catch. The library throws nothing.
    target_compile_options(
      vtapi_hardening
      INTERFACE $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:NAME>,vtapi_objects>>:-fno-peephole2>)
  endif()
endif()

# Checked calls need an optimised build, and count as branches when coverage is measured.
target_compile_options(vtapi_hardening INTERFACE -U_FORTIFY_SOURCE
                                                 $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=3>)

# vtapi_control_flow_notes(LIBRARY) makes the linker mark LIBRARY as fit for indirect branch
# tracking and shadow stacks, or fail. The C library's start files carry no such note, and their
# entry would be no valid target. A library without static objects to destroy needs none of them; the
# instrumented builds do.
function(vtapi_control_flow_notes library)
  if(NOT VTAPI_SANITIZE AND NOT VTAPI_COVERAGE)
    target_link_options(${library} PRIVATE -nostartfiles "LINKER:-z,cet-report=error")
  endif()
endfunction()
