// The RIL socket frame: the request header and its blocking send, the whole-buffer send and
// receive loops and the response feature-header parser. Task thread (sends through its channel,
// under sock_mutex) and reader thread (receives).
#include "transport/frame.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/capability_sim.h"
#include "core/log.h"
#include "transport/ril_channel.h"

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

// The payload goes out in steps of this size so that a blocked send shows its progress: a daemon
// that reads, however slowly, moves a step well inside the stall bound.
constexpr size_t kSendStep = 8192;

void rilproxy_build_request_header(int fd, const rilproxy_ril_requset_param_t *param,
                                   uint32_t (&header)[RIL_REQ_HEADER_SIZE / 4]) {
    ZOK_LOG_AS(kSigSendRilRequest);
    size_t data_size = param->parcel.dataSize();
    uint32_t send_size = static_cast<uint32_t>(data_size) + RIL_REQ_HEADER_WORDS_AFTER_LENGTH;
    // The daemon filters by the SIM it serves now, so the SIM is read at send time, not taken
    // from param->sim_id, which was filled when the request was built.
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
}

int rilproxy_write_frame(int fd, const uint32_t (&header)[RIL_REQ_HEADER_SIZE / 4],
                         const uint8_t *data, size_t size, std::atomic<int64_t> *moved) {
    ZOK_LOG_AS(kSigSendRilRequest);
    // The header's send may already block: a daemon that stopped reading long ago.
    if (moved != nullptr) moved->store(rilproxy_now_ms(), std::memory_order_relaxed);
    if (_send_full(fd, reinterpret_cast<char *>(const_cast<uint32_t *>(header)),
                   RIL_REQ_HEADER_SIZE) != RIL_REQ_HEADER_SIZE) {
        RLOGE("send header error");
        return -1;
    }
    if (data == nullptr) return 0;
    // Straight from the Parcel's buffer: the payload is never copied.
    for (size_t at = 0; at < size;) {
        if (moved != nullptr && at != 0) moved->store(rilproxy_now_ms(), std::memory_order_relaxed);
        int step = static_cast<int>(size - at < kSendStep ? size - at : kSendStep);
        if (_send_full(fd, reinterpret_cast<char *>(const_cast<uint8_t *>(data + at)), step) !=
            step) {
            RLOGE("send data error");
            return -2;
        }
        at += static_cast<size_t>(step);
    }
    return 0;
}

int rilproxy_send_ril_request(int fd, rilproxy_ril_requset_param_t *param) {
    ZOK_LOG_SELF(kSigSendRilRequest);
    uint32_t header[RIL_REQ_HEADER_SIZE / 4];
    rilproxy_build_request_header(fd, param, header);
    return rilproxy_write_frame(fd, header, param->parcel.data(), param->parcel.dataSize(),
                                nullptr);
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
