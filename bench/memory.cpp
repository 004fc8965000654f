// What a process pays in resident memory for the library: the growth of
// VmRSS (and of its private part, RssAnon) in /proc/self/status when the
// library is loaded and its registry opened, a value written and read back.
// The program itself does not link the library: it loads it with dlopen,
// so that its baseline is a process without it. POSIX only; give the run a
// machine root of its own (TSUTIL_ROOT=$(mktemp -d)).
#include <benchmark/benchmark.h>

#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

// A field of /proc/self/status in KiB, -1 when it cannot be read.
long StatusKib(const char *field)
{
    FILE *f = fopen("/proc/self/status", "r");
    if (!f)
        return -1;
    long kib = -1;
    size_t n = strlen(field);
    char line[256];
    while (fgets(line, sizeof line, f))
        if (strncmp(line, field, n) == 0 && line[n] == ':')
            kib = atol(line + n + 1);
    fclose(f);
    return kib;
}

// The registry calls, as the library exports them (HKEY is a pointer).
using CreateKeyFn = long (*)(void *, const char *, uint32_t, char *, uint32_t, uint32_t, void *, void **, uint32_t *);
using SetValueFn = long (*)(void *, const char *, uint32_t, uint32_t, const unsigned char *, uint32_t);
using QueryValueFn = long (*)(void *, const char *, uint32_t *, uint32_t *, unsigned char *, uint32_t *);
using CloseKeyFn = long (*)(void *);

void *const kLocalMachine = reinterpret_cast<void *>(static_cast<uintptr_t>(0x80000002));
constexpr uint32_t kAllAccess = 0xF003F, kDword = 4;

// One run: the growth is measured once, in a process that has not loaded
// the library before.
void LoadLibraryAndOpenRegistry(benchmark::State &state)
{
    long rss0 = StatusKib("VmRSS"), anon0 = StatusKib("RssAnon");
    long rssLoaded = 0;
    for (auto _ : state) {
        void *lib = dlopen(TSUTIL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (!lib) {
            state.SkipWithError(dlerror());
            return;
        }
        rssLoaded = StatusKib("VmRSS");
        auto create = reinterpret_cast<CreateKeyFn>(dlsym(lib, "RegCreateKeyExA"));
        auto set = reinterpret_cast<SetValueFn>(dlsym(lib, "RegSetValueExA"));
        auto query = reinterpret_cast<QueryValueFn>(dlsym(lib, "RegQueryValueExA"));
        auto close = reinterpret_cast<CloseKeyFn>(dlsym(lib, "RegCloseKey"));
        void *key = nullptr;
        uint32_t value = 7, type = 0, size = sizeof value;
        if (!create || !set || !query || !close ||
            create(kLocalMachine, "SOFTWARE\\TSUtil\\Bench", 0, nullptr, 0, kAllAccess, nullptr, &key, nullptr) != 0 ||
            set(key, "Value", 0, kDword, reinterpret_cast<unsigned char *>(&value), sizeof value) != 0 ||
            query(key, "Value", nullptr, &type, reinterpret_cast<unsigned char *>(&value), &size) != 0) {
            state.SkipWithError("the registry calls failed");
            return;
        }
        close(key);
    }
    state.counters["rss_load_kib"] = static_cast<double>(rssLoaded - rss0);
    state.counters["rss_total_kib"] = static_cast<double>(StatusKib("VmRSS") - rss0);
    state.counters["private_total_kib"] = static_cast<double>(StatusKib("RssAnon") - anon0);
}
BENCHMARK(LoadLibraryAndOpenRegistry)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
