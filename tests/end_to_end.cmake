#The shipped host program, library and modules run as a person runs them; nothing of them is redirected.
add_wine_test(end_to_end_test SOURCES
                  end_to_end_kit.cpp end_to_end_test.cpp end_to_end_usage_test.cpp LIBRARIES system_headers)
    add_dependencies(end_to_end_test varnel_host standin_ras)
