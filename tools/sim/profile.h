// The simulated RIL daemon's built-in profile, on top of RildSim: a thread that accepts the
// entity, decodes every request frame and answers it the way a cooperative daemon would, sends
// unsolicited frames and drops the connection on command, and prints every frame it receives
// ("rild <-") or sends ("rild ->"), as text or as JSON lines. Used by the host runner, the
// standalone rild-sim and by tests that want a plausible daemon rather than a scripted one.
//
//     rild_sim::ProfileOptions options;        // "rild-zok", TLV requests refused, text output
//     rild_sim::SimProfile daemon(options);    // listens now, in $ANDROID_SOCKET_DIR
//     daemon.start();
//     daemon.waitConnected(5000);
//     daemon.sendUnsolicited(RIL_UNSOL_DATA_CALL_LIST_CHANGED, rild_sim::builtinDataCallList());
//     daemon.closeClient();                    // the entity's teardown ends its process
//
//     options.chaosSeed = 7;                   // hostile but legal, the same choices for 7
//     options.answered = [](const rild_sim::RequestFrame &, const rild_sim::Answer &) { ... };
//     daemon.holdAnswers(true);                // read and queue, answer nothing ...
//     daemon.holdAnswers(false);               // ... until now
//
// Chaos mode (ProfileOptions::chaosSeed) shakes the entity with a hostile but legal daemon:
// answers out of order, split across reads, failing, and floods of unsolicited frames, all drawn
// from one seeded generator so that a seed replays the same choices (which request each meets
// depends on when the entity's requests arrive). holdAnswers keeps requests queued (still read, so
// the entity's sender never blocks) until released: with it a script shows the entity's full
// event pool.
//
// One connection per object: once the entity has gone (or closeClient ran) the thread ends.
// Pitfall: an entity in the same process ends that process when the connection drops, so keep
// the object alive (never destroy it) while the entity runs.
#ifndef ZOK_TOOLS_SIM_PROFILE_H
#define ZOK_TOOLS_SIM_PROFILE_H

#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tools/capture/pcapng.h"
#include "tools/sim/frame_log.h"
#include "tools/sim/names.h"
#include "tools/sim/rild_sim.h"

namespace rild_sim {

// What the profile answers to one request.
struct Answer {
    int32_t result = 0;
    std::vector<uint8_t> payload;
    std::string summary;  // for the text output, e.g. "data call v11 cid 1"
};

struct ProfileOptions {
    std::string name = "rild-zok";  // socket name in the reserved namespace
    bool tlv = false;               // answer the TLV requests (2157..2159) instead of refusing
    OutputFormat format = OutputFormat::Text;
    // Receives each printed line without its "\n"; null prints to standard output.
    std::function<void(const std::string &)> out;
    // Records every frame of the session and the close, when set; not owned.
    capture::Writer *capture = nullptr;
    // Non-zero: chaos mode, its choices drawn from std::mt19937(chaosSeed). Queued requests are
    // answered in shuffled batches of up to 8; one batch in 8 goes out a byte per send; one answer
    // in 4 waits 300 us first; one TLV request in 4 is accepted (the others refused, whatever
    // `tlv` says); one other request in 5 fails with RIL error 14 (kChaosError); every 40 answers
    // bring 5 unsolicited data-call lists. Failures set with failRequest still come first.
    uint32_t chaosSeed = 0;
    // Called on the daemon's thread with each request once its answer has been written.
    std::function<void(const RequestFrame &, const Answer &)> answered;
};

constexpr int32_t kChaosError = 14;  // the RIL error of chaos mode's failed requests

// A chaos seed as a command line writes it: 1 to 4294967295, decimal or 0x hex.
bool parseChaosSeed(const std::string &text, uint32_t *seed);

// The answer to `request` when no failure is configured for its request id. `tlv` as in
// ProfileOptions.
Answer answerRequest(const RequestFrame &request, bool tlv);
// The TLV requests (2157..2159), whose result an accepting daemon leaves to the framework.
bool isTlvRequest(int32_t requestId);
// A one-line description of a request's payload ("[\"5\",\"2\"]", "channel 0 \"AT\\r\"").
std::string describeRequest(const RequestFrame &request);

// Built-in unsolicited payloads (Parcel bytes).
std::vector<uint8_t> builtinDataCallList();       // 6002: version 11, one data call, cid 1
std::vector<uint8_t> builtinBearer(bool modify);  // 3030 / 3031: one bearer, cid 2
std::vector<uint8_t> builtinBearerDeactivated();  // 3032: one cid, 2
std::vector<uint8_t> builtinDataCallResponse();   // 3072: version 11, one data call, cid 1
// By the runner's names: data-call-list, bearer-activated, bearer-modified,
// bearer-deactivated, data-call-response. False for any other name.
bool builtinUnsolicited(const std::string &name, int32_t *id, std::vector<uint8_t> *payload);

class SimProfile {
public:
    // Listens at once; throws std::runtime_error when it cannot.
    explicit SimProfile(const ProfileOptions &options);
    // Stops the thread and closes the sockets.
    ~SimProfile();
    SimProfile(const SimProfile &) = delete;
    SimProfile &operator=(const SimProfile &) = delete;

    const std::string &path() const { return mSim.path(); }
    void start();

    // Commands, queued and run on the daemon's thread in order (any thread may call them).
    void sendUnsolicited(int32_t id, const std::vector<uint8_t> &payload);
    void closeClient();
    // From now on `requestId` is answered with `result` and an empty payload; 0 restores the
    // built-in answer.
    void failRequest(int32_t requestId, int32_t result);
    // True: requests are read and queued but not answered; false answers the queue (in order,
    // or chaos order) and whatever comes next.
    void holdAnswers(bool hold);
    // What the daemon has sent so far, each frame counted as it is about to go out; also noted
    // in the output when the session ends.
    struct Sent {
        int answers = 0;
        int failed = 0;  // answers with a non-zero result to requests other than the TLV ones
        int tlvAccepted = 0;
        int tlvRefused = 0;
        int unsolicited = 0;
    };
    Sent sent();

    bool waitConnected(int timeoutMs);
    // True once the daemon has read `count` requests with this id in the session (answered or
    // not: a held request counts), so a caller knows a request has left the entity.
    bool waitRequests(int32_t requestId, uint64_t count, int timeoutMs);
    // True once the connection has ended (peer gone, broken frame or closeClient).
    bool waitSessionEnded(int timeoutMs);
    // Gives up waiting for a client after `ms` (0: wait for ever); set before start().
    void setAcceptTimeout(int ms) { mAcceptTimeoutMs = ms; }

private:
    struct Command {
        enum Kind { Unsolicited, Close } kind;
        int32_t id;
        std::vector<uint8_t> payload;
    };
    void run();
    void serve();
    void receive(const RequestFrame &request);
    void answerBatch();
    Answer answerFor(const RequestFrame &request);
    void answer(const RequestFrame &request);
    bool held();
    void runCommands();
    void wake();
    void note(const std::string &event) { mLog.note(event); }  // accepted, closed, ...
    void logSent(const std::vector<uint8_t> &frame, const std::string &summary);
    void sendUnsolicitedNow(int32_t id, const std::vector<uint8_t> &payload);
    void sendFrame(const std::vector<uint8_t> &frame);
    void endSession();

    ProfileOptions mOptions;
    FrameLog mLog;
    RildSim mSim;  // used by the daemon's thread only once start() has run
    int mWake[2] = {-1, -1};
    int mAcceptTimeoutMs = 0;
    int32_t mSimId = 0;  // the SIM slot of the last request, echoed in every frame's header
    std::thread mThread;
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mStop = false;
    bool mConnected = false;
    bool mEnded = false;
    std::deque<Command> mCommands;
    std::map<int32_t, int32_t> mFailures;
    std::map<int32_t, uint64_t> mReceived;  // requests read, per request id
    bool mHeld = false;
    Sent mSent;
    // The daemon's thread only:
    std::deque<RequestFrame> mPending;  // read, not answered yet
    std::mt19937 mRandom;               // chaos mode's choices
    int mSinceFlood = 0;                // answers since the last flood
};

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_PROFILE_H
