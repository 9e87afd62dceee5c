// The plain types that the system's C headers begin with.
#pragma once

#include <stdint.h>

typedef int8_t SInt8;
typedef uint8_t UInt8;
typedef int16_t SInt16;
typedef uint16_t UInt16;
typedef int32_t SInt32;
typedef uint32_t UInt32;
typedef uint16_t UniChar;
typedef unsigned char Boolean;
typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef UInt32 OSType;
typedef UInt32 OptionBits;
typedef unsigned long ItemCount;
