// A simulated RIL daemon for tests, the host runner and the benchmarks: listens on a local
// stream socket in the reserved namespace, accepts the entity's connection, decodes its request
// frames and writes scripted response and unsolicited frames. Single-threaded; every wait has a
// time-out so a test fails instead of hanging.
//
//     ScopedSocketDir dir;                     // tests/support: private ANDROID_SOCKET_DIR
//     rild_sim::RildSim sim("rild-zok");
//     ASSERT_TRUE(sim.acceptClient(5000));
//     rild_sim::RequestFrame req;
//     ASSERT_TRUE(sim.readRequest(&req, 5000));
//     sim.writeResponse(req.serial, 0, {0x01, 0x00, 0x00, 0x00});
//
// Pitfalls: the socket lives in the directory named by ANDROID_SOCKET_DIR when the constructor
// runs. Closing the client ends the entity's process (its reader treats a lost socket as
// fatal), so a test that must outlive the connection keeps the simulator alive.
#ifndef ZOK_TOOLS_RILD_SIM_H
#define ZOK_TOOLS_RILD_SIM_H

#include <stdint.h>

#include <string>
#include <vector>

namespace rild_sim {

// One request frame as the entity writes it.
struct RequestFrame {
    uint32_t length;  // the big-endian length word, decoded
    uint32_t header_size;
    int32_t sim_id;
    int32_t request_id;
    uint32_t serial;
    std::vector<uint8_t> payload;
};

// Frame builders, for tests that combine several frames into one write. The feature header words
// (mask words, then the SIM id word) are written in the host's order, as the daemon does.
std::vector<uint8_t> responseFrame(uint32_t serial, int32_t result,
                                   const std::vector<uint8_t> &payload,
                                   const std::vector<uint32_t> &featureHeader = {});
std::vector<uint8_t> unsolicitedFrame(int32_t id, const std::vector<uint8_t> &payload,
                                      const std::vector<uint32_t> &featureHeader = {});
// The bytes of a request frame as the entity wrote them (readRequest takes only 4-byte headers).
std::vector<uint8_t> requestFrameBytes(const RequestFrame &request);

class RildSim {
public:
    // Listens on `name` in the reserved namespace. Throws std::runtime_error when it cannot.
    explicit RildSim(const std::string &name);
    ~RildSim();
    RildSim(const RildSim &) = delete;
    RildSim &operator=(const RildSim &) = delete;

    const std::string &path() const { return mPath; }
    // Accepts one client, replacing (and closing) any previous one.
    bool acceptClient(int timeoutMs);
    bool connected() const { return mClient >= 0; }
    // The accepted client's descriptor (-1 when none), for a caller that polls it together with
    // descriptors of its own; reads and writes still go through this object.
    int clientFd() const { return mClient; }
    // False on time-out, a closed peer or a frame whose length cannot hold its header.
    bool readRequest(RequestFrame *out, int timeoutMs);
    // Whether the last failed read met the peer's close (rather than a time-out or a bad frame).
    bool peerClosed() const { return mPeerClosed; }

    bool writeResponse(uint32_t serial, int32_t result, const std::vector<uint8_t> &payload,
                       const std::vector<uint32_t> &featureHeader = {});
    bool writeUnsolicited(int32_t id, const std::vector<uint8_t> &payload,
                          const std::vector<uint32_t> &featureHeader = {});
    bool writeRaw(const std::vector<uint8_t> &bytes);
    // From now on every write goes out one byte per send, `gapUs` microseconds apart, so that
    // the reader sees every possible split of a frame.
    void setChunked(bool oneByteAtATime, int gapUs = 200);
    void closeClient();

private:
    bool readExactly(uint8_t *buf, size_t len, int timeoutMs);
    std::string mPath;
    int mListen = -1;
    int mClient = -1;
    bool mPeerClosed = false;
    bool mChunked = false;
    int mGapUs = 0;
};

}  // namespace rild_sim

#endif  // ZOK_TOOLS_RILD_SIM_H
