#include "TestSupport.h"

#include <process.h>
#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>

namespace tstest {

namespace {

unsigned __stdcall runFunction(void *p)
{
    auto *f = static_cast<std::function<unsigned()> *>(p);
    unsigned r = (*f)();
    delete f;
    return r;
}

} // namespace

HANDLE StartThread(std::function<unsigned()> fn, bool suspended)
{
    auto *heapFn = new std::function<unsigned()>(std::move(fn));
    unsigned id;
    uintptr_t h = _beginthreadex(nullptr, 0, runFunction, heapFn, suspended ? CREATE_SUSPENDED : 0, &id);
    if (!h)
        delete heapFn;
    return reinterpret_cast<HANDLE>(h);
}

HANDLE StartBlockedThread(std::function<unsigned()> fn)
{
    auto id = std::make_shared<std::atomic<DWORD>>(0);
    HANDLE thread = StartThread([id, fn = std::move(fn)] {
        id->store(GetCurrentThreadId());
        return fn();
    });
    if (Eventually([&] { return id->load() != 0; }))
        WaitUntilBlocked(id->load());
    else
        ADD_FAILURE() << "the thread did not start";
    return thread;
}

ChildProcess::~ChildProcess()
{
    if (running_) {
        Kill();
        Wait();
    }
}

int RunChild(const std::string &name, const std::vector<std::string> &args, DWORD ms)
{
    ChildProcess child;
    return child.Start(name, args) ? child.Wait(ms) : -2;
}

std::string ReadStream(FILE *stream)
{
    std::string text;
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, stream)) > 0)
        text.append(buf, n);
    return text;
}

bool Joined(HANDLE thread)
{
    bool ended = WaitForSingleObject(thread, kWaitBound) == WAIT_OBJECT_0;
    CloseHandle(thread);
    return ended;
}

DWORD ThreadResult(HANDLE thread)
{
    DWORD code = 0xFFFFFFFF;
    if (WaitForSingleObject(thread, kWaitBound) != WAIT_OBJECT_0)
        ADD_FAILURE() << "the thread did not end";
    else
        GetExitCodeThread(thread, &code);
    CloseHandle(thread);
    return code;
}

unsigned RunOnOtherThread(std::function<unsigned()> fn)
{
    HANDLE h = StartThread(std::move(fn));
    if (!h) {
        ADD_FAILURE() << "no thread";
        return 0xFFFFFFFF;
    }
    return ThreadResult(h);
}

bool Eventually(const std::function<bool()> &done)
{
    auto start = std::chrono::steady_clock::now();
    while (!done()) {
        if (MsSince(start) >= kWaitBound)
            return done();
        Sleep(1);
    }
    return true;
}

bool AwaitFile(const std::string &path)
{
    return Eventually([&] {
        struct stat st;
        return stat(path.c_str(), &st) == 0;
    });
}

DWORD ErrorOf(BOOL ok)
{
    return ok ? ERROR_SUCCESS : GetLastError();
}

long long MsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

std::string PrintedBy(const std::function<void()> &fn)
{
    fflush(stdout);
    ::testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

} // namespace tstest
