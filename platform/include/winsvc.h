/* Placeholder: filled in as this part of the layer is built. */
#ifndef TSPLATFORM_WINSVC_H
#define TSPLATFORM_WINSVC_H

#include "windef.h"

#endif /* TSPLATFORM_WINSVC_H */
