/* Placeholder: filled in as this part of the layer is built. */
#ifndef TSPLATFORM_FILEAPI_H
#define TSPLATFORM_FILEAPI_H

#include "windef.h"

#endif /* TSPLATFORM_FILEAPI_H */
