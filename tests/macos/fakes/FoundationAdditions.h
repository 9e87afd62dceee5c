// What Foundation declares and the base library does not. Included before every Objective-C source.
#pragma once

#ifdef __OBJC__
#import <Foundation/Foundation.h>

typedef struct {
  NSInteger majorVersion;
  NSInteger minorVersion;
  NSInteger patchVersion;
} NSOperatingSystemVersion;

@interface NSProcessInfo (FakeVersion)
- (NSOperatingSystemVersion)operatingSystemVersion;
@end

@interface NSAppleScript (FakeScripts)
- (id)initWithSource:(NSString*)source;
- (NSAppleEventDescriptor*)executeAndReturnError:(NSDictionary**)errorInfo;
@end

@interface NSFileManager (FakeTrash)
- (BOOL)trashItemAtURL:(NSURL*)url resultingItemURL:(NSURL**)outResultingURL error:(NSError**)error;
@end
#endif
