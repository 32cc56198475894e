// A program's own definition stands in for the library's weak one; this one tells the capture.

#include "TestLog.h"
#include "UtlPlatform.h"

extern "C" void BinaryLogWrite(int channel, void const* text, unsigned int bytes) {
    utltest::captureBinaryLog(channel, text, bytes);
}
