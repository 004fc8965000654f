// The service manager's round trips with a real service process: from
// StartServiceA to SERVICE_RUNNING, a pause and continue, and an
// interrogate. On POSIX it uses the machine root in effect (run it with
// TSUTIL_ROOT set to a folder of its own); on Windows the system's manager.
// The test service (tests' testservice program) must lie beside it.
#include <windows.h>

#include <benchmark/benchmark.h>

#include <stdio.h>
#include <stdlib.h>

#include <string>
#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

std::string ServiceProgram()
{
    char path[4096] = {};
#ifdef _WIN32
    GetModuleFileNameA(nullptr, path, sizeof path);
    const char *name = "testservice.exe";
#else
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    path[n > 0 ? n : 0] = 0;
    const char *name = "testservice";
#endif
    std::string dir(path);
    dir.erase(dir.find_last_of("\\/") + 1);
    return dir + name;
}

struct Installed {
    SC_HANDLE scm = nullptr;
    SC_HANDLE svc = nullptr;

    Installed()
    {
        scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        if (!scm) {
            fprintf(stderr, "OpenSCManagerA: %lu\n", static_cast<unsigned long>(GetLastError()));
            exit(1);
        }
        std::string name = "TsBench" + std::to_string(GetCurrentProcessId());
        std::string cmd = "\"" + ServiceProgram() + "\"";
        svc = CreateServiceA(scm, name.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                             SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, cmd.c_str(), nullptr, nullptr, nullptr,
                             nullptr, nullptr);
        if (!svc) {
            fprintf(stderr, "CreateServiceA: %lu\n", static_cast<unsigned long>(GetLastError()));
            exit(1);
        }
    }
    ~Installed()
    {
        Stop();
        DeleteService(svc);
        CloseServiceHandle(svc);
        CloseServiceHandle(scm);
    }
    DWORD State()
    {
        SERVICE_STATUS st{};
        return QueryServiceStatus(svc, &st) ? st.dwCurrentState : 0;
    }
    // Polls as a client of the manager would, with a short pause between
    // queries: a query without one takes the processor from the service
    // that is starting when both share one.
    bool WaitFor(DWORD state)
    {
        for (int i = 0; i < 100000; ++i) {
            DWORD s = State();
            if (s == state)
                return true;
            if (s == 0)
                return false;
#ifdef _WIN32
            Sleep(1);
#else
            usleep(100);
#endif
        }
        return false;
    }
    void Start()
    {
        if (!StartServiceA(svc, 0, nullptr) || !WaitFor(SERVICE_RUNNING)) {
            fprintf(stderr, "start: %lu\n", static_cast<unsigned long>(GetLastError()));
            exit(1);
        }
    }
    void Stop()
    {
        SERVICE_STATUS st;
        if (ControlService(svc, SERVICE_CONTROL_STOP, &st))
            WaitFor(SERVICE_STOPPED);
    }
};

Installed &Service()
{
    static Installed installed;
    return installed;
}

void StartToRunning(benchmark::State &state)
{
    Installed &s = Service();
    for (auto _ : state) {
        s.Start();
        state.PauseTiming();
        s.Stop();
        state.ResumeTiming();
    }
}
BENCHMARK(StartToRunning)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

void PauseContinue(benchmark::State &state)
{
    Installed &s = Service();
    s.Start();
    SERVICE_STATUS st;
    for (auto _ : state) {
        ControlService(s.svc, SERVICE_CONTROL_PAUSE, &st);
        ControlService(s.svc, SERVICE_CONTROL_CONTINUE, &st);
    }
    s.Stop();
}
BENCHMARK(PauseContinue)->UseRealTime()->Unit(benchmark::kMicrosecond);

void Interrogate(benchmark::State &state)
{
    Installed &s = Service();
    s.Start();
    SERVICE_STATUS st;
    for (auto _ : state)
        ControlService(s.svc, SERVICE_CONTROL_INTERROGATE, &st);
    s.Stop();
}
BENCHMARK(Interrogate)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
