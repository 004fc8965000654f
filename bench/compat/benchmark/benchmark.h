// A small harness with the part of Google Benchmark's interface that the
// benchmarks here use, for the Windows build (run under Wine), where no
// Windows build of Google Benchmark is at hand. Each benchmark runs with a
// growing iteration count until one run takes at least half a second, and
// its wall-clock time per iteration is reported. It takes the flags that the
// benchmark report passes to both builds (--benchmark_repetitions,
// --benchmark_filter, --benchmark_format=json) and reports the same
// statistic as Google Benchmark: real time per iteration, and with
// repetitions the mean, median and standard deviation of the runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace benchmark {

enum TimeUnit { kNanosecond, kMicrosecond, kMillisecond, kSecond };

class State {
public:
    State(int64_t iterations, std::vector<int64_t> args)
        : max_iterations(iterations), max_(iterations), args_(std::move(args))
    {
    }

    const int64_t max_iterations;

    struct Iterator {
        State *state;
        int64_t left;
        bool operator!=(const Iterator &) const
        {
            if (left > 0)
                return true;
            state->stop();
            return false;
        }
        void operator++() { --left; }
        int operator*() const { return 0; }
    };
    Iterator begin()
    {
        start();
        return Iterator{this, max_};
    }
    Iterator end() { return Iterator{this, 0}; }

    int64_t iterations() const { return max_; }
    int64_t range(size_t i = 0) const { return i < args_.size() ? args_[i] : 0; }
    void PauseTiming() { accumulated_ += std::chrono::steady_clock::now() - begin_; }
    void ResumeTiming() { begin_ = std::chrono::steady_clock::now(); }
    void SetItemsProcessed(int64_t n) { items_ = n; }
    void SetLabel(const std::string &label) { label_ = label; }
    void SkipWithError(const char *message) { error_ = message; }

    std::map<std::string, double> counters;

    // Results, for the runner.
    double seconds() const { return std::chrono::duration<double>(elapsed_).count(); }
    int64_t items() const { return items_; }
    const std::string &error() const { return error_; }
    const std::string &label() const { return label_; }

private:
    void start()
    {
        accumulated_ = {};
        begin_ = std::chrono::steady_clock::now();
    }
    // Timed spans between start, pauses and the end are added up.
    void stop() { elapsed_ = accumulated_ + (std::chrono::steady_clock::now() - begin_); }

    int64_t max_;
    std::vector<int64_t> args_;
    std::chrono::steady_clock::time_point begin_;
    std::chrono::steady_clock::duration elapsed_{}, accumulated_{};
    int64_t items_ = 0;
    std::string error_, label_;
};

namespace internal {

// One timed run of one benchmark with one argument set.
struct Result {
    std::string name;  // with its arguments: "Throughput/2"
    int repetition;
    int64_t iterations;
    double realTime;   // per iteration, in unit
    TimeUnit unit;
    double itemsPerSecond;
    std::map<std::string, double> counters;
    std::string label, error;
};

class Benchmark {
public:
    Benchmark(std::string name, std::function<void(State &)> fn) : name_(std::move(name)), fn_(std::move(fn)) {}
    Benchmark *Arg(int64_t a)
    {
        args_.push_back({a});
        return this;
    }
    Benchmark *Args(std::vector<int64_t> a)
    {
        args_.push_back(std::move(a));
        return this;
    }
    Benchmark *UseRealTime() { return this; }
    Benchmark *MeasureProcessCPUTime() { return this; }
    Benchmark *Unit(TimeUnit u)
    {
        unit_ = u;
        return this;
    }
    Benchmark *Iterations(int64_t n)
    {
        fixedIterations_ = n;
        return this;
    }
    Benchmark *MinTime(double seconds)
    {
        minTime_ = seconds;
        return this;
    }

    // Runs every argument set; appends one result per repetition.
    void run(int repetitions, std::vector<Result> &out) const;
    const std::string &name() const { return name_; }

private:
    std::string name_;
    std::function<void(State &)> fn_;
    std::vector<std::vector<int64_t>> args_;
    TimeUnit unit_ = kNanosecond;
    int64_t fixedIterations_ = 0;
    double minTime_ = 0.5;
};

Benchmark *Register(const char *name, std::function<void(State &)> fn);
int RunAll(int argc, char **argv);

} // namespace internal

template <class T>
inline void DoNotOptimize(T const &value)
{
    asm volatile("" : : "r,m"(value) : "memory");
}
inline void ClobberMemory() { asm volatile("" : : : "memory"); }

} // namespace benchmark

#define TSBENCH_CONCAT2(a, b) a##b
#define TSBENCH_CONCAT(a, b) TSBENCH_CONCAT2(a, b)
#define BENCHMARK(fn) \
    static ::benchmark::internal::Benchmark *TSBENCH_CONCAT(tsbench_, __LINE__) = \
        ::benchmark::internal::Register(#fn, fn)
#define BENCHMARK_MAIN() \
    int main(int argc, char **argv) { return ::benchmark::internal::RunAll(argc, argv); }
