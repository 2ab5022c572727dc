// Measurement hooks shared by the benchmark programs: heap allocations counted per thread role,
// thread stacks whose high-water mark can be read back, the process's resident size, and a switch
// that turns the host log backend into a null sink. Linked into every benchmark executable.
//
//     probe::setThreadRole(probe::Role::Requester);
//     uint64_t before = probe::allocations();
//     ... one request ...
//     uint64_t used = probe::allocations() - before;
//     size_t reader = probe::stackHighWater(probe::Role::Reader);
//
// How: malloc, calloc, realloc, the aligned allocators and operator new are defined in the
// executable, so the dynamic linker binds every library of the process (the host framework, the
// host Parcel, libstdc++) to them; they count and forward to glibc's __libc_* entry points.
// pthread_create is interposed the same way: each new thread gets a fresh anonymous mapping as
// its stack, and the lowest resident page of that mapping is its high-water mark (page
// granularity; glibc keeps the thread descriptor and static TLS at the top of that mapping, so an
// idle thread already shows a few KiB).
//
// Pitfalls: counts include every thread of the process, so a caller compares roles, not totals.
// The stack probe reports whole pages. Valgrind replaces malloc itself, so the callgrind driver
// does not link this file.
#ifndef ZOK_BENCH_PROBE_H
#define ZOK_BENCH_PROBE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <string>

namespace probe {

enum class Role : int {
    Other = 0,       // any thread not given a role (Google Benchmark's own, libc's)
    Requester = 1,   // the benchmark thread posting events or feeding frames
    Daemon = 2,      // the simulated RIL daemon
    Task = 3,        // a framework task thread (the entity's task 202, or a baseline task)
    Reader = 4,      // the entity's reader thread (or the baseline's receiving thread)
    Idle = 5,        // a thread that does nothing, for the stack floor
    BaseTask = 6,    // the baseline's framework task
    BaseReader = 7,  // the baseline's receiving thread
    Count = 8,
};

const char *roleName(Role role);

// The calling thread's role for the allocation counters.
void setThreadRole(Role role);
// Threads created from now on start with this role (the reader thread is always Reader).
void setNextThreadRole(Role role);

// Allocations (malloc, calloc, realloc, aligned, operator new) since the process started.
uint64_t allocations();
uint64_t allocations(Role role);

// Records the next allocations (up to an internal limit) with their size, role and callers, then
// prints them grouped by call site to `out`. Used once per scenario to explain the counts.
void startTrace();
void stopTrace();
void printTrace(FILE *out, uint64_t iterations);

// Deepest stack use seen so far by threads of `role`, in bytes (0 when none ran).
size_t stackHighWater(Role role);

// Keeps freed heap pages in the process (glibc trims the heap top back to the kernel whenever more
// than 128 KiB are free there, so a loop that frees a few 47 KB event payloads per turn pays page
// faults on every turn). Skipped when ZOK_BENCH_DEFAULT_HEAP=1, to see the glibc defaults.
// Returns whether the settings were applied.
bool keepHeapPages();

// VmHWM and VmRSS of this process, in KiB.
long residentPeakKiB();
long residentNowKiB();

// "nproc, CPU model, kernel" of this machine.
std::string machineDescription();

// Removes every `flag` from argv (adjusting argc) and returns whether it was there, so the rest
// can go to benchmark::Initialize, which rejects flags it does not know.
bool takeFlag(int *argc, char **argv, const char *flag);

// The lines a program ends its report with: the stack floor of a thread that does nothing (started
// here), VmHWM, VmRSS and the machine.
void printProcessFigures(FILE *out);

}  // namespace probe

#endif  // ZOK_BENCH_PROBE_H
