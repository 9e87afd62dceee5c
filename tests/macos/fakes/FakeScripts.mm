#include "FakeScripts.h"

#import <Foundation/Foundation.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {

struct State {
  std::vector<std::string> sources;
  std::optional<std::string> desktop;  ///< empty for none, null for that of the home folder
  std::optional<std::pair<int, std::string>> refusal;
  std::function<void()> during;
  std::function<bool(const std::string&)> trash;
};
State& state() {
  static auto& instance = *new State;
  return instance;
}

/// What the expression's parenthesis finds in the source.
std::optional<std::string> found(const std::string& source, const char* expression) {
  std::smatch match;
  return std::regex_search(source, match, std::regex(expression)) ? std::optional(match[1].str())
                                                                  : std::nullopt;
}

bool store(const fs::path& bundle, const std::string& source) {
  std::error_code failure;
  if (fs::exists(fs::symlink_status(bundle, failure))) {
    return false;  // nobody says whether to replace it
  }
  fs::create_directories(bundle / "Contents/MacOS", failure);
  fs::create_directories(bundle / "Contents/Resources/Scripts", failure);
  std::ofstream(bundle / "Contents/MacOS/applet") << "a program";
  std::ofstream(bundle / "Contents/Resources/Scripts/main.scpt") << source;
  return !failure;
}

fs::path homeFolder() {
  const char* const home = std::getenv("HOME");
  return home == nullptr ? "/" : home;
}

/// Where a test's own home has it, otherwise where the system has it.
fs::path trashFolder() {
  if (const char* const own = std::getenv("XDG_DATA_HOME"); own != nullptr) {
    return fs::path(own) / "Trash/files";
  }
  return homeFolder() / ".Trash";
}

bool moveToTrash(const fs::path& item) {
  if (state().trash) {
    return state().trash(item.string());
  }
  std::error_code failure;
  if (!fs::exists(fs::symlink_status(item, failure))) {
    return true;
  }
  const fs::path trash = trashFolder();
  fs::create_directories(trash, failure);
  fs::path place = trash / item.filename();
  for (int number = 2; fs::exists(fs::symlink_status(place, failure)); ++number) {
    place =
        trash / (item.stem().string() + " " + std::to_string(number) + item.extension().string());
  }
  fs::rename(item, place, failure);
  return !failure;
}

bool doToDesktop(const fs::path& desktop, const std::string& source) {
  if (const auto name = found(source, "store script .* & \"([^\"\n]*)\"")) {
    return store(desktop / *name, source);
  }
  const auto name = found(source, "set myFile to desktopFolder & \"([^\"\n]*)\"");
  if (!name) {
    return true;
  }
  if (const auto target = found(source, "make new alias file at desktop to alias POSIX file "
                                        "\"([^\"\n]*)\"")) {
    std::ofstream alias(desktop / *name);
    alias << *target;
    return alias.good();
  }
  return moveToTrash(desktop / *name);
}

/// A script that is cut by a quotation mark in the middle does not compile.
bool compiles(const std::string& source) {
  return std::count(source.begin(), source.end(), '"') % 2 == 0;
}

NSDictionary* errorOf(int number, const std::string& message) {
  return [NSDictionary dictionaryWithObjectsAndKeys:[NSNumber numberWithInt:number],
                                                    @"NSAppleScriptErrorNumber",
                                                    [NSString stringWithUTF8String:message.c_str()],
                                                    @"NSAppleScriptErrorMessage", nil];
}

std::optional<std::pair<int, std::string>> run(const std::string& source) {
  constexpr int DOES_NOT_COMPILE = -2741;
  constexpr int CANCELLED = -128;
  if (!compiles(source)) {
    return std::pair(DOES_NOT_COMPILE, "Expected end of line but found something else.");
  }
  if (state().desktop) {
    state().sources.push_back(source);
  }
  if (state().during) {
    // It may set another one.
    const auto during = state().during;
    during();
  }
  if (state().refusal) {
    return state().refusal;
  }
  const std::string desktop = state().desktop.value_or(homeFolder() / "Desktop");
  if (!desktop.empty() && !doToDesktop(desktop, source)) {
    return std::pair(CANCELLED, "User canceled.");
  }
  return std::nullopt;
}

}  // namespace

namespace ravelin::fakes {

FakeScripts::FakeScripts() {
  state() = State{};
  state().desktop = "";
}
FakeScripts::~FakeScripts() { state() = State{}; }

std::vector<std::string> FakeScripts::sources() const { return state().sources; }

void FakeScripts::setDesktop(const std::string& desktop) { state().desktop = desktop; }

void FakeScripts::refuse(int number, const std::string& message) {
  state().refusal = {number, message};
}

void FakeScripts::setTrash(std::function<bool(const std::string&)> action) {
  state().trash = std::move(action);
}

void FakeScripts::setDuring(std::function<void()> action) { state().during = std::move(action); }

}  // namespace ravelin::fakes

@implementation NSAppleScript (FakeScripts)

// A category has no fields: the sources are kept beside the objects.
static NSMapTable* gSources;

- (id)initWithSource:(NSString*)source {
  self = [self init];
  if (gSources == nil) {
    gSources = [[NSMapTable
        mapTableWithKeyOptions:NSPointerFunctionsOpaqueMemory | NSPointerFunctionsOpaquePersonality
                  valueOptions:NSPointerFunctionsStrongMemory] retain];
  }
  [gSources setObject:[[source copy] autorelease] forKey:self];
  return self;
}

- (NSAppleEventDescriptor*)executeAndReturnError:(NSDictionary**)errorInfo {
  if (![NSThread isMainThread]) {
    std::abort();  // the real one is not made for other threads
  }
  NSString* const text = [gSources objectForKey:self];
  NSData* const utf8 = [text dataUsingEncoding:NSUTF8StringEncoding];
  const auto error = text == nil
                         ? std::pair(-1, std::string("no source"))
                         : run(std::string(static_cast<const char*>([utf8 bytes]), [utf8 length]));
  if (error) {
    if (errorInfo != nullptr) {
      *errorInfo = errorOf(error->first, error->second);
    }
    return nil;
  }
  return [[[NSAppleEventDescriptor alloc] init] autorelease];
}

@end

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wobjc-protocol-method-implementation"
// In the place of the base library's own, which looks at the item all the same.
@implementation NSURL (FakeUrls)

+ (instancetype)fileURLWithPath:(NSString*)path isDirectory:(BOOL)isDir {
  NSString* const ended = isDir ? [path stringByAppendingString:@"/"] : path;
  return [[[self alloc] initWithScheme:@"file" host:@"" path:ended] autorelease];
}

@end
#pragma clang diagnostic pop

@implementation NSFileManager (FakeTrash)

- (BOOL)trashItemAtURL:(NSURL*)url
      resultingItemURL:(NSURL**)outResultingURL
                 error:(NSError**)error {
  const char* const given = [[url path] fileSystemRepresentation];
  fs::path item = given == nullptr ? "" : given;
  std::error_code failure;
  // To the system's calls a path that ends so is the folder that a link leads to.
  if ([[url absoluteString] hasSuffix:@"/"]) {
    item = fs::canonical(item, failure);
  }
  const bool isThere = fs::exists(fs::symlink_status(item, failure));
  if (isThere && moveToTrash(item)) {
    return YES;
  }
  if (error != nullptr) {
    *error =
        [NSError errorWithDomain:@"NSCocoaErrorDomain"
                            code:isThere ? 513 : 4
                        userInfo:[NSDictionary dictionaryWithObject:@"It cannot be moved to "
                                                                    @"the trash."
                                                             forKey:NSLocalizedDescriptionKey]];
  }
  return NO;
}

@end
