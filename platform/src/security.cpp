// Accounts and security descriptors: LookupAccountNameW for the machine's
// users and groups, SIDs, access lists and absolute security descriptors.
#include <windows.h>

#include "nls.h"
#include "security.h"

#include <ctype.h>
#include <grp.h>
#include <pwd.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

// The Unix authority and the first sub-authority of its user and group SIDs.
constexpr BYTE kUnixAuthority = 22;
constexpr DWORD kUserRid = 1, kGroupRid = 2;
constexpr DWORD kAccountSidLength = 8 + 2 * sizeof(DWORD);

static_assert(sizeof(SID) == 12, "SID with one sub-authority");
static_assert(sizeof(ACL) == 8, "ACL header");
static_assert(sizeof(ACCESS_ALLOWED_ACE) == 12, "ACE with the first word of its SID");
static_assert(sizeof(SECURITY_DESCRIPTOR) == (sizeof(void *) == 8 ? 40 : 20), "absolute descriptor, as Windows lays it out");

std::string utf8Of(LPCWSTR text) { return tsp::narrowText(text, CP_UTF8); }

bool sameTextNoCase(const std::string &a, const std::string &b)
{
    return a.size() == b.size() && strncasecmp(a.c_str(), b.c_str(), a.size()) == 0;
}

// A user's or group's id by name; 0 when there is no such account, 1 for a
// user, 2 for a group.
DWORD findAccount(const std::string &name, DWORD &id)
{
    std::vector<char> buffer(16384);
    struct passwd pw, *pwFound = nullptr;
    if (getpwnam_r(name.c_str(), &pw, buffer.data(), buffer.size(), &pwFound) == 0 && pwFound) {
        id = static_cast<DWORD>(pwFound->pw_uid);
        return kUserRid;
    }
    struct group gr, *grFound = nullptr;
    if (getgrnam_r(name.c_str(), &gr, buffer.data(), buffer.size(), &grFound) == 0 && grFound) {
        id = static_cast<DWORD>(grFound->gr_gid);
        return kGroupRid;
    }
    return 0;
}

BOOL fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

} // namespace

namespace tsp {

std::string computerName()
{
    char host[256] = {};
    if (gethostname(host, sizeof host - 1) != 0)
        strcpy(host, "localhost");
    std::string name(host, strcspn(host, "."));
    if (name.size() > 15)
        name.resize(15);
    for (char &c : name)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return name;
}

bool isLocalMachine(LPCWSTR name)
{
    if (!name)
        return true;
    std::string n = utf8Of(name);
    if (n.compare(0, 2, "\\\\") == 0)
        n.erase(0, 2);
    return n.empty() || sameTextNoCase(n, computerName());
}

std::string sidText(PSID sid)
{
    const SID *s = static_cast<const SID *>(sid);
    const BYTE *a = s->IdentifierAuthority.Value;
    unsigned long long authority = 0;
    for (int i = 0; i < 6; ++i)
        authority = authority << 8 | a[i];
    std::string text = "S-" + std::to_string(s->Revision) + "-" + std::to_string(authority);
    for (BYTE i = 0; i < s->SubAuthorityCount; ++i) {
        DWORD sub;
        memcpy(&sub, reinterpret_cast<const BYTE *>(sid) + 8 + 4 * i, sizeof sub);
        text += "-" + std::to_string(sub);
    }
    return text;
}

bool isWellFormedAcl(const ACL *acl, size_t &used)
{
    if (!acl || acl->AclRevision < MIN_ACL_REVISION || acl->AclRevision > MAX_ACL_REVISION ||
        acl->AclSize < sizeof(ACL))
        return false;
    const BYTE *base = reinterpret_cast<const BYTE *>(acl);
    used = sizeof(ACL);
    for (WORD i = 0; i < acl->AceCount; ++i) {
        if (used + sizeof(ACE_HEADER) > acl->AclSize)
            return false;
        const ACE_HEADER *ace = reinterpret_cast<const ACE_HEADER *>(base + used);
        if (ace->AceSize < sizeof(ACE_HEADER) || used + ace->AceSize > acl->AclSize)
            return false;
        used += ace->AceSize;
    }
    return true;
}

} // namespace tsp

using namespace tsp;

extern "C" {

BOOL WINAPI LookupAccountNameW(LPCWSTR lpSystemName, LPCWSTR lpAccountName, PSID Sid, LPDWORD cbSid,
                               LPWSTR ReferencedDomainName, LPDWORD cchReferencedDomainName, PSID_NAME_USE peUse)
{
    if (!lpAccountName || !cbSid || !cchReferencedDomainName || !peUse)
        return fail(ERROR_INVALID_PARAMETER);
    if (!isLocalMachine(lpSystemName))
        return fail(RPC_S_SERVER_UNAVAILABLE);
    std::string domain = computerName();
    std::string name = utf8Of(lpAccountName);
    size_t slash = name.find('\\');
    if (slash != std::string::npos) {
        if (!sameTextNoCase(name.substr(0, slash), domain))
            return fail(ERROR_NONE_MAPPED);
        name.erase(0, slash + 1);
    }
    DWORD id = 0, kind = name.empty() ? 0 : findAccount(name, id);
    if (!kind) {
        std::string lower = name;
        for (char &c : lower)
            c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        if (lower != name)
            kind = findAccount(lower, id);
    }
    if (!kind)
        return fail(ERROR_NONE_MAPPED);
    DWORD domainChars = static_cast<DWORD>(domain.size()); // ASCII: one unit each
    if (*cbSid < kAccountSidLength || *cchReferencedDomainName < domainChars + 1 || !Sid ||
        !ReferencedDomainName) {
        *cbSid = kAccountSidLength;
        *cchReferencedDomainName = domainChars + 1;
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    SID *s = static_cast<SID *>(Sid);
    s->Revision = SID_REVISION;
    s->SubAuthorityCount = 2;
    memset(s->IdentifierAuthority.Value, 0, 6);
    s->IdentifierAuthority.Value[5] = kUnixAuthority;
    // The second sub-authority lies past the declared array of one.
    DWORD subs[2] = {kind, id};
    memcpy(reinterpret_cast<BYTE *>(Sid) + 8, subs, sizeof subs);
    for (size_t i = 0; i <= domain.size(); ++i)
        ReferencedDomainName[i] = static_cast<WCHAR>(static_cast<unsigned char>(domain.c_str()[i]));
    *cbSid = kAccountSidLength;
    *cchReferencedDomainName = domainChars;
    *peUse = kind == kUserRid ? SidTypeUser : SidTypeGroup;
    return TRUE;
}

BOOL WINAPI GetUserNameW(LPWSTR lpBuffer, LPDWORD pcbBuffer)
{
    if (!pcbBuffer)
        return fail(ERROR_INVALID_PARAMETER);
    std::vector<char> buffer(16384);
    struct passwd pw, *found = nullptr;
    std::string name = getpwuid_r(geteuid(), &pw, buffer.data(), buffer.size(), &found) == 0 && found
                           ? found->pw_name
                           : std::to_string(geteuid());
    std::vector<WCHAR> wide = wideText(name, CP_UTF8);
    DWORD units = static_cast<DWORD>(wide.size());
    if (!lpBuffer || *pcbBuffer < units) {
        *pcbBuffer = units;
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    memcpy(lpBuffer, wide.data(), units * sizeof(WCHAR));
    *pcbBuffer = units;
    return TRUE;
}

BOOL WINAPI GetUserNameA(LPSTR lpBuffer, LPDWORD pcbBuffer)
{
    if (!pcbBuffer)
        return fail(ERROR_INVALID_PARAMETER);
    DWORD units = 0;
    GetUserNameW(nullptr, &units);
    std::vector<WCHAR> wide(units ? units : 1);
    if (!GetUserNameW(wide.data(), &units))
        return FALSE;
    std::string name = narrowText(wide.data(), CP_ACP);
    DWORD bytes = static_cast<DWORD>(name.size() + 1);
    if (!lpBuffer || *pcbBuffer < bytes) {
        *pcbBuffer = bytes;
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    memcpy(lpBuffer, name.c_str(), bytes);
    *pcbBuffer = bytes;
    return TRUE;
}

BOOL WINAPI IsValidSid(PSID pSid)
{
    const SID *s = static_cast<const SID *>(pSid);
    return s && s->Revision == SID_REVISION && s->SubAuthorityCount <= SID_MAX_SUB_AUTHORITIES;
}

DWORD WINAPI GetLengthSid(PSID pSid)
{
    if (!IsValidSid(pSid))
        return 0;
    return 8 + 4 * static_cast<const SID *>(pSid)->SubAuthorityCount;
}

BOOL WINAPI InitializeAcl(PACL pAcl, DWORD nAclLength, DWORD dwAclRevision)
{
    if (nAclLength < sizeof(ACL))
        return fail(ERROR_INSUFFICIENT_BUFFER);
    if (!pAcl || dwAclRevision < MIN_ACL_REVISION || dwAclRevision > MAX_ACL_REVISION || nAclLength > 0xFFFF)
        return fail(ERROR_INVALID_PARAMETER);
    memset(pAcl, 0, sizeof(ACL));
    pAcl->AclRevision = static_cast<BYTE>(dwAclRevision);
    pAcl->AclSize = static_cast<WORD>(nAclLength & ~3u);
    return TRUE;
}

BOOL WINAPI AddAccessAllowedAce(PACL pAcl, DWORD dwAceRevision, DWORD AccessMask, PSID pSid)
{
    size_t used;
    if (!isWellFormedAcl(pAcl, used))
        return fail(ERROR_INVALID_ACL);
    if (!IsValidSid(pSid))
        return fail(ERROR_INVALID_SID);
    if (dwAceRevision < MIN_ACL_REVISION || dwAceRevision > MAX_ACL_REVISION)
        return fail(ERROR_REVISION_MISMATCH);
    DWORD sidLength = GetLengthSid(pSid);
    size_t aceSize = sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) + sidLength;
    if (used + aceSize > pAcl->AclSize || pAcl->AceCount == 0xFFFF)
        return fail(ERROR_ALLOTTED_SPACE_EXCEEDED);
    BYTE *at = reinterpret_cast<BYTE *>(pAcl) + used;
    ACCESS_ALLOWED_ACE ace = {};
    ace.Header.AceType = ACCESS_ALLOWED_ACE_TYPE;
    ace.Header.AceSize = static_cast<WORD>(aceSize);
    ace.Mask = AccessMask;
    memcpy(at, &ace, offsetof(ACCESS_ALLOWED_ACE, SidStart));
    memcpy(at + offsetof(ACCESS_ALLOWED_ACE, SidStart), pSid, sidLength);
    ++pAcl->AceCount;
    if (dwAceRevision > pAcl->AclRevision)
        pAcl->AclRevision = static_cast<BYTE>(dwAceRevision);
    return TRUE;
}

BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision)
{
    if (!pSecurityDescriptor)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwRevision != SECURITY_DESCRIPTOR_REVISION)
        return fail(ERROR_UNKNOWN_REVISION);
    SECURITY_DESCRIPTOR *sd = static_cast<SECURITY_DESCRIPTOR *>(pSecurityDescriptor);
    memset(sd, 0, sizeof *sd);
    sd->Revision = SECURITY_DESCRIPTOR_REVISION;
    return TRUE;
}

BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent, PACL pDacl,
                                      BOOL bDaclDefaulted)
{
    SECURITY_DESCRIPTOR *sd = static_cast<SECURITY_DESCRIPTOR *>(pSecurityDescriptor);
    if (!sd)
        return fail(ERROR_INVALID_PARAMETER);
    if (sd->Revision != SECURITY_DESCRIPTOR_REVISION)
        return fail(ERROR_UNKNOWN_REVISION);
    if (sd->Control & SE_SELF_RELATIVE)
        return fail(ERROR_INVALID_SECURITY_DESCR);
    sd->Control &= static_cast<SECURITY_DESCRIPTOR_CONTROL>(~(SE_DACL_PRESENT | SE_DACL_DEFAULTED));
    sd->Dacl = nullptr;
    if (bDaclPresent) {
        sd->Control |= SE_DACL_PRESENT;
        sd->Dacl = pDacl;
        if (bDaclDefaulted)
            sd->Control |= SE_DACL_DEFAULTED;
    }
    return TRUE;
}

} // extern "C"
