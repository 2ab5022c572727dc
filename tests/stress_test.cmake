# Where every event costs many times more and resident size is not the entity's alone (sanitizers,
# the emulator): the soak's connect bursts are longer (its total count stays the same) and its
# resident-size bound is not checked.
if(ZOK_SANITIZE OR CMAKE_CROSSCOMPILING_EMULATOR)
  target_compile_definitions(stress_test PRIVATE ZOK_SOAK_SLOW_BUILD=1)
endif()
