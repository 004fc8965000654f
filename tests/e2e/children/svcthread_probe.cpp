// Programs whose threads are ServiceThreads, for the end-to-end tests. Each
// reads the installation's settings below HIVE\BASE (HKCU or HKLM) and has
// its threads' guards write to FILE.
//
//   svcthread_probe HIVE BASE FILE        run under the service manager: a
//       GenericService whose worker is a ServiceThread that answers the
//       start, pause, continue and stop requests, with a gated message for
//       each answer; exit code 0 after the stop, 2 when started by hand
//   svcthread_probe bare HIVE BASE FILE   a ServiceThread that overrides
//       nothing; the process's exit code is the thread's (the assertion in
//       its Run ends the process with 1 first when the gate is open)
#include "DiagGrd.h"
#include "GenSvc.h"
#include "RegEntry.h"
#include "SvcThrd.h"
#include "TessInit.h"

#include <stdio.h>
#include <string.h>

namespace {

char const kShortName[] = "TSSvcThreadProbe";
char const kLongName[] = "TSUtil ServiceThread Probe";
const DiagGuard::ClassNameIndex kProbeClass = static_cast<DiagGuard::ClassNameIndex>(12);

// The worker: answers the requests that change its state, stop and pause
// while running, stop and continue while paused, until the stop.
class InterlockWorker : public ServiceThread {
public:
    InterlockWorker(char const *file, ChildInterlockSepThread *start, ChildInterlockSepThread *stop,
                    ChildInterlockSepThread *pause, ChildInterlockSepThread *resume)
        : ServiceThread(file), start_(start), stop_(stop), pause_(pause), continue_(resume)
    {
        m_bAutoDelete = FALSE; // the service waits for it and deletes it
    }

    int Run() override
    {
        ChildInterlockSepThread *whileRunning[] = {stop_, pause_, nullptr};
        ChildInterlockSepThread *whilePaused[] = {stop_, continue_, nullptr};
        ChildMultiLockSepThread running(whileRunning), paused(whilePaused);
        DIAG_MSG(kProbeClass, "answered start\n");
        start_->NotifyStateReached();
        bool isPaused = false;
        for (;;) {
            ChildInterlock *found = nullptr;
            if (!(isPaused ? paused : running).DetectRequest(&found, INFINITE))
                continue;
            char const *what = found == stop_ ? "stop" : found == pause_ ? "pause" : "continue";
            DIAG_MSG(kProbeClass, "answered " << what << "\n");
            static_cast<ChildInterlockSepThread *>(found)->NotifyStateReached();
            if (found == stop_)
                return ExitInstance();
            isPaused = found == pause_;
        }
    }

private:
    ChildInterlockSepThread *start_, *stop_, *pause_, *continue_;
};

class ProbeService : public GenericService {
public:
    explicit ProbeService(char const *file) : GenericService(kShortName, kLongName, TRUE, 1000), file_(file)
    {
        threadDeletionDelay = 100; // the worker is done once it has answered the stop
    }
    ~ProbeService() override { delete worker_; }

    // Waits for the worker after Begin has returned.
    void Join()
    {
        if (worker_ && worker_->m_hThread)
            WaitForSingleObject(worker_->m_hThread, INFINITE);
    }

protected:
    BOOLTYPE InitPrimaryService() override
    {
        ChildInterlockSepThread *start = startInterlockPtr->SpawnChildInterlockSepThread();
        ChildInterlockSepThread *stop = stopInterlockPtr->SpawnChildInterlockSepThread();
        ChildInterlockSepThread *pause = pauseInterlockPtr->SpawnChildInterlockSepThread();
        ChildInterlockSepThread *resume = continueInterlockPtr->SpawnChildInterlockSepThread();
        if (!start || !stop || !pause || !resume)
            return FALSE;
        worker_ = new InterlockWorker(file_, start, stop, pause, resume);
        return worker_->ServiceCreateThread(0, 0, nullptr) ? TRUE : FALSE;
    }
    BOOLTYPE CyclePrimaryService() override { return TRUE; }

private:
    char const *file_;
    InterlockWorker *worker_ = nullptr;
};

int Bare(char const *file)
{
    ServiceThread *thread = new ServiceThread(file);
    thread->m_bAutoDelete = FALSE;
    if (!thread->ServiceCreateThread(0, 0, nullptr))
        return 70;
    DWORD code = 71;
    if (WaitForSingleObject(thread->m_hThread, INFINITE) != WAIT_OBJECT_0 || !GetExitCodeThread(thread->m_hThread, &code))
        code = 72;
    delete thread;
    return static_cast<int>(code);
}

} // namespace

int main(int argc, char **argv)
{
    bool bare = argc == 5 && strcmp(argv[1], "bare") == 0;
    if (!bare && argc != 4) {
        fprintf(stderr, "usage: svcthread_probe [bare] HKCU|HKLM BASE FILE\n");
        return 64;
    }
    char **words = argv + (bare ? 2 : 1);
    HKEY hive = strcmp(words[0], "HKLM") == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    if (RegistryEntry::SetRegistryDefaults(words[1], hive, 0, 0) != TRUE)
        return 65;
    TessaviInitInfo::AssignRegistryObjects();
    int code;
    if (bare) {
        code = Bare(words[2]);
    } else {
        ProbeService service(words[2]);
        BOOLTYPE ran = service.Begin();
        service.Join();
        code = ran ? 0 : 2;
    }
    TessaviInitInfo::UnassignRegistryObjects();
    return code;
}
