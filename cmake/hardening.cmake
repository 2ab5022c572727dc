# The hardening a platform build applies to every native module by default, so that the object
# checked by `scripts/test.sh device` is built the way a device's build would build it: stack
# canaries, checked libc calls, position-independent code, relocations read-only and bound at
# load, and a stack that is never executable. _FORTIFY_SOURCE needs optimisation: the device stage
# builds RelWithDebInfo. A toolchain file includes this and sets its *_FLAGS_INIT from these (set,
# not appended: CMake reads a toolchain file more than once).
set(ZOK_HARDENING_COMPILE_FLAGS "-fstack-protector-strong -D_FORTIFY_SOURCE=2 -fPIC")
set(ZOK_HARDENING_LINK_FLAGS "-Wl,-z,relro,-z,now -Wl,-z,noexecstack")
