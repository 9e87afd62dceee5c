// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <Foundation/Foundation.h>

extern "C" BOOL NSApplicationLoad(void);

@interface NSImage : NSObject
- (instancetype)initWithContentsOfFile:(NSString*)fileName;
- (instancetype)initWithData:(NSData*)data;
@end

typedef NSUInteger NSWorkspaceIconCreationOptions;

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
@property(readonly, strong) NSNotificationCenter* notificationCenter;
- (BOOL)setIcon:(NSImage*)image
        forFile:(NSString*)fullPath
        options:(NSWorkspaceIconCreationOptions)options;
@end

extern "C" NSNotificationName const NSWorkspaceSessionDidBecomeActiveNotification;
extern "C" NSNotificationName const NSWorkspaceSessionDidResignActiveNotification;
