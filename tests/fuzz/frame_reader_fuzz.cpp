// Arbitrary byte streams from the RIL socket through the reader's one-frame function, with
// requests parked in several slots so that solicited, retry, AT and unsolicited paths are all
// reachable. Aborts when an input leaks or double-frees an event, or answers a requester twice.
//
// Each input is one connection: it is written to a fresh socketpair whose write side is then shut,
// and frames are read until the reader says FATAL (a closed stream always ends that way). The
// teardown itself is not run: a fatal verdict ends the input, not the process.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>

#include "fuzz/fuzz_check.h"
#include "support/test_context.h"
#include "transport/reader.h"
#include "vopa_host.h"

namespace {

// Requester ids; the slot each request lands in follows from the order of parking (0, 1, 2, ...).
enum : uint32_t {
    kPlainDeactivate = 101,  // slot 0: 4005, plain table only
    kSetup = 102,            // slot 1: 4003, a TLV row (bit 30) and a plain row (data-call decode)
    kAtCommand = 103,        // slot 2: 2002, answered by the reader itself
    kBearer = 104,           // slot 3: 4007, bearer decode
    kPcscf = 105,            // slot 4: 4015, TLV and plain rows (P-CSCF decode)
    kFailCause = 106,        // slot 5: 4017, TLV and plain rows
};

// Large enough for any seed and for what libFuzzer grows them to; the rest of a longer input is
// not written, so the stream simply ends there.
constexpr size_t kMaxStream = 128 * 1024;

const char kAtText[] = "AT+CGACT?";

void park(rilproxy_entity_priv_t *ctx, event_id_t id, const void *data, int len,
          uint32_t requester) {
    event_ptr_t event = vopa_host::new_event(id, data, len, requester);
    if (event == nullptr || rilproxy_add_event_to_pool(ctx, event) == 0) abort();
}

void parkAll(rilproxy_entity_priv_t *ctx) {
    CallIdCauseRequest idCause = {};
    idCause.id = 5;
    idCause.cause = 2;
    park(ctx, EVENT_DEACTIVATE_DATA_CALL_REQ, &idCause, sizeof(idCause), kPlainDeactivate);

    DataCallSetupRequest setup = {};
    snprintf(setup.strings[1], sizeof(setup.strings[1]), "%s", "ims");
    setup.protocol = RILPROXY_PROTOCOL_IPV4V6;
    setup.cid = 1;
    park(ctx, EVENT_SETUP_DATA_CALL_REQ, &setup, sizeof(setup), kSetup);

    AtCommandRequest at = {};
    at.token = reinterpret_cast<void *>(0x7151);
    at.channel = 302;
    at.command = kAtText;
    park(ctx, EVENT_RILPROXY_ATCMD_REQ, &at, sizeof(at), kAtCommand);

    // The dedicated-bearer request's payload is irrelevant here: only its id picks the row.
    park(ctx, EVENT_SETUP_DEDICATE_DATA_CALL_REQ, nullptr, 0, kBearer);
    park(ctx, EVENT_PCSCF_DISCOVERY_PCO_REQ, &idCause, sizeof(idCause), kPcscf);
    park(ctx, EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, &idCause, sizeof(idCause), kFailCause);
}

// What the entity sent back (re-sent requests) is read and dropped, so the entity's sends never
// block on a full socket.
void drain(int fd) {
    char buf[4096];
    while (recv(fd, buf, sizeof(buf), MSG_DONTWAIT) > 0) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vopa_host::reset();
    {
        // A fresh context per input: its destructor releases what the pool still holds and
        // drops a re-sent frame still queued, which belongs to this socket only.
        TestContext t;
        rilproxy_entity_priv_t *ctx = t.ctx;
        parkAll(ctx);
        size_t left = size < kMaxStream ? size : kMaxStream;
        const uint8_t *p = data;
        while (left > 0) {
            // The daemon's end never blocks: with the socket buffer full, the stream ends here.
            ssize_t n = send(t.peer, p, left, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n <= 0) break;
            p += n;
            left -= static_cast<size_t>(n);
        }
        shutdown(t.peer, SHUT_WR);

        // Every frame that is not fatal consumes at least its length word, so this ends.
        while (rilproxy_read_one_frame(ctx, t.own) == RILPROXY_FRAME_OK) drain(t.peer);
        rilproxy_free_all_event(ctx);
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        check(ctx->held_without_event == 0 && ctx->serial_seq == 1, "the pool is empty again");
    }
    vopa_host::Counters c = vopa_host::counters();
    check(c.live == 0, "every event is freed");
    check(c.bad_frees == 0, "no event is freed twice");
    std::map<int32_t, int> replies;
    for (const vopa_host::Delivery &d : vopa_host::deliveries()) {
        if (d.kind == vopa_host::DeliveryKind::Reply) replies[d.to]++;
    }
    // The bearer request is answered once per bearer its response reports; every other request
    // at most once, however its serial is replayed.
    for (const auto &r : replies) {
        if (r.first != static_cast<int32_t>(kBearer)) {
            check(r.second == 1, "a requester is answered at most once");
        }
    }
    // Whatever the stream said, the AT requester hears exactly once: from its answer frame or
    // from the release of the pool.
    check(replies[kAtCommand] == 1, "the AT requester is answered");
    return 0;
}
