// A program that drives NetShare into one row of its failure table, for the
// tests of those rows. The platform calls under NetShare are replaced by
// stand-ins (see StandIns.h): the heap calls count the blocks that NetShare
// holds, and the others fail as the row asks. No share is touched: the
// share calls are stand-ins too, so every leg runs every row.
//
//   netshare_probe OPERATION FAULT
//
// OPERATION is add, delete or isshared, made for the current user; FAULT
// is one of: none, heapalloc, heaprealloc, domain, unknown-account,
// aclalloc, initacl, addace, initsd, setdacl, or code-N (the share call
// gives N). What NetShare prints on standard output stays there; last the
// probe prints "result R blocks B lookups L" (the operation's result, the
// heap blocks taken and not given back, the calls of LookupAccountNameW)
// and then "stderr: " and what NetShare wrote on standard error, if any.
#include "GenTxt.h"
#include "NetShare.h"

#include "StandIns.h"

#include <lm.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <set>
#include <string>

namespace {

std::string fault = "none";
bool armed = false;
int heapAllocs = 0; // HeapAlloc calls while armed
int lookups = 0;
std::set<void *> *blocks; // taken while armed and not given back
DWORD shareCode = NERR_Success;

typedef LPVOID(WINAPI *HeapAllocFn)(HANDLE, DWORD, SIZE_T);
typedef LPVOID(WINAPI *HeapReAllocFn)(HANDLE, DWORD, LPVOID, SIZE_T);
typedef BOOL(WINAPI *HeapFreeFn)(HANDLE, DWORD, LPVOID);
typedef BOOL(WINAPI *LookupFn)(LPCWSTR, LPCWSTR, PSID, LPDWORD, LPWSTR, LPDWORD, PSID_NAME_USE);
typedef BOOL(WINAPI *InitAclFn)(PACL, DWORD, DWORD);
typedef BOOL(WINAPI *AddAceFn)(PACL, DWORD, DWORD, PSID);
typedef BOOL(WINAPI *InitSdFn)(PSECURITY_DESCRIPTOR, DWORD);
typedef BOOL(WINAPI *SetDaclFn)(PSECURITY_DESCRIPTOR, BOOL, PACL, BOOL);
HeapAllocFn realHeapAlloc;
HeapReAllocFn realHeapReAlloc;
HeapFreeFn realHeapFree;
LookupFn realLookup;
InitAclFn realInitAcl;
AddAceFn realAddAce;
InitSdFn realInitSd;
SetDaclFn realSetDacl;

bool Fails(const char *what)
{
    if (armed && fault == what) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return true;
    }
    return false;
}

} // namespace

STAND_IN_API LPVOID WINAPI STAND_IN(HeapAlloc)(HANDLE heap, DWORD flags, SIZE_T bytes)
{
    if (!armed)
        return standin::Real(realHeapAlloc, "HeapAlloc")(heap, flags, bytes);
    ++heapAllocs;
    if ((fault == "heapalloc" && heapAllocs == 1) || (fault == "aclalloc" && heapAllocs == 2))
        return nullptr;
    void *block = standin::Real(realHeapAlloc, "HeapAlloc")(heap, flags, bytes);
    if (block)
        blocks->insert(block);
    return block;
}

STAND_IN_API LPVOID WINAPI STAND_IN(HeapReAlloc)(HANDLE heap, DWORD flags, LPVOID block, SIZE_T bytes)
{
    if (!armed)
        return standin::Real(realHeapReAlloc, "HeapReAlloc")(heap, flags, block, bytes);
    if (fault == "heaprealloc")
        return nullptr;
    void *moved = standin::Real(realHeapReAlloc, "HeapReAlloc")(heap, flags, block, bytes);
    if (moved) {
        blocks->erase(block);
        blocks->insert(moved);
    }
    return moved;
}

STAND_IN_API BOOL WINAPI STAND_IN(HeapFree)(HANDLE heap, DWORD flags, LPVOID block)
{
    if (armed)
        blocks->erase(block);
    return standin::Real(realHeapFree, "HeapFree")(heap, flags, block);
}

// heaprealloc: the first lookup asks for a larger identifier block.
// domain: every lookup finds a domain name of 20 characters.
STAND_IN_API BOOL WINAPI STAND_IN(LookupAccountNameW)(LPCWSTR system, LPCWSTR account, PSID sid, LPDWORD sidSize,
                                                    LPWSTR domain, LPDWORD domainLength, PSID_NAME_USE use)
{
    if (armed) {
        ++lookups;
        if ((fault == "heaprealloc" && lookups == 1) || fault == "domain") {
            if (fault == "heaprealloc")
                *sidSize = 200;
            else
                *domainLength = 21;
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
    }
    return standin::Real(realLookup, "LookupAccountNameW")(system, account, sid, sidSize, domain, domainLength, use);
}

STAND_IN_API BOOL WINAPI STAND_IN(InitializeAcl)(PACL acl, DWORD size, DWORD revision)
{
    return Fails("initacl") ? FALSE : standin::Real(realInitAcl, "InitializeAcl")(acl, size, revision);
}

STAND_IN_API BOOL WINAPI STAND_IN(AddAccessAllowedAce)(PACL acl, DWORD revision, DWORD mask, PSID sid)
{
    return Fails("addace") ? FALSE : standin::Real(realAddAce, "AddAccessAllowedAce")(acl, revision, mask, sid);
}

STAND_IN_API BOOL WINAPI STAND_IN(InitializeSecurityDescriptor)(PSECURITY_DESCRIPTOR sd, DWORD revision)
{
    return Fails("initsd") ? FALSE : standin::Real(realInitSd, "InitializeSecurityDescriptor")(sd, revision);
}

STAND_IN_API BOOL WINAPI STAND_IN(SetSecurityDescriptorDacl)(PSECURITY_DESCRIPTOR sd, BOOL present, PACL acl,
                                                           BOOL defaulted)
{
    return Fails("setdacl") ? FALSE
                            : standin::Real(realSetDacl, "SetSecurityDescriptorDacl")(sd, present, acl, defaulted);
}

// The share calls touch nothing and give the code of the row.
STAND_IN_API NET_API_STATUS NET_API_FUNCTION STAND_IN(NetShareAdd)(LMSTR, DWORD, LPBYTE, LPDWORD)
{
    return shareCode;
}

STAND_IN_API NET_API_STATUS NET_API_FUNCTION STAND_IN(NetShareDel)(LMSTR, LMSTR, DWORD) { return shareCode; }

STAND_IN_API NET_API_STATUS NET_API_FUNCTION STAND_IN(NetShareGetInfo)(LMSTR, LMSTR, DWORD, LPBYTE *buffer)
{
    *buffer = nullptr; // no record comes with a code other than success
    return shareCode;
}

namespace {

bool InstallStandIns()
{
    // Any function of the library names its module.
    const void *library = reinterpret_cast<const void *>(&GenericText::ConvertToUnicode);
    typedef NET_API_STATUS(NET_API_FUNCTION * AddFn)(LMSTR, DWORD, LPBYTE, LPDWORD);
    typedef NET_API_STATUS(NET_API_FUNCTION * DelFn)(LMSTR, LMSTR, DWORD);
    typedef NET_API_STATUS(NET_API_FUNCTION * GetFn)(LMSTR, LMSTR, DWORD, LPBYTE *);
    static AddFn realAdd;
    static DelFn realDel;
    static GetFn realGet;
    return STAND_IN_INSTALL(library, HeapAlloc, realHeapAlloc) &&
           STAND_IN_INSTALL(library, HeapReAlloc, realHeapReAlloc) &&
           STAND_IN_INSTALL(library, HeapFree, realHeapFree) &&
           STAND_IN_INSTALL(library, LookupAccountNameW, realLookup) &&
           STAND_IN_INSTALL(library, InitializeAcl, realInitAcl) &&
           STAND_IN_INSTALL(library, AddAccessAllowedAce, realAddAce) &&
           STAND_IN_INSTALL(library, InitializeSecurityDescriptor, realInitSd) &&
           STAND_IN_INSTALL(library, SetSecurityDescriptorDacl, realSetDacl) &&
           STAND_IN_INSTALL(library, NetShareAdd, realAdd) && STAND_IN_INSTALL(library, NetShareDel, realDel) &&
           STAND_IN_INSTALL(library, NetShareGetInfo, realGet);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: netshare_probe add|delete|isshared FAULT\n");
        return 64;
    }
    if (!InstallStandIns()) {
        fprintf(stderr, "netshare_probe: the stand-ins could not be installed\n");
        return 66;
    }
    // Standard error, kept in a file of this process's own to show apart.
    std::string errors = "netshare_probe_" + std::to_string(GetCurrentProcessId()) + ".err";
    if (freopen(errors.c_str(), "w", stderr) == nullptr)
        return 67;
    std::string operation = argv[1];
    fault = argv[2];
    if (fault.compare(0, 5, "code-") == 0)
        shareCode = static_cast<DWORD>(strtoul(fault.c_str() + 5, nullptr, 10));
    char user[256];
    DWORD userSize = sizeof user;
    if (!GetUserNameA(user, &userSize))
        return 68;
    const char *account = fault == "unknown-account" ? "NoSuchAccount4711" : user;

    std::set<void *> held;
    blocks = &held;
    NetShare share;
    fflush(stdout);
    armed = true;
    int result = operation == "add"      ? share.Add("C:\\TSData", "TSData", account)
                 : operation == "delete" ? share.Delete("TSData", account)
                                         : share.IsShared("C:\\TSData", "TSData");
    armed = false;
    printf("result %d blocks %d lookups %d\n", result, static_cast<int>(held.size()), lookups);
    fflush(stderr);
    if (FILE *f = fopen(errors.c_str(), "r")) {
        char text[512];
        size_t n = fread(text, 1, sizeof text - 1, f);
        text[n] = 0;
        fclose(f);
        if (n > 0)
            printf("stderr: %s", text);
    }
    fclose(stderr);
    remove(errors.c_str());
    return 0;
}
