// The whole entity for one long process life in a crowded process: started with more than 1,100
// descriptors open, so every descriptor of the entity is above what select could watch, against
// the simulated daemon in chaos mode, which answers out of order and late, sometimes a byte at a
// time, refuses TLV requests, fails some, accepts others whose result the framework (here the
// test) then delivers, and floods unsolicited data-call lists.
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
#include <filesystem>
#include <fstream>
#include <mutex>
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
// A sanitizer build made with plain compiler flags (not the project's option) is found here too.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZOK_SOAK_SLOW_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZOK_SOAK_SLOW_BUILD 1
#endif
#endif
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
[[maybe_unused]] constexpr long kRssGrowthMaxKiB = 4096;  // unused where not checked
constexpr int kGroupTimeoutMs = 60000;
constexpr uint32_t kFirstRequester = 10000;
constexpr uint32_t kChaosSeed = 20240611;

const char kAtCommand[] = "AT+CSQ";

// Called on the daemon's thread once an answer is out. A TLV request it accepted completes through
// the data manager, whose result the test posts as the framework would: the serial leads the
// result, and the task fills the rest of the answer's fixed size with zeros.
std::atomic<int> gFailedPsReg{0};  // the one-way request whose error alone is answered
void answered(const rild_sim::RequestFrame &req, const rild_sim::Answer &a) {
    const bool ok = a.result == ZOKRIL_E_SUCCESS;
    gFailedPsReg += !ok && req.request_id == ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE;
    if (!ok || !rild_sim::isTlvRequest(req.request_id)) return;
    event_id_t id = EVENT_RESP_LAST_FAIL_CAUSE;
    if (req.request_id == ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV) id = EVENT_RESP_DATA_CALL_INFO;
    if (req.request_id == ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV) id = EVENT_RESP_PCSCF_PCO;
    EXPECT_TRUE(vopa_host::post(TASK_ID_RILPROXY, id, &req.serial, 4, 0));
}

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

// What the entity does, seen from the framework: the answers of one group by requester (on the
// delivering threads), and log lines counted by their message's start, without keeping the lines.
// (A teardown needs no watch here: the test programs' main turns its exit into a failure.)
class Watch {
public:
    explicit Watch(std::vector<std::string> prefixes)
        : mPrefixes(std::move(prefixes)), mLogCounts(mPrefixes.size()) {
        vopa_host::set_delivery_listener([this](const vopa_host::Delivery &d) { see(d); });
        host_log_set_stderr(0);
        host_log_set_sink(&Watch::sink, this);
    }
    ~Watch() {
        vopa_host::set_delivery_listener(nullptr);
        host_log_set_sink(nullptr, nullptr);
        host_log_set_stderr(1);
    }
    void startGroup(uint32_t first, size_t count) {
        std::lock_guard<std::mutex> lock(mLock);
        mFirst = first;
        mCounts.assign(count, 0);
    }
    std::vector<int> counts() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCounts;
    }
    int logCount(size_t i) const { return mLogCounts[i].load(); }
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
    static void sink(int, const char *, const char *text, void *ctx) {
        auto *self = static_cast<Watch *>(ctx);
        for (size_t i = 0; i < self->mPrefixes.size(); i++) {
            if (strstr(text, self->mPrefixes[i].c_str()) != nullptr) self->mLogCounts[i]++;
        }
    }
    std::mutex mLock;
    uint32_t mFirst = 0;
    std::vector<int> mCounts;  // guarded by mLock
    std::vector<std::string> mPrefixes;
    std::vector<std::atomic<int>> mLogCounts;
};

long residentKiB() {
    long pages = 0, resident = -1;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int openDescriptors() {  // less the listing's own
    namespace fs = std::filesystem;
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/fd"), {})) - 1;
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
    Watch watch({"event pool is full", "retry old request for event ID", "event_ptr is NULL",
                 "not found req_event_ptr", "select error"});
    rild_sim::ProfileOptions options;
    options.chaosSeed = kChaosSeed;
    options.answered = answered;
    // Only the daemon's connection events are shown: an unreadable request frame among them
    // comes just before the teardown that fails the test.
    options.out = [](const std::string &line) {
        if (line.compare(0, 8, "rild -- ") == 0) fprintf(stderr, "%s\n", line.c_str());
    };
    static rild_sim::SimProfile *daemon = nullptr;  // never destroyed: the entity outlives the test
    rilproxy_entity_priv_t *ctx = nullptr;
    ASSERT_TRUE(startEntity(
        [&] {
            daemon = new rild_sim::SimProfile(options);
            daemon->holdAnswers(true);
            daemon->start();
        },
        [] { return daemon->waitConnected(5000); }, &ctx));
    EXPECT_GT(ctx->cmd_thread.pipe_fd[0], kCrowdDescriptors);
    EXPECT_GT(ctx->urc_thread.pipe_fd[1], kCrowdDescriptors);
    EXPECT_GT(ctx->cmd_thread.fd.load(), kCrowdDescriptors);

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
        watch.startGroup(first, posts.size());
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
                EXPECT_TRUE(waitUntil([&] { return watch.logCount(kPoolFull) > 0; }, 5000));
                daemon->holdAnswers(false);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        // Every event of the group freed means every request was handled to its end, answered
        // or not, and every reply delivered: only then are the counts final.
        ASSERT_TRUE(vopa_host::wait_no_live_events(kGroupTimeoutMs))
            << "group " << group << ": " << vopa_host::counters().live
            << " events still live after " << kGroupTimeoutMs << " ms; a thread is stuck";
        ASSERT_TRUE(vopa_host::wait_task_idle(TASK_ID_RILPROXY, kGroupTimeoutMs));
        std::vector<int> got = watch.counts();
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
    watch.startGroup(requester, 1);
    ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, EVENT_DEACTIVATE_DATA_CALL_REQ,
                                all[0].payload.data(), static_cast<int>(all[0].payload.size()),
                                requester));
    EXPECT_TRUE(waitUntil([&] { return watch.counts()[0] == 1; }, kGroupTimeoutMs));
    // Floods still on their way reach the reader after the last answer it owed.
    waitUntil([&] { return watch.notifications.load() >= daemon->sent().unsolicited; },
              kGroupTimeoutMs);
    const rild_sim::SimProfile::Sent sent = daemon->sent();
    double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    long rssEnd = residentKiB();

    EXPECT_EQ(watch.notifications.load(), sent.unsolicited);
    EXPECT_EQ(watch.astray.load(), 0);
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
    EXPECT_GT(watch.logCount(kPoolFull), 0);
    EXPECT_GT(watch.logCount(kRetry), 0);
    EXPECT_GT(sent.tlvAccepted, 0);
    EXPECT_GT(sent.failed, 0);
    EXPECT_EQ(psRegAnswers, gFailedPsReg.load());
    EXPECT_GT(sent.unsolicited, 0);
    for (int sign : {kNoEvent, kNoWaiting, kWaitError}) EXPECT_EQ(watch.logCount(sign), 0);

    printf(
        "soak: %.1f s, %d groups, %d requests, %d connect events, %d request frames at the daemon "
        "(%d TLV refused, %d TLV accepted, %d RIL errors), %d pool-full, %d retries, %d "
        "unsolicited frames, %llu events allocated, %llu freed, resident %ld KiB after warm-up, "
        "%ld KiB peak, %ld KiB at the end, %d descriptors after warm-up, %d at the end\n",
        seconds, group, requests, connects, sent.answers, sent.tlvRefused, sent.tlvAccepted,
        sent.failed, watch.logCount(kPoolFull), watch.logCount(kRetry), sent.unsolicited,
        static_cast<unsigned long long>(c.allocated), static_cast<unsigned long long>(c.freed),
        rssWarm, rssPeak, rssEnd, fdsWarm, fdsEnd);
}

}  // namespace
