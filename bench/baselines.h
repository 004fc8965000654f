// Baselines that more than one bench program runs beside its own subject
// (standard-library classes, bare platform calls), written once so every
// program measures the same thing.
#pragma once

#include <windows.h>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

// One iteration: an uncontended lock and unlock of std::recursive_mutex.
inline void RunRecursiveMutexLockUnlock(benchmark::State &state)
{
    std::recursive_mutex m;
    for (auto _ : state) {
        m.lock();
        m.unlock();
    }
}

// One iteration: the main thread hands the turn to a partner thread through
// std::condition_variable and the partner hands it back (two hand-offs).
inline void RunCondVarPingPong(benchmark::State &state)
{
    std::mutex m;
    std::condition_variable cv;
    int turn = 0; // 0: main's, 1: partner's
    int64_t n = state.max_iterations;
    std::thread partner([&] {
        for (int64_t i = 0; i < n; ++i) {
            std::unique_lock<std::mutex> lock(m);
            cv.wait(lock, [&] { return turn == 1; });
            turn = 0;
            cv.notify_one();
        }
    });
    for (auto _ : state) {
        std::unique_lock<std::mutex> lock(m);
        turn = 1;
        cv.notify_one();
        cv.wait(lock, [&] { return turn == 0; });
    }
    partner.join();
}

// One iteration: a bare RegQueryValueExA of the REG_DWORD "value" of the
// open key k.
inline void RunRegQueryDword(benchmark::State &state, HKEY k)
{
    for (auto _ : state) {
        DWORD out = 0, cb = 4;
        if (RegQueryValueExA(k, "value", nullptr, nullptr, reinterpret_cast<BYTE *>(&out), &cb) != ERROR_SUCCESS)
            state.SkipWithError("query failed");
        benchmark::DoNotOptimize(out);
    }
}
