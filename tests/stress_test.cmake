# The soak's connect bursts are shorter where every event costs many times more: sanitizers and
# the emulator. Its total count stays the same.
if(ZOK_SANITIZE OR CMAKE_CROSSCOMPILING_EMULATOR)
  target_compile_definitions(stress_test PRIVATE ZOK_SOAK_SLOW_BUILD=1)
endif()
