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

// Where a frame is handed: the two handler tables (chosen by the serial's retry flag), the
// unsolicited handlers, and the re-send of a TLV request the daemon does not support. The
// exported tables with rilproxy_retry_old_request are the entity's own; a caller that substitutes
// rows also substitutes the retry, which otherwise re-sends through the exported plain table.
typedef struct {
    ril_handler_t *plain;
    ril_handler_tlv_t *tlv;
    ril_notify_t *notifys;
    int (*retry)(rilproxy_entity_priv_t *ctx, event_ptr_t event);
} rilproxy_reader_tables_t;

// Reads and handles one frame from `fd`. FATAL means the connection must be torn down.
rilproxy_frame_result rilproxy_read_one_frame(rilproxy_entity_priv_t *ctx, int fd);
// The same over `tables`; a null table is an empty one.
rilproxy_frame_result rilproxy_read_one_frame_with(rilproxy_entity_priv_t *ctx, int fd,
                                                   const rilproxy_reader_tables_t *tables);

#endif  // ZOK_TRANSPORT_READER_H
