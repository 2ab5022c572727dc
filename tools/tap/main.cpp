// rild-tap: a transparent relay between the entity and the real RIL daemon that records every
// frame of the session into a capture. Serves one session, then exits 0.
//
//     rild-tap [--socket-dir DIR] --listen NAME --upstream NAME --capture FILE
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tools/capture/pcapng.h"
#include "tools/tap/relay.h"

namespace {

// Android's reserved socket namespace, where init creates the daemons' sockets.
constexpr const char *kDeviceSocketDir = "/dev/socket";

void usage(FILE *to) {
    fprintf(to,
            "usage: rild-tap [--socket-dir DIR] --listen NAME --upstream NAME --capture FILE\n"
            "Listens on DIR/NAME (DIR default %s), accepts one entity, connects to the\n"
            "daemon's socket DIR/UPSTREAM, copies both directions unchanged and records every\n"
            "frame into FILE (pcapng). When either side closes, it closes the other and exits\n"
            "0; 1 when the daemon cannot be reached, 2 for bad arguments.\n",
            kDeviceSocketDir);
}

bool validName(const std::string &name) {
    return !name.empty() && name.find('/') == std::string::npos;
}

}  // namespace

int main(int argc, char **argv) {
    std::string dir = kDeviceSocketDir, listenName, upstreamName, capturePath;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return 0;
        } else if (arg == "--socket-dir" && hasValue) {
            dir = argv[++i];
        } else if (arg == "--listen" && hasValue) {
            listenName = argv[++i];
        } else if (arg == "--upstream" && hasValue) {
            upstreamName = argv[++i];
        } else if (arg == "--capture" && hasValue) {
            capturePath = argv[++i];
        } else {
            fprintf(stderr, "rild-tap: bad argument '%s'\n", arg.c_str());
            usage(stderr);
            return 2;
        }
    }
    if (!validName(listenName) || !validName(upstreamName) || capturePath.empty() ||
        listenName == upstreamName) {
        fprintf(stderr,
                "rild-tap: --listen and --upstream need two different socket names, "
                "and --capture a file\n");
        usage(stderr);
        return 2;
    }
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        fprintf(stderr, "rild-tap: --socket-dir '%s' must name an existing directory\n",
                dir.c_str());
        return 2;
    }
    // Listening first: a refused name must not cost an existing capture file its contents.
    std::string error;
    const std::string listenPath = dir + "/" + listenName;
    int listener = tap::listenAt(listenPath, &error);
    if (listener < 0) {
        fprintf(stderr, "rild-tap: --listen: %s\n", error.c_str());
        return 1;
    }
    capture::Writer writer;
    if (!writer.open(capturePath, &error)) {
        fprintf(stderr, "rild-tap: --capture: %s\n", error.c_str());
        close(listener);
        unlink(listenPath.c_str());
        return 1;
    }
    // The entity runs as another user than the tap: group access as init gives its daemons'
    // sockets (660); the tap runs with the daemon socket's group.
    chmod(listenPath.c_str(), 0660);
    fprintf(stderr, "rild-tap: listening on %s\n", listenPath.c_str());
    int entity = tap::acceptOne(listener);
    close(listener);
    unlink(listenPath.c_str());
    if (entity < 0) {
        fprintf(stderr, "rild-tap: accept: %s\n", strerror(errno));
        return 1;
    }
    // Started side by side with its daemon (a script, a test harness), the tap may meet the entity
    // before the daemon listens: it waits a little for the daemon instead of failing the session.
    constexpr int kUpstreamWaitMs = 5000;
    int daemon = tap::connectTo(dir + "/" + upstreamName, &error, kUpstreamWaitMs);
    if (daemon < 0) {
        fprintf(stderr, "rild-tap: %s\n", error.c_str());
        close(entity);
        return 1;
    }
    fprintf(stderr, "rild-tap: relaying %s <-> %s/%s\n", listenPath.c_str(), dir.c_str(),
            upstreamName.c_str());
    tap::relay(entity, daemon, &writer);
    fprintf(stderr, "rild-tap: session ended\n");
    return 0;
}
