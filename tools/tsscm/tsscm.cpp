// tsscm: the service manager of one machine root.
//
//   tsscm               runs in the foreground until SIGTERM or SIGINT (for
//                       an init system), starting SERVICE_AUTO_START services
//   tsscm --stop        stops the running daemon: its services get
//                       SERVICE_CONTROL_SHUTDOWN, and it ends when they have
//   --on-demand         how the layer starts it: ends by itself after
//                       --idle-exit=MS (default 2000) with no client
//                       connected and no service process running
//   --notify-fd=N       writes "R" to N once it listens
//
// Started by an init system with NOTIFY_SOCKET set (systemd's Type=notify),
// it sends READY=1 once it listens, STOPPING=1 when it begins to stop its
// services, and a STATUS= line with each (notify.h).
//
// The services' state is the Manager's (manager.h), the service processes
// the launcher's (launcher.h), the connections and signals the Server's
// (server.h). A service process is known by its pid: a dispatcher that
// connects from a pid the daemon did not start is refused.
#include "database.h"
#include "launcher.h"
#include "log.h"
#include "manager.h"
#include "notify.h"
#include "requests.h"
#include "server.h"

#include "bootid.h"
#include "machineroot.h"
#include "svcwire.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace tsp::svc;
using tsscm::logLine;

namespace {

// On demand, automatic services start once per boot of the system for a
// machine root; a daemon in the foreground starts them every time.
bool firstStartThisBoot(const std::string &run)
{
    std::string boot = tsp::bootId();
    std::string marker = run + "/booted";
    char seen[64] = {};
    if (FILE *f = fopen(marker.c_str(), "re")) {
        if (!fgets(seen, sizeof seen, f))
            seen[0] = 0;
        fclose(f);
    }
    if (!boot.empty() && boot == seen)
        return false;
    if (FILE *f = fopen(marker.c_str(), "we")) {
        fputs(boot.c_str(), f);
        fclose(f);
    }
    return true;
}

int stopDaemon()
{
    std::string run = runFolder();
    int fd = run.empty() ? -1 : connectSocket(run + "/" + kSocketName);
    if (fd < 0) {
        if (errno == EACCES) {
            fprintf(stderr, "tsscm: access denied\n");
            return 5;
        }
        printf("tsscm: not running\n");
        return 0;
    }
    std::string reply;
    bool ok = sendFrame(fd, Writer().u32(static_cast<uint32_t>(Op::StopManager)).data()) && recvFrame(fd, reply, 60000);
    if (!ok) {
        fprintf(stderr, "tsscm: no answer from the daemon\n");
        close(fd);
        return 1;
    }
    // Wait for the end: the daemon closes our connection as it goes.
    char b;
    readAll(fd, &b, 1, 30000);
    close(fd);
    printf("tsscm: stopped\n");
    return 0;
}

// One daemon per machine root: the lock is held for the daemon's life.
// False when another daemon holds it (on demand: after a bounded wait for
// one that is just ending).
bool lockMachineRoot(const std::string &run, bool onDemand)
{
    std::string lockPath = run + "/" + kDaemonLockName;
    int lockFd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFd < 0) {
        fprintf(stderr, "tsscm: %s: %s\n", lockPath.c_str(), strerror(errno));
        return false;
    }
    if (flock(lockFd, LOCK_EX | LOCK_NB) == 0)
        return true;
    if (!onDemand) {
        fprintf(stderr, "tsscm: already running for %s\n", tsp::machineRoot().c_str());
        return false;
    }
    struct sigaction sa {};
    sa.sa_handler = [](int) {};
    sigaction(SIGALRM, &sa, nullptr);
    alarm(10);
    int r = flock(lockFd, LOCK_EX);
    alarm(0);
    if (r != 0) {
        logLine("another daemon holds %s", lockPath.c_str());
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    int notifyFd = -1;
    bool stop = false;
    tsscm::ServerOptions options;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--on-demand")
            options.onDemand = true;
        else if (a == "--stop")
            stop = true;
        else if (a.rfind("--notify-fd=", 0) == 0)
            notifyFd = atoi(a.c_str() + 12);
        else if (a.rfind("--idle-exit=", 0) == 0)
            options.idleExitMs = atol(a.c_str() + 12);
        else {
            fprintf(stderr, "usage: tsscm [--stop] [--on-demand] [--idle-exit=MS] [--notify-fd=N]\n");
            return 2;
        }
    }
    if (notifyFd >= 0 && fcntl(notifyFd, F_SETFD, FD_CLOEXEC) != 0)
        notifyFd = -1;
    if (stop)
        return stopDaemon();

    // Taken out of the environment before anything else runs: no service
    // process inherits the init system's socket.
    tsscm::InitNotifier initSystem;
    std::string root = tsp::machineRoot();
    std::string run = runFolder();
    if (root.empty() || run.empty()) {
        fprintf(stderr, "tsscm: cannot use the machine root: %s\n", strerror(errno));
        return 1;
    }
    setenv("TSUTIL_ROOT", root.c_str(), 1); // service processes see the same root
    signal(SIGPIPE, SIG_IGN);
    if (!lockMachineRoot(run, options.onDemand))
        return 1;

    // In the foreground, SIGTERM and SIGINT are read from a signalfd by the
    // loop: blocked here, before any thread starts, so no thread takes them.
    if (!options.onDemand) {
        sigset_t stopSignals;
        sigemptyset(&stopSignals);
        sigaddset(&stopSignals, SIGTERM);
        sigaddset(&stopSignals, SIGINT);
        if (sigprocmask(SIG_BLOCK, &stopSignals, nullptr) != 0 ||
            (options.signalFd = signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK)) < 0) {
            fprintf(stderr, "tsscm: cannot watch for signals: %s\n", strerror(errno));
            return 1;
        }
    }

    tsscm::RegistryDatabase database;
    std::string socketPath = run + "/" + kSocketName;
    tsscm::SpawnLauncher launcher(root, socketPath);
    tsscm::Manager manager(database, launcher);
    launcher.reportTo(&manager);
    tsscm::RequestHandler handler(manager);
    tsscm::Server server(manager, handler, options);
    manager.onProcessEnded([&] { server.wake(); });
    manager.onShutdown([&] { initSystem.send("STOPPING=1\nSTATUS=Stopping the services"); });

    // Service processes that a daemon before this one started and that
    // still run are this daemon's now; their dispatchers connect again
    // once the socket is there.
    for (const tsscm::ProcessRecords::Running &r : launcher.takeOverRecorded(run))
        manager.adopt(r.serviceName, r.pid);

    // The services as configured at this "boot", read before any client
    // can reach the manager: an automatic service that a first client
    // creates is not started behind its back.
    std::vector<tsscm::ServiceConfig> atBoot = database.readAllServices();
    if (!server.listenAt(socketPath)) {
        fprintf(stderr, "tsscm: cannot listen on %s: %s\n", socketPath.c_str(), strerror(errno));
        return 1;
    }
    logLine("listening on %s%s", socketPath.c_str(), options.onDemand ? " (on demand)" : "");
    bool autostart = !options.onDemand || firstStartThisBoot(run);
    if (notifyFd >= 0) {
        if (write(notifyFd, "R", 1) != 1)
            logLine("cannot tell the starter that the manager listens: %s", strerror(errno));
        close(notifyFd);
    }
    if (autostart)
        server.post([&] { manager.autoStart(atBoot); });
    initSystem.send("READY=1\nSTATUS=Serving " + root);
    server.run();
    server.removeSocket();
    logLine("ends");
    fflush(stderr);
    // Workers may still wait for services that ignore the end: the process
    // ends without waiting for them.
    _exit(0);
}
