// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

// On failure a number of errno's (positive) or of the system's (negative).
int NetFSMountURLSync(CFURLRef url, CFURLRef mountpath, CFStringRef user, CFStringRef passwd,
                      CFMutableDictionaryRef open_options, CFMutableDictionaryRef mount_options,
                      CFArrayRef* mountpoints);
}

// Keys and values of the options.
#define kNAUIOptionKey CFSTR("UIOption")
#define kNAUIOptionNoUI CFSTR("NoUI")
#define kNetFSUseGuestKey CFSTR("Guest")
