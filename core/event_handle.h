// The owning handle of a framework event: frees it with vopa_event_free unless ownership moved on
// by an explicit release. Any thread; one owner at a time.
//
//     RilproxyEvent owned(event);                 // this frame owns it now
//     if (rilproxy_add_event_to_pool(ctx, owned.get()) != 0) owned.release();   // the pool does
//
// Who owns an event at each step:
//
// | step                  | owner                        | how it ends                          |
// |-----------------------|------------------------------|--------------------------------------|
// | posted to task 202    | the dispatcher's handle      | freed when the event is handled      |
// | parked under a serial | the pool slot                | taken by serial, or the teardown     |
// | taken by serial       | the taker's handle (reader,  | freed after the answer               |
// |                       | or a TLV result event)       |                                      |
// | retried (refused TLV) | the reader's handle          | parked again, or freed after the     |
// |                       |                              | error function has answered          |
// | answered              | the taker (above)            | the reply is a new event             |
// | failed send           | whoever takes it back out of | only if its slot still holds it;     |
// |                       | its slot                     | else another thread answered it      |
// | teardown              | rilproxy_free_all_event      | freed once, AT requesters told       |
#ifndef ZOK_CORE_EVENT_HANDLE_H
#define ZOK_CORE_EVENT_HANDLE_H

#include "vopa.h"

class RilproxyEvent {
public:
    explicit RilproxyEvent(event_ptr_t event = nullptr) : mEvent(event) {}
    ~RilproxyEvent() { reset(); }
    RilproxyEvent(const RilproxyEvent &) = delete;
    RilproxyEvent &operator=(const RilproxyEvent &) = delete;

    event_ptr_t get() const { return mEvent; }
    explicit operator bool() const { return mEvent != nullptr; }
    // The pool or the framework takes the event: this handle forgets it without freeing it.
    event_ptr_t release() {
        event_ptr_t event = mEvent;
        mEvent = nullptr;
        return event;
    }
    void reset() {
        if (mEvent != nullptr) vopa_event_free(mEvent);
        mEvent = nullptr;
    }

private:
    event_ptr_t mEvent;
};

#endif  // ZOK_CORE_EVENT_HANDLE_H
