# Shared part of the toolchain files: Debian's cross compiler for
# SV_CROSS_TRIPLE, the target's C library under /usr/<triple>, and
# qemu-user as the emulator so that plain ctest and GoogleTest's test
# discovery run target programs on the build machine.
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${SV_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${SV_CROSS_TRIPLE}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${SV_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(SV_QEMU NAMES qemu-${SV_QEMU_ARCH} qemu-${SV_QEMU_ARCH}-static)
if(SV_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${SV_QEMU} -L /usr/${SV_CROSS_TRIPLE})
endif()
