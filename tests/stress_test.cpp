// The whole entity under load: requests posted faster than the 32-slot pool drains, connect
// events in between, and a scripted daemon that answers out of order and late, refuses TLV
// requests, fails some, accepts others whose result the framework then delivers, and floods
// unsolicited data-call lists. At the end every requester has exactly one answer, every event is
// freed exactly once and the pool is empty. Bounded in count; every wait has a time-out.
//
// The connected reader ends the process when its socket closes, so the daemon is never deleted.
#include <cutils/properties_host.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "core/framework_calls.h"
#include "rilproxy_entity.h"
#include "support/log_capture.h"
#include "support/socket_dir.h"
#include "tools/sim/rild_sim.h"
#include "vopa_host.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRequests = 1200;
constexpr int kBurst = 40;
constexpr uint32_t kFirstRequester = 10000;
constexpr int kUnsolicitedEvery = 40;  // responses between two floods
constexpr int kFloodFrames = 5;
constexpr int kReadTimeoutMs = 300;

// Parcels the daemon answers with, written out as the daemon sends them.
// Data-call list, version 11, one entry: status 0, retry -1, cid 1, active 2, "IP", "rmnet0",
// "10.0.0.2", "8.8.8.8", "10.0.0.1", pcscf "", mtu 1400.
const std::vector<uint8_t> kDataCallList = {
    0x0b, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xff, 0xff, 0xff, 0xff,
    0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x49, 0x00, 0x50, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00, 0x72, 0x00, 0x6d, 0x00, 0x6e, 0x00, 0x65, 0x00,
    0x74, 0x00, 0x30, 0x00, 0x00, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x31, 0x00, 0x30, 0x00,
    0x2e, 0x00, 0x30, 0x00, 0x2e, 0x00, 0x30, 0x00, 0x2e, 0x00, 0x32, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x07, 0x00, 0x00, 0x00, 0x38, 0x00, 0x2e, 0x00, 0x38, 0x00, 0x2e, 0x00, 0x38, 0x00, 0x2e, 0x00,
    0x38, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x31, 0x00, 0x30, 0x00, 0x2e, 0x00, 0x30, 0x00,
    0x2e, 0x00, 0x30, 0x00, 0x2e, 0x00, 0x31, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x78, 0x05, 0x00, 0x00};
// The String16 "10.0.0.9".
const std::vector<uint8_t> kPcscfText = {0x08, 0x00, 0x00, 0x00, 0x31, 0x00, 0x30, 0x00,
                                         0x2e, 0x00, 0x30, 0x00, 0x2e, 0x00, 0x30, 0x00,
                                         0x2e, 0x00, 0x39, 0x00, 0x00, 0x00, 0x00, 0x00};
// One fail cause, 26.
const std::vector<uint8_t> kFailCause = {0x01, 0x00, 0x00, 0x00, 0x1a, 0x00, 0x00, 0x00};
// Four bytes the reader skips, then "\r\nOK\r\n".
const std::vector<uint8_t> kAtOk = {0x00, 0x00, 0x00, 0x00, 0x0d, 0x0a, 0x4f, 0x4b, 0x0d, 0x0a};

const char kAtCommand[] = "AT+CSQ";

// What a successful answer to `requestId` carries; requests without a payload get none.
const std::vector<uint8_t> &successPayload(int32_t requestId) {
    static const std::vector<uint8_t> kNone;
    switch (requestId) {
        case RIL_REQUEST_SETUP_DATA_CALL:
            return kDataCallList;
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO:
            return kPcscfText;
        case RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE:
            return kFailCause;
        case ZOKRIL_REQUEST_SEND_AT_CMD:
            return kAtOk;
        default:
            return kNone;
    }
}

struct Figures {
    std::atomic<int> requests{0};
    std::atomic<int> refusedTlv{0};
    std::atomic<int> acceptedTlv{0};
    std::atomic<int> failed{0};
    std::atomic<int> unsolicited{0};
};

// Two threads over one RildSim: one only reads request frames, the other answers them, so a
// reader thread that is busy re-sending never waits on a daemon that is busy writing.
class ScriptedDaemon {
public:
    explicit ScriptedDaemon(rild_sim::RildSim *sim) : mSim(sim) {}

    void start() {
        mReceiver = std::thread([this] { receive(); });
        mResponder = std::thread([this] { respond(); });
    }
    void stop() {
        mStop = true;
        mWake.notify_all();
        mReceiver.join();
        mResponder.join();
    }
    // Answers wait until this is called; requests are still read and queued meanwhile.
    void release() {
        std::lock_guard<std::mutex> lock(mLock);
        mHeld = false;
        mWake.notify_all();
    }
    bool brokenStream() const { return mBroken; }
    Figures figures;

private:
    void receive() {
        while (!mStop) {
            rild_sim::RequestFrame req;
            auto begun = Clock::now();
            if (!mSim->readRequest(&req, kReadTimeoutMs)) {
                // Only a time-out takes the whole wait and leaves the stream whole; a frame the
                // daemon cannot parse fails at once.
                if (Clock::now() - begun < std::chrono::milliseconds(kReadTimeoutMs)) {
                    mBroken = true;
                }
                continue;
            }
            figures.requests++;
            std::lock_guard<std::mutex> lock(mLock);
            mQueue.push_back(req);
            mWake.notify_all();
        }
    }

    void respond() {
        std::mt19937 random(20240611);
        int sinceFlood = 0;
        for (;;) {
            std::vector<rild_sim::RequestFrame> batch;
            {
                std::unique_lock<std::mutex> lock(mLock);
                mWake.wait_for(lock, std::chrono::milliseconds(50),
                               [this] { return mStop || (!mHeld && !mQueue.empty()); });
                if (mHeld || mQueue.empty()) {
                    if (mStop) return;
                    continue;
                }
                // Up to eight at a time, answered in a shuffled order.
                while (!mQueue.empty() && batch.size() < 8) {
                    batch.push_back(mQueue.front());
                    mQueue.pop_front();
                }
            }
            std::shuffle(batch.begin(), batch.end(), random);
            for (const rild_sim::RequestFrame &req : batch) {
                if (random() % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
                answer(req, random);
                if (++sinceFlood == kUnsolicitedEvery) {
                    sinceFlood = 0;
                    for (int i = 0; i < kFloodFrames; i++) {
                        ASSERT_TRUE(mSim->writeUnsolicited(RIL_UNSOL_DATA_CALL_LIST_CHANGED,
                                                           kDataCallList));
                        figures.unsolicited++;
                    }
                }
            }
        }
    }

    void answer(const rild_sim::RequestFrame &req, std::mt19937 &random) {
        if (req.serial & RIL_SERIAL_RETRY_FLAG) {
            // Mostly refused, so the plain form is re-sent from the reader thread; otherwise
            // accepted, and the framework delivers the result later under the same serial.
            if (random() % 4 != 0) {
                figures.refusedTlv++;
                ASSERT_TRUE(mSim->writeResponse(req.serial, ZOKRIL_E_REQUEST_NOT_SUPPORTED, {}));
                return;
            }
            figures.acceptedTlv++;
            ASSERT_TRUE(mSim->writeResponse(req.serial, ZOKRIL_E_SUCCESS, {}));
            deliverTlvResult(req);
            return;
        }
        if (random() % 5 == 0) {
            figures.failed++;
            ASSERT_TRUE(mSim->writeResponse(req.serial, 14, {}));
            return;
        }
        ASSERT_TRUE(mSim->writeResponse(req.serial, 0, successPayload(req.request_id)));
    }

    // What the data manager would send once the accepted TLV request completed.
    void deliverTlvResult(const rild_sim::RequestFrame &req) {
        event_id_t id = EVENT_RESP_LAST_FAIL_CAUSE;
        size_t size = RILPROXY_TLV_FAIL_CAUSE_SIZE;
        if (req.request_id == ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV) {
            id = EVENT_RESP_DATA_CALL_INFO;
            size = RILPROXY_TLV_DATA_CALL_INFO_SIZE;
        } else if (req.request_id == ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV) {
            id = EVENT_RESP_PCSCF_PCO;
            size = RILPROXY_TLV_PCSCF_INFO_SIZE;
        }
        std::vector<uint8_t> payload(4 + size, 0);
        memcpy(payload.data(), &req.serial, 4);
        ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, id, payload.data(),
                                    static_cast<int>(payload.size()), 0));
    }

    rild_sim::RildSim *mSim;
    std::thread mReceiver, mResponder;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mBroken{false};
    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<rild_sim::RequestFrame> mQueue;  // guarded by mLock
    bool mHeld = true;                          // guarded by mLock
};

// Request events in turn: plain only, TLV first, and the AT relay.
struct Kind {
    event_id_t id;
    std::vector<uint8_t> payload;
};

std::vector<Kind> kinds() {
    CallIdCauseRequest idCause = {};
    idCause.id = 5;
    idCause.cause = 2;
    std::vector<uint8_t> idCauseBytes(sizeof(idCause));
    memcpy(idCauseBytes.data(), &idCause, sizeof(idCause));
    DataCallSetupRequest setup = {};
    memcpy(setup.strings[1], "ims", 3);
    setup.cid = 1;
    std::vector<uint8_t> setupBytes(sizeof(setup));
    memcpy(setupBytes.data(), &setup, sizeof(setup));
    AtCommandRequest at = {};
    at.channel = 302;
    at.command = kAtCommand;
    std::vector<uint8_t> atBytes(sizeof(at));
    memcpy(atBytes.data(), &at, sizeof(at));
    return {{EVENT_DEACTIVATE_DATA_CALL_REQ, idCauseBytes},
            {EVENT_SETUP_DATA_CALL_REQ, setupBytes},
            {EVENT_ABORT_SETUP_DATA_CALL_REQ, idCauseBytes},
            {EVENT_PCSCF_DISCOVERY_PCO_REQ, idCauseBytes},
            {EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, idCauseBytes},
            {EVENT_RILPROXY_ATCMD_REQ, atBytes}};
}

// Answers per requester: replies, and the connect event's answer, which is sent to the
// requester's id rather than replied.
std::map<int32_t, int> answersByRequester() {
    std::map<int32_t, int> out;
    for (const vopa_host::Delivery &d : vopa_host::deliveries()) {
        if (d.kind == vopa_host::DeliveryKind::Reply ||
            (d.kind == vopa_host::DeliveryKind::Send && d.id == EVENT_RILPROXY_CONNECT)) {
            out[d.to]++;
        }
    }
    return out;
}

int countDeliveries(event_id_t id) {
    int n = 0;
    for (const vopa_host::Delivery &d : vopa_host::deliveries()) n += d.id == id;
    return n;
}

int countPrefix(const LogCapture &logs, const std::string &prefix) {
    int n = 0;
    for (const std::string &m : logs.messages()) n += m.compare(0, prefix.size(), prefix) == 0;
    return n;
}

template <typename Pred>
bool waitUntil(Pred pred, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!pred()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

rild_sim::RildSim *gDaemon = nullptr;

TEST(StressTest, FloodOfRequestsAndReportsEndsWithEveryEventAnsweredAndFreed) {
    property_host_reset();
    zok_prop_ver = 1;
    vopa_host::reset();
    ScopedSocketDir dir;
    gDaemon = new rild_sim::RildSim("rild-zok");
    LogCapture logs;
    static vopa_entity_t entity = {};
    ASSERT_EQ(rilproxy_entity_init(&entity, nullptr), &entity);
    auto *ctx = static_cast<rilproxy_entity_priv_t *>(entity.priv);
    vopa_host::open_entity_init_gate();
    ASSERT_TRUE(gDaemon->acceptClient(5000));
    ASSERT_TRUE(vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, 5000));

    ScriptedDaemon daemon(gDaemon);
    daemon.start();
    auto started = Clock::now();

    std::vector<Kind> all = kinds();
    uint32_t requester = kFirstRequester;
    for (int i = 0; i < kRequests; i++) {
        // A connect event now and then: it wakes the reader through its pipe mid-flood.
        const Kind &k = i % 50 == 49 ? Kind{EVENT_RILPROXY_CONNECT, {}} : all[i % all.size()];
        ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, k.id,
                                    k.payload.empty() ? nullptr : k.payload.data(),
                                    static_cast<int>(k.payload.size()), requester++));
        if (i == kBurst - 1) {
            // Nothing is answered until the first burst has overflowed the pool, so the full-pool
            // path runs however fast this machine's daemon would otherwise drain it.
            EXPECT_TRUE(
                waitUntil([&] { return countPrefix(logs, "event pool is full") > 0; }, 5000));
            daemon.release();
        }
        if (i % kBurst == kBurst - 1) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    std::map<int32_t, int> answers;
    bool allAnswered = waitUntil(
        [&] {
            answers = answersByRequester();
            return answers.size() >= static_cast<size_t>(kRequests) || daemon.brokenStream();
        },
        60000);
    // Floods still on their way reach the reader after the last answer it owed.
    bool floodsIn = waitUntil(
        [&] {
            return countDeliveries(EVENT_DATA_CALL_LIST_CHANGED_IND) >= daemon.figures.unsolicited;
        },
        20000);
    daemon.stop();
    double seconds = std::chrono::duration<double>(Clock::now() - started).count();

    ASSERT_FALSE(daemon.brokenStream()) << "the daemon read a mangled request frame";
    EXPECT_TRUE(allAnswered);
    EXPECT_TRUE(floodsIn);
    for (uint32_t r = kFirstRequester; r < requester; r++) {
        EXPECT_EQ(answers[static_cast<int32_t>(r)], 1) << "requester " << r;
    }
    EXPECT_EQ(answers.size(), static_cast<size_t>(kRequests));
    EXPECT_EQ(countDeliveries(EVENT_DATA_CALL_LIST_CHANGED_IND), daemon.figures.unsolicited.load());

    EXPECT_TRUE(vopa_host::wait_no_live_events(5000));
    vopa_host::Counters c = vopa_host::counters();
    EXPECT_EQ(c.bad_frees, 0u);
    {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        for (event_ptr_t slot : ctx->event_pool) EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(ctx->held_without_event, 0u);
    }

    // The load reached every path it was built for, and no answer went astray.
    int poolFull = countPrefix(logs, "event pool is full");
    int retries = countPrefix(logs, "retry old request for event ID");
    EXPECT_GT(poolFull, 0);
    EXPECT_GT(retries, 0);
    EXPECT_GT(daemon.figures.acceptedTlv.load(), 0);
    EXPECT_EQ(countPrefix(logs, "event_ptr is NULL"), 0);
    EXPECT_EQ(countPrefix(logs, "not found req_event_ptr"), 0);
    EXPECT_FALSE(logs.containsMessage("kill volte process before restart ZOK"));

    printf(
        "stress: %d requests posted, %d request frames at the daemon (%d TLV refused, %d TLV "
        "accepted, %d failed), %d pool-full answers, %d retries, %d unsolicited frames, "
        "%d deliveries, %llu events allocated, %.2f s\n",
        kRequests, daemon.figures.requests.load(), daemon.figures.refusedTlv.load(),
        daemon.figures.acceptedTlv.load(), daemon.figures.failed.load(), poolFull, retries,
        daemon.figures.unsolicited.load(), static_cast<int>(vopa_host::deliveries().size()),
        static_cast<unsigned long long>(c.allocated), seconds);
}

}  // namespace
