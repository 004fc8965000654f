// The end of a thread: the one place in the framework where the platforms
// differ. On POSIX the destructors of C++ thread-local objects run as a
// thread ends. GCC's win32 thread model, which the Windows build uses, does
// not run them there, so on Windows a fiber-local slot's callback, which the
// system calls on each ending thread, does the work.
#include "threadend.h"

#include <windows.h>

#include <assert.h>

#ifdef _WIN32

namespace {

void WINAPI RunAtEnd(void *atEnd)
{
    if (atEnd)
        reinterpret_cast<void (*)()>(atEnd)();
}

DWORD EndSlot()
{
    static const DWORD slot = FlsAlloc(RunAtEnd);
    assert(slot != FLS_OUT_OF_INDEXES && "the framework takes one slot");
    return slot;
}

} // namespace

void afx::CallAtThreadEnd(void (*atEnd)())
{
    [[maybe_unused]] BOOL set = FlsSetValue(EndSlot(), reinterpret_cast<void *>(atEnd));
    assert(set && "the framework's slot takes a value on every thread");
}

#else

namespace {

struct EndCall {
    void (*atEnd)() = nullptr;
    ~EndCall()
    {
        if (atEnd)
            atEnd();
    }
};

thread_local EndCall endCall;

} // namespace

void afx::CallAtThreadEnd(void (*atEnd)())
{
    endCall.atEnd = atEnd;
}

#endif
