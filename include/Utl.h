#pragma once

// Everything that the library offers.

#include "UtlArray.h"
#include "UtlEvent.h"
#include "UtlLog.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlRingArray.h"
#include "UtlSmartPointer.h"
#include "UtlSyncObject.h"
#include "UtlTimeCounter.h"
