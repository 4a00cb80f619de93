# Debian keeps its header-only libraries in /usr/include, among the C headers of another system, which must never
# be on a cross compiler's path. The few folders wanted are linked into a folder of their own: target system_headers.
# A program that uses one of them directly links that target.
set(HEADER_LIBRARIES /usr/include CACHE PATH "The folder that holds boost, spdlog, fmt, CLI, nlohmann and catch2")
set(system_headers_folder "${CMAKE_BINARY_DIR}/system-headers")
file(MAKE_DIRECTORY "${system_headers_folder}")

function(use_system_headers folder package)
  if(NOT IS_DIRECTORY "${HEADER_LIBRARIES}/${folder}")
    message(FATAL_ERROR "The headers of ${folder} are not in ${HEADER_LIBRARIES}. Run scripts/setup, install Debian's "
                        "${package}, or set HEADER_LIBRARIES.")
  endif()
  file(CREATE_LINK "${HEADER_LIBRARIES}/${folder}" "${system_headers_folder}/${folder}" SYMBOLIC)
endfunction()

use_system_headers(boost libboost-dev)
use_system_headers(spdlog libspdlog-dev)
use_system_headers(fmt libfmt-dev)
use_system_headers(CLI libcli11-dev)
use_system_headers(nlohmann nlohmann-json3-dev)
if(BUILD_TESTING)
  use_system_headers(catch2 catch2)
endif()

# The code of fmt is compiled once; header-only it would be compiled again with every source that formats a text.
add_library(system_headers STATIC "${CMAKE_CURRENT_LIST_DIR}/fmt.cpp")
target_include_directories(system_headers SYSTEM PUBLIC "${system_headers_folder}")
target_compile_definitions(system_headers PUBLIC
  SPDLOG_FMT_EXTERNAL
  BOOST_ALL_NO_LIB BOOST_USE_WINAPI_VERSION=0x0502 BOOST_THREAD_DONT_USE_CHRONO BOOST_ERROR_CODE_HEADER_ONLY)

# What most sources begin with, read once: other targets say REUSE_FROM system_headers. Boost is left out, since merely
# to have read it costs each source more than all of these do. Targets that share them must be optimised alike: the
# compiler crashes over headers that were precompiled at another level.
target_precompile_headers(system_headers PRIVATE
  <winsock2.h> <windows.h> <ras.h> <algorithm> <memory> <optional> <string> <vector> <fmt/format.h>)
