/* Placeholder: filled in as this part of the layer is built. */
#ifndef TSPLATFORM_WINREG_H
#define TSPLATFORM_WINREG_H

#include "windef.h"

#endif /* TSPLATFORM_WINREG_H */
