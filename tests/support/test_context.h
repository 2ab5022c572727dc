// A private context built by hand the way the entity's init builds it, around a socketpair that
// stands in for the RIL socket; optionally registered as task 202 running rilproxy_task_hdl.
//
//     TestContext t(/*with_task=*/true);
//     vopa_host::post(TASK_ID_RILPROXY, EVENT_RILPROXY_DISCONNECT, nullptr, 0, 7);
//     vopa_host::wait_task_idle(TASK_ID_RILPROXY, 2000);
//     EXPECT_EQ(t.received(), "...");  // what the daemon end got
#ifndef ZOK_TESTS_TEST_CONTEXT_H
#define ZOK_TESTS_TEST_CONTEXT_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core/dispatcher.h"
#include "core/event_pool.h"
#include "core/framework_calls.h"
#include "rilproxy.h"
#include "support/bytes.h"
#include "transport/frame.h"
#include "transport/ril_channel.h"

struct TestContext {
    rilproxy_entity_priv_t *ctx;
    int peer = -1;  // the daemon's end
    int own = -1;   // the entity's end, also after a failed send has set fd to -1
    bool with_task;

    explicit TestContext(bool task = false) : with_task(task) {
        ctx = static_cast<rilproxy_entity_priv_t *>(calloc(1, sizeof(*ctx)));
        vopa_mutex_init(&ctx->event_pool_mutex);
        vopa_mutex_init(&ctx->cmd_thread.sock_mutex);
        {
            RilproxyMutexHold hold(&ctx->event_pool_mutex);
            ctx->serial_seq = 1;
        }
        ctx->cmd_thread.entity = ctx->urc_thread.entity = ctx;
        ctx->channel = new RilChannel(&ctx->cmd_thread);
        int sv[2];
        // Out of descriptors: no test could mean anything after this.
        if (pipe2(ctx->cmd_thread.pipe_fd, O_NONBLOCK) != 0 ||
            pipe2(ctx->urc_thread.pipe_fd, O_NONBLOCK) != 0 ||
            socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
            abort();
        }
        ctx->channel->adoptPipe(ctx->cmd_thread.pipe_fd[0], ctx->cmd_thread.pipe_fd[1]);
        {
            RilproxyMutexHold hold(&ctx->channel->mRecord->sock_mutex);
            ctx->channel->adoptSocket(own = sv[0]);
        }
        peer = sv[1];
        if (with_task) {
            vopa_task_init(&ctx->task, ENTITY_ID_RILPROXY, TASK_ID_RILPROXY);
            ctx->task.set_handler(&ctx->task, rilproxy_task_hdl, ctx, 0);
        }
    }
    ~TestContext() {
        if (with_task) vopa_task_exit(&ctx->task);
        rilproxy_free_all_event(ctx);
        delete ctx->channel;  // the socket and the command pipe with it
        for (int fd : {ctx->urc_thread.pipe_fd[0], ctx->urc_thread.pipe_fd[1], peer}) close(fd);
        free(ctx);
    }
    // The pool as the tracker sees it, read and written under its mutex.
    event_ptr_t slot(int i) {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        return ctx->event_pool[i];
    }
    void park(int i, event_ptr_t event) {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        ctx->event_pool[i] = event;
    }
    // Everything the daemon end holds so far, in hex.
    std::string received() {
        std::vector<uint8_t> all(8192);
        ssize_t n = recv(peer, all.data(), all.size(), MSG_DONTWAIT);
        all.resize(n > 0 ? n : 0);
        return hex(all);
    }
    // Marks the connection lost the way a failed send finds it: the daemon has gone away.
    void dropDaemon() { shutdown(peer, SHUT_RD); }
};

#endif  // ZOK_TESTS_TEST_CONTEXT_H
