# Debian keeps its header-only libraries in /usr/include, among the C headers of another system, which must never
# be on a cross compiler's path. The few folders wanted are linked into a folder of their own: target system_headers.
set(HEADER_LIBRARIES /usr/include CACHE PATH "The folder that holds boost, spdlog, fmt, CLI and catch2")
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
use_system_headers(catch2 catch2)

add_library(system_headers INTERFACE)
target_include_directories(system_headers SYSTEM INTERFACE "${system_headers_folder}")
target_compile_definitions(system_headers INTERFACE
  SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY
  BOOST_ALL_NO_LIB BOOST_USE_WINAPI_VERSION=0x0502 BOOST_THREAD_DONT_USE_CHRONO BOOST_ERROR_CODE_HEADER_ONLY)
