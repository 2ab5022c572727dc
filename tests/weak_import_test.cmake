# A second host binder library without ProcessState::initWithDriver, under the same soname in a
# directory of its own, and the child program that loads either one ahead of the entity.
add_library(zok_host_binder_without_init SHARED
            ${PROJECT_SOURCE_DIR}/platform/host/binder/Parcel.cpp
            ${PROJECT_SOURCE_DIR}/platform/host/binder/ProcessState.cpp)
target_compile_definitions(zok_host_binder_without_init PRIVATE
                           ZOK_HOST_BINDER_WITHOUT_INIT_WITH_DRIVER)
target_include_directories(zok_host_binder_without_init PRIVATE
                           ${PROJECT_SOURCE_DIR}/platform/host/binder/include)
target_link_libraries(zok_host_binder_without_init PRIVATE zok_warnings)
set_target_properties(zok_host_binder_without_init PROPERTIES
                      OUTPUT_NAME binder
                      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/binder-without-init)

# Links no binder library, so the one it loads first satisfies the entity's dependency.
add_executable(weak_import_probe ${CMAKE_CURRENT_SOURCE_DIR}/weak_import_probe.cpp)
target_include_directories(weak_import_probe PRIVATE ${PROJECT_SOURCE_DIR}/include
                           ${PROJECT_SOURCE_DIR}/platform/host/log/include)
target_link_libraries(weak_import_probe PRIVATE ${CMAKE_DL_LIBS} zok_warnings)

# The emulator's command line as one definition ('|' between words, empty when native).
string(REPLACE ";" "|" _zok_test_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
target_compile_definitions(weak_import_test PRIVATE
    ZOK_WEAK_IMPORT_PROBE="$<TARGET_FILE:weak_import_probe>"
    ZOK_BINDER_WITH_INIT="$<TARGET_FILE:zok_host_binder>"
    ZOK_BINDER_WITHOUT_INIT="$<TARGET_FILE:zok_host_binder_without_init>"
    ZOK_TEST_EMULATOR="${_zok_test_emulator}")
add_dependencies(weak_import_test weak_import_probe zok_host_binder_without_init zok_rilproxy)
