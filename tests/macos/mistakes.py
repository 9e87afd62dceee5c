"""Mistakes that somebody could make in the stand-in headers. The comparison has to find each."""

import pathlib
import shutil
import tempfile

CF = "CoreFoundation/CoreFoundation.h"
CS = "CoreServices/CoreServices.h"
SC = "SystemConfiguration/SystemConfiguration.h"
FOUNDATION = "Foundation/Foundation.h"
APPKIT = "AppKit/AppKit.h"

# (what is wrong, the header, the right text, the wrong text)
MISTAKES = [
    ("the kind of an argument", CF, "Boolean returnAfterSourceHandled", "int returnAfterSourceHandled"),
    ("an argument without its sign", CF, "CFOptionFlags flags, CFIndex order,\n",
     "CFIndex flags, CFIndex order,\n"),
    ("a reference to another kind of object", CF,
     "CFArrayGetCount(CFArrayRef", "CFArrayGetCount(CFDictionaryRef"),
    ("a reference to what is not changed", CF,
     "CFDictionarySetValue(CFMutableDictionaryRef", "CFDictionarySetValue(CFDictionaryRef"),
    ("an argument too many", SC, "CFArrayRef keys,\n", "CFArrayRef keys, CFIndex count,\n"),
    ("an argument too few", CF, "UInt8 lossByte, ", ""),
    ("two arguments in the wrong order", CF,
     "CFIndex numBytes,\n                                    CFStringEncoding encoding",
     "CFStringEncoding encoding,\n                                    CFIndex numBytes"),
    ("a value for an address", CS, "SInt32* response", "SInt32 response"),
    ("an address of something else", CS, "CFURLRef* url)", "CFStringRef* url)"),
    ("the kind of a result", CF, "CFIndex CFStringGetLength", "int CFStringGetLength"),
    ("a result where there is none", CF, "void CFSocketInvalidate", "Boolean CFSocketInvalidate"),
    ("a function's name", CF, "CFRunLoopWakeUp", "CFRunLoopWakeup"),
    ("a function in another framework's header", CF, "void CFRunLoopStop(CFRunLoopRef rl);",
     "void CFRunLoopStop(CFRunLoopRef rl);\nOSErr FSDeleteObject(const struct FSRef* ref);"),
    ("no further arguments", FOUNDATION, "NSLog(NSString* format, ...)", "NSLog(NSString* format)"),
    ("the arguments of a callback", CF,
     "(*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info)",
     "(*CFRunLoopTimerCallBack)(void* info)"),
    ("the result of a callback", SC, "typedef void (*SCDynamicStoreCallBack)",
     "typedef Boolean (*SCDynamicStoreCallBack)"),
    ("the width of a type", CF, "typedef signed long CFIndex", "typedef int CFIndex"),
    ("the width of another type", CS, "typedef SInt16 FSVolumeRefNum", "typedef SInt32 FSVolumeRefNum"),
    ("the type of a variable", CF, "extern const CFBooleanRef kCFBooleanTrue",
     "extern const CFStringRef kCFBooleanTrue"),
    ("a variable's name", APPKIT, "NSWorkspaceSessionDidResignActiveNotification",
     "NSWorkspaceSessionDidResignNotification"),
    ("a value", CF, "kCFSocketReadCallBack = 1 }", "kCFSocketReadCallBack = 2 }"),
    ("a value of an enumeration", CF, "kCFRunLoopRunTimedOut = 3", "kCFRunLoopRunTimedOut = 4"),
    ("a value of four characters", CS, "'sysv'", "'vers'"),
    ("a value of a directory", FOUNDATION, "NSApplicationSupportDirectory = 14",
     "NSApplicationSupportDirectory = 15"),
    ("two members in the wrong order", CF, "  CFIndex location;\n  CFIndex length;\n",
     "  CFIndex length;\n  CFIndex location;\n"),
    ("a member too few", CF, "  void (*cancel)(void* info, CFRunLoopRef rl, CFRunLoopMode mode);\n", ""),
    ("the kind of a member", CS, "  UInt16 length;\n", "  UInt32 length;\n"),
    ("the size of a record", CS, "hidden[80]", "hidden[79]"),
    ("the size of another record", CS, "unicode[255]", "unicode[256]"),
    ("a class that is not there", FOUNDATION, "@interface NSException :", "@interface NSExceptions :"),
    ("the class above", FOUNDATION, "@interface NSNumber : NSValue", "@interface NSNumber : NSObject"),
    ("a method of the class for one of its objects", FOUNDATION, "- (id)objectForKey:", "+ (id)objectForKey:"),
    ("a method of objects for one of the class", FOUNDATION,
     "+ (NSURL*)fileURLWithPath:(NSString*)path;", "- (NSURL*)fileURLWithPath:(NSString*)path;"),
    ("a property of the class for one of its objects", APPKIT, "@property(class, readonly, strong)",
     "@property(readonly, strong)"),
    ("a method's name", FOUNDATION, "executeAndReturnError:", "executeAndReturnErrors:"),
    ("the kind of a method's argument", FOUNDATION, "length:(NSUInteger)len", "length:(int)len"),
    ("the class of a method's argument", FOUNDATION, "trashItemAtURL:(NSURL*)", "trashItemAtURL:(NSString*)"),
    ("the result of a method", APPKIT, "- (BOOL)setIcon:", "- (void)setIcon:"),
    ("the class of a method's result", FOUNDATION, "- (NSAppleEventDescriptor*)executeAndReturnError",
     "- (NSString*)executeAndReturnError"),
    ("the kind of a property", FOUNDATION, "@property(readonly) double doubleValue",
     "@property(readonly) float doubleValue"),
    ("what the system's library does not export", "asl.h", "asl_release", "asl_discard"),
    ("what only one description has", "NetFS/NetFS.h", "CFArrayRef* mountpoints", "int flags"),
    ("an argument of what only one description has", "asl.h", "asl_new(uint32_t type)", "asl_new(void)"),
    ("what neither description has", "asl.h", "enum { ASL_TYPE_MSG = 0 };",
     "enum { ASL_TYPE_MSG = 0, ASL_TYPE_QUERY = 1 };"),
    ("a macro that nobody vouches for", "NetFS/NetFS.h", "#define kNAUIOptionKey",
     '#define kNetFSSoftMountKey CFSTR("SoftMount")\n#define kNAUIOptionKey'),
    ("what the compiler does not take", FOUNDATION, "typedef NSUInteger NSStringEncoding;", ""),
]


def prove(stand_ins, complaint):
    """Makes each mistake in a copy of the headers; complaint(folder) returns what the comparison finds
    first, or None. Returns the exit status: 0 where each mistake was found."""
    missed = 0
    with tempfile.TemporaryDirectory() as temporary:
        folder = pathlib.Path(temporary) / "standin"
        for what, header, right, wrong in MISTAKES:
            shutil.rmtree(folder, ignore_errors=True)
            shutil.copytree(stand_ins, folder)
            text = (folder / header).read_text()
            (folder / header).write_text(text.replace(right, wrong, 1))
            found = None if right not in text else complaint(folder)
            missed += found is None
            if right not in text:
                print(f"NOT MADE {what}: {header} has no {right!r}")
            else:
                print(f"{'found' if found else 'MISSED'}: {what}: {(found or '').splitlines()[:1]}")
    print(f"{len(MISTAKES)} mistakes, {missed} not found")
    return 1 if missed else 0
