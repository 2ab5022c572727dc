// The Parcel codec on its own: one heavy data-call entry into its record, and the UTF-8 <-> UTF-16
// converters on a short and a 4 KiB text. Floors in the same run: a memcpy of the bytes each
// operation reads, so throughput can be read against the machine's copy speed.
#include <benchmark/benchmark.h>
#include <host/log_capture.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/codec_texts.h"
#include "bench/log_switch.h"
#include "bench/probe.h"
#include "codec/data_call_record.h"
#include "codec/parcel_strings.h"
#include "zok_records.h"

namespace {

void BM_ReadDataCall(benchmark::State &state) {
    logswitch::setLogging(state.range(0) != 0);
    android::Parcel parcel;
    bench::heavyEntry(parcel);
    // The record is as large as the reader thread's reply; it lives on the heap here only so the
    // benchmark thread's stack stays small.
    std::unique_ptr<ZOK_Data_Call_Response_v11> record(new ZOK_Data_Call_Response_v11());
    uint64_t allocs = probe::allocations();
    unsigned long lines = logswitch::linesRequested();
    for (auto _ : state) {
        parcel.setDataPosition(0);
        readDataCallFromParcel(parcel, record.get(), 1001, 1);
        benchmark::DoNotOptimize(record.get());
    }
    logswitch::setLogging(true);
    if (record->concatenateNum != bench::kHeavyBearers || record->eran_type != 1 ||
        parcel.dataPosition() != parcel.dataSize()) {
        state.SkipWithError("the entry did not decode");
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(parcel.dataSize()));
    state.counters["allocs"] = benchmark::Counter(
        static_cast<double>(probe::allocations() - allocs), benchmark::Counter::kAvgIterations);
    state.counters["log_lines"] =
        benchmark::Counter(static_cast<double>(logswitch::linesRequested() - lines),
                           benchmark::Counter::kAvgIterations);
    state.counters["parcel_bytes"] = static_cast<double>(parcel.dataSize());
}

std::string textFor(int64_t which) {
    return which == 0 ? bench::shortText() : bench::longText();
}

void BM_Utf8ToUtf16(benchmark::State &state) {
    std::string text = textFor(state.range(0));
    size_t units = 0;
    uint64_t allocs = probe::allocations();
    for (auto _ : state) {
        char16_t *out = dupUtf8ToUtf16(text.c_str(), &units);
        benchmark::DoNotOptimize(out);
        free(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.counters["allocs"] = benchmark::Counter(
        static_cast<double>(probe::allocations() - allocs), benchmark::Counter::kAvgIterations);
    state.counters["units"] = static_cast<double>(units);
}

void BM_Utf16ToUtf8(benchmark::State &state) {
    std::string text = textFor(state.range(0));
    size_t count = 0;
    char16_t *units = dupUtf8ToUtf16(text.c_str(), &count);
    uint64_t allocs = probe::allocations();
    for (auto _ : state) {
        char *out = dupUtf16ToUtf8(units, count);
        benchmark::DoNotOptimize(out);
        free(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(count * sizeof(char16_t)));
    state.counters["allocs"] = benchmark::Counter(
        static_cast<double>(probe::allocations() - allocs), benchmark::Counter::kAvgIterations);
    free(units);
}

// The floor for both directions: copy the input's bytes into a fresh buffer.
void BM_MallocCopy(benchmark::State &state) {
    std::string text = textFor(state.range(0));
    for (auto _ : state) {
        void *out = malloc(text.size() + 1);
        memcpy(out, text.c_str(), text.size() + 1);
        benchmark::DoNotOptimize(out);
        free(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

BENCHMARK(BM_ReadDataCall)->ArgName("log")->Arg(1)->Arg(0);
BENCHMARK(BM_Utf8ToUtf16)->ArgName("text_4k")->Arg(0)->Arg(1);
BENCHMARK(BM_Utf16ToUtf8)->ArgName("text_4k")->Arg(0)->Arg(1);
BENCHMARK(BM_MallocCopy)->ArgName("text_4k")->Arg(0)->Arg(1);

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    host_log_set_stderr(0);
    printf("# heap_pages_kept: %d\n", probe::keepHeapPages() ? 1 : 0);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printf("# machine: %s\n", probe::machineDescription().c_str());
    return 0;
}
