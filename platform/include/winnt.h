/* Security structures with Windows' layout: security identifiers, access
 * lists and their entries, and security descriptors in the absolute form. */
#ifndef TSPLATFORM_WINNT_H
#define TSPLATFORM_WINNT_H

#include "windef.h"

#ifndef ANYSIZE_ARRAY
#define ANYSIZE_ARRAY 1
#endif

typedef DWORD ACCESS_MASK;
typedef ACCESS_MASK *PACCESS_MASK;

/* A security identifier: S-Revision-Authority-Sub1-Sub2-... Machine
 * accounts are S-1-22-1-<uid> (users) and S-1-22-2-<gid> (groups). */
typedef struct _SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
} SID_IDENTIFIER_AUTHORITY, *PSID_IDENTIFIER_AUTHORITY;

typedef struct _SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[ANYSIZE_ARRAY];
} SID, *PISID;

typedef PVOID PSID;

#define SID_REVISION             1
#define SID_MAX_SUB_AUTHORITIES  15
#define SECURITY_MAX_SID_SIZE    68

typedef enum _SID_NAME_USE {
    SidTypeUser = 1,
    SidTypeGroup,
    SidTypeDomain,
    SidTypeAlias,
    SidTypeWellKnownGroup,
    SidTypeDeletedAccount,
    SidTypeInvalid,
    SidTypeUnknown,
    SidTypeComputer,
    SidTypeLabel,
    SidTypeLogonSession
} SID_NAME_USE, *PSID_NAME_USE;

/* An access list: this header, then AceCount entries, in AclSize bytes. */
typedef struct _ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
} ACL, *PACL;

#define ACL_REVISION     2
#define ACL_REVISION_DS  4
#define MIN_ACL_REVISION ACL_REVISION
#define MAX_ACL_REVISION ACL_REVISION_DS

typedef struct _ACE_HEADER {
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;
} ACE_HEADER, *PACE_HEADER;

#define ACCESS_ALLOWED_ACE_TYPE 0x0
#define ACCESS_DENIED_ACE_TYPE  0x1

/* The SID follows the mask, starting at SidStart. */
typedef struct _ACCESS_ALLOWED_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
} ACCESS_ALLOWED_ACE, *PACCESS_ALLOWED_ACE;

typedef WORD SECURITY_DESCRIPTOR_CONTROL, *PSECURITY_DESCRIPTOR_CONTROL;

#define SE_OWNER_DEFAULTED 0x0001
#define SE_GROUP_DEFAULTED 0x0002
#define SE_DACL_PRESENT    0x0004
#define SE_DACL_DEFAULTED  0x0008
#define SE_SACL_PRESENT    0x0010
#define SE_SACL_DEFAULTED  0x0020
#define SE_SELF_RELATIVE   0x8000

/* The absolute form: the parts are pointers to the caller's memory. */
typedef struct _SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
} SECURITY_DESCRIPTOR, *PISECURITY_DESCRIPTOR;

typedef PVOID PSECURITY_DESCRIPTOR;

#define SECURITY_DESCRIPTOR_REVISION   1
#define SECURITY_DESCRIPTOR_MIN_LENGTH (sizeof(SECURITY_DESCRIPTOR))

#endif /* TSPLATFORM_WINNT_H */
