// The simulated daemon's thread: owns the RildSim once started, so every read and write on the
// connection happens on it; other threads' commands reach it through a queue and a wake-up pipe.
#include "tools/sim/profile.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "tools/sim/output.h"
#include "wire_format.h"

namespace rild_sim {

namespace {

constexpr int kFrameReadTimeoutMs = 5000;  // a frame whose rest never comes is a broken peer

// Chaos mode's proportions (ProfileOptions::chaosSeed).
constexpr size_t kChaosBatch = 8;
constexpr unsigned kChunkedOneIn = 8;
constexpr unsigned kPauseOneIn = 4;
constexpr useconds_t kPauseUs = 300;
constexpr unsigned kTlvAcceptedOneIn = 4;
constexpr unsigned kFailedOneIn = 5;
constexpr int kFloodEvery = 40;
constexpr int kFloodFrames = 5;

}  // namespace

bool parseChaosSeed(const std::string &text, uint32_t *seed) {
    if (text.empty() || text[0] == '-') return false;
    char *end = nullptr;
    unsigned long long v = strtoull(text.c_str(), &end, 0);
    if (*end != '\0' || v == 0 || v > UINT32_MAX) return false;
    *seed = static_cast<uint32_t>(v);
    return true;
}

SimProfile::SimProfile(const ProfileOptions &options)
    : mOptions(options),
      mLog(options.format, options.out),
      mSim(options.name),
      mRandom(options.chaosSeed) {
    if (pipe2(mWake, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error(std::string("rild_sim: pipe: ") + strerror(errno));
    }
}

SimProfile::~SimProfile() {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mStop = true;
    }
    wake();
    if (mThread.joinable()) mThread.join();
    close(mWake[0]);
    close(mWake[1]);
}

void SimProfile::start() {
    // Printed before the thread starts, so it precedes anything the entity does on the socket.
    note("listening on " + mSim.path());
    mThread = std::thread([this] { run(); });
}

void SimProfile::sendUnsolicited(int32_t id, const std::vector<uint8_t> &payload) {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mCommands.push_back(Command{Command::Unsolicited, id, payload});
    }
    wake();
}

void SimProfile::closeClient() {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mCommands.push_back(Command{Command::Close, 0, {}});
    }
    wake();
}

void SimProfile::holdAnswers(bool hold) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mHeld = hold;
    }
    wake();
}

bool SimProfile::held() {
    std::lock_guard<std::mutex> lock(mLock);
    return mHeld;
}

void SimProfile::wake() {
    if (write(mWake[1], "w", 1) < 0) {
        // A full pipe already holds a wake-up, and the thread rechecks everything at each poll
        // time-out anyway.
    }
}

void SimProfile::failRequest(int32_t requestId, int32_t result) {
    std::lock_guard<std::mutex> hold(mLock);
    if (result == ZOKRIL_E_SUCCESS) {
        mFailures.erase(requestId);
    } else {
        mFailures[requestId] = result;
    }
}

bool SimProfile::waitConnected(int timeoutMs) {
    std::unique_lock<std::mutex> hold(mLock);
    return mChanged.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                             [this] { return mConnected; });
}

bool SimProfile::waitRequests(int32_t requestId, uint64_t count, int timeoutMs) {
    std::unique_lock<std::mutex> hold(mLock);
    return mChanged.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                             [&] { return mReceived[requestId] >= count; });
}

bool SimProfile::waitSessionEnded(int timeoutMs) {
    std::unique_lock<std::mutex> hold(mLock);
    return mChanged.wait_for(hold, std::chrono::milliseconds(timeoutMs), [this] { return mEnded; });
}

SimProfile::Sent SimProfile::sent() {
    std::lock_guard<std::mutex> hold(mLock);
    return mSent;
}

void SimProfile::endSession() {
    mSim.closeClient();
    Sent s = sent();
    note("sent " + std::to_string(s.answers) + " answers (" + std::to_string(s.failed) +
         " failed, " + std::to_string(s.tlvAccepted) + " of " +
         std::to_string(s.tlvAccepted + s.tlvRefused) + " TLV requests accepted) and " +
         std::to_string(s.unsolicited) + " unsolicited frames");
    std::lock_guard<std::mutex> hold(mLock);
    mEnded = true;
    mChanged.notify_all();
}

void SimProfile::run() {
    const int kSliceMs = 200;
    int waited = 0;
    for (;;) {
        {
            std::lock_guard<std::mutex> hold(mLock);
            if (mStop) return;
        }
        if (mSim.acceptClient(kSliceMs)) break;
        waited += kSliceMs;
        if (mAcceptTimeoutMs > 0 && waited >= mAcceptTimeoutMs) {
            note("no client");
            endSession();
            return;
        }
    }
    note("client connected");
    {
        std::lock_guard<std::mutex> hold(mLock);
        mConnected = true;
        mChanged.notify_all();
    }
    serve();
}

void SimProfile::serve() {
    for (;;) {
        // With answers owed, only a look at the socket and the commands: reading goes on between
        // two batches, so the entity's sender never waits for the daemon to finish answering.
        const bool owed = !mPending.empty() && !held();
        pollfd fds[2] = {{mSim.clientFd(), POLLIN, 0}, {mWake[0], POLLIN, 0}};
        int n = poll(fds, 2, owed ? 0 : 1000);
        {
            std::lock_guard<std::mutex> hold(mLock);
            if (mStop) return;
        }
        if (n < 0 && errno != EINTR) {
            note("poll failed");
            endSession();
            return;
        }
        if (n > 0 && fds[1].revents != 0) {
            char drain[64];
            while (read(mWake[0], drain, sizeof(drain)) > 0) {
            }
            runCommands();
            if (!mSim.connected()) return;
        }
        if (n > 0 && fds[0].revents != 0) {
            RequestFrame request;
            if (!mSim.readRequest(&request, kFrameReadTimeoutMs)) {
                const bool closed = mSim.peerClosed();
                note(closed ? "connection closed by the entity"
                            : "unreadable request frame, closing the connection");
                if (mOptions.capture) {
                    mOptions.capture->writeClose(closed ? capture::Direction::ToDaemon
                                                        : capture::Direction::ToEntity);
                }
                endSession();
                return;
            }
            receive(request);
        }
        if (!held()) answerBatch();
        if (!mSim.connected()) return;
    }
}

void SimProfile::runCommands() {
    for (;;) {
        Command command;
        {
            std::lock_guard<std::mutex> hold(mLock);
            if (mCommands.empty()) return;
            command = mCommands.front();
            mCommands.pop_front();
        }
        if (command.kind == Command::Close) {
            note("closing the connection");
            if (mOptions.capture) mOptions.capture->writeClose(capture::Direction::ToEntity);
            endSession();
            return;
        }
        sendUnsolicitedNow(command.id, command.payload);
    }
}

void SimProfile::receive(const RequestFrame &request) {
    // Unsolicited frames go out on the SIM slot of the last request.
    mSimId = request.sim_id;
    if (mOptions.capture) {
        mOptions.capture->write(capture::Direction::ToDaemon, requestFrameBytes(request));
    }
    mLog.request(request);
    mPending.push_back(request);
    {
        std::lock_guard<std::mutex> hold(mLock);
        mReceived[request.request_id]++;
    }
    mChanged.notify_all();
}

void SimProfile::answerBatch() {
    if (mPending.empty()) return;
    const bool chaos = mOptions.chaosSeed != 0;
    // Without chaos one answer at a time, in order, the socket read again before the next.
    const size_t size = chaos ? std::min(mPending.size(), kChaosBatch) : 1;
    std::vector<RequestFrame> batch(mPending.begin(), mPending.begin() + size);
    mPending.erase(mPending.begin(), mPending.begin() + size);
    if (chaos) {
        std::shuffle(batch.begin(), batch.end(), mRandom);
        mSim.setChunked(mRandom() % kChunkedOneIn == 0, 0);
    }
    for (const RequestFrame &request : batch) {
        if (chaos && mRandom() % kPauseOneIn == 0) usleep(kPauseUs);
        answer(request);
        if (chaos && ++mSinceFlood == kFloodEvery) {
            mSinceFlood = 0;
            for (int i = 0; i < kFloodFrames && mSim.connected(); i++) {
                sendUnsolicitedNow(RIL_UNSOL_DATA_CALL_LIST_CHANGED, builtinDataCallList());
            }
        }
        if (!mSim.connected()) return;
    }
    mSim.setChunked(false, 0);
}

Answer SimProfile::answerFor(const RequestFrame &request) {
    {
        std::lock_guard<std::mutex> hold(mLock);
        auto it = mFailures.find(request.request_id);
        if (it != mFailures.end()) return Answer{it->second, {}, "configured failure"};
    }
    const bool chaos = mOptions.chaosSeed != 0;
    if (chaos && isTlvRequest(request.request_id)) {
        return answerRequest(request, mRandom() % kTlvAcceptedOneIn == 0);
    }
    if (chaos && mRandom() % kFailedOneIn == 0) {
        return Answer{kChaosError, {}, "chaos: RIL error " + std::to_string(kChaosError)};
    }
    return answerRequest(request, mOptions.tlv);
}

void SimProfile::answer(const RequestFrame &request) {
    const Answer answer = answerFor(request);
    // A daemon answers on the SIM slot the request came for.
    const std::vector<uint32_t> header = {RIL_FEATURE_MASK_SIM_ID,
                                          static_cast<uint32_t>(request.sim_id)};
    std::vector<uint8_t> frame =
        responseFrame(request.serial, answer.result, answer.payload, header);
    logSent(frame, answer.summary);
    {
        std::lock_guard<std::mutex> hold(mLock);
        mSent.answers++;
        const bool ok = answer.result == ZOKRIL_E_SUCCESS;
        if (!isTlvRequest(request.request_id)) {
            mSent.failed += !ok;
        } else {
            (ok ? mSent.tlvAccepted : mSent.tlvRefused)++;
        }
    }
    sendFrame(frame);
    if (mOptions.answered && mSim.connected()) mOptions.answered(request, answer);
}

void SimProfile::sendUnsolicitedNow(int32_t id, const std::vector<uint8_t> &payload) {
    const std::vector<uint32_t> header = {RIL_FEATURE_MASK_SIM_ID, static_cast<uint32_t>(mSimId)};
    std::vector<uint8_t> frame = unsolicitedFrame(id, payload, header);
    logSent(frame, "");
    {
        // Counted before it goes out, so a caller never sees the entity's notice of it first.
        std::lock_guard<std::mutex> hold(mLock);
        mSent.unsolicited++;
    }
    sendFrame(frame);
}

void SimProfile::logSent(const std::vector<uint8_t> &frame, const std::string &summary) {
    DaemonFrame f;
    if (parseDaemonFrame(frame, &f)) mLog.sent(f, summary);
}

void SimProfile::sendFrame(const std::vector<uint8_t> &frame) {
    // Recorded before it goes out, so the capture never shows the entity reacting to a frame
    // ahead of the frame itself.
    if (mOptions.capture) mOptions.capture->write(capture::Direction::ToEntity, frame);
    if (!mSim.writeRaw(frame)) {
        note("write failed");
        endSession();
    }
}

}  // namespace rild_sim
