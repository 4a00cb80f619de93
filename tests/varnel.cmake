# The library's tests: the shipped Varnel.dll, its imports redirected by the kit.
add_library(varnel_kit STATIC
  kit/guarded_heap.cpp
  kit/import_table.cpp
  kit/imports.cpp
  kit/ledger.cpp
  kit/scripted_computer.cpp
  kit/scripted_networks.cpp
  kit/scripted_ras.cpp
  kit/scripted_registry.cpp
  kit/varnel_test.cpp
  kit/virtual_clock.cpp)
target_link_libraries(varnel_kit PUBLIC varnel log helper helper2 test_main ws2_32 ole32 oleaut32 uuid)

target_include_directories(varnel_kit PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_precompile_headers(varnel_kit REUSE_FROM test_headers)

add_wine_test(varnel_test
  SOURCES
    kit_test.cpp
    exports_test.cpp
    notifier_test.cpp
    dial_attempt_test.cpp
    dialing_test.cpp
    phonebook_test.cpp
    entries_test.cpp
    hangup_test.cpp
    status_test.cpp
    initialisation_test.cpp
    stale_entries_test.cpp
    driver_test.cpp
    server_ports_test.cpp
    network_test.cpp
    port_guard_test.cpp
  LIBRARIES varnel_kit)

add_wine_test(real_system_test PREFIX_CHANGING
  SOURCES real_system_test.cpp
  LIBRARIES varnel_kit advapi32 shlwapi)

add_wine_test(cost_test SOURCES cost_test.cpp kit/import_table.cpp LIBRARIES varnel log)
