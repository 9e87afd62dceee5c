#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ravelin {

/// The greatest length of an expansion, in bytes, unless a smaller limit is given; the rest is cut
/// off.
inline constexpr std::size_t LOG_TEMPLATE_LIMIT = std::size_t{256} * 1024;

/// Expands a text as a formatting template that was given no arguments. "%%" is a percent sign;
/// every other conversion stands for an absent argument: a number is 0 and a text is "(null)", in
/// the form that its flags, width and precision ask for; "%n" gives nothing. "%m", which takes no
/// argument, is the system's description of the error 0, and so does not reveal what failed last.
/// What is no conversion stays as it is. The text ends at its first NUL, as a template does. Every
/// input has an expansion, within the limit, made in time linear in the lengths of both.
/// Any thread.
[[nodiscard]] std::string expandLogTemplate(std::string_view text,
                                            std::size_t limit = LOG_TEMPLATE_LIMIT);

}  // namespace ravelin
