# Cross build for AArch64 Linux with Debian's cross compiler (g++-aarch64-linux-gnu) and
# the arm64 multiarch development packages (libcjson-dev:arm64, libgtest-dev:arm64, ...):
#   cmake -S . -B build/aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
# scripts/cross-aarch64.sh installs all of it and runs the tests under qemu-aarch64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(TRANSFER_CROSS_TRIPLET aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${TRANSFER_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TRANSFER_CROSS_TRIPLET}-g++)

# Multiarch: the arm64 packages put their libraries (and CMake packages) under
# /usr/lib/aarch64-linux-gnu and share the architecture-independent headers in /usr/include.
set(CMAKE_LIBRARY_ARCHITECTURE ${TRANSFER_CROSS_TRIPLET})
set(ENV{PKG_CONFIG_LIBDIR}
    "/usr/lib/${TRANSFER_CROSS_TRIPLET}/pkgconfig:/usr/share/pkgconfig")

# Target programs (tests, try_run) run under user-mode emulation. -L points the emulator at
# the cross toolchain's dynamic loader; the C and C++ runtimes must come from the same
# place (the loader and libc of the arm64 multiarch packages differ in version from the
# cross ones, and such a mix hangs at the first thread), hence the library path.
find_program(TRANSFER_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(TRANSFER_QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TRANSFER_QEMU_AARCH64} -L /usr/${TRANSFER_CROSS_TRIPLET}
      -E LD_LIBRARY_PATH=/usr/${TRANSFER_CROSS_TRIPLET}/lib)
endif()
