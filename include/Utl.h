#pragma once

// Everything that the library offers.

#include "UtlArray.h"
#include "UtlLog.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlRingArray.h"
#include "UtlSyncObject.h"
