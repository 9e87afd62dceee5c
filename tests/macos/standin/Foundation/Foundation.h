// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

@class NSArray, NSData, NSDictionary, NSError, NSURL;

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject
@property(readonly) NSUInteger length;
@property(readonly) const char* UTF8String;
+ (instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)len
                     encoding:(NSStringEncoding)encoding;
- (BOOL)isEqualToString:(NSString*)aString;
@end

@interface NSArray : NSObject
@property(readonly) NSUInteger count;
- (id)objectAtIndex:(NSUInteger)index;
@end

@interface NSDictionary : NSObject
@property(readonly, copy) NSArray* allKeys;
+ (NSDictionary*)dictionaryWithContentsOfFile:(NSString*)path;
- (id)objectForKey:(id)aKey;
@end

@interface NSData : NSObject
+ (instancetype)dataWithContentsOfFile:(NSString*)path;
@end

@interface NSValue : NSObject
@property(readonly) const char* objCType;
@end

@interface NSNumber : NSValue
@property(readonly) BOOL boolValue;
@property(readonly) long long longLongValue;
@property(readonly) double doubleValue;
@end

@interface NSError : NSObject
@property(readonly) NSInteger code;
@property(readonly, copy) NSString* domain;
@property(readonly, copy) NSString* localizedDescription;
@end

@interface NSException : NSObject
@property(readonly, copy) NSString* name;
@property(readonly, copy) NSString* reason;
@end

// Files.
@interface NSURL : NSObject
@property(readonly, copy) NSString* path;
+ (NSURL*)fileURLWithPath:(NSString*)path;
+ (NSURL*)fileURLWithPath:(NSString*)path isDirectory:(BOOL)isDir;
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (BOOL)trashItemAtURL:(NSURL*)url
      resultingItemURL:(NSURL**)outResultingURL
                 error:(NSError**)error;
@end

enum NSSearchPathDirectory : NSUInteger {
  NSDesktopDirectory = 12,
  NSApplicationSupportDirectory = 14
};
typedef NSUInteger NSSearchPathDomainMask;
enum : NSSearchPathDomainMask { NSUserDomainMask = 1, NSLocalDomainMask = 2 };
extern "C" NSArray* NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory,
                                                        NSSearchPathDomainMask domainMask,
                                                        BOOL expandTilde);

// Notifications.
typedef NSString* NSNotificationName;

@interface NSNotification : NSObject
@property(readonly, copy) NSNotificationName name;
@end

@interface NSNotificationCenter : NSObject
- (void)addObserver:(id)observer
           selector:(SEL)aSelector
               name:(NSNotificationName)aName
             object:(id)anObject;
- (void)removeObserver:(id)observer;
@end

// Scripts.
@interface NSAppleEventDescriptor : NSObject
@end

@interface NSAppleScript : NSObject
- (instancetype)initWithSource:(NSString*)source;
- (NSAppleEventDescriptor*)executeAndReturnError:(NSDictionary**)errorInfo;
@end

extern "C" void NSLog(NSString* format, ...);
