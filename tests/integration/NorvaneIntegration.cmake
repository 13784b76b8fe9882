# norvane_add_integration_test(<name> COMMAND <program> [<arg>...]
#                              [TIMEOUT <seconds>] [FIXTURES <dir>]
#                              [SIM_OPTIONS <option>...] [PEERS lprint|cupsd...]
#                              [ENVIRONMENT <VAR=value>...] [LABELS <label>...]
#                              [WORKING_DIRECTORY <dir>])
#
# Registers a ctest test that runs the command inside the integration bench
# (bench.sh): a private network namespace with ippeveprinter, snmpd and
# norvane-printer-sim on their real ports, torn down after the command whatever
# happens. Each test gets a bench of its own, so integration tests may run in
# parallel (ctest -j). <program> may be a target name. The test carries the label
# "integration" and is reported as skipped (exit 77) on a machine that cannot create
# the namespace or lacks a peer program.
#
# FIXTURES replaces the simulator's fixture set for this test (DIR/http, DIR/soap);
# SIM_OPTIONS are passed on to the simulator, e.g. --soap-port=off for a device without
# web services or --fault=/device=500. PEERS starts more print servers in the bench
# (LPrint on port 8000, cupsd on port 8631).
# The variables the command receives are listed in tests/integration/README.md.

function(norvane_add_integration_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg ""
    "TIMEOUT;FIXTURES;WORKING_DIRECTORY" "COMMAND;ENVIRONMENT;LABELS;SIM_OPTIONS;PEERS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "norvane_add_integration_test(${name}): unknown arguments ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT arg_COMMAND)
    message(FATAL_ERROR "norvane_add_integration_test(${name}): COMMAND is required")
  endif()
  if(NOT TARGET norvane-printer-sim)
    message(FATAL_ERROR "norvane_add_integration_test(${name}): the norvane-printer-sim target "
                        "must be defined first (add_subdirectory(tools/printer-sim))")
  endif()

  list(POP_FRONT arg_COMMAND program)
  if(TARGET ${program})
    set(program "$<TARGET_FILE:${program}>")
  endif()
  set(bench_options --sim "$<TARGET_FILE:norvane-printer-sim>")
  if(arg_FIXTURES)
    list(APPEND bench_options --fixtures ${arg_FIXTURES})
  endif()
  foreach(option IN LISTS arg_SIM_OPTIONS)
    list(APPEND bench_options "--sim-option=${option}")
  endforeach()
  foreach(peer IN LISTS arg_PEERS)
    list(APPEND bench_options "--peer=${peer}")
  endforeach()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  if(NOT arg_WORKING_DIRECTORY)
    set(arg_WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  endif()

  add_test(NAME ${name}
    COMMAND ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/bench.sh ${bench_options} -- ${program} ${arg_COMMAND}
    WORKING_DIRECTORY ${arg_WORKING_DIRECTORY})
  set_tests_properties(${name} PROPERTIES
    LABELS "integration;${arg_LABELS}"
    TIMEOUT ${arg_TIMEOUT}
    SKIP_RETURN_CODE 77)
  if(arg_ENVIRONMENT)
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT ${arg_ENVIRONMENT})
  endif()
endfunction()
