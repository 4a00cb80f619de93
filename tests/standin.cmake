# The stand-ins, through the functions that they export.
add_wine_test(standin_ras_test
  SOURCES
    standin_ras_kit.cpp
    standin_ras_test.cpp
    standin_ras_outcomes_test.cpp
    standin_ras_connections_test.cpp
    standin_ras_peers_test.cpp
    standin_ras_processes_test.cpp
    standin_ras_phonebook_test.cpp
    standin_ras_credentials_test.cpp
  LIBRARIES standin_ras)
configure_file("${CMAKE_CURRENT_LIST_DIR}/../standin/ras/peers.example.ini"
               "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/peers.example.ini" COPYONLY)
