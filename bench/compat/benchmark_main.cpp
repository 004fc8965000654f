// The runner of the small benchmark harness (see benchmark/benchmark.h).
#include "benchmark/benchmark.h"

#include <cstdio>
#include <memory>

namespace benchmark {
namespace internal {

namespace {

std::vector<std::unique_ptr<Benchmark>> &registry()
{
    static std::vector<std::unique_ptr<Benchmark>> r;
    return r;
}

const char *unitName(TimeUnit u)
{
    switch (u) {
    case kMicrosecond: return "us";
    case kMillisecond: return "ms";
    case kSecond: return "s";
    default: return "ns";
    }
}

double unitScale(TimeUnit u)
{
    switch (u) {
    case kMicrosecond: return 1e6;
    case kMillisecond: return 1e3;
    case kSecond: return 1;
    default: return 1e9;
    }
}

} // namespace

Benchmark *Register(const char *name, std::function<void(State &)> fn)
{
    registry().push_back(std::make_unique<Benchmark>(name, std::move(fn)));
    return registry().back().get();
}

void Benchmark::run() const
{
    std::vector<std::vector<int64_t>> argSets = args_.empty() ? std::vector<std::vector<int64_t>>{{}} : args_;
    for (const std::vector<int64_t> &args : argSets) {
        std::string name = name_;
        for (int64_t a : args)
            name += "/" + std::to_string(a);
        int64_t n = fixedIterations_ ? fixedIterations_ : 1;
        for (;;) {
            State state(n, args);
            fn_(state);
            if (!state.error().empty()) {
                std::printf("%-48s ERROR: %s\n", name.c_str(), state.error().c_str());
                break;
            }
            double secs = state.seconds();
            if (fixedIterations_ || secs >= minTime_ || n >= (int64_t(1) << 40)) {
                double perIter = secs / static_cast<double>(n) * unitScale(unit_);
                std::printf("%-48s %12.1f %s %12lld", name.c_str(), perIter, unitName(unit_),
                            static_cast<long long>(n));
                if (state.items())
                    std::printf("  items_per_second=%.4gM/s", state.items() / secs / 1e6);
                for (const auto &c : state.counters)
                    std::printf("  %s=%.4g", c.first.c_str(), c.second);
                if (!state.label().empty())
                    std::printf("  %s", state.label().c_str());
                std::printf("\n");
                break;
            }
            double grow = secs > 0 ? minTime_ * 1.4 / secs : 10;
            n = static_cast<int64_t>(n * (grow > 10 ? 10 : (grow < 2 ? 2 : grow)));
        }
    }
}

int RunAll()
{
    std::printf("%-48s %15s %12s\n", "Benchmark", "Time", "Iterations");
    for (const auto &b : registry())
        b->run();
    return 0;
}

} // namespace internal
} // namespace benchmark


