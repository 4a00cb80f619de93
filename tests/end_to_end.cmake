# The shipped host program, library and modules run as a person runs them; nothing of them is redirected.
add_library(end_to_end_kit STATIC end_to_end_kit.cpp)
target_link_libraries(end_to_end_kit PUBLIC test_main)
target_precompile_headers(end_to_end_kit REUSE_FROM test_headers)
add_dependencies(end_to_end_kit varnel_host standin_ras)

add_wine_test(end_to_end_test
  SOURCES
    end_to_end_test.cpp
    end_to_end_usage_test.cpp
  LIBRARIES end_to_end_kit)

# Measures time, so nothing else runs beside it.
add_wine_test(end_to_end_load_test
  SOURCES end_to_end_load_test.cpp
  LIBRARIES end_to_end_kit)
set_tests_properties(end_to_end_load_test PROPERTIES RUN_SERIAL TRUE)

# Prepares a whole computer: a prefix of its own for each Windows version, made before the tests and ended after them.
# TCP port 1723 is one for all prefixes, so these take turns with the others that use it.
add_library(computer_kit STATIC computer_kit.cpp)
target_link_libraries(computer_kit PUBLIC end_to_end_kit helper helper2 ws2_32 advapi32 shell32 shlwapi)
target_precompile_headers(computer_kit REUSE_FROM test_headers)
add_dependencies(computer_kit standin_router standin_service)
foreach(name end_to_end_init_test kills_test)
  string(REGEX REPLACE "^kills" "campaigns/kills" source ${name}.cpp)
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE computer_kit)
  target_precompile_headers(${name} REUSE_FROM test_headers)
endforeach()

set(scripts "${PROJECT_SOURCE_DIR}/scripts")
function(add_computer windows language)
  set(computer computer-${windows})
  set(prefix "${CMAKE_BINARY_DIR}/test-${computer}")
  # What a prefix starts keeps its output open, so that must be nobody's pipe.
  add_test(NAME ${computer} COMMAND /bin/sh -c
    "'${scripts}/computer' --fresh --windows ${windows} --build '${CMAKE_BINARY_DIR}' '${prefix}' >'${prefix}.log' 2>&1")
  add_test(NAME ${computer}-end COMMAND /bin/sh -c
    "'${scripts}/wine-prefix' --end '${prefix}' >>'${prefix}.log' 2>&1")
  set_tests_properties(${computer} PROPERTIES FIXTURES_SETUP ${computer} ENVIRONMENT "LC_ALL=${language}")
  set_tests_properties(${computer}-end PROPERTIES FIXTURES_CLEANUP ${computer})
endfunction()
function(add_computer_test name windows language)
  add_test(NAME ${name} COMMAND ${ARGN})
  set_tests_properties(${name} PROPERTIES
    FIXTURES_REQUIRED computer-${windows} RESOURCE_LOCK wine-prefix
    ENVIRONMENT "WINEPREFIX=${CMAKE_BINARY_DIR}/test-computer-${windows};LC_ALL=${language}"
    TIMEOUT 300 PASS_REGULAR_EXPRESSION "cases: [0-9]+ passed, 0 failed")
endfunction()
foreach(computer "5.2;C.UTF-8;since" "6.1;C.UTF-8;before" "10;zh_CN.UTF-8;before")
  list(GET computer 0 windows)
  list(GET computer 1 language)
  list(GET computer 2 other)
  add_computer(${windows} ${language})
  add_computer_test(end_to_end_init_test-${windows} ${windows} ${language} end_to_end_init_test "~[${other} Vista]")
endforeach()
add_computer_test(kills_test 5.2 C.UTF-8 kills_test)
set_tests_properties(kills_test PROPERTIES LABELS campaign TIMEOUT 3600 COST 200)
set_tests_properties(computer-5.2 PROPERTIES COST 250)
