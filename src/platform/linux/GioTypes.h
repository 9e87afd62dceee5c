#pragma once

#include <gio/gio.h>

#include <memory>

namespace ravelin {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
struct Free {
  void operator()(char* text) const { g_free(text); }
};
struct FreeError {
  void operator()(GError* error) const { g_error_free(error); }
};
struct UnrefLoop {
  void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};
struct UnrefKeyFile {
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
struct UnrefVariant {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};

/// One reference to an object of GLib's.
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

using String = std::unique_ptr<char, Free>;
using Error = std::unique_ptr<GError, FreeError>;
using Loop = std::unique_ptr<GMainLoop, UnrefLoop>;
using KeyFile = std::unique_ptr<GKeyFile, UnrefKeyFile>;
using Variant = std::unique_ptr<GVariant, UnrefVariant>;

}  // namespace ravelin
