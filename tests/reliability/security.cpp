// What the machine root keeps private and keeps in: its modes, paths on
// its drives that would lead out of it, and what a service process is
// started with. (Another user refused by the service manager:
// ServiceManagerStart.AnotherUserIsRefused in the e2e suite.)
#include "ScratchDir.h"
#include "ServiceFixture.h"

#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <set>
#include <sstream>
#include <string>

using tstest::ServiceTest;

namespace {

// A folder outside every machine root, removed with what it holds.
class OutsideFolder {
public:
    OutsideFolder()
    {
        char tmpl[] = "/tmp/tsutil-outside-XXXXXX";
        path_ = mkdtemp(tmpl) ? tmpl : "";
    }
    ~OutsideFolder()
    {
        if (!path_.empty()) {
            EXPECT_EQ(system(("rm -rf '" + path_ + "'").c_str()), 0);
        }
    }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

unsigned ModeOf(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0xFFFF;
}

} // namespace

TEST_F(ServiceTest, MachineRootRegistryAndSocketAreTheOwnersAlone)
{
    HKEY k;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Modes", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr),
              ERROR_SUCCESS);
    DWORD v = 1;
    ASSERT_EQ(RegSetValueExA(k, "v", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4), ERROR_SUCCESS);
    RegCloseKey(k);
    const std::string &root = root_.path();
    EXPECT_EQ(ModeOf(root), 0700u);
    EXPECT_EQ(ModeOf(root + "/run"), 0700u);
    EXPECT_EQ(ModeOf(root + "/run/tsscm.sock") & 0777, 0600u);
    for (const char *file : {"/registry.db", "/registry.db-seq", "/run/tsscm.log"})
        EXPECT_EQ(ModeOf(root + file), 0600u) << file;
    for (const char *file : {"/registry.db-wal", "/registry.db-shm"}) {
        if (ModeOf(root + file) != 0xFFFF) {
            EXPECT_EQ(ModeOf(root + file) & 077, 0u) << file;
        }
    }
}

// ".." never climbs above a drive's root, as on Windows; a symbolic link
// on drive C: that leads out of the machine root is refused with
// ERROR_ACCESS_DENIED (one that stays inside works), so no file outside
// is read, made or listed through C:.
TEST(PathSecurity, DrivePathsNeverLeadOutOfTheMachineRoot)
{
    tstest::ScopedMachineRoot root;
    OutsideFolder outside;
    ASSERT_FALSE(outside.path().empty());
    std::string drive = root.path() + "/drive_c";
    ASSERT_EQ(CreateDirectoryA("c:\\inside", nullptr) || GetLastError() == ERROR_ALREADY_EXISTS, TRUE);
    FILE *secret = fopen((outside.path() + "/secret").c_str(), "w");
    ASSERT_NE(secret, nullptr);
    fputs("outside", secret);
    fclose(secret);
    ASSERT_EQ(symlink(outside.path().c_str(), (drive + "/out").c_str()), 0);
    ASSERT_EQ(symlink((outside.path() + "/made-through-a-link").c_str(), (drive + "/dangling").c_str()), 0);
    ASSERT_EQ(symlink("inside", (drive + "/alias").c_str()), 0);

    auto openError = [](const char *path, DWORD disposition) {
        HANDLE h = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                               nullptr);
        if (h == INVALID_HANDLE_VALUE)
            return GetLastError();
        CloseHandle(h);
        return static_cast<DWORD>(ERROR_SUCCESS);
    };
    // c:\..\..\etc\passwd is c:\etc\passwd, which does not exist.
    DWORD e = openError("c:\\..\\..\\..\\etc\\passwd", OPEN_EXISTING);
    EXPECT_TRUE(e == ERROR_PATH_NOT_FOUND || e == ERROR_FILE_NOT_FOUND) << e;
    EXPECT_EQ(GetFileAttributesA("c:/../../../../etc/passwd"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(openError("c:\\..\\escaped", CREATE_ALWAYS), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(ModeOf(drive + "/escaped") != 0xFFFF, true) << "made at the drive's root";
    EXPECT_EQ(ModeOf(root.path() + "/escaped"), 0xFFFFu);

    // Through a link that leads out: refused, for reading, making and listing.
    EXPECT_EQ(openError("c:\\out\\secret", OPEN_EXISTING), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(openError("c:\\out\\new", CREATE_ALWAYS), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(openError("c:\\dangling", CREATE_ALWAYS), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ModeOf(outside.path() + "/made-through-a-link"), 0xFFFFu) << "a dangling link was followed";
    EXPECT_EQ(tstest::ErrorOf(CreateDirectoryA("c:\\out\\dir", nullptr)), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ModeOf(outside.path() + "/dir"), 0xFFFFu);
    WIN32_FIND_DATAA found;
    EXPECT_EQ(FindFirstFileA("c:\\out\\*", &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetFileAttributesA("c:\\out"), INVALID_FILE_ATTRIBUTES);

    // A link that stays inside the root is an ordinary path.
    EXPECT_EQ(openError("c:\\alias\\file", CREATE_ALWAYS), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_NE(ModeOf(drive + "/inside/file"), 0xFFFFu);
    // z: and POSIX paths name the whole file system, as they are meant to.
    EXPECT_EQ(openError((outside.path() + "/secret").c_str(), OPEN_EXISTING), static_cast<DWORD>(ERROR_SUCCESS));
}

// A service process holds its standard streams and what its dispatcher
// needs (its connections to the manager and its wake-up pipe), nothing
// the manager or the starting program had open, and runs in the machine
// root it was installed in with the manager's fixed environment: not the
// variables of the program that started the manager on demand, nor an
// init system's socket.
class ServiceEnvironmentTest : public ServiceTest {
protected:
    void SetUp() override
    {
        setenv("TSUTIL_CLIENT_ONLY", "of the first client", 1);
        setenv("NOTIFY_SOCKET", "@tsutil-no-init-system", 1);
        ServiceTest::SetUp(); // starts this root's manager, which sees them
        unsetenv("TSUTIL_CLIENT_ONLY");
        unsetenv("NOTIFY_SOCKET");
    }
};

TEST_F(ServiceEnvironmentTest, ServiceProcessStartsWithOnlyTheDescriptorsItNeeds)
{
    // Descriptors the starting program holds, which must not reach the
    // service: one inheritable on purpose.
    FILE *held = fopen((root_.path() + "/held-by-client").c_str(), "w");
    ASSERT_NE(held, nullptr);
    std::string report = root_.path() + "/fds";
    std::string command = "\"" + tstest::SiblingProgram("fdservice") + "\" \"" + report + "\"";
    SC_HANDLE svc = CreateServiceA(scm_, "FdService", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                   SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr,
                                   nullptr, nullptr, nullptr);
    ASSERT_NE(svc, nullptr) << GetLastError();
    created_.push_back("FdService");
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    ASSERT_TRUE(tstest::AwaitFile(report));
    std::istringstream lines(tstest::ReadWholeFile(report));
    std::set<int> standard;
    int sockets = 0, pipes = 0;
    std::string line, pid;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string kind;
        words >> kind;
        if (kind == "env" || kind == "id")
            continue;
        if (kind == "pid") {
            words >> pid;
            continue;
        }
        int fd;
        std::string target;
        words >> fd >> target;
        if (fd <= 2) {
            standard.insert(fd);
            EXPECT_TRUE(target == "/dev/null" || target == root_.path() + "/run/tsscm.log") << line;
        } else if (target.compare(0, 7, "socket:") == 0) {
            ++sockets;
        } else if (target.compare(0, 5, "pipe:") == 0) {
            ++pipes;
        } else {
            ADD_FAILURE() << "a descriptor the service was not meant to have: " << line;
        }
    }
    EXPECT_EQ(standard, (std::set<int>{0, 1, 2}));
    EXPECT_LE(sockets, 2) << "the dispatcher's connection and the status connection";
    EXPECT_LE(pipes, 2) << "the dispatcher's wake-up pipe";
    fclose(held);

    // The environment the process started with, as the system keeps it.
    ASSERT_FALSE(pid.empty());
    std::string environ = tstest::ReadWholeFile("/proc/" + pid + "/environ");
    std::map<std::string, std::string> env;
    for (size_t at = 0, end; at < environ.size(); at = end + 1) {
        end = environ.find('\0', at);
        if (end == std::string::npos)
            end = environ.size();
        std::string entry = environ.substr(at, end - at);
        size_t eq = entry.find('=');
        env[entry.substr(0, eq)] = eq == std::string::npos ? "" : entry.substr(eq + 1);
    }
    const std::set<std::string> allowed = {"PATH",         "LD_LIBRARY_PATH", "LANG",         "LANGUAGE",
                                           "TZ",           "ASAN_OPTIONS",    "UBSAN_OPTIONS", "LSAN_OPTIONS",
                                           "TSAN_OPTIONS", "TSUTIL_ROOT",     "HOME",          "USER",
                                           "LOGNAME"};
    for (auto &e : env)
        EXPECT_TRUE(allowed.count(e.first) || e.first.compare(0, 3, "LC_") == 0) << "passed on: " << e.first;
    EXPECT_EQ(env["TSUTIL_ROOT"], root_.path());
    EXPECT_FALSE(env["PATH"].empty());
    EXPECT_FALSE(env["HOME"].empty());
    EXPECT_EQ(env["USER"], env["LOGNAME"]);
    EXPECT_EQ(env.count("TSUTIL_CLIENT_ONLY"), 0u);
    EXPECT_EQ(env.count("NOTIFY_SOCKET"), 0u);

    SERVICE_STATUS st{};
    ASSERT_TRUE(ControlService(svc, SERVICE_CONTROL_STOP, &st)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED));
    CloseServiceHandle(svc);
}

// A service whose account is another user runs as that user and its group
// when the manager runs as root (NT AUTHORITY\LocalService is "nobody"),
// with that user's HOME and USER, and still reaches its manager although
// the machine root is not that user's.
TEST_F(ServiceTest, ServiceRunsAsTheUserOfItsAccount)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "a manager that does not run as root starts services as its own user only";
    passwd *nobody = getpwnam("nobody");
    if (!nobody)
        GTEST_SKIP() << "no user nobody";
    OutsideFolder outside; // where nobody may write its report
    ASSERT_FALSE(outside.path().empty());
    ASSERT_EQ(chmod(outside.path().c_str(), 0777), 0);
    std::string report = outside.path() + "/report";
    std::string command = "\"" + tstest::SiblingProgram("fdservice") + "\" \"" + report + "\"";
    SC_HANDLE svc = CreateServiceA(scm_, "AsNobody", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                   SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr,
                                   nullptr, "NT AUTHORITY\\LocalService", nullptr);
    ASSERT_NE(svc, nullptr) << GetLastError();
    created_.push_back("AsNobody");
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    ASSERT_TRUE(tstest::AwaitFile(report));
    std::string text = tstest::ReadWholeFile(report);
    EXPECT_NE(text.find("id " + std::to_string(nobody->pw_uid) + " " + std::to_string(nobody->pw_gid) + "\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("env USER=nobody\n"), std::string::npos) << text;
    EXPECT_NE(text.find(std::string("env HOME=") + nobody->pw_dir + "\n"), std::string::npos) << text;
    SERVICE_STATUS st{};
    ASSERT_TRUE(ControlService(svc, SERVICE_CONTROL_STOP, &st)) << GetLastError();
    EXPECT_TRUE(WaitForState(svc, SERVICE_STOPPED));
    CloseServiceHandle(svc);
}
