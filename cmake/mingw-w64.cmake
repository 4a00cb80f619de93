# Cross-building for 64-bit Windows with MinGW-w64, the variant whose threads are POSIX threads:
# the other variant has no std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(toolchain x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${toolchain}-gcc-posix)
set(CMAKE_CXX_COMPILER ${toolchain}-g++-posix)
set(CMAKE_RC_COMPILER ${toolchain}-windres)
foreach(tool ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER} ${CMAKE_RC_COMPILER})
  find_program(found_${tool} ${tool})
  if(NOT found_${tool})
    message(FATAL_ERROR "${tool} is missing. Run scripts/setup, or install Debian's g++-mingw-w64-x86-64-posix.")
  endif()
endforeach()

set(CMAKE_FIND_ROOT_PATH /usr/${toolchain})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest runs Windows programs through this.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/in-wine")
