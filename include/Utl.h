#pragma once

// Everything that the library offers.

#include "UtlArray.h"
#include "UtlBasicString.h"
#include "UtlEvent.h"
#include "UtlLog.h"
#include "UtlMap.h"
#include "UtlMsg.h"
#include "UtlMsgDrivenThread.h"
#include "UtlPlatform.h"
#include "UtlRingArray.h"
#include "UtlSmartPointer.h"
#include "UtlString.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadPriority.h"
#include "UtlThreadRawMsg.h"
#include "UtlThreadWatchdog.h"
#include "UtlTimeCounter.h"
#include "UtlTimerInfo.h"
#include "UtlWorkingBuffer.h"
