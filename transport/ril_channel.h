// The connection to the RIL daemon, one per entity: the socket and the reader's wake-up pipe as
// owned descriptors, the write token that keeps every frame whole on the socket, the reader's
// outbox and the watch on writes that stop moving. Task thread (blocking sends under sock_mutex)
// and reader thread (queued sends, the socket's life, the stall watch).
//
//     RilChannel channel(&ctx->cmd_thread);          // owns nothing yet
//     channel.adoptPipe(readEnd, writeEnd);          // closed with the channel
//     { RilproxyMutexHold h(&channel.mRecord->sock_mutex); channel.adoptSocket(fd); }  // reader
//     channel.send(fd, &param);                      // task thread: blocks, frame whole
//     channel.queue(fd, &param);                     // reader: never blocks
//
// Pitfalls: the reader never calls send() (it would wait for the task thread, which may wait
// for a daemon that waits for the reader); a queue past the ceiling, a write that makes no
// progress for the send bound and a frame that stalls half way for the receive bound are lost
// connections, and the reader's teardown ends them.
#ifndef ZOK_TRANSPORT_RIL_CHANNEL_H
#define ZOK_TRANSPORT_RIL_CHANNEL_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include "rilproxy.h"
#include "thread_annotations.h"

// An owned descriptor: closed when replaced or destroyed. -1 holds nothing.
class RilproxyUniqueFd {
public:
    RilproxyUniqueFd() = default;
    explicit RilproxyUniqueFd(int fd) : mFd(fd) {}
    ~RilproxyUniqueFd() { reset(); }
    RilproxyUniqueFd(const RilproxyUniqueFd &) = delete;
    RilproxyUniqueFd &operator=(const RilproxyUniqueFd &) = delete;
    int get() const { return mFd; }
    void reset(int fd = -1);
    // Forgets the descriptor without closing it.
    void release() { mFd = -1; }

private:
    int mFd = -1;
};

// A plain mutex the analysis knows about, for the channel's own locks.
class RILPROXY_CAPABILITY("mutex") RilproxyLock {
public:
    RilproxyLock() = default;
    RilproxyLock(const RilproxyLock &) = delete;
    RilproxyLock &operator=(const RilproxyLock &) = delete;
    void lock() RILPROXY_ACQUIRE() { pthread_mutex_lock(&mMutex); }
    void unlock() RILPROXY_RELEASE() { pthread_mutex_unlock(&mMutex); }
    bool tryLock() RILPROXY_TRY_ACQUIRE(true) { return pthread_mutex_trylock(&mMutex) == 0; }

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

class RILPROXY_SCOPED_CAPABILITY RilproxyLockHold {
public:
    explicit RilproxyLockHold(RilproxyLock &lock) RILPROXY_ACQUIRE(lock) : mLock(lock) {
        mLock.lock();
    }
    ~RilproxyLockHold() RILPROXY_RELEASE() { mLock.unlock(); }
    RilproxyLockHold(const RilproxyLockHold &) = delete;
    RilproxyLockHold &operator=(const RilproxyLockHold &) = delete;

private:
    RilproxyLock &mLock;
};

enum rilproxy_outbox_state {
    RILPROXY_OUTBOX_EMPTY = 0,             // everything written
    RILPROXY_OUTBOX_WAITS_FOR_TOKEN = 1,   // the task thread is writing a frame
    RILPROXY_OUTBOX_WAITS_FOR_SOCKET = 2,  // the socket is full: wait for POLLOUT
    RILPROXY_OUTBOX_LOST = -1,             // the socket failed; the queue is dropped
};

// Frames the reader may have queued and not yet written. Every queued frame re-sends a parked
// event, so a well-behaved daemon never has more than the pool's slots outstanding; one more is
// a daemon that answers without reading.
constexpr unsigned kRilproxyOutboxFrames = RILPROXY_EVENT_POOL_SIZE;
// A frame begun by the daemon must go on arriving: no byte for this long ends the connection.
constexpr int kRilproxyRecvBoundMs = 20000;
// A write (the task thread's frame, or the reader's queued one once it holds the token) that
// moves no byte for this long ends the connection.
constexpr int kRilproxySendBoundMs = 30000;

class RilChannel {
public:
    explicit RilChannel(rilproxy_thread_priv_t *record) : mRecord(record) {}
    ~RilChannel();
    RilChannel(const RilChannel &) = delete;
    RilChannel &operator=(const RilChannel &) = delete;

    // Takes both ends of the control pipe; from here on they close with the channel.
    void adoptPipe(int readEnd, int writeEnd);

    // Reader: the connected socket. Applies the receive bound and publishes the number in fd.
    void adoptSocket(int fd) RILPROXY_REQUIRES(mRecord->sock_mutex);
    // Reader, in the teardown: unpublishes and closes the socket. A number that poll reported
    // invalid was closed by someone else and may name their descriptor now: it is only forgotten.
    void closeSocket(bool stillOurs) RILPROXY_REQUIRES(mRecord->sock_mutex);

    // Task thread: the whole frame, blocking, under the write token. The result and the lines
    // are rilproxy_send_ril_request's.
    int send(int fd, rilproxy_ril_requset_param_t *param) RILPROXY_EXCLUDES(mToken, mOutboxLock);
    // Reader: queues the frame whole and writes what fits now. 0 queued; -2 the socket failed
    // or the outbox is over its ceiling (the connection is then lost).
    int queue(int fd, rilproxy_ril_requset_param_t *param) RILPROXY_EXCLUDES(mOutboxLock);
    // Reader: writes what the outbox holds, never blocking.
    rilproxy_outbox_state flush(int fd) RILPROXY_EXCLUDES(mOutboxLock);
    // Reader, at teardown: forgets what waits and gives the token back if the reader holds it.
    void dropOutbox() RILPROXY_EXCLUDES(mOutboxLock);

    // Reader: true when a write has moved no byte for the send bound.
    bool writeStalled() RILPROXY_EXCLUDES(mOutboxLock);
    // How long the reader may wait before it must look at the writes again (at most `idleMs`).
    int waitBoundMs(int idleMs) RILPROXY_EXCLUDES(mOutboxLock);
    int sendBoundMs() const { return mSendBoundMs.load(std::memory_order_relaxed); }

    // Tests: short bounds instead of 20 and 30 s. Applies to sockets adopted afterwards.
    void setBoundsForTest(int recvMs, int sendMs);

    // The channel's record; its sock_mutex guards the socket (callers name the lock through this
    // member, so the analysis sees the same lock).
    rilproxy_thread_priv_t *const mRecord;

private:
    bool takeTokenForOutbox() RILPROXY_REQUIRES(mOutboxLock);
    void releaseOutbox() RILPROXY_REQUIRES(mOutboxLock);
    void giveTokenBack() RILPROXY_REQUIRES(mOutboxLock);
    bool appendFrame(const void *header, size_t headerSize, const void *data, size_t dataSize)
        RILPROXY_REQUIRES(mOutboxLock);
    rilproxy_outbox_state writeOutbox(int fd) RILPROXY_REQUIRES(mOutboxLock);

    RilproxyUniqueFd mSocket RILPROXY_GUARDED_BY(mRecord->sock_mutex);
    RilproxyUniqueFd mPipeRead;
    RilproxyUniqueFd mPipeWrite;

    // The write token: a sender holds it from a frame's first byte to its last. The task thread
    // takes it blocking; the reader only tries, under mOutboxLock, and keeps it across its waits
    // while a frame of its own is half written (the task thread then waits for the reader, which
    // keeps reading, never the other way round).
    RilproxyLock mToken;
    // Guards the outbox and orders the reader's try for the token against the task thread's
    // release and its look for queued frames: no wake-up is lost. Held briefly, never blocking.
    RilproxyLock mOutboxLock RILPROXY_ACQUIRED_AFTER(mToken);
    bool mReaderHoldsToken RILPROXY_GUARDED_BY(mOutboxLock) = false;
    unsigned char *mBytes RILPROXY_PT_GUARDED_BY(mOutboxLock) = nullptr;
    size_t mSize RILPROXY_GUARDED_BY(mOutboxLock) = 0;
    size_t mCapacity RILPROXY_GUARDED_BY(mOutboxLock) = 0;
    size_t mSent RILPROXY_GUARDED_BY(mOutboxLock) = 0;
    size_t mFrameEnds[kRilproxyOutboxFrames] RILPROXY_GUARDED_BY(mOutboxLock) = {};
    unsigned mFrames RILPROXY_GUARDED_BY(mOutboxLock) = 0;
    int64_t mOutboxMovedMs RILPROXY_GUARDED_BY(mOutboxLock) = 0;

    // When the task thread's frame last moved (monotonic ms), 0 while it sends nothing.
    std::atomic<int64_t> mTaskMovedMs{0};
    std::atomic<int> mRecvBoundMs{kRilproxyRecvBoundMs};
    std::atomic<int> mSendBoundMs{kRilproxySendBoundMs};
};

// Monotonic milliseconds.
int64_t rilproxy_now_ms();

#endif  // ZOK_TRANSPORT_RIL_CHANNEL_H
