/* The Win32 subset that this layer provides on POSIX. */
#ifndef TSPLATFORM_WINDOWS_H
#define TSPLATFORM_WINDOWS_H

#include "windef.h"
#include "winerror.h"
#include "winnt.h"
#include "winbase.h"
#include "fileapi.h"
#include "winnls.h"
#include "winuser.h"
#include "winreg.h"
#include "winsvc.h"
#include "wincon.h"
#include "securitybaseapi.h"

#endif /* TSPLATFORM_WINDOWS_H */
