#pragma once

// Everything that the library offers.

#include "UtlLog.h"
#include "UtlPlatform.h"
#include "UtlSyncObject.h"
