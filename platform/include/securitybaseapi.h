/* Accounts and security descriptors: the machine's users and groups as
 * security identifiers, access lists and security descriptors. */
#ifndef TSPLATFORM_SECURITYBASEAPI_H
#define TSPLATFORM_SECURITYBASEAPI_H

#include "windef.h"
#include "winnt.h"

TS_EXTERN_C_BEGIN

/* Looks an account of this machine up: a user (getpwnam) or, failing
 * that, a group (getgrnam), by its name alone or as "MACHINE\name"; the
 * name is tried as written and then in lower case. lpSystemName: null,
 * empty or this machine's name (with or without a leading "\\"); another
 * machine gives RPC_S_SERVER_UNAVAILABLE. Gives the SID (S-1-22-1-<uid>
 * for a user, S-1-22-2-<gid> for a group, 16 bytes), the domain (the
 * machine's name as Windows gives it: the host name up to its first dot,
 * in capitals, at most 15 characters) and SidTypeUser or SidTypeGroup.
 * When *cbSid or *cchReferencedDomainName (characters with the
 * terminator) is too small, neither is written: FALSE with
 * ERROR_INSUFFICIENT_BUFFER and both sizes set to what is needed. On
 * success *cbSid is the SID's length and *cchReferencedDomainName the
 * domain's length without the terminator. ERROR_NONE_MAPPED: no such
 * account; ERROR_INVALID_PARAMETER: a null name, size or peUse. */
WINBASEAPI BOOL WINAPI LookupAccountNameW(LPCWSTR lpSystemName, LPCWSTR lpAccountName, PSID Sid, LPDWORD cbSid,
                                         LPWSTR ReferencedDomainName, LPDWORD cchReferencedDomainName,
                                         PSID_NAME_USE peUse);

/* The name of the account the process runs as (the effective user), with
 * its terminator. When *pcbBuffer (characters with the terminator) is too
 * small: FALSE with ERROR_INSUFFICIENT_BUFFER and *pcbBuffer set to what is
 * needed; on success *pcbBuffer is the length with the terminator. */
WINBASEAPI BOOL WINAPI GetUserNameA(LPSTR lpBuffer, LPDWORD pcbBuffer);
WINBASEAPI BOOL WINAPI GetUserNameW(LPWSTR lpBuffer, LPDWORD pcbBuffer);

/* TRUE when the SID has revision 1 and at most 15 sub-authorities. */
WINBASEAPI BOOL WINAPI IsValidSid(PSID pSid);
/* The SID's length in bytes, 8 + 4 for each sub-authority; 0 for a SID
 * that IsValidSid refuses. */
WINBASEAPI DWORD WINAPI GetLengthSid(PSID pSid);

/* Makes an empty access list of nAclLength bytes (taken down to a multiple
 * of 4). ERROR_INSUFFICIENT_BUFFER below the 8-byte header;
 * ERROR_INVALID_PARAMETER for a revision other than ACL_REVISION (2) to
 * ACL_REVISION_DS (4), a length above 65535, or a null list. */
WINBASEAPI BOOL WINAPI InitializeAcl(PACL pAcl, DWORD nAclLength, DWORD dwAclRevision);
/* Appends an entry that allows AccessMask to the SID: 8 bytes and the
 * SID's length. ERROR_INVALID_ACL: not a list that InitializeAcl made;
 * ERROR_INVALID_SID; ERROR_REVISION_MISMATCH: dwAceRevision outside 2 to
 * 4; ERROR_ALLOTTED_SPACE_EXCEEDED: the list has no room left. */
WINBASEAPI BOOL WINAPI AddAccessAllowedAce(PACL pAcl, DWORD dwAceRevision, DWORD AccessMask, PSID pSid);

/* An empty descriptor in the absolute form (no owner, group or lists).
 * ERROR_UNKNOWN_REVISION for a revision other than
 * SECURITY_DESCRIPTOR_REVISION; ERROR_INVALID_PARAMETER for null. */
WINBASEAPI BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision);
/* Sets the discretionary list: with bDaclPresent the list pDacl (null
 * grants everyone everything), else none. ERROR_UNKNOWN_REVISION for a
 * descriptor that InitializeSecurityDescriptor did not make;
 * ERROR_INVALID_SECURITY_DESCR for one in the self-relative form. The
 * descriptor keeps the pointer, not a copy. */
WINBASEAPI BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent,
                                                PACL pDacl, BOOL bDaclDefaulted);

TS_EXTERN_C_END

#endif /* TSPLATFORM_SECURITYBASEAPI_H */
