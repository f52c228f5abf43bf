# Builds for 32-bit big-endian PowerPC Linux and runs the results under
# qemu-user. scripts/setup-target installs what this file relies on.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)

set(target_triplet powerpc-linux-gnu)
set(target_sysroot /usr/${target_triplet})

# The libraries that the target needs beyond its C and C++ runtime.
get_filename_component(target_deps "${CMAKE_CURRENT_LIST_DIR}/../build/target-deps" ABSOLUTE)

set(CMAKE_C_COMPILER ${target_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${target_triplet}-g++)

# Files may be large. Times keep the 32 bits of this system: all code that is linked together must
# agree on that. The linker drops the functions that a program does not use.
set(target_flags "-D_FILE_OFFSET_BITS=64 -ffunction-sections -fdata-sections")
set(CMAKE_C_FLAGS_INIT "${target_flags}")
set(CMAKE_CXX_FLAGS_INIT "${target_flags}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--gc-sections")

# This processor has no 64-bit atomics: std::atomic<int64_t> is a library call.
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT
  "-Wl,--push-state,--as-needed -latomic -Wl,--pop-state")

# The SQLite of scripts/setup-target can be part of programs, not of shared libraries.
set(TRENDCSV_SHARED OFF CACHE BOOL "Build shared libraries too")

# Libraries, headers and packages come only from the target. Programs that run during the build come
# only from the host.
set(CMAKE_FIND_ROOT_PATH "${target_deps}" "${target_sysroot}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config does not use the paths above and would find the host's libraries.
set(ENV{PKG_CONFIG_LIBDIR} "${target_deps}/lib/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc-static -L "${target_sysroot}")
