// rilproxy-host: loads the real libzok_rilproxy.so into the host framework, points it at a RIL
// daemon (the built-in simulated one with --sim, or any program listening on the socket), runs
// a script of framework events and prints every event the entity delivers. Usage: the README's
// "Running the entity on a PC".
//
//     rilproxy-host --sim examples/demo.script
//     rilproxy-host --socket-dir /tmp/socks --format json < my.script
#include <cutils/properties.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <host/log_capture.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "rilproxy.h"
#include "tools/capture/pcapng.h"
#include "tools/runner/script.h"
#include "tools/runner/summary.h"
#include "tools/sim/names.h"
#include "tools/sim/output.h"
#include "tools/sim/profile.h"
#include "tools/tap/relay.h"
#include "vopa_host.h"

#ifndef ZOK_RUNNER_DEFAULT_LIB
#define ZOK_RUNNER_DEFAULT_LIB "libzok_rilproxy.so"
#endif

namespace {

constexpr int kConnectTimeoutMs = 10000;
constexpr int kTeardownTimeoutMs = 10000;

typedef entity_ptr_t (*entity_init_fn)(entity_ptr_t, const entity_init_arg_ptr_t);
typedef void (*entity_version_fn)(void);

struct Options {
    std::string lib;
    std::string socketDir;
    bool sim = false;
    bool tlv = false;
    uint32_t chaosSeed = 0;
    std::vector<std::pair<std::string, std::string>> props;
    int propVer = 1;
    bool json = false;
    bool quiet = false;
    bool interactive = false;
    bool listNames = false;
    std::string capture;
    std::string script;  // empty or "-": standard input
};

const char kUsage[] =
    "usage: rilproxy-host [options] [SCRIPT]\n"
    "Loads libzok_rilproxy.so into the host framework, runs SCRIPT (default: standard input)\n"
    "and prints every event the entity delivers on stdout (entity logs go to stderr).\n"
    "\n"
    "options:\n"
    "  --lib PATH          the entity (default: the build tree's libzok_rilproxy.so)\n"
    "  --socket-dir DIR    the reserved socket namespace (ANDROID_SOCKET_DIR); default: a fresh\n"
    "                      temporary directory with --sim, else $ANDROID_SOCKET_DIR or "
    "/dev/socket/\n"
    "  --sim               start the built-in simulated RIL daemon on the entity's socket\n"
    "  --tlv               the simulated daemon accepts TLV requests (2157..2159)\n"
    "  --chaos SEED        the simulated daemon shakes the entity: answers out of order, split,\n"
    "                      failing, and unsolicited floods; the same seed, the same choices\n"
    "  --prop KEY=VALUE    set a system property before the entity starts (repeatable)\n"
    "  --prop-ver N        the framework's zok_prop_ver (default 1)\n"
    "  --format text|json  output format (default text)\n"
    "  --quiet             no entity log lines on stderr\n"
    "  --capture FILE      record every frame on the RIL socket (pcapng, docs/capture.md)\n"
    "  --interactive       run each command as its line arrives on standard input; a bad\n"
    "                      line or a failed wait is reported and the run goes on (with\n"
    "                      --format json: one done or error object per line on stdout)\n"
    "  --list-names        print the RIL request, unsolicited and result names and exit\n"
    "  --help              this text\n"
    "\n"
    "commands (one per line; '#' starts a comment):\n"
    "  post EVENT [HEX] [size=N] [hex=OFF:HEX] [i32=OFF:N] [str=OFF:TEXT] [from=N]\n"
    "  at CHANNEL SIM TOKEN TEXT          AT-command relay (2002), \\r \\n escapes in TEXT\n"
    "  connect [CMD_NAME [URC_NAME]]      post 2004;  disconnect: post 2005\n"
    "  prop KEY VALUE                     set a system property\n"
    "  wait EVENT [TIMEOUT_MS]            wait for the next delivery of EVENT (default 5000)\n"
    "  sleep MS\n"
    "  sim unsol NAME | sim unsol ID [HEX]   NAME: data-call-list, bearer-activated,\n"
    "                                     bearer-modified, bearer-deactivated, "
    "data-call-response;\n"
    "                                     ID: a number or RIL_UNSOL_... name\n"
    "  sim fail REQUEST RESULT            answer that request (id or RIL name) with RESULT "
    "(number\n"
    "                                     or ZOKRIL_E_... name; 0: normal again)\n"
    "  sim wait-request REQUEST [TIMEOUT_MS]  wait until the daemon has read the next such "
    "request\n"
    "  sim close                          drop the connection; the entity's teardown ends the run\n"
    "  sim hold | sim release             queue the daemon's answers / answer the queue and go on\n"
    "  quit                               exit 0 (also at the end of the script)\n"
    "\n"
    "exit status: 0 done (or the entity's teardown), 1 run-time failure (a wait timed out;\n"
    "with --interactive: any line failed), 2 bad options or script.\n";

Options gOptions;
capture::Writer *gCapture = nullptr;  // never destroyed: threads record until the very end

// Ends the process without running destructors: the entity's threads keep running until the
// very end and must not see the framework's objects destroyed under them.
[[noreturn]] void finish(int status) {
    // The entity's socket goes with the process: the capture says who closed it.
    if (gCapture != nullptr) gCapture->writeClose(capture::Direction::ToDaemon);
    fflush(stdout);
    fflush(stderr);
    _exit(status);
}

// One line naming the input at fault; the usage is --help's.
[[noreturn]] void usageError(const std::string &message) {
    fprintf(stderr, "rilproxy-host: %s (see --help)\n", message.c_str());
    finish(2);
}

// Every JSON object on stdout carries its time, the daemon's lines included.
void writeJson(const std::string &object) {
    tool_output::writeTimedJson(object);
}

std::string deliveryJson(const vopa_host::Delivery &d) {
    std::string fields = runner::eventFields(d.id, d.data);
    return std::string("{\"kind\":\"") + vopa_host::kind_name(d.kind) +
           "\",\"id\":" + std::to_string(d.id) +
           ",\"name\":" + tool_output::jsonString(event_get_name(d.id)) +
           ",\"to\":" + std::to_string(d.to) + ",\"len\":" + std::to_string(d.data.size()) +
           ",\"data\":\"" + tool_output::hexLower(d.data) + "\"" +
           (fields.empty() ? "" : ",\"fields\":" + fields) + "}";
}

void emitDelivery(const vopa_host::Delivery &d) {
    const char *name = event_get_name(d.id);
    if (gOptions.json) {
        writeJson(deliveryJson(d));
        return;
    }
    std::string target;
    if (d.kind == vopa_host::DeliveryKind::Reply) {
        target = " to requester " + std::to_string(d.to);
    } else if (d.kind == vopa_host::DeliveryKind::Send) {
        target = " to task " + std::to_string(d.to);
    }
    tool_output::writeLine(std::string("entity -> ") + vopa_host::kind_name(d.kind) + " " + name +
                           "(" + std::to_string(d.id) + ")" + target + ", " +
                           std::to_string(d.data.size()) +
                           " bytes: " + runner::describeEvent(d.id, d.data));
}

std::string defaultLib() {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) return ZOK_RUNNER_DEFAULT_LIB;
    self[n] = '\0';
    std::string dir(self);
    dir = dir.substr(0, dir.rfind('/') + 1);
    return dir + ZOK_RUNNER_DEFAULT_LIB;
}

void parseOptions(int argc, char **argv) {
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) usageError("option " + arg + " needs a value");
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") {
            fputs(kUsage, stdout);
            finish(0);
        } else if (arg == "--lib") {
            gOptions.lib = value();
        } else if (arg == "--socket-dir") {
            gOptions.socketDir = value();
        } else if (arg == "--sim") {
            gOptions.sim = true;
        } else if (arg == "--tlv") {
            gOptions.tlv = true;
        } else if (arg == "--chaos") {
            std::string seed = value();
            if (!rild_sim::parseChaosSeed(seed, &gOptions.chaosSeed)) {
                usageError("--chaos wants a seed from 1 to 4294967295: " + seed);
            }
        } else if (arg == "--prop") {
            std::string kv = value();
            size_t eq = kv.find('=');
            if (eq == std::string::npos || eq == 0) usageError("--prop wants KEY=VALUE: " + kv);
            gOptions.props.emplace_back(kv.substr(0, eq), kv.substr(eq + 1));
        } else if (arg == "--prop-ver") {
            std::string v = value();
            char *end = nullptr;
            long n = strtol(v.c_str(), &end, 10);
            if (v.empty() || *end != '\0') usageError("bad --prop-ver " + v);
            gOptions.propVer = static_cast<int>(n);
        } else if (arg == "--format") {
            std::string f = value();
            if (f != "text" && f != "json") usageError("unknown format " + f);
            gOptions.json = f == "json";
        } else if (arg == "--quiet") {
            gOptions.quiet = true;
        } else if (arg == "--capture") {
            gOptions.capture = value();
        } else if (arg == "--interactive") {
            gOptions.interactive = true;
        } else if (arg == "--list-names") {
            gOptions.listNames = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            usageError("unknown option " + arg);
        } else if (gOptions.script.empty()) {
            gOptions.script = arg;
        } else {
            usageError("more than one script: " + arg);
        }
    }
    if (gOptions.tlv && !gOptions.sim) usageError("--tlv needs --sim");
    if (gOptions.chaosSeed != 0 && !gOptions.sim) usageError("--chaos needs --sim");
    if (gOptions.lib.empty()) gOptions.lib = defaultLib();
}

// The whole script; a script that cannot be read whole is refused (a directory opens, and reads
// as nothing, on Linux: it would run as an empty script).
std::string readScript() {
    const bool stdinScript = gOptions.script.empty() || gOptions.script == "-";
    const std::string shown = stdinScript ? "<stdin>" : gOptions.script;
    int fd = 0;
    if (!stdinScript) {
        struct stat st;
        if (stat(gOptions.script.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            usageError("script " + shown + " is a directory");
        }
        fd = open(gOptions.script.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) usageError("cannot read script " + shown + ": " + strerror(errno));
    }
    std::string text;
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) usageError("cannot read script " + shown + ": " + strerror(errno));
        if (n == 0) break;
        text.append(buf, static_cast<size_t>(n));
    }
    if (fd != 0) close(fd);
    return text;
}

// The name the entity will connect to when no connect event configures one.
std::string entitySocketName() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(gOptions.propVer < 1 ? "ril.zok.socket" : "vendor.ril.zok.socket", value, "");
    return value[0] != '\0' ? value : "rild-zok";
}

[[noreturn]] void runFailure(const runner::Command &c, const std::string &message) {
    fprintf(stderr, "rilproxy-host: line %d: %s\n", c.line, message.c_str());
    finish(1);
}

// What a command left to report: an error message (empty when it succeeded), and for the
// harness's done object the JSON members it adds (",\"delivery\":{...}").
struct Outcome {
    std::string error;
    std::string extra;
};

Outcome post(const runner::Command &c, event_id_t id, const void *data, size_t len) {
    if (gOptions.json) {
        // Echoed before the post: the entity may answer before vopa_host::post returns.
        writeJson("{\"kind\":\"post\",\"line\":" + std::to_string(c.line) + ",\"id\":" +
                  std::to_string(id) + ",\"name\":" + tool_output::jsonString(event_get_name(id)) +
                  ",\"from\":" + std::to_string(c.from) + ",\"len\":" + std::to_string(len) +
                  ",\"data\":\"" + tool_output::hexLower(static_cast<const uint8_t *>(data), len) +
                  "\"}");
    } else {
        tool_output::writeLine(std::string("fw -> ") + event_get_name(id) + "(" +
                               std::to_string(id) + ") from " + std::to_string(c.from) + ", " +
                               std::to_string(len) + " bytes");
    }
    if (!vopa_host::post(TASK_ID_RILPROXY, id, data, static_cast<int>(len), c.from)) {
        return Outcome{"the entity's task does not take events", ""};
    }
    return Outcome();
}

// The results a harness waits for after a request whose TLV form the chaos daemon may take.
bool mayWaitOnTlv(int32_t eventId) {
    return eventId == EVENT_SETUP_DATA_CALL_RESP || eventId == EVENT_PCSCF_DISCOVERY_PCO_RESP ||
           eventId == EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP;
}

// With --chaos a wait for the reply to an accepted TLV request can never end (the reply is the
// framework's to post), which looks like an entity fault unless the error says so.
std::string waitTimedOut(const runner::Command &c) {
    std::string message = std::string("wait ") + std::to_string(c.id) + " (" +
                          event_get_name(c.id) + "): nothing delivered within " +
                          std::to_string(c.timeoutMs) + " ms";
    if (gOptions.chaosSeed != 0 && mayWaitOnTlv(c.id)) {
        message +=
            " (with --chaos the daemon refuses most TLV requests, but accepts one in 4 with "
            "result 0 and no answer: the result is then the framework's to post, as "
            "EVENT_RESP_DATA_CALL_INFO, EVENT_RESP_PCSCF_PCO or EVENT_RESP_LAST_FAIL_CAUSE)";
    }
    return message;
}

// Sleeps the whole time even when a signal interrupts it.
void sleepMs(int ms) {
    struct timespec left = {ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

std::map<int32_t, uint64_t> gLastSeen;      // per event id: the delivery the last wait consumed
std::map<int32_t, uint64_t> gRequestsSeen;  // per RIL request id: requests sim wait-request met

Outcome runCommand(const runner::Command &c, rild_sim::SimProfile *daemon) {
    switch (c.kind) {
        case runner::Command::Post:
            return post(c, c.id, c.payload.data(), c.payload.size());
        case runner::Command::Connect:
            return post(c, EVENT_RILPROXY_CONNECT, c.payload.data(), c.payload.size());
        case runner::Command::Disconnect:
            return post(c, EVENT_RILPROXY_DISCONNECT, nullptr, 0);
        case runner::Command::At: {
            // The record carries a pointer to the text, read by the entity's task thread
            // after this returns: the copy lives as long as the process.
            AtCommandRequest request;
            memset(&request, 0, sizeof(request));
            request.token = reinterpret_cast<void *>(static_cast<uintptr_t>(c.token));
            request.channel = c.channel;
            request.sim_id = c.simId;
            request.command = strdup(c.text.c_str());
            return post(c, EVENT_RILPROXY_ATCMD_REQ, &request, sizeof(request));
        }
        case runner::Command::Prop:
            if (property_set(c.key.c_str(), c.text.c_str()) != 0) {
                return Outcome{"cannot set property " + c.key, ""};
            }
            break;
        case runner::Command::Wait: {
            vopa_host::Delivery d;
            if (!vopa_host::wait_for_id(c.id, c.timeoutMs, &d, gLastSeen[c.id])) {
                return Outcome{waitTimedOut(c), ""};
            }
            gLastSeen[c.id] = d.seq;
            return Outcome{"", ",\"delivery\":" + deliveryJson(d)};
        }
        case runner::Command::Sleep:
            sleepMs(c.timeoutMs);
            break;
        case runner::Command::SimUnsol:
            daemon->sendUnsolicited(c.id, c.payload);
            break;
        case runner::Command::SimFail:
            daemon->failRequest(c.id, c.result);
            break;
        case runner::Command::SimHold:
        case runner::Command::SimRelease:
            daemon->holdAnswers(c.kind == runner::Command::SimHold);
            break;
        case runner::Command::SimWaitRequest: {
            const uint64_t next = gRequestsSeen[c.id] + 1;
            if (!daemon->waitRequests(c.id, next, c.timeoutMs)) {
                return Outcome{std::string("sim wait-request ") + rild_sim::requestName(c.id) +
                                   "(" + std::to_string(c.id) + "): the daemon read none within " +
                                   std::to_string(c.timeoutMs) + " ms",
                               ""};
            }
            gRequestsSeen[c.id] = next;
            return Outcome{"", ",\"request_id\":" + std::to_string(c.id) + ",\"name\":" +
                                   tool_output::jsonString(rild_sim::requestName(c.id))};
        }
        case runner::Command::SimClose:
            daemon->closeClient();
            // The entity's teardown ends this process; getting past the sleep means it did
            // not.
            sleepMs(kTeardownTimeoutMs);
            runFailure(c, "the entity did not end the process after the daemon closed");
        case runner::Command::Quit:
            break;  // the caller's to end the run, with the status the run has earned
    }
    return Outcome();
}

// The signals a harness may send without meaning the end of the run. They are blocked in every
// thread the runner starts, so they land on the main thread, whose read of standard input they
// interrupt (and which goes on reading).
const int kSurvivedSignals[] = {SIGUSR1, SIGUSR2, SIGHUP};

void noteSignal(int) {}

void blockSurvivedSignals(int how) {
    sigset_t set;
    sigemptyset(&set);
    for (int sig : kSurvivedSignals) sigaddset(&set, sig);
    pthread_sigmask(how, &set, nullptr);
}

void handleSurvivedSignals() {
    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = noteSignal;  // no SA_RESTART: the read below sees EINTR and retries itself
    sigemptyset(&sa.sa_mask);
    for (int sig : kSurvivedSignals) sigaction(sig, &sa, nullptr);
}

// One line of standard input without its newline; false at its end (or a read error). A
// signal's EINTR is not an end.
bool readLine(std::string *line) {
    static std::string buffered;
    static bool ended = false;
    for (;;) {
        size_t nl = buffered.find('\n');
        if (nl != std::string::npos) {
            *line = buffered.substr(0, nl);
            buffered.erase(0, nl + 1);
            return true;
        }
        if (ended) {
            if (buffered.empty()) return false;
            *line = buffered;
            buffered.clear();
            return true;
        }
        char buf[4096];
        ssize_t n = read(0, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ended = true;
            continue;
        }
        buffered.append(buf, static_cast<size_t>(n));
    }
}

// Each line runs as it arrives, so a harness can post, wait for an event and react to it. With
// JSON every line, blank or not, ends in exactly one done or error object on stdout, in the same
// stream as the frames and events it caused; the status says whether any line failed.
[[noreturn]] void runInteractive(rild_sim::SimProfile *daemon) {
    std::string line;
    int lineNo = 0;
    bool failed = false;
    while (readLine(&line)) {
        lineNo++;
        runner::Command c;
        std::string error;
        Outcome outcome;
        bool quit = false;
        if (runner::parseCommand(line, lineNo, daemon != nullptr, &c, &error)) {
            outcome = runCommand(c, daemon);
            quit = c.kind == runner::Command::Quit;
        } else if (!error.empty()) {
            outcome.error = error.substr(error.find(": ") + 2);  // the line is a field of its own
        }
        failed |= !outcome.error.empty();
        if (gOptions.json) {
            const std::string head = "{\"kind\":\"" +
                                     std::string(outcome.error.empty() ? "done" : "error") +
                                     "\",\"line\":" + std::to_string(lineNo);
            writeJson(outcome.error.empty()
                          ? head + outcome.extra + "}"
                          : head + ",\"message\":" + tool_output::jsonString(outcome.error) + "}");
        } else if (!outcome.error.empty()) {
            fprintf(stderr, "rilproxy-host: line %d: %s\n", lineNo, outcome.error.c_str());
        }
        if (quit) break;
    }
    finish(failed ? 1 : 0);
}

void listNames() {
    for (auto kind : {rild_sim::NameKind::Request, rild_sim::NameKind::Unsolicited,
                      rild_sim::NameKind::Result}) {
        size_t count = 0;
        const rild_sim::IdName *rows = rild_sim::nameTable(kind, &count);
        for (size_t i = 0; i < count; i++) {
            printf("%s %d %s\n", rild_sim::nameKindWord(kind), rows[i].id, rows[i].name);
        }
    }
    finish(0);
}

// Without --sim the entity's socket is served by an in-process tap that records the session:
// the entity connects in a private directory, the tap connects on to the daemon where the entity
// would otherwise have gone.
void startCaptureRelay(capture::Writer *writer) {
    const char *env = getenv("ANDROID_SOCKET_DIR");
    const std::string upstream =
        std::string(env != nullptr && env[0] != '\0' ? env : "/dev/socket") + "/" +
        entitySocketName();
    const char *tmp = getenv("TMPDIR");
    std::string dir = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/zok-tap-XXXXXX";
    std::string error;
    int listener = -1;
    if (mkdtemp(&dir[0]) == nullptr ||
        (listener = tap::listenAt(dir + "/" + entitySocketName(), &error)) < 0) {
        fprintf(stderr, "rilproxy-host: cannot set up the capture relay %s\n", error.c_str());
        finish(1);
    }
    setenv("ANDROID_SOCKET_DIR", dir.c_str(), 1);
    std::thread([=] {
        int entity = tap::acceptOne(listener);
        close(listener);
        unlink((dir + "/" + entitySocketName()).c_str());
        rmdir(dir.c_str());
        std::string why;
        int daemon = tap::connectTo(upstream, &why);
        if (entity < 0 || daemon < 0) {
            fprintf(stderr, "rilproxy-host: capture relay: %s\n", why.c_str());
            finish(1);
        }
        tap::relay(entity, daemon, writer);
    }).detach();
}

}  // namespace

int main(int argc, char **argv) {
    parseOptions(argc, argv);
    if (gOptions.listNames) listNames();
    std::vector<runner::Command> commands;
    std::string error;
    if (gOptions.interactive) {
        if (!gOptions.script.empty() && gOptions.script != "-") {
            usageError("--interactive reads its commands from standard input");
        }
    } else if (!runner::parseScript(readScript(), gOptions.sim, &commands, &error)) {
        fprintf(stderr, "rilproxy-host: %s: %s\n",
                gOptions.script.empty() ? "<stdin>" : gOptions.script.c_str(), error.c_str());
        finish(2);
    }

    if (gOptions.interactive) {
        // Before any thread starts, so that every thread inherits the mask.
        handleSurvivedSignals();
        blockSurvivedSignals(SIG_BLOCK);
    }

    bool ownSocketDir = false;
    if (!gOptions.socketDir.empty()) {
        struct stat st;
        if (stat(gOptions.socketDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            usageError("--socket-dir " + gOptions.socketDir + " is not a directory");
        }
        setenv("ANDROID_SOCKET_DIR", gOptions.socketDir.c_str(), 1);
    } else if (gOptions.sim) {
        const char *tmp = getenv("TMPDIR");
        // Short: the socket path must fit sun_path.
        std::string pattern = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/zok-host-XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr) {
            fprintf(stderr, "rilproxy-host: cannot create a socket directory\n");
            finish(1);
        }
        gOptions.socketDir = pattern;
        ownSocketDir = true;
        setenv("ANDROID_SOCKET_DIR", pattern.c_str(), 1);
    }
    for (const auto &kv : gOptions.props) {
        if (property_set(kv.first.c_str(), kv.second.c_str()) != 0) {
            usageError("cannot set property " + kv.first);
        }
    }
    zok_prop_ver = gOptions.propVer;
    zok_pid = getpid();
    host_log_set_stderr(gOptions.quiet ? 0 : 1);
    vopa_host::set_delivery_listener(emitDelivery);

    if (!gOptions.capture.empty()) {
        capture::Writer *writer = new capture::Writer;
        if (!writer->open(gOptions.capture, &error)) {
            fprintf(stderr, "rilproxy-host: %s\n", error.c_str());
            finish(1);
        }
        gCapture = writer;
        if (!gOptions.sim) startCaptureRelay(gCapture);
    }

    // Never destroyed: it must outlive the entity, which ends the process when it goes.
    rild_sim::SimProfile *daemon = nullptr;
    if (gOptions.sim) {
        rild_sim::ProfileOptions options;
        options.name = entitySocketName();
        options.tlv = gOptions.tlv;
        options.chaosSeed = gOptions.chaosSeed;
        options.capture = gCapture;
        options.format =
            gOptions.json ? rild_sim::OutputFormat::Json : rild_sim::OutputFormat::Text;
        if (gOptions.json) options.out = writeJson;
        try {
            daemon = new rild_sim::SimProfile(options);
        } catch (const std::exception &e) {
            fprintf(stderr, "rilproxy-host: %s\n", e.what());
            finish(1);
        }
        daemon->start();
    }

    void *lib = dlopen(gOptions.lib.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) {
        fprintf(stderr, "rilproxy-host: cannot load %s: %s\n", gOptions.lib.c_str(), dlerror());
        finish(1);
    }
    auto init = reinterpret_cast<entity_init_fn>(dlsym(lib, "rilproxy_entity_init"));
    auto version = reinterpret_cast<entity_version_fn>(dlsym(lib, "rilproxy_entity_version"));
    if (init == nullptr || version == nullptr) {
        fprintf(stderr, "rilproxy-host: %s lacks the entity's entry points\n",
                gOptions.lib.c_str());
        finish(1);
    }
    static vopa_entity_t entity = {0, nullptr, "rilproxy"};
    static vopa_entity_init_arg_t initArg = {nullptr};
    version();
    init(&entity, &initArg);
    vopa_host::open_entity_init_gate();

    if (daemon != nullptr) {
        // The script starts on a connected entity, so its first request is not refused for
        // want of a socket.
        const std::vector<uint8_t> connected = {0, 0, 0, 0};
        bool up = vopa_host::wait_for(
            [&](const vopa_host::Delivery &d) {
                return d.id == EVENT_RILPROXY_STATE_IND && d.data == connected;
            },
            kConnectTimeoutMs);
        if (!up) {
            fprintf(stderr, "rilproxy-host: the entity did not connect to %s\n",
                    daemon->path().c_str());
            finish(1);
        }
        // One connection per run: the path is no longer needed, and a directory of our own is
        // removed now because the run may end by the entity's exit_group.
        if (ownSocketDir) {
            unlink(daemon->path().c_str());
            rmdir(gOptions.socketDir.c_str());
        }
    }
    if (gOptions.interactive) {
        blockSurvivedSignals(SIG_UNBLOCK);
        runInteractive(daemon);
    }
    for (const runner::Command &c : commands) {
        Outcome outcome = runCommand(c, daemon);
        if (!outcome.error.empty()) runFailure(c, outcome.error);
        if (c.kind == runner::Command::Quit) break;
    }
    finish(0);
}
