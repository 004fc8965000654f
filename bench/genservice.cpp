// A service built on GenericService (the example service, heartbeat, built
// beside this program) under the service manager: from StartServiceA to
// SERVICE_RUNNING, a pause and continue round trip through the control
// handler, the interlocks, the worker's answers and the run loop, and an
// interrogate. The service is installed for the run and removed after it.
//
// On POSIX the service manager of the machine root in TSUTIL_ROOT is used:
// give the run a fresh root of its own.
#include <GenSvc.h>

#include <benchmark/benchmark.h>

#include <stdio.h>

#include <string>

namespace {

char const kShortName[] = "TSHeartbeat";
char const kLongName[] = "TSUtil Heartbeat Service";

// heartbeat's full path: this program's folder and extension.
std::string DemoPath()
{
    char self[MAX_PATH] = {0};
    DWORD n = GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self, n);
    size_t slash = path.find_last_of("\\/");
    std::string name = path.substr(slash + 1);
    size_t dot = name.rfind('.');
    std::string ext = dot == std::string::npos ? "" : name.substr(dot);
    return path.substr(0, slash + 1) + "heartbeat" + ext;
}

// Polls until the service reports state; false after 10 s or a failed query.
bool AwaitState(SC_HANDLE service, DWORD state)
{
    DWORD start = GetTickCount();
    SERVICE_STATUS s{};
    while (QueryServiceStatus(service, &s)) {
        if (s.dwCurrentState == state)
            return true;
        if (GetTickCount() - start > 10000)
            return false;
        Sleep(0);
    }
    return false;
}

// The installed example service, for one benchmark.
class DemoService {
public:
    DemoService()
    {
        GenericService(kShortName, kLongName, TRUE, 0).Remove(); // left by an earlier run
        manager_ = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        if (!manager_)
            return;
        std::string path = DemoPath();
        service_ = CreateServiceA(manager_, kShortName, kLongName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                  SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, path.c_str(), nullptr, nullptr,
                                  nullptr, nullptr, nullptr);
    }
    ~DemoService()
    {
        if (service_) {
            SERVICE_STATUS s;
            if (ControlService(service_, SERVICE_CONTROL_STOP, &s))
                AwaitState(service_, SERVICE_STOPPED);
            DeleteService(service_);
            CloseServiceHandle(service_);
        }
        if (manager_)
            CloseServiceHandle(manager_);
    }
    SC_HANDLE handle() const { return service_; }
    bool Start() { return StartServiceA(service_, 0, nullptr) && AwaitState(service_, SERVICE_RUNNING); }
    bool Control(DWORD control, DWORD until)
    {
        SERVICE_STATUS s;
        return ControlService(service_, control, &s) && AwaitState(service_, until);
    }

private:
    SC_HANDLE manager_ = nullptr;
    SC_HANDLE service_ = nullptr;
};

void StartToRunning(benchmark::State &state)
{
    DemoService demo;
    if (!demo.handle()) {
        state.SkipWithError("the service cannot be installed");
        return;
    }
    for (auto _ : state) {
        if (!demo.Start()) {
            state.SkipWithError("the service did not reach SERVICE_RUNNING");
            return;
        }
        state.PauseTiming();
        bool stopped = demo.Control(SERVICE_CONTROL_STOP, SERVICE_STOPPED);
        state.ResumeTiming();
        if (!stopped) {
            state.SkipWithError("the service did not stop");
            return;
        }
    }
}
BENCHMARK(StartToRunning)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);

void PauseContinueRoundTrip(benchmark::State &state)
{
    DemoService demo;
    if (!demo.handle() || !demo.Start()) {
        state.SkipWithError("the service cannot be installed and started");
        return;
    }
    for (auto _ : state) {
        if (!demo.Control(SERVICE_CONTROL_PAUSE, SERVICE_PAUSED) ||
            !demo.Control(SERVICE_CONTROL_CONTINUE, SERVICE_RUNNING)) {
            state.SkipWithError("pause or continue was not answered");
            return;
        }
    }
}
BENCHMARK(PauseContinueRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();

void Interrogate(benchmark::State &state)
{
    DemoService demo;
    if (!demo.handle() || !demo.Start()) {
        state.SkipWithError("the service cannot be installed and started");
        return;
    }
    SERVICE_STATUS s;
    for (auto _ : state) {
        if (!ControlService(demo.handle(), SERVICE_CONTROL_INTERROGATE, &s)) {
            state.SkipWithError("interrogate failed");
            return;
        }
    }
}
BENCHMARK(Interrogate)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
