# Tests of the programs: recordings, voltaris-node, voltaris, and the examples.

# JSON is held against its schemas.
find_path(VTAPI_VALIJSON_INCLUDE valijson/validator.hpp REQUIRED)
mark_as_advanced(VTAPI_VALIJSON_INCLUDE)

# What tests of programs share: the programs run, and JSON held against its schema, whose validator
# takes longest of all to compile.
add_library(program_harness STATIC tools/answer_schema.cc tools/programs.cc)
target_link_libraries(program_harness PRIVATE test_options)
target_precompile_headers(program_harness REUSE_FROM test_pch)

# Recordings: their form, and what is taken out of them.
vtapi_test(
  recording_tests
  SOURCES
  recording/anonymize_test.cc
  recording/quoted_text_test.cc
  recording/recording_file_test.cc
  recording/recording_text_test.cc
  LIBRARIES
  program_harness
  voltaris_recording)

# What tests of voltaris-node share.
add_library(node_harness STATIC node/node_support.cc)
target_link_libraries(node_harness PRIVATE test_options voltaris_node_parts)
target_precompile_headers(node_harness REUSE_FROM test_pch)

# The parts of voltaris-node, and the node as clients see it.
vtapi_test(
  node_tests
  SOURCES
  node/disk_calls.cc
  node/fault_exchange_test.cc
  node/fault_file_test.cc
  node/fault_test.cc
  node/fleet_exchange_test.cc
  node/fleet_file_test.cc
  node/fleet_survey_test.cc
  node/garbage_test.cc
  node/http_server_test.cc
  node/log_test.cc
  node/metrics_test.cc
  node/notify_test.cc
  node/pattern_test.cc
  node/power_units_test.cc
  node/profile_test.cc
  node/replay_test.cc
  node/replay_window_test.cc
  node/reply_packer_test.cc
  node/responder_test.cc
  node/spoil_test.cc
  node/state_file_test.cc
  LIBRARIES
  node_harness
  program_harness
  voltaris_node_parts)
add_dependencies(node_tests voltaris voltaris-node)

# The host as a device of voltaris-node.
vtapi_test(
  host_tests
  SOURCES
  node/host/action_test.cc
  node/host/energy_counter_test.cc
  node/host/host_device_test.cc
  node/host/host_exchange_test.cc
  node/host/host_sensors_test.cc
  node/host/host_tree.cc
  node/host/hwmon_test.cc
  node/host/nut_connection_test.cc
  node/host/nut_test.cc
  node/host/power_supply_test.cc
  node/host/probe_command_test.cc
  node/host/probe_output_test.cc
  node/host/rapl_test.cc
  node/host/tree_test.cc
  LIBRARIES
  node_harness
  program_harness
  voltaris_node_parts)
add_dependencies(host_tests voltaris voltaris-node)

# The parts of voltaris.
vtapi_test(
  tool_parts_tests
  SOURCES
  tool/alert_range_test.cc
  tool/capture_file_test.cc
  tool/captures.cc
  tool/cell_text_test.cc
  tool/check_judgement_test.cc
  tool/check_options_test.cc
  tool/command_line.cc
  tool/commands_test.cc
  tool/completion_test.cc
  tool/configuration_test.cc
  tool/core_files_test.cc
  tool/host_names_test.cc
  tool/message_source_test.cc
  tool/ping_report_test.cc
  tool/ping_statistics_test.cc
  tool/power_text_test.cc
  tool/printable_test.cc
  tool/resolve_test.cc
  tool/secret_file_test.cc
  tool/target_test.cc
  tool/usage_fault_test.cc
  tool/verdict_test.cc
  tool/watch_model_test.cc
  tool/watch_order_test.cc
  tool/watch_text_test.cc
  tool/watch_view_test.cc
  tool/watts_text_test.cc
  LIBRARIES
  program_harness
  voltaris_tool_parts)
add_dependencies(tool_parts_tests voltaris)

# The programs, run as an operator runs them.
vtapi_test(
  tools_tests
  SOURCES
  tools/terminal_screen.cc
  tools/check_test.cc
  tools/examples_test.cc
  tools/offline_commands_test.cc
  tools/ping_test.cc
  tools/record_test.cc
  tools/secrets_test.cc
  tools/voltaris_codes_test.cc
  tools/voltaris_formats_test.cc
  tools/voltaris_many_test.cc
  tools/voltaris_set_test.cc
  tools/voltaris_targets_test.cc
  tools/voltaris_test.cc
  tools/voltaris_node_test.cc
  tools/watch_test.cc
  LIBRARIES
  program_harness)
add_dependencies(
  tools_tests
  voltaris
  voltaris-node
  example_poll_loop
  example_epoll_fleet
  example_client
  example_asio_loop)

# Prints what a fleet of 10,000 devices takes, and one of 100,000.
add_executable(fleet_figures EXCLUDE_FROM_ALL node/fleet_figures.cc)
target_link_libraries(fleet_figures PRIVATE test_options node_harness program_harness voltaris_node_parts
                                    harness vtapi)
target_precompile_headers(fleet_figures REUSE_FROM test_pch)
set_target_properties(fleet_figures PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/..")

# Likewise, of the program under load; run by scripts/node-load.
add_executable(node_load EXCLUDE_FROM_ALL node/node_load.cc)
target_link_libraries(node_load PRIVATE test_options node_harness program_harness voltaris_node_parts
                                harness vtapi)
target_precompile_headers(node_load REUSE_FROM test_pch)
set_target_properties(node_load PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/..")

add_subdirectory("${PROJECT_SOURCE_DIR}/examples" "${CMAKE_BINARY_DIR}/examples")

# What manuals and documents say of the programs, held against the programs. It is the same in both
# word sizes.
function(vtapi_document_test name script)
  if(Python3_Interpreter_FOUND)
    add_test(NAME ${name}
             COMMAND "${Python3_EXECUTABLE}" -B
                     "${CMAKE_CURRENT_SOURCE_DIR}/documents/${script}" ${ARGN})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)
  else()
    add_test(NAME ${name} COMMAND "${CMAKE_COMMAND}" -E echo "there is no python3")
    set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "there is no python3")
  endif()
endfunction()

if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  find_package(Python3 COMPONENTS Interpreter QUIET)
  set(documents "${PROJECT_SOURCE_DIR}/docs")
  set(program_folder "$<TARGET_FILE_DIR:voltaris>")
  vtapi_document_test(manual_of_voltaris_node check_manual.py
                      "${documents}/man/voltaris-node.8.scd" "$<TARGET_FILE:voltaris-node>" probe)
  vtapi_document_test(manual_of_voltaris check_manual.py "${documents}/man/voltaris.1.scd"
                      "$<TARGET_FILE:voltaris>")
  vtapi_document_test(manual_of_settings check_settings.py "${documents}/man/voltaris.conf.5.scd"
                      "$<TARGET_FILE:voltaris>")
  vtapi_document_test(width_of_helps check_help_width.py "$<TARGET_FILE:voltaris>")
  vtapi_document_test(width_of_node_helps check_help_width.py "$<TARGET_FILE:voltaris-node>" probe)
  vtapi_document_test(examples_in_helps check_examples.py "${program_folder}"
                      "${PROJECT_SOURCE_DIR}/examples")
  vtapi_document_test(sessions_in_documents check_sessions.py "${program_folder}"
                      "${PROJECT_SOURCE_DIR}/examples" "${PROJECT_SOURCE_DIR}/README.md"
                      "${documents}/cli.md")
endif()
