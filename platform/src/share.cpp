// Network shares: NetShareAdd, NetShareDel, NetShareGetInfo and
// NetApiBufferFree, on the share store in the registry and, where it is
// there, Samba.
#include <lm.h>
#include <windows.h>

#include "machineroot.h"
#include "nls.h"
#include "path.h"
#include "sambashare.h"
#include "security.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

using namespace tsp;

namespace {

const char kSharesKey[] = "SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares";
const char kSecurityKey[] = "SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares\\Security";

// One share as the store keeps it, the texts in the ANSI code page.
struct Share {
    std::string name, path, remark;
    DWORD type = STYPE_DISKTREE;
    DWORD permissions = 0;
    DWORD maxUses = SHI_USES_UNLIMITED;
    std::string security; // self-relative descriptor; empty for none
};

// Holds the share store against other processes and threads while a call
// reads and changes it, so that two adds of one name cannot both succeed.
class StoreLock {
public:
    StoreLock()
    {
        const std::string &root = machineRoot();
        if (root.empty())
            return;
        std::string run = root + "/run";
        mkdir(run.c_str(), 0700);
        fd_ = open((run + "/lanmanserver.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0) {
            if (errno != EINTR) {
                close(fd_);
                fd_ = -1;
            }
        }
    }
    ~StoreLock()
    {
        if (fd_ >= 0)
            close(fd_); // gives the lock up
    }
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// Wide text to the ANSI code page; false when the page lacks a character.
bool toAnsi(LPCWSTR wide, std::string &out) { return narrowTextExactly(wide, CP_ACP, out); }

std::vector<WCHAR> toWide(const std::string &ansi) { return wideText(ansi, CP_ACP); }

std::string utf8Of(const std::string &ansi) { return narrowText(toWide(ansi).data(), CP_UTF8); }

// ---- security descriptors ----

bool wellFormedSid(PSID sid) { return sid && IsValidSid(sid); }

// The descriptor in the self-relative form: a 20-byte header with offsets,
// then the owner, the group, the system list and the discretionary list.
bool selfRelative(PSECURITY_DESCRIPTOR descriptor, std::string &out)
{
    const SECURITY_DESCRIPTOR *sd = static_cast<const SECURITY_DESCRIPTOR *>(descriptor);
    if (sd->Revision != SECURITY_DESCRIPTOR_REVISION)
        return false;
    const BYTE *parts[4];
    if (sd->Control & SE_SELF_RELATIVE) {
        const BYTE *base = static_cast<const BYTE *>(descriptor);
        for (int i = 0; i < 4; ++i) {
            DWORD offset;
            memcpy(&offset, base + 4 + 4 * i, sizeof offset);
            parts[i] = offset ? base + offset : nullptr;
        }
    } else {
        parts[0] = static_cast<const BYTE *>(sd->Owner);
        parts[1] = static_cast<const BYTE *>(sd->Group);
        parts[2] = reinterpret_cast<const BYTE *>(sd->Sacl);
        parts[3] = reinterpret_cast<const BYTE *>(sd->Dacl);
    }
    std::string header(20, '\0'), body;
    header[0] = static_cast<char>(sd->Revision);
    WORD control = static_cast<WORD>(sd->Control | SE_SELF_RELATIVE);
    memcpy(&header[2], &control, sizeof control);
    for (int i = 0; i < 4; ++i) {
        if (!parts[i])
            continue;
        size_t length;
        if (i < 2) {
            if (!wellFormedSid(const_cast<BYTE *>(parts[i])))
                return false;
            length = GetLengthSid(const_cast<BYTE *>(parts[i]));
        } else {
            size_t used;
            if (!isWellFormedAcl(reinterpret_cast<const ACL *>(parts[i]), used))
                return false;
            length = reinterpret_cast<const ACL *>(parts[i])->AclSize;
        }
        DWORD offset = static_cast<DWORD>(header.size() + body.size());
        memcpy(&header[static_cast<size_t>(4 + 4 * i)], &offset, sizeof offset);
        body.append(reinterpret_cast<const char *>(parts[i]), length);
    }
    out = header + body;
    return true;
}

// The access list of a self-relative descriptor in Samba's form: each
// entry as "SID:F" (full), "SID:R" (read) or "SID:D" (denied). No
// descriptor or no list lets everyone in, as on Windows.
std::string sambaAcl(const std::string &security)
{
    const std::string everyone = "S-1-1-0:F";
    if (security.size() < 20)
        return everyone;
    WORD control;
    DWORD daclOffset;
    memcpy(&control, &security[2], sizeof control);
    memcpy(&daclOffset, &security[16], sizeof daclOffset);
    if (!(control & SE_DACL_PRESENT) || !daclOffset)
        return everyone;
    const BYTE *acl = reinterpret_cast<const BYTE *>(security.data()) + daclOffset;
    ACL header;
    memcpy(&header, acl, sizeof header);
    std::string out;
    size_t at = sizeof(ACL);
    const DWORD writes = GENERIC_ALL | GENERIC_WRITE | DELETE | WRITE_DAC | WRITE_OWNER | 0x0002 | 0x0004;
    for (WORD i = 0; i < header.AceCount; ++i) {
        ACCESS_ALLOWED_ACE ace;
        memcpy(&ace, acl + at, sizeof ace);
        const char *right = ace.Header.AceType == ACCESS_DENIED_ACE_TYPE ? "D" : (ace.Mask & writes) ? "F" : "R";
        if (ace.Header.AceType == ACCESS_ALLOWED_ACE_TYPE || ace.Header.AceType == ACCESS_DENIED_ACE_TYPE) {
            std::vector<BYTE> sid(acl + at + offsetof(ACCESS_ALLOWED_ACE, SidStart), acl + at + ace.Header.AceSize);
            out += (out.empty() ? "" : ",") + sidText(sid.data()) + ":" + right;
        }
        at += ace.Header.AceSize;
    }
    return out.empty() ? "S-1-1-0:D" : out; // an empty list lets nobody in
}

// ---- the store ----

std::string multiString(const Share &s)
{
    std::string v;
    auto line = [&](const std::string &text) { v += text + '\0'; };
    line("CSCFlags=0");
    line("MaxUses=" + std::to_string(s.maxUses));
    line("Path=" + s.path);
    line("Permissions=" + std::to_string(s.permissions));
    line("Remark=" + s.remark);
    line("Type=" + std::to_string(s.type));
    return v + '\0';
}

LSTATUS readShare(const std::string &name, Share &s)
{
    HKEY key;
    LSTATUS rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kSharesKey, 0, KEY_QUERY_VALUE, &key);
    if (rc != ERROR_SUCCESS)
        return rc;
    DWORD type = 0, size = 0;
    rc = RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size);
    std::string data(size, '\0');
    if (rc == ERROR_SUCCESS && size)
        rc = RegQueryValueExA(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(&data[0]), &size);
    s = Share();
    s.name = name;
    // The name as the share was made, which may differ from name in case.
    char stored[NNLEN + 1];
    DWORD length = sizeof stored;
    for (DWORD i = 0; rc == ERROR_SUCCESS && RegEnumValueA(key, i, stored, &length, nullptr, nullptr, nullptr,
                                                           nullptr) == ERROR_SUCCESS;
         ++i, length = sizeof stored) {
        if (strcasecmp(stored, name.c_str()) == 0) {
            s.name = stored;
            break;
        }
    }
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS)
        return rc;
    for (size_t at = 0; at < data.size();) {
        size_t end = data.find('\0', at);
        if (end == std::string::npos)
            end = data.size();
        std::string line = data.substr(at, end - at);
        at = end + 1;
        size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        std::string field = line.substr(0, eq), value = line.substr(eq + 1);
        if (field == "Path")
            s.path = value;
        else if (field == "Remark")
            s.remark = value;
        else if (field == "Type")
            s.type = static_cast<DWORD>(strtoul(value.c_str(), nullptr, 10));
        else if (field == "Permissions")
            s.permissions = static_cast<DWORD>(strtoul(value.c_str(), nullptr, 10));
        else if (field == "MaxUses")
            s.maxUses = static_cast<DWORD>(strtoul(value.c_str(), nullptr, 10));
    }
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kSecurityKey, 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS) {
        size = 0;
        if (RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS && size) {
            s.security.assign(size, '\0');
            if (RegQueryValueExA(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(&s.security[0]),
                                 &size) != ERROR_SUCCESS)
                s.security.clear();
        }
        RegCloseKey(key);
    }
    return ERROR_SUCCESS;
}

LSTATUS setValue(const char *keyPath, const std::string &name, DWORD type, const std::string &data)
{
    HKEY key;
    LSTATUS rc = RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
    if (rc != ERROR_SUCCESS)
        return rc;
    rc = RegSetValueExA(key, name.c_str(), 0, type, reinterpret_cast<const BYTE *>(data.data()),
                        static_cast<DWORD>(data.size()));
    RegCloseKey(key);
    return rc;
}

LSTATUS deleteValue(const char *keyPath, const std::string &name)
{
    HKEY key;
    LSTATUS rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_SET_VALUE, &key);
    if (rc != ERROR_SUCCESS)
        return rc;
    rc = RegDeleteValueA(key, name.c_str());
    RegCloseKey(key);
    return rc;
}

LSTATUS writeShare(const Share &s)
{
    LSTATUS rc = setValue(kSharesKey, s.name, REG_MULTI_SZ, multiString(s));
    if (rc == ERROR_SUCCESS && !s.security.empty())
        rc = setValue(kSecurityKey, s.name, REG_BINARY, s.security);
    if (rc != ERROR_SUCCESS)
        deleteValue(kSharesKey, s.name);
    return rc;
}

// ---- checks of NetShareAdd ----

NET_API_STATUS refuse(NET_API_STATUS status, LPDWORD parmErr, DWORD field)
{
    if (parmErr)
        *parmErr = field;
    return status;
}

bool hasBadNameCharacter(const std::string &name) { return name.find_first_of("\"/\\[]:|<>+=;,*?") != std::string::npos; }

// The folder that a Windows path names, or the NERR_ code that says why not.
NET_API_STATUS folderOf(const std::string &path, std::string &posix)
{
    if ((path.size() >= 2 && (path[0] == '\\' || path[0] == '/') && (path[1] == '\\' || path[1] == '/')))
        return NERR_RedirectedPath;
    bool drive = path.size() >= 3 && isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' &&
                 (path[2] == '\\' || path[2] == '/');
    if (!drive && path[0] != '/')
        return NERR_UnknownDevDir; // a share names a full path
    struct stat st;
    if (!toPosixPath(path.c_str(), posix) || stat(posix.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return NERR_UnknownDevDir;
    return NERR_Success;
}

// ---- the block of NetShareGetInfo ----

constexpr uint64_t kBlockMagic = 0x4B4C424950415445ull;

struct BlockHeader {
    uint64_t magic;
    uint64_t size;
};

// A block that NetApiBufferFree takes back; null when memory is short.
BYTE *newBlock(size_t size)
{
    auto *header = static_cast<BlockHeader *>(calloc(1, sizeof(BlockHeader) + size));
    if (!header)
        return nullptr;
    header->magic = kBlockMagic;
    header->size = size;
    return reinterpret_cast<BYTE *>(header + 1);
}

// Lays the texts out behind the record, each as UTF-16 with its terminator.
class BlockWriter {
public:
    BlockWriter(BYTE *block, size_t recordSize) : block_(block), at_(recordSize) {}
    LMSTR text(const std::vector<WCHAR> &wide)
    {
        LMSTR p = reinterpret_cast<LMSTR>(block_ + at_);
        memcpy(p, wide.data(), wide.size() * sizeof(WCHAR));
        at_ += wide.size() * sizeof(WCHAR);
        return p;
    }
    PSECURITY_DESCRIPTOR bytes(const std::string &data)
    {
        at_ = (at_ + 7) & ~static_cast<size_t>(7);
        memcpy(block_ + at_, data.data(), data.size());
        BYTE *p = block_ + at_;
        at_ += data.size();
        return p;
    }

private:
    BYTE *block_;
    size_t at_;
};

} // namespace

extern "C" {

NET_API_STATUS NET_API_FUNCTION NetShareAdd(LMSTR servername, DWORD level, LPBYTE buf, LPDWORD parm_err)
{
    if (level != 2 && level != 502)
        return ERROR_INVALID_LEVEL;
    if (!isLocalMachine(servername))
        return ERROR_BAD_NETPATH;
    if (!buf)
        return refuse(ERROR_INVALID_PARAMETER, parm_err, PARM_ERROR_UNKNOWN);
    // The first eight fields of level 502 are those of level 2.
    const SHARE_INFO_2 *info = reinterpret_cast<const SHARE_INFO_2 *>(buf);
    PSECURITY_DESCRIPTOR descriptor =
        level == 502 ? reinterpret_cast<const SHARE_INFO_502 *>(buf)->shi502_security_descriptor : nullptr;
    Share s;
    if (!info->shi2_netname || !*info->shi2_netname || !toAnsi(info->shi2_netname, s.name) || s.name.size() > NNLEN)
        return refuse(ERROR_INVALID_PARAMETER, parm_err, SHARE_NETNAME_PARMNUM);
    if (hasBadNameCharacter(s.name))
        return refuse(ERROR_INVALID_NAME, parm_err, SHARE_NETNAME_PARMNUM);
    if ((info->shi2_type & ~static_cast<DWORD>(STYPE_TEMPORARY | STYPE_SPECIAL)) != STYPE_DISKTREE)
        return refuse(ERROR_INVALID_PARAMETER, parm_err, SHARE_TYPE_PARMNUM);
    if (!toAnsi(info->shi2_remark, s.remark) || s.remark.size() > MAXCOMMENTSZ)
        return refuse(ERROR_INVALID_PARAMETER, parm_err, SHARE_REMARK_PARMNUM);
    if (!info->shi2_path || !*info->shi2_path || !toAnsi(info->shi2_path, s.path))
        return refuse(ERROR_INVALID_PARAMETER, parm_err, SHARE_PATH_PARMNUM);
    if (descriptor && !selfRelative(descriptor, s.security))
        return refuse(ERROR_INVALID_PARAMETER, parm_err, SHARE_FILE_SD_PARMNUM);
    s.type = info->shi2_type;
    s.permissions = info->shi2_permissions;
    s.maxUses = info->shi2_max_uses;
    std::string posixPath;
    if (NET_API_STATUS status = folderOf(s.path, posixPath))
        return status;

    StoreLock lock;
    if (!lock.held())
        return ERROR_ACCESS_DENIED;
    Share existing;
    if (readShare(s.name, existing) == ERROR_SUCCESS)
        return NERR_DuplicateShare;
    SambaUsershares samba;
    std::string sambaName = utf8Of(s.name);
    if (samba.available() && !samba.publish(sambaName, posixPath, utf8Of(s.remark), sambaAcl(s.security)))
        return ERROR_ACCESS_DENIED;
    LSTATUS rc = writeShare(s);
    if (rc != ERROR_SUCCESS) {
        if (samba.available() && !samba.withdraw(sambaName))
            return ERROR_ACCESS_DENIED;
        return rc;
    }
    return NERR_Success;
}

NET_API_STATUS NET_API_FUNCTION NetShareDel(LMSTR servername, LMSTR netname, DWORD reserved)
{
    if (!isLocalMachine(servername))
        return ERROR_BAD_NETPATH;
    std::string name;
    if (!netname || !*netname || reserved)
        return ERROR_INVALID_PARAMETER;
    if (!toAnsi(netname, name))
        return NERR_NetNameNotFound; // the store cannot hold such a name
    StoreLock lock;
    if (!lock.held())
        return ERROR_ACCESS_DENIED;
    Share s;
    if (readShare(name, s) != ERROR_SUCCESS)
        return NERR_NetNameNotFound;
    SambaUsershares samba;
    if (samba.available() && !samba.withdraw(utf8Of(name)))
        return ERROR_ACCESS_DENIED;
    LSTATUS rc = deleteValue(kSharesKey, name);
    if (rc != ERROR_SUCCESS)
        return rc;
    deleteValue(kSecurityKey, name); // a share made at level 2 has none
    return NERR_Success;
}

NET_API_STATUS NET_API_FUNCTION NetShareGetInfo(LMSTR servername, LMSTR netname, DWORD level, LPBYTE *bufptr)
{
    if (bufptr)
        *bufptr = nullptr;
    if (level != 0 && level != 1 && level != 2 && level != 502)
        return ERROR_INVALID_LEVEL;
    if (!netname || !bufptr)
        return ERROR_INVALID_PARAMETER;
    if (!isLocalMachine(servername))
        return ERROR_BAD_NETPATH;
    std::string name;
    Share s;
    if (!*netname || !toAnsi(netname, name) || readShare(name, s) != ERROR_SUCCESS)
        return NERR_NetNameNotFound;
    std::vector<WCHAR> wideName = toWide(s.name), remark = toWide(s.remark), path = toWide(s.path);
    size_t record = level == 0 ? sizeof(SHARE_INFO_0) : level == 1 ? sizeof(SHARE_INFO_1)
                  : level == 2 ? sizeof(SHARE_INFO_2) : sizeof(SHARE_INFO_502);
    size_t size = record + (wideName.size() + remark.size() + path.size()) * sizeof(WCHAR) + 8 + s.security.size();
    BYTE *block = newBlock(size);
    if (!block)
        return ERROR_NOT_ENOUGH_MEMORY;
    BlockWriter w(block, record);
    if (level == 0) {
        reinterpret_cast<SHARE_INFO_0 *>(block)->shi0_netname = w.text(wideName);
    } else if (level == 1) {
        auto *i = reinterpret_cast<SHARE_INFO_1 *>(block);
        i->shi1_netname = w.text(wideName);
        i->shi1_type = s.type;
        i->shi1_remark = w.text(remark);
    } else {
        // Levels 2 and 502 begin alike.
        auto *i = reinterpret_cast<SHARE_INFO_2 *>(block);
        i->shi2_netname = w.text(wideName);
        i->shi2_type = s.type;
        i->shi2_remark = w.text(remark);
        i->shi2_permissions = s.permissions;
        i->shi2_max_uses = s.maxUses;
        i->shi2_current_uses = 0;
        i->shi2_path = w.text(path);
        i->shi2_passwd = nullptr;
        if (level == 502 && !s.security.empty())
            reinterpret_cast<SHARE_INFO_502 *>(block)->shi502_security_descriptor = w.bytes(s.security);
    }
    *bufptr = block;
    return NERR_Success;
}

NET_API_STATUS NET_API_FUNCTION NetApiBufferFree(LPVOID Buffer)
{
    if (!Buffer)
        return NERR_Success;
    BlockHeader *header = static_cast<BlockHeader *>(Buffer) - 1;
    if (header->magic != kBlockMagic)
        return ERROR_INVALID_PARAMETER;
    header->magic = 0;
    free(header);
    return NERR_Success;
}

} // extern "C"
