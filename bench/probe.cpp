// The benchmark executables' interposed allocator and thread creation, and the readers of what
// they record. Any thread; the counters are relaxed atomics, the trace is a fixed array.
#include "bench/probe.h"

#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <malloc.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "transport/reader.h"

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t n, size_t size);
void *__libc_realloc(void *p, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *p);
}

namespace {

constexpr int kRoles = static_cast<int>(probe::Role::Count);
constexpr int kTraceDepth = 6;
constexpr size_t kTraceMax = 4096;
constexpr size_t kMaxThreads = 64;

// Initial-exec TLS in the executable: reading it never allocates, so the allocator may use it.
__thread int tRole = 0;
__thread bool tInTrace = false;

std::atomic<uint64_t> gAllocs[kRoles];
std::atomic<int> gNextRole{0};

struct TraceEntry {
    int role;
    size_t size;
    void *frames[kTraceDepth];
    int depth;
};

TraceEntry gTrace[kTraceMax];
std::atomic<size_t> gTraceUsed{0};
std::atomic<bool> gTracing{false};

// Not inlined: the trace skips exactly its own frame and the allocator's.
__attribute__((noinline)) void noteAllocation(size_t size) {
    gAllocs[tRole].fetch_add(1, std::memory_order_relaxed);
    if (!gTracing.load(std::memory_order_relaxed) || tInTrace) return;
    size_t slot = gTraceUsed.fetch_add(1, std::memory_order_relaxed);
    if (slot >= kTraceMax) return;
    tInTrace = true;
    TraceEntry &e = gTrace[slot];
    e.role = tRole;
    e.size = size;
    e.depth = backtrace(e.frames, kTraceDepth);
    tInTrace = false;
}

struct StackSlot {
    std::atomic<bool> used{false};
    unsigned char *base = nullptr;  // lowest address of the usable stack
    size_t size = 0;
    int role = 0;
    void *(*start)(void *) = nullptr;
    void *arg = nullptr;
};

StackSlot gStacks[kMaxThreads];
std::atomic<size_t> gStackCount{0};

void *threadTrampoline(void *raw) {
    StackSlot *slot = static_cast<StackSlot *>(raw);
    tRole = slot->role;
    return slot->start(slot->arg);
}

using PthreadCreate = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);

PthreadCreate realPthreadCreate() {
    static PthreadCreate real = reinterpret_cast<PthreadCreate>(dlsym(RTLD_NEXT, "pthread_create"));
    return real;
}

size_t lowestResidentOffset(const StackSlot &s) {
    long page = sysconf(_SC_PAGESIZE);
    size_t pages = s.size / static_cast<size_t>(page);
    std::vector<unsigned char> residency(pages);
    if (mincore(s.base, s.size, residency.data()) != 0) return 0;
    for (size_t i = 0; i < pages; i++) {
        if (residency[i] & 1) return s.size - i * static_cast<size_t>(page);
    }
    return 0;
}

}  // namespace

extern "C" {

void *malloc(size_t size) {
    noteAllocation(size);
    return __libc_malloc(size);
}

void *calloc(size_t n, size_t size) {
    noteAllocation(n * size);
    return __libc_calloc(n, size);
}

void *realloc(void *p, size_t size) {
    noteAllocation(size);
    return __libc_realloc(p, size);
}

void free(void *p) {
    __libc_free(p);
}

void *memalign(size_t alignment, size_t size) {
    noteAllocation(size);
    return __libc_memalign(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size) {
    noteAllocation(size);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void **out, size_t alignment, size_t size) {
    noteAllocation(size);
    void *p = __libc_memalign(alignment, size);
    if (p == nullptr) return ENOMEM;
    *out = p;
    return 0;
}

// Each thread gets a stack of its own mapping, so its resident pages tell how deep it went.
int pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                   void *arg) {
    size_t size = 8u << 20;
    if (attr != nullptr) pthread_attr_getstacksize(attr, &size);
    long page = sysconf(_SC_PAGESIZE);
    size = (size + static_cast<size_t>(page) - 1) & ~(static_cast<size_t>(page) - 1);
    size_t index = gStackCount.fetch_add(1);
    if (index >= kMaxThreads) return realPthreadCreate()(thread, attr, start, arg);

    size_t guard = static_cast<size_t>(page);
    void *mem = mmap(nullptr, size + guard, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (mem == MAP_FAILED) return realPthreadCreate()(thread, attr, start, arg);
    mprotect(mem, guard, PROT_NONE);
    // A huge page would make the whole stack resident on its first touch.
    madvise(mem, size + guard, MADV_NOHUGEPAGE);

    StackSlot &slot = gStacks[index];
    slot.base = static_cast<unsigned char *>(mem) + guard;
    slot.size = size;
    slot.role = start == rilproxy_cmd_resp_thread ? static_cast<int>(probe::Role::Reader)
                                                  : gNextRole.load();
    slot.start = start;
    slot.arg = arg;
    slot.used.store(true);

    pthread_attr_t mine;
    pthread_attr_init(&mine);
    pthread_attr_setstack(&mine, slot.base, size);
    int detach = PTHREAD_CREATE_JOINABLE;
    if (attr != nullptr) pthread_attr_getdetachstate(attr, &detach);
    pthread_attr_setdetachstate(&mine, detach);
    int r = realPthreadCreate()(thread, &mine, threadTrampoline, &slot);
    pthread_attr_destroy(&mine);
    return r;
}

}  // extern "C"

void *operator new(size_t size) {
    noteAllocation(size);
    void *p = __libc_malloc(size ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void *operator new[](size_t size) {
    return operator new(size);
}

void *operator new(size_t size, const std::nothrow_t &) noexcept {
    noteAllocation(size);
    return __libc_malloc(size ? size : 1);
}

void *operator new[](size_t size, const std::nothrow_t &) noexcept {
    return operator new(size, std::nothrow);
}

void operator delete(void *p) noexcept {
    __libc_free(p);
}

void operator delete[](void *p) noexcept {
    __libc_free(p);
}

void operator delete(void *p, size_t) noexcept {
    __libc_free(p);
}

void operator delete[](void *p, size_t) noexcept {
    __libc_free(p);
}

namespace probe {

const char *roleName(Role role) {
    static const char *const kNames[] = {"other",  "requester", "daemon",    "task",
                                         "reader", "idle",      "base_task", "base_reader"};
    int i = static_cast<int>(role);
    return i >= 0 && i < kRoles ? kNames[i] : "?";
}

void setThreadRole(Role role) {
    tRole = static_cast<int>(role);
}

void setNextThreadRole(Role role) {
    gNextRole.store(static_cast<int>(role));
}

uint64_t allocations() {
    uint64_t total = 0;
    for (auto &c : gAllocs) total += c.load(std::memory_order_relaxed);
    return total;
}

uint64_t allocations(Role role) {
    return gAllocs[static_cast<int>(role)].load(std::memory_order_relaxed);
}

void startTrace() {
    // The unwinder loads its library on first use; that must not land in the trace.
    void *warm[2];
    backtrace(warm, 2);
    gTraceUsed.store(0);
    gTracing.store(true);
}

void stopTrace() {
    gTracing.store(false);
}

namespace {

std::string moduleName(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// Function names for return addresses: addr2line (from the symbol tables, which keep the
// entity's hidden functions) where it can, the dynamic symbol otherwise.
std::map<void *, std::string> symbolize(const std::vector<void *> &addresses) {
    std::map<void *, std::string> names;
    std::map<std::string, std::vector<std::pair<void *, uintptr_t>>> byModule;
    for (void *a : addresses) {
        Dl_info info;
        // One byte back: the return address may already belong to the next function.
        void *call = static_cast<char *>(a) - 1;
        if (dladdr(call, &info) == 0 || info.dli_fname == nullptr) {
            names[a] = "?";
            continue;
        }
        std::string module = info.dli_fname;
        Dl_info self;
        if (dladdr(reinterpret_cast<void *>(&symbolize), &self) != 0 &&
            self.dli_fbase == info.dli_fbase) {
            // addr2line must be given the file itself: its own /proc/self/exe is addr2line.
            char path[4096];
            ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
            if (n > 0) {
                path[n] = '\0';
                module = path;
            }
        }
        names[a] = (info.dli_sname ? info.dli_sname : "?") + std::string(" (") +
                   moduleName(info.dli_fname) + ")";
        uintptr_t offset =
            reinterpret_cast<uintptr_t>(call) - reinterpret_cast<uintptr_t>(info.dli_fbase);
        byModule[module].push_back({a, offset});
    }
    for (auto &entry : byModule) {
        std::string cmd = "addr2line -C -f -e '" + entry.first + "'";
        for (auto &a : entry.second) {
            char buf[32];
            snprintf(buf, sizeof(buf), " 0x%lx", static_cast<unsigned long>(a.second));
            cmd += buf;
        }
        cmd += " 2>/dev/null";
        FILE *p = popen(cmd.c_str(), "r");
        if (p == nullptr) continue;
        char fn[1024];
        char where[1024];
        for (auto &a : entry.second) {
            if (fgets(fn, sizeof(fn), p) == nullptr || fgets(where, sizeof(where), p) == nullptr)
                break;
            fn[strcspn(fn, "\n")] = '\0';
            if (strcmp(fn, "??") == 0) continue;
            std::string name = fn;
            if (name.size() > 70) name = name.substr(0, 70) + "...";
            names[a.first] = name + " (" + moduleName(entry.first.c_str()) + ")";
        }
        pclose(p);
    }
    return names;
}

}  // namespace

void printTrace(FILE *out, uint64_t iterations) {
    size_t used = gTraceUsed.load();
    if (used > kTraceMax) used = kTraceMax;
    // Same role, size and callers: one line, counted.
    using Key = std::tuple<int, size_t, std::vector<void *>>;
    std::map<Key, uint64_t> groups;
    std::vector<void *> all;
    for (size_t i = 0; i < used; i++) {
        const TraceEntry &e = gTrace[i];
        // Frame 0 is noteAllocation, frame 1 the allocator itself.
        std::vector<void *> callers;
        for (int f = 2; f < e.depth; f++) callers.push_back(e.frames[f]);
        for (void *a : callers) all.push_back(a);
        groups[Key(e.role, e.size, callers)]++;
    }
    std::map<void *, std::string> names = symbolize(all);
    fprintf(out, "  %-7s %-9s %-8s callers (innermost first)\n", "per-op", "role", "bytes");
    for (auto &g : groups) {
        fprintf(out, "  %-7.2f %-9s %-8zu", static_cast<double>(g.second) / iterations,
                roleName(static_cast<Role>(std::get<0>(g.first))), std::get<1>(g.first));
        const char *sep = "";
        for (void *a : std::get<2>(g.first)) {
            fprintf(out, "%s%s", sep, names[a].c_str());
            sep = " <- ";
        }
        fprintf(out, "\n");
    }
}

size_t stackHighWater(Role role) {
    size_t deepest = 0;
    size_t n = gStackCount.load();
    if (n > kMaxThreads) n = kMaxThreads;
    for (size_t i = 0; i < n; i++) {
        const StackSlot &s = gStacks[i];
        if (!s.used.load() || s.role != static_cast<int>(role)) continue;
        size_t depth = lowestResidentOffset(s);
        if (depth > deepest) deepest = depth;
    }
    return deepest;
}

namespace {

long statusField(const char *field) {
    FILE *f = fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long value = -1;
    size_t n = strlen(field);
    while (fgets(line, sizeof(line), f) != nullptr) {
        if (strncmp(line, field, n) == 0 && line[n] == ':') {
            value = strtol(line + n + 1, nullptr, 10);
            break;
        }
    }
    fclose(f);
    return value;
}

}  // namespace

bool keepHeapPages() {
    const char *keepDefault = getenv("ZOK_BENCH_DEFAULT_HEAP");
    if (keepDefault != nullptr && strcmp(keepDefault, "1") == 0) return false;
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    return true;
}

long residentPeakKiB() {
    return statusField("VmHWM");
}

long residentNowKiB() {
    return statusField("VmRSS");
}

std::string machineDescription() {
    std::string model = "unknown CPU";
    if (FILE *f = fopen("/proc/cpuinfo", "r")) {
        char line[512];
        while (fgets(line, sizeof(line), f) != nullptr) {
            if (strncmp(line, "model name", 10) == 0) {
                const char *colon = strchr(line, ':');
                if (colon != nullptr) {
                    model = colon + 2;
                    model.erase(model.find_last_not_of(" \n") + 1);
                }
                break;
            }
        }
        fclose(f);
    }
    struct utsname u;
    std::string kernel = uname(&u) == 0 ? std::string(u.sysname) + " " + u.release : "unknown";
    return std::to_string(sysconf(_SC_NPROCESSORS_ONLN)) + " CPUs, " + model + ", " + kernel;
}

bool takeFlag(int *argc, char **argv, const char *flag) {
    bool found = false;
    int kept = 0;
    for (int i = 0; i < *argc; i++) {
        if (strcmp(argv[i], flag) == 0) {
            found = true;
        } else {
            argv[kept++] = argv[i];
        }
    }
    argv[kept] = nullptr;  // argv[argc] stays the terminator
    *argc = kept;
    return found;
}

void printProcessFigures(FILE *out) {
    setNextThreadRole(Role::Idle);
    std::thread([] {}).join();
    fprintf(out, "# stack_high_water_kib.idle_thread: %zu\n", stackHighWater(Role::Idle) / 1024);
    fprintf(out, "# vm_hwm_kib: %ld\n", residentPeakKiB());
    fprintf(out, "# vm_rss_kib: %ld\n", residentNowKiB());
    fprintf(out, "# machine: %s\n", machineDescription().c_str());
}

}  // namespace probe
