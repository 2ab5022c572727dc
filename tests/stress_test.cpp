// The whole entity for one long process life in a crowded process: started with more than 1,100
// descriptors open, so every descriptor of the entity is above what select could watch, against a
// scripted daemon that answers out of order and late, sometimes a byte at a time, refuses TLV
// requests, fails some, accepts others whose result the framework then delivers, and floods
// unsolicited data-call lists.
//
// First a flood: requests posted faster than the 32-slot pool drains, with connect events in
// between, while the daemon holds its answers until the pool has overflowed. Then groups of
// requests (every row of both tables, the AT relay) alternate with bursts of connect events until
// far more connect events have passed than a pipe holds. Each group is checked before the next:
// every requester answered exactly as its row answers, no answer astray. At the end: every event
// freed exactly once, the pool empty, both threads still serving, and resident size and descriptor
// count flat after the first group that follows the flood.
//
// ZOK_SOAK_SECONDS=N (scripts/soak.sh) keeps it going for N seconds and at least 100,001 connect
// events; without it the test stops after 65,540 connect events, enough to fill the old pipe.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <host/log_capture.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "core/framework_calls.h"
#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/entity_daemon.h"
#include "support/event_bytes.h"
#include "tools/sim/profile.h"
#include "vopa_host.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFloodRequests = 1200;  // connect events included
constexpr int kBurst = 40;
constexpr int kCrowdDescriptors = 1100;
constexpr int kGroupRequests = 24;  // below the pool's 32, so a group never waits for a slot
#ifdef ZOK_SOAK_SLOW_BUILD
constexpr int kGroupConnects = 2000;  // sanitizers and qemu: fewer, longer bursts
#else
constexpr int kGroupConnects = 400;
#endif
constexpr int kBoundedConnects = 65540;
constexpr int kLongConnects = 100001;
// Resident growth allowed after the warm-up. Checked in plain builds only: under the sanitizers,
// shadow memory and ASan's quarantine of freed blocks grow by design (LeakSanitizer covers leaks
// there), and under qemu the figure is the emulator's.
constexpr long kRssGrowthMaxKiB = 4096;
constexpr int kGroupTimeoutMs = 60000;
constexpr uint32_t kFirstRequester = 10000;
constexpr int kUnsolicitedEvery = 40;  // responses between two floods
constexpr int kFloodFrames = 5;
constexpr int kReadTimeoutMs = 300;

const char kAtCommand[] = "AT+CSQ";

struct Figures {
    std::atomic<int> requests{0};
    std::atomic<int> refusedTlv{0};
    std::atomic<int> acceptedTlv{0};
    std::atomic<int> failed{0};
    std::atomic<int> failedPsReg{0};  // the one-way request whose error alone is answered
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
            // One batch in eight reaches the reader a byte at a time: frames split across reads.
            mSim->setChunked(random() % 8 == 0, 0);
            for (const rild_sim::RequestFrame &req : batch) {
                if (random() % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
                answer(req, random);
                if (++sinceFlood == kUnsolicitedEvery) {
                    sinceFlood = 0;
                    for (int i = 0; i < kFloodFrames; i++) {
                        ASSERT_TRUE(mSim->writeUnsolicited(RIL_UNSOL_DATA_CALL_LIST_CHANGED,
                                                           rild_sim::builtinDataCallList()));
                        figures.unsolicited++;
                    }
                }
            }
        }
    }

    // Answers as the host runner's daemon does (one data call, one bearer, "OK" and so on),
    // except that one plain request in five fails with a RIL error and one TLV request in four is
    // accepted, its result then delivered by the framework under the same serial; the others are
    // refused, so the reader re-sends their plain form.
    void answer(const rild_sim::RequestFrame &req, std::mt19937 &random) {
        bool tlv = (req.serial & RIL_SERIAL_RETRY_FLAG) != 0;
        rild_sim::Answer a = rild_sim::answerRequest(req, tlv && random() % 4 == 0);
        if (!tlv && random() % 5 == 0) {
            a = {14, {}, ""};
            figures.failed++;
            if (req.request_id == ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE) figures.failedPsReg++;
        }
        if (tlv) (a.result == ZOKRIL_E_SUCCESS ? figures.acceptedTlv : figures.refusedTlv)++;
        ASSERT_TRUE(mSim->writeResponse(req.serial, a.result, a.payload));
        if (tlv && a.result == ZOKRIL_E_SUCCESS) deliverTlvResult(req);
    }

    // What the data manager sends once the accepted TLV request completed: the serial leads the
    // result, and the task fills the rest of the answer's fixed size with zeros.
    void deliverTlvResult(const rild_sim::RequestFrame &req) {
        event_id_t id = EVENT_RESP_LAST_FAIL_CAUSE;
        if (req.request_id == ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV) id = EVENT_RESP_DATA_CALL_INFO;
        if (req.request_id == ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV) id = EVENT_RESP_PCSCF_PCO;
        ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, id, &req.serial, 4, 0));
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

// Answers owed per row: exactly once, except the one-way rows. The PDN information is never
// answered; the PS registration state only when the daemon fails it (kOnErrorOnly).
constexpr int kOnErrorOnly = -1;
struct Row {
    event_id_t id;
    std::vector<uint8_t> payload;
    int answers;
};

std::vector<Row> rows() {
    const std::vector<uint8_t> idCauseBytes = bytes("05 00 00 00 02 00 00 00 00 00 00 00");
    const std::vector<uint8_t> setupBytes = bytesAt(704, {{128, "69 6d 73"}, {648, "01"}});
    AtCommandRequest at = {};  // its command is a pointer: the record cannot be written out
    at.channel = 302;
    at.command = kAtCommand;
    const auto *atRecord = reinterpret_cast<const uint8_t *>(&at);
    std::vector<uint8_t> atBytes(atRecord, atRecord + sizeof(at));
    const std::vector<uint8_t> bearer = bytesAt(
        3956, {{0, "04 00 00 00 05 00 00 00 00 00 00 00 06"}, {20, "01"}, {32, "01"}, {36, "01"}});
    return {{EVENT_DEACTIVATE_DATA_CALL_REQ, idCauseBytes, 1},
            {EVENT_SETUP_DATA_CALL_REQ, setupBytes, 1},
            {EVENT_ABORT_SETUP_DATA_CALL_REQ, idCauseBytes, 1},
            {EVENT_PCSCF_DISCOVERY_PCO_REQ, idCauseBytes, 1},
            {EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, idCauseBytes, 1},
            {EVENT_RILPROXY_ATCMD_REQ, atBytes, 1},
            {EVENT_DEACTIVATE_DATA_CALL_2_REQ, idCauseBytes, 1},
            {EVENT_SETUP_DEDICATE_DATA_CALL_REQ, bearer, 1},
            {EVENT_MODIFY_DATA_CALL_REQ, bearer, 1},
            {EVENT_DEACTIVATE_DEDICATE_DATA_CALL_REQ, bytes("0c 00 00 00 00 00 00 00"), 1},
            {EVENT_SET_INITIAL_ATTACH_APN_REQ,
             bytesAt(524, {{0, "69 6d 73"}, {128, "01"}, {132, "03"}, {520, "05"}}), 1},
            {EVENT_RADIO_POWER_REQ, bytes("07 00 00 00"), 1},
            {EVENT_RB_DM_HO_REQ, bytes("00 ff 01 02 03 04"), 1},
            {EVENT_NWMNGR_NOTIFY_PS_REG_STATE, bytes("01 00 00 00 49 4e 00 ff"), kOnErrorOnly},
            {EVENT_RB_DM_PDN_INFO_IND, bytesAt(24, {{12, "03"}, {20, "78 05"}}), 0}};
}
const Row kConnect = {EVENT_RILPROXY_CONNECT, {}, 1};  // answered by a send, not a reply

// Counts the answers of one group by requester, on the delivering threads.
class AnswerCounter {
public:
    AnswerCounter() {
        vopa_host::set_delivery_listener([this](const vopa_host::Delivery &d) { see(d); });
    }
    ~AnswerCounter() { vopa_host::set_delivery_listener(nullptr); }
    void startGroup(uint32_t first, size_t count) {
        std::lock_guard<std::mutex> lock(mLock);
        mFirst = first;
        mCounts.assign(count, 0);
    }
    std::vector<int> counts() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCounts;
    }
    std::atomic<int> astray{0};
    std::atomic<int> notifications{0};

private:
    void see(const vopa_host::Delivery &d) {
        if (d.id == EVENT_DATA_CALL_LIST_CHANGED_IND) notifications++;
        if (d.kind != vopa_host::DeliveryKind::Reply &&
            !(d.kind == vopa_host::DeliveryKind::Send && d.id == EVENT_RILPROXY_CONNECT)) {
            return;
        }
        std::lock_guard<std::mutex> lock(mLock);
        uint32_t at = static_cast<uint32_t>(d.to) - mFirst;
        if (at >= mCounts.size()) {
            astray++;
            return;
        }
        mCounts[at]++;
    }
    std::mutex mLock;
    uint32_t mFirst = 0;
    std::vector<int> mCounts;  // guarded by mLock
};

// Log lines counted by their message's start, without keeping the lines. The teardown ends the
// process with status 0, which the test runner would take for a pass: it fails the test instead.
class LogTally {
public:
    explicit LogTally(std::vector<std::string> prefixes)
        : mPrefixes(std::move(prefixes)), mCounts(mPrefixes.size()) {
        host_log_set_stderr(0);
        host_log_set_sink(&LogTally::sink, this);
    }
    ~LogTally() {
        host_log_set_sink(nullptr, nullptr);
        host_log_set_stderr(1);
    }
    int count(size_t i) const { return mCounts[i].load(); }

private:
    static void sink(int, const char *, const char *text, void *ctx) {
        auto *self = static_cast<LogTally *>(ctx);
        if (strstr(text, "kill volte process") != nullptr) {
            fprintf(stderr, "the connection was torn down: %s\n", text);
            _exit(1);
        }
        for (size_t i = 0; i < self->mPrefixes.size(); i++) {
            if (strstr(text, self->mPrefixes[i].c_str()) != nullptr) self->mCounts[i]++;
        }
    }
    std::vector<std::string> mPrefixes;
    std::vector<std::atomic<int>> mCounts;
};

long residentKiB() {
    long pages = 0, resident = 0;
    FILE *f = fopen("/proc/self/statm", "r");
    if (f == nullptr) return -1;
    if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = -1;
    fclose(f);
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int openDescriptors() {
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    while (struct dirent *e = readdir(dir)) n += e->d_name[0] != '.';
    closedir(dir);
    return n - 1;  // the directory's own descriptor
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

TEST(SoakTest, CrowdedLongLifeUnderFloodAnswersEveryRequestAndStaysFlat) {
    const char *secondsText = getenv("ZOK_SOAK_SECONDS");
    const double longSeconds = secondsText != nullptr ? atof(secondsText) : 0;
    const int minConnects = longSeconds > 0 ? kLongConnects : kBoundedConnects;

    struct rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 4096));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GT(limit.rlim_cur, static_cast<rlim_t>(kCrowdDescriptors + 100));
    static std::vector<int> crowd;  // held for the whole process life, as other entities would
    while (crowd.size() < static_cast<size_t>(kCrowdDescriptors)) {
        int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        crowd.push_back(fd);
    }

    enum { kPoolFull, kRetry, kNoEvent, kNoWaiting, kWaitError };
    LogTally tally({"event pool is full", "retry old request for event ID", "event_ptr is NULL",
                    "not found req_event_ptr", "select error"});
    AnswerCounter counter;
    rilproxy_entity_priv_t *ctx = nullptr;
    rild_sim::RildSim *sim = startEntityWithDaemon(&ctx);
    ASSERT_NE(sim, nullptr);
    EXPECT_GT(ctx->cmd_thread.pipe_fd[0], kCrowdDescriptors);
    EXPECT_GT(ctx->urc_thread.pipe_fd[1], kCrowdDescriptors);
    EXPECT_GT(ctx->cmd_thread.fd.load(), kCrowdDescriptors);

    ScriptedDaemon daemon(sim);
    daemon.start();
    const std::vector<Row> all = rows();
    auto started = Clock::now();
    uint32_t requester = kFirstRequester;
    int connects = 0, requests = 0, kindAt = 0, psRegAnswers = 0;
    long rssWarm = 0, rssPeak = 0;
    double nextProgress = 0;
    int fdsWarm = 0, fdsEnd = 0, group = 0;
    for (;; group++) {
        double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
        if (group > 0 && connects >= minConnects && elapsed >= longSeconds) break;
        // Group 0 is the flood: the rows answered exactly once (all but the last two), with a
        // connect event every 50th that wakes the reader through its pipe mid-flood. Later groups
        // post their requests first, then the connect burst, so the requests wait in the pool
        // while the reader is woken over and over.
        std::vector<const Row *> posts;
        for (int i = 0; group == 0 && i < kFloodRequests; i++) {
            posts.push_back(i % 50 == 49 ? &kConnect : &all[i % (all.size() - 2)]);
        }
        for (int i = 0; group > 0 && i < kGroupRequests; i++) {
            posts.push_back(&all[kindAt++ % all.size()]);
        }
        if (group > 0) posts.insert(posts.end(), kGroupConnects, &kConnect);
        const uint32_t first = requester;
        counter.startGroup(first, posts.size());
        for (size_t i = 0; i < posts.size(); i++) {
            const Row &r = *posts[i];
            ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, r.id,
                                        r.payload.empty() ? nullptr : r.payload.data(),
                                        static_cast<int>(r.payload.size()), requester++));
            (&r == &kConnect ? connects : requests)++;
            if (group > 0 || i % kBurst != kBurst - 1) continue;
            if (i == kBurst - 1) {
                // Nothing is answered until the first burst has overflowed the pool, so the
                // full-pool path runs however fast this machine's daemon would drain it.
                EXPECT_TRUE(waitUntil([&] { return tally.count(kPoolFull) > 0; }, 5000));
                daemon.release();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        // Every event of the group freed means every request was handled to its end, answered
        // or not, and every reply delivered: only then are the counts final.
        ASSERT_TRUE(vopa_host::wait_no_live_events(kGroupTimeoutMs))
            << "group " << group << ": " << vopa_host::counters().live
            << " events still live after " << kGroupTimeoutMs << " ms; a thread is stuck";
        ASSERT_TRUE(vopa_host::wait_task_idle(TASK_ID_RILPROXY, kGroupTimeoutMs));
        std::vector<int> got = counter.counts();
        for (size_t i = 0; i < posts.size(); i++) {
            if (posts[i]->answers == kOnErrorOnly) {
                ASSERT_LE(got[i], 1) << "requester " << first + i << " in group " << group;
                psRegAnswers += got[i];
                continue;
            }
            ASSERT_EQ(got[i], posts[i]->answers)
                << "requester " << first + i << " in group " << group;
        }
        vopa_host::clear_deliveries();  // the framework's record would grow without bound
        if (group == 0) continue;
        if (group == 1) {
            rssWarm = residentKiB();
            fdsWarm = openDescriptors();
        }
        rssPeak = std::max(rssPeak, residentKiB());
        fdsEnd = openDescriptors();
        ASSERT_EQ(fdsEnd, fdsWarm) << "descriptor count moved in group " << group;
        if (longSeconds > 0 && elapsed >= nextProgress) {
            nextProgress += 60;
            printf(
                "soak progress: %.0f s, %d requests, %d connect events, resident %ld KiB, %d "
                "descriptors\n",
                elapsed, requests, connects, residentKiB(), fdsEnd);
            fflush(stdout);
        }
    }

    // After every connect event, a deactivate still goes out and is answered: neither thread is
    // blocked, and the URC pipe, long full, stopped nothing.
    counter.startGroup(requester, 1);
    ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, EVENT_DEACTIVATE_DATA_CALL_REQ,
                                all[0].payload.data(), static_cast<int>(all[0].payload.size()),
                                requester));
    EXPECT_TRUE(waitUntil([&] { return counter.counts()[0] == 1; }, kGroupTimeoutMs));
    // Floods still on their way reach the reader after the last answer it owed.
    waitUntil([&] { return counter.notifications.load() >= daemon.figures.unsolicited.load(); },
              kGroupTimeoutMs);
    daemon.stop();
    double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    long rssEnd = residentKiB();

    ASSERT_FALSE(daemon.brokenStream()) << "the daemon read a mangled request frame";
    EXPECT_EQ(counter.notifications.load(), daemon.figures.unsolicited.load());
    EXPECT_EQ(counter.astray.load(), 0);
    EXPECT_TRUE(vopa_host::wait_no_live_events(5000));
    vopa_host::Counters c = vopa_host::counters();
    EXPECT_EQ(c.bad_frees, 0u);
    {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        for (event_ptr_t slot : ctx->event_pool) EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(ctx->held_without_event, 0u);
    }
    EXPECT_GE(connects, minConnects);
#ifndef ZOK_SOAK_SLOW_BUILD
    EXPECT_LE(rssPeak - rssWarm, kRssGrowthMaxKiB);
#endif
    // Every path the test is for was taken, and none of the signs of a lost answer showed.
    EXPECT_GT(tally.count(kPoolFull), 0);
    EXPECT_GT(tally.count(kRetry), 0);
    EXPECT_GT(daemon.figures.acceptedTlv.load(), 0);
    EXPECT_GT(daemon.figures.failed.load(), 0);
    EXPECT_EQ(psRegAnswers, daemon.figures.failedPsReg.load());
    EXPECT_GT(daemon.figures.unsolicited.load(), 0);
    for (int sign : {kNoEvent, kNoWaiting, kWaitError}) EXPECT_EQ(tally.count(sign), 0);

    printf(
        "soak: %.1f s, %d groups, %d requests, %d connect events, %d request frames at the daemon "
        "(%d TLV refused, %d TLV accepted, %d RIL errors), %d pool-full, %d retries, %d "
        "unsolicited frames, %llu events allocated, %llu freed, resident %ld KiB after warm-up, "
        "%ld KiB peak, %ld KiB at the end, %d descriptors after warm-up, %d at the end\n",
        seconds, group, requests, connects, daemon.figures.requests.load(),
        daemon.figures.refusedTlv.load(), daemon.figures.acceptedTlv.load(),
        daemon.figures.failed.load(), tally.count(kPoolFull), tally.count(kRetry),
        daemon.figures.unsolicited.load(), static_cast<unsigned long long>(c.allocated),
        static_cast<unsigned long long>(c.freed), rssWarm, rssPeak, rssEnd, fdsWarm, fdsEnd);
}

}  // namespace
