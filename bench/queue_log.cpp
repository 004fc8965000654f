// SngLinkQue beside a queue of the standard library's mutex and condition
// variable, with 1, 2 and 4 consumers; and LogFile::Log beside fwrite and
// fflush of the same bytes.
//
// Queue: one iteration is one object through the queue, from the insertion
// by the benchmark's thread to its take by a consumer; the last iteration
// closes the queue and waits for the consumers to drain it, so every run
// counts delivered objects. The consumers take with GetTimedWait, which
// prints nothing (GetWait writes a line to standard output before each
// block, which would swamp the report).
#include "LogFile.h"
#include "SngLQue.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <stdio.h>
#include <string.h>
#include <thread>
#include <vector>

namespace {

class Token : public CObject {};

void SngLinkQueThroughput(benchmark::State &state)
{
    const int consumers = static_cast<int>(state.range(0));
    SngLinkQue q;
    std::atomic<bool> producerDone{false};
    std::atomic<int64_t> taken{0}, timeouts{0};
    Token token;
    std::vector<std::thread> threads;
    for (int c = 0; c < consumers; ++c)
        threads.emplace_back([&] {
            int64_t mine = 0;
            for (;;) {
                unsigned long waitResult = 0;
                if (q.GetTimedWait(1, 0, waitResult)) {
                    ++mine;
                    continue;
                }
                if (waitResult == WAIT_TIMEOUT)
                    ++timeouts; // a second without a wake-up while objects came
                if (producerDone.load()) {
                    unsigned int remaining = 0;
                    while (q.GetWait(remaining, 1) || remaining)
                        ++mine;
                    break;
                }
            }
            taken += mine;
        });
    const int64_t n = state.max_iterations;
    int64_t i = 0;
    for (auto _ : state) {
        q.InsertBroadcast(&token);
        if (++i == n) {
            producerDone = true;
            q.CloseBroadcast();
            for (auto &t : threads)
                t.join();
        }
    }
    if (taken.load() != n)
        state.SkipWithError("objects lost or taken twice");
    state.counters["timeouts"] = static_cast<double>(timeouts.load());
    state.SetItemsProcessed(n);
}
BENCHMARK(SngLinkQueThroughput)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();

// The same hand-over through a deque under std::mutex and
// std::condition_variable. Without broadcast one consumer is woken per
// object, after the lock is let go; with it every waiting consumer is woken
// under the lock, as SngLinkQue wakes, to show what that costs.
void StdQueueHandOver(benchmark::State &state, bool broadcast)
{
    const int consumers = static_cast<int>(state.range(0));
    std::mutex m;
    std::condition_variable cv;
    std::deque<CObject *> items;
    bool closed = false;
    std::atomic<int64_t> taken{0};
    Token token;
    std::vector<std::thread> threads;
    for (int c = 0; c < consumers; ++c)
        threads.emplace_back([&] {
            int64_t mine = 0;
            std::unique_lock<std::mutex> lock(m);
            for (;;) {
                cv.wait(lock, [&] { return !items.empty() || closed; });
                if (items.empty())
                    break;
                items.pop_front();
                ++mine;
            }
            taken += mine;
        });
    const int64_t n = state.max_iterations;
    int64_t i = 0;
    for (auto _ : state) {
        {
            std::lock_guard<std::mutex> lock(m);
            items.push_back(&token);
            if (broadcast)
                cv.notify_all();
        }
        if (!broadcast)
            cv.notify_one();
        if (++i == n) {
            {
                std::lock_guard<std::mutex> lock(m);
                closed = true;
            }
            cv.notify_all();
            for (auto &t : threads)
                t.join();
        }
    }
    if (taken.load() != n)
        state.SkipWithError("objects lost or taken twice");
    state.SetItemsProcessed(n);
}

void StdQueueThroughput(benchmark::State &state) { StdQueueHandOver(state, false); }
BENCHMARK(StdQueueThroughput)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();

void StdQueueBroadcastThroughput(benchmark::State &state) { StdQueueHandOver(state, true); }
BENCHMARK(StdQueueBroadcastThroughput)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();

const char kRecord[] = "2026-11-22 21:40:29 worker 3: request 12345 done in 17 ms\n";
const char kLogDir[] = "tsbench-logs";

// Log of the ring mode with the lock: the date is read at every record.
void LogFileLog(benchmark::State &state)
{
    LogFile log(kLogDir, static_cast<int>(state.range(0)));
    try {
        log.Open("bench", 1);
    } catch (int error) {
        state.SkipWithError("the log cannot be opened");
        return;
    }
    for (auto _ : state)
        log.Log(kRecord);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LogFileLog)->Arg(0)->Arg(1);

void FwriteFflush(benchmark::State &state)
{
    CreateDirectoryA(kLogDir, nullptr);
    FILE *f = fopen("tsbench-logs/plain.log", "w");
    if (!f) {
        state.SkipWithError("the file cannot be opened");
        return;
    }
    const size_t bytes = strlen(kRecord) + 1; // what Log writes
    for (auto _ : state) {
        fwrite(kRecord, bytes, 1, f);
        fflush(f);
    }
    fclose(f);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FwriteFflush);

} // namespace

BENCHMARK_MAIN();
