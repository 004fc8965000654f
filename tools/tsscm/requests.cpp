// Decoding requests and encoding replies.
#include "requests.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace tsp::svc;

namespace tsscm {

namespace {

class SocketLink : public ControlLink {
public:
    explicit SocketLink(int fd) : fd_(fd) {}
    ~SocketLink() override { close(fd_); }

    bool send(uint32_t seq, DWORD control) override
    {
        return sendFrame(fd_, Writer().u32(static_cast<uint32_t>(Push::Control)).u32(seq).u32(control).data());
    }

    bool receive(ControlEvent &event, int timeoutMs, bool *timedOut) override
    {
        for (;;) {
            std::string frame;
            if (!in_.readFrame(fd_, frame, timeoutMs)) {
                *timedOut = errno == ETIMEDOUT;
                return false;
            }
            Reader r(frame);
            uint32_t op = r.u32();
            if (op == static_cast<uint32_t>(Op::SetStatus)) {
                event.kind = ControlEvent::Status;
                event.status = r.status();
                event.statusSeq = r.u64();
                if (r.ok() && event.status.dwCurrentState >= SERVICE_STOPPED &&
                    event.status.dwCurrentState <= SERVICE_PAUSED)
                    return true;
            } else if (op == static_cast<uint32_t>(Op::ControlDone)) {
                event.kind = ControlEvent::Done;
                event.seq = r.u32();
                event.result = r.u32();
                if (r.ok())
                    return true;
            }
            // Anything else from a dispatcher is passed over.
        }
    }

private:
    const int fd_;
    FrameAssembler in_; // only one control at a time reads it
};

std::string code(DWORD e) { return Writer().u32(e).data(); }

std::string opened(DWORD e, const Manager::Opened &o)
{
    return e ? code(e) : Writer().u32(0).u64(o.id).str(o.name).data();
}

} // namespace

std::shared_ptr<ControlLink> socketLink(int fd) { return std::make_shared<SocketLink>(fd); }

Op RequestHandler::operationOf(const std::string &frame)
{
    Reader r(frame);
    return static_cast<Op>(r.u32());
}

bool RequestHandler::mayWait(Op op)
{
    return op == Op::Start || op == Op::Control || op == Op::StopManager || op == Op::Enumerate;
}

std::string RequestHandler::handle(const std::string &frame, pid_t peer, bool *stop)
{
    Reader r(frame);
    Op op = static_cast<Op>(r.u32());
    switch (op) {
    case Op::Hello:
        return code(0);
    case Op::Create: {
        Manager::CreateRequest c;
        if (!readCreate(r, c))
            return code(ERROR_INVALID_PARAMETER);
        Manager::Opened o;
        return opened(manager_.create(c, peer, &o), o);
    }
    case Op::Open: {
        std::string name = r.str();
        if (!r.ok())
            return code(ERROR_INVALID_NAME);
        Manager::Opened o;
        return opened(manager_.open(name, peer, &o), o);
    }
    case Op::Close: {
        uint64_t id = r.u64();
        return code(r.ok() ? manager_.closeHandle(id, peer) : ERROR_INVALID_PARAMETER);
    }
    case Op::Start: {
        uint64_t id = r.u64();
        DWORD argc = r.u32();
        std::vector<std::string> args;
        for (DWORD i = 0; i < argc && r.ok(); ++i)
            args.push_back(r.str());
        if (!r.ok())
            return code(ERROR_INVALID_PARAMETER);
        return code(manager_.start(id, std::move(args)));
    }
    case Op::Control: {
        uint64_t id = r.u64();
        DWORD control = r.u32();
        if (!r.ok())
            return code(ERROR_INVALID_PARAMETER);
        SERVICE_STATUS st{};
        DWORD e = manager_.control(id, control, &st);
        return Writer().u32(e).status(st).data();
    }
    case Op::Query: {
        uint64_t id = r.u64();
        SERVICE_STATUS st{};
        DWORD pid = 0;
        DWORD e = r.ok() ? manager_.query(id, &st, &pid) : ERROR_INVALID_PARAMETER;
        return e ? code(e) : Writer().u32(0).status(st).u32(pid).data();
    }
    case Op::ChangeConfig: {
        uint64_t id = r.u64();
        Manager::ChangeRequest c;
        return code(readChange(r, c) ? manager_.changeConfig(id, c) : ERROR_INVALID_PARAMETER);
    }
    case Op::QueryConfig: {
        uint64_t id = r.u64();
        ServiceConfig c;
        DWORD e = r.ok() ? manager_.queryConfig(id, &c) : ERROR_INVALID_PARAMETER;
        if (e)
            return code(e);
        QueriedConfig q{c.type,        c.start,       c.errorControl, c.imagePath,        c.account,
                        c.group,       c.displayName, c.description,  c.delayedAutostart, c.dependOnService};
        for (const std::string &d : c.dependOnGroup)
            q.dependencies.push_back("+" + d);
        Writer w;
        writeQueried(w.u32(0), q);
        return w.data();
    }
    case Op::Delete: {
        uint64_t id = r.u64();
        return code(r.ok() ? manager_.remove(id) : ERROR_INVALID_PARAMETER);
    }
    case Op::Enumerate: {
        DWORD type = r.u32(), state = r.u32();
        if (!r.ok())
            return code(ERROR_INVALID_PARAMETER);
        std::vector<Manager::Listed> chosen = manager_.enumerate(type, state);
        Writer w;
        w.u32(0).u32(static_cast<uint32_t>(chosen.size()));
        for (const Manager::Listed &l : chosen)
            w.str(l.name).str(l.display).status(l.status).u32(l.pid);
        return w.data();
    }
    case Op::SetStatus: {
        SERVICE_STATUS st = r.status();
        uint64_t seq = r.u64();
        return code(r.ok() ? manager_.setStatus(peer, st, seq) : ERROR_INVALID_PARAMETER);
    }
    case Op::StopManager:
        manager_.shutdown();
        *stop = true;
        return code(0);
    default:
        return code(ERROR_INVALID_FUNCTION);
    }
}

bool RequestHandler::attachDispatcher(int fd, pid_t peer)
{
    auto greet = [&](const std::string &name, const std::vector<std::string> &args) -> std::shared_ptr<ControlLink> {
        Writer w;
        w.u32(0).str(name).u32(static_cast<uint32_t>(args.size()));
        for (const std::string &a : args)
            w.str(a);
        return sendFrame(fd, w.data()) ? socketLink(fd) : nullptr;
    };
    if (manager_.attachDispatcher(peer, greet))
        return true;
    sendFrame(fd, code(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT));
    return false;
}

} // namespace tsscm
