# Tests of the programs: recordings, voltaris-node, voltaris, and the examples.

# Recordings: their form, and what is taken out of them.
vtapi_test(
  recording_tests
  SOURCES
  recording/anonymize_test.cc
  recording/quoted_text_test.cc
  recording/recording_file_test.cc
  recording/recording_text_test.cc
  tools/programs.cc
  LIBRARIES
  voltaris_recording)

# The parts of voltaris-node, and the node as clients see it.
vtapi_test(
  node_tests
  SOURCES
  node/action_test.cc
  node/disk_calls.cc
  node/energy_counter_test.cc
  node/fault_exchange_test.cc
  node/fault_file_test.cc
  node/fault_test.cc
  node/fleet_exchange_test.cc
  node/fleet_file_test.cc
  node/fleet_survey_test.cc
  node/garbage_test.cc
  node/host_device_test.cc
  node/host_exchange_test.cc
  node/host_sensors_test.cc
  node/host_tree.cc
  node/http_server_test.cc
  node/hwmon_test.cc
  node/log_test.cc
  node/metrics_test.cc
  node/node_support.cc
  node/notify_test.cc
  node/nut_connection_test.cc
  node/nut_test.cc
  node/pattern_test.cc
  node/power_supply_test.cc
  node/power_units_test.cc
  node/probe_command_test.cc
  node/probe_output_test.cc
  node/profile_test.cc
  node/rapl_test.cc
  node/replay_test.cc
  node/replay_window_test.cc
  node/reply_packer_test.cc
  node/responder_test.cc
  node/spoil_test.cc
  node/state_file_test.cc
  node/tree_test.cc
  tools/programs.cc
  LIBRARIES
  voltaris_node_parts)
add_dependencies(node_tests voltaris voltaris-node)

# The programs, run as an operator runs them.
vtapi_test(
  tools_tests
  SOURCES
  tools/programs.cc
  tools/examples_test.cc
  tools/record_test.cc
  tools/voltaris_test.cc
  tools/voltaris_node_test.cc)
add_dependencies(
  tools_tests
  voltaris
  voltaris-node
  example_poll_loop
  example_epoll_fleet
  example_client
  example_asio_loop)

# Prints what a fleet of 10,000 devices takes, and one of 100,000.
add_executable(fleet_figures EXCLUDE_FROM_ALL node/fleet_figures.cc
                                              node/node_support.cc tools/programs.cc)
target_link_libraries(fleet_figures PRIVATE test_options voltaris_node_parts harness vtapi)
target_precompile_headers(fleet_figures REUSE_FROM test_pch)
set_target_properties(fleet_figures PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/..")

# Likewise, of the program under load; run by scripts/node-load.
add_executable(node_load EXCLUDE_FROM_ALL node/node_load.cc node/node_support.cc tools/programs.cc)
target_link_libraries(node_load PRIVATE test_options voltaris_node_parts harness vtapi)
target_precompile_headers(node_load REUSE_FROM test_pch)
set_target_properties(node_load PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/..")

add_subdirectory("${PROJECT_SOURCE_DIR}/examples" "${CMAKE_BINARY_DIR}/examples")

# Options are the same in both word sizes.
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  find_package(Python3 COMPONENTS Interpreter QUIET)
  if(Python3_Interpreter_FOUND)
    add_test(
      NAME manual_of_voltaris_node
      COMMAND
        "${Python3_EXECUTABLE}" -B "${CMAKE_CURRENT_SOURCE_DIR}/documents/check_manual.py"
        "${PROJECT_SOURCE_DIR}/docs/man/voltaris-node.8.scd" "$<TARGET_FILE:voltaris-node>" probe)
  else()
    add_test(NAME manual_of_voltaris_node COMMAND "${CMAKE_COMMAND}" -E echo "there is no python3")
    set_tests_properties(manual_of_voltaris_node PROPERTIES SKIP_REGULAR_EXPRESSION
                                                            "there is no python3")
  endif()
endif()
