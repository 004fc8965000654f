// TSUtil: the umbrella header that includes every public header.
#pragma once

#include "TSDefs.h"

#include "FileDir.h"
#include "GenTxt.h"
