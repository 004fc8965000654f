// An idle service costs no processor time: a GenericService with eight
// idle interlock workers wakes none of its threads more often than once
// per cycleWaitTime. The wake-ups are counted (each thread's context
// switches in /proc), not assumed.
#include <GenSvc.h>

#include "TestSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifndef _WIN32
#include <dirent.h>
#include <unistd.h>
#endif

#include <map>
#include <memory>
#include <string>
#include <vector>

using tstest::kWaitBound;

namespace {

constexpr unsigned long kCycleMs = 100;
constexpr int kWorkers = 8;

// Worker 0 answers the service's start and stop; the other seven wait on
// parents of their own that share the stop request, so one stop reaches
// all eight.
class IdleService : public GenericService {
public:
    IdleService() : GenericService("TSIdle", "TSUtil Idle Service", FALSE, kCycleMs)
    {
        threadDeletionDelay = 0;
        running = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    ~IdleService() override
    {
        for (HANDLE t : threads_)
            CloseHandle(t);
        CloseHandle(running);
    }

    using GenericService::ConsoleControlHandler;
    HANDLE running; // set once every worker waits

protected:
    BOOLTYPE InitPrimaryService() override
    {
        start_ = startInterlockPtr->SpawnChildInterlockSepThread();
        stop_ = stopInterlockPtr->SpawnChildInterlockSepThread();
        if (!start_ || !stop_)
            return FALSE;
        for (int i = 1; i < kWorkers; ++i) {
            sharers_.push_back(std::make_unique<ParentInterlockSepThread>(stopInterlockPtr));
            ChildInterlockSepThread *child = sharers_.back()->SpawnChildInterlockSepThread();
            if (!child)
                return FALSE;
            threads_.push_back(tstest::StartThread([child] {
                child->DetectRequest(INFINITE);
                child->NotifyStateReached();
                return 0u;
            }));
        }
        threads_.push_back(tstest::StartThread([this] {
            start_->NotifyStateReached();
            SetEvent(running);
            stop_->DetectRequest(INFINITE);
            stop_->NotifyStateReached();
            return 0u;
        }));
        return TRUE;
    }
    BOOLTYPE CyclePrimaryService() override { return TRUE; }

public:
    // After Begin has returned: every worker has ended.
    bool JoinWorkers()
    {
        bool all = true;
        for (HANDLE t : threads_)
            all = WaitForSingleObject(t, kWaitBound) == WAIT_OBJECT_0 && all;
        return all;
    }

private:
    ChildInterlockSepThread *start_ = nullptr, *stop_ = nullptr;
    std::vector<std::unique_ptr<ParentInterlockSepThread>> sharers_;
    std::vector<HANDLE> threads_;
};

#ifndef _WIN32
// Voluntary and involuntary context switches of one thread: each wake-up
// of a blocked thread is one.
long ReadSwitches(const std::string &task)
{
    FILE *f = fopen(("/proc/self/task/" + task + "/status").c_str(), "r");
    if (!f)
        return -1;
    long total = 0;
    char line[256];
    while (fgets(line, sizeof line, f))
        if (!strncmp(line, "voluntary_ctxt_switches:", 24) || !strncmp(line, "nonvoluntary_ctxt_switches:", 27))
            total += atol(strchr(line, ':') + 1);
    fclose(f);
    return total;
}

// Context switches of each thread of this process, by thread id.
std::map<std::string, long> SwitchesByThread()
{
    std::map<std::string, long> out;
    if (DIR *d = opendir("/proc/self/task")) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.')
                out[e->d_name] = ReadSwitches(e->d_name);
        closedir(d);
    }
    return out;
}
#endif

TEST(IdleServiceTest, EightIdleWorkersWakeAtMostOncePerCycle)
{
#ifdef _WIN32
    GTEST_SKIP() << "counts wake-ups in /proc";
#else
    IdleService service;
    BOOLTYPE begun = FALSE;
    HANDLE loop = tstest::StartThread([&] {
        begun = service.Begin();
        return 0u;
    });
    ASSERT_EQ(WaitForSingleObject(service.running, kWaitBound), WAIT_OBJECT_0);

    const DWORD intervalMs = 10 * kCycleMs;
    std::map<std::string, long> before = SwitchesByThread();
    Sleep(intervalMs);
    std::map<std::string, long> after = SwitchesByThread();
    std::string self = std::to_string(static_cast<long>(gettid()));

    // A thread that waits with cycleWaitTime wakes intervalMs / kCycleMs
    // times; two more for the last steps of the start, which may fall into
    // the interval.
    const long allowed = static_cast<long>(intervalMs / kCycleMs) + 2;
    int counted = 0;
    for (const auto &entry : after) {
        if (entry.first == self || !before.count(entry.first))
            continue;
        ++counted;
        long woke = entry.second - before[entry.first];
        EXPECT_LE(woke, allowed) << "thread " << entry.first << " woke " << woke << " times in " << intervalMs
                                 << " ms";
    }
    EXPECT_GE(counted, kWorkers + 1) << "the workers and the run loop";

    EXPECT_EQ(IdleService::ConsoleControlHandler(CTRL_C_EVENT), 1);
    EXPECT_TRUE(tstest::Joined(loop));
    EXPECT_TRUE(service.JoinWorkers());
    EXPECT_EQ(begun, TRUE);
#endif
}

} // namespace
