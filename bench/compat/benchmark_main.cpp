// The runner of the small benchmark harness (see benchmark/benchmark.h).
#include "benchmark/benchmark.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>

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

struct Options {
    int repetitions = 1;
    bool aggregatesOnly = false;
    bool json = false;   // JSON on standard output
    std::string out;     // JSON to this file, the console text on standard output
    std::string filter;
};

// Takes Google Benchmark's spelling of the flags; anything else is refused,
// so a typing error never runs a different set than the one asked for.
bool parseOptions(int argc, char **argv, Options &o)
{
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        auto value = [&](const char *flag) -> const char * {
            size_t n = std::strlen(flag);
            return std::strncmp(a, flag, n) == 0 && a[n] == '=' ? a + n + 1 : nullptr;
        };
        if (const char *v = value("--benchmark_repetitions")) {
            o.repetitions = std::atoi(v);
            if (o.repetitions < 1) {
                std::fprintf(stderr, "bad --benchmark_repetitions: %s\n", v);
                return false;
            }
        } else if (const char *v = value("--benchmark_format")) {
            if (std::strcmp(v, "json") != 0 && std::strcmp(v, "console") != 0) {
                std::fprintf(stderr, "unknown --benchmark_format: %s\n", v);
                return false;
            }
            o.json = std::strcmp(v, "json") == 0;
        } else if (const char *v = value("--benchmark_out")) {
            o.out = v;
        } else if (const char *v = value("--benchmark_out_format")) {
            if (std::strcmp(v, "json") != 0) {
                std::fprintf(stderr, "only json is written to --benchmark_out, not %s\n", v);
                return false;
            }
        } else if (const char *v = value("--benchmark_filter")) {
            o.filter = v;
        } else if (const char *v = value("--benchmark_report_aggregates_only")) {
            o.aggregatesOnly = std::strcmp(v, "true") == 0;
        } else {
            std::fprintf(stderr, "unknown flag: %s\n", a);
            return false;
        }
    }
    return true;
}

std::string jsonEscape(const std::string &s)
{
    std::string out;
    for (char c : s) {
        if (c == '"' || c == '\\')
            out += '\\';
        if (static_cast<unsigned char>(c) < 0x20)
            continue;
        out += c;
    }
    return out;
}

void printConsole(const Result &r)
{
    if (!r.error.empty()) {
        std::printf("%-48s ERROR: %s\n", r.name.c_str(), r.error.c_str());
        return;
    }
    std::printf("%-48s %12.1f %s %12lld", r.name.c_str(), r.realTime, unitName(r.unit),
                static_cast<long long>(r.iterations));
    if (r.itemsPerSecond)
        std::printf("  items_per_second=%.4gM/s", r.itemsPerSecond / 1e6);
    for (const auto &c : r.counters)
        std::printf("  %s=%.4g", c.first.c_str(), c.second);
    if (!r.label.empty())
        std::printf("  %s", r.label.c_str());
    std::printf("\n");
}

// One entry of the "benchmarks" array, in Google Benchmark's field names.
void printJson(FILE *f, const Result &r, const char *aggregate, double realTime, bool &first)
{
    std::string name = r.name + (aggregate ? std::string("_") + aggregate : "");
    std::fprintf(f, "%s    {\n", first ? "" : ",\n");
    first = false;
    std::fprintf(f, "      \"name\": \"%s\",\n      \"run_name\": \"%s\",\n", jsonEscape(name).c_str(),
                jsonEscape(r.name).c_str());
    std::fprintf(f, "      \"run_type\": \"%s\",\n", aggregate ? "aggregate" : "iteration");
    if (aggregate)
        std::fprintf(f, "      \"aggregate_name\": \"%s\",\n", aggregate);
    else
        std::fprintf(f, "      \"repetition_index\": %d,\n", r.repetition);
    if (!r.error.empty())
        std::fprintf(f, "      \"error_occurred\": true,\n      \"error_message\": \"%s\",\n",
                    jsonEscape(r.error).c_str());
    std::fprintf(f, "      \"iterations\": %lld,\n      \"real_time\": %.6g,\n      \"cpu_time\": %.6g,\n"
                "      \"time_unit\": \"%s\"",
                static_cast<long long>(r.iterations), realTime, realTime, unitName(r.unit));
    for (const auto &c : r.counters)
        std::fprintf(f, ",\n      \"%s\": %.6g", jsonEscape(c.first).c_str(), c.second);
    std::fprintf(f, "\n    }");
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

} // namespace

Benchmark *Register(const char *name, std::function<void(State &)> fn)
{
    registry().push_back(std::make_unique<Benchmark>(name, std::move(fn)));
    return registry().back().get();
}

void Benchmark::run(int repetitions, std::vector<Result> &out) const
{
    std::vector<std::vector<int64_t>> argSets = args_.empty() ? std::vector<std::vector<int64_t>>{{}} : args_;
    for (const std::vector<int64_t> &args : argSets) {
        std::string name = name_;
        for (int64_t a : args)
            name += "/" + std::to_string(a);
        for (int rep = 0; rep < repetitions; ++rep) {
            int64_t n = fixedIterations_ ? fixedIterations_ : 1;
            for (;;) {
                State state(n, args);
                fn_(state);
                Result r{name, rep, n, 0, unit_, 0, state.counters, state.label(), state.error()};
                double secs = state.seconds();
                if (!r.error.empty() || fixedIterations_ || secs >= minTime_ || n >= (int64_t(1) << 40)) {
                    r.realTime = secs / static_cast<double>(n) * unitScale(unit_);
                    r.itemsPerSecond = state.items() && secs > 0 ? state.items() / secs : 0;
                    out.push_back(r);
                    break;
                }
                double grow = secs > 0 ? minTime_ * 1.4 / secs : 10;
                n = static_cast<int64_t>(n * (grow > 10 ? 10 : (grow < 2 ? 2 : grow)));
            }
            if (!out.back().error.empty())
                break;
        }
    }
}

int RunAll(int argc, char **argv)
{
    Options o;
    if (!parseOptions(argc, argv, o))
        return 2;
    std::regex filter(o.filter.empty() ? ".*" : o.filter);
    FILE *json = o.json ? stdout : nullptr;
    if (!o.out.empty() && !(json = std::fopen(o.out.c_str(), "w"))) {
        std::fprintf(stderr, "cannot write %s\n", o.out.c_str());
        return 2;
    }
    bool console = json != stdout;

    if (json)
        std::fprintf(json, "{\n  \"context\": {\"library_build_type\": \"release\", \"harness\": \"tsutil-compat\"},\n"
                           "  \"benchmarks\": [\n");
    if (console)
        std::printf("%-48s %15s %12s\n", "Benchmark", "Time", "Iterations");
    bool first = true;
    auto emit = [&](const Result &r, const char *aggregate, double realTime) {
        if (json)
            printJson(json, r, aggregate, realTime, first);
        if (console) {
            Result shown = r;
            if (aggregate)
                shown.name += std::string("_") + aggregate;
            shown.realTime = realTime;
            printConsole(shown);
        }
    };
    for (const auto &b : registry()) {
        if (!std::regex_search(b->name(), filter))
            continue;
        std::vector<Result> results;
        b->run(o.repetitions, results);
        // Runs of one argument set stand together; aggregates follow them.
        for (size_t i = 0; i < results.size();) {
            size_t j = i;
            std::vector<double> times;
            for (; j < results.size() && results[j].name == results[i].name; ++j) {
                times.push_back(results[j].realTime);
                if (!(o.aggregatesOnly && o.repetitions > 1) || !results[j].error.empty())
                    emit(results[j], nullptr, results[j].realTime);
            }
            if (o.repetitions > 1 && results[i].error.empty()) {
                double mean = 0, var = 0;
                for (double t : times)
                    mean += t / times.size();
                for (double t : times)
                    var += (t - mean) * (t - mean) / (times.size() - 1);
                emit(results[i], "mean", mean);
                emit(results[i], "median", median(times));
                emit(results[i], "stddev", std::sqrt(var));
            }
            i = j;
        }
        std::fflush(stdout);
    }
    if (json) {
        std::fprintf(json, "\n  ]\n}\n");
        if (json != stdout && std::fclose(json) != 0) {
            std::fprintf(stderr, "cannot write %s\n", o.out.c_str());
            return 2;
        }
    }
    return 0;
}

} // namespace internal
} // namespace benchmark
