// A stand-in for the framework's header: the part of the interface that this project calls.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

@class NSArray, NSData, NSDictionary, NSError, NSURL;

// What "for (… in …)" asks of a collection.
struct NSFastEnumerationState {
  unsigned long state;
  id* itemsPtr;
  unsigned long* mutationsPtr;
  unsigned long extra[5];
};
typedef struct NSFastEnumerationState NSFastEnumerationState;

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
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy;
@end

@interface NSArray : NSObject
@property(readonly) NSUInteger count;
- (id)objectAtIndex:(NSUInteger)index;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id*)buffer
                                    count:(NSUInteger)len;
@end

@interface NSDictionary : NSObject
@property(readonly, copy) NSArray* allKeys;
+ (NSDictionary*)dictionaryWithContentsOfFile:(NSString*)path;
- (id)objectForKey:(id)aKey;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id*)buffer
                                    count:(NSUInteger)len;
@end

@interface NSData : NSObject
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes;
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length;
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

typedef NSUInteger NSPropertyListReadOptions;
enum : NSPropertyListReadOptions { NSPropertyListImmutable = 0 };
enum NSPropertyListFormat : NSUInteger {
  NSPropertyListXMLFormat_v1_0 = 100,
  NSPropertyListBinaryFormat_v1_0 = 200
};

@interface NSPropertyListSerialization : NSObject
+ (id)propertyListWithData:(NSData*)data
                   options:(NSPropertyListReadOptions)opt
                    format:(NSPropertyListFormat*)format
                     error:(NSError**)error;
@end

@interface NSException : NSObject
@property(readonly, copy) NSString* name;
@property(readonly, copy) NSString* reason;
@end

// The version of the system.
typedef struct {
  NSInteger majorVersion;
  NSInteger minorVersion;
  NSInteger patchVersion;
} NSOperatingSystemVersion;

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
@property(readonly) NSOperatingSystemVersion operatingSystemVersion;
@end

// Files.
@interface NSURL : NSObject
@property(readonly, copy) NSString* path;
+ (NSURL*)fileURLWithPath:(NSString*)path;
+ (NSURL*)fileURLWithPath:(NSString*)path isDirectory:(BOOL)isDir;
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (BOOL)trashItemAtURL:(NSURL*)url resultingItemURL:(NSURL**)outResultingURL error:(NSError**)error;
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
