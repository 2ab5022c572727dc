# Cross build for the device's architecture with the device's compiler: Debian's clang targeting
# aarch64-linux-gnu, linked by lld (the platform's linker), against the target libc and libstdc++
# that Debian's aarch64-linux-gnu cross packages install (the sysroot the GCC cross build uses).
# The platform's default hardening is on. Tests run under qemu-user, as in the GCC cross build.
#
#     cmake -S . -B out/device -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu-clang.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(ZOK_AARCH64_SYSROOT /usr/aarch64-linux-gnu CACHE PATH "target libraries for qemu-aarch64")

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/hardening.cmake)
set(CMAKE_C_FLAGS_INIT "${ZOK_HARDENING_COMPILE_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${ZOK_HARDENING_COMPILE_FLAGS}")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld ${ZOK_HARDENING_LINK_FLAGS}")
endforeach()

set(CMAKE_FIND_ROOT_PATH ${ZOK_AARCH64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(ZOK_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static REQUIRED)
# As in the GCC cross build: the tree's own libraries are found through absolute RPATHs, which
# qemu looks up under -L first and then as they are.
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZOK_QEMU_AARCH64} -L ${ZOK_AARCH64_SYSROOT})
