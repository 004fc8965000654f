/* Network shares (LAN Manager calls): disk shares of the local machine. */
#ifndef TSPLATFORM_LMSHARE_H
#define TSPLATFORM_LMSHARE_H

#include "windef.h"
#include "winnt.h"

typedef DWORD NET_API_STATUS;
typedef WCHAR *LMSTR;
typedef const WCHAR *LMCSTR;

#ifndef NET_API_FUNCTION
#define NET_API_FUNCTION
#endif

#define NERR_Success         0
#define NERR_BASE            2100
#define NERR_UnknownDevDir   (NERR_BASE + 16)  /* 2116: the path is no folder of this machine */
#define NERR_RedirectedPath  (NERR_BASE + 17)  /* 2117: the path lies on another machine */
#define NERR_DuplicateShare  (NERR_BASE + 18)  /* 2118 */
#define NERR_BufTooSmall     (NERR_BASE + 23)
#define NERR_NetNameNotFound (NERR_BASE + 210) /* 2310 */

#define MAX_PREFERRED_LENGTH ((DWORD)-1)
#define NNLEN        80  /* share name */
#define MAXCOMMENTSZ 256 /* remark */
#define SHPWLEN      8   /* share password */

#define STYPE_DISKTREE  0
#define STYPE_PRINTQ    1
#define STYPE_DEVICE    2
#define STYPE_IPC       3
#define STYPE_TEMPORARY 0x40000000
#define STYPE_SPECIAL   0x80000000

#define SHI_USES_UNLIMITED ((DWORD)-1)

#define ACCESS_NONE   0x00
#define ACCESS_READ   0x01
#define ACCESS_WRITE  0x02
#define ACCESS_CREATE 0x04
#define ACCESS_EXEC   0x08
#define ACCESS_DELETE 0x10
#define ACCESS_ATRIB  0x20
#define ACCESS_PERM   0x40
#define ACCESS_ALL    0x7F

/* The field that NetShareAdd refused, in *parm_err. */
#define PARM_ERROR_UNKNOWN         ((DWORD)-1)
#define SHARE_NETNAME_PARMNUM      1
#define SHARE_TYPE_PARMNUM         3
#define SHARE_REMARK_PARMNUM       4
#define SHARE_PERMISSIONS_PARMNUM  5
#define SHARE_MAX_USES_PARMNUM     6
#define SHARE_CURRENT_USES_PARMNUM 7
#define SHARE_PATH_PARMNUM         8
#define SHARE_PASSWD_PARMNUM       9
#define SHARE_FILE_SD_PARMNUM      501

typedef struct _SHARE_INFO_0 {
    LMSTR shi0_netname;
} SHARE_INFO_0, *PSHARE_INFO_0, *LPSHARE_INFO_0;

typedef struct _SHARE_INFO_1 {
    LMSTR shi1_netname;
    DWORD shi1_type;
    LMSTR shi1_remark;
} SHARE_INFO_1, *PSHARE_INFO_1, *LPSHARE_INFO_1;

typedef struct _SHARE_INFO_2 {
    LMSTR shi2_netname;
    DWORD shi2_type;
    LMSTR shi2_remark;
    DWORD shi2_permissions;
    DWORD shi2_max_uses;
    DWORD shi2_current_uses;
    LMSTR shi2_path;
    LMSTR shi2_passwd;
} SHARE_INFO_2, *PSHARE_INFO_2, *LPSHARE_INFO_2;

typedef struct _SHARE_INFO_502 {
    LMSTR shi502_netname;
    DWORD shi502_type;
    LMSTR shi502_remark;
    DWORD shi502_permissions;
    DWORD shi502_max_uses;
    DWORD shi502_current_uses;
    LMSTR shi502_path;
    LMSTR shi502_passwd;
    DWORD shi502_reserved;
    PSECURITY_DESCRIPTOR shi502_security_descriptor;
} SHARE_INFO_502, *PSHARE_INFO_502, *LPSHARE_INFO_502;

TS_EXTERN_C_BEGIN

/* Shares are kept where Windows keeps them: one REG_MULTI_SZ value for
 * each share under the key
 * HKLM\SYSTEM\CurrentControlSet\Services\LanmanServer\Shares
 * ("CSCFlags=0", "MaxUses=", "Path=", "Permissions=", "Remark=", "Type="),
 * and its security descriptor, self-relative, as a REG_BINARY
 * value of the same name under Shares\Security. Where Samba's usershares
 * are available, a share is also published there with `net usershare`,
 * with the access list of its descriptor (the machine's SIDs are Samba's
 * own Unix user and group SIDs), so that it is reached over the network;
 * where they are not, the share lives in the store alone. Samba's
 * configuration is the file that the REG_SZ value "SambaConfiguration" of
 * HKLM\SYSTEM\CurrentControlSet\Services\LanmanServer\Parameters names
 * (a Windows or a POSIX path), else /etc/samba/smb.conf; Samba counts as available when its "net"
 * program is on the PATH, that file exists and `net usershare info` takes
 * it. The server is null, empty or this machine's name (ERROR_BAD_NETPATH
 * for another machine). */

/* Adds a disk share (type STYPE_DISKTREE) at level 2 (SHARE_INFO_2) or 502
 * (SHARE_INFO_502, with an optional security descriptor, absolute or
 * self-relative; none lets everyone in). The path is a Windows path of a
 * folder of this machine. Results:
 *   NERR_DuplicateShare   a share of that name (without case) exists;
 *   NERR_UnknownDevDir    the path is no folder;
 *   NERR_RedirectedPath   the path is a network path (\\server\share);
 *   ERROR_INVALID_LEVEL   another level;
 *   ERROR_INVALID_NAME    a name with one of "\/[]:|<>+=;,*?;
 *   ERROR_INVALID_PARAMETER  a null record, or a field that is missing or
 *                         wrong (a null or longer than NNLEN name, another
 *                         type, a remark longer than MAXCOMMENTSZ, a null
 *                         or empty path, text that the ANSI code page
 *                         cannot hold, a malformed descriptor), with the
 *                         field's SHARE_*_PARMNUM in *parm_err if given;
 *   ERROR_ACCESS_DENIED   Samba refused to publish the share.
 * Nothing is changed unless the result is NERR_Success. */
WINBASEAPI NET_API_STATUS NET_API_FUNCTION NetShareAdd(LMSTR servername, DWORD level, LPBYTE buf, LPDWORD parm_err);
/* Removes the share from the store and from Samba. NERR_NetNameNotFound
 * when there is none; ERROR_INVALID_PARAMETER for a null name;
 * ERROR_ACCESS_DENIED when Samba keeps it published. */
WINBASEAPI NET_API_STATUS NET_API_FUNCTION NetShareDel(LMSTR servername, LMSTR netname, DWORD reserved);
/* The share's record at level 0, 1, 2 or 502, in one block that
 * NetApiBufferFree gives back; at level 502 with its descriptor
 * (self-relative) or null. NERR_NetNameNotFound, ERROR_INVALID_LEVEL,
 * ERROR_INVALID_PARAMETER (null name or bufptr), ERROR_NOT_ENOUGH_MEMORY;
 * *bufptr is null unless the result is NERR_Success. */
WINBASEAPI NET_API_STATUS NET_API_FUNCTION NetShareGetInfo(LMSTR servername, LMSTR netname, DWORD level,
                                                          LPBYTE *bufptr);
/* Gives back a block of the Net calls; null is accepted.
 * ERROR_INVALID_PARAMETER for a pointer that is no such block. */
WINBASEAPI NET_API_STATUS NET_API_FUNCTION NetApiBufferFree(LPVOID Buffer);

TS_EXTERN_C_END

#endif /* TSPLATFORM_LMSHARE_H */
