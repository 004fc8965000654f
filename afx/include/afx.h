// The MFC-shaped framework subset.
#pragma once

#include <windows.h>
