// The wire between the service manager daemon (tsscm) and its clients: the
// service calls of a program, and the dispatcher of a service process.
//
// One Unix stream socket, $TSUTIL_ROOT/run/tsscm.sock. Every message is a
// frame: a 32-bit length, then that many bytes of 32-bit words and
// length-prefixed strings, in the host's byte order (both ends run on one
// machine). A client sends a request frame and reads one reply frame,
// whose first word is a Windows error code (0 for success).
//
// A service process makes two connections: its dispatcher's, which carries
// the manager's controls to it (Control frames, each answered by a
// ControlDone frame), and an ordinary one for SetServiceStatus. The daemon
// knows a service process by the peer's process id, which it started.
#pragma once

#include <windows.h>

#include "machineroot.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tsp::svc {

enum class Op : uint32_t {
    Hello = 1,        // -> err
    Create,           // name, display, type, start, errctl, path, account -> err, id, name
    Open,             // name -> err, id, name
    Start,            // id, argc, args... -> err
    Control,          // id, control -> err, status
    Query,            // id -> err, status
    Delete,           // id -> err
    Enumerate,        // type, state -> err, count, (name, display, status)...
    SetStatus,        // status, seq -> err (from a service process); on the dispatcher's
                      // connection, from inside a handler: no reply
    Dispatcher,       // names... -> err, name, argc, args... (the connection then carries controls)
    ControlDone,      // seq, result (dispatcher -> daemon)
    StopManager,      // -> err (the daemon stops its services and ends)
};

// Daemon -> dispatcher.
enum class Push : uint32_t {
    Control = 1, // seq, control
};

constexpr uint32_t kMaxFrame = 1u << 20;
constexpr size_t kStatusWords = 7;

class Writer {
public:
    Writer &u32(uint32_t v)
    {
        data_.append(reinterpret_cast<const char *>(&v), sizeof v);
        return *this;
    }
    Writer &u64(uint64_t v)
    {
        data_.append(reinterpret_cast<const char *>(&v), sizeof v);
        return *this;
    }
    Writer &str(const std::string &s)
    {
        u32(static_cast<uint32_t>(s.size()));
        data_.append(s);
        return *this;
    }
    Writer &status(const SERVICE_STATUS &s)
    {
        data_.append(reinterpret_cast<const char *>(&s), sizeof s);
        return *this;
    }
    const std::string &data() const { return data_; }

private:
    std::string data_;
};

class Reader {
public:
    explicit Reader(const std::string &d) : p_(d.data()), n_(d.size()) {}
    uint32_t u32()
    {
        uint32_t v = 0;
        take(&v, sizeof v);
        return v;
    }
    uint64_t u64()
    {
        uint64_t v = 0;
        take(&v, sizeof v);
        return v;
    }
    std::string str()
    {
        uint32_t len = u32();
        if (!ok_ || len > n_) {
            ok_ = false;
            return std::string();
        }
        std::string s(p_, len);
        p_ += len;
        n_ -= len;
        return s;
    }
    SERVICE_STATUS status()
    {
        SERVICE_STATUS s{};
        take(&s, sizeof s);
        return s;
    }
    bool ok() const { return ok_; }

private:
    void take(void *out, size_t len)
    {
        if (!ok_ || n_ < len) {
            ok_ = false;
            return;
        }
        memcpy(out, p_, len);
        p_ += len;
        n_ -= len;
    }
    const char *p_;
    size_t n_;
    bool ok_ = true;
};

static_assert(sizeof(SERVICE_STATUS) == kStatusWords * 4, "SERVICE_STATUS is seven 32-bit words");

inline bool writeAll(int fd, const char *p, size_t n)
{
    while (n) {
        ssize_t w = send(fd, p, n, MSG_NOSIGNAL);
        if (w < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

inline bool sendFrame(int fd, const std::string &payload)
{
    std::string frame;
    uint32_t len = static_cast<uint32_t>(payload.size());
    frame.reserve(sizeof len + payload.size());
    frame.append(reinterpret_cast<const char *>(&len), sizeof len);
    frame.append(payload);
    return writeAll(fd, frame.data(), frame.size());
}

inline long long monotonicMs()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000LL + ts.tv_nsec / 1000000;
}

// Reads exactly n bytes; timeoutMs < 0 waits without limit. False on end of
// stream, error or time-out (errno ETIMEDOUT).
inline bool readAll(int fd, char *p, size_t n, int timeoutMs)
{
    long long deadline = timeoutMs < 0 ? 0 : monotonicMs() + timeoutMs;
    bool socket = true;
    while (n) {
        if (timeoutMs >= 0 && socket) {
            // What has arrived is taken without a poll first.
            ssize_t got = recv(fd, p, n, MSG_DONTWAIT);
            if (got > 0) {
                p += got;
                n -= static_cast<size_t>(got);
                continue;
            }
            if (got == 0) {
                errno = ECONNRESET;
                return false;
            }
            if (errno == ENOTSOCK)
                socket = false;
            else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
                return false;
        }
        if (timeoutMs >= 0) {
            long long left = deadline - monotonicMs();
            if (left < 0)
                left = 0;
            pollfd pfd{fd, POLLIN, 0};
            int r = poll(&pfd, 1, static_cast<int>(left));
            if (r < 0 && errno == EINTR)
                continue;
            if (r == 0) {
                errno = ETIMEDOUT;
                return false;
            }
            if (r < 0)
                return false;
        }
        ssize_t got = read(fd, p, n);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (got == 0) {
            errno = ECONNRESET;
            return false;
        }
        p += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

inline bool recvFrame(int fd, std::string &payload, int timeoutMs = -1)
{
    uint32_t len = 0;
    if (!readAll(fd, reinterpret_cast<char *>(&len), sizeof len, timeoutMs))
        return false;
    if (len > kMaxFrame) {
        errno = EPROTO;
        return false;
    }
    payload.resize(len);
    return len == 0 || readAll(fd, payload.data(), len, timeoutMs);
}

// Folds a service name for comparison: names match without case.
inline std::string foldServiceName(const std::string &s)
{
    std::string out = s;
    for (char &c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// $TSUTIL_ROOT/run, created with mode 0700 when missing; empty on failure.
inline std::string runFolder()
{
    std::string root = machineRoot();
    if (root.empty())
        return root;
    std::string run = root + "/run";
    if (mkdir(run.c_str(), 0700) != 0 && errno != EEXIST)
        return std::string();
    return run;
}

// Connects to a Unix socket; -1 with errno when nobody listens there.
inline int connectSocket(const std::string &path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    while (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        if (errno == EINTR)
            continue;
        int e = errno;
        close(fd);
        errno = e;
        return -1;
    }
    return fd;
}

constexpr const char *kSocketName = "tsscm.sock";
constexpr const char *kStartLockName = "tsscm.start";
constexpr const char *kDaemonLockName = "tsscm.lock";
constexpr const char *kLogName = "tsscm.log";
constexpr const char *kServicesKey = "SYSTEM\\CurrentControlSet\\Services";
constexpr const char *kControlKey = "SYSTEM\\CurrentControlSet\\Control";

} // namespace tsp::svc
