/* Placeholder: filled in as this part of the layer is built. */
#ifndef TSPLATFORM_LMSHARE_H
#define TSPLATFORM_LMSHARE_H

#include "windef.h"

#endif /* TSPLATFORM_LMSHARE_H */
