// Host stand-in for Android's android::sp<T>: an intrusive strong pointer over a type that
// provides incStrong/decStrong, enough for ProcessState::initWithDriver's result.
#ifndef ZOK_HOST_UTILS_STRONG_POINTER_H
#define ZOK_HOST_UTILS_STRONG_POINTER_H

namespace android {

template <typename T>
class sp {
public:
    sp() : m_ptr(nullptr) {}
    sp(T *other) : m_ptr(other) {  // NOLINT: implicit as in Android
        if (m_ptr) m_ptr->incStrong(this);
    }
    sp(const sp &other) : m_ptr(other.m_ptr) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    ~sp() { clear(); }
    sp &operator=(const sp &other) {
        if (other.m_ptr) other.m_ptr->incStrong(this);
        clear();
        m_ptr = other.m_ptr;
        return *this;
    }
    void clear() {
        if (m_ptr) m_ptr->decStrong(this);
        m_ptr = nullptr;
    }
    T *get() const { return m_ptr; }
    T *operator->() const { return m_ptr; }
    T &operator*() const { return *m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

private:
    T *m_ptr;
};

}  // namespace android

#endif  // ZOK_HOST_UTILS_STRONG_POINTER_H
