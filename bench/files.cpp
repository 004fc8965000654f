// Opening and closing a file through CreateFileA, whose share modes hold
// between processes and within one, beside the bare system calls (the
// floor, bench_floors). The file lies in the current folder: on POSIX run it
// with a machine root of its own (TSUTIL_ROOT=$(mktemp -d)) and from a
// scratch folder.
#include <windows.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

const char kPath[] = "bench_open.tmp";

void OpenClose(benchmark::State &state, DWORD share, const char *path = kPath)
{
    for (auto _ : state) {
        HANDLE h = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_ALWAYS,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h == INVALID_HANDLE_VALUE) {
            state.SkipWithError(("CreateFileA failed with " + std::to_string(GetLastError())).c_str());
            return;
        }
        CloseHandle(h);
    }
    DeleteFileA(path);
}

// A writer that lets others read: the share check has work to do.
void CreateFileCloseHandle(benchmark::State &state) { OpenClose(state, FILE_SHARE_READ); }
BENCHMARK(CreateFileCloseHandle)->Unit(benchmark::kMicrosecond);

// An open that allows everything: nothing to check against others.
void CreateFileCloseHandleShareAll(benchmark::State &state)
{
    OpenClose(state, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
}
BENCHMARK(CreateFileCloseHandleShareAll)->Unit(benchmark::kMicrosecond);

// A file on drive C:, where the layer also makes sure that no symbolic
// link leads the path out of the machine root.
void CreateFileCloseHandleOnC(benchmark::State &state) { OpenClose(state, FILE_SHARE_READ, "C:\\bench_open.tmp"); }
BENCHMARK(CreateFileCloseHandleOnC)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
