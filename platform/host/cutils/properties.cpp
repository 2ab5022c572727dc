// Host property store: a process-wide map guarded by one mutex; any thread.
#include <android/log.h>
#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <stdio.h>
#include <string.h>

#include <map>
#include <mutex>
#include <string>

namespace {

struct Store {
    std::mutex lock;
    std::map<std::string, std::string> values;
    std::map<std::string, int> setCounts;
};

Store &store() {
    static Store *s = new Store;  // never destroyed: threads may read it while the process exits
    return *s;
}

}  // namespace

extern "C" int property_get(const char *key, char *value, const char *default_value) {
    if (value == nullptr) return 0;
    const char *source = default_value ? default_value : "";
    std::string found;
    if (key != nullptr) {
        std::lock_guard<std::mutex> lock(store().lock);
        auto it = store().values.find(key);
        if (it != store().values.end()) {
            found = it->second;
            source = found.c_str();
        }
    }
    int len = snprintf(value, PROPERTY_VALUE_MAX, "%s", source);
    if (len >= PROPERTY_VALUE_MAX) len = PROPERTY_VALUE_MAX - 1;
    return len;
}

extern "C" int property_set(const char *key, const char *value) {
    if (key == nullptr) return -1;
    if (value == nullptr) value = "";
    if (strlen(value) >= PROPERTY_VALUE_MAX) return -1;
    {
        std::lock_guard<std::mutex> lock(store().lock);
        store().setCounts[key]++;
        if (strncmp(key, "ctl.", 4) != 0) {
            store().values[key] = value;
            return 0;
        }
    }
    // init consumes control requests instead of storing them.
    __android_log_print(ANDROID_LOG_INFO, "init", "control request %s=%s", key, value);
    return 0;
}

extern "C" void property_host_reset(void) {
    std::lock_guard<std::mutex> lock(store().lock);
    store().values.clear();
    store().setCounts.clear();
}

extern "C" void property_host_unset(const char *key) {
    if (key == nullptr) return;
    std::lock_guard<std::mutex> lock(store().lock);
    store().values.erase(key);
}

extern "C" int property_host_set_count(const char *key) {
    if (key == nullptr) return 0;
    std::lock_guard<std::mutex> lock(store().lock);
    auto it = store().setCounts.find(key);
    return it == store().setCounts.end() ? 0 : it->second;
}
