// The connection to the RIL daemon: owned socket and pipe, the write token, the reader's bounded
// outbox and the stall watch. Task thread (send) and reader thread (everything else).
#include "transport/ril_channel.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "core/log.h"
#include "transport/frame.h"

// Why the reader never sends on the socket itself: the task thread holds sock_mutex for a whole
// event and may sit in a blocking send while the daemon is not reading. A daemon commonly stops
// reading while its own write to the entity is stuck, and that write only moves when the reader
// reads. A reader that waited for the task thread's send (or blocked in a send of its own) would
// close the circle and both threads would wait forever. So frames produced while the reader
// handles a frame (the plain re-send of a refused TLV request) are queued here, and the reader
// writes them without blocking between its reads, waiting for POLLOUT alongside POLLIN.

int64_t rilproxy_now_ms() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void RilproxyUniqueFd::reset(int fd) {
    if (mFd >= 0) close(mFd);
    mFd = fd;
}

RilChannel::~RilChannel() {
    RilproxyLockHold hold(mOutboxLock);
    releaseOutbox();
    free(mBytes);
    mBytes = nullptr;
    // The socket closes with its member; the lock that guards it is the record's.
}

void RilChannel::adoptPipe(int readEnd, int writeEnd) {
    mPipeRead.reset(readEnd);
    mPipeWrite.reset(writeEnd);
}

void RilChannel::adoptSocket(int fd) {
    mSocket.reset(fd);
    // Only a frame that has begun is bounded: the reader receives after poll reported bytes, and
    // waits between frames in poll, as long as the daemon likes.
    int ms = mRecvBoundMs.load(std::memory_order_relaxed);
    struct timeval bound = {ms / 1000, (ms % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof(bound));
    mRecord->fd.store(fd, std::memory_order_relaxed);
}

void RilChannel::closeSocket(bool stillOurs) {
    mRecord->fd.store(-1, std::memory_order_relaxed);
    if (!stillOurs) mSocket.release();
    mSocket.reset();
}

void RilChannel::setBoundsForTest(int recvMs, int sendMs) {
    mRecvBoundMs.store(recvMs, std::memory_order_relaxed);
    mSendBoundMs.store(sendMs, std::memory_order_relaxed);
}

int RilChannel::send(int fd, rilproxy_ril_requset_param_t *param) {
    uint32_t header[RIL_REQ_HEADER_SIZE / 4];
    rilproxy_build_request_header(fd, param, header);
    int result;
    {
        RilproxyLockHold token(mToken);
        result = rilproxy_write_frame(fd, header, param->parcel.data(), param->parcel.dataSize(),
                                      &mTaskMovedMs);
        mTaskMovedMs.store(0, std::memory_order_relaxed);
        // The reader may have found the token taken while it queued a frame; it waits for the
        // pipe byte below. Released under the outbox lock so that its next try and this look
        // cannot pass each other.
        mOutboxLock.lock();
    }
    bool wake = mSize > mSent;
    mOutboxLock.unlock();
    if (wake && write(mRecord->pipe_fd[1], " ", 1) < 0) {
        // A full pipe already holds a wake-up (its write end never blocks).
    }
    return result;
}

int RilChannel::queue(int fd, rilproxy_ril_requset_param_t *param) {
    uint32_t header[RIL_REQ_HEADER_SIZE / 4];
    rilproxy_build_request_header(fd, param, header);
    {
        ZOK_LOG_AS(kSigSendRilRequest);
        RilproxyLockHold hold(mOutboxLock);
        if (mFrames >= kRilproxyOutboxFrames) {
            // More re-sends than parked events: the daemon answers what it has not read.
            RLOGE("reader outbox full (%u frames), the daemon does not read", mFrames);
            releaseOutbox();
            return -2;
        }
        if (!appendFrame(header, sizeof(header), param->parcel.data(), param->parcel.dataSize())) {
            RLOGE("send data error");
            releaseOutbox();
            return -2;
        }
    }
    return flush(fd) == RILPROXY_OUTBOX_LOST ? -2 : 0;
}

bool RilChannel::appendFrame(const void *header, size_t headerSize, const void *data,
                             size_t dataSize) {
    if (data == nullptr) dataSize = 0;
    if (mSent > 0) {
        // What went out is dropped first, so the buffer holds at most the waiting frames.
        memmove(mBytes, mBytes + mSent, mSize - mSent);
        for (unsigned i = 0; i < mFrames; i++) mFrameEnds[i] -= mSent;
        mSize -= mSent;
        mSent = 0;
    }
    size_t need = mSize + headerSize + dataSize;
    if (need > mCapacity) {
        size_t capacity = mCapacity * 2 > need ? mCapacity * 2 : need;
        void *grown = realloc(mBytes, capacity);
        if (grown == nullptr) return false;
        mBytes = static_cast<unsigned char *>(grown);
        mCapacity = capacity;
    }
    memcpy(mBytes + mSize, header, headerSize);
    if (dataSize != 0) memcpy(mBytes + mSize + headerSize, data, dataSize);
    mSize = need;
    mFrameEnds[mFrames++] = need;
    return true;
}

void RilChannel::releaseOutbox() {
    mSize = 0;
    mSent = 0;
    mFrames = 0;
    if (mReaderHoldsToken) {
        mReaderHoldsToken = false;
        giveTokenBack();
    }
}

// Taken in takeTokenForOutbox, on an earlier call of the reader.
void RilChannel::giveTokenBack() RILPROXY_NO_THREAD_SAFETY_ANALYSIS {
    mToken.unlock();
}

// The analysis cannot follow a lock that stays held across calls: the reader keeps the token from
// this try until its last queued byte is out, which may be several waits later.
bool RilChannel::takeTokenForOutbox() RILPROXY_NO_THREAD_SAFETY_ANALYSIS {
    if (mReaderHoldsToken) return true;
    if (!mToken.tryLock()) return false;
    mReaderHoldsToken = true;
    mOutboxMovedMs = rilproxy_now_ms();
    return true;
}

rilproxy_outbox_state RilChannel::flush(int fd) {
    RilproxyLockHold hold(mOutboxLock);
    if (mSize == mSent) return RILPROXY_OUTBOX_EMPTY;
    if (!takeTokenForOutbox()) return RILPROXY_OUTBOX_WAITS_FOR_TOKEN;
    return writeOutbox(fd);
}

rilproxy_outbox_state RilChannel::writeOutbox(int fd) {
    // The reader's half of a frame's send: its lines are the whole-buffer send's.
    ZOK_LOG_AS(kSigSendFull);
    while (mSent < mSize) {
        ssize_t n = ::send(fd, mBytes + mSent, mSize - mSent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            mSent += static_cast<size_t>(n);
            mOutboxMovedMs = rilproxy_now_ms();
            unsigned done = 0;
            while (done < mFrames && mFrameEnds[done] <= mSent) done++;
            if (done > 0) {
                memmove(mFrameEnds, mFrameEnds + done, (mFrames - done) * sizeof(mFrameEnds[0]));
                mFrames -= done;
            }
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return RILPROXY_OUTBOX_WAITS_FOR_SOCKET;
        }
        if (n == 0) {
            RLOGE("socket closed");
        } else {
            RLOGE("socket recv error : %s", strerror(errno));
        }
        releaseOutbox();
        return RILPROXY_OUTBOX_LOST;
    }
    releaseOutbox();
    return RILPROXY_OUTBOX_EMPTY;
}

void RilChannel::dropOutbox() {
    RilproxyLockHold hold(mOutboxLock);
    releaseOutbox();
}

bool RilChannel::writeStalled() {
    int64_t now = rilproxy_now_ms();
    int64_t bound = mSendBoundMs.load(std::memory_order_relaxed);
    int64_t task = mTaskMovedMs.load(std::memory_order_relaxed);
    if (task != 0 && now - task >= bound) return true;
    RilproxyLockHold hold(mOutboxLock);
    // Only the reader's own write counts here: while it waits for the token, the task thread's
    // write is the one that must move.
    return mReaderHoldsToken && mSent < mSize && now - mOutboxMovedMs >= bound;
}

int RilChannel::waitBoundMs(int idleMs) {
    int bound = mSendBoundMs.load(std::memory_order_relaxed);
    // A write that starts during a wait is looked at when the wait ends: within twice the bound.
    return bound < idleMs ? bound : idleMs;
}
