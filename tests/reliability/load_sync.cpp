// 64 threads at once on interlocks, multi-locks and the queue, for
// TSUTIL_LOAD_SECONDS seconds each (a short default for a test run):
// nothing lost, nothing taken twice, and no wait that runs into its bound
// (which is how a deadlock or a lost wake-up shows).
#include <Intrlck.h>
#include <MultiLck.h>
#include <SngLQue.h>

#include "TestSupport.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 64;

std::chrono::seconds LoadDuration()
{
    const char *v = getenv("TSUTIL_LOAD_SECONDS");
    return std::chrono::seconds(v && atoi(v) > 0 ? atoi(v) : 5);
}

// A bound long enough for a loaded sanitizer build: a wait that reaches
// it is a hang.
constexpr unsigned long kHang = 60000;

class Clock {
public:
    Clock() : end_(std::chrono::steady_clock::now() + LoadDuration()) {}
    bool running() const { return std::chrono::steady_clock::now() < end_; }

private:
    std::chrono::steady_clock::time_point end_;
};

} // namespace

// 32 parents and 32 children, a pair each: every request answered once.
TEST(LoadInterlocks, SixtyFourThreadsHandshakeWithoutLossOrRepeat)
{
    constexpr int kPairs = kThreads / 2;
    std::vector<std::unique_ptr<ParentInterlockSepThread>> parents;
    std::vector<ChildInterlockSepThread *> children;
    for (int i = 0; i < kPairs; ++i) {
        parents.emplace_back(new ParentInterlockSepThread(FALSE)); // a detection takes the request
        children.push_back(parents.back()->SpawnChildInterlockSepThread());
    }
    std::vector<long> asked(kPairs), answered(kPairs);
    std::atomic<int> hangs{0}, parentsLeft{kPairs};
    Clock clock;
    std::vector<std::thread> threads;
    for (int i = 0; i < kPairs; ++i) {
        threads.emplace_back([&, i] {
            while (clock.running()) {
                if (!parents[i]->MakeRequest() || !parents[i]->WaitForResponse(kHang)) {
                    ++hangs;
                    break;
                }
                ++asked[i];
                parents[i]->ResetInterlock();
            }
            --parentsLeft;
        });
        threads.emplace_back([&, i] {
            for (;;) {
                if (children[i]->DetectRequest(20)) {
                    ++answered[i];
                    children[i]->NotifyStateReached();
                } else if (parentsLeft == 0) {
                    break;
                }
            }
        });
    }
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(hangs, 0);
    long total = 0;
    for (int i = 0; i < kPairs; ++i) {
        EXPECT_EQ(answered[i], asked[i]) << "pair " << i;
        EXPECT_GT(asked[i], 0) << "pair " << i << " never got through";
        total += asked[i];
    }
    printf("%ld handshakes by %d threads\n", total, kThreads);
}

// Four children, each watching 15 parents through one multi-lock: every
// request reaches the child of its own parent once.
TEST(LoadMultiLocks, SixtyFourThreadsOnFourMultiLocks)
{
    constexpr int kGroups = 4, kPerGroup = kThreads / kGroups - 1;
    struct Group {
        std::vector<std::unique_ptr<ParentInterlockSepThread>> parents;
        std::vector<ChildInterlockSepThread *> children; // null-ended
        std::vector<long> asked = std::vector<long>(kPerGroup), answered = std::vector<long>(kPerGroup);
        std::atomic<int> parentsLeft{kPerGroup};
    };
    std::vector<std::unique_ptr<Group>> groups;
    for (int g = 0; g < kGroups; ++g) {
        groups.emplace_back(new Group);
        for (int i = 0; i < kPerGroup; ++i) {
            groups[g]->parents.emplace_back(new ParentInterlockSepThread(FALSE));
            groups[g]->children.push_back(groups[g]->parents.back()->SpawnChildInterlockSepThread());
        }
        groups[g]->children.push_back(nullptr);
    }
    std::atomic<int> hangs{0}, strangers{0};
    Clock clock;
    std::vector<std::thread> threads;
    for (int g = 0; g < kGroups; ++g) {
        Group &group = *groups[g];
        for (int i = 0; i < kPerGroup; ++i) {
            threads.emplace_back([&, i] {
                while (clock.running()) {
                    if (!group.parents[i]->MakeRequest() || !group.parents[i]->WaitForResponse(kHang)) {
                        ++hangs;
                        break;
                    }
                    ++group.asked[i];
                    group.parents[i]->ResetInterlock();
                }
                --group.parentsLeft;
            });
        }
        threads.emplace_back([&] {
            ChildMultiLockSepThread lock(group.children.data());
            for (;;) {
                ChildInterlock *found = nullptr;
                if (lock.DetectRequest(&found, 20)) {
                    int index = -1;
                    for (int i = 0; i < kPerGroup; ++i)
                        if (group.children[i] == found)
                            index = i;
                    if (index < 0) {
                        ++strangers;
                        continue;
                    }
                    ++group.answered[index];
                    found->NotifyStateReached();
                } else if (group.parentsLeft == 0) {
                    break;
                }
            }
        });
    }
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(hangs, 0);
    EXPECT_EQ(strangers, 0);
    long total = 0;
    for (auto &group : groups) {
        for (int i = 0; i < kPerGroup; ++i) {
            EXPECT_EQ(group->answered[i], group->asked[i]);
            total += group->asked[i];
        }
    }
    printf("%ld multi-lock handshakes by %d threads\n", total, kThreads);
}

namespace {

struct Item : CObject {
    Item(int p, long s) : producer(p), seq(s) {}
    int producer;
    long seq;
};

} // namespace

// 32 producers and 32 consumers on one queue, then closed: every object
// taken exactly once, and each producer's objects in the order it put them.
// A consumer knows the end by the blocking GetWait's null with 0xFFFFFFFF;
// the form with noWait gives 0 for a closed queue as for an open one, so
// it cannot tell a consumer to stop.
TEST(LoadQueue, SixtyFourThreadsLoseAndRepeatNothing)
{
    constexpr int kProducers = kThreads / 2, kConsumers = kThreads / 2;
    SngLinkQue queue;
    std::vector<long> produced(kProducers);
    std::vector<std::vector<char>> seen(kProducers);
    std::mutex seenLock;
    std::atomic<long> repeats{0}, disorders{0}, hangs{0};
    std::atomic<bool> closed{false};
    Clock clock;
    std::vector<std::thread> producers, consumers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            while (clock.running()) {
                ASSERT_NE(queue.InsertBroadcast(new Item(p, produced[p])), nullptr);
                ++produced[p];
            }
        });
    }
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back([&] {
            std::vector<long> lastSeq(kProducers, -1);
            auto started = std::chrono::steady_clock::now();
            for (;;) {
                unsigned long waitResult = 0;
                CObject *o = queue.GetTimedWait(0, 100000000, waitResult); // 100 ms
                if (!o && closed) {
                    // Nothing more comes: the blocking form returns at once.
                    unsigned int remaining = 0;
                    o = queue.GetWait(remaining, 0);
                    if (!o && remaining == 0xFFFFFFFFu)
                        break; // closed and empty
                }
                if (!o) {
                    if (tstest::MsSince(started) > 600000) {
                        ++hangs;
                        break;
                    }
                    continue;
                }
                Item *item = static_cast<Item *>(o);
                if (item->seq <= lastSeq[item->producer])
                    ++disorders; // one consumer sees one producer's objects in order
                lastSeq[item->producer] = item->seq;
                {
                    std::lock_guard<std::mutex> g(seenLock);
                    std::vector<char> &s = seen[item->producer];
                    if (s.size() <= static_cast<size_t>(item->seq))
                        s.resize(static_cast<size_t>(item->seq) + 1);
                    if (s[static_cast<size_t>(item->seq)]++)
                        ++repeats;
                }
                delete item;
            }
        });
    }
    for (std::thread &t : producers)
        t.join();
    queue.CloseBroadcast();
    closed = true;
    for (std::thread &t : consumers)
        t.join();
    EXPECT_EQ(hangs, 0);
    EXPECT_EQ(repeats, 0);
    EXPECT_EQ(disorders, 0);
    long total = 0;
    for (int p = 0; p < kProducers; ++p) {
        long got = 0;
        for (char c : seen[p])
            got += c != 0;
        EXPECT_EQ(got, produced[p]) << "producer " << p << " lost objects";
        total += produced[p];
    }
    printf("%ld objects through the queue, %d threads\n", total, kThreads);
}
