// Reading one frame: routing by serial and retry flag to the test's own rows, AT
// answers, unsolicited frames and the SIM filter, hostile frames, the payload dump, and the wait on
// the control pipe. The daemon's end is the other half of a socketpair.
#include "transport/reader.h"

#include <cutils/properties.h>
#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <regex>
#include <thread>

#include "core/framework_calls.h"
#include "support/framework_fixture.h"
#include "support/log_capture.h"
#include "transport/frame.h"

namespace {

constexpr event_id_t kTlvResp = 9999;  // tells the TLV row's calls from the plain row's
std::string gCalls;                    // what came of a frame, in order

void note(const std::string &what) {
    gCalls += (gCalls.empty() ? "" : "; ") + what;
}
std::string parcelHex(const android::Parcel &p) {
    return " [" + hex(p.data(), p.dataSize()) + "]";
}
int writeMarker(event_ptr_t, android::Parcel &parcel, ril_supported_feature_t *) {
    return parcel.writeInt32(0x11223344);
}
int recordResp(task_ptr_t, event_ptr_t, event_id_t id, android::Parcel &p, int,
               ril_supported_feature_t *f) {
    note("resp " + std::to_string(id) + " sim " + std::to_string(f->sim_id) + parcelHex(p));
    return 0;
}
int recordErr(task_ptr_t, event_ptr_t, event_id_t id, int error) {
    note("err " + std::to_string(id) + " " + std::to_string(error));
    return 0;
}
int recordNotify(task_ptr_t, android::Parcel &p, ril_supported_feature_t *f) {
    note("notify sim " + std::to_string(f->sim_id) + parcelHex(p));
    return 0;
}

// clang-format off
// The plain table ends for the reader at the row without a response function, even though that
// row has a request function; the row after it must never be reached.
ril_handler_t gPlain[] = {
    {4005, 4006, 41, 0, writeMarker, recordResp, recordErr},
    {4017, 4018, 56, 0, writeMarker, nullptr, recordErr},
    {4030, 4031, 111, 0, writeMarker, recordResp, recordErr},
    {0, 0, 0, 0, nullptr, nullptr, nullptr},
};
ril_handler_tlv_t gTlv[] = {
    {4005, kTlvResp, 2124, 0, nullptr, recordResp, recordErr},
    {4030, kTlvResp, 0, 0, nullptr, recordResp, recordErr},  // no RIL id: ends the table
    {0, 0, 0, 0, nullptr, nullptr, nullptr},
};
ril_notify_t gNotifys[] = {
    {RIL_UNSOL_DATA_CALL_RESPONSE, recordNotify},
    {RIL_UNSOL_DATA_CALL_LIST_CHANGED, nullptr},
    {RIL_UNSOL_DEDICATE_BEARER_ACTIVATED, recordNotify},
    {0, nullptr},
};
// clang-format on

// No retry: a refused request's re-send is the outbox test's, through the exported rows.
const rilproxy_reader_tables_t kTables = {gPlain, gTlv, gNotifys, nullptr};

class ReaderTest : public FrameworkTest {
protected:
    // On a fresh connection, with `parked` (0: none) waiting in slot 5, the daemon sends `frame`
    // and closes. Returns all that came of it: the rows' calls, "fatal", the framework's
    // deliveries, the bytes sent to the daemon and the pool slots that still hold an event.
    std::string run(const std::vector<uint8_t> &frame, event_id_t parked,
                    const void *data = nullptr, int len = 0) {
        TearDown();  // releases and checks what the previous frame left
        vopa_host::reset();
        property_set("persist.vendor.radio.simswitch", "2");  // capability SIM 1
        gCalls.clear();
        t.reset(new TestContext);
        if (parked != 0) t->park(5, vopa_host::new_event(parked, data, len, 31));
        EXPECT_EQ(write(t->peer, frame.data(), frame.size()), ssize_t(frame.size()));
        shutdown(t->peer, SHUT_WR);
        if (rilproxy_read_one_frame_with(t->ctx, t->own, &kTables) == RILPROXY_FRAME_FATAL) {
            note("fatal");
        }
        std::string answers = delivered(24), sent = t->received();
        if (!answers.empty()) note(answers);
        if (!sent.empty()) note("sent [" + sent + "]");
        uint64_t held = 0;
        for (int slot = 0; slot < RILPROXY_EVENT_POOL_SIZE; slot++) {
            if (t->slot(slot) == nullptr) continue;
            note("slot " + std::to_string(slot));
            held++;
        }
        EXPECT_EQ(vopa_host::counters().live, held);  // no event lives outside the pool
        return gCalls;
    }
};

TEST_F(ReaderTest, EveryFrameEndsInItsRowOrIsDroppedOrIsFatal) {
    AtCommandRequest request = {};
    request.token = reinterpret_cast<void *>(0xBEEF);
    // clang-format off
    const struct {
        event_id_t parked;  // waits in slot 5; an AT request carries `atLen` bytes of `request`
        int atLen;
        const char *frame, *outcome, *log;  // log: "" when none is asserted
    } cases[] = {
        // Solicited: the serial's slot and retry flag pick the event and the table.
        {4005, 0, "00 00 00 1C 08 00 00 00 01 00 00 00 02 00 00 00 00 00 00 00 05 01 00 00"
                  " 00 00 00 00 01 00 00 00", "resp 4006 sim 2 [01 00 00 00]", ""},
        {4005, 0, "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 00 06 00 00 00", "err 4006 6", ""},
        {4005, 0, "00 00 00 10 00 00 00 00 00 00 00 00 05 02 00 40 02 00 00 00", "err 9999 2", ""},
        {4005, 0, "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 40 00 00 00 00", "slot 5",
         "ignore new ril request with ZOKRIL_E_SUCCESS for serial_no 40000105\n"},
        {4005, 0, "00 00 00 10 00 00 00 00 00 00 00 00 06 01 00 00 00 00 00 00", "slot 5",
         "event_ptr is NULL"},
        {4030, 0, "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00", "",
         "rilproxy_cmd_resp_thread(): an unknown event (4030)"},
        {4030, 0, "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 40 02 00 00 00", "",
         "rilproxy_cmd_resp_thread(): an unknown event (4030)"},
        // AT answers: token, reserved, status, and the text after the leading line breaks. Each
        // of the three error markers (+CME, +CMS, a bare ERROR line) gives status 1.
        {2002, 24, "00 00 00 26 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00 00 00 00 00"
                   " 0D 0A 2B 43 4D 45 20 45 52 52 4F 52 3A 20 31 30 0D 0A",
         "reply 31 3004 4120 [ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 2b 43 "
         "4d 45]", ""},
        {2002, 24, "00 00 00 25 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00 00 00 00 00"
                   " 0D 0A 2B 43 4D 53 20 45 52 52 4F 52 3A 20 35 0D 0A",
         "reply 31 3004 4120 [ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 2b 43 "
         "4d 53]", ""},
        {2002, 24, "00 00 00 1D 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00 00 00 00 00"
                   " 0D 0A 45 52 52 4F 52 0D 0A",
         "reply 31 3004 4120 [ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 45 52 "
         "52 4f]", ""},
        {2002, 24, "00 00 00 1A 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00 00 00 00 00"
                   " 0D 0A 4F 4B 0D 0A",
         "reply 31 3004 4120 [ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 4f 4b "
         "0d 0a]", ""},
        // A requester record cut short yields a partial token, never an over-read.
        {2002, 1, "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 00 04 00 00 00",
         "reply 31 3004 4120 [ef 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 06 00 00 00 00 00 "
         "00 00]",
         "ril response is un-success (4)"},
        // Unsolicited, with the capability SIM at 1; 3030's row lies past the end row.
        {0, 0, "00 00 00 10 00 00 00 00 01 00 00 00 00 0C 00 00 07 00 00 00", "",
         "sim_id 0 is not capability_sim 1, ignore"},
        {0, 0, "00 00 00 18 08 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00 00 0C 00 00"
               " 07 00 00 00", "notify sim 1 [07 00 00 00]", ""},
        {0, 0, "00 00 00 14 08 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00 D6 0B 00 00", "", ""},
        // Broken frames end the connection without reading past them or touching the pool.
        {4005, 0, "", "fatal; slot 5", "socket get length error"},
        {4005, 0, "FF FF FF FF", "fatal; slot 5", "invalid frame length 4294967295"},
        {4005, 0, "00 00 00 04 00 00 00 00", "fatal; slot 5", "invalid frame length 4"},
        {4005, 0, "00 00 08 00 D0 07 00 00", "fatal; slot 5", "invalid header size 2000"},
        {4005, 0, "00 00 00 0C 10 00 00 00", "fatal; slot 5", "invalid frame length 12"},
        {4005, 0, "00 00 00 08 00 00 00 00 02 00 00 00", "fatal; slot 5",
         "rilproxy_cmd_resp_thread(): an unknown type (2)"},
        {4005, 0, "00 00 00 14 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00 01 00",
         "fatal; slot 5", "socket get data error"},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.frame);
        LogCapture logs;
        EXPECT_EQ(run(bytes(c.frame), c.parked, c.atLen ? &request : nullptr, c.atLen), c.outcome);
        EXPECT_TRUE(*c.log == '\0' || logs.containsMessage(c.log)) << c.log;
    }
}

// 40 payload bytes: one full line, and a partial one that is not logged. (The 128-byte ceiling is
// the golden transcript's: its longer payloads dump four lines.)
TEST_F(ReaderTest, PayloadDumpLogsOnlyFullLines) {
    std::vector<uint8_t> frame =
        bytes("00 00 00 38 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00");
    while (frame.size() < 60) frame.push_back(frame.size() - 20);
    LogCapture logs;
    run(frame, EVENT_DEACTIVATE_DATA_CALL_REQ);
    std::vector<std::string> dumped;
    for (const std::string &m : logs.messages()) {
        if (std::regex_match(m, std::regex("([0-9A-F]{2} )+"))) dumped.push_back(m);
    }
    EXPECT_EQ(dumped, std::vector<std::string>{"00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F "
                                               "10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F "});
}

// Descriptors above 1023, which an fd_set could not hold, are the soak's: it runs the whole entity
// with more than 1,100 descriptors open.
TEST_F(ReaderTest, PipeWinsOverSocketAndIsDrainedInSteps) {
    t.reset(new TestContext);
    rilproxy_thread_priv_t *record = &t->ctx->cmd_thread;
    EXPECT_EQ(rilproxy_check_thread_pipe(record, t->own, 0), -1);  // nothing pending
    std::vector<uint8_t> wake(1500, 0x20);
    ASSERT_EQ(write(record->pipe_fd[1], wake.data(), wake.size()), 1500);
    ASSERT_EQ(write(t->peer, "x", 1), 1);
    EXPECT_EQ(rilproxy_check_thread_pipe(record, t->own, 0), 0);  // 1024 bytes drained
    EXPECT_EQ(rilproxy_check_thread_pipe(record, t->own, 0), 0);  // the other 476
    EXPECT_EQ(rilproxy_check_thread_pipe(record, t->own, 0), 1);
    EXPECT_EQ(rilproxy_check_thread_pipe(record, -1, 0), -1);  // the socket is not watched
}

// The deadlock the reader must not walk into: the task thread is inside a send under sock_mutex
// (here a 1 MiB frame) to a daemon that is not reading, and a refused TLV request must be re-sent.
// The reader still returns from the frame, so it goes on reading and the daemon can move. The
// task thread's frame goes out whole, its pipe byte wakes the reader, and the re-sent frame follows
// whole (through a full socket: the channel test's).
TEST_F(ReaderTest, RefusedTlvRetryNeverWaitsForTheTaskThread) {
    property_set("persist.vendor.radio.simswitch", "2");  // capability SIM 1
    t.reset(new TestContext);
    rilproxy_entity_priv_t *ctx = t->ctx;
    uint32_t serial =
        rilproxy_add_event_to_pool(
            ctx, vopa_host::new_event(EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, "", 1, 31)) |
        RIL_SERIAL_RETRY_FLAG;
    ASSERT_EQ(serial, 0x40000200u);
    std::vector<uint8_t> big(1 << 20, 0x5a);
    std::thread taskThread([&] {
        rilproxy_ril_requset_param_t param;
        param.request_id = RIL_REQUEST_RADIO_POWER;
        param.serial_no = 0x100;
        param.parcel.setData(big.data(), big.size());
        RilproxyMutexHold hold(&ctx->cmd_thread.sock_mutex);
        EXPECT_EQ(ctx->channel->send(t->own, &param), 0);
    });
    pollfd sending = {t->peer, POLLIN, 0};  // its first bytes: it holds the socket now
    ASSERT_EQ(poll(&sending, 1, 5000), 1);
    std::vector<uint8_t> refused =
        bytes("00 00 00 10 00 00 00 00 00 00 00 00 00 02 00 40 06 00 00 00");
    ASSERT_EQ(write(t->peer, refused.data(), refused.size()), ssize_t(refused.size()));

    EXPECT_EQ(rilproxy_read_one_frame(ctx, t->own), RILPROXY_FRAME_OK);
    EXPECT_EQ(t->ctx->channel->flush(t->own), RILPROXY_OUTBOX_WAITS_FOR_TOKEN);
    auto drain = [&](size_t size) {
        std::vector<uint8_t> got(size);
        for (size_t at = 0; at < size;) {
            ssize_t n = recv(t->peer, got.data() + at, size - at, 0);
            if (n <= 0) break;
            at += n;
        }
        return got;
    };
    std::vector<uint8_t> frame = drain(20 + big.size());
    taskThread.join();
    EXPECT_EQ(hex(frame.data(), 20), "00 10 00 10 04 00 00 00 01 00 00 00 17 00 00 00 00 01 00 00");
    EXPECT_TRUE(std::equal(big.begin(), big.end(), frame.begin() + 20)) << "frames interleaved";
    EXPECT_EQ(rilproxy_check_thread_pipe(&ctx->cmd_thread, -1, 0), 0) << "the reader not woken";

    EXPECT_EQ(t->ctx->channel->flush(t->own), RILPROXY_OUTBOX_EMPTY);
    EXPECT_EQ(t->received(), "00 00 00 10 04 00 00 00 01 00 00 00 38 00 00 00 00 03 00 00");
}

// A daemon that stops reading and keeps refusing the same parked request with the retry bit: the
// re-sends it provokes stop at the outbox's ceiling, and the connection counts as lost.
TEST_F(ReaderTest, ForgedRetryFloodStopsAtTheOutboxCeiling) {
    t.reset(new TestContext);
    event_ptr_t e = vopa_host::new_event(EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, "", 1, 31);
    uint8_t slot = rilproxy_add_event_to_pool(t->ctx, e) & RIL_SERIAL_SLOT_MASK;
    char fill[4096] = {};
    while (send(t->own, fill, sizeof(fill), MSG_DONTWAIT) > 0) continue;
    LogCapture logs;
    int rounds = 0;
    for (; t->ctx->cmd_thread.fd >= 0 && rounds < 100; rounds++) {
        std::vector<uint8_t> refused =
            bytes("00 00 00 10 00 00 00 00 00 00 00 00 00 00 00 40 06 00 00 00");
        refused[12] = slot;
        ASSERT_EQ(write(t->peer, refused.data(), refused.size()), 20);
        ASSERT_EQ(rilproxy_read_one_frame(t->ctx, t->own), RILPROXY_FRAME_OK);
        for (slot = 0; slot < RILPROXY_EVENT_POOL_SIZE && t->slot(slot) != e;) slot++;
    }
    EXPECT_EQ(rounds, 33);  // 32 frames wait, the 33rd is one too many
    EXPECT_TRUE(logs.containsMessage("reader outbox full (32 frames), the daemon does not read"));
    EXPECT_EQ(delivered(4), "reply 31 4018 8 [02 00 00 00]");
}

}  // namespace
