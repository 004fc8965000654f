// The diagnostic gate, per message: shut at its first step (the class bit
// clear), open with monitoring off (memory only), open with monitoring on
// (two registry reads: AllowDiagnostics and the kind's switch), and open
// with monitoring on right after a registry write, which the next gate must
// see. Beside them: two cached reads of a REG_DWORD, bare and through
// RegistryUint objects as the gate makes them, the floor of the monitored
// gate; and one whole message written to the diagnostic file.
// The gate cases decide only (steps 1 to 3); the last one emits as well.
//
// Works below HKCU\Software\TSUtilBench\DiagGate, removed at the end; on
// POSIX run it with a machine root of its own (TSUTIL_ROOT=$(mktemp -d)).
#include <DiagGrd.h>
#include <GenTxt.h>
#include <RegEntry.h>
#include <RegValue.h>
#include <TessInit.h>

#include <benchmark/benchmark.h>

#include <stdio.h>

#include <string>

namespace {

const char *const kBase = "Software\\TSUtilBench\\DiagGate";
const char *const kDiagnostics = "Software\\TSUtilBench\\DiagGate\\Diagnostics";
const DiagGuard::ClassNameIndex kText = GenericText::CLASS_INDEX;

HKEY OpenDiagnostics()
{
    HKEY k = nullptr;
    RegCreateKeyExA(HKEY_CURRENT_USER, kDiagnostics, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr);
    return k;
}

void SetDword(HKEY k, const char *name, DWORD v)
{
    RegSetValueExA(k, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&v), sizeof v);
}

// The installation with diagnostics on, and a guard of the calling thread,
// monitored or not; everything undone at the end.
class GuardedThread {
public:
    explicit GuardedThread(BOOLTYPE monitor) : key_(OpenDiagnostics())
    {
        SetDword(key_, "AllowDiagnostics", 1);
        SetDword(key_, "EnableOtherMessages", 1);
        SetDword(key_, "MonitorTheseSettingsDuringRun", monitor == TRUE ? 1 : 0);
        RegistryEntry::SetRegistryDefaults(kBase, HKEY_CURRENT_USER, 0, 0);
        TessaviInitInfo::AssignRegistryObjects();
        file_ = "diag_gate_" + std::to_string(GetCurrentProcessId()) + ".txt";
        guard_ = new DiagGuard(file_.c_str());
        DiagGuard::SetThreadDiagGuardPtr(guard_);
    }
    ~GuardedThread()
    {
        DiagGuard::SetThreadDiagGuardPtr(nullptr);
        delete guard_;
        TessaviInitInfo::UnassignRegistryObjects();
        remove(file_.c_str());
        RegCloseKey(key_);
        RegDeleteKeyA(HKEY_CURRENT_USER, kDiagnostics);
        RegDeleteKeyA(HKEY_CURRENT_USER, kBase);
    }
    HKEY key() const { return key_; }

private:
    HKEY key_;
    std::string file_;
    DiagGuard *guard_ = nullptr;
};

void BM_GateShut(benchmark::State &state)
{
    GuardedThread guarded(TRUE);
    for (auto _ : state)
        DIAG_VERBOSE(kText, "never written " << 42 << "\n"); // 0x80 is clear in the default mask
}
BENCHMARK(BM_GateShut);

void BM_GateOpenMonitorOff(benchmark::State &state)
{
    GuardedThread guarded(FALSE);
    for (auto _ : state)
        benchmark::DoNotOptimize(DiagGuard::Gate(kText, DiagGuard::MESSAGE_BIT));
    if (!DiagGuard::Gate(kText, DiagGuard::MESSAGE_BIT))
        state.SkipWithError("the gate is shut");
}
BENCHMARK(BM_GateOpenMonitorOff);

void BM_GateOpenMonitorOn(benchmark::State &state)
{
    GuardedThread guarded(TRUE);
    for (auto _ : state)
        benchmark::DoNotOptimize(DiagGuard::Gate(kText, DiagGuard::MESSAGE_BIT));
    if (!DiagGuard::Gate(kText, DiagGuard::MESSAGE_BIT))
        state.SkipWithError("the gate is shut");
}
BENCHMARK(BM_GateOpenMonitorOn);

// Each gate follows a write to the key (not timed) and must see it: the
// write turns messages off and on in turn, so that every gate reads both
// switches and its answer alternates.
void BM_GateOpenMonitorOnAfterWrite(benchmark::State &state)
{
    GuardedThread guarded(TRUE);
    DWORD on = 1;
    for (auto _ : state) {
        state.PauseTiming();
        on ^= 1;
        SetDword(guarded.key(), "EnableOtherMessages", on);
        state.ResumeTiming();
        DiagGuard *g = DiagGuard::Gate(kText, DiagGuard::MESSAGE_BIT);
        if ((g != nullptr) != (on == 1))
            state.SkipWithError("the gate missed the write");
    }
}
BENCHMARK(BM_GateOpenMonitorOnAfterWrite);

// The floor of a monitored gate: two cached reads of a REG_DWORD through
// an open key.
void BM_TwoRegistryReads(benchmark::State &state)
{
    GuardedThread guarded(TRUE);
    for (auto _ : state) {
        DWORD a = 0, b = 0, cb = sizeof a;
        RegQueryValueExA(guarded.key(), "AllowDiagnostics", nullptr, nullptr, reinterpret_cast<BYTE *>(&a), &cb);
        cb = sizeof b;
        RegQueryValueExA(guarded.key(), "EnableOtherMessages", nullptr, nullptr, reinterpret_cast<BYTE *>(&b), &cb);
        benchmark::DoNotOptimize(a + b);
    }
}
BENCHMARK(BM_TwoRegistryReads);

// The same two reads as the library makes them, each through a RegistryUint
// built and destroyed around it under the installation's open key.
void BM_TwoRegistryUintReads(benchmark::State &state)
{
    GuardedThread guarded(TRUE);
    for (auto _ : state) {
        unsigned int a = 0, b = 0;
        {
            RegistryUint value("AllowDiagnostics", *DiagGuard::initDiagRegKeyPtr);
            value.Get(&a);
        }
        {
            RegistryUint value("EnableOtherMessages", *DiagGuard::initDiagRegKeyPtr);
            value.Get(&b);
        }
        benchmark::DoNotOptimize(a + b);
    }
}
BENCHMARK(BM_TwoRegistryUintReads);

// A whole message of three pieces through an open, unmonitored gate into
// the file.
void BM_MessageWrittenMonitorOff(benchmark::State &state)
{
    GuardedThread guarded(FALSE);
    for (auto _ : state)
        DIAG_MSG(kText, "a message of " << 3 << " pieces\n");
}
BENCHMARK(BM_MessageWrittenMonitorOff);

} // namespace

BENCHMARK_MAIN();
