#include "kernel/number_parsing.hpp"

#include <charconv>
#include <system_error>

namespace kora::detail {

namespace {

bool is_digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Drops a leading '+' (which std::from_chars does not take) and reports whether the text
// then starts like a number: a digit, or a '-' or '.' followed by one.
bool number_start(std::string_view& text) noexcept {
  std::size_t i = 0;
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
  } else if (!text.empty() && text.front() == '-') {
    ++i;
  }
  if (i < text.size() && text[i] == '.') ++i;
  return i < text.size() && is_digit(text[i]);
}

}  // namespace

bool parse_int(std::string_view text, int& value) noexcept {
  if (!number_start(text) || text.find('.') != std::string_view::npos) return false;
  char const* const end = text.data() + text.size();
  auto const [ptr, ec] = std::from_chars(text.data(), end, value);
  return ec == std::errc() && ptr == end;
}

bool parse_double(std::string_view text, double& value) noexcept {
  if (!number_start(text)) return false;
  char const* const end = text.data() + text.size();
  auto const [ptr, ec] = std::from_chars(text.data(), end, value, std::chars_format::general);
  if (ptr != end) return false;
  if (ec == std::errc()) return true;
  if (ec != std::errc::result_out_of_range) return false;
  // Out of range: an exponent far below zero underflows to zero, anything else overflows.
  std::size_t const e = text.find_first_of("eE");
  if (e == std::string_view::npos || e + 1 >= text.size() || text[e + 1] != '-') return false;
  value = (text.front() == '-') ? -0.0 : 0.0;
  return true;
}

}  // namespace kora::detail
