// The platform's kernel objects beside the standard library's equivalents:
// an event ping-pong between two threads, an uncontended mutex, and a wake
// of a thread blocked on 64 handles. Hand-offs are best compared with both
// threads on one CPU (taskset -c 0), where a wake-up does not cross cores.
#include <windows.h>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "baselines.h"

namespace {

// One iteration: A hands to B and B hands back (two hand-offs).
void EventPingPong(benchmark::State &state)
{
    HANDLE ping = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    HANDLE pong = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    int64_t n = state.max_iterations;
    std::thread partner([&] {
        for (int64_t i = 0; i < n; ++i) {
            WaitForSingleObject(ping, INFINITE);
            SetEvent(pong);
        }
    });
    for (auto _ : state) {
        SetEvent(ping);
        WaitForSingleObject(pong, INFINITE);
    }
    partner.join();
    CloseHandle(ping);
    CloseHandle(pong);
}
BENCHMARK(EventPingPong)->UseRealTime();

void CondVarPingPong(benchmark::State &state) { RunCondVarPingPong(state); }
BENCHMARK(CondVarPingPong)->UseRealTime();

void MutexAcquireRelease(benchmark::State &state)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    for (auto _ : state) {
        WaitForSingleObject(m, INFINITE);
        ReleaseMutex(m);
    }
    CloseHandle(m);
}
BENCHMARK(MutexAcquireRelease);

void CriticalSectionEnterLeave(benchmark::State &state)
{
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    for (auto _ : state) {
        EnterCriticalSection(&cs);
        LeaveCriticalSection(&cs);
    }
    DeleteCriticalSection(&cs);
}
BENCHMARK(CriticalSectionEnterLeave);

void StdRecursiveMutexLockUnlock(benchmark::State &state) { RunRecursiveMutexLockUnlock(state); }
BENCHMARK(StdRecursiveMutexLockUnlock);

// One iteration: a thread blocked on 64 events is woken by one of them
// and answers on an event of its own.
void WaitAny64Wake(benchmark::State &state)
{
    std::vector<HANDLE> events;
    for (int i = 0; i < 64; ++i)
        events.push_back(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    HANDLE ack = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    int64_t n = state.max_iterations;
    std::thread waiter([&] {
        for (int64_t i = 0; i < n; ++i) {
            WaitForMultipleObjects(64, events.data(), FALSE, INFINITE);
            SetEvent(ack);
        }
    });
    int64_t i = 0;
    for (auto _ : state) {
        SetEvent(events[i++ % 64]);
        WaitForSingleObject(ack, INFINITE);
    }
    waiter.join();
    for (HANDLE h : events)
        CloseHandle(h);
    CloseHandle(ack);
}
BENCHMARK(WaitAny64Wake)->UseRealTime();

// The same with the standard library: 64 flags under one mutex and a
// condition variable, and an answer back.
void CondVarAny64Wake(benchmark::State &state)
{
    std::mutex m;
    std::condition_variable cv, ackCv;
    bool flags[64] = {};
    bool ack = false;
    int64_t n = state.max_iterations;
    std::thread waiter([&] {
        for (int64_t i = 0; i < n; ++i) {
            std::unique_lock<std::mutex> lock(m);
            int found = -1;
            cv.wait(lock, [&] {
                for (int k = 0; k < 64; ++k)
                    if (flags[k]) {
                        found = k;
                        return true;
                    }
                return false;
            });
            flags[found] = false;
            ack = true;
            ackCv.notify_one();
        }
    });
    int64_t i = 0;
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock(m);
        flags[i++ % 64] = true;
        cv.notify_one();
        ackCv.wait(lock, [&] { return ack; });
        ack = false;
    }
    waiter.join();
}
BENCHMARK(CondVarAny64Wake)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
