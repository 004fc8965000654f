/* LAN Manager subset: network shares. */
#ifndef TSPLATFORM_LM_H
#define TSPLATFORM_LM_H

#include "windows.h"
#include "lmshare.h"

#endif
