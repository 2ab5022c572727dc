# The runner tests start rilproxy-host and rild-sim as programs of the build's own architecture,
# through the emulator's command line under the cross build ('|' between words, empty when
# native). They also call the daemon profile in-process.
if(TARGET rilproxy-host)
  add_dependencies(runner_test rilproxy-host rild-sim rild-tap zok_rilproxy)
else()
  target_compile_definitions(runner_test PRIVATE ZOK_RUNNER_NOT_BUILT)
endif()
string(REPLACE ";" "|" _zok_runner_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
target_compile_definitions(runner_test PRIVATE ZOK_RUNNER_EMULATOR="${_zok_runner_emulator}")
target_link_libraries(runner_test PRIVATE zok_rild_profile)
# The script parser is checked in-process as well, for the exact payload bytes it builds.
target_sources(runner_test PRIVATE ${PROJECT_SOURCE_DIR}/tools/runner/script.cpp)
