// Reading one frame: dispatch by serial to the test's own rows, the retry, AT answers,
// unsolicited frames and the SIM filter, the payload dump, hostile frames, and the wait on the
// control pipe. The daemon's end is the other half of a socketpair.
#include "transport/reader.h"

#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "core/event_pool.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

constexpr event_id_t kTlvRespId = 9999;  // tells the TLV row's calls from the plain row's
constexpr uint32_t kRequester = 31;

std::vector<std::string> gCalls;

int writeMarker(event_ptr_t, android::Parcel &parcel, ril_supported_feature_t *) {
    parcel.writeInt32(0x11223344);
    return 0;
}
int recordResp(task_ptr_t, event_ptr_t, event_id_t id, android::Parcel &parcel, int result,
               ril_supported_feature_t *feature) {
    gCalls.push_back("resp " + std::to_string(id) + " " + std::to_string(result) + " sim " +
                     std::to_string(feature->sim_id) + " [" +
                     hex(parcel.data(), parcel.dataSize()) + "]");
    return 0;
}
int recordErr(task_ptr_t, event_ptr_t, event_id_t id, int error) {
    gCalls.push_back("err " + std::to_string(id) + " " + std::to_string(error));
    return 0;
}
int recordNotify(task_ptr_t, android::Parcel &parcel, ril_supported_feature_t *feature) {
    gCalls.push_back("notify sim " + std::to_string(feature->sim_id) + " [" +
                     hex(parcel.data(), parcel.dataSize()) + "]");
    return 0;
}

// The plain table ends for the reader at the row without a response function, even though that
// row has a request function; the row after it must never be reached.
ril_handler_t gPlain[] = {
    {EVENT_DEACTIVATE_DATA_CALL_REQ, EVENT_DEACTIVATE_DATA_CALL_RESP, 41, 0, writeMarker,
     recordResp, recordErr},
    {EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP, 56, 0, writeMarker,
     nullptr, recordErr},
    {EVENT_SET_INITIAL_ATTACH_APN_REQ, EVENT_SET_INITIAL_ATTACH_APN_RESP, 111, 0, writeMarker,
     recordResp, recordErr},
    {0, 0, 0, 0, nullptr, nullptr, nullptr},
};
ril_handler_tlv_t gTlv[] = {
    {EVENT_DEACTIVATE_DATA_CALL_REQ, kTlvRespId, 2124, 0, nullptr, recordResp, recordErr},
    {0, 0, 0, 0, nullptr, nullptr, nullptr},
};
ril_notify_t gNotifys[] = {
    {RIL_UNSOL_DATA_CALL_RESPONSE, recordNotify},
    {RIL_UNSOL_DATA_CALL_LIST_CHANGED, nullptr},
    {RIL_UNSOL_DEDICATE_BEARER_ACTIVATED, recordNotify},
    {0, nullptr},
};

// Re-sends through the test's plain rows, as the tracker's retry does through the exported ones.
int retryThroughTestRows(rilproxy_entity_priv_t *ctx, event_ptr_t event) {
    gCalls.push_back("retry");
    if (rilproxy_handle_ril_request(ctx, event, &gPlain[0]) != 0) vopa_event_free(event);
    return 0;
}

const rilproxy_reader_tables_t kTables = {gPlain, gTlv, gNotifys, retryThroughTestRows};

std::string joined(const std::vector<std::string> &calls) {
    std::string out;
    for (const std::string &c : calls) out += (out.empty() ? "" : "; ") + c;
    return out;
}

class ReaderTest : public testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        property_host_reset();
        zok_prop_ver = 1;
        gCalls.clear();
        ctx_ = static_cast<rilproxy_entity_priv_t *>(calloc(1, sizeof(*ctx_)));
        vopa_mutex_init(&ctx_->event_pool_mutex);
        vopa_mutex_init(&ctx_->cmd_thread.sock_mutex);
        ctx_->serial_seq = 1;
        ctx_->cmd_thread.entity = ctx_;
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv_), 0);
        ctx_->cmd_thread.fd.store(sv_[0]);
    }
    void TearDown() override {
        rilproxy_free_all_event(ctx_);
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
        close(sv_[0]);
        if (sv_[1] >= 0) close(sv_[1]);
        free(ctx_);
    }
    event_ptr_t park(int slot, event_id_t id, const void *data = nullptr, int len = 0) {
        event_ptr_t event = vopa_host::new_event(id, data, len, kRequester);
        ctx_->event_pool[slot] = event;
        return event;
    }
    // Writes the daemon's bytes; `close` ends the stream after them.
    rilproxy_frame_result feed(const std::vector<uint8_t> &frame, bool closeAfter = false) {
        if (!frame.empty()) {
            EXPECT_EQ(write(sv_[1], frame.data(), frame.size()), (ssize_t)frame.size());
        }
        if (closeAfter) shutdown(sv_[1], SHUT_WR);
        return rilproxy_read_one_frame_with(ctx_, sv_[0], &kTables);
    }
    rilproxy_entity_priv_t *ctx_ = nullptr;
    int sv_[2] = {-1, -1};
};

struct SolicitedCase {
    const char *name;
    int slot;
    event_id_t parkedId;
    const char *frame;
    const char *calls;
    const char *log;
    bool stillParked;
};

TEST_F(ReaderTest, SolicitedFramesReachTheRowOfTheirTable) {
    const SolicitedCase cases[] = {
        {"plain success, SIM id from the feature header", 5, EVENT_DEACTIVATE_DATA_CALL_REQ,
         "00 00 00 1C 08 00 00 00 01 00 00 00 02 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00"
         " 01 00 00 00",
         "resp 4006 0 sim 2 [01 00 00 00]", nullptr, false},
        {"plain error", 5, EVENT_DEACTIVATE_DATA_CALL_REQ,
         "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 00 02 00 00 00", "err 4006 2", nullptr,
         false},
        {"not supported without retry flag", 5, EVENT_DEACTIVATE_DATA_CALL_REQ,
         "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 00 06 00 00 00", "err 4006 6", nullptr,
         false},
        {"TLV error", 5, EVENT_DEACTIVATE_DATA_CALL_REQ,
         "00 00 00 10 00 00 00 00 00 00 00 00 05 02 00 40 02 00 00 00", "err 9999 2", nullptr,
         false},
        {"TLV success left parked", 3, EVENT_DEACTIVATE_DATA_CALL_REQ,
         "00 00 00 10 00 00 00 00 00 00 00 00 03 01 00 40 00 00 00 00", "",
         "ignore new ril request with ZOKRIL_E_SUCCESS for serial_no 40000103\n", true},
        {"empty slot", 5, EVENT_DEACTIVATE_DATA_CALL_REQ,
         "00 00 00 10 00 00 00 00 00 00 00 00 06 01 00 00 00 00 00 00", "", "event_ptr is NULL",
         true},
        {"row past the reader's end row", 5, EVENT_SET_INITIAL_ATTACH_APN_REQ,
         "00 00 00 10 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00", "",
         "rilproxy_cmd_resp_thread(): an unknown event (4030)", false},
    };
    for (const SolicitedCase &c : cases) {
        SCOPED_TRACE(c.name);
        gCalls.clear();
        vopa_host::reset();
        LogCapture logs;
        event_ptr_t event = park(c.slot, c.parkedId);
        EXPECT_EQ(feed(bytes(c.frame)), RILPROXY_FRAME_OK);
        EXPECT_EQ(joined(gCalls), c.calls);
        if (c.log != nullptr) {
            EXPECT_TRUE(logs.containsMessage(c.log));
        }
        EXPECT_EQ(ctx_->event_pool[c.slot] == event, c.stillParked);
        EXPECT_EQ(vopa_host::counters().live, c.stillParked ? 1u : 0u);
        rilproxy_free_all_event(ctx_);
    }
}

TEST_F(ReaderTest, NotSupportedWithRetryFlagResendsPlainRequestAndKeepsEvent) {
    event_ptr_t event = park(5, EVENT_DEACTIVATE_DATA_CALL_REQ);
    EXPECT_EQ(feed(bytes("00 00 00 10 00 00 00 00 00 00 00 00 05 02 00 40 06 00 00 00")),
              RILPROXY_FRAME_OK);
    EXPECT_EQ(joined(gCalls), "retry");
    // Plain request 41 under a fresh serial (slot 0, sequence 2), carrying the row's Parcel.
    uint8_t sent[24] = {};
    ASSERT_EQ(recv(sv_[1], sent, sizeof(sent), MSG_WAITALL), 24);
    EXPECT_EQ(hex(sent, sizeof(sent)),
              "00 00 00 14 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00 44 33 22 11");
    EXPECT_EQ(ctx_->event_pool[0], event);
    EXPECT_EQ(vopa_host::counters().live, 1u);
}

struct AtCase {
    const char *name;
    const char *frame;     // serial 0x107
    int requestLen;        // bytes of the requester's record that the event carries
    const char *expected;  // token, reserved, status, then the text's first bytes
};

TEST_F(ReaderTest, AtAnswersCarryStatusAndTextAfterLeadingLineBreaks) {
    const AtCase cases[] = {
        {"CME error",
         "00 00 00 26 00 00 00 00 00 00 00 00 07 01 00 00 00 00 00 00 00 00 00 00"
         " 0D 0A 2B 43 4D 45 20 45 52 52 4F 52 3A 20 31 30 0D 0A",
         24, "ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 2b 43 4d 45 20 45"},
        {"OK",
         "00 00 00 1A 00 00 00 00 00 00 00 00 07 01 00 00 00 00 00 00 00 00 00 00"
         " 0D 0A 4F 4B 0D 0A",
         24, "ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 4f 4b 0d 0a 00 00"},
        {"RIL error", "00 00 00 10 00 00 00 00 00 00 00 00 07 01 00 00 04 00 00 00", 24,
         "ef be 00 00 00 00 00 00 00 00 00 00 00 00 00 00 06 00 00 00 00 00 00 00 00 00"},
        {"requester record cut short",
         "00 00 00 10 00 00 00 00 00 00 00 00 07 01 00 00 00 00 00 00", 1,
         "ef 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    };
    AtCommandRequest request = {};
    request.token = reinterpret_cast<void *>(0xBEEF);
    for (const AtCase &c : cases) {
        SCOPED_TRACE(c.name);
        vopa_host::reset();
        LogCapture logs;
        park(7, EVENT_RILPROXY_ATCMD_REQ, &request, c.requestLen);
        EXPECT_EQ(feed(bytes(c.frame)), RILPROXY_FRAME_OK);
        std::vector<vopa_host::Delivery> out = vopa_host::deliveries();
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].id, EVENT_RILPROXY_ATCMD_RESP);
        EXPECT_EQ(out[0].to, static_cast<int32_t>(kRequester));
        ASSERT_EQ(out[0].data.size(), sizeof(AtCommandResponse));
        EXPECT_EQ(hex(out[0].data.data(), 26), c.expected);
        EXPECT_EQ(vopa_host::counters().live, 0u);
        EXPECT_EQ(logs.containsMessage("ril response is un-success (4)"),
                  std::string(c.name) == "RIL error");
    }
}

struct UnsolicitedCase {
    const char *name;
    const char *simswitch;  // null: unset, capability SIM 0
    const char *frame;
    const char *calls;
    const char *log;
};

TEST_F(ReaderTest, UnsolicitedFramesPassTheSimFilterAndTheirRow) {
    const UnsolicitedCase cases[] = {
        {"no SIM id, capability 1", "2",
         "00 00 00 10 00 00 00 00 01 00 00 00 00 0C 00 00 07 00 00 00", "",
         "sim_id 0 is not capability_sim 1, ignore"},
        {"no SIM id, capability 0", nullptr,
         "00 00 00 10 00 00 00 00 01 00 00 00 00 0C 00 00 07 00 00 00",
         "notify sim 0 [07 00 00 00]", nullptr},
        {"SIM id 1, capability 1", "2",
         "00 00 00 18 08 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00 00 0C 00 00 07 00 00 00",
         "notify sim 1 [07 00 00 00]", nullptr},
        {"id without row", nullptr, "00 00 00 0C 00 00 00 00 01 00 00 00 B9 0B 00 00", "", nullptr},
        {"row past the end row", nullptr, "00 00 00 0C 00 00 00 00 01 00 00 00 D6 0B 00 00", "",
         nullptr},
    };
    for (const UnsolicitedCase &c : cases) {
        SCOPED_TRACE(c.name);
        gCalls.clear();
        property_host_reset();
        if (c.simswitch != nullptr) property_set("persist.vendor.radio.simswitch", c.simswitch);
        LogCapture logs;
        EXPECT_EQ(feed(bytes(c.frame)), RILPROXY_FRAME_OK);
        EXPECT_EQ(joined(gCalls), c.calls);
        if (c.log != nullptr) {
            EXPECT_TRUE(logs.containsMessage(c.log));
        }
    }
}

TEST_F(ReaderTest, PayloadDumpLogsOnlyFullLinesOfTheFirst128Bytes) {
    const struct {
        const char *header;  // length covers the 16 header bytes and the payload
        size_t payload;
        int lines;
    } cases[] = {
        {"00 00 00 24", 20, 0},
        {"00 00 00 38", 40, 1},
        {"00 00 00 74", 100, 3},
        {"00 00 00 B0", 160, 4},
    };
    static const std::regex kDumpLine("([0-9A-F]{2} )+");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.payload);
        std::vector<uint8_t> frame =
            bytes(std::string(c.header) + "00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00");
        for (size_t i = 0; i < c.payload; i++) frame.push_back(static_cast<uint8_t>(i));
        park(5, EVENT_DEACTIVATE_DATA_CALL_REQ);
        LogCapture logs;
        EXPECT_EQ(feed(frame), RILPROXY_FRAME_OK);
        std::vector<std::string> dumped;
        for (const std::string &m : logs.messages()) {
            if (std::regex_match(m, kDumpLine)) dumped.push_back(m);
        }
        EXPECT_EQ(static_cast<int>(dumped.size()), c.lines);
        if (!dumped.empty()) {
            EXPECT_EQ(dumped[0],
                      "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F "
                      "10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F ");
        }
        if (c.lines == 4) {
            EXPECT_EQ(dumped[3].substr(0, 6), "60 61 ");
        }
    }
}

TEST_F(ReaderTest, BrokenFramesAreFatalWithoutReadingPastThem) {
    const struct {
        const char *name;
        const char *bytes;
        const char *log;
    } cases[] = {
        {"nothing", "", "socket get length error"},
        {"length FFFFFFFF", "FF FF FF FF", "invalid frame length 4294967295"},
        {"length 4", "00 00 00 04 00 00 00 00", "invalid frame length 4"},
        {"header size 2000", "00 00 08 00 D0 07 00 00", "invalid header size 2000"},
        {"header beyond length", "00 00 00 0C 10 00 00 00", "invalid frame length 12"},
        {"type 2", "00 00 00 08 00 00 00 00 02 00 00 00",
         "rilproxy_cmd_resp_thread(): an unknown type (2)"},
        {"closed inside payload",
         "00 00 00 14 00 00 00 00 00 00 00 00 05 01 00 00 00 00 00 00 01 00",
         "socket get data error"},
    };
    event_ptr_t event = park(5, EVENT_DEACTIVATE_DATA_CALL_REQ);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        close(sv_[1]);
        close(sv_[0]);
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv_), 0);
        LogCapture logs;
        EXPECT_EQ(feed(bytes(c.bytes), true), RILPROXY_FRAME_FATAL);
        EXPECT_TRUE(logs.containsMessage(c.log));
        EXPECT_TRUE(gCalls.empty());
        EXPECT_EQ(ctx_->event_pool[5], event);
    }
}

TEST_F(ReaderTest, PipeWinsOverSocketAndIsDrainedInSteps) {
    ASSERT_EQ(pipe(ctx_->cmd_thread.pipe_fd), 0);
    rilproxy_thread_priv_t *record = &ctx_->cmd_thread;
    EXPECT_EQ(rilproxy_check_thread_pipe(record, sv_[0], 0), -1);  // nothing pending
    std::vector<uint8_t> wake(1500, 0x20);
    ASSERT_EQ(write(record->pipe_fd[1], wake.data(), wake.size()), 1500);
    ASSERT_EQ(write(sv_[1], "x", 1), 1);
    EXPECT_EQ(rilproxy_check_thread_pipe(record, sv_[0], 0), 0);  // 1024 bytes drained
    EXPECT_EQ(rilproxy_check_thread_pipe(record, sv_[0], 0), 0);  // the other 476
    EXPECT_EQ(rilproxy_check_thread_pipe(record, sv_[0], 0), 1);
    EXPECT_EQ(rilproxy_check_thread_pipe(record, -1, 0), -1);  // the socket is not watched
    close(record->pipe_fd[1]);
    close(record->pipe_fd[0]);

    LogCapture logs;
    EXPECT_EQ(rilproxy_check_thread_pipe(record, -1, 0), -1);
    char expected[96];
    snprintf(expected, sizeof(expected), "select error, errno = %d (%s)", EBADF, strerror(EBADF));
    EXPECT_TRUE(logs.containsMessage(expected));
}

}  // namespace
