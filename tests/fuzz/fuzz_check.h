// What every harness shares: a broken invariant aborts with its name, so libFuzzer keeps the
// input; the entity's log lines stay off stderr, where they would bury the fuzzer's own report.
#ifndef ZOK_TESTS_FUZZ_CHECK_H
#define ZOK_TESTS_FUZZ_CHECK_H

#include <host/log_capture.h>
#include <stdio.h>
#include <stdlib.h>

inline void check(bool ok, const char *what) {
    if (ok) return;
    fprintf(stderr, "invariant broken: %s\n", what);
    abort();
}

// libFuzzer calls it once before the first input; each harness is its own program, so the
// definition here is its only one.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    host_log_set_stderr(0);
    return 0;
}

#endif  // ZOK_TESTS_FUZZ_CHECK_H
