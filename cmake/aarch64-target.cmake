# What both AArch64 cross builds share: the sysroot where Debian's aarch64-linux-gnu cross packages
# install the target's libc and libstdc++, and qemu-user to run the tests. Included by the
# toolchain files after they have chosen the compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(ZOK_AARCH64_SYSROOT /usr/aarch64-linux-gnu CACHE PATH "target libraries for qemu-aarch64")

set(CMAKE_FIND_ROOT_PATH ${ZOK_AARCH64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(ZOK_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static REQUIRED)
# The libraries built in this tree (liblog, libcutils, libbinder, libvopa, the entity) are found
# through the build tree's RPATH, which CMake writes as absolute paths. qemu looks an absolute
# path up under -L first and falls back to the real one, so no LD_LIBRARY_PATH is needed (it
# would also leak into every host program a test starts).
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZOK_QEMU_AARCH64} -L ${ZOK_AARCH64_SYSROOT})
