# Cross-building for 32-bit ARM hard-float Linux (the cameras) with Debian's
# cross compiler and its multiarch armhf libraries, e.g.
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
# Test programs run under qemu-arm, so ctest and test discovery work on a PC.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(SENSOR_ARM_TRIPLE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER ${SENSOR_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${SENSOR_ARM_TRIPLE}-g++)
# Debian's cross toolchain defaults to ARMv7-A, Thumb-2, VFPv3-D16, hard float.
set(CMAKE_LIBRARY_ARCHITECTURE ${SENSOR_ARM_TRIPLE})

# Multiarch: armhf headers and libraries live beside the native ones
# (/usr/include/arm-linux-gnueabihf, /usr/lib/arm-linux-gnueabihf); headers
# without architecture (tinyxml.h, gtest/) are shared in /usr/include. The
# cross runtime itself is in /usr/arm-linux-gnueabihf.
set(CMAKE_FIND_ROOT_PATH /usr/${SENSOR_ARM_TRIPLE} /usr/lib/${SENSOR_ARM_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# BOTH, not ONLY: the multiarch tree is the host's own /usr, so the roots
# above cannot hold every path; CMAKE_LIBRARY_ARCHITECTURE keeps library
# searches in the armhf directories.
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# pkg-config must answer for armhf, not for the build machine.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${SENSOR_ARM_TRIPLE}/pkgconfig:/usr/share/pkgconfig)

# The C and C++ runtimes under emulation are the cross toolchain's, those we
# link against. Its loader must not meet the multiarch libc6:armhf, which may
# be a different glibc build: a loader and libc from two builds crash in
# pthread_create. So the runtime directory goes first in the library path;
# TinyXML still comes from the multiarch directory.
find_program(SENSOR_QEMU_ARM qemu-arm)
if(SENSOR_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${SENSOR_QEMU_ARM} -L /usr/${SENSOR_ARM_TRIPLE}
      -E LD_LIBRARY_PATH=/usr/${SENSOR_ARM_TRIPLE}/lib)
endif()
