# The compiler's run-time DLLs are shared by all modules, since strings and sets cross their borders:
# they are laid beside the binaries.
set(runtime_dlls libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
foreach(dll IN LISTS runtime_dlls)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                  OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no ${dll}; is it MinGW-w64 with POSIX threads?")
  endif()
  file(COPY "${path}" DESTINATION "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" FOLLOW_SYMLINK_CHAIN)
endforeach()
