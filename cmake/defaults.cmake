# What every target of the project is built with.
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# One folder for all that ships, as an installed product has it. Stand-ins and tests have folders of their own.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_SHARED_LIBRARY_PREFIX "")

# Windows XP x64 is the oldest system served, so newer declarations are out of reach of a careless call;
# some records (RASDIALPARAMSA) also change their size with this number.
add_compile_definitions(_WIN32_WINNT=0x0502 WINVER=0x0502 WIN32_LEAN_AND_MEAN NOMINMAX)
add_compile_options(
  "$<$<COMPILE_LANGUAGE:C,CXX>:-Wall;-Wextra;-Wpedantic;-Wshadow;-Wconversion;-Wsign-conversion;-Werror>"
  "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Woverloaded-virtual>")

include_directories("${CMAKE_CURRENT_LIST_DIR}/..")

# Whatever address the system chooses, and no data that runs; the linker's defaults, made sure of.
add_link_options(-Wl,--dynamicbase,--high-entropy-va,--nxcompat)

# The same sources give the same bytes, whenever and in whatever folder they are built.
add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=;-fdebug-prefix-map=${PROJECT_SOURCE_DIR}/=>")
add_link_options(-Wl,--no-insert-timestamp)

option(VARNEL_CHECKED "Trap overruns of the stack, misuse of the C++ library and undefined behaviour" OFF)
if(VARNEL_CHECKED)
  # Enumerations are let be: the system's arrive from outside with values that nobody listed, and GCC takes them as numbers.
  add_compile_options(
    "$<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong>"
    "$<$<COMPILE_LANGUAGE:CXX>:-fsanitize=undefined;-fno-sanitize=enum;-fsanitize-undefined-trap-on-error>")
  add_compile_definitions(_FORTIFY_SOURCE=2 _GLIBCXX_ASSERTIONS VARNEL_CHECKED)
  # The guard's own library is linked in, so that no further DLL is needed.
  link_libraries(-l:libssp.a)
endif()

option(VARNEL_COVERAGE "Count the branches taken in the library" OFF)
if(VARNEL_COVERAGE)
  add_compile_definitions(VARNEL_COVERAGE)
endif()
