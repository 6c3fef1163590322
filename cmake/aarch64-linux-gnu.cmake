# Cross-build for 64-bit Arm Linux with Debian's cross compiler and the arm64
# multiarch packages of the dependencies (scripts/setup arm64 installs both).
# The tests run on the build machine through qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Multiarch: the arm64 libraries live in /usr/lib/aarch64-linux-gnu, the
# headers in /usr/include are shared by every architecture. Restricting the
# library search to that directory keeps the build machine's x86-64 copies out.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# Plain qemu-aarch64, without -L or QEMU_LD_PREFIX: the binaries carry the
# multiarch loader path (/lib/ld-linux-aarch64.so.1), which the arm64 libc6
# package provides. Pointing qemu at /usr/aarch64-linux-gnu instead mixes the
# cross toolchain's loader with the multiarch libc, and every program that
# starts a thread then spins forever.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# pkg-config (which some find modules ask first, libxml2's among them) reads
# the arm64 packages' .pc files, not the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
