// Shared helpers of the test suites.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <stdio.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tstest {

// The bound of every blocking wait in the tests, in milliseconds: long
// enough for a loaded two-core machine and a sanitizer build, short enough
// that a lost wake-up fails the test instead of hanging it.
constexpr DWORD kWaitBound = 10000;

// True in a build with ThreadSanitizer.
#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
constexpr bool kThreadSanitizer = __has_feature(thread_sanitizer);
#else
constexpr bool kThreadSanitizer = false;
#endif

// True when the process runs as a Windows program under Wine.
bool RunningUnderWine();
// True on the native POSIX leg.
bool RunningOnPosix();

// A fresh machine root for one test on POSIX (a new folder named in
// TSUTIL_ROOT, removed again afterwards); nothing on Windows.
class ScopedMachineRoot {
public:
    ScopedMachineRoot();
    ~ScopedMachineRoot();
    ScopedMachineRoot(const ScopedMachineRoot &) = delete;
    ScopedMachineRoot &operator=(const ScopedMachineRoot &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
    std::string previous_;
    bool hadPrevious_ = false;
};

// Starts fn on a new thread with _beginthreadex; the caller closes the
// handle. fn's result is the thread's exit code.
HANDLE StartThread(std::function<unsigned()> fn, bool suspended = false);

// Returns once the thread with this id is blocked (asleep in the kernel),
// at most after kWaitBound. On POSIX the thread's state is read from /proc;
// Windows has no public call for it, so that leg grants a short grace.
void WaitUntilBlocked(DWORD threadId);
// StartThread, and then WaitUntilBlocked once fn has begun: for a thread
// whose fn blocks at once (its first wait is then under way).
HANDLE StartBlockedThread(std::function<unsigned()> fn);

// CPU time the process has used so far, in milliseconds.
double ProcessCpuMs();

// Blocks the console's signals in the calling thread and the threads it
// starts later, so they stay pending until the platform's console watcher
// reads them, with no signal handler in between. A child program calls it
// first, before it starts a thread: ThreadSanitizer defers a handler to
// the thread's next call into the C library and can lose the signal
// meanwhile. Nothing on Windows.
void LeaveConsoleSignalsToTheWatcher();

// The full path of a program built beside the test executable.
std::string SiblingProgram(const std::string &name);

// A child process started from a program beside the test executable.
class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess(); // kills a child that still runs
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // Starts SiblingProgram(name) with the arguments; false when it cannot.
    bool Start(const std::string &name, const std::vector<std::string> &args);
    // Waits at most ms for the end; gives the exit code, or -1 on time-out.
    int Wait(DWORD ms = kWaitBound);
    // Ends the child at once (SIGKILL on POSIX, TerminateProcess on Windows).
    void Kill();
    // Sends the child the console's Ctrl+C: SIGINT on POSIX; on Windows
    // CTRL_C_EVENT to the console that it shares with the caller, whose own
    // process a handler of this helper shields. false when it cannot.
    bool Interrupt();

private:
    long long id_ = 0; // pid on POSIX, process handle on Windows
    bool running_ = false;
};

// Starts a ChildProcess and waits at most ms for its end: its exit code,
// -1 when it did not end in time (it is killed), -2 when it did not start.
int RunChild(const std::string &name, const std::vector<std::string> &args, DWORD ms = kWaitBound);

// Waits at most kWaitBound for the thread to end and closes its handle;
// true when it ended.
bool Joined(HANDLE thread);
// Waits at most kWaitBound for the thread to end, closes its handle and
// gives its exit code; 0xFFFFFFFF when it did not end.
DWORD ThreadResult(HANDLE thread);
// Runs fn on a thread of its own to its end and gives fn's result, or
// 0xFFFFFFFF when the thread did not end within kWaitBound.
unsigned RunOnOtherThread(std::function<unsigned()> fn);
// Polls done, yielding the processor in between, until it gives true or
// kWaitBound has passed; gives done's last answer. For what no event tells,
// e.g. that a thread has stored its id.
bool Eventually(const std::function<bool()> &done);
// Waits at most kWaitBound for the file (of any kind) to exist; true when
// it does.
bool AwaitFile(const std::string &path);
// The error a call left that gave ok: GetLastError() when ok is false,
// else ERROR_SUCCESS. For EXPECT_EQ(ErrorOf(SomeCall(...)), ERROR_...).
DWORD ErrorOf(BOOL ok);
// Milliseconds since start.
long long MsSince(std::chrono::steady_clock::time_point start);
// What fn prints on standard output.
std::string PrintedBy(const std::function<void()> &fn);
// All that is left to read from the stream.
std::string ReadStream(FILE *stream);

// The pieces of a test that differ between the legs, so that the suites
// name no platform. Where a leg has no such thing, the call gives false
// and the test skips on that leg first.

// Sends the console event (CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT,
// CTRL_SHUTDOWN_EVENT) to the newest child process of this one as the
// signal the platform takes for it (SIGINT, SIGQUIT, SIGHUP, SIGTERM).
// POSIX only.
bool SendConsoleEventToNewestChild(DWORD event);
// The exit code of a process that the event ended because no handler took
// it: 128 + the signal on POSIX, STATUS_CONTROL_C_EXIT on Windows.
int ExitCodeOfUnhandledEvent(DWORD event);
// Ends the process with this id at once.
bool KillProcess(DWORD pid);
// True when the process may become another user (root on POSIX).
bool MayBecomeAnotherUser();
// Sets the POSIX permission bits of a file or folder. POSIX only.
bool SetPermissions(const std::string &path, unsigned mode);
// Makes the calling process that user and group for good. POSIX only.
bool BecomeUser(unsigned uid, unsigned gid);
// Makes the nothrow array allocation, from which the framework's lists take
// their node blocks, fail (true) or work again (false). It reaches the
// libraries only where the program's allocator binds every module, as on
// POSIX; on Windows a module keeps its own allocator, and the call gives
// false.
bool FailArrayAllocation(bool fail);
// Runs a program beside the test with the arguments (words of one line, as
// a shell would take them) and gives its exit code and standard output.
int RunCaptured(const std::string &program, const std::string &args, std::string &output);

} // namespace tstest

// Skips the rest of a test on one leg, with the reason in the output.
#define TS_SKIP_ON_WINE(reason) \
    do { if (::tstest::RunningUnderWine()) GTEST_SKIP() << "Wine: " << (reason); } while (0)
#define TS_SKIP_ON_POSIX(reason) \
    do { if (::tstest::RunningOnPosix()) GTEST_SKIP() << "POSIX: " << (reason); } while (0)
