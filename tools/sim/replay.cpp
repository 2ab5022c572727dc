// Replay of a capture's daemon side: built once from the packets, then served on the caller's
// thread (single-threaded: one poll loop for the entity's requests and the timed frames).
#include "tools/sim/replay.h"

#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "tools/sim/output.h"
#include "tools/sim/profile.h"
#include "tools/sim/rild_sim.h"
#include "wire_format.h"

namespace rild_sim {

namespace {

constexpr int kFrameReadTimeoutMs = 5000;

void logSent(const FrameLog &log, const std::vector<uint8_t> &frame, const std::string &summary) {
    DaemonFrame f;
    if (parseDaemonFrame(frame, &f)) {
        log.sent(f, summary);
    } else {
        log.note("recorded frame of " + std::to_string(frame.size()) + " bytes, unreadable");
    }
}

uint64_t monotonicUs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000;
}

}  // namespace

bool buildReplay(const std::vector<capture::Packet> &packets, Replay *out, std::string *error) {
    *out = Replay();
    std::map<uint32_t, Replay::Exchange *> waiting;  // by serial
    Replay::Exchange *last = nullptr;
    uint64_t lastTs = packets.empty() ? 0 : packets.front().timestampUs;
    for (size_t i = 0; i < packets.size(); i++) {
        const capture::Packet &p = packets[i];
        const std::string where = "packet " + std::to_string(i + 1);
        if (p.direction == capture::Direction::ToDaemon) {
            if (p.isClose()) continue;  // the live entity closes on its own
            ril_frame::RequestHeader request;
            if (!ril_frame::parseRequestHeader(p.frame.data(), p.frame.size(), &request)) {
                *error = where + ": not a request frame";
                return false;
            }
            auto &queue = out->byRequest[request.requestId];
            queue.emplace_back();  // a deque keeps the addresses of its elements
            last = &queue.back();
            waiting[request.serial] = last;
            lastTs = p.timestampUs;
            continue;
        }
        const uint64_t offset = p.timestampUs > lastTs ? p.timestampUs - lastTs : 0;
        DaemonFrame frame;
        if (!p.isClose() && !parseDaemonFrame(p.frame, &frame)) {
            *error = where + ": daemon frame too short";
            return false;
        }
        if (!p.isClose() && frame.solicited) {
            auto it = waiting.find(frame.serialOrId);
            if (it != waiting.end()) {
                it->second->response = p.frame;
                waiting.erase(it);
                continue;
            }
        }
        // Unsolicited frames, answers to nothing and the close keep their time after the request.
        (last ? last->after : out->atConnect).push_back(Replay::Timed{offset, p.frame});
    }
    return true;
}

int serveReplay(Replay *replay, const std::string &name, int acceptTimeoutMs,
                capture::Writer *capture, const FrameLog &log) {
    std::unique_ptr<RildSim> sim;
    try {
        sim.reset(new RildSim(name));
    } catch (const std::exception &e) {
        fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    log.note("replaying on " + sim->path());
    for (int waited = 0; !sim->acceptClient(1000);) {
        waited += 1000;
        if (acceptTimeoutMs > 0 && waited >= acceptTimeoutMs) {
            log.note("no client");
            return 1;
        }
    }
    log.note("client connected");
    std::multimap<uint64_t, std::vector<uint8_t>> due;  // monotonic deadline -> frame or close
    auto schedule = [&](const std::vector<Replay::Timed> &items) {
        const uint64_t now = monotonicUs();
        for (const Replay::Timed &t : items) due.emplace(now + t.offsetUs, t.frame);
    };
    auto send = [&](const std::vector<uint8_t> &frame) {
        if (capture) capture->write(capture::Direction::ToEntity, frame);
        return sim->writeRaw(frame);
    };
    schedule(replay->atConnect);
    for (;;) {
        int timeoutMs = 1000;
        if (!due.empty()) {
            uint64_t now = monotonicUs(), at = due.begin()->first;
            timeoutMs =
                at <= now ? 0 : static_cast<int>(std::min<uint64_t>((at - now) / 1000 + 1, 1000));
        }
        pollfd fd = {sim->clientFd(), POLLIN, 0};
        int n = poll(&fd, 1, timeoutMs);
        while (!due.empty() && due.begin()->first <= monotonicUs()) {
            std::vector<uint8_t> frame = due.begin()->second;
            due.erase(due.begin());
            if (frame.empty()) {
                log.note("closing the connection (recorded)");
                if (capture) capture->writeClose(capture::Direction::ToEntity);
                sim->closeClient();
                return 0;
            }
            logSent(log, frame, "recorded");
            if (!send(frame)) return 0;
        }
        if (n <= 0 || (fd.revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
        RequestFrame request;
        if (!sim->readRequest(&request, kFrameReadTimeoutMs)) {
            log.note("connection closed by the entity");
            if (capture) capture->writeClose(capture::Direction::ToDaemon);
            return 0;
        }
        if (capture) capture->write(capture::Direction::ToDaemon, requestFrameBytes(request));
        log.request(request);
        auto &queue = replay->byRequest[request.request_id];
        Replay::Exchange exchange;
        if (!queue.empty()) {
            exchange = queue.front();
            queue.pop_front();
        }
        std::vector<uint8_t> answer = exchange.response;
        if (answer.empty()) {
            fprintf(stderr,
                    "rild-sim: replay: %s(%d) serial %s has no recorded answer left; answered %d\n",
                    requestName(request.request_id), request.request_id,
                    tool_output::hex32(request.serial).c_str(), ZOKRIL_E_REQUEST_NOT_SUPPORTED);
            answer = responseFrame(request.serial, ZOKRIL_E_REQUEST_NOT_SUPPORTED, {});
        } else {
            // The live entity numbers its requests afresh: the answer carries its serial.
            DaemonFrame recorded;
            parseDaemonFrame(answer, &recorded);  // it parsed when the replay was built
            memcpy(answer.data() + recorded.serialOffset, &request.serial, 4);
        }
        logSent(log, answer, exchange.response.empty() ? "no recorded answer" : "recorded");
        if (!send(answer)) return 0;
        schedule(exchange.after);
    }
}

}  // namespace rild_sim
