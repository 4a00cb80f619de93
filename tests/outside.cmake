# Log, Helper and Helper2.
add_wine_test(log_test SOURCES log_test.cpp log_process_test.cpp kit/import_table.cpp LIBRARIES log)
add_wine_test(helper_test SOURCES helper_test.cpp kit/import_table.cpp LIBRARIES helper)
target_compile_definitions(helper_test PRIVATE
  PRODUCT_VERSION_MAJOR=${PROJECT_VERSION_MAJOR} PRODUCT_VERSION_MINOR=${PROJECT_VERSION_MINOR})
add_dependencies(helper_test log)
add_wine_test(helper2_test PREFIX_CHANGING SOURCES helper2_test.cpp kit/import_table.cpp LIBRARIES helper2 ws2_32)
