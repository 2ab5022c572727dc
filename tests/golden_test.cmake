# The golden transcripts come from rilproxy-host (with the real shared object and its simulated
# daemon), started as a program of the build's own architecture, through the emulator's command
# line under the cross build ('|' between words, empty when native).
if(TARGET rilproxy-host)
  add_dependencies(golden_test rilproxy-host zok_rilproxy)
else()
  target_compile_definitions(golden_test PRIVATE ZOK_RUNNER_NOT_BUILT)
endif()
string(REPLACE ";" "|" _zok_golden_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
target_compile_definitions(golden_test PRIVATE ZOK_RUNNER_EMULATOR="${_zok_golden_emulator}")
