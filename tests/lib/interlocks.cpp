// Interlocks across threads: the full handshake between two real threads,
// shared requests, and the rules of WaitForResponseComplete.
#include <Intrlck.h>
#include <MultiLck.h>

#include "TestSupport.h"

#include <atomic>
#include <chrono>

using tstest::kWaitBound;
using tstest::MsSince;

namespace {

const unsigned long kBound = kWaitBound;
const unsigned long kNow = 0;
const unsigned long kShort = 50;

} // namespace

TEST(InterlockSepThreadTest, ManualResetCycleStepByStep)
{
    ParentInterlockSepThread p;
    ChildInterlockSepThread *c = p.SpawnChildInterlockSepThread();
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(p.SpawnChildInterlockSepThread(), c) << "one child per parent";

    EXPECT_EQ(c->DetectRequest(kNow), FALSE);
    EXPECT_EQ(p.WaitForResponse(kNow), FALSE);
    EXPECT_EQ(p.MakeRequest(), TRUE);
    EXPECT_EQ(c->DetectRequest(kNow), TRUE);
    EXPECT_EQ(p.WaitForResponse(kNow), FALSE) << "a poll leaves the request standing";
    EXPECT_EQ(c->DetectRequest(kNow), TRUE) << "a manual-reset request stays until the reset";
    EXPECT_EQ(c->NotifyStateReached(), TRUE);
    EXPECT_EQ(p.WaitForResponse(kNow), TRUE);
    EXPECT_EQ(p.WaitForResponse(kBound), TRUE) << "the response stays until the reset";
    EXPECT_EQ(p.ResetInterlock(), TRUE);
    EXPECT_EQ(c->DetectRequest(kNow), FALSE);
    EXPECT_EQ(p.WaitForResponse(kNow), FALSE);

    // A child may report on its own account; a second child built on the
    // parent acts on the same events.
    ChildInterlockSepThread other(&p);
    EXPECT_EQ(other.NotifyStateReached(), TRUE);
    EXPECT_EQ(p.WaitForResponse(kNow), TRUE);
    EXPECT_EQ(p.MakeRequest(), TRUE);
    EXPECT_EQ(c->DetectRequest(kNow), TRUE);
    EXPECT_EQ(other.DetectRequest(kNow), TRUE);
}

// Many rounds between two real threads with an auto-reset request, which
// each detection takes, so the child never mistakes an old request for a
// new one. The work done in a round is visible to the parent once it sees
// the response.
TEST(InterlockSepThreadTest, FullCyclesBetweenTwoThreads)
{
    ParentInterlockSepThread p(FALSE);
    ChildInterlockSepThread *c = p.SpawnChildInterlockSepThread();
    const int rounds = 500;
    int work = 0;
    std::atomic<int> childMisses{0};
    HANDLE child = tstest::StartThread([&] {
        for (int i = 0; i < rounds; ++i) {
            if (!c->DetectRequest(kBound)) {
                ++childMisses;
                break;
            }
            ++work;
            c->NotifyStateReached();
        }
        return 0u;
    });
    int parentMisses = 0;
    for (int i = 1; i <= rounds && !parentMisses; ++i) {
        EXPECT_EQ(p.MakeRequest(), TRUE);
        if (p.WaitForResponseComplete(kBound, TRUE) != TRUE) {
            ++parentMisses;
            break;
        }
        EXPECT_EQ(work, i);
        EXPECT_EQ(p.ResetInterlock(), TRUE);
    }
    ASSERT_TRUE(tstest::Joined(child));
    EXPECT_EQ(parentMisses, 0);
    EXPECT_EQ(childMisses.load(), 0);
}

TEST(InterlockSepThreadTest, UntakenAutoResetRequestIsWithdrawnOnTimeOut)
{
    ParentInterlockSepThread p(FALSE);
    ChildInterlockSepThread *c = p.SpawnChildInterlockSepThread();
    EXPECT_EQ(p.MakeRequest(), TRUE);
    EXPECT_EQ(p.WaitForResponse(kShort), FALSE);
    EXPECT_EQ(c->DetectRequest(kNow), FALSE) << "the request was taken back";

    // A manual-reset request is not withdrawn: the child may still answer.
    ParentInterlockSepThread m(TRUE);
    EXPECT_EQ(m.MakeRequest(), TRUE);
    EXPECT_EQ(m.WaitForResponseComplete(kShort, TRUE), FALSE);
    EXPECT_EQ(m.SpawnChildInterlockSepThread()->DetectRequest(kNow), TRUE);
}

// A child that took an auto-reset request is at work: with complete TRUE the
// parent sees the job through long after its time limit; without, it gives
// up at the limit and the late report waits in the response.
TEST(InterlockSepThreadTest, TakenJobIsSeenThroughAfterTheTimeLimit)
{
    for (BOOLTYPE complete : {TRUE, FALSE}) {
        SCOPED_TRACE(complete == TRUE ? "complete" : "not complete");
        ParentInterlockSepThread p(FALSE);
        ChildInterlockSepThread *c = p.SpawnChildInterlockSepThread();
        HANDLE taken = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        // Without complete, the job ends only once the parent has given up.
        HANDLE finish = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        HANDLE child = tstest::StartThread([&] {
            if (c->DetectRequest(kBound)) {
                SetEvent(taken);
                if (complete == TRUE)
                    Sleep(300); // the job's own length, well past the parent's limit
                else
                    WaitForSingleObject(finish, kWaitBound);
                c->NotifyStateReached();
            }
            return 0u;
        });
        EXPECT_EQ(p.MakeRequest(), TRUE);
        ASSERT_EQ(WaitForSingleObject(taken, kWaitBound), WAIT_OBJECT_0);
        auto start = std::chrono::steady_clock::now();
        BOOLTYPE seen = p.WaitForResponseComplete(kShort, complete);
        if (complete == TRUE) {
            EXPECT_EQ(seen, TRUE);
            EXPECT_GE(MsSince(start), 200);
        } else {
            EXPECT_EQ(seen, FALSE);
            SetEvent(finish);
            EXPECT_EQ(p.WaitForResponse(kBound), TRUE) << "the late report stays in the response";
        }
        ASSERT_TRUE(tstest::Joined(child));
        CloseHandle(taken);
        CloseHandle(finish);
    }
}

// Parents built from a parent or from a child share one request; each has
// its own response. One request reaches every child, each answers its own
// parent, and a reset on one member clears the request and only its own
// response.
TEST(InterlockSepThreadTest, SharedRequestOverSeveralParents)
{
    ParentInterlockSepThread first;
    ParentInterlockSepThread *second = new ParentInterlockSepThread(&first, TRUE);
    ParentInterlockSepThread *third = new ParentInterlockSepThread(first.SpawnChildInterlockSepThread(), TRUE);
    ParentInterlockSepThread *parents[] = {&first, second, third, nullptr};
    HANDLE children[3];
    for (int i = 0; i < 3; ++i) {
        ChildInterlockSepThread *c = parents[i]->SpawnChildInterlockSepThread();
        children[i] = tstest::StartThread([c] { return c->DetectRequest(kBound) && c->NotifyStateReached() ? 0u : 1u; });
    }
    ParentMultiLockSepThread all(parents);
    EXPECT_EQ(all.WaitForResponse(kNow, FALSE, nullptr), FALSE);
    EXPECT_EQ(second->MakeRequest(), TRUE);
    EXPECT_EQ(all.WaitForResponse(kBound, TRUE, nullptr), TRUE);
    for (HANDLE h : children)
        EXPECT_EQ(tstest::ThreadResult(h), 0u);

    EXPECT_EQ(third->ResetInterlock(), TRUE);
    EXPECT_EQ(first.SpawnChildInterlockSepThread()->DetectRequest(kNow), FALSE) << "the common request is clear";
    EXPECT_EQ(third->WaitForResponse(kNow), FALSE);
    EXPECT_EQ(first.WaitForResponse(kNow), TRUE) << "other members keep their responses";
    EXPECT_EQ(second->WaitForResponse(kNow), TRUE);

    // A sharing parent leaves the request event open when it goes.
    delete second;
    delete third;
    EXPECT_EQ(first.MakeRequest(), TRUE);
    EXPECT_EQ(first.SpawnChildInterlockSepThread()->DetectRequest(kNow), TRUE);
}

TEST(InterlockSepThreadTest, ParentlessChild)
{
    ChildInterlockSepThread orphan;
    EXPECT_EQ(orphan.DetectRequest(kNow), FALSE);
    EXPECT_EQ(orphan.NotifyStateReached(), FALSE);

    // A parent built from a parentless child has a request of its own.
    ParentInterlockSepThread own(&orphan, TRUE);
    ParentInterlockSepThread unrelated;
    EXPECT_EQ(own.MakeRequest(), TRUE);
    EXPECT_EQ(own.SpawnChildInterlockSepThread()->DetectRequest(kNow), TRUE);
    EXPECT_EQ(unrelated.SpawnChildInterlockSepThread()->DetectRequest(kNow), FALSE);
}
