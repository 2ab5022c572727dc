// The request frame sender, the reader's outbox, the whole-buffer socket loops and the response
// feature-header parser. The task thread sends while it holds sock_mutex; a frame sent while the
// reader handles a frame (the re-sent TLV request) is queued and written by the reader without
// blocking (see frame.cpp); only the reader receives.
#ifndef ZOK_TRANSPORT_FRAME_H
#define ZOK_TRANSPORT_FRAME_H

#include <stdint.h>

#include "rilproxy.h"

// 0 when the 20-byte header and the whole payload went out, -1 header short, -2 payload short.
// Writes the capability SIM computed now, not param->sim_id. Inside a RilproxyReaderSendScope,
// 0 means queued (and written as far as the socket takes it now).
int rilproxy_send_ril_request(int fd, rilproxy_ril_requset_param_t *param);

// Marks the calling thread as the reader handling a frame for the scope's life: its sends go to
// the outbox. `wakeFd` (the reader's control pipe, non-blocking write end) is written when a
// sender frees the socket while frames wait.
class RilproxyReaderSendScope {
public:
    explicit RilproxyReaderSendScope(int wakeFd);
    ~RilproxyReaderSendScope();
    RilproxyReaderSendScope(const RilproxyReaderSendScope &) = delete;
    RilproxyReaderSendScope &operator=(const RilproxyReaderSendScope &) = delete;

private:
    bool mOuter;
};

enum rilproxy_outbox_state {
    RILPROXY_OUTBOX_EMPTY = 0,             // everything written
    RILPROXY_OUTBOX_WAITS_FOR_TOKEN = 1,   // the task thread is writing a frame
    RILPROXY_OUTBOX_WAITS_FOR_SOCKET = 2,  // the socket is full: wait for POLLOUT
    RILPROXY_OUTBOX_LOST = -1,             // the socket failed; the queue is dropped
};
// Reader thread only: writes what the outbox holds, never blocking.
rilproxy_outbox_state rilproxy_flush_reader_outbox(int fd);
// Reader thread only, at teardown: forgets what waits and gives the socket back to other senders.
void rilproxy_drop_reader_outbox();
// `len` on success, -1 on a socket error, the bytes moved so far when the peer closed.
int _send_full(int fd, char *buf, int len);
int _recv_full(int fd, char *buf, int len);
// Reads at most `headerSize` bytes of `header` plus, for a 4-byte header whose first mask asks
// for a SIM id, the word after it (the caller's buffer must hold that word, zeroed).
void rilproxy_parse_resp_header(const uint32_t *header, uint32_t headerSize,
                                ril_supported_feature_t *out);

#endif  // ZOK_TRANSPORT_FRAME_H
