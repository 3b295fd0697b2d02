# Unity builds: the files of a group are compiled as one. Most of the time of compiling goes into the
# headers that they share, so that this takes a third of it. The presets debug and clang compile each
# file by itself: there a file that does not include what it uses is found.

option(VTAPI_UNITY "Compile groups of files as one" OFF)

# vtapi_sources(TARGET SOURCES...) adds the sources to the target, as one group: the names in their
# anonymous namespaces must differ. Files that are added to the target in other ways stay by themselves.
function(vtapi_sources target)
  target_sources(${target} PRIVATE ${ARGN})
  if(VTAPI_UNITY)
    list(GET ARGN 0 first)
    string(MAKE_C_IDENTIFIER "${first}" group)
    set_source_files_properties(${ARGN} PROPERTIES UNITY_GROUP "${group}")
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  endif()
endfunction()
