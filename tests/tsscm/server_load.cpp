// The daemon under load and fault, as a process of its own: out of file
// descriptors it backs off and recovers; clients that say nothing, or stop
// in the middle of a request, hold up no other client and no control; its
// threads stay bounded however many clients connect.
#include "svcwire.h"

#include "ServiceFixture.h"

#include <sys/resource.h>
#include <sys/socket.h>

#include <dirent.h>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace tsp::svc;

namespace {

// A daemon in the foreground for a machine root of the test's own.
class Daemon {
public:
    Daemon()
    {
        EXPECT_TRUE(process_.Start("tsscm", {}));
        socket_ = root_.path() + "/run/" + kSocketName;
        EXPECT_TRUE(tstest::AwaitFile(socket_));
        int fd = Connect();
        ucred cred{};
        socklen_t len = sizeof cred;
        if (fd >= 0 && getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0)
            pid_ = cred.pid;
        if (fd >= 0)
            close(fd);
    }
    ~Daemon()
    {
        EXPECT_EQ(tstest::StopManager(), 0);
        EXPECT_EQ(process_.Wait(), 0);
    }
    int Connect() const { return connectSocket(socket_); }
    // One request and its reply's code on a new connection; -1 when the
    // daemon does not answer within the bound.
    long Hello() const
    {
        int fd = Connect();
        if (fd < 0)
            return -1;
        std::string reply;
        bool ok = sendFrame(fd, Writer().u32(static_cast<uint32_t>(Op::Hello)).data()) &&
                  recvFrame(fd, reply, static_cast<int>(tstest::kWaitBound));
        close(fd);
        Reader r(reply);
        uint32_t code = r.u32();
        return ok && r.ok() ? static_cast<long>(code) : -1;
    }
    pid_t pid() const { return pid_; }
    std::string Proc(const std::string &what) const { return "/proc/" + std::to_string(pid_) + "/" + what; }

private:
    tstest::ScopedMachineRoot root_;
    tstest::ChildProcess process_;
    std::string socket_;
    pid_t pid_ = 0;
};

size_t OpenDescriptors(const Daemon &d)
{
    size_t n = 0;
    if (DIR *dir = opendir(d.Proc("fd").c_str())) {
        while (dirent *e = readdir(dir))
            if (e->d_name[0] != '.')
                ++n;
        closedir(dir);
    }
    return n;
}

// User and system CPU time of the process so far, in clock ticks.
long CpuTicks(const Daemon &d)
{
    std::ifstream in(d.Proc("stat"));
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    long utime = 0, stime = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14)
            utime = std::stol(field);
        if (i == 15) {
            stime = std::stol(field);
            break;
        }
    }
    return utime + stime;
}

int Threads(const Daemon &d)
{
    std::ifstream in(d.Proc("status"));
    for (std::string line; std::getline(in, line);)
        if (line.rfind("Threads:", 0) == 0)
            return std::stoi(line.substr(8));
    return -1;
}

struct Connections {
    std::vector<int> fds;
    ~Connections()
    {
        for (int fd : fds)
            close(fd);
    }
};

} // namespace

TEST(TsscmUnderLoad, OutOfDescriptorsItBacksOffAndRecovers)
{
    Daemon daemon;
    ASSERT_NE(daemon.pid(), 0);
    ASSERT_EQ(daemon.Hello(), 0);
    // A few descriptors to spare, then more clients than that.
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = OpenDescriptors(daemon) + 4;
    ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_NOFILE, &limit, nullptr), 0) << strerror(errno);
    Connections clients;
    for (int i = 0; i < 40; ++i) {
        int fd = daemon.Connect(); // waits in the backlog once the daemon has no descriptor left
        ASSERT_GE(fd, 0) << strerror(errno);
        clients.fds.push_back(fd);
    }
    // The daemon has used up its descriptors ...
    for (DWORD waited = 0; OpenDescriptors(daemon) < limit.rlim_cur && waited < tstest::kWaitBound; waited += 5)
        Sleep(5);
    ASSERT_GE(OpenDescriptors(daemon), limit.rlim_cur);
    // ... and waits for one instead of spinning on accept. The window is
    // long enough that a loop at full speed would use most of it.
    long before = CpuTicks(daemon);
    Sleep(1000);
    long used = CpuTicks(daemon) - before;
    EXPECT_LT(used, sysconf(_SC_CLK_TCK) / 4) << "CPU ticks used in one second while out of descriptors";

    // Freed descriptors are taken up again: a new client is served.
    for (int fd : clients.fds)
        close(fd);
    clients.fds.clear();
    EXPECT_EQ(daemon.Hello(), 0);
}

TEST(TsscmUnderLoad, SilentAndStalledClientsHoldUpNoControl)
{
    Daemon daemon;
    ASSERT_NE(daemon.pid(), 0);
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    ASSERT_NE(scm, nullptr) << GetLastError();
    std::string image = "\"" + tstest::SiblingProgram("testservice") + "\"";
    SC_HANDLE svc = CreateServiceA(scm, "TsLoaded", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                   SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, image.c_str(), nullptr, nullptr,
                                   nullptr, nullptr, nullptr);
    ASSERT_NE(svc, nullptr) << GetLastError();
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();

    // Clients that connect and say nothing, that stop inside a frame's
    // length, and that stop inside a frame's payload.
    Connections stalled;
    for (int i = 0; i < 150; ++i) {
        int fd = daemon.Connect();
        ASSERT_GE(fd, 0) << strerror(errno);
        stalled.fds.push_back(fd);
        uint32_t length = 64;
        if (i % 3 == 1) {
            ASSERT_EQ(send(fd, &length, 2, MSG_NOSIGNAL), 2);
        } else if (i % 3 == 2) {
            ASSERT_TRUE(sendFrame(fd, std::string(reinterpret_cast<char *>(&length), 4) + "\x05"));
        }
    }

    // Every call completes (RunOnOtherThread gives up after the bound).
    unsigned result = tstest::RunOnOtherThread([&] {
        SERVICE_STATUS st{};
        for (DWORD waited = 0; QueryServiceStatus(svc, &st) && st.dwCurrentState != SERVICE_RUNNING; waited += 5) {
            if (waited > tstest::kWaitBound)
                return 1u;
            Sleep(5);
        }
        if (!ControlService(svc, SERVICE_CONTROL_INTERROGATE, &st) || st.dwCurrentState != SERVICE_RUNNING)
            return 2u;
        SC_HANDLE another = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
        if (!another)
            return 3u;
        CloseServiceHandle(another);
        if (!ControlService(svc, SERVICE_CONTROL_STOP, &st))
            return 4u;
        return 0u;
    });
    EXPECT_EQ(result, 0u);
    // One thread reads every connection; only waiting requests get a worker.
    int threads = Threads(daemon);
    EXPECT_GT(threads, 0);
    EXPECT_LE(threads, 20) << "threads of a daemon with " << stalled.fds.size() << " idle clients";

    SERVICE_STATUS st{};
    for (DWORD waited = 0; QueryServiceStatus(svc, &st) && st.dwCurrentState != SERVICE_STOPPED; waited += 5) {
        ASSERT_LT(waited, tstest::kWaitBound);
        Sleep(5);
    }
    EXPECT_TRUE(DeleteService(svc));
    CloseServiceHandle(svc);
    CloseServiceHandle(scm);
}

// The daemon, its clients and the dispatchers read frames through one
// buffer per connection, taking whatever has arrived: what arrives past a
// frame stays for the next read, a frame cut in two is waited for whole,
// and bad lengths, ends and silence fail as a single frame read does.
TEST(TsscmUnderLoad, BufferedFrameReadsKeepWhatFollows)
{
    struct Case {
        const char *what;
        std::vector<std::string> writes; // each sent in one call
        bool closeAfter;
        std::vector<std::string> frames; // read in turn
        int lastErrno;                   // of the read after them; 0: none made
    };
    std::string two, big(70000, 'x'), tooLong;
    appendFrame(two, "first");
    appendFrame(two, "second");
    std::string bigFrame;
    appendFrame(bigFrame, big);
    uint32_t huge = kMaxFrame + 1;
    tooLong.assign(reinterpret_cast<const char *>(&huge), sizeof huge);
    const Case cases[] = {
        {"two frames in one write", {two}, false, {"first", "second"}, ETIMEDOUT},
        {"a frame cut inside its length", {two.substr(0, 2), two.substr(2)}, false, {"first", "second"}, 0},
        {"a frame cut inside its payload", {two.substr(0, 7), two.substr(7)}, true, {"first", "second"}, ECONNRESET},
        {"a frame beyond one chunk", {bigFrame}, false, {big}, 0},
        {"a length above the limit", {tooLong}, false, {}, EPROTO},
        {"an end inside a frame", {two.substr(0, 7)}, true, {}, ECONNRESET},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        int sv[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv), 0);
        FrameAssembler in;
        std::string frame;
        size_t next = 0;
        for (const std::string &w : c.writes) {
            ASSERT_EQ(send(sv[1], w.data(), w.size(), MSG_NOSIGNAL), static_cast<ssize_t>(w.size()));
            // A frame already whole is taken without waiting for the next write.
            while (next < c.frames.size() && in.whole()) {
                ASSERT_TRUE(in.readFrame(sv[0], frame, 0));
                EXPECT_EQ(frame, c.frames[next++]);
            }
            if (&w != &c.writes.back())
                in.fill(sv[0]);
        }
        if (c.closeAfter)
            close(sv[1]);
        for (; next < c.frames.size(); ++next) {
            ASSERT_TRUE(in.readFrame(sv[0], frame, static_cast<int>(tstest::kWaitBound)));
            EXPECT_EQ(frame, c.frames[next]);
        }
        if (c.lastErrno) {
            errno = 0;
            EXPECT_FALSE(in.readFrame(sv[0], frame, 50));
            EXPECT_EQ(errno, c.lastErrno);
        }
        EXPECT_FALSE(in.whole());
        close(sv[0]);
        if (!c.closeAfter)
            close(sv[1]);
    }
}
