// The daemon's log: one line per event on standard error, which the layer
// points at run/tsscm.log when it starts the daemon.
#pragma once

namespace tsscm {

void logLine(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

} // namespace tsscm
