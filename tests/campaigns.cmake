# Campaigns: thousands of runs each, against the shipped library, for what no single test would think of.
# Each ends itself when it hangs; the time-out is that of the long forms.
add_library(campaign_kit STATIC campaigns/lies.cpp campaigns/watchdog.cpp)
target_link_libraries(campaign_kit PUBLIC varnel_kit)
target_precompile_headers(campaign_kit REUSE_FROM test_headers)
function(add_campaign name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES")
  add_wine_test(${name} SOURCES ${arg_SOURCES} LIBRARIES campaign_kit)
  set_tests_properties(${name} PROPERTIES LABELS campaign TIMEOUT 3600)
endfunction()

add_campaign(failure_sweep_test
  SOURCES
    campaigns/failure_sweep_test.cpp
    campaigns/plausible_failures.cpp
    campaigns/scripted_files.cpp
    campaigns/sweep_world.cpp
    campaigns/dialing_situations.cpp
    campaigns/hangup_situations.cpp
    campaigns/initialisation_situations.cpp
    campaigns/driver_situations.cpp
    campaigns/network_situations.cpp)

add_campaign(lying_records_test
  SOURCES
    campaigns/lying_computer.cpp
    campaigns/lying_ras.cpp
    campaigns/lying_records_test.cpp)

add_campaign(text_functions_test SOURCES campaigns/text_functions_test.cpp)

add_campaign(threads_test
  SOURCES
    campaigns/busy_ras.cpp
    campaigns/threads_test.cpp)
