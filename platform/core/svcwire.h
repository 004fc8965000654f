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

#include <cstdint>
#include <sys/types.h>
#include <string>

namespace tsp::svc {

enum class Op : uint32_t {
    Hello = 1,        // -> err
    Create,           // name, display, hasDisplay, type, start, errctl, path, account, group,
                      // n, dependencies... -> err, id, name
    Open,             // name -> err, id, name
    Start,            // id, argc, args... -> err
    Control,          // id, control -> err, status
    Query,            // id -> err, status, pid
    Delete,           // id -> err
    Enumerate,        // type, state -> err, count, (name, display, status, pid)...
    SetStatus,        // status, seq -> err (from a service process); on the dispatcher's
                      // connection, from inside a handler: no reply
    Dispatcher,       // names... -> err, name, argc, args... (the connection then carries controls)
    ControlDone,      // seq, result (dispatcher -> daemon)
    StopManager,      // -> err (the daemon stops its services and ends)
    Close,            // id -> err (a service handle of the calling process is closed)
    ChangeConfig,     // id, type, start, errctl, then each of path, account, group, display,
                      // description as (present, text), (present, n, dependencies...),
                      // (present, delayed) -> err
    QueryConfig,      // id -> err, type, start, errctl, path, account, group, display,
                      // description, delayed, n, dependencies (groups after '+')...
};

// Daemon -> dispatcher.
enum class Push : uint32_t {
    Control = 1, // seq, control
};

constexpr uint32_t kMaxFrame = 1u << 20;
constexpr size_t kStatusWords = 7;
static_assert(sizeof(SERVICE_STATUS) == kStatusWords * 4, "SERVICE_STATUS is seven 32-bit words");

// Builds a frame's payload.
class Writer {
public:
    Writer &u32(uint32_t v);
    Writer &u64(uint64_t v);
    Writer &str(const std::string &s);
    Writer &status(const SERVICE_STATUS &s);
    const std::string &data() const { return data_; }

private:
    std::string data_;
};

// Reads a payload; a read past its end gives zeros and makes ok() false.
class Reader {
public:
    explicit Reader(const std::string &d) : p_(d.data()), n_(d.size()) {}
    uint32_t u32();
    uint64_t u64();
    std::string str();
    SERVICE_STATUS status();
    bool ok() const { return ok_; }

private:
    void take(void *out, size_t len);
    const char *p_;
    size_t n_;
    bool ok_ = true;
};

// Sends one frame; false when the peer is gone. Without wait, false also
// when the frame does not fit whole into the socket's buffer now (a peer
// that keeps to the protocol has read every earlier reply, so a small
// reply always fits).
bool sendFrame(int fd, const std::string &payload, bool wait = true);
// Adds one frame to frames, for sendFrames.
void appendFrame(std::string &frames, const std::string &payload);
// Sends frames made by appendFrame in one write: the peer wakes once for all.
bool sendFrames(int fd, const std::string &frames);

// Reads exactly n bytes; timeoutMs < 0 waits without limit. False on end of
// stream (errno ECONNRESET), error or time-out (errno ETIMEDOUT).
bool readAll(int fd, char *p, size_t n, int timeoutMs);

// Reads one frame; a length above kMaxFrame fails with errno EPROTO.
bool recvFrame(int fd, std::string &payload, int timeoutMs = -1);

// Assembles frames from what a non-blocking socket has delivered so far,
// for a reader that serves many connections and never waits on one.
class FrameAssembler {
public:
    enum class Result { Frame, More, Closed, Bad };
    // Reads what is there without blocking. Frame: payload holds one whole
    // frame (call again for the next); More: nothing whole yet; Closed:
    // end of stream or error; Bad: a length above kMaxFrame.
    Result readFrom(int fd, std::string &payload);
    // True while part of a frame has arrived.
    bool partial() const { return !buffer_.empty(); }
    // Reads one frame, waiting for it (timeoutMs < 0: without limit); fails
    // as recvFrame does. It reads what has arrived, not a header and then
    // its payload: what follows the frame stays here for the next call.
    bool readFrame(int fd, std::string &payload, int timeoutMs = -1);
    // Whether a whole frame is here; first gets its first word (0 when the
    // frame is shorter).
    bool whole(uint32_t *first = nullptr) const;
    // Adds what has arrived, without blocking. An end of stream or error
    // is left for the next readFrom or readFrame to find.
    void fill(int fd);

private:
    bool take(std::string &payload);
    bool tooLong() const;
    // One recv into the buffer, at most the rest of the frame begun or one
    // chunk; what recv gave.
    ssize_t receive(int fd, int flags);
    std::string buffer_;
};

// Text on the wire is UTF-8.

// Folds a service name for comparison: names match without case.
std::string foldServiceName(const std::string &s);

// $TSUTIL_ROOT/run, created with mode 0700 when missing; empty on failure.
std::string runFolder();

// Connects to a Unix socket; -1 with errno when nobody listens there.
int connectSocket(const std::string &path);

constexpr const char *kSocketName = "tsscm.sock";
constexpr const char *kStartLockName = "tsscm.start";
constexpr const char *kDaemonLockName = "tsscm.lock";
constexpr const char *kLogName = "tsscm.log";
constexpr const char *kServicesKey = "SYSTEM\\CurrentControlSet\\Services";
constexpr const char *kControlKey = "SYSTEM\\CurrentControlSet\\Control";

} // namespace tsp::svc
