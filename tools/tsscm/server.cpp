// The daemon's socket and signal loop.
#include "server.h"

#include "log.h"
#include "monotonic.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace tsp::svc;

namespace tsscm {

namespace {

constexpr int kFirstBackoffMs = 10;
constexpr int kLongestBackoffMs = 1000;
// A worker's reply to a client that does not read it gives up after this.
constexpr int kReplySendTimeoutMs = 5000;
// How long a worker waits for a client's next request that waits.
constexpr int kLingerMs = 2;

} // namespace

Server::Server(Manager &manager, RequestHandler &handler, const ServerOptions &options)
    : manager_(manager), handler_(handler), options_(options)
{
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

Server::~Server()
{
    // The daemon ends with _exit; a server that is destroyed first leaves
    // its workers to the process's end.
    for (std::thread &t : threads_)
        t.detach();
    for (auto &entry : connections_)
        close(entry.first);
    if (listenFd_ >= 0)
        close(listenFd_);
    if (wakeFd_ >= 0)
        close(wakeFd_);
}

bool Server::listenAt(const std::string &path)
{
    if (wakeFd_ < 0)
        return false;
    socketPath_ = path;
    std::string bindPath = path + "." + std::to_string(getpid());
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (bindPath.size() >= sizeof addr.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(addr.sun_path, bindPath.c_str(), bindPath.size() + 1);
    unlink(bindPath.c_str());
    listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    mode_t old = umask(077);
    int bound = listenFd_ < 0 ? -1 : bind(listenFd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    umask(old);
    if (bound != 0 || chmod(bindPath.c_str(), 0600) != 0 || listen(listenFd_, 128) != 0 ||
        rename(bindPath.c_str(), path.c_str()) != 0) {
        int e = errno;
        unlink(bindPath.c_str());
        errno = e;
        return false;
    }
    struct stat st;
    if (stat(path.c_str(), &st) == 0)
        socketInode_ = st.st_ino;
    return true;
}

void Server::removeSocket()
{
    struct stat st;
    if (!socketPath_.empty() && stat(socketPath_.c_str(), &st) == 0 && st.st_ino == socketInode_)
        unlink(socketPath_.c_str());
}

void Server::wake()
{
    uint64_t one = 1;
    // A full counter already wakes the loop.
    if (write(wakeFd_, &one, sizeof one) < 0 && errno != EAGAIN)
        logLine("cannot wake the loop: %s", strerror(errno));
}

void Server::post(std::function<void()> fn)
{
    std::lock_guard<std::mutex> g(lock_);
    jobs_.push_back(std::move(fn));
    if (idleWorkers_ == 0 && threads_.size() < options_.workers)
        threads_.emplace_back(&Server::workerMain, this);
    else
        work_.notify_one();
}

void Server::workerMain()
{
    std::unique_lock<std::mutex> g(lock_);
    for (;;) {
        ++idleWorkers_;
        work_.wait(g, [&] { return !jobs_.empty(); });
        --idleWorkers_;
        std::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        ++runningJobs_;
        g.unlock();
        job();
        g.lock();
        --runningJobs_;
        if (jobs_.empty() && runningJobs_ == 0)
            wake(); // the loop may be idle now
    }
}

void Server::finished(int fd, bool ok)
{
    {
        std::lock_guard<std::mutex> g(lock_);
        done_.emplace_back(fd, ok);
    }
    wake();
}

void Server::acceptAll()
{
    for (;;) {
        int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                if (outOfDescriptors_)
                    logLine("every waiting client accepted again");
                outOfDescriptors_ = false;
                return;
            }
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // Out of descriptors (or memory): the pending connection
                // waits in the backlog until one is freed or the pause ends.
                if (!outOfDescriptors_)
                    logLine("accept: %s; waiting for a free descriptor", strerror(errno));
                outOfDescriptors_ = true;
                backoffMs_ = backoffMs_ == 0 ? kFirstBackoffMs : std::min(backoffMs_ * 2, kLongestBackoffMs);
                acceptAfter_ = tsp::monotonicMs() + backoffMs_;
                return;
            }
            logLine("accept: %s", strerror(errno));
            stopping_ = true;
            return;
        }
        backoffMs_ = 0;
        acceptAfter_ = 0;
        Connection c;
        c.fd = fd;
        ucred cred{};
        socklen_t len = sizeof cred;
        c.ours = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 && cred.uid == getuid();
        c.pid = cred.pid;
        timeval tv{kReplySendTimeoutMs / 1000, 0};
        if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) != 0)
            logLine("SO_SNDTIMEO: %s", strerror(errno));
        ++perProcess_[c.pid];
        connections_.emplace(fd, std::move(c));
    }
}

// The process has one connection less: with none left, its handles close.
void Server::release(pid_t pid)
{
    auto it = perProcess_.find(pid);
    if (it == perProcess_.end() || --it->second > 0)
        return;
    perProcess_.erase(it);
    if (pid != 0)
        manager_.clientGone(pid);
}

void Server::drop(int fd)
{
    auto it = connections_.find(fd);
    if (it == connections_.end())
        return;
    pid_t pid = it->second.pid;
    connections_.erase(it);
    close(fd);
    release(pid);
    acceptAfter_ = 0; // a descriptor is free again
}

// Serves what has arrived on the connection, without waiting for more.
void Server::serve(Connection &c)
{
    const int fd = c.fd;
    while (!c.busy) {
        std::string frame;
        FrameAssembler::Result r = c.in.readFrom(fd, frame);
        if (r == FrameAssembler::Result::More)
            return;
        if (r != FrameAssembler::Result::Frame) {
            drop(fd);
            return;
        }
        if (!c.ours) {
            // Another user's process: refused, whatever it asks.
            sendFrame(fd, Writer().u32(ERROR_ACCESS_DENIED).data(), false);
            drop(fd);
            return;
        }
        Op op = RequestHandler::operationOf(frame);
        pid_t peer = c.pid;
        if (op == Op::Dispatcher) {
            // The connection leaves the loop: the service's now, or closed.
            connections_.erase(fd);
            if (!handler_.attachDispatcher(fd, peer))
                close(fd);
            release(peer);
            return;
        }
        if (RequestHandler::mayWait(op)) {
            c.busy = true;
            // The worker has the connection's buffer until it is done.
            FrameAssembler *in = &c.in;
            post([this, fd, peer, frame, in] {
                std::string request = frame;
                bool ok;
                for (;;) {
                    bool stop = false;
                    std::string reply = handler_.handle(request, peer, &stop);
                    ok = sendFrame(fd, reply);
                    if (stop)
                        stopping_ = true;
                    if (!ok || stopping_ || !nextWaitingRequest(fd, *in, request))
                        break;
                }
                finished(fd, ok);
            });
            return;
        }
        bool stop = false;
        std::string reply = handler_.handle(frame, peer, &stop);
        if (!sendFrame(fd, reply, false)) {
            drop(fd);
            return;
        }
    }
}

// A client that sent one request that waits often sends the next one
// (a pause, then a continue) as soon as it has the reply. The worker that
// answered keeps the connection for a moment and serves such a request
// itself: handing the connection back to the loop and the request on to a
// worker again would cost two more wake-ups between threads. Anything
// else, or nothing within the moment, goes back to the loop in the
// connection's buffer, where the loop serves it as it would have.
bool Server::nextWaitingRequest(int fd, FrameAssembler &in, std::string &request)
{
    if (!in.partial()) {
        pollfd pfd{fd, POLLIN, 0};
        int r;
        while ((r = poll(&pfd, 1, kLingerMs)) < 0 && errno == EINTR) {
        }
        if (r <= 0 || !(pfd.revents & POLLIN))
            return false;
        in.fill(fd);
    }
    // Only a request that has arrived whole is taken; the rest of what was
    // read stays in the buffer, the loop's again.
    uint32_t op = 0;
    if (!in.whole(&op) || !RequestHandler::mayWait(static_cast<Op>(op)))
        return false;
    return in.readFrom(fd, request) == FrameAssembler::Result::Frame;
}

void Server::readSignal()
{
    signalfd_siginfo info{};
    ssize_t n = read(options_.signalFd, &info, sizeof info);
    if (n != static_cast<ssize_t>(sizeof info))
        return;
    logLine("signal %u: stopping", info.ssi_signo);
    post([this] {
        manager_.shutdown();
        stopping_ = true;
        wake();
    });
}

int Server::pollTimeoutMs(int64_t now)
{
    int64_t timeout = -1;
    if (acceptAfter_ > now)
        timeout = acceptAfter_ - now;
    if (idleSince_ >= 0) {
        int64_t left = idleSince_ + options_.idleExitMs - now;
        if (left < 0)
            left = 0;
        if (timeout < 0 || left < timeout)
            timeout = left;
    }
    return static_cast<int>(timeout);
}

void Server::run()
{
    std::vector<pollfd> fds;
    while (!stopping_) {
        int64_t now = tsp::monotonicMs();
        std::vector<std::pair<int, bool>> done;
        {
            std::lock_guard<std::mutex> g(lock_);
            done.swap(done_);
        }
        for (auto &d : done) {
            auto it = connections_.find(d.first);
            if (it == connections_.end())
                continue;
            it->second.busy = false;
            if (!d.second)
                drop(d.first);
        }
        // A connection back from a worker may hold a whole request already.
        for (auto it = connections_.begin(); it != connections_.end();) {
            int fd = it->first;
            ++it;
            auto c = connections_.find(fd);
            if (c != connections_.end() && !c->second.busy && c->second.in.partial())
                serve(c->second);
        }
        if (stopping_)
            break;
        bool idle = false;
        if (options_.onDemand && connections_.empty() && !manager_.hasProcesses()) {
            std::lock_guard<std::mutex> g(lock_);
            idle = jobs_.empty() && runningJobs_ == 0;
        }
        if (!idle)
            idleSince_ = -1;
        else if (idleSince_ < 0)
            idleSince_ = now;
        else if (now - idleSince_ >= options_.idleExitMs)
            break; // idle for the whole period

        fds.clear();
        fds.push_back({wakeFd_, POLLIN, 0});
        fds.push_back({options_.signalFd, POLLIN, 0}); // a negative descriptor is passed over
        bool accepting = acceptAfter_ <= now;
        fds.push_back({accepting ? listenFd_ : -1, POLLIN, 0});
        for (auto &entry : connections_)
            if (!entry.second.busy)
                fds.push_back({entry.first, POLLIN, 0});
        int n = poll(fds.data(), fds.size(), pollTimeoutMs(now));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            logLine("poll: %s", strerror(errno));
            break;
        }
        if (fds[0].revents) {
            uint64_t count;
            if (read(wakeFd_, &count, sizeof count) < 0 && errno != EAGAIN)
                logLine("wake: %s", strerror(errno));
        }
        if (fds[1].revents)
            readSignal();
        if (fds[2].revents)
            acceptAll();
        for (size_t i = 3; i < fds.size(); ++i) {
            if (!fds[i].revents)
                continue;
            auto it = connections_.find(fds[i].fd);
            if (it != connections_.end() && !it->second.busy)
                serve(it->second);
        }
    }
}

} // namespace tsscm
