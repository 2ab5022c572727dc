// Host-only control of the property store, for tests and the runner.
#ifndef ZOK_HOST_CUTILS_PROPERTIES_HOST_H
#define ZOK_HOST_CUTILS_PROPERTIES_HOST_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Forgets every property.
void property_host_reset(void);
// Removes one key; a later property_get returns the default.
void property_host_unset(const char *key);
// Number of property_set calls on `key` since the last reset (ctl.* keys included).
int property_host_set_count(const char *key);

#ifdef __cplusplus
}
#endif

#endif  // ZOK_HOST_CUTILS_PROPERTIES_HOST_H
