// heartbeat: a service built on GenericService, whose worker is a
// ServiceThread that beats once a second while the service runs.
//
//   heartbeat install | remove | start | stop | status
//                      the service's own control tool (as tssc would do it)
//   heartbeat console  runs on this console: Ctrl+Break (Ctrl+\ on Linux)
//                      pauses and continues, Ctrl+C stops
//   heartbeat          runs under the service manager (the installed
//                      command line)
//
// It keeps its settings below HKLM\SOFTWARE\TSUtil\Heartbeat, which it sets
// up on first use (Installation.h), writes a day-ring log, heartbeatDD.log,
// in the folder that "Database\DataDirectory" names, and its diagnostics to
// heartbeat.txt in the folder that "Diagnostics\DiagnosticOutputDirectory"
// names, while "Diagnostics\AllowDiagnostics" is 1 (an operator switches it
// while the service runs: tsreg add ... /v AllowDiagnostics /t REG_DWORD
// /d 1 /f). Exit code 0 when the command did its work, 1 when not, 2 for a
// wrong command line.
#include "HeartbeatWorker.h"
#include "Installation.h"

#include <GenSvc.h>

#include <stdio.h>
#include <string.h>

#include <atomic>
#include <string>

namespace heartbeat {
namespace {

char const kShortName[] = "TSHeartbeat";
char const kLongName[] = "TSUtil Heartbeat Service";
const unsigned long kBeatMs = 1000;

class HeartbeatService : public GenericService {
public:
    HeartbeatService(BOOLTYPE asService, std::string diagFile, LogFile *log)
        : GenericService(kShortName, kLongName, asService, 1000), diagFile_(std::move(diagFile)), log_(log)
    {
        threadDeletionDelay = 100; // the worker is done once it has answered the stop
    }
    ~HeartbeatService() override { delete worker_; }

    // Waits for the worker after Begin has returned; gives its beats.
    unsigned long Join()
    {
        if (!worker_ || !worker_->m_hThread)
            return 0;
        WaitForSingleObject(worker_->m_hThread, INFINITE);
        return worker_->Beats();
    }

    // On a console Ctrl+Break asks a running service to pause and a paused
    // one to continue, by turns; every other event goes on to the
    // library's handler. The turn is this handler's own: each event runs
    // on a thread of its own, and the worker answers the requests in the
    // order they came.
    static BOOL WINAPI PauseOnBreak(DWORD event)
    {
        static std::atomic<bool> pauseAsked{false};
        GenericService *service = primaryServicePtr;
        if (event != CTRL_BREAK_EVENT || !service)
            return FALSE;
        bool wasAsked = pauseAsked.load();
        while (!pauseAsked.compare_exchange_weak(wasAsked, !wasAsked)) {
        }
        if (wasAsked)
            service->ContinueService();
        else
            service->PauseService();
        return TRUE;
    }

protected:
    BOOLTYPE InitPrimaryService() override
    {
        Answers answers{startInterlockPtr->SpawnChildInterlockSepThread(),
                        stopInterlockPtr->SpawnChildInterlockSepThread(),
                        pauseInterlockPtr->SpawnChildInterlockSepThread(),
                        continueInterlockPtr->SpawnChildInterlockSepThread()};
        if (!answers.start || !answers.stop || !answers.pause || !answers.resume)
            return FALSE;
        worker_ = new HeartbeatWorker(diagFile_.c_str(), answers, *log_, !IsRunningAsService(), kBeatMs);
        if (!worker_->ServiceCreateThread())
            return FALSE;
        // Added after the library's own handler, so asked first.
        if (!IsRunningAsService())
            SetConsoleCtrlHandler(PauseOnBreak, TRUE);
        return TRUE;
    }
    // The run loop only waits for the worker's answers.
    BOOLTYPE CyclePrimaryService() override { return TRUE; }

private:
    std::string diagFile_;
    LogFile *log_;
    HeartbeatWorker *worker_ = nullptr;
};

char const *StateName(unsigned long state)
{
    static char const *const names[] = {"UNKNOWN",         "STOPPED",          "START_PENDING", "STOP_PENDING",
                                        "RUNNING",         "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};
    return state < sizeof names / sizeof names[0] ? names[state] : "UNKNOWN";
}

// The service itself, on a console or under the service manager.
int Serve(bool console)
{
    Folders folders;
    if (!OpenInstallation(folders))
        return 1;
    std::string diagFile = folders.diagnostics + "\\heartbeat.txt";
    LogFile log(folders.data.c_str(), 1);
    try {
        log.Open("heartbeat", 1);
    } catch (int error) {
        fprintf(stderr, "heartbeat: cannot open the log in %s (errno %d)\n", folders.data.c_str(), error);
        return 1;
    }
    if (console) {
        printf("heartbeat: settings in %s\n"
               "heartbeat: log in %s\\heartbeatDD.log (DD: the day of the month)\n"
               "heartbeat: diagnostics to %s while AllowDiagnostics is 1\n"
               "heartbeat: Ctrl+Break (Ctrl+\\ on Linux) pauses and continues, Ctrl+C stops\n",
               kBaseKeyFull, folders.data.c_str(), diagFile.c_str());
        fflush(stdout);
    }
    unsigned long beats = 0;
    BOOLTYPE ran;
    {
        HeartbeatService service(console ? FALSE : TRUE, diagFile, &log);
        ran = service.Begin();
        beats = service.Join();
        SetConsoleCtrlHandler(HeartbeatService::PauseOnBreak, FALSE);
    }
    log.Close();
    TessaviInitInfo::UnassignRegistryObjects(); // after the last guard
    if (!ran) {
        fprintf(stderr, "heartbeat: not started by the service manager; try 'heartbeat console'\n");
        return 1;
    }
    if (console)
        printf("heartbeat: stopped in good order after %lu beats\n", beats);
    return 0;
}

int Usage()
{
    fprintf(stderr, "usage: heartbeat [install | remove | start | stop | status | console]\n");
    return 2;
}

} // namespace
} // namespace heartbeat

int main(int argc, char **argv)
{
    using namespace heartbeat;
    if (argc > 2)
        return Usage();
    std::string command = argc == 2 ? argv[1] : "";
    if (command == "console" || command.empty() || command == "install") {
        if (SetUpBaseKey())
            printf("heartbeat: first use: settings created in %s\n", kBaseKeyFull);
        if (command != "install")
            return Serve(command == "console");
    }
    HeartbeatService control(TRUE, "", nullptr);
    BOOLTYPE done = FALSE;
    if (command == "install") {
        done = control.Install();
        if (done)
            printf("%s installed\n", kShortName);
    } else if (command == "remove") {
        done = control.Remove();
        printf(done ? "%s removed\n" : "Unable to remove %s\n", kShortName);
    } else if (command == "start") {
        done = control.start_svc(0, nullptr);
    } else if (command == "stop") {
        done = control.stop_svc();
    } else if (command == "status") {
        unsigned long state = 0;
        done = control.check_status(state);
        if (done)
            printf("%s: %s\n", kShortName, StateName(state));
    } else {
        return Usage();
    }
    return done ? 0 : 1;
}
