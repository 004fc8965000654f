// A service built on GenericService, for the end-to-end tests. One worker
// thread answers the interlocks: it holds each answer for a while, so that
// the pending states can be seen from outside, and then reports the new
// state. The timeouts differ from the defaults, so every wait hint can be
// told from the others.
//
//   gensvc_probe                   run under the service manager (the
//                                  installed command line); exit code 2
//                                  when started by hand
//   gensvc_probe install OUT       Install, messages into the file OUT
//   gensvc_probe remove OUT        Remove, messages into the file OUT
//   gensvc_probe console READY     run on a console; the file READY is
//                                  written once the service is up
// The control modes exit with 0 when the operation gave TRUE, else 1.
#include "TestSupport.h"
#include "WorkerService.h"

#include <stdio.h>
#include <string.h>

#include <string>

namespace {

char const kShortName[] = "TSGenSvcProbe";
char const kLongName[] = "TSUtil GenericService Probe";

class ProbeService : public WorkerService {
public:
    ProbeService(BOOLTYPE asService, DWORD holdMs, std::string readyFile)
        : WorkerService(kShortName, kLongName, asService, INFINITE), holdMs_(holdMs), readyFile_(std::move(readyFile))
    {
        startTimeout = 21000;
        pauseTimeout = 16000;
        continueTimeout = 22000;
        stopTimeout = 5000; // below the floor of the stop hint
    }

protected:
    void Answering(Change) override { Sleep(holdMs_); }
    // The ready file appears by a rename once it is written and closed, so
    // the test that sees it never finds it still open here (Windows would
    // then refuse to remove it).
    void Started() override
    {
        if (readyFile_.empty())
            return;
        std::string written = readyFile_ + ".part";
        FILE *f = fopen(written.c_str(), "w");
        if (!f || fclose(f) != 0 || rename(written.c_str(), readyFile_.c_str()) != 0)
            fprintf(stderr, "gensvc_probe: cannot write %s\n", readyFile_.c_str());
    }

private:
    DWORD holdMs_;
    std::string readyFile_;
};

int Control(char const *what, char const *outFile)
{
    if (!freopen(outFile, "wb", stdout))
        return 3;
    ProbeService service(TRUE, 0, "");
    BOOLTYPE done = strcmp(what, "install") == 0 ? service.Install() : service.Remove();
    fflush(stdout);
    return done ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && (strcmp(argv[1], "install") == 0 || strcmp(argv[1], "remove") == 0))
        return Control(argv[1], argv[2]);
    bool console = argc == 3 && strcmp(argv[1], "console") == 0;
    if (console)
        tstest::LeaveConsoleSignalsToTheWatcher();
    if (argc != 1 && !console) {
        fprintf(stderr, "usage: gensvc_probe [install OUT | remove OUT | console READY]\n");
        return 64;
    }
    ProbeService service(console ? FALSE : TRUE, console ? 0 : 1500, console ? argv[2] : "");
    BOOLTYPE ran = service.Begin();
    service.Join();
    return ran ? 0 : 2;
}
