#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace ravelin {

/// A text that is sought in others. It passes over many places at once, unlike the plain search.
/// The text must outlive this object. Immutable; any thread.
class TextSearch {
 public:
  explicit TextSearch(std::string_view sought) : _searcher(sought.begin(), sought.end()) {}

  /// Where it begins in the text, from there on; npos where it does not. The empty text begins
  /// everywhere.
  [[nodiscard]] std::size_t in(std::string_view text, std::size_t from = 0) const;

 private:
  std::boyer_moore_horspool_searcher<std::string_view::const_iterator> _searcher;
};

}  // namespace ravelin
