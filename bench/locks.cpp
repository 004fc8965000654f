// The library's locks and interlocks beside standard-library equivalents in
// the same run: Mutex against std::recursive_mutex, Cond against
// std::condition_variable, an interlock cycle against a condition-variable
// hand-off doing the same two hand-offs, and multi-lock waits over 64
// interlocks. Hand-offs are best compared with both threads on one CPU
// (taskset -c 0), where a wake-up does not cross cores.
#include <MultiLck.h>
#include <Mutex.h>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "baselines.h"

namespace {

void MutexLockUnlock(benchmark::State &state)
{
    Mutex m;
    for (auto _ : state) {
        m.lock();
        m.unlock();
    }
}
BENCHMARK(MutexLockUnlock);

void StdRecursiveMutexLockUnlock(benchmark::State &state) { RunRecursiveMutexLockUnlock(state); }
BENCHMARK(StdRecursiveMutexLockUnlock);

// One iteration: the main thread hands the turn to the partner and the
// partner hands it back, each through a signal and a wait under the lock.
void CondPingPong(benchmark::State &state)
{
    Mutex m;
    Cond cv;
    int turn = 0; // 0: main's, 1: partner's
    int64_t n = state.max_iterations;
    std::thread partner([&] {
        for (int64_t i = 0; i < n; ++i) {
            m.lock();
            while (turn != 1)
                cv.wait(m);
            turn = 0;
            cv.signal();
            m.unlock();
        }
    });
    for (auto _ : state) {
        m.lock();
        turn = 1;
        cv.signal();
        while (turn != 0)
            cv.wait(m);
        m.unlock();
    }
    partner.join();
}
BENCHMARK(CondPingPong)->UseRealTime();

void StdCondVarPingPong(benchmark::State &state) { RunCondVarPingPong(state); }
BENCHMARK(StdCondVarPingPong)->UseRealTime();

// One full interlock cycle across two threads: request, detection,
// notification, the parent's wait, reset. The request is auto-reset, so
// the child's next detection waits for the next request.
void InterlockCycle(benchmark::State &state)
{
    const unsigned long forever = 0xFFFFFFFF;
    ParentInterlockSepThread parent(FALSE);
    ChildInterlockSepThread *child = parent.SpawnChildInterlockSepThread();
    int64_t n = state.max_iterations;
    std::thread worker([&] {
        for (int64_t i = 0; i < n; ++i) {
            child->DetectRequest(forever);
            child->NotifyStateReached();
        }
    });
    for (auto _ : state) {
        parent.MakeRequest();
        parent.WaitForResponse(forever);
        parent.ResetInterlock();
    }
    worker.join();
}
BENCHMARK(InterlockCycle)->UseRealTime();

// The same two hand-offs with a mutex, a condition variable and two flags.
void StdCondVarHandshake(benchmark::State &state)
{
    std::mutex m;
    std::condition_variable cv;
    bool request = false, response = false;
    int64_t n = state.max_iterations;
    std::thread worker([&] {
        for (int64_t i = 0; i < n; ++i) {
            std::unique_lock<std::mutex> lock(m);
            cv.wait(lock, [&] { return request; });
            request = false;
            response = true;
            cv.notify_one();
        }
    });
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock(m);
        request = true;
        cv.notify_one();
        cv.wait(lock, [&] { return response; });
        response = false;
    }
    worker.join();
}
BENCHMARK(StdCondVarHandshake)->UseRealTime();

struct SixtyFourPairs {
    SixtyFourPairs()
    {
        for (int i = 0; i < 64; ++i) {
            owned.emplace_back(new ParentInterlockSepThread(FALSE));
            parents.push_back(owned.back().get());
            children.push_back(owned.back()->SpawnChildInterlockSepThread());
        }
        parents.push_back(nullptr);
        children.push_back(nullptr);
    }
    std::vector<std::unique_ptr<ParentInterlockSepThread>> owned;
    std::vector<ParentInterlockSepThread *> parents;
    std::vector<ChildInterlockSepThread *> children;
};

// ParentMultiLockSepThread::WaitForResponse over 64 parents when the one
// response there is that of the last parent: the cost of the look itself.
void ParentMultiLock64Poll(benchmark::State &state)
{
    SixtyFourPairs pairs;
    ParentMultiLockSepThread lock(pairs.parents.data());
    pairs.children[63]->NotifyStateReached();
    ParentInterlock *found = nullptr;
    const unsigned long now = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(lock.WaitForResponse(now, FALSE, &found));
}
BENCHMARK(ParentMultiLock64Poll);

// One iteration: a request to one of 64 parents, which a worker waiting in
// a ChildMultiLockSepThread over the 64 children detects and answers; the
// parent side waits in ParentMultiLockSepThread::WaitForResponse over the
// 64 parents and resets the one that answered.
void ParentMultiLock64Wake(benchmark::State &state)
{
    SixtyFourPairs pairs;
    ParentMultiLockSepThread parents(pairs.parents.data());
    ChildMultiLockSepThread children(pairs.children.data(), FALSE);
    const unsigned long forever = 0xFFFFFFFF;
    int64_t n = state.max_iterations;
    std::thread worker([&] {
        ChildInterlock *child = nullptr;
        for (int64_t i = 0; i < n; ++i)
            if (children.DetectRequest(&child, forever))
                child->NotifyStateReached();
    });
    int64_t i = 0;
    ParentInterlock *found = nullptr;
    for (auto _ : state) {
        pairs.parents[i++ % 64]->MakeRequest();
        if (parents.WaitForResponse(forever, FALSE, &found))
            found->ResetInterlock();
    }
    worker.join();
}
BENCHMARK(ParentMultiLock64Wake)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
