// NetShare on real shares of this machine: a directory published for the
// current user, found, told apart from other paths and withdrawn; the
// account that decides whether Delete goes on; strings too long to convert.
// The rows of the failure table (an unknown account's Add among them) run
// in tests/e2e/netshare_failures.cpp.
#include "NetShare.h"

#include "TestSupport.h"
#include "ScratchDir.h"

#include <lm.h>
#include <windows.h>

#include <string>

namespace {

using tstest::ScratchDir;

const char kParameters[] = "SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Parameters";

class NetShareTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        TS_SKIP_ON_WINE("NetShareAdd and NetShareDel of the local machine are stubs in Wine");
        // No Samba for the layer: never the system's.
        HKEY key;
        ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, kParameters, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                                  nullptr),
                  ERROR_SUCCESS);
        std::string none = dir_ / "no-samba.conf";
        EXPECT_EQ(RegSetValueExA(key, "SambaConfiguration", 0, REG_SZ, reinterpret_cast<const BYTE *>(none.c_str()),
                                 static_cast<DWORD>(none.size() + 1)),
                  ERROR_SUCCESS);
        RegCloseKey(key);
        char user[256];
        DWORD size = sizeof user;
        ASSERT_TRUE(GetUserNameA(user, &size));
        user_ = user;
        name_ = "TSData" + std::to_string(GetCurrentProcessId());
    }

    // The remark of the share, as the platform keeps it.
    std::string Remark()
    {
        WCHAR name[64];
        for (size_t i = 0; i <= name_.size(); ++i)
            name[i] = static_cast<WCHAR>(name_.c_str()[i]);
        LPBYTE buffer = nullptr;
        if (NetShareGetInfo(nullptr, name, 502, &buffer) != NERR_Success)
            return "<none>";
        std::string remark;
        for (const WCHAR *c = reinterpret_cast<SHARE_INFO_502 *>(buffer)->shi502_remark; *c; ++c)
            remark += static_cast<char>(*c);
        NetApiBufferFree(buffer);
        return remark;
    }

    ScratchDir dir_;
    std::string user_, name_;
};

TEST_F(NetShareTest, PublishFindAndWithdraw)
{
    NetShare share;
    std::string printed = tstest::PrintedBy([&] { EXPECT_EQ(share.Add(dir_.path().c_str(), name_.c_str(), user_.c_str()), 1); });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(Remark(), "Orvanel Data Share Directory");
    EXPECT_EQ(share.IsShared(dir_.path().c_str(), name_.c_str()), 1);

    // Exact comparison: another path, or the same one in other letter case.
    std::string lower = dir_.path();
    lower[0] = 'c';
    EXPECT_EQ(share.IsShared(lower.c_str(), name_.c_str()), 0);
    EXPECT_EQ(share.IsShared((dir_ / "sub").c_str(), name_.c_str()), 0);

    // A second Add of the name keeps the first, silently.
    NetShare other("", "Another remark");
    printed = tstest::PrintedBy([&] { EXPECT_EQ(other.Add(dir_.path().c_str(), name_.c_str(), user_.c_str()), 0); });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(Remark(), "Orvanel Data Share Directory");

    // An account that does not exist keeps the share from going.
    printed = tstest::PrintedBy([&] { EXPECT_EQ(share.Delete(name_.c_str(), "NoSuchAccount4711"), 0); });
    EXPECT_EQ(printed, "LookupAccountName error! (rc=1332)\n");
    EXPECT_EQ(share.IsShared(dir_.path().c_str(), name_.c_str()), 1);

    // Delete works on this machine whatever the object's server.
    NetShare remote("\\\\no-such-server-4711");
    EXPECT_EQ(remote.Delete(name_.c_str(), user_.c_str()), 1);
    EXPECT_EQ(share.IsShared(dir_.path().c_str(), name_.c_str()), 0);
    printed = tstest::PrintedBy([&] { EXPECT_EQ(share.Delete(name_.c_str(), user_.c_str()), 0); });
    EXPECT_EQ(printed, "");
}

// A string that would fill the 260 characters of its buffer is refused
// before any platform call; one character less is used.
TEST_F(NetShareTest, StringsOf260CharactersAreRefused)
{
    NetShare share;
    std::string longPath = dir_.path() + "\\" + std::string(259 - dir_.path().size(), 'p');
    ASSERT_EQ(longPath.size(), 260u);
    SetLastError(0);
    EXPECT_EQ(share.Add(longPath.c_str(), name_.c_str(), user_.c_str()), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE));
    EXPECT_EQ(share.Add(dir_.path().c_str(), name_.c_str(), std::string(300, 'u').c_str()), 0);
    EXPECT_EQ(share.IsShared(dir_.path().c_str(), std::string(260, 'n').c_str()), 0);
    EXPECT_EQ(share.IsShared(dir_.path().c_str(), name_.c_str()), 0) << "nothing was published";

    longPath.pop_back();
    ASSERT_TRUE(CreateDirectoryA(longPath.c_str(), nullptr));
    EXPECT_EQ(share.Add(longPath.c_str(), name_.c_str(), user_.c_str()), 1);
    EXPECT_EQ(share.IsShared(longPath.c_str(), name_.c_str()), 1);
    EXPECT_EQ(share.Delete(name_.c_str(), user_.c_str()), 1);
}

} // namespace
