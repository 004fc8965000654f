// Multi-locks: the lowest index wins and is reported until reset, the extra
// response of ChildResp1MultiLockSepThread, list revisions, and the
// platform's limit of 64 handles.
#include <MultiLck.h>

#include "TestSupport.h"

#include <memory>
#include <vector>

using tstest::kWaitBound;

namespace {

const unsigned long kBound = kWaitBound;
const unsigned long kNow = 0;
const unsigned long kNoLimit = 0xFFFFFFFF;

// n parents with their children, and null-ended lists of both: across
// threads (manual or auto reset) or within one job loop.
template <class Parent, class Child> struct Pairs {
    explicit Pairs(int n, BOOLTYPE manual = TRUE)
    {
        for (int i = 0; i < n; ++i) {
            parents.emplace_back(Make(manual));
            parentList.push_back(parents.back().get());
            childList.push_back(Spawn(parents.back().get()));
        }
        parentList.push_back(nullptr);
        childList.push_back(nullptr);
    }
    static Parent *Make(BOOLTYPE manual) { return new ParentInterlockSepThread(manual); }
    static Child *Spawn(Parent *p) { return p->SpawnChildInterlockSepThread(); }
    std::vector<std::unique_ptr<Parent>> parents;
    std::vector<Parent *> parentList;
    std::vector<Child *> childList;
};
using ThreadPairs = Pairs<ParentInterlockSepThread, ChildInterlockSepThread>;
using JobPairs = Pairs<ParentInterlockSepJob, ChildInterlockSepJob>;
template <> ParentInterlockSepJob *JobPairs::Make(BOOLTYPE) { return new ParentInterlockSepJob; }
template <> ChildInterlockSepJob *JobPairs::Spawn(ParentInterlockSepJob *p) { return p->SpawnChildInterlockSepJob(); }

} // namespace

TEST(ChildMultiLockTest, LowestRequestWinsUntilItsParentResets)
{
    ThreadPairs t(3);
    JobPairs j(3);
    ChildMultiLockSepThread threads(t.childList.data());
    ChildMultiLockSepJob jobs(j.childList.data());
    ChildInterlock *found = reinterpret_cast<ChildInterlock *>(&found);

    EXPECT_EQ(threads.DetectRequest(&found, kNow), FALSE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(jobs.DetectRequest(&found, kNoLimit), FALSE) << "a polled pass never waits";

    t.parents[2]->MakeRequest();
    t.parents[0]->MakeRequest();
    j.parents[2]->MakeRequest();
    j.parents[0]->MakeRequest();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(threads.DetectRequest(&found, kBound), TRUE);
        EXPECT_EQ(found, t.childList[0]);
        EXPECT_EQ(jobs.DetectRequest(&found, kNow), TRUE);
        EXPECT_EQ(found, j.childList[0]);
    }
    t.parents[0]->ResetInterlock();
    j.parents[0]->ResetInterlock();
    EXPECT_EQ(threads.DetectRequest(&found, kBound), TRUE);
    EXPECT_EQ(found, t.childList[2]);
    EXPECT_EQ(jobs.DetectRequest(&found, kNow), TRUE);
    EXPECT_EQ(found, j.childList[2]);

    // An auto-reset request is taken by the detection that reports it.
    ThreadPairs a(2, FALSE);
    ChildMultiLockSepThread autos(a.childList.data());
    a.parents[1]->MakeRequest();
    EXPECT_EQ(autos.DetectRequest(&found, kBound), TRUE);
    EXPECT_EQ(found, a.childList[1]);
    EXPECT_EQ(autos.DetectRequest(&found, kNow), FALSE);
}

TEST(ChildMultiLockTest, EmptyAndDeferredListsGiveFalse)
{
    ChildInterlockSepThread *noThreads[] = {nullptr};
    ChildInterlockSepJob *noJobs[] = {nullptr};
    ChildInterlock *found = reinterpret_cast<ChildInterlock *>(&found);
    ChildMultiLockSepThread threads(noThreads);
    EXPECT_EQ(threads.DetectRequest(&found, kNow), FALSE);
    EXPECT_EQ(found, nullptr);
    found = reinterpret_cast<ChildInterlock *>(&found);
    ChildMultiLockSepJob jobs(noJobs);
    EXPECT_EQ(jobs.DetectRequest(&found, kNow), FALSE);
    EXPECT_EQ(found, nullptr);

    ThreadPairs t(1);
    t.parents[0]->MakeRequest();
    ChildMultiLockSepThread deferred(t.childList.data(), TRUE);
    EXPECT_EQ(deferred.DetectRequest(&found, kNow), FALSE) << "no array was built";
    deferred.ReviseInterlocksSepThread(t.childList.data());
    EXPECT_EQ(deferred.DetectRequest(&found, kNow), TRUE);
}

// A worker serves requests while a request of its own is outstanding, and
// sleeps in one wait for either.
TEST(ChildResp1MultiLockTest, RequestsAndTheOwnResponseInOneWait)
{
    ThreadPairs served(2);
    ParentInterlockSepThread own;
    ChildInterlockSepThread *helper = own.SpawnChildInterlockSepThread();
    ChildResp1MultiLockSepThread lock(served.childList.data(), &own);
    ChildInterlock *found = nullptr;

    EXPECT_EQ(own.MakeRequest(), TRUE);
    HANDLE h = tstest::StartThread([&] { return helper->DetectRequest(kBound) && helper->NotifyStateReached() ? 0u : 1u; });
    EXPECT_EQ(lock.DetectRequest(&found, kBound), TRUE);
    EXPECT_EQ(found, nullptr) << "the extra response";
    EXPECT_TRUE(tstest::Joined(h));

    // A waiting request goes before the response, which stays until reset.
    served.parents[1]->MakeRequest();
    EXPECT_EQ(lock.DetectRequest(&found, kNow), TRUE);
    EXPECT_EQ(found, served.childList[1]);
    served.parents[1]->ResetInterlock();
    EXPECT_EQ(lock.DetectRequest(&found, kNow), TRUE);
    EXPECT_EQ(found, nullptr);
    own.ResetInterlock();
    EXPECT_EQ(lock.DetectRequest(&found, kNow), FALSE);

    // A revision with a new parent and a list of the same length moves the
    // response entry to the new parent.
    ParentInterlockSepThread replacement;
    lock.ReviseInterlocksResp1SepThread(served.childList.data(), &replacement);
    own.SpawnChildInterlockSepThread()->NotifyStateReached();
    EXPECT_EQ(lock.DetectRequest(&found, kNow), FALSE) << "the former parent no longer counts";
    replacement.SpawnChildInterlockSepThread()->NotifyStateReached();
    EXPECT_EQ(lock.DetectRequest(&found, kNow), TRUE);
    EXPECT_EQ(found, nullptr);

    // Without a response parent it is a plain child multi-lock.
    lock.ReviseInterlocksResp1SepThread(served.childList.data(), nullptr);
    EXPECT_EQ(lock.DetectRequest(&found, kNow), FALSE);
    served.parents[0]->MakeRequest();
    EXPECT_EQ(lock.DetectRequest(&found, kNow), TRUE);
    EXPECT_EQ(found, served.childList[0]);
}

TEST(ParentMultiLockTest, AnyOrAllResponsesAndWhatFoundGets)
{
    ThreadPairs t(3);
    JobPairs j(3);
    ParentMultiLockSepThread threads(t.parentList.data());
    ParentMultiLockSepJob jobs(j.parentList.data());
    ParentInterlock *const untouched = reinterpret_cast<ParentInterlock *>(&t);
    ParentInterlock *found = untouched;

    EXPECT_EQ(threads.GetInterlockCount(), 3);
    EXPECT_EQ(threads.WaitForResponse(kNow, FALSE, &found), FALSE);
    EXPECT_EQ(found, nullptr);

    t.childList[2]->NotifyStateReached();
    t.childList[1]->NotifyStateReached();
    j.childList[2]->NotifyStateReached();
    j.childList[1]->NotifyStateReached();
    EXPECT_EQ(threads.WaitForResponse(kBound, FALSE, &found), TRUE);
    EXPECT_EQ(found, t.parentList[1]);
    EXPECT_EQ(jobs.WaitForResponse(kNow, FALSE, &found), TRUE);
    EXPECT_EQ(found, j.parentList[1]);
    EXPECT_EQ(threads.WaitForResponse(kNow, FALSE, nullptr), TRUE);
    EXPECT_EQ(jobs.WaitForResponse(kNow, FALSE, nullptr), FALSE) << "the polled form reports nothing without found";

    // All: not yet, and found is never written.
    found = untouched;
    EXPECT_EQ(threads.WaitForResponse(kNow, TRUE, &found), FALSE);
    EXPECT_EQ(jobs.WaitForResponse(kNoLimit, TRUE, &found), FALSE) << "at once, whatever the limit";
    t.childList[0]->NotifyStateReached();
    j.childList[0]->NotifyStateReached();
    EXPECT_EQ(threads.WaitForResponse(kBound, TRUE, &found), TRUE);
    EXPECT_EQ(jobs.WaitForResponse(kNow, TRUE, &found), TRUE);
    EXPECT_EQ(found, untouched);
}

TEST(ParentMultiLockTest, RevisionsAndEmptyLists)
{
    ThreadPairs t(3);
    ParentMultiLockSepThread lock(t.parentList.data());
    ParentInterlock *const untouched = reinterpret_cast<ParentInterlock *>(&t);
    ParentInterlock *found = untouched;

    // A shorter list: the count follows, and the dropped parent's response
    // no longer counts.
    ParentInterlockSepThread *shorter[] = {t.parentList[1], t.parentList[2], nullptr};
    lock.ReviseInterlocksSepThread(shorter);
    EXPECT_EQ(lock.GetInterlockCount(), 2);
    t.childList[0]->NotifyStateReached();
    EXPECT_EQ(lock.WaitForResponse(kNow, FALSE, &found), FALSE);
    t.childList[2]->NotifyStateReached();
    EXPECT_EQ(lock.WaitForResponse(kNow, FALSE, &found), TRUE);
    EXPECT_EQ(found, t.parentList[2]);

    ParentInterlockSepThread *none[] = {nullptr};
    ParentInterlockSepJob *noJobs[] = {nullptr};
    lock.ReviseInterlocksSepThread(none);
    ParentMultiLockSepJob jobs(noJobs);
    found = untouched;
    EXPECT_EQ(lock.GetInterlockCount(), 0);
    EXPECT_EQ(lock.WaitForResponse(kNoLimit, FALSE, &found), FALSE);
    EXPECT_EQ(jobs.WaitForResponse(kNoLimit, FALSE, &found), FALSE);
    EXPECT_EQ(jobs.GetInterlockCount(), 0);
    EXPECT_EQ(found, untouched) << "an empty list writes nothing";
}

// The platform waits on 64 handles at most: 64 parents work, 65 never do.
TEST(ParentMultiLockTest, SixtyFourParentsAtMost)
{
    ThreadPairs t(65);
    for (auto *c : t.childList)
        if (c)
            c->NotifyStateReached();
    ParentMultiLockSepThread lock(t.parentList.data());
    ParentInterlock *found = nullptr;
    EXPECT_EQ(lock.GetInterlockCount(), 65);
    EXPECT_EQ(lock.WaitForResponse(kNow, FALSE, &found), FALSE);
    EXPECT_EQ(lock.WaitForResponse(kNow, TRUE, nullptr), FALSE);

    std::vector<ParentInterlockSepThread *> first64(t.parentList.begin() + 1, t.parentList.end());
    lock.ReviseInterlocksSepThread(first64.data());
    EXPECT_EQ(lock.GetInterlockCount(), 64);
    EXPECT_EQ(lock.WaitForResponse(kNow, FALSE, &found), TRUE);
    EXPECT_EQ(found, t.parentList[1]);
    EXPECT_EQ(lock.WaitForResponse(kBound, TRUE, nullptr), TRUE);

    ChildMultiLockSepThread children(t.childList.data());
    ChildInterlock *child = nullptr;
    t.parents[0]->MakeRequest();
    EXPECT_EQ(children.DetectRequest(&child, kNow), FALSE);
}
