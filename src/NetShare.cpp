// NetShare: a directory published as a disk share for one account.
#include "NetShare.h"

#include <windows.h>
#include <lm.h>

#include <cassert>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <initializer_list>

namespace {

// Room of each converted string, in wide characters or bytes.
const size_t kTextRoom = 260;
// The account's identifier is looked for in a block of this size first.
const DWORD kFirstSidSize = 96;
// Room of the account's domain name, in wide characters; it never grows.
const DWORD kDomainRoom = 16;

// The return codes of the share calls that count as failure; any other
// code, not only 0, is success.
bool IsFailure(NET_API_STATUS code)
{
    switch (code) {
    case ERROR_ACCESS_DENIED:
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_INVALID_PARAMETER:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_LEVEL:
    case NERR_UnknownDevDir:
    case NERR_RedirectedPath:
    case NERR_DuplicateShare:
    case NERR_NetNameNotFound:
        return true;
    default:
        return false;
    }
}

// A narrow string in wide form, in a buffer of kTextRoom characters. A text
// that would fill the buffer (and so lose its terminator) is refused rather
// than cut: a cut path or name would publish or remove something else.
class WideText {
public:
    explicit WideText(const char *text) : ok_(false)
    {
        text_[0] = 0;
        if (text == nullptr)
            return;
        size_t needed = mbstowcs(static_cast<WCHAR *>(nullptr), text, 0);
        if (needed == static_cast<size_t>(-1) || needed >= kTextRoom)
            return;
        ok_ = mbstowcs(text_, text, kTextRoom) == needed;
    }
    bool ok() const { return ok_; }
    WCHAR *get() { return text_; }

private:
    WCHAR text_[kTextRoom];
    bool ok_;
};

// Whether every text converted; if not, the operation is refused.
bool AllConverted(std::initializer_list<const WideText *> texts)
{
    for (const WideText *t : texts) {
        if (!t->ok()) {
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return false;
        }
    }
    return true;
}

// A wide string of the platform's in narrow form, in kTextRoom bytes; false
// when it would not fit with its terminator.
bool ToNarrow(const WCHAR *text, char (&out)[kTextRoom])
{
    if (text == nullptr)
        return false;
    size_t needed = wcstombs(nullptr, text, 0);
    if (needed == static_cast<size_t>(-1) || needed >= kTextRoom)
        return false;
    return wcstombs(out, text, kTextRoom) == needed;
}

// A block of the process heap, given back when the holder goes.
class HeapBlock {
public:
    HeapBlock() : heap_(GetProcessHeap()), block_(nullptr) {}
    ~HeapBlock()
    {
        if (block_ != nullptr && !HeapFree(heap_, 0, block_))
            assert(!"HeapFree refused a block of NetShare");
    }
    HeapBlock(const HeapBlock &) = delete;
    HeapBlock &operator=(const HeapBlock &) = delete;

    bool Allocate(SIZE_T bytes)
    {
        block_ = HeapAlloc(heap_, 0, bytes);
        return block_ != nullptr;
    }
    // On failure the block stays as it was, and still held.
    bool Reallocate(SIZE_T bytes)
    {
        void *moved = HeapReAlloc(heap_, 0, block_, bytes);
        if (moved == nullptr)
            return false;
        block_ = moved;
        return true;
    }
    void *get() const { return block_; }

private:
    HANDLE heap_;
    void *block_;
};

// Looks the account up from this machine, with its identifier in sid;
// prints what failed and gives false.
bool LookUpAccount(WCHAR *account, HeapBlock &sid)
{
    DWORD sidSize = kFirstSidSize;
    DWORD domainLength = kDomainRoom;
    WCHAR domain[kDomainRoom];
    SID_NAME_USE use; // the account's kind, which nobody reads
    if (!sid.Allocate(sidSize)) {
        printf("HeapAlloc error!\n");
        return false;
    }
    if (LookupAccountNameW(nullptr, account, sid.get(), &sidSize, domain, &domainLength, &use))
        return true;
    if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        if (!sid.Reallocate(sidSize)) {
            printf("HeapReAlloc error!\n");
            return false;
        }
        domainLength = kDomainRoom; // the domain's room stays: no second try at a larger size
        if (LookupAccountNameW(nullptr, account, sid.get(), &sidSize, domain, &domainLength, &use))
            return true;
    }
    DWORD error = GetLastError();
    printf("LookupAccountName error! (rc=%lu)\n", static_cast<unsigned long>(error));
    return false;
}

} // namespace

NetShare::NetShare(char const *serverName, char const *shareRemark) : serverName(serverName), shareRemark(shareRemark) {}

NetShare::NetShare(NetShare const &other) : serverName(other.serverName), shareRemark(other.shareRemark) {}

NetShare &NetShare::operator=(NetShare const &other)
{
    serverName = other.serverName;
    shareRemark = other.shareRemark;
    return *this;
}

NetShare::~NetShare() {}

int NetShare::Add(char const *path, char const *shareName, char const *accountName)
{
    WideText server(serverName), name(shareName), widePath(path), account(accountName), remark(shareRemark);
    if (!AllConverted({&server, &name, &widePath, &account, &remark}))
        return 0;

    // Declared before the access list, so that the list goes back first.
    HeapBlock sid;
    if (!LookUpAccount(account.get(), sid))
        return 0;
    HeapBlock acl;
    DWORD aclSize = GetLengthSid(sid.get()) + 16;
    if (!acl.Allocate(aclSize))
        return 0;

    PACL list = static_cast<PACL>(acl.get());
    SECURITY_DESCRIPTOR descriptor; // absolute form, on the stack
    if (!InitializeAcl(list, aclSize, ACL_REVISION) ||
        !AddAccessAllowedAce(list, ACL_REVISION, GENERIC_ALL, sid.get()) ||
        !InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION))
        return 0;
    if (!SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE)) {
        DWORD error = GetLastError();
        fprintf(stderr, "SetSecurityDescriptorDacl error! (rc=%lu)\n", static_cast<unsigned long>(error));
        return 0;
    }

    SHARE_INFO_502 record;
    record.shi502_netname = name.get();
    record.shi502_type = STYPE_DISKTREE;
    record.shi502_remark = remark.get();
    record.shi502_permissions = ACCESS_ALL;
    record.shi502_max_uses = 0xFFFFFFFF;
    record.shi502_current_uses = 0;
    record.shi502_path = widePath.get();
    record.shi502_passwd = nullptr;
    record.shi502_reserved = 0;
    record.shi502_security_descriptor = &descriptor;
    NET_API_STATUS code = NetShareAdd(server.get(), 502, reinterpret_cast<LPBYTE>(&record), nullptr);
    return IsFailure(code) ? 0 : 1;
}

int NetShare::Delete(char const *shareName, char const *accountName)
{
    WideText name(shareName), account(accountName);
    if (!AllConverted({&name, &account}))
        return 0;
    // The account only decides whether the share goes: one that cannot be
    // found keeps it.
    HeapBlock sid;
    if (!LookUpAccount(account.get(), sid))
        return 0;
    // Always this machine: serverName plays no part here.
    return IsFailure(NetShareDel(nullptr, name.get(), 0)) ? 0 : 1;
}

int NetShare::IsShared(char const *path, char const *shareName)
{
    WideText server(serverName), name(shareName);
    if (!AllConverted({&server, &name}) || path == nullptr)
        return 0;
    LPBYTE buffer = nullptr;
    NET_API_STATUS code = NetShareGetInfo(server.get(), name.get(), 502, &buffer);
    int result = 0;
    // A code outside the failure table other than 0 delivers no record
    // either: only success is read.
    if (code == NERR_Success && buffer != nullptr) {
        const SHARE_INFO_502 *record = reinterpret_cast<const SHARE_INFO_502 *>(buffer);
        char netName[kTextRoom], sharedPath[kTextRoom];
        // A text that does not fit the room equals nothing given here.
        result = ToNarrow(record->shi502_netname, netName) && ToNarrow(record->shi502_path, sharedPath) &&
                 strcmp(netName, shareName) == 0 && strcmp(sharedPath, path) == 0;
    }
    if (buffer != nullptr && NetApiBufferFree(buffer) != NERR_Success)
        assert(!"NetApiBufferFree refused the platform's buffer");
    return result;
}
