# The shipped host program, library and modules run as a person runs them; nothing of them is redirected.
add_library(end_to_end_kit STATIC end_to_end_kit.cpp)
target_link_libraries(end_to_end_kit PUBLIC test_main)
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
add_executable(end_to_end_init_test end_to_end_init_test.cpp)
target_link_libraries(end_to_end_init_test PRIVATE end_to_end_kit helper2 ws2_32 advapi32 shell32 shlwapi)
target_precompile_headers(end_to_end_init_test REUSE_FROM test_headers)
add_dependencies(end_to_end_init_test standin_router standin_service)
set(scripts "${PROJECT_SOURCE_DIR}/scripts")
function(add_computer_test windows language other_tag)
  set(computer computer-${windows})
  set(prefix "${CMAKE_BINARY_DIR}/test-${computer}")
  # What a prefix starts keeps its output open, so that must be nobody's pipe.
  add_test(NAME ${computer} COMMAND /bin/sh -c
    "'${scripts}/computer' --fresh --windows ${windows} --build '${CMAKE_BINARY_DIR}' '${prefix}' >'${prefix}.log' 2>&1")
  add_test(NAME ${computer}-end COMMAND /bin/sh -c
    "'${scripts}/wine-prefix' --end '${prefix}' >>'${prefix}.log' 2>&1")
  add_test(NAME end_to_end_init_test-${windows} COMMAND end_to_end_init_test "~[${other_tag}]")
  set_tests_properties(${computer} PROPERTIES FIXTURES_SETUP ${computer} ENVIRONMENT "LC_ALL=${language}")
  set_tests_properties(${computer}-end PROPERTIES FIXTURES_CLEANUP ${computer})
  set_tests_properties(end_to_end_init_test-${windows} PROPERTIES
    FIXTURES_REQUIRED ${computer} RESOURCE_LOCK wine-prefix ENVIRONMENT "WINEPREFIX=${prefix};LC_ALL=${language}"
    TIMEOUT 300 PASS_REGULAR_EXPRESSION "cases: [0-9]+ passed, 0 failed")
endfunction()
add_computer_test(5.2 C.UTF-8 "since Vista")
add_computer_test(6.1 C.UTF-8 "before Vista")
add_computer_test(10 zh_CN.UTF-8 "before Vista")
