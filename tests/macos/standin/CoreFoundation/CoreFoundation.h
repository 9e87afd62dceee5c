// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <MacTypes.h>
#include <sys/types.h>

extern "C" {

typedef signed long CFIndex;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFTypeID;
typedef unsigned long CFHashCode;
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFURL* CFURLRef;
typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
typedef struct __CFSocket* CFSocketRef;

// What every object has.
extern const CFAllocatorRef kCFAllocatorDefault;
CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

// Strings.
typedef UInt32 CFStringEncoding;
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;
#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))
CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars,
                                         CFIndex numChars);
CFIndex CFStringGetLength(CFStringRef theString);
CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                         CFIndex maxBufLen, CFIndex* usedBufLen);

// Arrays and dictionaries.
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks);
CFIndex CFArrayGetCount(CFArrayRef theArray);
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);

typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
  CFHashCode (*hash)(const void* value);
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value);

// Addresses.
struct FSRef;
enum CFURLPathStyle : CFIndex { kCFURLPOSIXPathStyle = 0 };
CFURLRef CFURLCreateWithString(CFAllocatorRef allocator, CFStringRef URLString, CFURLRef baseURL);
CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, const struct FSRef* fsRef)
    __attribute__((deprecated));
CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);

// Run loops.
typedef CFStringRef CFRunLoopMode;
extern const CFRunLoopMode kCFRunLoopDefaultMode;
enum CFRunLoopRunResult : SInt32 {
  kCFRunLoopRunFinished = 1,
  kCFRunLoopRunStopped = 2,
  kCFRunLoopRunTimedOut = 3,
  kCFRunLoopRunHandledSource = 4
};
CFRunLoopRef CFRunLoopGetCurrent(void);
CFRunLoopRef CFRunLoopGetMain(void);
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);
void CFRunLoopWakeUp(CFRunLoopRef rl);
void CFRunLoopStop(CFRunLoopRef rl);

typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
  Boolean (*equal)(const void* info1, const void* info2);
  CFHashCode (*hash)(const void* info);
  void (*schedule)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);
  void (*cancel)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);
  void (*perform)(void* info);
} CFRunLoopSourceContext;
CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                         CFRunLoopSourceContext* context);
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
void CFRunLoopSourceSignal(CFRunLoopSourceRef source);
void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);

typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);
CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer);
void CFRunLoopTimerSetNextFireDate(CFRunLoopTimerRef timer, CFAbsoluteTime fireDate);
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);
void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

// Sockets.
typedef int CFSocketNativeHandle;
typedef CFOptionFlags CFSocketCallBackType;
enum : CFSocketCallBackType { kCFSocketReadCallBack = 1 };
enum : CFOptionFlags {
  kCFSocketAutomaticallyReenableReadCallBack = 1,
  kCFSocketCloseOnInvalidate = 128
};
typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFSocketContext;
typedef void (*CFSocketCallBack)(CFSocketRef s, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);
CFSocketRef CFSocketCreateWithNative(CFAllocatorRef allocator, CFSocketNativeHandle sock,
                                     CFOptionFlags callBackTypes, CFSocketCallBack callout,
                                     const CFSocketContext* context);
CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef allocator, CFSocketRef s,
                                               CFIndex order);
CFOptionFlags CFSocketGetSocketFlags(CFSocketRef s);
void CFSocketSetSocketFlags(CFSocketRef s, CFOptionFlags flags);
void CFSocketEnableCallBacks(CFSocketRef s, CFOptionFlags callBackTypes);
void CFSocketInvalidate(CFSocketRef s);
}
