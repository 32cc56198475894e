#include "UtlPlatform.h"

// What a program gets that brings no platform functions of its own.

[[gnu::weak]] void BinaryLogWrite(int, const void*, unsigned int) {}
