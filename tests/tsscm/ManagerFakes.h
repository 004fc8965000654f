// Stand-ins for what the service manager drives, so that its state machine
// runs in the test's own process: a database in memory, a launcher that
// only hands out process ids, and dispatcher links that the test answers.
#pragma once

#include "manager.h"
#include "svcwire.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

namespace tsscmtest {

using tsscm::ControlEvent;
using tsscm::ServiceConfig;

constexpr auto kBound = std::chrono::seconds(10);

class MemoryDatabase : public tsscm::ServiceDatabase {
public:
    bool readService(const std::string &name, ServiceConfig &out) override
    {
        std::lock_guard<std::mutex> g(lock_);
        auto it = services_.find(tsp::svc::foldServiceName(name));
        if (it == services_.end())
            return false;
        out = it->second;
        return true;
    }
    std::vector<ServiceConfig> readAllServices() override
    {
        std::lock_guard<std::mutex> g(lock_);
        std::vector<ServiceConfig> all;
        for (auto &entry : services_)
            all.push_back(entry.second);
        return all;
    }
    LONG writeService(const ServiceConfig &config) override
    {
        std::lock_guard<std::mutex> g(lock_);
        services_[tsp::svc::foldServiceName(config.name)] = config;
        return ERROR_SUCCESS;
    }
    LONG deleteService(const std::string &name) override
    {
        std::lock_guard<std::mutex> g(lock_);
        return services_.erase(tsp::svc::foldServiceName(name)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    }
    DWORD readControlValue(const char *value, DWORD fallback) override
    {
        std::lock_guard<std::mutex> g(lock_);
        auto it = control_.find(value);
        return it == control_.end() ? fallback : it->second;
    }
    void setControlValue(const std::string &value, DWORD v)
    {
        std::lock_guard<std::mutex> g(lock_);
        control_[value] = v;
    }
    bool has(const std::string &name) { return readService(name, scratch_); }

private:
    std::mutex lock_;
    std::map<std::string, ServiceConfig> services_;
    std::map<std::string, DWORD> control_;
    ServiceConfig scratch_;
};

class FakeLauncher : public tsscm::ProcessLauncher {
public:
    DWORD launch(const tsscm::ServiceConfig &config, pid_t *pid) override
    {
        std::lock_guard<std::mutex> g(lock_);
        *pid = ++lastPid_;
        names_[*pid] = config.name;
        changed_.notify_all();
        return ERROR_SUCCESS;
    }
    void kill(pid_t pid) override
    {
        std::lock_guard<std::mutex> g(lock_);
        killed_.push_back(pid);
    }
    // The id of the launch after `after`, once it happened; 0 after the
    // bound (or when stopWaiting was called).
    pid_t awaitLaunch(pid_t after = 0)
    {
        std::unique_lock<std::mutex> g(lock_);
        changed_.wait_for(g, kBound, [&] { return lastPid_ > after || stopped_; });
        return lastPid_ > after ? after + 1 : 0;
    }
    void stopWaiting()
    {
        std::lock_guard<std::mutex> g(lock_);
        stopped_ = true;
        changed_.notify_all();
    }
    // The service that the launch of pid was for.
    std::string nameOf(pid_t pid)
    {
        std::lock_guard<std::mutex> g(lock_);
        return names_[pid];
    }
    std::vector<pid_t> killed()
    {
        std::lock_guard<std::mutex> g(lock_);
        return killed_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    pid_t lastPid_ = 0; // ids count from 1
    std::vector<pid_t> killed_;
    std::map<pid_t, std::string> names_;
    bool stopped_ = false;
};

// A dispatcher's link. Each control is given to answer(), which may queue
// events; receive() hands them out in order.
class FakeLink : public tsscm::ControlLink {
public:
    std::function<void(FakeLink &, uint32_t seq, DWORD control)> answer;

    bool send(uint32_t seq, DWORD control) override
    {
        std::unique_lock<std::mutex> g(lock_);
        if (gone_)
            return false;
        controls_.push_back(control);
        changed_.notify_all();
        g.unlock();
        if (answer)
            answer(*this, seq, control);
        return true;
    }
    bool receive(ControlEvent &event, int timeoutMs, bool *timedOut) override
    {
        std::unique_lock<std::mutex> g(lock_);
        changed_.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return !events_.empty() || gone_; });
        if (!events_.empty()) {
            event = events_.front();
            events_.pop_front();
            return true;
        }
        *timedOut = !gone_;
        return false;
    }
    void report(DWORD state, uint64_t seq, DWORD accepted = 0)
    {
        ControlEvent e;
        e.kind = ControlEvent::Status;
        e.status = SERVICE_STATUS{SERVICE_WIN32_OWN_PROCESS, state, accepted, 0, 0, 0, 0};
        e.statusSeq = seq;
        push(e);
    }
    void done(uint32_t seq, DWORD result = 0)
    {
        ControlEvent e;
        e.kind = ControlEvent::Done;
        e.seq = seq;
        e.result = result;
        push(e);
    }
    void hangUp()
    {
        std::lock_guard<std::mutex> g(lock_);
        gone_ = true;
        changed_.notify_all();
    }
    // Waits for the n-th control; true when it came.
    bool awaitControls(size_t n)
    {
        std::unique_lock<std::mutex> g(lock_);
        return changed_.wait_for(g, kBound, [&] { return controls_.size() >= n; });
    }
    std::vector<DWORD> controls()
    {
        std::lock_guard<std::mutex> g(lock_);
        return controls_;
    }

private:
    void push(const ControlEvent &e)
    {
        std::lock_guard<std::mutex> g(lock_);
        events_.push_back(e);
        changed_.notify_all();
    }
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<ControlEvent> events_;
    std::vector<DWORD> controls_;
    bool gone_ = false;
};

} // namespace tsscmtest
