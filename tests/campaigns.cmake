# Campaigns: thousands of runs each, against the shipped library, for what no single test would think of.
function(add_campaign name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES")
  add_wine_test(${name} SOURCES ${arg_SOURCES} LIBRARIES varnel_kit)
  set_tests_properties(${name} PROPERTIES LABELS campaign)
endfunction()

add_campaign(failure_sweep_test
  SOURCES
    campaigns/failure_sweep_test.cpp
    campaigns/plausible_failures.cpp
    campaigns/sweep_watchdog.cpp
    campaigns/scripted_files.cpp
    campaigns/sweep_world.cpp
    campaigns/dialing_situations.cpp
    campaigns/hangup_situations.cpp
    campaigns/initialisation_situations.cpp
    campaigns/driver_situations.cpp
    campaigns/network_situations.cpp)
