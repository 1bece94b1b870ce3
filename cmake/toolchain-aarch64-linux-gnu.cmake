# Cross-building for 64-bit ARM Linux with Debian's g++-aarch64-linux-gnu; the programs built
# (tests included) run under qemu-user with the ARM libraries of the cross toolchain.
#
#   cmake -S . -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(FA_ARM_SYSROOT /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${FA_ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# CTest and the test discovery run every ARM program through this. The library path keeps the
# programs on the toolchain's own C library even where the machine also has Debian's arm64 C
# library (multiarch), whose charset converters (gconv) iconv loads: mixing that library with
# the toolchain's loader makes fork() hang.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${FA_ARM_SYSROOT}
    -E LD_LIBRARY_PATH=${FA_ARM_SYSROOT}/lib)
