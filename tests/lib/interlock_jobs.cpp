// Interlocks within one job loop: flag cells, never blocking.
#include <IntrlJob.h>

#include "TestSupport.h"

#include <chrono>

namespace {
const unsigned long kNoLimit = 0xFFFFFFFF;
}

// A parent job and a child job take turns in one loop: the child needs a
// few turns for its work, and the parent polls meanwhile.
TEST(InterlockSepJobTest, PolledPairTakesTurnsInOneLoop)
{
    ParentInterlockSepJob p;
    ChildInterlockSepJob *c = p.SpawnChildInterlockSepJob();
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(p.SpawnChildInterlockSepJob(), c);

    enum { Idle, Working, Reported } child = Idle;
    int cyclesDone = 0, childTurnsOfWork = 0, parentPolls = 0;
    bool requested = false;
    auto start = std::chrono::steady_clock::now();
    for (int turn = 0; turn < 200 && cyclesDone < 5; ++turn) {
        // The parent's job.
        if (!requested) {
            EXPECT_EQ(p.MakeRequest(), TRUE);
            requested = true;
        } else if (p.WaitForResponse(kNoLimit)) {
            EXPECT_EQ(childTurnsOfWork, 3);
            EXPECT_EQ(p.ResetInterlock(), TRUE);
            requested = false;
            ++cyclesDone;
        } else {
            ++parentPolls;
        }
        // The child's job: it remembers for itself that it took the
        // request, since the request stays detected until the reset.
        switch (child) {
        case Idle:
            if (c->DetectRequest(kNoLimit)) {
                child = Working;
                childTurnsOfWork = 0;
            }
            break;
        case Working:
            if (++childTurnsOfWork == 3) {
                EXPECT_EQ(c->DetectRequest(0), TRUE);
                EXPECT_EQ(c->NotifyStateReached(), TRUE);
                child = Reported;
            }
            break;
        case Reported:
            if (!c->DetectRequest(0))
                child = Idle;
            break;
        }
    }
    EXPECT_EQ(cyclesDone, 5);
    EXPECT_GT(parentPolls, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)) << "nothing waits";
}

TEST(InterlockSepJobTest, SharedCellsAndUnaskedReports)
{
    ParentInterlockSepJob first;
    ParentInterlockSepJob second(&first);
    ParentInterlockSepJob third(first.SpawnChildInterlockSepJob());
    ChildInterlockSepJob *c1 = first.SpawnChildInterlockSepJob();
    ChildInterlockSepJob *c2 = second.SpawnChildInterlockSepJob();
    ChildInterlockSepJob *c3 = third.SpawnChildInterlockSepJob();

    EXPECT_EQ(third.MakeRequest(), TRUE);
    EXPECT_EQ(c1->DetectRequest(0), TRUE);
    EXPECT_EQ(c2->DetectRequest(0), TRUE);
    EXPECT_EQ(c3->DetectRequest(0), TRUE);
    EXPECT_EQ(c1->NotifyStateReached(), TRUE);
    EXPECT_EQ(c2->NotifyStateReached(), TRUE);
    EXPECT_EQ(second.ResetInterlock(), TRUE);
    EXPECT_EQ(c3->DetectRequest(0), FALSE) << "the shared request is clear";
    EXPECT_EQ(first.WaitForResponse(0), TRUE) << "only the resetting parent's response is cleared";
    EXPECT_EQ(second.WaitForResponse(0), FALSE);

    // A report with no request stands as a response.
    EXPECT_EQ(c3->NotifyStateReached(), TRUE);
    EXPECT_EQ(third.WaitForResponse(kNoLimit), TRUE);
}
