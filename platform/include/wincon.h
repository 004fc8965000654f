/* Placeholder: filled in as this part of the layer is built. */
#ifndef TSPLATFORM_WINCON_H
#define TSPLATFORM_WINCON_H

#include "windef.h"

#endif /* TSPLATFORM_WINCON_H */
