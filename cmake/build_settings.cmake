# How the project compiles and links. Nothing here reaches a project that uses the libraries: the
# variables end with this folder, and the flags are on targets of ours.

set(CMAKE_CXX_EXTENSIONS OFF)

# Where headers are that CMake makes.
set(TRENDCSV_GENERATED_HEADERS ${PROJECT_BINARY_DIR}/include)

if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
  endif()
  # Rows pass through many small functions of different folders; the linker may merge them.
  include(CheckIPOSupported)
  check_ipo_supported(RESULT has_link_time_optimization OUTPUT ignored LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ${has_link_time_optimization})
endif()

# Every target of ours links this one.
add_library(trendcsv_flags INTERFACE)
target_compile_features(trendcsv_flags INTERFACE cxx_std_20)
target_compile_options(trendcsv_flags INTERFACE
  # A dump is the same on every platform, also where the processor has a fused multiply-add.
  -ffp-contract=off
  # Each row takes a dozen calls into SQLite.
  $<$<CONFIG:Release>:-fno-plt>)
if(TRENDCSV_DEVELOPER)
  target_compile_options(trendcsv_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
endif()
if(has_link_time_optimization AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # The programs are small; to take them apart needs make, and g++ warns where it is missing.
  target_link_options(trendcsv_flags INTERFACE $<$<CONFIG:Release>:-flto-partition=one>)
endif()

# Makes a static library for our own programs. Headers are included from the root of the sources,
# or from src/. What links the library compiles with our flags, too.
function(trendcsv_library name)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC trendcsv_flags)
endfunction()

# Makes a program of the sources and installs it. It stands in the root of the build, where it is
# easy to find. It links our own libraries as static ones, so that it is complete without them.
function(trendcsv_program name)
  add_executable(${name} ${ARGN})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  if(TRENDCSV_INSTALL)
    install(TARGETS ${name})
  endif()
endfunction()
