// The daemon's log.
#include "log.h"

#include <stdarg.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

namespace tsscm {

void logLine(const char *fmt, ...)
{
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    time_t now = time(nullptr);
    tm local{};
    char when[32] = "";
    if (localtime_r(&now, &local))
        strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
    fprintf(stderr, "%s tsscm[%d]: %s\n", when, static_cast<int>(getpid()), buf);
}

} // namespace tsscm
