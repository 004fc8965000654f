// The service manager's wire: frames, their encoding, the socket.
#include "svcwire.h"

#include "casefold.h"
#include "machineroot.h"
#include "monotonic.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace tsp::svc {

Writer &Writer::u32(uint32_t v)
{
    data_.append(reinterpret_cast<const char *>(&v), sizeof v);
    return *this;
}

Writer &Writer::u64(uint64_t v)
{
    data_.append(reinterpret_cast<const char *>(&v), sizeof v);
    return *this;
}

Writer &Writer::str(const std::string &s)
{
    u32(static_cast<uint32_t>(s.size()));
    data_.append(s);
    return *this;
}

Writer &Writer::status(const SERVICE_STATUS &s)
{
    data_.append(reinterpret_cast<const char *>(&s), sizeof s);
    return *this;
}

uint32_t Reader::u32()
{
    uint32_t v = 0;
    take(&v, sizeof v);
    return v;
}

uint64_t Reader::u64()
{
    uint64_t v = 0;
    take(&v, sizeof v);
    return v;
}

std::string Reader::str()
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

SERVICE_STATUS Reader::status()
{
    SERVICE_STATUS s{};
    take(&s, sizeof s);
    return s;
}

void Reader::take(void *out, size_t len)
{
    if (!ok_ || n_ < len) {
        ok_ = false;
        return;
    }
    memcpy(out, p_, len);
    p_ += len;
    n_ -= len;
}

namespace {

bool writeAll(int fd, const char *p, size_t n, bool wait)
{
    while (n) {
        ssize_t w = send(fd, p, n, MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT));
        if (w >= 0 && !wait && static_cast<size_t>(w) != n)
            return false;
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

// Polls fd until the deadline (monotonic ms; kNoDeadline: without limit):
// 1 when readable, 0 with errno ETIMEDOUT at the deadline, -1 with errno on
// failure.
constexpr int64_t kNoDeadline = -1;
int waitReadable(int fd, int64_t deadline)
{
    for (;;) {
        int64_t left = deadline == kNoDeadline ? -1 : std::max<int64_t>(deadline - monotonicMs(), 0);
        pollfd pfd{fd, POLLIN, 0};
        int r = poll(&pfd, 1, static_cast<int>(left));
        if (r < 0 && errno == EINTR)
            continue;
        if (r == 0)
            errno = ETIMEDOUT;
        return r;
    }
}

} // namespace

void appendFrame(std::string &frames, const std::string &payload)
{
    uint32_t len = static_cast<uint32_t>(payload.size());
    frames.append(reinterpret_cast<const char *>(&len), sizeof len);
    frames.append(payload);
}

bool sendFrames(int fd, const std::string &frames) { return writeAll(fd, frames.data(), frames.size(), true); }

bool sendFrame(int fd, const std::string &payload, bool wait)
{
    std::string frame;
    frame.reserve(sizeof(uint32_t) + payload.size());
    appendFrame(frame, payload);
    return writeAll(fd, frame.data(), frame.size(), wait);
}

bool readAll(int fd, char *p, size_t n, int timeoutMs)
{
    int64_t deadline = timeoutMs < 0 ? 0 : monotonicMs() + timeoutMs;
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
            if (waitReadable(fd, deadline) <= 0)
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

bool recvFrame(int fd, std::string &payload, int timeoutMs)
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

bool FrameAssembler::whole(uint32_t *first) const
{
    uint32_t len = 0;
    if (buffer_.size() < sizeof len)
        return false;
    memcpy(&len, buffer_.data(), sizeof len);
    if (buffer_.size() - sizeof len < len)
        return false;
    if (first) {
        *first = 0;
        if (len >= sizeof *first)
            memcpy(first, buffer_.data() + sizeof len, sizeof *first);
    }
    return true;
}

bool FrameAssembler::take(std::string &payload)
{
    if (!whole())
        return false;
    uint32_t len = 0;
    memcpy(&len, buffer_.data(), sizeof len);
    payload.assign(buffer_, sizeof len, len);
    buffer_.erase(0, sizeof len + len);
    return true;
}

bool FrameAssembler::tooLong() const
{
    uint32_t len = 0;
    if (buffer_.size() < sizeof len)
        return false;
    memcpy(&len, buffer_.data(), sizeof len);
    return len > kMaxFrame;
}

ssize_t FrameAssembler::receive(int fd, int flags)
{
    // Most frames are a few dozen bytes and a reader is made for each call:
    // they are read on the stack and only what came is kept, rather than a
    // chunk of the heap cleared and cut back on every read.
    char chunk[4096];
    size_t want = sizeof chunk;
    uint32_t len = 0;
    if (buffer_.size() >= sizeof len) {
        memcpy(&len, buffer_.data(), sizeof len);
        size_t rest = sizeof len + len - buffer_.size(); // the caller has checked len
        if (rest > want)
            want = rest;
    }
    if (want == sizeof chunk) {
        ssize_t got = recv(fd, chunk, want, flags);
        if (got > 0)
            buffer_.append(chunk, static_cast<size_t>(got));
        return got;
    }
    size_t old = buffer_.size(); // a large frame: straight into its place
    buffer_.resize(old + want);
    ssize_t got = recv(fd, &buffer_[old], want, flags);
    buffer_.resize(old + (got > 0 ? static_cast<size_t>(got) : 0));
    return got;
}

void FrameAssembler::fill(int fd)
{
    while (receive(fd, MSG_DONTWAIT) < 0 && errno == EINTR) {
    }
}

FrameAssembler::Result FrameAssembler::readFrom(int fd, std::string &payload)
{
    for (;;) {
        if (take(payload))
            return Result::Frame;
        if (tooLong())
            return Result::Bad;
        ssize_t got = receive(fd, MSG_DONTWAIT);
        if (got > 0)
            continue;
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return Result::More;
        return Result::Closed;
    }
}

bool FrameAssembler::readFrame(int fd, std::string &payload, int timeoutMs)
{
    int64_t deadline = timeoutMs < 0 ? kNoDeadline : monotonicMs() + timeoutMs;
    for (;;) {
        if (take(payload))
            return true;
        if (tooLong()) {
            errno = EPROTO;
            return false;
        }
        // A frame waited for has seldom arrived yet: poll, then read. A
        // wait in recv itself would also wake when the peer reads what this
        // end sent (the kernel wakes a stream socket's readers for room to
        // write too), a switch to this thread and back for nothing; poll
        // wakes for data only.
        if (waitReadable(fd, deadline) <= 0)
            return false;
        ssize_t got = receive(fd, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0) {
            errno = ECONNRESET;
            return false;
        }
    }
}

std::string foldServiceName(const std::string &s) { return foldLower(s); }

std::string runFolder()
{
    std::string root = machineRoot();
    if (root.empty())
        return root;
    std::string run = root + "/run";
    if (mkdir(run.c_str(), 0700) != 0 && errno != EEXIST)
        return std::string();
    return run;
}

int connectSocket(const std::string &path)
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

} // namespace tsp::svc
