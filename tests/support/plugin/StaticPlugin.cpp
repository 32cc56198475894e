// A plug-in with the static form of the library in it.

#include "TickingCopy.h"

extern "C" __attribute__((visibility("default"))) utltest::Ticking* makeTicking() {
    return new utltest::TickingCopy;
}
