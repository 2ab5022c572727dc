// The RIL socket frame: the request sender, the reader's outbox, the whole-buffer send and receive
// loops and the response feature-header parser. Task thread (sends under sock_mutex) and reader
// thread (sends through the outbox, never blocking).
#include "transport/frame.h"

#include <arpa/inet.h>
#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>

#include "core/capability_sim.h"
#include "core/log.h"

int _send_full(int fd, char *buf, int len) {
    ZOK_LOG_SELF(kSigSendFull);
    int offset = 0;
    while (offset < len) {
        // MSG_NOSIGNAL: a peer that has gone away must come back as EPIPE, not kill the process.
        ssize_t n = send(fd, buf + offset, static_cast<size_t>(len - offset), MSG_NOSIGNAL);
        if (n > 0) {
            offset += static_cast<int>(n);
            continue;
        }
        if (n == 0) {
            RLOGE("socket closed");
            return offset;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN) {
            usleep(1000);
            continue;
        }
        // The send side shares the receive side's text on purpose: log readers grep for one.
        RLOGE("socket recv error : %s", strerror(errno));
        return -1;
    }
    return len;
}

int _recv_full(int fd, char *buf, int len) {
    ZOK_LOG_SELF(kSigRecvFull);
    int offset = 0;
    while (offset < len) {
        ssize_t n = recv(fd, buf + offset, static_cast<size_t>(len - offset), 0);
        if (n > 0) {
            offset += static_cast<int>(n);
            continue;
        }
        if (n == 0) {
            RLOGE("socket closed");
            return offset;
        }
        // The socket is blocking, so EAGAIN is a real error here, unlike on the send side.
        if (errno == EINTR) continue;
        RLOGE("socket recv error : %s", strerror(errno));
        return -1;
    }
    return len;
}

namespace {

// Why the reader never sends on the socket itself: the task thread holds sock_mutex for a whole
// event and may sit in a blocking send while the daemon is not reading. A daemon commonly stops
// reading while its own write to the entity is stuck, and that write only moves when the reader
// reads. A reader that waited for the task thread's send (or blocked in a send of its own) would
// close the circle and both threads would wait forever. So frames produced while the reader
// handles a frame (the plain re-send of a refused TLV request) are queued here, and the reader
// writes them without blocking between its reads, waiting for POLLOUT alongside POLLIN.
//
// `token` makes each frame whole on the socket: a sender holds it from a frame's first byte to
// its last. The task thread takes it blocking; the reader only tries, and keeps it across its
// waits while a frame of its own is half written (the task thread then waits for the reader,
// which keeps reading, never the other way round). One per process, as the RIL socket is; all of
// it is trivially destructible, so nothing is torn down under a thread at process exit.
struct ReaderOutbox {
    pthread_mutex_t token;
    pthread_mutex_t gate;       // orders the reader's try for the token against its release; brief
    std::atomic<bool> pending;  // bytes queued; read by the task thread to wake the reader
    std::atomic<int> wakeFd;    // the reader's control pipe, written when the token comes free
    // The rest belongs to the reader thread alone.
    bool holdsToken;
    unsigned char *bytes;
    size_t size;
    size_t capacity;
    size_t sent;
};

ReaderOutbox gOutbox = {
    PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, {false}, {-1}, false, nullptr, 0, 0, 0};
thread_local bool tHandlingFrame = false;

bool appendToOutbox(const void *data, size_t size) {
    if (gOutbox.size + size > gOutbox.capacity) {
        size_t capacity = gOutbox.capacity * 2 + size;
        void *grown = realloc(gOutbox.bytes, capacity);
        if (grown == nullptr) return false;
        gOutbox.bytes = static_cast<unsigned char *>(grown);
        gOutbox.capacity = capacity;
    }
    memcpy(gOutbox.bytes + gOutbox.size, data, size);
    gOutbox.size += size;
    return true;
}

void releaseOutbox() {
    gOutbox.size = 0;
    gOutbox.sent = 0;
    gOutbox.pending.store(false);
    if (gOutbox.holdsToken) {
        gOutbox.holdsToken = false;
        pthread_mutex_unlock(&gOutbox.token);
    }
}

}  // namespace

RilproxyReaderSendScope::RilproxyReaderSendScope(int wakeFd) : mOuter(tHandlingFrame) {
    tHandlingFrame = true;
    gOutbox.wakeFd.store(wakeFd);
}

RilproxyReaderSendScope::~RilproxyReaderSendScope() {
    tHandlingFrame = mOuter;
}

void rilproxy_drop_reader_outbox() {
    releaseOutbox();
}

rilproxy_outbox_state rilproxy_flush_reader_outbox(int fd) {
    // The reader's half of a frame's send: its lines are the whole-buffer send's.
    ZOK_LOG_AS(kSigSendFull);
    if (gOutbox.size == 0) return RILPROXY_OUTBOX_EMPTY;
    if (!gOutbox.holdsToken) {
        // Tried under the gate, which the task thread also holds while it frees the token and
        // looks for queued frames: either this try comes after that and succeeds, or the task
        // thread's look comes after it and sees "pending". No wake-up is lost.
        pthread_mutex_lock(&gOutbox.gate);
        bool taken = pthread_mutex_trylock(&gOutbox.token) == 0;
        pthread_mutex_unlock(&gOutbox.gate);
        if (!taken) return RILPROXY_OUTBOX_WAITS_FOR_TOKEN;
        gOutbox.holdsToken = true;
    }
    while (gOutbox.sent < gOutbox.size) {
        ssize_t n = send(fd, gOutbox.bytes + gOutbox.sent, gOutbox.size - gOutbox.sent,
                         MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            gOutbox.sent += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return RILPROXY_OUTBOX_WAITS_FOR_SOCKET;
        }
        if (n == 0) {
            RLOGE("socket closed");
        } else {
            RLOGE("socket recv error : %s", strerror(errno));
        }
        releaseOutbox();
        return RILPROXY_OUTBOX_LOST;
    }
    releaseOutbox();
    return RILPROXY_OUTBOX_EMPTY;
}

int rilproxy_send_ril_request(int fd, rilproxy_ril_requset_param_t *param) {
    ZOK_LOG_SELF(kSigSendRilRequest);
    const uint8_t *data = param->parcel.data();
    size_t data_size = param->parcel.dataSize();
    uint32_t send_size = static_cast<uint32_t>(data_size) + RIL_REQ_HEADER_WORDS_AFTER_LENGTH;

    // The daemon filters by the SIM it serves now, so the SIM is read at send time, not taken
    // from param->sim_id, which was filled when the request was built.
    uint32_t header[RIL_REQ_HEADER_SIZE / 4];
    header[0] = htonl(send_size);
    header[1] = RIL_REQ_FEATURE_HEADER_SIZE;
    header[2] = static_cast<uint32_t>(rilproxy_get_capability_sim());
    header[3] = static_cast<uint32_t>(param->request_id);
    header[4] = param->serial_no;

    RLOGI(
        "send ril request, header_size = %d, sim_id = %d, request_id = %d, serial_no = %x, length "
        "= %x, send_size = %d(%x), fd = %d",
        static_cast<int>(header[1]), static_cast<int>(header[2]), static_cast<int>(header[3]),
        header[4], header[0], static_cast<int>(send_size), send_size, fd);

    if (tHandlingFrame) {
        // The reader's frame: queued whole, then as much of it written as fits right now.
        if (!appendToOutbox(header, RIL_REQ_HEADER_SIZE) ||
            (data != nullptr && data_size != 0 && !appendToOutbox(data, data_size))) {
            RLOGE("send data error");
            releaseOutbox();
            return -2;
        }
        gOutbox.pending.store(true);
        return rilproxy_flush_reader_outbox(fd) == RILPROXY_OUTBOX_LOST ? -2 : 0;
    }

    int result = 0;
    pthread_mutex_lock(&gOutbox.token);
    if (_send_full(fd, reinterpret_cast<char *>(header), RIL_REQ_HEADER_SIZE) !=
        RIL_REQ_HEADER_SIZE) {
        RLOGE("send header error");
        result = -1;
    } else if (data != nullptr && data_size != 0) {
        // Straight from the Parcel's buffer: the payload is never copied.
        int sent = _send_full(fd, reinterpret_cast<char *>(const_cast<uint8_t *>(data)),
                              static_cast<int>(data_size));
        if (sent != static_cast<int>(data_size)) {
            RLOGE("send data error");
            result = -2;
        }
    }
    // The reader may have found the token taken while it queued a frame; it waits for this byte
    // (its pipe's write end never blocks).
    pthread_mutex_lock(&gOutbox.gate);
    pthread_mutex_unlock(&gOutbox.token);
    bool wake = gOutbox.pending.load();
    pthread_mutex_unlock(&gOutbox.gate);
    if (wake) {
        int wakeFd = gOutbox.wakeFd.load();
        if (wakeFd >= 0 && write(wakeFd, " ", 1) < 0) {
            // A full pipe already holds a wake-up.
        }
    }
    return result;
}

namespace {

// The header word at `index`, reading only the `limit` bytes the caller vouches for; bytes past
// the limit count as zero, which is what the reader's zeroed header buffer holds there.
uint32_t headerWord(const uint32_t *header, uint32_t index, uint32_t limit) {
    uint32_t word = 0;
    uint64_t start = static_cast<uint64_t>(index) * 4;
    if (start >= limit) return 0;
    uint64_t avail = limit - start;
    memcpy(&word, reinterpret_cast<const unsigned char *>(header) + start, avail < 4 ? avail : 4);
    return word;
}

}  // namespace

void rilproxy_parse_resp_header(const uint32_t *header, uint32_t headerSize,
                                ril_supported_feature_t *out) {
    // Guard: the loop below is written as the daemon's framing expects (the first word is never
    // subtracted from `left`), which walks one word past the header. A 4-byte header may do so by
    // contract: the caller's zeroed buffer holds that word. For any other size the parser reads
    // nothing beyond headerSize and treats missing bytes as zero, so a short or odd-sized header
    // yields what the zeroed buffer would. Mask words past the eighth are followed (only the
    // chain bit matters) but not stored, so a long chain cannot overrun the slots.
    const uint32_t limit = headerSize == 4 ? 8 : headerSize;
    uint32_t masks[RIL_RESP_MASK_SLOTS];
    uint32_t count = 1;
    masks[0] = headerWord(header, 0, limit);
    uint32_t current = masks[0];
    uint32_t cursor = 1;
    uint32_t left = headerSize;

    while (left >= 4 && (current & RIL_FEATURE_MASK_MORE) != 0) {
        current = headerWord(header, cursor, limit);
        if (count < RIL_RESP_MASK_SLOTS) masks[count] = current;
        count++;
        cursor++;
        left -= 4;
    }
    if (left >= 4 && (masks[0] & RIL_FEATURE_MASK_SIM_ID) != 0) {
        out->sim_id = static_cast<int32_t>(headerWord(header, cursor, limit));
    }
}
