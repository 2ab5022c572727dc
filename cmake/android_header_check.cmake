# Compiles (without linking) the entity's core and transport sources, and the stand-ins' own
# definitions of the same functions, against Debian's copies of Android's <android/log.h> and
# <cutils/sockets.h> in place of the stand-ins' copies, so that a stand-in declaration drifting
# from Android's fails the build. The stand-ins' <cutils/properties.h> and binder headers stay:
# Debian's properties.h does not compile off Android and Debian has no libbinder headers (their
# signatures are held by static_asserts in the tests instead).
#
# Debian ships these headers for the build machine only, so only the native build checks.
option(ZOK_CHECK_ANDROID_HEADERS "Compile against Debian's Android headers" ON)
if(CMAKE_CROSSCOMPILING OR NOT ZOK_CHECK_ANDROID_HEADERS)
  return()
endif()

set(ZOK_DEBIAN_ANDROID_INCLUDE /usr/include/android CACHE PATH
    "Android platform headers (Debian: android-libcutils-dev, android-liblog-dev)")
set(_zok_android_headers android/log.h cutils/sockets.h)
foreach(header ${_zok_android_headers})
  if(NOT EXISTS ${ZOK_DEBIAN_ANDROID_INCLUDE}/${header})
    message(FATAL_ERROR "${ZOK_DEBIAN_ANDROID_INCLUDE}/${header} not found: install "
                        "android-libcutils-dev and android-liblog-dev, or configure with "
                        "-DZOK_CHECK_ANDROID_HEADERS=OFF")
  endif()
endforeach()

# Only these two headers move ahead of the stand-ins; the rest of /usr/include/android must not.
set(_zok_staged ${CMAKE_BINARY_DIR}/android-headers)
foreach(header ${_zok_android_headers})
  configure_file(${ZOK_DEBIAN_ANDROID_INCLUDE}/${header} ${_zok_staged}/${header} COPYONLY)
endforeach()

set(_zok_checked_sources ${ZOK_ENTITY_SOURCES})
list(FILTER _zok_checked_sources INCLUDE REGEX "^(core|transport)/")
add_library(zok_android_header_check OBJECT
            ${_zok_checked_sources} platform/host/log/log.cpp platform/host/cutils/sockets.cpp)
target_include_directories(zok_android_header_check BEFORE PRIVATE ${_zok_staged})
target_include_directories(zok_android_header_check PRIVATE include ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_options(zok_android_header_check PRIVATE -fno-exceptions -fno-rtti
                                                        -fvisibility=hidden)
# Linked only for their include directories: an object library is never linked itself.
target_link_libraries(zok_android_header_check PRIVATE zok_host_binder zok_host_cutils
                                                       zok_host_log zok_warnings)
