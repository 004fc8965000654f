// NetShare: publishes a directory as a network share, withdraws it, and
// tells whether it is published.
//
// The policy is fixed: a share is a disk share with all permissions and no
// limit of users, and exactly one named account has access to it (full
// access, through a security descriptor built for the call). Callers give
// narrow strings in the process's code page; they are converted to the
// wide strings that the platform wants.
//
// Messages of the account lookup go to standard output ("HeapAlloc
// error!", "HeapReAlloc error!", "LookupAccountName error! (rc=N)"), the
// descriptor's to standard error; the platform's refusals are silent.
//
// A name, path, account, server or remark of 260 characters or more (or
// one that is no text of the code page) is refused: the operation gives 0
// and changes nothing, with GetLastError ERROR_FILENAME_EXCED_RANGE.
//
// The object keeps the two pointers it was given and owns neither text, so
// the strings must outlive it; copies share them. It changes no state, so
// any number of threads may call it at once.
#pragma once

#include "TSDefs.h"

class TSUTIL_API NetShare {
public:
    // serverName: the machine on which Add and IsShared work ("" for this
    // one); shareRemark: the remark that Add gives a new share.
    NetShare(char const *serverName = "", char const *shareRemark = "Orvanel Data Share Directory");
    NetShare(NetShare const &other);
    NetShare &operator=(NetShare const &other);
    virtual ~NetShare();

    // Publishes the directory path as shareName on serverName, with full
    // access for accountName alone. 1 when the platform took it (any code
    // but the nine of failure), else 0; an existing share is not replaced.
    int Add(char const *path, char const *shareName, char const *accountName);
    // Withdraws shareName from this machine (whatever serverName is), if
    // accountName exists. 1 or 0 as Add.
    int Delete(char const *shareName, char const *accountName);
    // 1 when shareName exists on serverName and stands for exactly path
    // (byte for byte, letter case included), else 0.
    int IsShared(char const *path, char const *shareName);

private:
    char const *serverName;
    char const *shareRemark;
};
