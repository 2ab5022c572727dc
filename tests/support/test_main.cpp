// The test programs' main: death tests re-execute the binary ("threadsafe"), because the entity
// starts threads and a plain fork of a threaded process is unsafe.
//
// gtest re-executes argv[0] itself. Under qemu-user without a binfmt_misc registration the host
// kernel refuses an AArch64 binary (ENOEXEC), so the emulated build points argv[0] at a host
// script that starts this same binary (ZOK_TEST_SELF) under the emulator again. Death tests thus
// run in a fresh process on both builds, rather than in a fork of a threaded one under qemu.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

// The entity's teardown ends the process with exit_group(0), which CTest would count as a pass: a
// test whose connection dropped half-way would pass without having run to its end. Every test
// program is linked with -Wl,--wrap=syscall, so outside the death tests that expect the teardown
// its exit reports a failure instead.
namespace {
bool gInDeathTestChild = false;
constexpr long kUnexpectedTeardownStatus = 3;
}  // namespace

extern "C" long __real_syscall(long number, long a, long b, long c, long d, long e, long f);
extern "C" long __wrap_syscall(long number, long a, long b, long c, long d, long e, long f) {
    if (number == SYS_exit_group && !gInDeathTestChild) {
        fprintf(stderr, "the entity's teardown ended the test program\n");
        a = kUnexpectedTeardownStatus;
    }
    return __real_syscall(number, a, b, c, d, e, f);
}

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
    gInDeathTestChild = !GTEST_FLAG_GET(internal_run_death_test).empty();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
