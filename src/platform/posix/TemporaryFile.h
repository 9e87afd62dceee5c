#pragma once

#include <string>
#include <string_view>

namespace ravelin::platform {

/// A file with its whole content under a name that nobody else uses, beside the place that it is
/// for. It is gone with this object, unless it has been put into its place. One thread.
class TemporaryFile {
 public:
  enum class Mode { exact, lessUmask };

  /// What has a name that nobody else uses.
  enum class Purpose {
    content,  ///< a file of this class
    removal   ///< what somebody takes aside to look whether it may be removed
  };

  /// Writes the file (mode 0644, or that less the user's mask) into the folder, whose descriptor
  /// must outlive this object.
  TemporaryFile(int folder, std::string_view content, Mode mode);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// Why it could not be written, or 0.
  [[nodiscard]] int error() const { return _error; }

  [[nodiscard]] const std::string& name() const { return _name; }

  /// Puts it into its place, where it replaces the file or link that is there. 0 on success.
  int replace(const std::string& name);

  /// The file under this name is not this object's any more, and is not removed.
  void release() { _name.clear(); }

  /// A name that nobody else uses, hidden and never the same again in this process.
  [[nodiscard]] static std::string freshName(Purpose purpose);

  /// Whether this is such a name, of whatever process.
  [[nodiscard]] static bool isFreshName(std::string_view name, Purpose purpose);
  [[nodiscard]] static bool isFreshName(std::string_view name) {
    return isFreshName(name, Purpose::content) || isFreshName(name, Purpose::removal);
  }

 private:
  int _folder;
  std::string _name;
  int _error = 0;
};

}  // namespace ravelin::platform
