// Unsolicited data-call lists (version 11) of 1, 4 and 16 entries through the reader's real path:
// the frame is written to one end of a socketpair and rilproxy_read_one_frame reads, decodes and
// delivers it as events 4021 to task 402.
//
// Floors in the same run: one memcpy of the 47872-byte record per entry (what any design must pay
// to hand the record over), and the host framework's own cost of one 47872-byte event sent to a
// task with no entity involved (allocation, payload copy, delivery record, release), so the
// entity's own share can be told apart from the framework's.
#include <benchmark/benchmark.h>
#include <host/log_capture.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include <thread>
#include <vector>

#include "bench/log_switch.h"
#include "bench/parcel_builder.h"
#include "bench/probe.h"
#include "core/replies.h"
#include "support/test_context.h"
#include "tools/sim/rild_sim.h"
#include "transport/reader.h"
#include "vopa_events.h"
#include "vopa_host.h"
#include "wire_format.h"

namespace {

TestContext *gContext = nullptr;

std::vector<uint8_t> listFrame(int version, int entries, int bearers) {
    return rild_sim::unsolicitedFrame(RIL_UNSOL_DATA_CALL_LIST_CHANGED,
                                      bench::dataCallListPayload(version, entries, bearers));
}

// One frame in, one frame read and handled. The delivery record is emptied every frame: it holds
// a copy of every payload the framework delivered.
void feedFrame(const std::vector<uint8_t> &frame) {
    if (send(gContext->peer, frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size()))
        abort();
    if (rilproxy_read_one_frame(gContext->ctx, gContext->own) != RILPROXY_FRAME_OK) abort();
    vopa_host::clear_deliveries();
}

void BM_DataCallListFlood(benchmark::State &state) {
    const int entries = static_cast<int>(state.range(0));
    logswitch::setLogging(state.range(1) != 0);
    std::vector<uint8_t> frame = listFrame(11, entries, 0);
    uint64_t deliveredBefore = vopa_host::counters().allocated;
    for (auto _ : state) feedFrame(frame);
    logswitch::setLogging(true);
    uint64_t events = vopa_host::counters().allocated - deliveredBefore;
    if (events != static_cast<uint64_t>(entries) * state.iterations())
        state.SkipWithError("not one event per entry");
    state.SetItemsProcessed(state.iterations() * entries);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(frame.size()));
}

void BM_MemcpyRecord(benchmark::State &state) {
    std::vector<unsigned char> from(RILPROXY_DCALL_LIST_NOTIFY_SIZE, 0x5A);
    std::vector<unsigned char> to(RILPROXY_DCALL_LIST_NOTIFY_SIZE);
    for (auto _ : state) {
        memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

// What rilproxy_send_notify asks of the framework for one entry, done directly.
void BM_FrameworkEvent(benchmark::State &state) {
    std::vector<unsigned char> record(RILPROXY_DCALL_LIST_NOTIFY_SIZE, 0x5A);
    for (auto _ : state) {
        event_ptr_t ev = vopa_event_alloc(nullptr);
        event_set_id(ev, EVENT_DATA_CALL_LIST_CHANGED_IND);
        event_set_data(ev, 0, record.data(), static_cast<int>(record.size()));
        vopa_context_common_send(&gContext->ctx->task, ev, TASK_ID_DATAMNGR);
        vopa_host::clear_deliveries();
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_DataCallListFlood)
    ->ArgNames({"entries", "log"})
    ->Args({1, 1})
    ->Args({4, 1})
    ->Args({16, 1})
    ->Args({1, 0})
    ->Args({4, 0})
    ->Args({16, 0});
BENCHMARK(BM_MemcpyRecord);
BENCHMARK(BM_FrameworkEvent);

void countAllocations(const char *label, const std::vector<uint8_t> &frame, int entries) {
    const int n = 200;
    uint64_t before = probe::allocations(probe::Role::Requester);
    for (int i = 0; i < n; i++) feedFrame(frame);
    uint64_t used = probe::allocations(probe::Role::Requester) - before;
    printf("# allocs_per_frame.%s: %.2f\n", label, static_cast<double>(used) / n);
    printf("# allocs_per_entry.%s: %.2f\n", label, static_cast<double>(used) / n / entries);
}

void report(bool trace) {
    logswitch::setLogging(false);
    std::vector<uint8_t> one = listFrame(11, 1, 0);
    std::vector<uint8_t> sixteen = listFrame(11, 16, 0);
    for (int i = 0; i < 20; i++) feedFrame(sixteen);
    countAllocations("v11_x1", one, 1);
    countAllocations("v11_x16", sixteen, 16);
    {
        const int n = 200;
        std::vector<unsigned char> record(RILPROXY_DCALL_LIST_NOTIFY_SIZE, 0x5A);
        uint64_t before = probe::allocations(probe::Role::Requester);
        for (int i = 0; i < n; i++) {
            rilproxy_send_notify(&gContext->ctx->task, TASK_ID_DATAMNGR,
                                 EVENT_DATA_CALL_LIST_CHANGED_IND, record.data(),
                                 static_cast<int>(record.size()));
            vopa_host::clear_deliveries();
        }
        printf("# allocs_per_framework_event: %.2f\n",
               static_cast<double>(probe::allocations(probe::Role::Requester) - before) / n);
    }
    if (trace) {
        printf("# allocation trace, 10 frames of 16 entries (logging off):\n");
        probe::startTrace();
        for (int i = 0; i < 10; i++) feedFrame(sixteen);
        probe::stopTrace();
        probe::printTrace(stdout, 10 * 16);
    }

    // The reader's stack: the same path on a thread whose stack the probe watches, with the
    // heaviest entries the daemon can send (version 1001, eleven bearers with full TFTs).
    std::vector<uint8_t> heavy = listFrame(1001, 1, 11);
    probe::setNextThreadRole(probe::Role::Reader);
    std::thread([&] {
        for (int i = 0; i < 10; i++) feedFrame(sixteen);
        logswitch::setLogging(true);
        for (int i = 0; i < 10; i++) feedFrame(heavy);
    }).join();
    printf("# stack_high_water_kib.reader_flood: %zu\n",
           probe::stackHighWater(probe::Role::Reader) / 1024);
    printf("# frame_bytes.v11_x16: %zu\n", sixteen.size());
    printf("# frame_bytes.v1001_x1_11_bearers: %zu\n", heavy.size());
    probe::printProcessFigures(stdout);
}

}  // namespace

int main(int argc, char **argv) {
    bool trace = probe::takeFlag(&argc, argv, "--trace-allocations");
    benchmark::Initialize(&argc, argv);
    host_log_set_stderr(0);
    probe::setThreadRole(probe::Role::Requester);
    // A hand-built context around a socketpair, as the reader's unit tests use; nothing connects
    // to a daemon, so nothing ends the process.
    gContext = new TestContext(false);
    printf("# heap_pages_kept: %d\n", probe::keepHeapPages() ? 1 : 0);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    report(trace);
    return 0;
}
