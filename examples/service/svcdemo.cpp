// svcdemo: a small service built on GenericService.
//
//   svcdemo install | remove | start | stop | status
//                      the service's own control tool
//   svcdemo console    runs on this console until Ctrl+C
//   svcdemo            runs under the service manager (the installed
//                      command line)
//
// Its work is a heartbeat: one worker thread counts a beat a second while
// the service runs, stands still while it is paused, and answers the start,
// pause, continue and stop requests of the run loop. On a console each beat
// and each change of state is printed.
#include <TSUtil.h>

#include <stdio.h>
#include <string.h>

namespace {

char const kShortName[] = "TSSvcDemo";
char const kLongName[] = "TSUtil Demo Service";

class DemoService : public GenericService {
public:
    DemoService(BOOLTYPE asService) : GenericService(kShortName, kLongName, asService, 1000)
    {
        threadDeletionDelay = 100; // the worker ends as soon as it answers the stop
    }

    // Waits for the worker after Begin has returned.
    void Join()
    {
        if (worker_) {
            WaitForSingleObject(worker_, INFINITE);
            CloseHandle(worker_);
            worker_ = nullptr;
        }
    }

protected:
    BOOLTYPE InitPrimaryService() override
    {
        start_ = startInterlockPtr->SpawnChildInterlockSepThread();
        stop_ = stopInterlockPtr->SpawnChildInterlockSepThread();
        pause_ = pauseInterlockPtr->SpawnChildInterlockSepThread();
        continue_ = continueInterlockPtr->SpawnChildInterlockSepThread();
        if (!start_ || !stop_ || !pause_ || !continue_)
            return FALSE;
        worker_ = CreateThread(nullptr, 0, WorkerMain, this, 0, nullptr);
        return worker_ ? TRUE : FALSE;
    }

    // The run loop only waits for answers; the work is the worker's.
    BOOLTYPE CyclePrimaryService() override { return TRUE; }

private:
    static DWORD WINAPI WorkerMain(void *self)
    {
        static_cast<DemoService *>(self)->Work();
        return 0;
    }

    void Say(char const *text)
    {
        if (!IsRunningAsService()) {
            printf("%s\n", text);
            fflush(stdout);
        }
    }

    // A request stays raised until the run loop has seen its answer, so
    // the worker watches only the requests that would change its state:
    // stop and pause while running, stop and continue while paused.
    void Work()
    {
        ChildInterlockSepThread *whileRunning[] = {stop_, pause_, nullptr};
        ChildInterlockSepThread *whilePaused[] = {stop_, continue_, nullptr};
        ChildMultiLockSepThread running(whileRunning), paused(whilePaused);
        start_->NotifyStateReached();
        Say("running; Ctrl+C stops");
        bool isPaused = false;
        unsigned long beats = 0;
        for (;;) {
            ChildInterlock *found = nullptr;
            // A beat a second while running; no time limit while paused.
            if (!(isPaused ? paused : running).DetectRequest(&found, isPaused ? 0xFFFFFFFF : 1000)) {
                if (!isPaused) {
                    char line[64];
                    snprintf(line, sizeof line, "beat %lu", ++beats);
                    Say(line);
                }
                continue;
            }
            if (found == stop_) {
                Say("stopping");
                stop_->NotifyStateReached();
                return;
            }
            isPaused = found == pause_;
            Say(isPaused ? "paused" : "running");
            static_cast<ChildInterlockSepThread *>(found)->NotifyStateReached();
        }
    }

    HANDLE worker_ = nullptr;
    ChildInterlockSepThread *start_ = nullptr, *stop_ = nullptr, *pause_ = nullptr, *continue_ = nullptr;
};

int Usage()
{
    fprintf(stderr, "usage: svcdemo [install | remove | start | stop | status | console]\n");
    return 2;
}

char const *StateName(unsigned long state)
{
    static char const *const names[] = {"UNKNOWN",         "STOPPED",          "START_PENDING", "STOP_PENDING",
                                        "RUNNING",         "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};
    return state < sizeof names / sizeof names[0] ? names[state] : "UNKNOWN";
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 2)
        return Usage();
    char const *command = argc == 2 ? argv[1] : "";
    bool console = strcmp(command, "console") == 0;
    DemoService service(console ? FALSE : TRUE);

    BOOLTYPE done = FALSE;
    if (strcmp(command, "install") == 0) {
        done = service.Install();
        if (done)
            printf("%s installed\n", kShortName);
    } else if (strcmp(command, "remove") == 0) {
        done = service.Remove();
        printf(done ? "%s removed\n" : "Unable to remove %s\n", kShortName);
    } else if (strcmp(command, "start") == 0) {
        done = service.start_svc(0, nullptr);
    } else if (strcmp(command, "stop") == 0) {
        done = service.stop_svc();
    } else if (strcmp(command, "status") == 0) {
        unsigned long state = 0;
        done = service.check_status(state);
        if (done)
            printf("%s: %s\n", kShortName, StateName(state));
    } else if (console || argc == 1) {
        done = service.Begin();
        service.Join();
        if (!done)
            fprintf(stderr, "svcdemo: not started by the service manager; try 'svcdemo console'\n");
    } else {
        return Usage();
    }
    return done ? 0 : 1;
}
