# Cross build for the device's architecture with the device's compiler: Debian's clang targeting
# aarch64-linux-gnu, linked by lld (the platform's linker), against the target libc and libstdc++
# that the GCC cross build uses too (aarch64-target.cmake). The platform's default hardening is on.
# Tests run under qemu-user, as in the GCC cross build.
#
#     cmake -S . -B out/device -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu-clang.cmake
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
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-target.cmake)
