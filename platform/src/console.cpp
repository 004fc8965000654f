// SetConsoleCtrlHandler: POSIX signals as console control events.
//
// The signal handler only writes the signal's number to a pipe. A watcher
// thread reads it and starts, for each event, a thread that calls the
// handlers, the last added first, until one returns TRUE. When none does,
// the process ends the way the signal's default action ends it.
//
// The watcher takes the console signals even when the program blocks them
// in its own threads. A program built with ThreadSanitizer should do so:
// the sanitizer holds a signal that lands on a thread outside the C library
// (asleep in a raw futex wait, say) until that thread next calls into it.
#include <windows.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
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
    (void)!write(writeEnd, &b, 1);
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
    signal(sig, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(sig);
    _exit(128 + sig); // for a default that does not end the process
}

const int consoleSignals[] = {SIGINT, SIGQUIT, SIGHUP, SIGTERM};

DWORD WINAPI watch(LPVOID started)
{
    sigset_t mine;
    sigemptyset(&mine);
    for (int sig : consoleSignals)
        sigaddset(&mine, sig);
    pthread_sigmask(SIG_UNBLOCK, &mine, nullptr); // the handler threads inherit it
    SetEvent(started);
    Console &c = console();
    for (;;) {
        // Asleep in poll rather than read: the sanitizer counts poll as a
        // blocking call and runs a signal's handler at once during it.
        pollfd p{c.pipe[0], POLLIN, 0};
        if (poll(&p, 1, -1) < 0 && errno == EINTR)
            continue;
        unsigned char b;
        ssize_t n = read(c.pipe[0], &b, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return 0;
        // Each event on a thread of its own, as Windows does: a handler that
        // takes its time does not hold back the next event.
        LPVOID sig = reinterpret_cast<LPVOID>(static_cast<intptr_t>(b));
        HANDLE t = CreateThread(nullptr, 0, runHandlers, sig, 0, nullptr);
        if (t)
            CloseHandle(t);
        else
            runHandlers(sig); // late rather than lost when no thread can start
    }
}

bool install(Console &c)
{
    if (c.installed)
        return true;
    if (pipe2(c.pipe, O_CLOEXEC) != 0)
        return false;
    fcntl(c.pipe[1], F_SETFL, O_NONBLOCK);
    writeEnd = c.pipe[1];
    // The first call returns once the watcher runs: a signal that comes
    // while a thread is still being set up may be missed by a sanitizer.
    HANDLE started = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE t = started ? CreateThread(nullptr, 0, watch, started, 0, nullptr) : nullptr;
    if (!t) {
        if (started)
            CloseHandle(started);
        close(c.pipe[0]);
        close(c.pipe[1]);
        return false;
    }
    WaitForSingleObject(started, INFINITE);
    CloseHandle(started);
    CloseHandle(t);
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART; // stays installed: a second signal comes here too
    for (int sig : consoleSignals)
        sigaction(sig, &sa, nullptr);
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
