// The request frame sender, the whole-buffer socket loops and the response feature-header parser.
// No locks, no state; the task thread sends while it holds sock_mutex, the reader's retry sends
// without it, and only the reader receives.
#ifndef ZOK_TRANSPORT_FRAME_H
#define ZOK_TRANSPORT_FRAME_H

#include <stdint.h>

#include "rilproxy.h"

// 0 when the 20-byte header and the whole payload went out, -1 header short, -2 payload short.
// Writes the capability SIM computed now, not param->sim_id. Changes no state.
int rilproxy_send_ril_request(int fd, rilproxy_ril_requset_param_t *param);
// `len` on success, -1 on a socket error, the bytes moved so far when the peer closed.
int _send_full(int fd, char *buf, int len);
int _recv_full(int fd, char *buf, int len);
// Reads at most `headerSize` bytes of `header` plus, for a 4-byte header whose first mask asks
// for a SIM id, the word after it (the caller's buffer must hold that word, zeroed).
void rilproxy_parse_resp_header(const uint32_t *header, uint32_t headerSize,
                                ril_supported_feature_t *out);

#endif  // ZOK_TRANSPORT_FRAME_H
