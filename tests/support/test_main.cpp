// The test programs' main: death tests re-execute the binary ("threadsafe"), because the entity
// starts threads and a plain fork of a threaded process is unsafe.
//
// gtest re-executes argv[0] itself. Under qemu-user without a binfmt_misc registration the host
// kernel refuses an AArch64 binary (ENOEXEC), so the emulated build points argv[0] at a host
// script that starts this same binary (ZOK_TEST_SELF) under the emulator again. Death tests thus
// run in a fresh process on both builds, rather than in a fork of a threaded one under qemu.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argc, char **argv) {
#ifdef ZOK_DEATH_TEST_LAUNCHER
    static char launcher[] = ZOK_DEATH_TEST_LAUNCHER;
    char self[PATH_MAX];
    // qemu answers with the emulated program, not with itself.
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n > 0) {
        self[n] = '\0';
        setenv("ZOK_TEST_SELF", self, 1);
        argv[0] = launcher;
    }
#endif
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
