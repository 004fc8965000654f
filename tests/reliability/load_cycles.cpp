// 1,000 service control round trips and 1,000 registry cycles in a row:
// what the process (and the service manager) holds afterwards is what it
// held before: file descriptors, threads and handles exactly, resident
// memory within a small margin.
#include "RegistryFixture.h"
#include "ServiceFixture.h"
#include "ManagerProcess.h"
#include "ResourceLevels.h"

#include <cstdlib>
#include <string>

using tstest::LevelsOf;
using tstest::ResourceLevels;
using tstest::ServiceTest;

namespace {

constexpr int kCycles = 1000;

// What the resident memory may grow by over 1,000 cycles: allocator
// caches settle, but a leak of even 1 kB a cycle shows. Sanitizers keep
// freed memory aside for a while, so their builds get more room.
long RssMarginKb()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 16384;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return 16384;
#else
    return 1024;
#endif
#else
    return 1024;
#endif
}

// threadsAllowed: threads that may come and stay (a pool that grows to
// its bound under load is no leak).
void ExpectLevel(const ResourceLevels &before, const ResourceLevels &after, const char *who, long threadsAllowed = 0)
{
    printf("%s before: %s\n%s after:  %s\n", who, tstest::Describe(before).c_str(), who,
           tstest::Describe(after).c_str());
    EXPECT_EQ(after.fds, before.fds) << who;
    EXPECT_GE(after.threads, before.threads) << who;
    EXPECT_LE(after.threads, before.threads + threadsAllowed) << who;
    EXPECT_EQ(after.handles, before.handles) << who;
    EXPECT_LE(after.rssKb - before.rssKb, RssMarginKb()) << who;
}

} // namespace

class LoadServiceCycles : public ServiceTest {};

TEST_F(LoadServiceCycles, ThousandControlRoundTripsLeaveNothingBehind)
{
    std::string name;
    SC_HANDLE svc = Create("", SERVICE_DEMAND_START, &name);
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    pid_t daemon = tstest::ManagerProcessOf(root_.path());
    ASSERT_GT(daemon, 0);

    auto cycle = [&] {
        SERVICE_STATUS st{};
        SC_HANDLE h = OpenServiceA(scm_, name.c_str(), SERVICE_ALL_ACCESS);
        ASSERT_NE(h, nullptr) << GetLastError();
        ASSERT_TRUE(ControlService(h, SERVICE_CONTROL_INTERROGATE, &st)) << GetLastError();
        ASSERT_TRUE(ControlService(h, SERVICE_CONTROL_PAUSE, &st)) << GetLastError();
        ASSERT_TRUE(ControlService(h, SERVICE_CONTROL_CONTINUE, &st)) << GetLastError();
        ASSERT_TRUE(QueryServiceStatus(h, &st));
        ASSERT_TRUE(CloseServiceHandle(h));
    };
    for (int i = 0; i < 50; ++i) // caches and pools reach their size
        cycle();
    ResourceLevels before = LevelsOf(), daemonBefore = LevelsOf(daemon);
    for (int i = 0; i < kCycles && !HasFatalFailure(); ++i)
        cycle();
    ExpectLevel(before, LevelsOf(), "client");
    ResourceLevels daemonAfter = LevelsOf(daemon);
    daemonBefore.rssKb = daemonAfter.rssKb = 0; // the daemon's memory is its own build's matter
    // Its workers (at most 16, kept once made) may grow in number when the
    // machine is slow and a request comes while another is served.
    ExpectLevel(daemonBefore, daemonAfter, "daemon", 16);
    CloseServiceHandle(svc);
}

class LoadRegistryCycles : public tstest::RegistryTest {};

TEST_F(LoadRegistryCycles, ThousandOpenWriteReadCloseCyclesLeaveNothingBehind)
{
    auto cycle = [&](int i) {
        HKEY k;
        ASSERT_EQ(RegCreateKeyExA(key_, "cycle", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr), ERROR_SUCCESS);
        DWORD v = static_cast<DWORD>(i), back = 0;
        ASSERT_EQ(RegSetValueExA(k, "n", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4), ERROR_SUCCESS);
        ASSERT_EQ(tstest::GetDword(k, "n", back), ERROR_SUCCESS);
        ASSERT_EQ(back, v);
        ASSERT_EQ(RegCloseKey(k), ERROR_SUCCESS);
        ASSERT_EQ(RegOpenKeyExA(key_, "cycle", 0, KEY_READ, &k), ERROR_SUCCESS);
        ASSERT_EQ(tstest::GetDword(k, "n", back), ERROR_SUCCESS);
        ASSERT_EQ(RegCloseKey(k), ERROR_SUCCESS);
    };
    for (int i = 0; i < 50; ++i)
        cycle(i);
    ResourceLevels before = LevelsOf();
    for (int i = 0; i < kCycles && !HasFatalFailure(); ++i)
        cycle(i);
    ExpectLevel(before, LevelsOf(), "registry");
}
