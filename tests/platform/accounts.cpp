// Accounts of the machine and the security structures built on them:
// LookupAccountNameW with its buffer protocol, SIDs, access lists and
// security descriptors with their sizes and errors.
#include "TestSupport.h"

#include <string.h>

#include <string>
#include <vector>

namespace {

using tstest::ErrorOf;
using Wide = std::basic_string<WCHAR>;

Wide CurrentUser()
{
    WCHAR name[256];
    DWORD size = 256;
    EXPECT_TRUE(GetUserNameW(name, &size));
    return Wide(name);
}

Wide Widened(const char *text) { return Wide(text, text + strlen(text)); }

TEST(AccountTest, LookupOfAnAccountOfThisMachine)
{
    Wide user = CurrentUser();
    ASSERT_FALSE(user.empty());
    // Both sizes are asked for first.
    DWORD sidSize = 0, domainSize = 0;
    SID_NAME_USE use = SidTypeUnknown;
    EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, user.c_str(), nullptr, &sidSize, nullptr, &domainSize, &use)),
              static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    ASSERT_GE(sidSize, 8u);
    ASSERT_GE(domainSize, 2u);

    std::vector<BYTE> sid(sidSize);
    std::vector<WCHAR> domain(domainSize);
    DWORD domainLength = domainSize;
    ASSERT_TRUE(LookupAccountNameW(nullptr, user.c_str(), sid.data(), &sidSize, domain.data(), &domainLength, &use));
    EXPECT_EQ(use, SidTypeUser);
    EXPECT_TRUE(IsValidSid(sid.data()));
    EXPECT_EQ(GetLengthSid(sid.data()), sidSize);
    // The domain's length comes back without its terminator.
    EXPECT_EQ(domainLength, domainSize - 1);
    EXPECT_EQ(domain[domainLength], 0);

    // The library's fixed buffers: 96 bytes for the SID, 16 characters for
    // the domain, which a machine's name (at most 15) always fits.
    BYTE sid96[96];
    WCHAR domain16[16];
    DWORD size96 = sizeof sid96, length16 = 16;
    EXPECT_TRUE(LookupAccountNameW(nullptr, user.c_str(), sid96, &size96, domain16, &length16, &use));
    // One character short of the terminator is too small, and both sizes
    // are told again.
    DWORD tight = domainLength;
    size96 = sizeof sid96;
    EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, user.c_str(), sid96, &size96, domain16, &tight, &use)),
              static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(tight, domainLength + 1);
    EXPECT_EQ(size96, sidSize);

    // The account named with its domain.
    Wide qualified = Wide(domain.data()) + Widened("\\") + user;
    size96 = sizeof sid96, length16 = 16;
    ASSERT_TRUE(LookupAccountNameW(nullptr, qualified.c_str(), sid96, &size96, domain16, &length16, &use));
    EXPECT_EQ(memcmp(sid96, sid.data(), sidSize), 0);
}

TEST(AccountTest, MachineAccountsAreUnixSids)
{
    TS_SKIP_ON_WINE("Wine gives its accounts Windows' own SIDs");
    BYTE sid[96];
    WCHAR domain[16];
    DWORD sidSize = sizeof sid, domainLength = 16;
    SID_NAME_USE use;
    // root is uid 0 and the group root gid 0: S-1-22-1-0 and S-1-22-2-0.
    ASSERT_TRUE(LookupAccountNameW(nullptr, Widened("root").c_str(), sid, &sidSize, domain, &domainLength, &use));
    const BYTE user[16] = {1, 2, 0, 0, 0, 0, 0, 22, 1, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(sidSize, 16u);
    EXPECT_EQ(memcmp(sid, user, sizeof user), 0);
    EXPECT_EQ(use, SidTypeUser);
    sidSize = sizeof sid, domainLength = 16;
    ASSERT_TRUE(LookupAccountNameW(nullptr, Widened("daemon").c_str(), sid, &sidSize, domain, &domainLength, &use) ||
                LookupAccountNameW(nullptr, Widened("adm").c_str(), sid, &sidSize, domain, &domainLength, &use));
    // A name that only a group has.
    sidSize = sizeof sid, domainLength = 16;
    ASSERT_TRUE(LookupAccountNameW(nullptr, Widened("sudo").c_str(), sid, &sidSize, domain, &domainLength, &use) ||
                LookupAccountNameW(nullptr, Widened("staff").c_str(), sid, &sidSize, domain, &domainLength, &use));
    EXPECT_EQ(use, SidTypeGroup);
    EXPECT_EQ(sid[8], 2);
}

TEST(AccountTest, AccountsThatDoNotExist)
{
    BYTE sid[96];
    WCHAR domain[16];
    DWORD sidSize = sizeof sid, domainLength = 16;
    SID_NAME_USE use;
    EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, Widened("no-such-account-4711").c_str(), sid, &sidSize, domain,
                                         &domainLength, &use)),
              static_cast<DWORD>(ERROR_NONE_MAPPED));
    TS_SKIP_ON_WINE("Wine looks the name up whatever domain comes before it");
    EXPECT_EQ(ErrorOf(LookupAccountNameW(nullptr, Widened("NOSUCHDOMAIN4711\\root").c_str(), sid, &sidSize, domain,
                                         &domainLength, &use)),
              static_cast<DWORD>(ERROR_NONE_MAPPED));
}

// A SID of one sub-authority, built by hand: S-1-5-32.
struct SmallSid {
    BYTE bytes[12] = {1, 1, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0};
    PSID get() { return bytes; }
};

TEST(AccountTest, AccessListOfOneEntry)
{
    SmallSid sid;
    EXPECT_EQ(GetLengthSid(sid.get()), 12u);
    // Header (8) + entry (8) + SID: the size that holds exactly one entry.
    DWORD size = GetLengthSid(sid.get()) + 16;
    std::vector<DWORD> storage(size / 4 + 4);
    PACL acl = reinterpret_cast<PACL>(storage.data());
    ASSERT_TRUE(InitializeAcl(acl, size, ACL_REVISION));
    EXPECT_EQ(acl->AclSize, size);
    EXPECT_EQ(acl->AceCount, 0);
    ASSERT_TRUE(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, sid.get()));
    EXPECT_EQ(acl->AceCount, 1);
    const ACCESS_ALLOWED_ACE *ace = reinterpret_cast<const ACCESS_ALLOWED_ACE *>(acl + 1);
    EXPECT_EQ(ace->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_EQ(ace->Header.AceSize, 8 + 12);
    EXPECT_EQ(ace->Mask, static_cast<DWORD>(GENERIC_ALL));
    EXPECT_EQ(memcmp(&ace->SidStart, sid.bytes, 12), 0);
    // It is full now.
    EXPECT_EQ(ErrorOf(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_READ, sid.get())),
              static_cast<DWORD>(ERROR_ALLOTTED_SPACE_EXCEEDED));
}

TEST(AccountTest, AccessListErrors)
{
    DWORD storage[16];
    PACL acl = reinterpret_cast<PACL>(storage);
    EXPECT_EQ(ErrorOf(InitializeAcl(acl, 4, ACL_REVISION)), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(ErrorOf(InitializeAcl(acl, sizeof storage, 7)), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    ASSERT_TRUE(InitializeAcl(acl, sizeof storage, ACL_REVISION));
    SmallSid sid;
    SmallSid bad;
    bad.bytes[0] = 9; // no such revision
    EXPECT_FALSE(IsValidSid(bad.get()));
    EXPECT_EQ(ErrorOf(AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, bad.get())),
              static_cast<DWORD>(ERROR_INVALID_SID));
    // A list whose one entry claims more room than the list has.
    ACL broken[8] = {{ACL_REVISION, 0, sizeof broken, 1, 0}, {0, 0, 200, 0, 0}};
    EXPECT_EQ(ErrorOf(AddAccessAllowedAce(broken, ACL_REVISION, GENERIC_ALL, sid.get())),
              static_cast<DWORD>(ERROR_INVALID_ACL));
}

TEST(AccountTest, SecurityDescriptorWithAnAccessList)
{
    SECURITY_DESCRIPTOR sd;
    EXPECT_EQ(ErrorOf(InitializeSecurityDescriptor(&sd, 2)), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
    ASSERT_TRUE(InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_EQ(sd.Revision, SECURITY_DESCRIPTOR_REVISION);
    EXPECT_EQ(sd.Dacl, nullptr);
    DWORD storage[8];
    PACL acl = reinterpret_cast<PACL>(storage);
    ASSERT_TRUE(InitializeAcl(acl, sizeof storage, ACL_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&sd, TRUE, acl, FALSE));
    EXPECT_EQ(sd.Dacl, acl);
    EXPECT_EQ(sd.Control & (SE_DACL_PRESENT | SE_DACL_DEFAULTED), SE_DACL_PRESENT);
    ASSERT_TRUE(SetSecurityDescriptorDacl(&sd, FALSE, nullptr, FALSE));
    EXPECT_EQ(sd.Control & SE_DACL_PRESENT, 0);
    // A descriptor that was never initialised.
    SECURITY_DESCRIPTOR blank = {};
    EXPECT_EQ(ErrorOf(SetSecurityDescriptorDacl(&blank, TRUE, acl, FALSE)), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
}

} // namespace
