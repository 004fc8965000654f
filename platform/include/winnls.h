/* Placeholder: filled in as this part of the layer is built. */
#ifndef TSPLATFORM_WINNLS_H
#define TSPLATFORM_WINNLS_H

#include "windef.h"

#endif /* TSPLATFORM_WINNLS_H */
