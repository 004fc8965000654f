// TSUtil: the umbrella header that includes every public header.
#pragma once

#include "TSDefs.h"
#include "Mutex.h"
#include "ThrdBase.h"
#include "Intrlck.h"
#include "IntrlJob.h"
#include "MultiLck.h"
#include "SngLQue.h"
#include "LogFile.h"
#include "FileDir.h"
#include "GenTxt.h"
#include "GenSvc.h"
#include "DDUMPC.h"
#include "RegEntry.h"
#include "RegKey.h"
#include "RegValue.h"
#include "RegDB.h"
