// Library-internal: every message of the library goes through Log, so that
// a host can route or silence them with sv_set_log.
#ifndef SV_LOG_H
#define SV_LOG_H

namespace svc {

// Formats like printf and hands each completed line, without its line
// feed, to the host's sink (by default stdout, byte for byte what printf
// would have written). Messages end in a line feed.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void Log(const char* fmt, ...);

}  // namespace svc

#endif
