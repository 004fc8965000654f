// SetConsoleCtrlHandler: POSIX signals as console control events.
//
// A watcher thread turns each console signal into an event and starts, for
// each event, a thread that calls the handlers, the last added first, until
// one returns TRUE. When none does, the process ends the way the signal's
// default action ends it.
//
// The watcher learns of a signal in one of two ways. Where a thread of the
// program leaves the signal unblocked, the signal handler writes its
// number to a pipe. A program that blocks the console signals in all its
// threads, from before it starts any, leaves them pending, and the watcher
// reads them from a signalfd with no handler in between. That is the way
// for a program built with ThreadSanitizer, which defers a handler to the
// thread's next call into the C library and can lose the signal meanwhile.
#include "check.h"

#include <windows.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <mutex>
#include <vector>

namespace {

struct Console {
    std::mutex lock;
    std::vector<PHANDLER_ROUTINE> handlers; // in order of addition
    bool ignoreCtrlC = false;
    bool installed = false;
    int pipe[2] = {-1, -1};
    int pending = -1; // signalfd of the console signals
};

Console &console()
{
    static Console *c = new Console; // handlers may run while the process ends
    return *c;
}

int writeEnd = -1;

void onSignal(int sig)
{
    int saved = errno;
    unsigned char b = static_cast<unsigned char>(sig);
    // A full pipe holds thousands of signals already; one more adds nothing.
    TS_CHECK(write(writeEnd, &b, 1) == 1 || errno == EAGAIN, "write to the console signal pipe");
    errno = saved;
}

DWORD eventOf(int sig)
{
    switch (sig) {
    case SIGINT: return CTRL_C_EVENT;
    case SIGQUIT: return CTRL_BREAK_EVENT;
    case SIGHUP: return CTRL_CLOSE_EVENT;
    default: return CTRL_SHUTDOWN_EVENT;
    }
}

DWORD WINAPI runHandlers(LPVOID param)
{
    int sig = static_cast<int>(reinterpret_cast<intptr_t>(param));
    DWORD event = eventOf(sig);
    std::vector<PHANDLER_ROUTINE> chain;
    {
        Console &c = console();
        std::lock_guard<std::mutex> g(c.lock);
        if (event == CTRL_C_EVENT && c.ignoreCtrlC)
            return 0;
        chain.assign(c.handlers.rbegin(), c.handlers.rend());
    }
    for (PHANDLER_ROUTINE h : chain)
        if (h(event))
            return 0;
    // Nobody handled it: the signal's own default ends the process.
    TS_CHECK(signal(sig, SIG_DFL) != SIG_ERR, "signal(SIG_DFL)");
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    TS_CHECK_CODE(pthread_sigmask(SIG_UNBLOCK, &set, nullptr), "pthread_sigmask(SIG_UNBLOCK)");
    TS_CHECK(raise(sig) == 0, "raise");
    _exit(128 + sig); // for a default that does not end the process
}

const int consoleSignals[] = {SIGINT, SIGQUIT, SIGHUP, SIGTERM};

sigset_t consoleSignalSet()
{
    sigset_t set;
    sigemptyset(&set);
    for (int sig : consoleSignals)
        sigaddset(&set, sig);
    return set;
}

// Each event on a thread of its own, as Windows does: a handler that takes
// its time does not hold back the next event.
void dispatch(int sig)
{
    LPVOID param = reinterpret_cast<LPVOID>(static_cast<intptr_t>(sig));
    HANDLE t = CreateThread(nullptr, 0, runHandlers, param, 0, nullptr);
    if (t)
        TS_CHECK(CloseHandle(t), "CloseHandle of a handler thread");
    else
        runHandlers(param); // late rather than lost when no thread can start
}

DWORD WINAPI watch(LPVOID)
{
    Console &c = console();
    for (;;) {
        pollfd p[2] = {{c.pipe[0], POLLIN, 0}, {c.pending, POLLIN, 0}};
        if (poll(p, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return 0;
        }
        if (p[0].revents) {
            unsigned char b;
            ssize_t n = read(c.pipe[0], &b, 1);
            if (n == 1)
                dispatch(b);
            else if (n == 0 || (errno != EINTR && errno != EAGAIN))
                return 0;
        }
        if (p[1].revents) {
            signalfd_siginfo info;
            while (read(c.pending, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
                dispatch(static_cast<int>(info.ssi_signo));
        }
    }
}

bool install(Console &c)
{
    if (c.installed)
        return true;
    if (pipe2(c.pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    sigset_t set = consoleSignalSet();
    c.pending = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (c.pending < 0) {
        tsp::closeDescriptor(c.pipe[0]);
        tsp::closeDescriptor(c.pipe[1]);
        return false;
    }
    writeEnd = c.pipe[1];
    HANDLE t = CreateThread(nullptr, 0, watch, nullptr, 0, nullptr);
    if (!t) {
        tsp::closeDescriptor(c.pipe[0]);
        tsp::closeDescriptor(c.pipe[1]);
        tsp::closeDescriptor(c.pending);
        return false;
    }
    TS_CHECK(CloseHandle(t), "CloseHandle of the signal watcher");
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART; // stays installed: a second signal comes here too
    for (int sig : consoleSignals)
        TS_CHECK(sigaction(sig, &sa, nullptr) == 0, "sigaction of a console signal");
    c.installed = true;
    return true;
}

} // namespace

extern "C" BOOL WINAPI SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add)
{
    Console &c = console();
    std::lock_guard<std::mutex> g(c.lock);
    if (!HandlerRoutine) {
        c.ignoreCtrlC = Add != FALSE;
        if (!install(c)) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return FALSE;
        }
        return TRUE;
    }
    if (Add) {
        if (!install(c)) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return FALSE;
        }
        c.handlers.push_back(HandlerRoutine);
        return TRUE;
    }
    for (auto it = c.handlers.end(); it != c.handlers.begin();) {
        --it;
        if (*it == HandlerRoutine) {
            c.handlers.erase(it);
            return TRUE;
        }
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}
