// SngLinkQue and Iterator: order, the three ways of taking, closing, null
// entries, flushing, a failed insertion, and many producers and consumers
// with a close racing them.
#include "SngLQue.h"

#include "TestSupport.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

class Item : public CObject {
public:
    explicit Item(int v) : value(v) { ++alive; }
    ~Item() override { --alive; }
    int value;
    static std::atomic<int> alive;
};
std::atomic<int> Item::alive{0};

int ValueOf(CObject *o) { return static_cast<Item *>(o)->value; }

TEST(SngLinkQueTest, FirstInFirstOutWithRemaining)
{
    SngLinkQue q;
    Item a(1), b(2), c(3);
    EXPECT_NE(q.InsertBroadcast(&a), nullptr);
    q.InsertBroadcast(&b);
    q.InsertBroadcast(&c);
    unsigned int remaining = 99;
    EXPECT_EQ(q.GetWait(remaining, 1), &a);
    EXPECT_EQ(remaining, 2u);
    EXPECT_EQ(q.GetWait(remaining), &b); // data there: the blocking form takes at once
    EXPECT_EQ(remaining, 1u);
    unsigned long waitResult = 99;
    EXPECT_EQ(q.GetTimedWait(5, 0, waitResult), &c);
    EXPECT_EQ(waitResult, 0u);
    EXPECT_EQ(q.GetWait(remaining, 1), nullptr);
    EXPECT_EQ(remaining, 0u);
    EXPECT_EQ(q.GetTimedWait(0, 20000000, waitResult), nullptr);
    EXPECT_EQ(waitResult, static_cast<unsigned long>(WAIT_TIMEOUT));
}

TEST(SngLinkQueTest, ClosedQueueDrainsThenStopsWaiting)
{
    SngLinkQue q;
    Item a(1), b(2);
    q.InsertBroadcast(&a);
    q.InsertBroadcast(&b);
    EXPECT_EQ(q.CloseBroadcast(), 1);
    unsigned int remaining = 0;
    EXPECT_EQ(q.GetWait(remaining), &a);
    EXPECT_EQ(remaining, 1u);
    EXPECT_EQ(q.GetWait(remaining), &b);
    EXPECT_EQ(q.GetWait(remaining), nullptr);
    EXPECT_EQ(remaining, 0xFFFFFFFFu);
    EXPECT_EQ(q.GetWait(remaining, 1), nullptr);
    EXPECT_EQ(remaining, 0u);
    unsigned long waitResult = 99;
    EXPECT_EQ(q.GetTimedWait(1000, 0, waitResult), nullptr); // no wait at all
    EXPECT_EQ(waitResult, 0u);
    // A closed queue still takes objects.
    EXPECT_NE(q.InsertBroadcast(&a), nullptr);
    EXPECT_EQ(q.GetWait(remaining), &a);
}

TEST(SngLinkQueTest, CloseWakesABlockedConsumerWithoutAnotherMessage)
{
    SngLinkQue q;
    CObject *got = &q;
    unsigned int remaining = 0;
    bool ended = false;
    std::string out = tstest::PrintedBy([&] {
        HANDLE h = tstest::StartBlockedThread([&] {
            got = q.GetWait(remaining);
            return 0u;
        });
        q.CloseBroadcast();
        ended = tstest::Joined(h);
    });
    ASSERT_TRUE(ended);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(remaining, 0xFFFFFFFFu);
    EXPECT_EQ(out, "Will Wait on DATA\n");
}

TEST(SngLinkQueTest, TimedWaitWokenByAnInsertion)
{
    SngLinkQue q;
    Item a(7);
    CObject *got = nullptr;
    unsigned long waitResult = 99;
    HANDLE h = tstest::StartBlockedThread([&] {
        got = q.GetTimedWait(tstest::kWaitBound / 1000, 0, waitResult);
        return 0u;
    });
    q.InsertBroadcast(&a);
    ASSERT_TRUE(tstest::Joined(h));
    EXPECT_EQ(got, &a);
    EXPECT_EQ(waitResult, 0u);
}

TEST(SngLinkQueTest, NullEntriesAndFlush)
{
    int before = Item::alive;
    CObject *last = nullptr;
    {
        SngLinkQue q;
        q.Flush(); // empty: nothing happens
        EXPECT_EQ(q.GetCount(), 0);
        Item *kept = new Item(3);
        q.InsertBroadcast(new Item(1));
        q.InsertBroadcast(nullptr);
        q.InsertBroadcast(kept);
        unsigned int remaining = 0;
        // A null object comes out like any other, told apart by remaining.
        Iterator walk(q);
        EXPECT_EQ(ValueOf(walk()), 1);
        EXPECT_EQ(walk(), nullptr);
        q.Flush(); // deletes up to the null entry; the rest only leaves the list
        EXPECT_EQ(q.GetCount(), 0);
        EXPECT_EQ(Item::alive, before + 1);
        delete kept;
        q.InsertBroadcast(nullptr);
        q.InsertBroadcast(new Item(5));
        EXPECT_EQ(q.GetWait(remaining, 1), nullptr);
        EXPECT_EQ(remaining, 1u);
        // The destructor drops the nodes and deletes nothing.
        EXPECT_EQ(Item::alive, before + 1);
        last = q.GetWait(remaining);
        EXPECT_EQ(ValueOf(last), 5);
        q.InsertBroadcast(last);
    }
    EXPECT_EQ(Item::alive, before + 1); // the queue's destructor left it alive
    delete last;
}

TEST(IteratorTest, WalkAndPlaces)
{
    CObList empty;
    Iterator none(empty);
    EXPECT_EQ(none(), nullptr);
    EXPECT_EQ(++none, nullptr);
    EXPECT_EQ(none += 1, nullptr);
    EXPECT_EQ(none.container(), &empty);

    Item a(1), b(2), c(3);
    CObList list;
    list.AddTail(&a);
    list.AddTail(&b);
    list.AddTail(&c);
    Iterator it(list);
    EXPECT_EQ(it += 1, &a);
    EXPECT_EQ(it += 3, &c);
    EXPECT_EQ(it += 4, nullptr);
    EXPECT_EQ(it += 0, nullptr);
    EXPECT_EQ(it(), &a); // places did not move the cursor
    EXPECT_EQ(++it, &b); // the object at the cursor, not the one after it
    EXPECT_EQ(it(), &c);
    EXPECT_EQ(it(), nullptr);
    EXPECT_EQ(++it, nullptr);
    EXPECT_EQ(it += 2, &b);
}

TEST(SngLinkQueTest, FailedInsertionIsReportedAndSwallowed)
{
    TS_SKIP_ON_WINE("a Windows module keeps its own allocator, out of the program's reach");
    SngLinkQue q;
    Item a(1), extra(2);
    for (int i = 0; i < 10; ++i)
        q.InsertBroadcast(&a); // one full block of nodes
    POSITION pos = nullptr;
    ASSERT_TRUE(tstest::FailArrayAllocation(true));
    std::string out = tstest::PrintedBy([&] { pos = q.InsertBroadcast(&extra); });
    tstest::FailArrayAllocation(false);
    EXPECT_EQ(pos, nullptr);
    EXPECT_EQ(out, "Exception caught: Unable to insert object.\n");
    EXPECT_EQ(q.GetCount(), 10);
    // The lock was given back: the queue works on.
    EXPECT_NE(q.InsertBroadcast(&extra), nullptr);
    q.RemoveAll();
}

TEST(SngLinkQueTest, ManyProducersAndConsumersWithCloseRacing)
{
    const int kProducers = 3, kConsumers = 4, kPerProducer = 3000;
    SngLinkQue q;
    std::vector<std::atomic<int>> seen(kProducers * kPerProducer);
    std::atomic<int> producersLeft{kProducers};
    std::atomic<int> wrongEnd{0};
    std::vector<HANDLE> threads;
    ::testing::internal::CaptureStdout(); // the consumers' wait messages
    for (int c = 0; c < kConsumers; ++c)
        threads.push_back(tstest::StartThread([&] {
            for (;;) {
                unsigned int remaining = 0;
                CObject *o = q.GetWait(remaining);
                if (!o) {
                    if (remaining != 0xFFFFFFFFu)
                        ++wrongEnd;
                    return 0u;
                }
                ++seen[static_cast<size_t>(ValueOf(o))];
                delete o;
            }
        }));
    for (int p = 0; p < kProducers; ++p)
        threads.push_back(tstest::StartThread([&, p] {
            for (int i = 0; i < kPerProducer; ++i)
                q.InsertBroadcast(new Item(p * kPerProducer + i));
            // The last producer closes while consumers are still busy.
            if (--producersLeft == 0)
                q.CloseBroadcast();
            return 0u;
        }));
    bool allEnded = true;
    for (HANDLE h : threads)
        allEnded &= tstest::Joined(h);
    ::testing::internal::GetCapturedStdout();
    ASSERT_TRUE(allEnded);
    EXPECT_EQ(wrongEnd, 0);
    int lost = 0, twice = 0;
    for (auto &s : seen) {
        lost += s == 0;
        twice += s > 1;
    }
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(twice, 0);
    EXPECT_EQ(q.GetCount(), 0);
}

} // namespace
