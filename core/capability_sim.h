// The capability SIM: 0-based index of the SIM that carries the relayed services, read from the
// SIM-switch property on every call (no state). -1 for a value that is not a positive number.
#ifndef ZOK_CORE_CAPABILITY_SIM_H
#define ZOK_CORE_CAPABILITY_SIM_H

int rilproxy_get_capability_sim(void);

#endif  // ZOK_CORE_CAPABILITY_SIM_H
