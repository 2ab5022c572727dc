// Entity start-up and exit through the host framework: what init builds, what it registers, and
// how it fails. (Its log lines and the version line are pinned by the golden transcript.)
#include <binder/ProcessState.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "rilproxy_entity.h"
#include "vopa_host.h"

namespace {
std::atomic<bool> gFailCalloc{false};
std::atomic<int> gFailPipeNumber{0};  // 1: the first pipe() call fails, 2: the second, ...
std::atomic<int> gPipeCalls{0};
}  // namespace

extern "C" void *__real_calloc(size_t n, size_t size);
extern "C" void *__wrap_calloc(size_t n, size_t size) {
    if (gFailCalloc.load()) return nullptr;
    return __real_calloc(n, size);
}

extern "C" int __real_pipe(int fds[2]);
extern "C" int __wrap_pipe(int fds[2]) {
    if (++gPipeCalls == gFailPipeNumber.load()) {
        errno = EMFILE;
        return -1;
    }
    return __real_pipe(fds);
}

namespace {

class EntityTest : public testing::Test {
protected:
    // The entity-init gate stays closed, so the reader thread waits and leaves the context alone.
    void SetUp() override { vopa_host::reset(); }
};

TEST_F(EntityTest, InitBuildsContextAndRegistersTask) {
    vopa_entity_t entity = {};
    ASSERT_EQ(rilproxy_entity_init(&entity, nullptr), &entity);
    auto *ctx = static_cast<rilproxy_entity_priv_t *>(entity.priv);
    ASSERT_NE(ctx, nullptr);
    // The command channel waits for the reader: a send before it connects must not reach fd 0.
    // (The entity id is the weak-import probe's; the URC channel is never served.)
    EXPECT_EQ(ctx->cmd_thread.fd.load(), -1);
    EXPECT_NE(ctx->cmd_thread.sock_mutex.lock, nullptr);
    EXPECT_NE(ctx->event_pool_mutex.lock, nullptr);
    // The pre-loaded wake-up byte waits in the command pipe for the reader.
    fcntl(ctx->cmd_thread.pipe_fd[0], F_SETFL, O_NONBLOCK);
    char buf[4];
    EXPECT_EQ(read(ctx->cmd_thread.pipe_fd[0], buf, sizeof(buf)), 1);
    EXPECT_EQ(buf[0], ' ');
    EXPECT_EQ(vopa_host::threads_started(), 1);

    EXPECT_EQ(vopa_host::task_entity_id(TASK_ID_RILPROXY), 21);
    for (event_id_t id : {2004, 2005, 2006, 2007, 2008}) {
        EXPECT_TRUE(vopa_host::subscribed(TASK_ID_RILPROXY, id)) << id;
    }
    EXPECT_FALSE(vopa_host::subscribed(TASK_ID_RILPROXY, EVENT_RILPROXY_ATCMD_REQ));

    // The binder state was opened on the vendor driver and the strong pointer released at once.
    android::sp<android::ProcessState> ps = android::ProcessState::self();
    EXPECT_STREQ(ps->getDriverName(), "/dev/vndbinder");
    EXPECT_EQ(ps->getStrongCount(), 1);

    // Exit frees the context without stopping the reader: wait until it is parked at the gate.
    ASSERT_TRUE(vopa_host::wait_gate_waiters(1, 5000));
    EXPECT_EQ(rilproxy_entity_exit(&entity), &entity);
    EXPECT_EQ(entity.id, 0);
    EXPECT_FALSE(vopa_host::task_registered(TASK_ID_RILPROXY));
}

TEST_F(EntityTest, NullEntityStillGetsATask) {
    EXPECT_EQ(rilproxy_entity_init(nullptr, nullptr), nullptr);
    EXPECT_TRUE(vopa_host::task_registered(TASK_ID_RILPROXY));
    EXPECT_EQ(vopa_host::task_entity_id(TASK_ID_RILPROXY), 0);
    EXPECT_NE(vopa_host::task_user(TASK_ID_RILPROXY), nullptr);
    EXPECT_EQ(rilproxy_entity_exit(nullptr), nullptr);
}

// The error line, then the assertion line, then exit(-1).
TEST_F(EntityTest, InitFailuresEndTheProcess) {
    const struct {
        bool failCalloc;
        int failPipe;
        std::string error;
    } cases[] = {{true, 0, "can't allocate the memory"},
                 {false, 1, "can't create the pipe"},
                 {false, 2, "can't create the pipe"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.failPipe);
        EXPECT_EXIT(
            {
                gFailCalloc = c.failCalloc;
                gFailPipeNumber = c.failPipe;
                vopa_entity_t entity = {};
                rilproxy_entity_init(&entity, nullptr);
                exit(0);
            },
            testing::ExitedWithCode(255), c.error + "[^\n]*\n[^\n]*ASSERT!!!!!!");
    }
}

}  // namespace
