// The program's log: the system log, or the console when a target is named.
#pragma once

#include <cstdarg>

namespace quelm {

// Private bit of log_init's `options`, beside those of openlog: messages carry a trace identifier.
inline constexpr int logWithTraceId = 64;
// Bit of log_init's `level`: QUELM_LOG_LEVEL in the environment may raise the threshold.
inline constexpr unsigned logLevelFromEnvironment = 8;

// Opens the log. All texts are copied.
//  target    null for the system log; "console" (standard error and standard output) or "stderr", in upper or
//            lower case; with any other name every message is dropped.
//  level     the low three bits are the threshold priority 0..7; see logLevelFromEnvironment.
//  facility  a facility of syslog(3).
//  options   of openlog(3); only 1, 2 and 32 reach it, and 1 (log the process id) always does.
//  ident     the name before each message, cut to 63 characters; null means the program's own short name.
// With logWithTraceId the identifier is QUELM_LOG_TRACE_ID, cut to 63 characters, or a new one, which is put
// into the environment for the children.
void log_init(const char* target, unsigned level, int facility, int options, const char* ident);

// Writes one printf-style message. Before log_init messages go to the system log. Preserves errno.
[[gnu::format(printf, 2, 3)]] void log_message(int priority, const char* format, ...);

} // namespace quelm
