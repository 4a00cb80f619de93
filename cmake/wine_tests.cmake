# add_cases(NAME PROGRAM [ARGUMENT...])
#
# A test whose program ends with the line "cases: N passed, N failed". It finds what ships, and other tests, on its path.
set(test_folders "${CMAKE_BINARY_DIR}/bin\\;${CMAKE_BINARY_DIR}/tests")
function(add_cases name)
  add_test(NAME ${name} COMMAND ${ARGN})
  # Under Wine a program that crashes may end with exit code 0; it passed only if it says so.
  set_tests_properties(${name} PROPERTIES TIMEOUT 300 PASS_REGULAR_EXPRESSION "cases: [1-9][0-9]* passed, 0 failed"
    ENVIRONMENT "WINEPATH=${test_folders}" ENVIRONMENT_MODIFICATION "PATH=path_list_prepend:${test_folders}")
endfunction()

# add_wine_test(NAME [SOURCES FILE...] [LIBRARIES TARGET...] [PREFIX_CHANGING])
#
# A test program on Catch2, run by ctest. Tests that change services, the registry or TCP port 1723 of the Wine prefix
# say PREFIX_CHANGING and run one at a time.
function(add_wine_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "PREFIX_CHANGING" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE test_main ${arg_LIBRARIES})
  target_precompile_headers(${name} REUSE_FROM test_headers)
  add_cases(${name} ${name})
  if(arg_PREFIX_CHANGING)
    set_tests_properties(${name} PROPERTIES RESOURCE_LOCK wine-prefix)
  endif()
endfunction()
