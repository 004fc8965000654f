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
#include <sys/wait.h>
#include <unistd.h>

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

// Loads the library and opens the registry: a key made, a value written
// and read back. Null with the reason when that fails.
const char *LoadAndUseRegistry()
{
    void *lib = dlopen(TSUTIL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (!lib)
        return dlerror();
    auto create = reinterpret_cast<CreateKeyFn>(dlsym(lib, "RegCreateKeyExA"));
    auto set = reinterpret_cast<SetValueFn>(dlsym(lib, "RegSetValueExA"));
    auto query = reinterpret_cast<QueryValueFn>(dlsym(lib, "RegQueryValueExA"));
    auto close = reinterpret_cast<CloseKeyFn>(dlsym(lib, "RegCloseKey"));
    void *key = nullptr;
    uint32_t value = 7, type = 0, size = sizeof value;
    if (!create || !set || !query || !close ||
        create(kLocalMachine, "SOFTWARE\\TSUtil\\Bench", 0, nullptr, 0, kAllAccess, nullptr, &key, nullptr) != 0 ||
        set(key, "Value", 0, kDword, reinterpret_cast<unsigned char *>(&value), sizeof value) != 0 ||
        query(key, "Value", nullptr, &type, reinterpret_cast<unsigned char *>(&value), &size) != 0)
        return "the registry calls failed";
    close(key);
    return nullptr;
}

// One run: the growth is measured once, in a process that has not loaded
// the library before, on a machine whose registry exists: another process
// made it first, as the first program on a machine does once.
void LoadLibraryAndOpenRegistry(benchmark::State &state)
{
    pid_t first = fork();
    if (first == 0)
        _exit(LoadAndUseRegistry() ? 1 : 0);
    int status = 0;
    if (first < 0 || waitpid(first, &status, 0) != first || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        state.SkipWithError("the first process could not make the registry");
        return;
    }
    long rss0 = StatusKib("VmRSS"), anon0 = StatusKib("RssAnon");
    for (auto _ : state) {
        if (const char *failed = LoadAndUseRegistry()) {
            state.SkipWithError(failed);
            return;
        }
    }
    state.counters["rss_total_kib"] = static_cast<double>(StatusKib("VmRSS") - rss0);
    state.counters["private_total_kib"] = static_cast<double>(StatusKib("RssAnon") - anon0);
}
BENCHMARK(LoadLibraryAndOpenRegistry)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
