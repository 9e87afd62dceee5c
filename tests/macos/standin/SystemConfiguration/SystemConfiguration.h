// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

typedef const struct __SCDynamicStore* SCDynamicStoreRef;
typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} SCDynamicStoreContext;
typedef void (*SCDynamicStoreCallBack)(SCDynamicStoreRef store, CFArrayRef changedKeys, void* info);
SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef allocator, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* context);
CFRunLoopSourceRef SCDynamicStoreCreateRunLoopSource(CFAllocatorRef allocator,
                                                     SCDynamicStoreRef store, CFIndex order);
Boolean SCDynamicStoreSetNotificationKeys(SCDynamicStoreRef store, CFArrayRef keys,
                                          CFArrayRef patterns);
CFTypeRef SCDynamicStoreCopyValue(SCDynamicStoreRef store, CFStringRef key);

// What the last call of this thread failed with.
int SCError(void);
const char* SCErrorString(int status);
}
