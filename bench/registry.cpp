// The registry: a REG_DWORD read through an open key (with nothing changed
// since the last read, and right after a change), a REG_DWORD write, and an
// open and close of a three-level key. Beside them, where the store is
// SQLite, the floor of a write that survives the writer's death: a bare
// SQLite autocommit update in WAL mode with the same synchronous setting.
//
// Works below HKCU\Software\TSUtilBench, removed at the end; on POSIX run
// it with a machine root of its own (TSUTIL_ROOT=$(mktemp -d)).
#include <windows.h>

#include <benchmark/benchmark.h>

#include "baselines.h"

#include <string>

#if TSUTIL_BENCH_SQLITE
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#endif

namespace {

const char *const kBase = "Software\\TSUtilBench";
const char *const kThree = "Software\\TSUtilBench\\Three";

HKEY OpenBench()
{
    HKEY k = nullptr;
    RegCreateKeyExA(HKEY_CURRENT_USER, kThree, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr);
    return k;
}

void RemoveBench()
{
    RegDeleteKeyA(HKEY_CURRENT_USER, kThree);
    RegDeleteKeyA(HKEY_CURRENT_USER, kBase);
}

void BM_RegQueryDword(benchmark::State &state)
{
    HKEY k = OpenBench();
    DWORD v = 42;
    RegSetValueExA(k, "value", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4);
    RunRegQueryDword(state, k);
    RegCloseKey(k);
}
BENCHMARK(BM_RegQueryDword);

// Every read follows a write (not timed), so nothing read before is reused.
void BM_RegQueryDwordAfterChange(benchmark::State &state)
{
    HKEY k = OpenBench();
    DWORD v = 42;
    RegSetValueExA(k, "value", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4);
    for (auto _ : state) {
        state.PauseTiming();
        ++v;
        RegSetValueExA(k, "other", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4);
        state.ResumeTiming();
        DWORD out = 0, cb = 4;
        if (RegQueryValueExA(k, "value", nullptr, nullptr, reinterpret_cast<BYTE *>(&out), &cb) != ERROR_SUCCESS)
            state.SkipWithError("query failed");
        benchmark::DoNotOptimize(out);
    }
    RegCloseKey(k);
}
BENCHMARK(BM_RegQueryDwordAfterChange);

void BM_RegSetDword(benchmark::State &state)
{
    HKEY k = OpenBench();
    DWORD v = 0;
    for (auto _ : state) {
        ++v;
        if (RegSetValueExA(k, "written", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4) != ERROR_SUCCESS)
            state.SkipWithError("set failed");
    }
    RegCloseKey(k);
}
BENCHMARK(BM_RegSetDword);

void BM_RegOpenCloseThreeLevels(benchmark::State &state)
{
    RegCloseKey(OpenBench());
    for (auto _ : state) {
        HKEY k;
        if (RegOpenKeyExA(HKEY_CURRENT_USER, kThree, 0, KEY_READ, &k) != ERROR_SUCCESS)
            state.SkipWithError("open failed");
        RegCloseKey(k);
    }
    RemoveBench();
}
BENCHMARK(BM_RegOpenCloseThreeLevels);

#if TSUTIL_BENCH_SQLITE
void BM_SqliteAutocommitUpdateWal(benchmark::State &state)
{
    std::string path = (std::filesystem::temp_directory_path() / "tsutil-bench-floor.db").string();
    std::remove(path.c_str());
    sqlite3 *db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                 "CREATE TABLE t(k INTEGER PRIMARY KEY, v INTEGER); INSERT INTO t VALUES(1, 0);",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt *update = nullptr;
    sqlite3_prepare_v2(db, "UPDATE t SET v=?1 WHERE k=1", -1, &update, nullptr);
    int64_t v = 0;
    for (auto _ : state) {
        sqlite3_bind_int64(update, 1, ++v);
        if (sqlite3_step(update) != SQLITE_DONE)
            state.SkipWithError("update failed");
        sqlite3_reset(update);
    }
    sqlite3_finalize(update);
    sqlite3_close(db);
    for (const char *suffix : {"", "-wal", "-shm"})
        std::remove((path + suffix).c_str());
}
BENCHMARK(BM_SqliteAutocommitUpdateWal);
#endif

} // namespace

BENCHMARK_MAIN();
