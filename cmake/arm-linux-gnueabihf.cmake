# Cross build for the product's target: 32-bit ARM Linux with hard float (Debian armhf),
# with Debian's g++-arm-linux-gnueabihf, the host's protoc, and the target's libraries in a
# sysroot made by scripts/armhf-sysroot. ctest runs the target's programs under qemu-arm.
#
#   scripts/armhf-sysroot
#   cmake -S . -B build/armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake
#
# VELLMARK_ARMHF_SYSROOT chooses another sysroot (default: build/sysroot-armhf).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT VELLMARK_ARMHF_SYSROOT)
  get_filename_component(VELLMARK_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf
                         ABSOLUTE)
endif()
if(NOT EXISTS ${VELLMARK_ARMHF_SYSROOT}/usr/include)
  message(FATAL_ERROR "no armhf sysroot at ${VELLMARK_ARMHF_SYSROOT}: run scripts/armhf-sysroot")
endif()
# Try-compiles read this file again; they need the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELLMARK_ARMHF_SYSROOT)
set(CMAKE_SYSROOT ${VELLMARK_ARMHF_SYSROOT})

# Libraries, headers and packages come from the sysroot only; programs from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the target's .pc files, with their paths inside the sysroot.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${VELLMARK_ARMHF_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${VELLMARK_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${VELLMARK_ARMHF_SYSROOT}/usr/share/pkgconfig)

# Code generation runs on the host, with the host's protoc and its well-known types.
set(Protobuf_PROTOC_EXECUTABLE /usr/bin/protoc CACHE FILEPATH "the host's protoc")
set(Protobuf_IMPORT_DIRS /usr/include CACHE PATH "the host's protobuf schemas")

# Programs run with the sysroot's own loader and C library: the loader of the cross
# toolchain's folder (/usr/arm-linux-gnueabihf) with the sysroot's libc.so crashes as soon
# as a thread starts, since the two come from different builds of glibc.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L ${VELLMARK_ARMHF_SYSROOT} -E
    LD_LIBRARY_PATH=${VELLMARK_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf:${VELLMARK_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf)
