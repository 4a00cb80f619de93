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
