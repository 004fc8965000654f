// The registry under writer processes killed at random moments, many at a
// time: every write that returned is there, SQLite finds the database
// whole, the change counter is even again after the next write, and the
// next writer works.
#include "RegistryFixture.h"
#include "StoreIntegrity.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

using tstest::ChildProcess;
using tstest::RegistryTest;

namespace {

// The rounds to run: TSUTIL_CRASH_ROUNDS, else a few for a test run.
int Rounds()
{
    const char *v = getenv("TSUTIL_CRASH_ROUNDS");
    return v && atoi(v) > 0 ? atoi(v) : 3;
}

// The registry's change counter: the first word of registry.db-seq.
uint64_t ChangeCounter(const std::string &root)
{
    uint64_t word = 1;
    int fd = open((root + "/registry.db-seq").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        if (pread(fd, &word, sizeof word, 0) != sizeof word)
            word = 1;
        close(fd);
    }
    return word;
}

} // namespace

TEST_F(RegistryTest, WritersKilledAtRandomMomentsLoseNoWriteThatReturned)
{
    constexpr int kWriters = 8;
    const unsigned seed = static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count());
    std::mt19937 random(seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    int oddAfterKill = 0;
    for (int round = 0; round < Rounds(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::vector<std::string> keys;
        ChildProcess writers[kWriters];
        for (int w = 0; w < kWriters; ++w) {
            keys.push_back(path_ + "\\r" + std::to_string(round) + "w" + std::to_string(w));
            ASSERT_TRUE(writers[w].Start("regworker", {"forever", keys.back()}));
        }
        // Each writer dies at a moment of its own: some before their first
        // write, most in the middle of one.
        std::vector<int> order(kWriters);
        for (int w = 0; w < kWriters; ++w)
            order[w] = w;
        std::shuffle(order.begin(), order.end(), random);
        for (int w : order) {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
            writers[w].Kill();
        }
        for (ChildProcess &w : writers)
            EXPECT_EQ(w.Wait(), 128 + 9);
        if (ChangeCounter(root_.path()) & 1)
            ++oddAfterKill;
        EXPECT_EQ(tstest::IntegrityOf(root_.path() + "/registry.db"), "ok");
        for (const std::string &k : keys) {
            HKEY key;
            if (RegOpenKeyExA(HKEY_CURRENT_USER, k.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
                continue; // killed before it made its key
            DWORD last = 0, count = 0;
            if (tstest::GetDword(key, "last", last) == ERROR_SUCCESS) {
                ASSERT_EQ(RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr,
                                           nullptr, nullptr, nullptr),
                          ERROR_SUCCESS);
                EXPECT_GE(count, last + 2) << k; // v0..v<last> and last
                EXPECT_LE(count, last + 3) << k; // and at most one write more
                for (DWORD i = 0; i <= last; ++i) {
                    DWORD v = ~0u;
                    ASSERT_EQ(tstest::GetDword(key, ("v" + std::to_string(i)).c_str(), v), ERROR_SUCCESS) << k << " v" << i;
                    EXPECT_EQ(v, i);
                }
            }
            RegCloseKey(key);
        }
        // The next write puts the counter right, whatever the kills left.
        SetDword(key_, "after", static_cast<DWORD>(round));
        EXPECT_EQ(ChangeCounter(root_.path()) & 1, 0u);
    }
    printf("rounds %d x %d writers killed; the counter was left odd after %d rounds\n", Rounds(), kWriters,
           oddAfterKill);
    EXPECT_EQ(tstest::RunChild("regworker", {"exchange", path_, "n", "m", "50"}), 0);
    EXPECT_EQ(tstest::IntegrityOf(root_.path() + "/registry.db"), "ok");
}
