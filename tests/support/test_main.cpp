// The test programs' main: death tests re-execute the binary ("threadsafe"), because the entity
// starts threads and a plain fork of a threaded process is unsafe.
//
// Under qemu-user without a binfmt_misc registration the re-executed AArch64 binary fails with
// ENOEXEC (gtest execs argv[0] itself, not through the emulator), so the emulated build forks
// instead ("fast"). A death test that must pass there starts its threads inside the statement.
#include <gtest/gtest.h>

#ifndef ZOK_DEATH_TEST_STYLE
#define ZOK_DEATH_TEST_STYLE "threadsafe"
#endif

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, ZOK_DEATH_TEST_STYLE);
    return RUN_ALL_TESTS();
}
