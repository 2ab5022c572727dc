// The entity's entry points and private context: init builds the context, starts the reader
// thread and registers the task; exit ends the task. Runs on the framework's loading thread.
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "core/dispatcher.h"
#include "core/framework_calls.h"
#include "core/log.h"
#include "rilproxy_entity.h"
#include "transport/reader.h"
#include "transport/ril_channel.h"

// Bound to ProcessState::initWithDriver by its mangled name and imported weakly, so that the
// entity also loads where the platform's binder library lacks it (the address is then null).
extern android::sp<android::ProcessState> rilproxy_weak_init_with_driver(
    const char *driver) __asm__("_ZN7android12ProcessState14initWithDriverEPKc")
    __attribute__((weak));

namespace {

const event_id_t kSubscribedEvents[] = {
    EVENT_RILPROXY_CONNECT, EVENT_RILPROXY_DISCONNECT,  EVENT_RESP_DATA_CALL_INFO,
    EVENT_RESP_PCSCF_PCO,   EVENT_RESP_LAST_FAIL_CAUSE,
};

// Wake-up writes never block. The dispatcher writes one byte per connect or disconnect while it
// holds sock_mutex, and nothing ever reads the URC channel's pipe: with a blocking write end the
// 65537th event would stop the task thread for good, and with it the reader's teardown. A full
// pipe already holds a wake-up, so a write refused with EAGAIN loses nothing. Both channels are
// treated alike, so the command pipe cannot stall the task thread behind a busy reader either.
bool makeWakeEndNonBlocking(int fd) {
    int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace

extern "C" entity_ptr_t rilproxy_entity_init(entity_ptr_t entity, const entity_init_arg_ptr_t) {
    ZOK_LOG_SELF(kSigEntityInit);
    const char *failure = nullptr;
    rilproxy_entity_priv_t *ctx = nullptr;

    RLOGI("before call initWithDriver\n");
    void *init_fp = reinterpret_cast<void *>(&rilproxy_weak_init_with_driver);
    RLOGI("init_fp = %p", init_fp);
    if (init_fp != nullptr) {
        // The strong pointer is released at once: the process state lives on in the platform.
        rilproxy_weak_init_with_driver("/dev/vndbinder");
        RLOGI("after call initWithDriver");
    }

    if (entity != nullptr) entity->id = ENTITY_ID_RILPROXY;

    // Zero-filled, so the URC channel's fd stays 0 and its mutex stays uninitialised (it is
    // never served). Plain calloc: the atomics in the channel records are valid when zeroed.
    ctx = static_cast<rilproxy_entity_priv_t *>(calloc(1, sizeof(*ctx)));
    if (ctx == nullptr) {
        failure = "can't allocate the memory";
        goto fail;
    }
    if (entity != nullptr) entity->priv = ctx;
    ctx->channel = new (std::nothrow) RilChannel(&ctx->cmd_thread);
    if (ctx->channel == nullptr) {
        failure = "can't allocate the memory";
        goto fail;
    }

    vopa_mutex_init(&ctx->event_pool_mutex);
    {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        ctx->serial_seq = 1;
    }
    ctx->cmd_thread.entity = ctx;
    ctx->urc_thread.entity = ctx;
    ctx->cmd_thread.enabled.store(1, std::memory_order_relaxed);

    if (pipe(ctx->cmd_thread.pipe_fd) != 0 || !makeWakeEndNonBlocking(ctx->cmd_thread.pipe_fd[1])) {
        failure = "can't create the pipe";
        goto fail;
    }
    ctx->channel->adoptPipe(ctx->cmd_thread.pipe_fd[0], ctx->cmd_thread.pipe_fd[1]);
    vopa_mutex_init(&ctx->cmd_thread.sock_mutex);
    ctx->cmd_thread.fd.store(-1, std::memory_order_relaxed);
    {
        RilproxyMutexHold hold(&ctx->cmd_thread.sock_mutex);
        ctx->cmd_thread.socket_name[0] = 0;
    }

    // A pre-loaded wake-up: the reader's first look at the pipe sees enabled = 1 and connects.
    if (write(ctx->cmd_thread.pipe_fd[1], " ", 1) != 1) {
        // Not checked further: the reader's 1-second pacing connects it anyway.
    }

    vopa_thrd_init(&ctx->cmd_thread.thread);
    if (ctx->cmd_thread.thread.start != nullptr) {
        ctx->cmd_thread.thread.start(&ctx->cmd_thread.thread, rilproxy_cmd_resp_thread,
                                     &ctx->cmd_thread);
    }

    ctx->urc_thread.enabled.store(1, std::memory_order_relaxed);
    if (pipe(ctx->urc_thread.pipe_fd) != 0 || !makeWakeEndNonBlocking(ctx->urc_thread.pipe_fd[1])) {
        RLOGE("can't create the pipe");
        RLOGE("ASSERT!!!!!!");
        // The reader thread already holds the context, so it is not freed from under it.
        exit(-1);
    }

    vopa_task_init(&ctx->task, entity ? entity->id : 0, TASK_ID_RILPROXY);
    for (event_id_t id : kSubscribedEvents) vopa_connmngr_common_subscribe(&ctx->task, id, 1);
    if (ctx->task.set_handler != nullptr)
        ctx->task.set_handler(&ctx->task, rilproxy_task_hdl, ctx, 0);
    return entity;

fail:
    RLOGE("%s", failure);
    if (ctx != nullptr) delete ctx->channel;
    free(ctx);
    RLOGE("ASSERT!!!!!!");
    exit(-1);
}

extern "C" void rilproxy_entity_version(void) {
    ZOK_LOG_SELF(kSigEntityVersion);
    RLOGI("RILPROXY Version : %s", RILPROXY_VERSION_TEXT);
}

extern "C" entity_ptr_t rilproxy_entity_exit(entity_ptr_t entity) {
    if (entity != nullptr && entity->priv != nullptr) {
        rilproxy_entity_priv_t *ctx = static_cast<rilproxy_entity_priv_t *>(entity->priv);
        vopa_task_exit(&ctx->task);
        free(ctx);
        entity->priv = nullptr;
    }
    // A null entity is a framework bug; the entity still does not crash on it.
    if (entity != nullptr) entity->id = 0;
    return entity;
}
