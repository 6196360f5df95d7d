# Debian's package has the library for this system and headers, of which one holds all of the library. In a source of its
# own, where it is compiled once.
if(NOT TARGET fmt::fmt)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/fmt_target.cc CONTENT [[
#include <fmt/format-inl.h>
FMT_BEGIN_NAMESPACE
namespace detail {
template FMT_API auto dragonbox::to_decimal(float) noexcept -> dragonbox::decimal_fp<float>;
template FMT_API auto dragonbox::to_decimal(double) noexcept -> dragonbox::decimal_fp<double>;
template FMT_API locale_ref::locale_ref(const std::locale&);
template FMT_API auto locale_ref::get<std::locale>() const -> std::locale;
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
template FMT_API void buffer<char>::append(const char*, const char*);
template FMT_API void vformat_to(buffer<char>&, string_view, basic_format_args<FMT_BUFFER_CONTEXT(char)>, locale_ref);
}  // namespace detail
FMT_END_NAMESPACE
]] @ONLY)
  add_library(fmt_target STATIC EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/fmt_target.cc)
  target_include_directories(fmt_target SYSTEM PUBLIC ${CMAKE_FIND_ROOT_PATH}/usr/local/include)
  add_library(fmt::fmt ALIAS fmt_target)
endif()
set(fmt_FOUND TRUE)
