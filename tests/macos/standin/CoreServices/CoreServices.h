// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

// The version of the system.
enum : OSType { gestaltSystemVersion = 'sysv' };
OSErr Gestalt(OSType selector, SInt32* response) __attribute__((deprecated));

// Volumes.
typedef SInt16 FSVolumeRefNum;
typedef UInt32 FSVolumeInfoBitmap;
enum : FSVolumeInfoBitmap { kFSVolInfoNone = 0 };
struct FSVolumeInfo;
typedef struct FSVolumeInfo FSVolumeInfo;
struct FSRef {
  UInt8 hidden[80];
};
typedef struct FSRef FSRef;
struct HFSUniStr255 {
  UInt16 length;
  UniChar unicode[255];
};
typedef struct HFSUniStr255 HFSUniStr255;
OSStatus FSMountServerVolumeSync(CFURLRef url, CFURLRef mountDir, CFStringRef user,
                                 CFStringRef password, FSVolumeRefNum* mountedVolumeRefNum,
                                 OptionBits flags) __attribute__((deprecated));
OSStatus FSUnmountVolumeSync(FSVolumeRefNum vRefNum, OptionBits flags, pid_t* dissenter)
    __attribute__((deprecated));
OSStatus FSCopyURLForVolume(FSVolumeRefNum vRefNum, CFURLRef* url) __attribute__((deprecated));
OSErr FSGetVolumeInfo(FSVolumeRefNum volume, ItemCount volumeIndex, FSVolumeRefNum* actualVolume,
                      FSVolumeInfoBitmap whichInfo, FSVolumeInfo* info, HFSUniStr255* volumeName,
                      FSRef* rootDirectory) __attribute__((deprecated));

// Texts for numbers of errors.
const char* GetMacOSStatusCommentString(OSStatus err) __attribute__((deprecated));
}
