// One deactivate request through the whole entity, against its floor measured in the same run.
//
// Entity: the framework posts event 4005 to task 202; the entity writes the request frame to a
// simulated daemon on a real local socket, the daemon answers at once with an empty success, the
// reader thread turns it into the status-only reply 4006 to the requester.
// Baseline: the same four threads and the same bytes with nothing of the entity in between: a
// framework task whose handler sends the identical 40-byte request frame in one write, the same
// daemon code, a receiving thread that reads the 20-byte response in one read and replies through
// the framework exactly as the entity does.
//
// After the timed runs the program prints allocations per request by thread role, the stack
// high-water marks of the entity's threads and the resident size, as "# key: value" lines.
#include <android/log.h>
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <cutils/sockets.h>
#include <host/log_capture.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/log_switch.h"
#include "bench/probe.h"
#include "rilproxy.h"
#include "rilproxy_entity.h"
#include "support/socket_dir.h"
#include "tools/sim/rild_sim.h"
#include "vopa_events.h"
#include "vopa_host.h"
#include "wire_format.h"

namespace {

constexpr uint32_t kRequester = 7;
constexpr task_id_t kBaselineTask = 299;
constexpr int kTimeoutMs = 5000;
// The framework keeps a record of every delivery; it is emptied this often so that a long run
// does not grow without bound. Both loops pay the same.
constexpr uint64_t kClearEvery = 4096;

// The Parcel the entity writes for id 5, cause 2: int32 2, then "5" and "2" as String16.
const uint8_t kRequestParcel[] = {0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x35, 0x00,
                                  0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x32, 0x00, 0x00, 0x00};
constexpr size_t kResponseFrameSize = 20;  // length, header size 0, type, serial, result

// Replies to the requester, counted by the delivery listener.
std::mutex gReplyLock;
std::condition_variable gReplyCv;
uint64_t gReplies = 0;

void waitReplies(uint64_t target) {
    std::unique_lock<std::mutex> lock(gReplyLock);
    if (!gReplyCv.wait_for(lock, std::chrono::milliseconds(kTimeoutMs),
                           [&] { return gReplies >= target; })) {
        fprintf(stderr, "no reply within %d ms\n", kTimeoutMs);
        abort();
    }
}

// The simulated daemon: answers every request at once with an empty success. The last request's
// Parcel is kept so the benchmark can check that the baseline sends the entity's very bytes.
struct Daemon {
    rild_sim::RildSim *sim;
    std::mutex lock;
    std::vector<uint8_t> lastParcel;
    int32_t lastRequestId = 0;

    void serve() {
        probe::setThreadRole(probe::Role::Daemon);
        rild_sim::RequestFrame request;
        bool first = true;
        while (sim->readRequest(&request, 24 * 3600 * 1000)) {
            if (first) {
                std::lock_guard<std::mutex> hold(lock);
                lastParcel = request.payload;
                lastRequestId = request.request_id;
                first = false;
            }
            if (!sim->writeResponse(request.serial, ZOKRIL_E_SUCCESS, {})) break;
        }
    }
};

struct Setup {
    Daemon entityDaemon;
    Daemon baselineDaemon;
    int baselineFd = -1;
    vopa_task_t baselineTask{};
    std::atomic<event_ptr_t> baselineParked{nullptr};
    uint64_t requests = 0;  // posted so far, entity and baseline together
};

Setup *gSetup = nullptr;

// The baseline task: one write of the request frame, the event parked for the receiving thread.
void *baselineHandler(task_ptr_t, event_ptr_t event, void *) {
    static uint32_t serial = 0x100;
    uint8_t frame[RIL_REQ_HEADER_SIZE + sizeof(kRequestParcel)];
    uint32_t header[5] = {htonl(RIL_REQ_HEADER_WORDS_AFTER_LENGTH + sizeof(kRequestParcel)),
                          RIL_REQ_FEATURE_HEADER_SIZE, 0,
                          static_cast<uint32_t>(RIL_REQUEST_DEACTIVATE_DATA_CALL), ++serial};
    memcpy(frame, header, sizeof(header));
    memcpy(frame + sizeof(header), kRequestParcel, sizeof(kRequestParcel));
    gSetup->baselineParked.store(event);
    if (send(gSetup->baselineFd, frame, sizeof(frame), MSG_NOSIGNAL) != sizeof(frame)) abort();
    return nullptr;
}

// The baseline's receiving thread: one read per response, then the reply the entity would send.
void baselineReceiver() {
    probe::setThreadRole(probe::Role::BaseReader);
    uint8_t frame[kResponseFrameSize];
    for (;;) {
        size_t got = 0;
        while (got < sizeof(frame)) {
            ssize_t n = recv(gSetup->baselineFd, frame + got, sizeof(frame) - got, 0);
            if (n <= 0) return;
            got += static_cast<size_t>(n);
        }
        event_ptr_t event = gSetup->baselineParked.exchange(nullptr);
        event_ptr_t reply = vopa_event_alloc(event);
        StatusOnlyReply status = {};
        event_set_id(reply, EVENT_DEACTIVATE_DATA_CALL_RESP);
        event_set_data(reply, 0, &status, sizeof(status));
        vopa_context_common_reply(&gSetup->baselineTask, reply);
        vopa_event_free(event);
    }
}

void startAll() {
    host_log_set_stderr(0);
    // Kept for the whole process: closing the entity's connection ends the process.
    new ScopedSocketDir();
    gSetup = new Setup();
    gSetup->entityDaemon.sim = new rild_sim::RildSim("rild-zok");
    gSetup->baselineDaemon.sim = new rild_sim::RildSim("rild-floor");

    vopa_host::set_delivery_listener([](const vopa_host::Delivery &d) {
        if (d.id != EVENT_DEACTIVATE_DATA_CALL_RESP || d.to != static_cast<int32_t>(kRequester))
            return;
        std::lock_guard<std::mutex> lock(gReplyLock);
        gReplies++;
        gReplyCv.notify_all();
    });

    probe::setNextThreadRole(probe::Role::Task);
    static vopa_entity_t entity{};
    rilproxy_entity_init(&entity, nullptr);
    vopa_host::open_entity_init_gate();
    if (!gSetup->entityDaemon.sim->acceptClient(kTimeoutMs) ||
        !vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, kTimeoutMs)) {
        fprintf(stderr, "the entity did not connect\n");
        abort();
    }
    std::thread([] { gSetup->entityDaemon.serve(); }).detach();

    probe::setNextThreadRole(probe::Role::BaseTask);
    vopa_task_init(&gSetup->baselineTask, 99, kBaselineTask);
    gSetup->baselineTask.set_handler(&gSetup->baselineTask, baselineHandler, nullptr, 0);
    gSetup->baselineFd =
        socket_local_client("rild-floor", ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM);
    if (gSetup->baselineFd < 0 || !gSetup->baselineDaemon.sim->acceptClient(kTimeoutMs)) {
        fprintf(stderr, "the baseline did not connect\n");
        abort();
    }
    probe::setNextThreadRole(probe::Role::Other);
    std::thread([] { gSetup->baselineDaemon.serve(); }).detach();
    std::thread(baselineReceiver).detach();
    probe::setThreadRole(probe::Role::Requester);
}

void oneRequest(task_id_t task);

// One request down each path before anything is timed: connections settle, and the check of the
// baseline's bytes has the entity's to compare with whatever order the benchmarks run in.
void warmUp() {
    oneRequest(TASK_ID_RILPROXY);
    oneRequest(kBaselineTask);
}

void oneRequest(task_id_t task) {
    CallIdCauseRequest request;
    memset(&request, 0, sizeof(request));
    request.id = 5;
    request.cause = 2;
    uint64_t target = ++gSetup->requests;
    if (!vopa_host::post(task, EVENT_DEACTIVATE_DATA_CALL_REQ, &request, sizeof(request),
                         kRequester)) {
        abort();
    }
    waitReplies(target);
    if (target % kClearEvery == 0) vopa_host::clear_deliveries();
}

void BM_EntityRoundTrip(benchmark::State &state) {
    logswitch::setLogging(state.range(0) != 0);
    unsigned long lines = logswitch::linesRequested();
    for (auto _ : state) oneRequest(TASK_ID_RILPROXY);
    logswitch::setLogging(true);
    state.counters["log_lines"] =
        benchmark::Counter(static_cast<double>(logswitch::linesRequested() - lines),
                           benchmark::Counter::kAvgIterations);
}

void BM_BaselineRoundTrip(benchmark::State &state) {
    for (auto _ : state) oneRequest(kBaselineTask);
    std::lock_guard<std::mutex> hold(gSetup->baselineDaemon.lock);
    std::lock_guard<std::mutex> hold2(gSetup->entityDaemon.lock);
    // The floor only means something if it moves the entity's bytes.
    if (gSetup->entityDaemon.lastParcel !=
            std::vector<uint8_t>(kRequestParcel, kRequestParcel + sizeof(kRequestParcel)) ||
        gSetup->entityDaemon.lastRequestId != RIL_REQUEST_DEACTIVATE_DATA_CALL ||
        gSetup->baselineDaemon.lastParcel != gSetup->entityDaemon.lastParcel) {
        state.SkipWithError("the baseline's request differs from the entity's");
    }
}

BENCHMARK(BM_EntityRoundTrip)->ArgName("log")->Arg(1)->Arg(0)->UseRealTime();
BENCHMARK(BM_BaselineRoundTrip)->UseRealTime();

void reportAllocations(const char *label, task_id_t task, int n) {
    using probe::Role;
    const Role roles[] = {Role::Requester, Role::Daemon,   Role::Task,
                          Role::Reader,    Role::BaseTask, Role::BaseReader};
    uint64_t before[static_cast<int>(Role::Count)];
    for (Role r : roles) before[static_cast<int>(r)] = probe::allocations(r);
    for (int i = 0; i < n; i++) oneRequest(task);
    for (Role r : roles) {
        uint64_t used = probe::allocations(r) - before[static_cast<int>(r)];
        if (used == 0) continue;
        printf("# allocs_per_request.%s.%s: %.2f\n", label, probe::roleName(r),
               static_cast<double>(used) / n);
    }
}

void report(bool trace) {
    // Warm: the delivery record has been cleared at least once, vectors have their capacity.
    for (int i = 0; i < 100; i++) oneRequest(TASK_ID_RILPROXY);
    logswitch::setLogging(false);
    reportAllocations("entity", TASK_ID_RILPROXY, 1000);
    reportAllocations("baseline", kBaselineTask, 1000);
    logswitch::setLogging(true);
    if (trace) {
        const int n = 20;
        logswitch::setLogging(false);
        printf("# allocation trace, entity, %d requests (logging off):\n", n);
        probe::startTrace();
        for (int i = 0; i < n; i++) oneRequest(TASK_ID_RILPROXY);
        probe::stopTrace();
        probe::printTrace(stdout, n);
        printf("# allocation trace, baseline, %d requests:\n", n);
        probe::startTrace();
        for (int i = 0; i < n; i++) oneRequest(kBaselineTask);
        probe::stopTrace();
        probe::printTrace(stdout, n);
        logswitch::setLogging(true);
    }
    printf("# stack_high_water_kib.task: %zu\n", probe::stackHighWater(probe::Role::Task) / 1024);
    printf("# stack_high_water_kib.reader: %zu\n",
           probe::stackHighWater(probe::Role::Reader) / 1024);
    probe::printProcessFigures(stdout);
}

}  // namespace

int main(int argc, char **argv) {
    bool trace = probe::takeFlag(&argc, argv, "--trace-allocations");
    benchmark::Initialize(&argc, argv);
    startAll();
    warmUp();
    printf("# heap_pages_kept: %d\n", probe::keepHeapPages() ? 1 : 0);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    report(trace);
    fflush(stdout);
    // The entity's reader thread is still connected; the process ends here, as on the device the
    // framework's does, without running destructors under the entity's threads.
    _exit(0);
}
