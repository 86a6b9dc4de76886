# Cross build for AArch64 Linux on a Debian (multiarch) host:
#
#   dpkg --add-architecture arm64
#   apt-get install g++-aarch64-linux-gnu qemu-user qtbase5-dev:arm64 ...
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake
#
# scripts/cross-aarch64.sh does all of it. The target's libraries are the
# :arm64 packages, installed in the host's own tree under
# /usr/lib/aarch64-linux-gnu (and headers under /usr/include, some below
# /usr/include/aarch64-linux-gnu); the host's x86-64 libraries are never
# looked at. Code generators (moc, rcc) are the native Qt's: Qt's arm64
# CMake package names /usr/lib/qt5/bin/moc, which the native (Multi-Arch:
# foreign) qtbase5-dev-tools provides.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The multiarch root is the host's own "/"; /usr/aarch64-linux-gnu holds the
# cross compiler's own C library. Programs are the host's; libraries, headers
# and packages only ever the target's (the library architecture keeps the
# search in the aarch64-linux-gnu folders).
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads only the target's .pc files (PKG_CONFIG_PATH, searched
# first, may add more, e.g. a package unpacked beside the build).
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# Test programs and anything else built here run under user-mode QEMU. The
# target's dynamic loader and libraries are the :arm64 packages at "/", so
# that is the loader prefix (-L, as QEMU_LD_PREFIX would set it).
find_program(ZUVO_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(ZUVO_QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZUVO_QEMU_AARCH64} -L /)
endif()
