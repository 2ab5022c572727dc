// The command/response reader: owns the connection to the RIL daemon, reads and dispatches every
// frame, and tears the whole process down when the connection is lost. Runs on the reader thread.
#include "transport/reader.h"

#include <arpa/inet.h>
#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "core/capability_sim.h"
#include "core/event_handle.h"
#include "core/event_pool.h"
#include "core/framework_calls.h"
#include "core/log.h"
#include "core/payload.h"
#include "core/replies.h"
#include "rilproxy_entity.h"
#include "transport/frame.h"
#include "transport/ril_channel.h"

#if defined(__aarch64__)
static_assert(SYS_exit_group == 94, "the device's exit-group system call");
#endif
#ifdef ZOK_COVERAGE
extern "C" void __gcov_dump(void);
#endif

constexpr uint32_t kWord = 4;
constexpr size_t kNameSize = 128;
constexpr size_t kPipeDrainSize = 1024;
constexpr int kWaitingTimeout = 1;     // s; also paces the connection attempts
constexpr int kConnectedTimeout = 30;  // s; only paces the rechecks of fd and enabled
constexpr uint32_t kDumpBytesMax = 128;
constexpr uint32_t kDumpBytesPerLine = 32;
constexpr size_t kAtTextOffset = 4;

// One word more than the largest header: for a 4-byte header whose mask asks for a SIM id, the
// parser reads the word after the header, which must exist and read as zero.
constexpr size_t kHeaderWords = (RIL_RESP_HEADER_BUF_SIZE + kWord) / kWord;

const rilproxy_reader_tables_t kExportedTables = {ril_handlers, ril_handlers_tlv, ril_notifys,
                                                  rilproxy_retry_old_request};

// Limits on what the daemon announces. None changes a well-formed exchange; each turns a frame
// that would otherwise over-read or over-allocate into a lost connection:
// - a length above RIL_FRAME_LENGTH_MAX: the payload buffer is length + 1 bytes, so the word
//   alone could ask for 4 GiB;
// - a header_size above RIL_RESP_HEADER_BUF_SIZE: the feature header lands in a fixed buffer;
// - a length that does not cover the words read so far: the remaining count would wrap around
//   and the payload read would run far past its buffer.
namespace {

struct Frame {
    uint32_t length;
    uint32_t header_size;
    int32_t type;
    uint32_t serial_no;
    int32_t result;
    int32_t id;
    uint32_t remaining;
    int ret;  // the last receive's result, as logged
};

}  // namespace

static bool takeFromLength(Frame *f, uint32_t n) {
    ZOK_LOG_AS(kSigCmdRespThread);
    if (f->remaining < n) {
        RLOGE("invalid frame length %u", f->length);
        return false;
    }
    f->remaining -= n;
    return true;
}

static bool recvWord(int fd, Frame *f, void *word) {
    f->ret = _recv_full(fd, static_cast<char *>(word), kWord);
    return f->ret == static_cast<int>(kWord);
}

// Payload of length + 1 zeroed bytes: more than the payload needs, so a text payload (and the
// AT answer's text 4 bytes in) is always NUL-terminated inside the buffer.
static unsigned char *recvPayload(int fd, Frame *f) {
    ZOK_LOG_AS(kSigCmdRespThread);
    unsigned char *payload = static_cast<unsigned char *>(calloc(f->length + 1u, 1));
    if (payload == nullptr) {
        RLOGE("can't get the memory");
        return nullptr;
    }
    f->ret = _recv_full(fd, reinterpret_cast<char *>(payload), static_cast<int>(f->remaining));
    if (f->ret != static_cast<int>(f->remaining)) {
        free(payload);
        RLOGE("socket get data error");
        return nullptr;
    }
    return payload;
}

// A partial last line is deliberately not logged.
static void dumpPayload(const unsigned char *payload, uint32_t size) {
    ZOK_LOG_AS(kSigCmdRespThread);
    char line[1024];
    size_t used = 0;
    line[0] = '\0';
    for (uint32_t i = 0; i < size && i < kDumpBytesMax; i++) {
        snprintf(line + used, sizeof(line) - used, "%02X ", payload[i]);
        used += strlen(line + used);
        if (i % kDumpBytesPerLine == kDumpBytesPerLine - 1) {
            RLOGI("%s", line);
            used = 0;
            line[0] = '\0';
        }
    }
}

template <typename Row>
static bool isReaderEndRow(const Row &row) {
    return row.req_event_id == 0 || row.resp_event_id == 0 || row.ril_request_id == 0 ||
           row.resp == nullptr;
}

template <typename Row>
static bool dispatchToRow(rilproxy_entity_priv_t *ctx, Row *rows, event_ptr_t event,
                          event_id_t event_id, const Frame &f, unsigned char *payload,
                          ril_supported_feature_t *feature) {
    ZOK_LOG_AS(kSigCmdRespThread);
    for (Row *row = rows; row != nullptr && !isReaderEndRow(*row); row++) {
        if (row->req_event_id != event_id) continue;
        if (f.result == ZOKRIL_E_SUCCESS) {
            dumpPayload(payload, f.remaining);
            android::Parcel parcel;
            parcel.setData(payload, f.remaining);
            row->resp(&ctx->task, event, row->resp_event_id, parcel, f.result, feature);
        } else {
            RLOGI("ril resp (%d) error (%d), %p", row->resp_event_id, f.result,
                  reinterpret_cast<void *>(row->err));
            if (row->err != nullptr) row->err(&ctx->task, event, row->resp_event_id, f.result);
        }
        return true;
    }
    return false;
}

static void answerAtCommand(rilproxy_entity_priv_t *ctx, event_ptr_t event, int32_t result,
                            unsigned char *payload) {
    ZOK_LOG_AS(kSigCmdRespThread);
    // The requester's token is the first field of its request record; a record shorter than
    // that (or none) is read as zeros rather than past its end.
    AtCommandRequest request;
    rilproxy_read_payload(event, &request, sizeof(request));
    if (result != ZOKRIL_E_SUCCESS) {
        RLOGE("ril response is un-success (%d)", result);
        rilproxy_send_atcmd_response(&ctx->task, event, request.token, AT_STATUS_RIL_ERROR,
                                     nullptr);
        return;
    }
    char *text = reinterpret_cast<char *>(payload) + kAtTextOffset;
    // Searched before the leading CR/LF is skipped: the error markers begin with CR LF.
    unsigned int status = AT_STATUS_OK;
    if (strstr(text, "\r\nERROR\r\n") != nullptr || strstr(text, "\r\n+CME ERROR:") != nullptr ||
        strstr(text, "\r\n+CMS ERROR:") != nullptr) {
        status = AT_STATUS_AT_ERROR;
    }
    while (*text == '\r' || *text == '\n') text++;
    rilproxy_send_atcmd_response(&ctx->task, event, request.token, status, text);
}

static rilproxy_frame_result readSolicited(rilproxy_entity_priv_t *ctx, int fd, Frame *f,
                                           ril_supported_feature_t *feature,
                                           const rilproxy_reader_tables_t *tables) {
    ZOK_LOG_AS(kSigCmdRespThread);
    if (!takeFromLength(f, kWord)) return RILPROXY_FRAME_FATAL;
    if (!recvWord(fd, f, &f->serial_no)) {
        RLOGE("socket get serial error");
        return RILPROXY_FRAME_FATAL;
    }
    if (!takeFromLength(f, kWord)) return RILPROXY_FRAME_FATAL;
    if (!recvWord(fd, f, &f->result)) {
        RLOGE("socket get result error");
        return RILPROXY_FRAME_FATAL;
    }
    unsigned char *payload = recvPayload(fd, f);
    if (payload == nullptr) return RILPROXY_FRAME_FATAL;

    bool retryFlag = (f->serial_no & RIL_SERIAL_RETRY_FLAG) != 0;
    if (f->result == ZOKRIL_E_SUCCESS && retryFlag) {
        // The TLV result arrives later as a framework event carrying this serial; the parked
        // event waits for that, so nothing is answered or taken out here.
        RLOGI("ignore new ril request with ZOKRIL_E_SUCCESS for serial_no %x\n", f->serial_no);
        free(payload);
        return RILPROXY_FRAME_OK;
    }

    RilproxyEvent owned(rilproxy_take_event_by_serial(ctx, f->serial_no));
    event_ptr_t event = owned.get();
    if (event == nullptr) {
        RLOGI(
            "recv ril resp, length = %d, type = %d, result = %d, serial_no = %x, header_size = "
            "%d, ret= %d, sizeof(header_size) = %d, sim_id = %d",
            static_cast<int>(f->length), f->type, f->result, f->serial_no,
            static_cast<int>(f->header_size), f->ret, static_cast<int>(sizeof(f->header_size)),
            feature->sim_id);
        RLOGE("event_ptr is NULL");
        free(payload);
        return RILPROXY_FRAME_OK;
    }
    event_id_t event_id = event_get_id(event);
    RLOGI(
        "recv ril resp, length = %d, type = %d, result = %d, serial_no = %x, header_size = %d, "
        "ret= %d, sizeof(header_size) = %d, sim_id = %d, event_id = %d",
        static_cast<int>(f->length), f->type, f->result, f->serial_no,
        static_cast<int>(f->header_size), f->ret, static_cast<int>(sizeof(f->header_size)),
        feature->sim_id, event_id);

    if (event_id == EVENT_RILPROXY_ATCMD_REQ) {
        answerAtCommand(ctx, event, f->result, payload);
    } else if (f->result == ZOKRIL_E_REQUEST_NOT_SUPPORTED && retryFlag) {
        RLOGI(
            "rild response as ZOKRIL_E_REQUEST_NOT_SUPPORTED and the retry-flag in serial_no is "
            "1, then need retry old request\n ");
        // From here the retry owns the event: it parks it again or releases it itself.
        if (tables->retry != nullptr && tables->retry(ctx, event) == 0) owned.release();
    } else {
        bool found = retryFlag
                         ? dispatchToRow(ctx, tables->tlv, event, event_id, *f, payload, feature)
                         : dispatchToRow(ctx, tables->plain, event, event_id, *f, payload, feature);
        if (!found) RLOGE("rilproxy_cmd_resp_thread(): an unknown event (%d)", event_id);
    }
    free(payload);
    return RILPROXY_FRAME_OK;
}

static rilproxy_frame_result readUnsolicited(rilproxy_entity_priv_t *ctx, int fd, Frame *f,
                                             ril_supported_feature_t *feature,
                                             const rilproxy_reader_tables_t *tables) {
    ZOK_LOG_AS(kSigCmdRespThread);
    if (!takeFromLength(f, kWord)) return RILPROXY_FRAME_FATAL;
    if (!recvWord(fd, f, &f->id)) {
        RLOGE("socket get id error");
        return RILPROXY_FRAME_FATAL;
    }
    unsigned char *payload = recvPayload(fd, f);
    if (payload == nullptr) return RILPROXY_FRAME_FATAL;

    int capability = rilproxy_get_capability_sim();
    RLOGI(
        "header_size = %d, ret= %d, sizeof(header_size) = %d, resp_data_size = %d, sim_id = %d, "
        "capability_sim = %d",
        static_cast<int>(f->header_size), f->ret, static_cast<int>(sizeof(f->header_size)),
        static_cast<int>(f->remaining), feature->sim_id, capability);
    if (capability == feature->sim_id) {
        for (ril_notify_t *row = tables->notifys;
             row != nullptr && row->id != 0 && row->handler != nullptr; row++) {
            if (row->id != f->id) continue;
            android::Parcel parcel;
            parcel.setData(payload, f->remaining);
            row->handler(&ctx->task, parcel, feature);
            break;
        }
    } else {
        RLOGI("sim_id %d is not capability_sim %d, ignore", feature->sim_id, capability);
    }
    free(payload);
    return RILPROXY_FRAME_OK;
}

static void chooseSocketName(rilproxy_thread_priv_t *record, char *name, size_t size) {
    ZOK_LOG_AS(kSigCmdRespThread);
    // Copied under sock_mutex, which the dispatcher holds while it writes the name. The reader
    // only chooses a name while it has no socket, so the task thread cannot be holding the lock
    // inside a send; the wait is as short as one event.
    char configured[sizeof(record->socket_name) + 1];
    {
        RilproxyMutexHold hold(&record->sock_mutex);
        memcpy(configured, record->socket_name, sizeof(record->socket_name));
    }
    // A name that fills the field without a NUL must not run on past it.
    configured[sizeof(configured) - 1] = '\0';
    if (configured[0] != '\0') {
        snprintf(name, size, "%s", configured);
        RLOGI("RIL Command thread try to connect the rild (%s) by configure", name);
        return;
    }
    property_get(zok_prop_ver < 1 ? "ril.zok.socket" : "vendor.ril.zok.socket", name, "");
    if (name[0] != '\0') {
        RLOGI("RIL Command thread try to connect the rild (%s) by property", name);
        return;
    }
    snprintf(name, size, "%s", "rild-zok");
    RLOGI("RIL Command thread try to connect the rild (%s) by default", name);
}

static int waitPipeAndSocket(rilproxy_thread_priv_t *thread, int fd, int timeoutMs, bool wantWrite);
// What the wait returns when the socket's descriptor is no longer valid (closed by someone else).
constexpr int kSocketLost = -2;

// Returns when the connection must be torn down: false when the descriptor itself is gone.
static bool serveConnection(rilproxy_thread_priv_t *record, int fd) {
    ZOK_LOG_AS(kSigCmdRespThread);
    RilChannel *channel = record->entity->channel;
    for (;;) {
        // A sender marks a failed send with -1; 0 counts as lost too.
        if (record->fd.load(std::memory_order_relaxed) <= 0) return true;
        if (record->enabled.load(std::memory_order_relaxed) == 0) {
            RLOGE("RIL Command thread is disable");
            return true;
        }
        // A daemon that stopped reading leaves a send (the task thread's, holding sock_mutex, or
        // the reader's queued frame) without progress; the reader, still free, ends it here.
        if (channel->writeStalled()) {
            RLOGE("socket send error : no progress for %d ms", channel->sendBoundMs());
            return true;
        }
        // Frames the reader queued (re-sent requests) go out between reads, never blocking: the
        // reader must keep reading whatever the socket's other direction does.
        int idleMs = channel->waitBoundMs(kConnectedTimeout * 1000);
        int woke = 0;
        switch (channel->flush(fd)) {
            case RILPROXY_OUTBOX_LOST:
                record->fd.store(-1, std::memory_order_relaxed);
                return true;
            case RILPROXY_OUTBOX_WAITS_FOR_SOCKET:
                woke = waitPipeAndSocket(record, fd, idleMs, true);
                break;
            case RILPROXY_OUTBOX_WAITS_FOR_TOKEN:
                // The task thread's pipe byte wakes this wait when it frees the socket; the
                // shorter time-out is only a backstop.
                woke = waitPipeAndSocket(record, fd, channel->waitBoundMs(kWaitingTimeout * 1000),
                                         false);
                break;
            case RILPROXY_OUTBOX_EMPTY:
                woke = waitPipeAndSocket(record, fd, idleMs, false);
                break;
        }
        if (woke == kSocketLost) return false;
        if (woke != 1) continue;
        if (rilproxy_read_one_frame(record->entity, fd) == RILPROXY_FRAME_FATAL) return true;
    }
}

// The order matters: the framework hears "closed" before the waiting events are released, and
// the IMS daemons are stopped before the process ends so that init restarts them together.
static void tearDown(rilproxy_thread_priv_t *record, int fd, bool stillOurs) {
    ZOK_LOG_AS(kSigCmdRespThread);
    rilproxy_entity_priv_t *entity = record->entity;
    // sock_mutex may be held by a task thread that sits in a send to a daemon that has stopped
    // reading, or that waits for the rest of a frame the reader left half written. Dropping the
    // reader's queue and shutting the socket down first ends both waits at once (the send fails
    // with EPIPE), so the lock below comes free. The descriptor number stays taken until the
    // close, so no other descriptor can be mistaken for it meanwhile.
    entity->channel->dropOutbox();
    if (stillOurs) shutdown(fd, SHUT_RDWR);
    {
        RilproxyMutexHold hold(&entity->channel->mRecord->sock_mutex);
        entity->channel->closeSocket(stillOurs);
        RLOGI("RIL Command socket (%d) is closed", fd);
    }
    rilproxy_send_bcast_state_notify(&entity->task, RILPROXY_STATE_CLOSED);
    rilproxy_free_all_event(entity);
    RLOGI("kill volte process before restart ZOK");
    if (zok_prop_ver < 1) {
        property_set("ctl.stop", "vcd_bridge");
        property_set("ctl.stop", "vcd_agent");
        property_set("ctl.stop", "vcd_engine");
    } else {
        property_set("ctl.stop", "vendor.vcd_bridge");
        property_set("ctl.stop", "vendor.vcd_agent");
        property_set("ctl.stop", "vendor.vcd_engine");
    }
    RLOGI("ZOK will be re-started: exit");
#ifdef ZOK_COVERAGE
    __gcov_dump();  // the raw exit skips the flush at exit; tests of the teardown count too
#endif
    // The raw call ends every thread at once: no atexit handler or destructor runs while the
    // task thread may still be inside the entity.
    syscall(SYS_exit_group, 0);
    RLOGI("ZOK will be re-started: exit done");
}

// The wait itself; with `wantWrite` also for POLLOUT on `fd`, and then 2 means the socket takes
// bytes again (readable still wins, as 1). Its lines are the pipe wait's.
static int waitPipeAndSocket(rilproxy_thread_priv_t *thread, int fd, int timeoutMs,
                             bool wantWrite) {
    ZOK_LOG_AS(kSigCheckThreadPipe);
    // poll rather than select: a framework process may hold far more than FD_SETSIZE (1024)
    // descriptors, and the reader must still hear its pipe and socket when theirs are higher.
    struct pollfd fds[2];
    memset(fds, 0, sizeof(fds));
    fds[0].fd = thread->pipe_fd[0];
    fds[0].events = POLLIN;
    nfds_t count = 1;
    if (fd >= 1) {
        fds[1].fd = fd;
        fds[1].events = static_cast<short>(POLLIN | (wantWrite ? POLLOUT : 0));
        count = 2;
    }
    int n = poll(fds, count, timeoutMs);
    int err = n < 0 ? errno : 0;
    // poll flags a closed descriptor per entry where select failed the whole call with EBADF;
    // it is reported the same way, before anything else is looked at.
    if (n > 0 && ((fds[0].revents | fds[1].revents) & POLLNVAL) != 0) err = EBADF;
    if (err != 0) {
        // The text names select on purpose: log readers grep for it.
        if (err != EINTR) RLOGE("select error, errno = %d (%s)", err, strerror(err));
        // The socket's number closed under the reader (by another part of the process) is a lost
        // connection: waiting on it again would only spin.
        if (count == 2 && (fds[1].revents & POLLNVAL) != 0) return kSocketLost;
        return -1;
    }
    if (n == 0) return -1;
    // The pipe wins: a changed enabled flag or name is seen before the next frame is read.
    if ((fds[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        char drain[kPipeDrainSize];
        memset(drain, 0, sizeof(drain));
        if (read(fds[0].fd, drain, sizeof(drain)) < 0) {
            // Nothing to do: the bytes only wake the thread.
        }
        return 0;
    }
    // A hang-up or error on the socket counts as readable: the next receive then sees the loss
    // and the thread tears down, as select reported it.
    if (count == 2 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) return 1;
    if (count == 2 && (fds[1].revents & POLLOUT) != 0) return 2;
    return -1;
}

int rilproxy_check_thread_pipe(rilproxy_thread_priv_t *thread, int fd, int timeout) {
    int woke = waitPipeAndSocket(thread, fd, timeout * 1000, false);
    return woke == kSocketLost ? -1 : woke;
}

rilproxy_frame_result rilproxy_read_one_frame_with(rilproxy_entity_priv_t *ctx, int fd,
                                                   const rilproxy_reader_tables_t *tables) {
    ZOK_LOG_AS(kSigCmdRespThread);
    uint32_t header[kHeaderWords];
    memset(header, 0, sizeof(header));
    Frame f;
    memset(&f, 0, sizeof(f));
    ril_supported_feature_t feature;
    memset(&feature, 0, sizeof(feature));

    uint32_t word = 0;
    if (!recvWord(fd, &f, &word)) {
        RLOGE("socket get length error");
        return RILPROXY_FRAME_FATAL;
    }
    f.length = ntohl(word);
    f.remaining = f.length;
    if (f.length > RIL_FRAME_LENGTH_MAX) {
        RLOGE("invalid frame length %u", f.length);
        return RILPROXY_FRAME_FATAL;
    }

    if (!takeFromLength(&f, kWord)) return RILPROXY_FRAME_FATAL;
    if (!recvWord(fd, &f, &f.header_size)) {
        RLOGE("socket get type error");
        return RILPROXY_FRAME_FATAL;
    }
    if (f.header_size != 0) {
        if (f.header_size > RIL_RESP_HEADER_BUF_SIZE) {
            RLOGE("invalid header size %u", f.header_size);
            return RILPROXY_FRAME_FATAL;
        }
        if (!takeFromLength(&f, f.header_size)) return RILPROXY_FRAME_FATAL;
        // A short read is not checked here: the type word after it then fails.
        f.ret = _recv_full(fd, reinterpret_cast<char *>(header), static_cast<int>(f.header_size));
        rilproxy_parse_resp_header(header, f.header_size, &feature);
    }

    if (!takeFromLength(&f, kWord)) return RILPROXY_FRAME_FATAL;
    if (!recvWord(fd, &f, &f.type)) {
        RLOGE("socket get type error");
        return RILPROXY_FRAME_FATAL;
    }
    switch (f.type) {
        case RIL_RESP_TYPE_SOLICITED:
            return readSolicited(ctx, fd, &f, &feature, tables);
        case RIL_RESP_TYPE_UNSOLICITED:
            return readUnsolicited(ctx, fd, &f, &feature, tables);
        default:
            RLOGE("rilproxy_cmd_resp_thread(): an unknown type (%d)", f.type);
            return RILPROXY_FRAME_FATAL;
    }
}

rilproxy_frame_result rilproxy_read_one_frame(rilproxy_entity_priv_t *ctx, int fd) {
    return rilproxy_read_one_frame_with(ctx, fd, &kExportedTables);
}

void *rilproxy_cmd_resp_thread(void *arg) {
    ZOK_LOG_SELF(kSigCmdRespThread);
    rilproxy_thread_priv_t *record = static_cast<rilproxy_thread_priv_t *>(arg);
    rilproxy_entity_priv_t *entity = record->entity;
    // The reader uses the channel for the rest of the process, also after the entity's exit has
    // freed the context; this reference keeps it reachable (and leak checkers quiet).
    RilChannel *const channel = entity->channel;
    // Zeroed once, not per attempt: a name that fails is overwritten by the next choice.
    char name[kNameSize];
    memset(name, 0, sizeof(name));

    vopa_wait_all_entity_init();
    for (;;) {
        rilproxy_check_thread_pipe(record, -1, kWaitingTimeout);
        if (record->enabled.load(std::memory_order_relaxed) == 0) {
            RLOGI("RIL Command thread is disable");
            continue;
        }
        chooseSocketName(record, name, sizeof(name));
        int fd = socket_local_client(name, ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM);
        if (fd < 0) {
            RLOGE("can't open socket : %s (%s)", name, strerror(errno));
            continue;
        }
        {
            RilproxyMutexHold hold(&channel->mRecord->sock_mutex);
            channel->adoptSocket(fd);
            RLOGI("RIL Command socket connect success, fd = %d", fd);
        }
        rilproxy_send_data_notification_request(&entity->task);
        rilproxy_send_bcast_state_notify(&entity->task, RILPROXY_STATE_CONNECTED);
        bool stillOurs = serveConnection(record, fd);
        tearDown(record, fd, stillOurs);
    }
    return nullptr;
}
