// What the kernel itself costs for the shapes the platform layer builds on:
// the floors of the benchmark report (bench/report.tsv). POSIX only.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

extern char **environ;

namespace {

void PosixOpenClose(benchmark::State &state)
{
    for (auto _ : state) {
        int fd = open("bench_open.tmp", O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0) {
            state.SkipWithError("open failed");
            return;
        }
        close(fd);
    }
    unlink("bench_open.tmp");
}
BENCHMARK(PosixOpenClose)->Unit(benchmark::kMicrosecond);

// A request of 64 bytes to another process over a Unix socket, and its
// answer of the same size: the least a control relayed by a daemon costs.
void UnixSocketRoundTrip(benchmark::State &state)
{
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0) {
        state.SkipWithError("socketpair failed");
        return;
    }
    pid_t child = fork();
    if (child == 0) {
        char buf[64];
        close(sv[0]);
        while (read(sv[1], buf, sizeof buf) == static_cast<ssize_t>(sizeof buf))
            if (write(sv[1], buf, sizeof buf) != static_cast<ssize_t>(sizeof buf))
                break;
        _exit(0);
    }
    close(sv[1]);
    char msg[64];
    std::memset(msg, 'x', sizeof msg);
    for (auto _ : state) {
        if (write(sv[0], msg, sizeof msg) != static_cast<ssize_t>(sizeof msg) ||
            read(sv[0], msg, sizeof msg) != static_cast<ssize_t>(sizeof msg)) {
            state.SkipWithError("echo failed");
            break;
        }
    }
    close(sv[0]);
    waitpid(child, nullptr, 0);
}
BENCHMARK(UnixSocketRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();

// A new process started and heard from: /bin/echo's first byte read
// through a pipe, then the process reaped.
void ProcessStartToFirstMessage(benchmark::State &state)
{
    for (auto _ : state) {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0) {
            state.SkipWithError("pipe failed");
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        char arg0[] = "echo", arg1[] = "x";
        char *argv[] = {arg0, arg1, nullptr};
        pid_t pid;
        int rc = posix_spawn(&pid, "/bin/echo", &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        char c;
        bool heard = rc == 0 && read(fds[0], &c, 1) == 1;
        close(fds[0]);
        if (rc == 0)
            waitpid(pid, nullptr, 0);
        if (!heard) {
            state.SkipWithError("no message from the child");
            return;
        }
    }
}
BENCHMARK(ProcessStartToFirstMessage)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
