#include "base/TextSearch.h"

#include <algorithm>

namespace ravelin {

std::size_t TextSearch::in(std::string_view text, std::size_t from) const {
  const auto* const found = std::search(text.begin() + from, text.end(), _searcher);
  return found == text.end() ? std::string_view::npos
                             : static_cast<std::size_t>(found - text.begin());
}

}  // namespace ravelin
