// The command/response reader thread: connects to the RIL daemon, reads frames, hands them to the
// handler tables and notification handlers, and tears the process down when the connection is
// lost. Runs on the entity's own reader thread.
#ifndef ZOK_TRANSPORT_READER_H
#define ZOK_TRANSPORT_READER_H

#include "rilproxy.h"

// `arg` is &ctx->cmd_thread. Never returns.
void *rilproxy_cmd_resp_thread(void *arg);
// Waits up to `timeout` s for the control pipe and, when fd >= 1, for `fd`. 0: pipe byte (drained),
// 1: fd readable, -1: time-out or error.
int rilproxy_check_thread_pipe(rilproxy_thread_priv_t *thread, int fd, int timeout);

enum rilproxy_frame_result {
    RILPROXY_FRAME_OK = 0,
    RILPROXY_FRAME_FATAL = -1,
};

// Reads and handles one frame from `fd`. FATAL means the connection must be torn down.
rilproxy_frame_result rilproxy_read_one_frame(rilproxy_entity_priv_t *ctx, int fd);

#endif  // ZOK_TRANSPORT_READER_H
