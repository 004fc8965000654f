// The service manager's wire, in-process: any bytes on a client's
// connection are cut into frames and each frame is answered by the
// daemon's request decoder, with a reply that starts with an error code,
// never a crash or a hang. The manager runs on a database in memory, with
// a launcher that starts nothing.
#include "ManagerFakes.h"
#include "requests.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class RefusingLauncher : public tsscm::ProcessLauncher {
public:
    DWORD launch(const tsscm::ServiceConfig &, pid_t *) override { return ERROR_FILE_NOT_FOUND; }
    void kill(pid_t) override {}
};

// Answers every whole frame that fd holds now; false once the stream is
// over or bad.
bool answerFrames(int fd, tsp::svc::FrameAssembler &frames, tsscm::RequestHandler &handler, tsscm::Manager &manager)
{
    for (;;) {
        std::string frame;
        switch (frames.readFrom(fd, frame)) {
        case tsp::svc::FrameAssembler::Result::Frame: {
            // A service process's own connection is a separate path.
            if (tsscm::RequestHandler::operationOf(frame) == tsp::svc::Op::Dispatcher)
                continue;
            bool stop = false;
            std::string reply = handler.handle(frame, getpid(), &stop);
            if (reply.size() < 4)
                abort();
            if (stop)
                return false;
            continue;
        }
        case tsp::svc::FrameAssembler::Result::More:
            return true;
        default:
            return false;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    tsscmtest::MemoryDatabase db;
    db.setControlValue("ServicesPipeTimeout", 100);
    db.setControlValue("WaitToKillServiceTimeout", 100);
    RefusingLauncher launcher;
    tsscm::Manager manager(db, launcher);
    tsscm::RequestHandler handler(manager);

    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0)
        abort();
    fcntl(sv[0], F_SETFL, O_NONBLOCK);
    fcntl(sv[1], F_SETFL, O_NONBLOCK);
    tsp::svc::FrameAssembler frames;
    size_t sent = 0;
    bool open = true;
    while (open && sent < size) {
        ssize_t n = write(sv[1], data + sent, size - sent);
        if (n < 0 && errno != EAGAIN)
            abort();
        if (n > 0)
            sent += static_cast<size_t>(n);
        open = answerFrames(sv[0], frames, handler, manager);
    }
    shutdown(sv[1], SHUT_WR);
    while (open)
        open = answerFrames(sv[0], frames, handler, manager);
    manager.clientGone(getpid());
    close(sv[0]);
    close(sv[1]);
    return 0;
}
