// The daemon's socket and signal loop. One thread reads every connection
// without ever waiting on one: it assembles frames as bytes arrive, so a
// client that says nothing, or stops in the middle of a request, costs
// nothing but its descriptor. Requests that answer at once are answered
// there; those that may wait for a service (start, control, the manager's
// stop, enumeration) go to a bounded pool of worker threads, and a
// worker serves the next such request on the same connection when it
// follows at once. Out of descriptors, accepting backs off and resumes
// when one is freed.
#pragma once

#include "manager.h"
#include "requests.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tsscm {

struct ServerOptions {
    bool onDemand = false;   // end after idleExitMs with no client and no service process
    long idleExitMs = 2000;
    int signalFd = -1;       // a signalfd whose signals stop the manager, or -1
    // The most threads that serve waiting requests; more such requests
    // queue. What a waiting request waits for (a dispatcher's connection,
    // a service's report) is served by the loop itself, so a full pool
    // delays but never blocks them.
    size_t workers = 16;
};

class Server {
public:
    Server(Manager &manager, RequestHandler &handler, const ServerOptions &options);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Listens at path: bound under a name of its own and renamed once it
    // listens, so that a client never finds a socket that refuses it.
    // False with errno set.
    bool listenAt(const std::string &path);
    // Serves until the manager is stopped (its stop request or a signal)
    // or, on demand, it has been idle.
    void run();
    // Runs fn on a worker.
    void post(std::function<void()> fn);
    // Makes the loop look again at whether it is idle (any thread).
    void wake();
    // Removes the socket, unless another daemon's has taken its place.
    void removeSocket();

private:
    struct Connection {
        int fd = -1;
        pid_t pid = 0;
        bool ours = false;   // the peer runs as the daemon's user
        bool busy = false;   // a worker serves its request
        tsp::svc::FrameAssembler in;
    };

    void acceptAll();
    void serve(Connection &c);
    void drop(int fd);
    void release(pid_t pid);
    void finished(int fd, bool ok);
    bool nextWaitingRequest(int fd, tsp::svc::FrameAssembler &in, std::string &request);
    void workerMain();
    void readSignal();
    int pollTimeoutMs(int64_t now);

    Manager &manager_;
    RequestHandler &handler_;
    const ServerOptions options_;
    std::string socketPath_;
    ino_t socketInode_ = 0;
    int listenFd_ = -1;
    int wakeFd_ = -1;
    int64_t acceptAfter_ = 0;   // backing off until then (monotonic ms)
    int backoffMs_ = 0;
    bool outOfDescriptors_ = false; // since the last time the backlog was empty
    int64_t idleSince_ = -1;
    std::map<int, Connection> connections_; // by descriptor; the loop's own
    std::map<pid_t, int> perProcess_;       // connections of each client process
    std::atomic<bool> stopping_{false};

    // The workers and what they hand back to the loop.
    std::mutex lock_;
    std::condition_variable work_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    size_t idleWorkers_ = 0;
    size_t runningJobs_ = 0;
    std::vector<std::pair<int, bool>> done_; // connections whose request was served, and whether they stay
};

} // namespace tsscm
