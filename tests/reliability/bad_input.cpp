// Input of any size or shape from outside: frames on the service
// manager's socket and .reg files given to tsreg. The daemon and the tool
// neither crash nor hang, and write nothing outside the machine root.
#include "ScratchDir.h"
#include "ServiceFixture.h"
#include "ManagerProcess.h"

#include <dirent.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <random>
#include <string>

using tstest::ServiceTest;

namespace {

int Connect(const std::string &socketPath)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof addr.sun_path, "%s", socketPath.c_str());
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd);
        fd = -1;
    }
    return fd;
}

void SendAll(int fd, const std::string &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return; // the daemon may close a connection that broke the protocol
        sent += static_cast<size_t>(n);
    }
}

std::string Word(uint32_t v) { return std::string(reinterpret_cast<char *>(&v), 4); }

} // namespace

TEST_F(ServiceTest, ManagerSurvivesFramesOfAnySizeAndShape)
{
    pid_t daemon = tstest::ManagerProcessOf(root_.path());
    ASSERT_GT(daemon, 0);
    const std::string socketPath = root_.path() + "/run/tsscm.sock";
    std::mt19937 random(12345);
    std::string noise(1 << 16, '\0');
    for (char &c : noise)
        c = static_cast<char>(random());
    const std::string shapes[] = {
        Word(0xFFFFFFFFu) + "x",                          // a length far above the limit
        Word((1u << 20) + 1) + std::string(64, 'y'),      // just above it
        Word(4),                                          // a frame cut short
        Word(0),                                          // an empty frame
        Word(8) + Word(2) + Word(0xFFFFFF00u),            // a string longer than its frame
        Word(12) + Word(4) + Word(1) + Word(0x7FFFFFFFu), // a start with two billion arguments
        Word(4) + Word(10),                               // a dispatcher that was never started
        Word(8) + Word(99) + Word(0),                     // no such operation
        noise,                                            // anything at all
    };
    for (int round = 0; round < 20; ++round) {
        for (const std::string &shape : shapes) {
            int fd = Connect(socketPath);
            ASSERT_GE(fd, 0) << "the manager stopped listening";
            SendAll(fd, shape);
            close(fd);
        }
    }
    // Still the same daemon, answering as before.
    EXPECT_EQ(kill(daemon, 0), 0);
    EXPECT_EQ(tstest::ManagerProcessOf(root_.path()), daemon);
    SC_HANDLE svc = Create();
    ASSERT_NE(svc, nullptr);
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    EXPECT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    CloseServiceHandle(svc);
}

TEST(BadInput, TsregImportOfAnyFileEndsWithinItsBoundAndStaysInTheStore)
{
    tstest::ScopedMachineRoot root;
    std::mt19937 random(54321);
    std::string noise(4 << 20, '\0');
    for (char &c : noise)
        c = static_cast<char>(random());
    const std::string header = "Windows Registry Editor Version 5.00\r\n\r\n";
    const std::string files[] = {
        "",
        noise,
        header + noise,
        "\xFF\xFE" + noise,
        header + "[HKEY_CURRENT_USER\\" + std::string(100000, 'k') + "]\r\n\"v\"=dword:1\r\n",
        header + "[HKEY_CURRENT_USER\\a]\r\n\"v\"=hex:" + std::string(1 << 20, '0') + "\r\n",
        header + "[HKEY_CURRENT_USER\\..\\..\\..\\etc]\r\n\"passwd\"=\"x\"\r\n",
        header + "[HKEY_CURRENT_USER\\a]\r\n\"v\"=hex:01,\\\r\n" + std::string(100000, '\\') + "\r\n",
        header + "[HKEY_CURRENT_USER\\a\r\n\"unterminated\r\n@=dword:123456789\r\n\"x\"=hex(ffffffff):00\r\n",
    };
    int index = 0;
    for (const std::string &bytes : files) {
        SCOPED_TRACE("file " + std::to_string(index));
        std::string path = root.path() + "/input" + std::to_string(index++) + ".reg";
        ASSERT_TRUE(tstest::WriteWholeFile(path, bytes));
        int rc = tstest::RunChild("tsreg", {"import", path}, 60000);
        EXPECT_TRUE(rc == 0 || rc == 1) << "exit " << rc << ": a crash, or no end within the bound";
        remove(path.c_str());
    }
    // The root holds the store and nothing else: no key became a file.
    DIR *d = opendir(root.path().c_str());
    ASSERT_NE(d, nullptr);
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        EXPECT_TRUE(name == "." || name == ".." || name.compare(0, 11, "registry.db") == 0 || name == "drive_c" ||
                    name == "run")
            << name;
    }
    closedir(d);
}
