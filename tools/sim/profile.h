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
#include <string>
#include <thread>
#include <vector>

#include "tools/capture/pcapng.h"
#include "tools/sim/rild_sim.h"

namespace rild_sim {

enum class OutputFormat { Text, Json };

struct ProfileOptions {
    std::string name = "rild-zok";  // socket name in the reserved namespace
    bool tlv = false;               // answer the TLV requests (2157..2159) instead of refusing
    OutputFormat format = OutputFormat::Text;
    // Receives each printed line without its "\n"; null prints to standard output.
    std::function<void(const std::string &)> out;
    // Records every frame of the session and the close, when set; not owned.
    capture::Writer *capture = nullptr;
};

// What the profile answers to one request.
struct Answer {
    int32_t result = 0;
    std::vector<uint8_t> payload;
    std::string summary;  // for the text output, e.g. "data call v11 cid 1"
};

// The answer to `request` when no failure is configured for its request id. `tlv` as in
// ProfileOptions.
Answer answerRequest(const RequestFrame &request, bool tlv);
// A one-line description of a request's payload ("[\"5\",\"2\"]", "channel 0 \"AT\\r\"").
std::string describeRequest(const RequestFrame &request);
// The RIL name of a request or unsolicited id, or "UNKNOWN".
const char *requestName(int32_t requestId);
const char *unsolicitedName(int32_t id);

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

    bool waitConnected(int timeoutMs);
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
    void handleRequest(const RequestFrame &request);
    void runCommands();
    void emit(const std::string &line);
    void note(const std::string &event);  // connection events: accepted, closed, ...
    void sendUnsolicitedNow(int32_t id, const std::vector<uint8_t> &payload);
    void sendFrame(const std::vector<uint8_t> &frame);
    void endSession();

    ProfileOptions mOptions;
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
};

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_PROFILE_H
