// The daemon's requests: a frame of the wire in, the manager's call, a
// reply frame out.
#pragma once

#include "manager.h"
#include "svcwire.h"

namespace tsscm {

// A dispatcher's connection as the link that carries a service's controls;
// it owns fd and closes it.
std::shared_ptr<ControlLink> socketLink(int fd);

class RequestHandler {
public:
    explicit RequestHandler(Manager &manager) : manager_(manager) {}

    // The first word of a request, the operation.
    static tsp::svc::Op operationOf(const std::string &frame);
    // True for a request that may wait for a service (start, control, the
    // manager's stop) or take long (enumerate): it runs on a worker, never
    // on the thread that reads the connections.
    static bool mayWait(tsp::svc::Op op);

    // The reply to a request of the process peer (any but Dispatcher).
    // *stop is set when the manager is to end after the reply.
    std::string handle(const std::string &frame, pid_t peer, bool *stop);

    // The Dispatcher request on fd: answers it; true when the service that
    // peer was started for took the connection (and fd with it).
    bool attachDispatcher(int fd, pid_t peer);

private:
    Manager &manager_;
};

} // namespace tsscm
