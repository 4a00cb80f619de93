// The code of fmt, for all that use its headers.
#include <fmt/format-inl.h>

namespace fmt::detail {

// What the headers declare to be instantiated elsewhere.
template thousands_sep_result<char> thousands_sep_impl(locale_ref);
template thousands_sep_result<wchar_t> thousands_sep_impl(locale_ref);
template char decimal_point_impl(locale_ref);
template wchar_t decimal_point_impl(locale_ref);

} // namespace fmt::detail
