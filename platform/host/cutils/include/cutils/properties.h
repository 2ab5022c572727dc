// Host stand-in for Android's cutils/properties.h: system properties over an in-process store
// that tests and the runner seed. Signatures as Android's.
#ifndef ZOK_HOST_CUTILS_PROPERTIES_H
#define ZOK_HOST_CUTILS_PROPERTIES_H

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `key` (or `default_value`, or "" when that is null) into `value`, which
// holds PROPERTY_VALUE_MAX bytes; returns the length copied.
int property_get(const char *key, char *value, const char *default_value);
// 0 on success, -1 for a null key or a value of PROPERTY_VALUE_MAX bytes or more. Setting a
// "ctl.*" key asks init to act on a service; the host logs it so the request can be seen.
int property_set(const char *key, const char *value);

#ifdef __cplusplus
}
#endif

#endif  // ZOK_HOST_CUTILS_PROPERTIES_H
