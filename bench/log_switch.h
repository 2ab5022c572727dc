// A null sink for the host log backend, so a benchmark can tell the entity's own cost from the
// cost of formatting and writing its log lines. The executable links with
// -Wl,--wrap=__android_log_print: the entity's calls land in this file, which forwards them to the
// host backend while logging is on and returns at once (as a successful print) while it is off.
// The entity's own work around a line (argument evaluation, the stdout flush) stays in both.
#ifndef ZOK_BENCH_LOG_SWITCH_H
#define ZOK_BENCH_LOG_SWITCH_H

namespace logswitch {

void setLogging(bool enabled);
bool logging();
// Lines the entity tried to print since the process started, whether logging was on or not.
unsigned long linesRequested();

}  // namespace logswitch

#endif  // ZOK_BENCH_LOG_SWITCH_H
