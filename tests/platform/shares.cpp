// Network shares: adding, reading and removing a disk share at level 502
// with a one-entry access list, the store in the registry, the failure
// codes, and publication through Samba where it is there.
#include "ScratchDir.h"

#include <lm.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

namespace {

using tstest::ScratchDir;
using Wide = std::basic_string<WCHAR>;

Wide W(const std::string &text)
{
    Wide out;
    for (unsigned char c : text)
        out += c;
    return out;
}

std::string Narrow(LPCWSTR text)
{
    std::string out;
    for (; text && *text; ++text)
        out += static_cast<char>(*text);
    return out;
}

const char kParameters[] = "SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Parameters";

// Names the Samba configuration that the layer uses on POSIX.
void SetSambaConfiguration(const std::string &file)
{
    HKEY key;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, kParameters, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key, "SambaConfiguration", 0, REG_SZ, reinterpret_cast<const BYTE *>(file.c_str()),
                             static_cast<DWORD>(file.size() + 1)),
              ERROR_SUCCESS);
    RegCloseKey(key);
}

// The security descriptor that gives the current user alone full access,
// built as the library builds it.
class OneUserDescriptor {
public:
    OneUserDescriptor()
    {
        WCHAR user[256];
        DWORD userSize = 256, sidSize = sizeof sid_, domainLength = 16;
        WCHAR domain[16];
        SID_NAME_USE use;
        EXPECT_TRUE(GetUserNameW(user, &userSize));
        EXPECT_TRUE(LookupAccountNameW(nullptr, user, sid_, &sidSize, domain, &domainLength, &use));
        DWORD aclSize = GetLengthSid(sid_) + 16;
        EXPECT_TRUE(InitializeAcl(acl(), aclSize, ACL_REVISION));
        EXPECT_TRUE(AddAccessAllowedAce(acl(), ACL_REVISION, GENERIC_ALL, sid_));
        EXPECT_TRUE(InitializeSecurityDescriptor(&sd_, SECURITY_DESCRIPTOR_REVISION));
        EXPECT_TRUE(SetSecurityDescriptorDacl(&sd_, TRUE, acl(), FALSE));
    }
    PSECURITY_DESCRIPTOR get() { return &sd_; }
    PSID sid() { return sid_; }

private:
    PACL acl() { return reinterpret_cast<PACL>(aclStorage_); }
    BYTE sid_[96];
    DWORD aclStorage_[32];
    SECURITY_DESCRIPTOR sd_;
};

class ShareTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        TS_SKIP_ON_WINE("NetShareAdd and NetShareDel of the local machine are stubs in Wine");
        // No Samba for the layer unless a test names one: never the system's.
        SetSambaConfiguration(dir_ / "no-samba.conf");
        name_ = W("TSTest" + std::to_string(GetCurrentProcessId()));
        path_ = W(dir_.path());
    }
    void TearDown() override
    {
        if (!tstest::RunningUnderWine())
            NetShareDel(nullptr, &name_[0], 0);
    }

    NET_API_STATUS Add(Wide name, Wide path, PSECURITY_DESCRIPTOR sd, DWORD *parmErr = nullptr,
                       DWORD type = STYPE_DISKTREE, DWORD level = 502)
    {
        Wide remark = W("Test share");
        SHARE_INFO_502 info = {};
        info.shi502_netname = name.empty() ? nullptr : &name[0];
        info.shi502_type = type;
        info.shi502_remark = &remark[0];
        info.shi502_permissions = ACCESS_ALL;
        info.shi502_max_uses = SHI_USES_UNLIMITED;
        info.shi502_path = path.empty() ? nullptr : &path[0];
        info.shi502_security_descriptor = sd;
        return NetShareAdd(nullptr, level, reinterpret_cast<LPBYTE>(&info), parmErr);
    }

    ScratchDir dir_;
    Wide name_, path_;
    OneUserDescriptor sd_;
};

TEST_F(ShareTest, AddReadAndRemoveAShare)
{
    ASSERT_EQ(Add(name_, path_, sd_.get()), static_cast<NET_API_STATUS>(NERR_Success));

    LPBYTE buffer = nullptr;
    ASSERT_EQ(NetShareGetInfo(nullptr, &name_[0], 502, &buffer), static_cast<NET_API_STATUS>(NERR_Success));
    const SHARE_INFO_502 *info = reinterpret_cast<const SHARE_INFO_502 *>(buffer);
    EXPECT_EQ(Narrow(info->shi502_netname), Narrow(name_.c_str()));
    EXPECT_EQ(Narrow(info->shi502_path), dir_.path());
    EXPECT_EQ(Narrow(info->shi502_remark), "Test share");
    EXPECT_EQ(info->shi502_type, static_cast<DWORD>(STYPE_DISKTREE));
    EXPECT_EQ(info->shi502_max_uses, SHI_USES_UNLIMITED);
    // The descriptor comes back self-relative, with the one entry.
    const BYTE *sd = static_cast<const BYTE *>(info->shi502_security_descriptor);
    ASSERT_NE(sd, nullptr);
    WORD control;
    DWORD daclOffset;
    memcpy(&control, sd + 2, sizeof control);
    memcpy(&daclOffset, sd + 16, sizeof daclOffset);
    EXPECT_TRUE(control & SE_SELF_RELATIVE);
    EXPECT_TRUE(control & SE_DACL_PRESENT);
    const ACL *acl = reinterpret_cast<const ACL *>(sd + daclOffset);
    EXPECT_EQ(acl->AceCount, 1);
    const ACCESS_ALLOWED_ACE *ace = reinterpret_cast<const ACCESS_ALLOWED_ACE *>(acl + 1);
    EXPECT_EQ(ace->Mask, static_cast<DWORD>(GENERIC_ALL));
    EXPECT_EQ(memcmp(&ace->SidStart, sd_.sid(), GetLengthSid(sd_.sid())), 0);
    EXPECT_EQ(NetApiBufferFree(buffer), static_cast<NET_API_STATUS>(NERR_Success));

    // The other levels, and the name in other letter case.
    Wide upper = name_;
    for (WCHAR &c : upper)
        c = static_cast<WCHAR>(c >= 'a' && c <= 'z' ? c - 32 : c);
    for (DWORD level : {0u, 1u, 2u}) {
        ASSERT_EQ(NetShareGetInfo(nullptr, &upper[0], level, &buffer), static_cast<NET_API_STATUS>(NERR_Success));
        EXPECT_EQ(Narrow(reinterpret_cast<SHARE_INFO_0 *>(buffer)->shi0_netname), Narrow(name_.c_str()));
        NetApiBufferFree(buffer);
    }

    // The store holds it where Windows does.
    HKEY key;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares", 0,
                            KEY_READ, &key),
              ERROR_SUCCESS);
    char data[1024] = {};
    DWORD type = 0, size = sizeof data;
    EXPECT_EQ(RegQueryValueExA(key, Narrow(name_.c_str()).c_str(), nullptr, &type, reinterpret_cast<BYTE *>(data),
                               &size),
              ERROR_SUCCESS);
    RegCloseKey(key);
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
    std::string lines(data, size);
    EXPECT_NE(lines.find(std::string("Path=") + dir_.path() + '\0'), std::string::npos);
    EXPECT_NE(lines.find(std::string("Type=0") + '\0'), std::string::npos);

    EXPECT_EQ(NetShareDel(nullptr, &name_[0], 0), static_cast<NET_API_STATUS>(NERR_Success));
    buffer = reinterpret_cast<LPBYTE>(&key);
    EXPECT_EQ(NetShareGetInfo(nullptr, &name_[0], 502, &buffer), static_cast<NET_API_STATUS>(NERR_NetNameNotFound));
    EXPECT_EQ(buffer, nullptr);
}

TEST_F(ShareTest, FailureCodes)
{
    ASSERT_EQ(Add(name_, path_, sd_.get()), static_cast<NET_API_STATUS>(NERR_Success));
    Wide upper = name_;
    upper[0] = static_cast<WCHAR>(upper[0] == 'T' ? 't' : 'T');
    Wide missing = W(dir_ / "missing");
    Wide other = W("TSTestOther");
    Wide bad = W("bad*name");
    SECURITY_DESCRIPTOR broken = {};
    const struct {
        const char *what;
        NET_API_STATUS status;
        NET_API_STATUS expected;
    } rows[] = {
        {"duplicate share", Add(name_, path_, sd_.get()), NERR_DuplicateShare},
        {"duplicate share in other case", Add(upper, path_, sd_.get()), NERR_DuplicateShare},
        {"unknown folder", Add(other, missing, sd_.get()), NERR_UnknownDevDir},
        {"network path", Add(other, W("\\\\server\\share"), sd_.get()), NERR_RedirectedPath},
        {"bad level", Add(other, path_, sd_.get(), nullptr, STYPE_DISKTREE, 1), ERROR_INVALID_LEVEL},
        {"bad name", Add(bad, path_, sd_.get()), ERROR_INVALID_NAME},
        {"delete of no such share", NetShareDel(nullptr, &other[0], 0), NERR_NetNameNotFound},
        {"another server", NetShareDel(&W("\\\\no-such-server-4711")[0], &name_[0], 0), ERROR_BAD_NETPATH},
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.status, r.expected) << r.what;

    // Bad parameters name the field.
    const struct {
        const char *what;
        Wide name, path;
        PSECURITY_DESCRIPTOR sd;
        DWORD type, field;
    } fields[] = {
        {"no name", Wide(), path_, sd_.get(), STYPE_DISKTREE, SHARE_NETNAME_PARMNUM},
        {"no path", other, Wide(), sd_.get(), STYPE_DISKTREE, SHARE_PATH_PARMNUM},
        {"printer queue", other, path_, sd_.get(), STYPE_PRINTQ, SHARE_TYPE_PARMNUM},
        {"broken descriptor", other, path_, &broken, STYPE_DISKTREE, SHARE_FILE_SD_PARMNUM},
    };
    for (const auto &f : fields) {
        DWORD parmErr = 0;
        EXPECT_EQ(Add(f.name, f.path, f.sd, &parmErr, f.type), static_cast<NET_API_STATUS>(ERROR_INVALID_PARAMETER))
            << f.what;
        EXPECT_EQ(parmErr, f.field) << f.what;
    }
    EXPECT_EQ(NetShareAdd(nullptr, 502, nullptr, nullptr), static_cast<NET_API_STATUS>(ERROR_INVALID_PARAMETER));

    LPBYTE buffer = nullptr;
    EXPECT_EQ(NetShareGetInfo(nullptr, &other[0], 502, &buffer), static_cast<NET_API_STATUS>(NERR_NetNameNotFound));
    EXPECT_EQ(NetShareGetInfo(nullptr, &name_[0], 7, &buffer), static_cast<NET_API_STATUS>(ERROR_INVALID_LEVEL));
    EXPECT_EQ(buffer, nullptr);
    // None of the refused adds made a share.
    EXPECT_EQ(NetShareGetInfo(nullptr, &other[0], 0, &buffer), static_cast<NET_API_STATUS>(NERR_NetNameNotFound));
    EXPECT_EQ(NetApiBufferFree(nullptr), static_cast<NET_API_STATUS>(NERR_Success));
}

// Runs a shell command line and gives its standard output.
std::string Output(const std::string &command)
{
    std::string out;
    FILE *p = popen((command + " 2>/dev/null").c_str(), "r");
    if (!p)
        return out;
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    pclose(p);
    return out;
}

TEST_F(ShareTest, PublishedThroughSamba)
{
    if (Output("command -v net").empty())
        GTEST_SKIP() << "Samba's net program is not installed (apt-get install samba)";
    // Samba in a configuration of its own, below this test's folder.
    std::string root = getenv("TSUTIL_ROOT");
    std::string base = root + "/drive_c/" + dir_.path().substr(3);
    ASSERT_TRUE(CreateDirectoryA((dir_ / "usershares").c_str(), nullptr));
    std::string conf = "[global]\n"
                       "usershare path = " + base + "/usershares\n"
                       "usershare max shares = 10\n"
                       "usershare owner only = no\n";
    for (const char *d : {"lock", "state", "cache", "private", "pid", "ncalrpc"}) {
        ASSERT_TRUE(CreateDirectoryA((dir_ / d).c_str(), nullptr));
        conf += std::string(d == std::string("private") ? "private dir" : std::string(d) + " directory") + " = " +
                base + "/" + d + "\n";
    }
    ASSERT_TRUE(tstest::WriteWholeFile(dir_ / "smb.conf", conf));
    SetSambaConfiguration(dir_ / "smb.conf");
    std::string net = "net -s '" + base + "/smb.conf' usershare ";

    ASSERT_EQ(Add(name_, path_, sd_.get()), static_cast<NET_API_STATUS>(NERR_Success));
    std::string name = Narrow(name_.c_str());
    EXPECT_NE(Output(net + "list").find(name), std::string::npos);
    std::string info = Output(net + "info " + name);
    EXPECT_NE(info.find("path=" + base), std::string::npos) << info;
    EXPECT_NE(info.find("comment=Test share"), std::string::npos) << info;
    // The one account's SID, which is Samba's own for a Unix user.
    BYTE *sid = static_cast<BYTE *>(sd_.sid());
    DWORD uid;
    memcpy(&uid, sid + 12, sizeof uid);
    EXPECT_NE(info.find("usershare_acl=S-1-22-1-" + std::to_string(uid) + ":F"), std::string::npos) << info;

    EXPECT_EQ(NetShareDel(nullptr, &name_[0], 0), static_cast<NET_API_STATUS>(NERR_Success));
    EXPECT_EQ(Output(net + "list").find(name), std::string::npos);
}

} // namespace
