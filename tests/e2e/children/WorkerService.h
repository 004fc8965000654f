// WorkerService: a GenericService whose work is done by one worker thread
// of its own, which answers the start, stop, pause and continue requests of
// the run loop. The run loop itself only waits for the answers.
//
// A derived class says what happens around each answer and what the worker
// does while it runs; Join waits for the worker after Begin has returned.
#pragma once

#include "AnswerLoop.h" // the example service's answers (examples/heartbeat)

#include <GenSvc.h>

class WorkerService : public GenericService {
public:
    // The change of state that an answer completes.
    using Change = heartbeat::Change;

    WorkerService(char const *shortName, char const *longName, BOOLTYPE asService, unsigned long beatMs)
        : GenericService(shortName, longName, asService, 1000), beatMs_(beatMs)
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
    // Just before the worker answers a request.
    virtual void Answering(Change) {}
    // Once the start is answered and the worker runs.
    virtual void Started() {}
    // Each beat while running: beatMs without a request (never when
    // beatMs is INFINITE).
    virtual void Beat() {}

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
        static_cast<WorkerService *>(self)->Work();
        return 0;
    }

    void Work()
    {
        heartbeat::AnswerUntilStop(
            {start_, stop_, pause_, continue_}, beatMs_, [this](Change change) { Answering(change); },
            [this](Change change) {
                if (change == heartbeat::Start)
                    Started();
            },
            [this] { Beat(); });
    }

    unsigned long beatMs_;
    HANDLE worker_ = nullptr;
    ChildInterlockSepThread *start_ = nullptr, *stop_ = nullptr, *pause_ = nullptr, *continue_ = nullptr;
};
