// The impossible is loud: a system call that cannot fail here but does is
// a bug of the layer or of its caller, never a result to carry on with
// silently.
//
//   if (!TS_CHECK(rc == 0, "flock(LOCK_UN)")) ...
//
// TS_CHECK(cond, what) reports a false cond on stderr, naming the call, the
// errno of the moment and the place; a debug build (NDEBUG unset) then
// aborts. A release build goes on, and the expression's value (cond) lets
// the caller take its most sensible way out. TS_CHECK_CODE does the same
// for calls that give their error number as the result (pthread_*); a
// library with codes of its own passes its text for the code to
// checkPassed.
//
// The report is written with write(2) from a stack buffer, so it is safe in
// a signal handler and after fork.
#pragma once

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace tsp {

[[gnu::cold, gnu::noinline]] inline void reportImpossible(const char *what, const char *why, int code,
                                                          const char *file, int line)
{
    char text[512];
    int n = snprintf(text, sizeof text, "tsplatform: %s failed: %s (%d) at %s:%d\n", what, why, code, file, line);
    if (n > 0) {
        size_t len = static_cast<size_t>(n) < sizeof text ? static_cast<size_t>(n) : sizeof text - 1;
        // Nothing is left to report a failed report to.
        ssize_t written = write(STDERR_FILENO, text, len);
        static_cast<void>(written);
    }
#ifndef NDEBUG
    abort();
#endif
}

inline bool checkPassed(bool ok, const char *what, const char *why, int code, const char *file, int line)
{
    if (__builtin_expect(ok, 1))
        return true;
    reportImpossible(what, why, code, file, line);
    return false;
}

// The same with an errno value as the code.
inline bool checkPassed(bool ok, const char *what, int error, const char *file, int line)
{
    if (__builtin_expect(ok, 1))
        return true;
    char reason[128];
    // The GNU strerror_r may give a static text instead of filling reason.
    reportImpossible(what, strerror_r(error, reason, sizeof reason), error, file, line);
    return false;
}

} // namespace tsp

// cond is evaluated before errno is read: it usually holds the failing call.
#define TS_CHECK(cond, what)                                                                                          \
    [&]() -> bool {                                                                                                    \
        bool tsCheckOk = static_cast<bool>(cond);                                                                      \
        return ::tsp::checkPassed(tsCheckOk, (what), errno, __FILE__, __LINE__);                                       \
    }()
#define TS_CHECK_CODE(code, what)                                                                                     \
    [&](int tsCheckCode) {                                                                                             \
        return ::tsp::checkPassed(tsCheckCode == 0, (what), tsCheckCode, __FILE__, __LINE__);                          \
    }(code)

namespace tsp {

// Closes a descriptor the caller owns. Only a descriptor that is not open
// is a bug; an error of the file system (EIO, EINTR) has no one to go to
// once the descriptor is let go.
inline void closeDescriptor(int fd) { TS_CHECK(close(fd) == 0 || errno != EBADF, "close"); }

} // namespace tsp
