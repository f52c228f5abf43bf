# How the project compiles and links. Nothing here affects a project that uses the libraries: the
# variables are local to this folder, and the flags belong to our own targets.

set(CMAKE_CXX_EXTENSIONS OFF)
# How many files are compiled as one in a unity build, which takes less time.
set(CMAKE_UNITY_BUILD_BATCH_SIZE 24)

# The folder of the headers that CMake generates.
set(TRENDCSV_GENERATED_HEADERS ${PROJECT_BINARY_DIR}/include)

if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
  endif()
  # Rows pass through many small functions of different folders; the linker can inline them. It would
  # take minutes for all the tests.
  if(NOT TRENDCSV_DEVELOPER)
    include(CheckIPOSupported)
    check_ipo_supported(RESULT has_link_time_optimization OUTPUT ignored LANGUAGES CXX)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ${has_link_time_optimization})
  endif()
endif()

# All our targets link this one.
add_library(trendcsv_flags INTERFACE)
target_compile_features(trendcsv_flags INTERFACE cxx_std_20)
target_compile_options(trendcsv_flags INTERFACE
  # A dump must be the same on every platform, even if the processor has a fused multiply-add.
  -ffp-contract=off
  # Each row needs a dozen calls into SQLite.
  $<$<CONFIG:Release>:-fno-plt>)

# What is released stops at the first sign of an attack on its memory. Debian's compilers make
# position-independent programs by default.
set(is_hardened $<NOT:$<CONFIG:Debug>>)
target_compile_options(trendcsv_flags INTERFACE
  $<${is_hardened}:-fstack-protector-strong> $<${is_hardened}:-U_FORTIFY_SOURCE>
  $<${is_hardened}:-D_FORTIFY_SOURCE=3>)
target_link_options(trendcsv_flags INTERFACE $<${is_hardened}:-Wl,-z,relro,-z,now>)
include(CheckCXXCompilerFlag)
foreach(protection stack-clash cf)
  check_cxx_compiler_flag(-f${protection}-protection has_${protection}_protection)
  if(has_${protection}_protection)
    target_compile_options(trendcsv_flags INTERFACE $<${is_hardened}:-f${protection}-protection>)
  endif()
endforeach()

if(TRENDCSV_DEVELOPER)
  target_compile_options(trendcsv_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
endif()
if(has_link_time_optimization AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # The programs are small. To split them up, g++ needs make, and warns if make is missing.
  target_link_options(trendcsv_flags INTERFACE $<$<CONFIG:Release>:-flto-partition=one>)
endif()

# Makes a static library for our own programs. Headers are included from the root of the sources, or
# from src/. Targets that link the library are compiled with our flags too.
function(trendcsv_library name)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC trendcsv_flags)
endfunction()

# Makes a program from the sources and installs it. It is built in the root of the build folder,
# where it is easy to find. It links our own libraries statically, so that it runs without them.
function(trendcsv_program name)
  add_executable(${name} ${ARGN})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  if(TRENDCSV_INSTALL)
    install(TARGETS ${name})
  endif()
endfunction()
