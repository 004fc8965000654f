// Readiness and state for an init system that started the daemon as a
// service of its own (systemd's notify protocol): one datagram of
// "NAME=VALUE" lines to the socket that NOTIFY_SOCKET names, a path or,
// with a leading '@', a name in the abstract namespace. No library of the
// init system is needed.
#pragma once

#include <string>

namespace tsscm {

class InitNotifier {
public:
    // Reads NOTIFY_SOCKET and removes it from the environment, so that no
    // process the daemon starts sees it. Without it, send does nothing.
    InitNotifier();
    ~InitNotifier();
    InitNotifier(const InitNotifier &) = delete;
    InitNotifier &operator=(const InitNotifier &) = delete;

    bool active() const { return fd_ >= 0; }
    // Sends the lines (e.g. "READY=1\nSTATUS=..."); false when there is no
    // init system to tell or the datagram did not go.
    bool send(const std::string &lines);

private:
    std::string address_;
    int fd_ = -1;
};

} // namespace tsscm
