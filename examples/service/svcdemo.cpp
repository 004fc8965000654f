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

#include "WorkerService.h"

#include <stdio.h>
#include <string.h>

namespace {

char const kShortName[] = "TSSvcDemo";
char const kLongName[] = "TSUtil Demo Service";

class DemoService : public WorkerService {
public:
    DemoService(BOOLTYPE asService) : WorkerService(kShortName, kLongName, asService, 1000) {}

protected:
    void Answering(Change change) override
    {
        if (change != Start)
            Say(change == Stop ? "stopping" : change == Pause ? "paused" : "running");
    }
    void Started() override { Say("running; Ctrl+C stops"); }
    // A beat a second while running.
    void Beat() override
    {
        char line[64];
        snprintf(line, sizeof line, "beat %lu", ++beats_);
        Say(line);
    }

private:
    void Say(char const *text)
    {
        if (!IsRunningAsService()) {
            printf("%s\n", text);
            fflush(stdout);
        }
    }

    unsigned long beats_ = 0;
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
