// A service's worker thread from its start to its end: ServiceCreateThread
// until the thread's Run is entered and the thread has ended, its guard
// made and dropped on the way; beside it the bare platform thread, started
// with _beginthreadex, entered and joined.
#include <SvcThrd.h>

#include <benchmark/benchmark.h>

#include <process.h>

namespace {

// Says that Run was entered, and ends.
class SignallingThread : public ServiceThread {
public:
    explicit SignallingThread(HANDLE entered) : entered_(entered) { m_bAutoDelete = FALSE; }
    int Run() override
    {
        SetEvent(entered_);
        return ExitInstance();
    }

private:
    HANDLE entered_;
};

unsigned __stdcall SignalEntered(void *entered)
{
    SetEvent(static_cast<HANDLE>(entered));
    return 0;
}

// Waits for Run (or the function) to be entered, then for the thread's end.
bool EnteredAndEnded(HANDLE entered, HANDLE thread)
{
    return WaitForSingleObject(entered, 10000) == WAIT_OBJECT_0 && WaitForSingleObject(thread, 10000) == WAIT_OBJECT_0;
}

void ServiceCreateThreadToRunAndEnd(benchmark::State &state)
{
    HANDLE entered = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    for (auto _ : state) {
        SignallingThread *thread = new SignallingThread(entered);
        if (!thread->ServiceCreateThread(0, 0, nullptr) || !EnteredAndEnded(entered, thread->m_hThread)) {
            state.SkipWithError("the thread did not start, run or end");
            delete thread;
            break;
        }
        delete thread;
    }
    CloseHandle(entered);
}
BENCHMARK(ServiceCreateThreadToRunAndEnd)->UseRealTime();

void BeginThreadExToEntryAndJoin(benchmark::State &state)
{
    HANDLE entered = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    for (auto _ : state) {
        HANDLE thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, SignalEntered, entered, 0, nullptr));
        if (!thread || !EnteredAndEnded(entered, thread)) {
            state.SkipWithError("the thread did not start, run or end");
            if (thread)
                CloseHandle(thread);
            break;
        }
        CloseHandle(thread);
    }
    CloseHandle(entered);
}
BENCHMARK(BeginThreadExToEntryAndJoin)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
