// Runs one codec operation a given number of times, for instruction counts under callgrind:
//
//     valgrind --tool=callgrind --toggle-collect=bench_run_ops codec_callgrind datacall 100 nolog
//
// Only bench_run_ops is collected, so set-up (building the input) is not counted; dividing the
// total by the count gives instructions per operation, the same on every run of the same build.
// Operations: datacall, u8to16-short, u8to16-4k, u16to8-short, u16to8-4k.
#include <host/log_capture.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "bench/codec_texts.h"
#include "bench/log_switch.h"
#include "codec/data_call_record.h"
#include "codec/parcel_strings.h"
#include "zok_records.h"

namespace {

struct Input {
    android::Parcel parcel;
    std::unique_ptr<ZOK_Data_Call_Response_v11> record{new ZOK_Data_Call_Response_v11()};
    std::string text;
    char16_t *units = nullptr;
    size_t count = 0;
};

}  // namespace

extern "C" __attribute__((noinline)) size_t bench_run_ops(const char *op, long n, Input *in) {
    size_t sink = 0;
    for (long i = 0; i < n; i++) {
        if (strcmp(op, "datacall") == 0) {
            in->parcel.setDataPosition(0);
            readDataCallFromParcel(in->parcel, in->record.get(), 1001, 1);
            sink += static_cast<size_t>(in->record->concatenateNum);
        } else if (strncmp(op, "u8to16", 6) == 0) {
            size_t units = 0;
            char16_t *out = dupUtf8ToUtf16(in->text.c_str(), &units);
            sink += units;
            free(out);
        } else {
            char *out = dupUtf16ToUtf8(in->units, in->count);
            sink += strlen(out);
            free(out);
        }
    }
    return sink;
}

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s OPERATION COUNT [log|nolog]\n", argv[0]);
        return 2;
    }
    const char *op = argv[1];
    long n = strtol(argv[2], nullptr, 10);
    logswitch::setLogging(argc < 4 || strcmp(argv[3], "nolog") != 0);
    host_log_set_stderr(0);
    Input in;
    bench::heavyEntry(in.parcel);
    in.text = strstr(op, "4k") != nullptr ? bench::longText() : bench::shortText();
    in.units = dupUtf8ToUtf16(in.text.c_str(), &in.count);
    if (strcmp(op, "datacall") != 0 && strncmp(op, "u8to16", 6) != 0 &&
        strncmp(op, "u16to8", 6) != 0) {
        fprintf(stderr, "unknown operation %s\n", op);
        return 2;
    }
    size_t sink = bench_run_ops(op, n, &in);
    free(in.units);
    printf("%s x %ld done (%zu)\n", op, n, sink);
    return 0;
}
