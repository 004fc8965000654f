// The daemon run by an init system that speaks the notify protocol: it
// says READY=1 with a STATUS= line once clients can reach it, and on
// SIGTERM STOPPING=1 before it stops its services and ends, each as one
// datagram to the socket that NOTIFY_SOCKET names, a path or an abstract
// name.
#include "svcwire.h"

#include "ServiceFixture.h"

#include <poll.h>
#include <signal.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// The init system's end: a datagram socket bound at name ('@' for the
// abstract namespace).
class NotifySocket {
public:
    explicit NotifySocket(const std::string &name) : name_(name)
    {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        memcpy(a.sun_path, name.data(), name.size());
        bool abstract = name[0] == '@';
        if (abstract)
            a.sun_path[0] = '\0';
        socklen_t len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (abstract ? 0 : 1));
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&a), len), 0) << strerror(errno);
    }
    ~NotifySocket()
    {
        close(fd_);
        if (name_[0] == '/')
            unlink(name_.c_str());
    }
    // The next datagram, or "" after the bound.
    std::string Next()
    {
        pollfd p{fd_, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(tstest::kWaitBound)) != 1)
            return std::string();
        char buf[4096];
        ssize_t n = recv(fd_, buf, sizeof buf, 0);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
    }

private:
    std::string name_;
    int fd_ = -1;
};

pid_t PeerOf(const std::string &socketPath)
{
    int fd = tsp::svc::connectSocket(socketPath);
    ucred cred{};
    socklen_t len = sizeof cred;
    pid_t pid = fd >= 0 && getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 ? cred.pid : 0;
    if (fd >= 0)
        close(fd);
    return pid;
}

} // namespace

TEST(InitSystem, DaemonReportsReadyAndStoppingThroughTheNotifySocket)
{
    tstest::ScopedMachineRoot root;
    const std::string names[] = {"@tsutil-notify-" + std::to_string(getpid()), root.path() + "/notify"};
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        NotifySocket init(name);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        tstest::ChildProcess daemon;
        bool started = daemon.Start("tsscm", {});
        unsetenv("NOTIFY_SOCKET");
        ASSERT_TRUE(started);
        std::string ready = init.Next();
        EXPECT_NE(ready.find("READY=1\n"), std::string::npos) << ready;
        EXPECT_NE(ready.find("STATUS="), std::string::npos) << ready;
        // Ready means reachable: a client gets through at once.
        pid_t pid = PeerOf(root.path() + "/run/" + tsp::svc::kSocketName);
        ASSERT_GT(pid, 0);
        ASSERT_EQ(kill(pid, SIGTERM), 0);
        std::string stopping = init.Next();
        EXPECT_NE(stopping.find("STOPPING=1\n"), std::string::npos) << stopping;
        EXPECT_NE(stopping.find("STATUS="), std::string::npos) << stopping;
        EXPECT_EQ(daemon.Wait(), 0);
    }
}
