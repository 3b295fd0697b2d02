# How the library and the programs are hardened, in the interface target vtapi_hardening;
# scripts/check-binary looks at the outcome. The sanitizers do the same work, and more, by other
# means, and are left alone.

add_library(vtapi_hardening INTERFACE)
target_link_options(vtapi_hardening INTERFACE "LINKER:-z,relro" "LINKER:-z,now"
                    "LINKER:-z,noexecstack" "LINKER:-z,text")

if(NOT VTAPI_SANITIZE)
  target_compile_options(vtapi_hardening INTERFACE -fstack-protector-strong
                                                   -fstack-clash-protection -fcf-protection=full)
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
