// TSUtil: the umbrella header that includes every public header.
#pragma once

#include "TSDefs.h"
#include "Mutex.h"
#include "ThrdBase.h"
#include "Intrlck.h"
#include "IntrlJob.h"
#include "MultiLck.h"
#include "GenSvc.h"
