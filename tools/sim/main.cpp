// rild-sim: the simulated RIL daemon's built-in profile as a program of its own, serving one
// entity in another process (for example rilproxy-host without --sim) until it disconnects.
//
//     rild-sim --socket-dir /tmp/socks [--name rild-zok] [--tlv] [--chaos SEED] [--format json]
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "tools/common/socket_name.h"
#include "tools/sim/profile.h"
#include "tools/sim/replay.h"

namespace {

void usage(FILE *to) {
    fprintf(
        to,
        "usage: rild-sim --socket-dir DIR [--name NAME] [--tlv] [--format text|json]\n"
        "                [--chaos SEED] [--accept-timeout MS] [--capture FILE] [--replay FILE]\n"
        "Listens on DIR/NAME (default rild-zok), answers one entity's requests with the\n"
        "built-in profile, prints every frame on stdout, and exits 0 when the entity\n"
        "disconnects (1 when no entity came within --accept-timeout, default: wait for ever).\n"
        "--capture FILE records every frame of the session (pcapng); --replay FILE answers\n"
        "with the daemon's side of a capture instead of the built-in profile.\n"
        "--chaos SEED (not 0) shakes the entity: answers out of order, split across reads,\n"
        "failing, and floods of unsolicited frames; the same seed makes the same choices.\n");
}

}  // namespace

int main(int argc, char **argv) {
    rild_sim::ProfileOptions options;
    std::string socketDir;
    int acceptTimeoutMs = 0;
    std::string capturePath, replayPath;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return 0;
        } else if (arg == "--socket-dir" && hasValue) {
            socketDir = argv[++i];
        } else if (arg == "--name" && hasValue) {
            options.name = argv[++i];
        } else if (arg == "--tlv") {
            options.tlv = true;
        } else if (arg == "--format" && hasValue) {
            std::string f = argv[++i];
            if (f == "text") {
                options.format = rild_sim::OutputFormat::Text;
            } else if (f == "json") {
                options.format = rild_sim::OutputFormat::Json;
            } else {
                fprintf(stderr, "rild-sim: unknown format '%s'\n", f.c_str());
                return 2;
            }
        } else if (arg == "--chaos" && hasValue) {
            if (!rild_sim::parseChaosSeed(argv[++i], &options.chaosSeed)) {
                fprintf(stderr, "rild-sim: --chaos wants a seed from 1 to 4294967295\n");
                return 2;
            }
        } else if (arg == "--capture" && hasValue) {
            capturePath = argv[++i];
        } else if (arg == "--replay" && hasValue) {
            replayPath = argv[++i];
        } else if (arg == "--accept-timeout" && hasValue) {
            const char *value = argv[++i];
            char *end = nullptr;
            errno = 0;
            const long ms = strtol(value, &end, 10);
            if (end == value || *end != '\0' || errno != 0 || ms <= 0 || ms > INT_MAX) {
                fprintf(stderr, "rild-sim: --accept-timeout '%s': want milliseconds, 1 or more\n",
                        value);
                return 2;
            }
            acceptTimeoutMs = static_cast<int>(ms);
        } else {
            fprintf(stderr, "rild-sim: bad argument '%s'\n", arg.c_str());
            usage(stderr);
            return 2;
        }
    }
    struct stat st;
    if (socketDir.empty() || stat(socketDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        fprintf(stderr, "rild-sim: --socket-dir '%s' must name an existing directory\n",
                socketDir.c_str());
        return 2;
    }
    if (options.name.empty() || options.name.find('/') != std::string::npos) {
        fprintf(stderr, "rild-sim: bad socket name '%s'\n", options.name.c_str());
        return 2;
    }
    // A replay answers what the capture holds: nothing else may choose its answers.
    if (!replayPath.empty() && (options.chaosSeed != 0 || options.tlv)) {
        fprintf(stderr, "rild-sim: --%s and --replay do not go together\n",
                options.tlv ? "tlv" : "chaos");
        return 2;
    }
    // Taking a live daemon's name would cut it off from every later client.
    const std::string socketPath = socketDir + "/" + options.name;
    if (socket_name::heldByLiveListener(socketPath)) {
        fprintf(stderr, "rild-sim: %s is held by a live daemon: refusing to take it\n",
                socketPath.c_str());
        return 1;
    }
    setenv("ANDROID_SOCKET_DIR", socketDir.c_str(), 1);
    // The capture to replay is read before a capture is opened: they may be the same file.
    rild_sim::Replay replay;
    std::string error;
    if (!replayPath.empty()) {
        std::vector<capture::Packet> packets;
        if (!capture::readFile(replayPath, &packets, &error)) {
            fprintf(stderr, "rild-sim: --replay: %s\n", error.c_str());
            return 2;
        }
        if (!rild_sim::buildReplay(packets, &replay, &error)) {
            fprintf(stderr, "rild-sim: --replay: %s: %s\n", replayPath.c_str(), error.c_str());
            return 2;
        }
    }
    capture::Writer capture;
    if (!capturePath.empty()) {
        if (!capture.open(capturePath, &error)) {
            fprintf(stderr, "rild-sim: --capture: %s\n", error.c_str());
            return 1;
        }
        options.capture = &capture;
    }
    if (!replayPath.empty()) {
        return rild_sim::serveReplay(&replay, options.name, acceptTimeoutMs, options.capture,
                                     rild_sim::FrameLog(options.format, options.out));
    }
    try {
        rild_sim::SimProfile daemon(options);
        daemon.setAcceptTimeout(acceptTimeoutMs);
        daemon.start();
        while (!daemon.waitSessionEnded(1000)) {
        }
        bool served = daemon.waitConnected(0);
        return served ? 0 : 1;
    } catch (const std::exception &e) {
        fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
