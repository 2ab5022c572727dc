# Cross build for the device's architecture with Debian's aarch64-linux-gnu GCC toolchain; tests
# run under qemu-user (aarch64-target.cmake).
#
#     cmake -S . -B build-aarch64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-target.cmake)
