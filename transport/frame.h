// The RIL socket frame: the request header and its send, the whole-buffer socket loops and the
// response feature-header parser. Which thread may send when is the channel's (ril_channel.h);
// only the reader receives.
#ifndef ZOK_TRANSPORT_FRAME_H
#define ZOK_TRANSPORT_FRAME_H

#include <stdint.h>

#include <atomic>

#include "rilproxy.h"

// 0 when the 20-byte header and the whole payload went out, -1 header short, -2 payload short.
// Writes the capability SIM computed now, not param->sim_id. Blocking, and takes no write token:
// the entity's own senders go through their channel, which holds it around this.
int rilproxy_send_ril_request(int fd, rilproxy_ril_requset_param_t *param);

// The 20-byte request header for `param`, logged as the request's send line.
void rilproxy_build_request_header(int fd, const rilproxy_ril_requset_param_t *param,
                                   uint32_t (&header)[RIL_REQ_HEADER_SIZE / 4]);
// The blocking send of a built frame, results as rilproxy_send_ril_request. The payload goes in
// steps; `moved`, when given, gets the time of each step that went out (the stall watch).
int rilproxy_write_frame(int fd, const uint32_t (&header)[RIL_REQ_HEADER_SIZE / 4],
                         const uint8_t *data, size_t size, std::atomic<int64_t> *moved);

// `len` on success, -1 on a socket error, the bytes moved so far when the peer closed.
int _send_full(int fd, char *buf, int len);
int _recv_full(int fd, char *buf, int len);
// Reads at most `headerSize` bytes of `header` plus, for a 4-byte header whose first mask asks
// for a SIM id, the word after it (the caller's buffer must hold that word, zeroed).
void rilproxy_parse_resp_header(const uint32_t *header, uint32_t headerSize,
                                ril_supported_feature_t *out);

#endif  // ZOK_TRANSPORT_FRAME_H
