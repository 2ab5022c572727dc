// The test programs' main: death tests re-execute the binary ("threadsafe"), because the entity
// starts threads and a plain fork of a threaded process is unsafe.
#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
