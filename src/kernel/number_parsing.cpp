#include "kernel/number_parsing.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
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

// The power of ten of the first significant digit of a number's text already known to be
// valid ("123.4e5" -> 7, "0.001" -> -3), so that "1000e-1" is large and "0.001e2" small
// whatever the sign of the exponent. Huge exponents saturate.
long long leading_digit_exponent(std::string_view text) noexcept {
  constexpr long long saturated = 1'000'000'000'000LL;
  std::size_t const e = text.find_first_of("eE");
  std::string_view const mantissa = text.substr(0, e);
  std::size_t const first = mantissa.find_first_of("123456789");
  if (first == std::string_view::npos) return -saturated;  // zero
  std::size_t const point = std::min(mantissa.find('.'), mantissa.size());
  long long magnitude = first < point ? static_cast<long long>(point - first) - 1
                                      : -static_cast<long long>(first - point);
  if (e != std::string_view::npos) {
    std::string_view digits = text.substr(e + 1);
    bool const negative = !digits.empty() && digits.front() == '-';
    if (!digits.empty() && (digits.front() == '-' || digits.front() == '+'))
      digits.remove_prefix(1);
    long long exponent = 0;
    for (char c : digits)
      exponent = std::min(exponent * 10 + (c - '0'), saturated);
    magnitude += negative ? -exponent : exponent;
  }
  return magnitude;
}

}  // namespace

std::from_chars_result from_chars_double(char const* first, char const* last,
                                         double& value) noexcept {
  static constexpr double powers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  char const* p = first;
  bool const negative = p != last && *p == '-';
  if (negative) ++p;
  auto const digit = [](char c) { return static_cast<unsigned>(c - '0') < 10; };
  std::uint64_t mantissa = 0;
  char const* const whole = p;
  for (; p != last && digit(*p); ++p)
    mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
  std::ptrdiff_t digits = p - whole;
  std::ptrdiff_t decimals = 0;
  if (p != last && *p == '.') {
    char const* const fraction = ++p;
    for (; p != last && digit(*p); ++p)
      mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
    decimals = p - fraction;
    digits += decimals;
  }
  // At most 15 digits in all (so at most 15 significant ones) and no exponent: exact.
  bool const exponent = p != last && (*p == 'e' || *p == 'E');
  if (digits == 0 || digits > 15 || exponent) {
    return std::from_chars(first, last, value, std::chars_format::general);
  }
  double const magnitude = static_cast<double>(mantissa) / powers[decimals];
  value = negative ? -magnitude : magnitude;
  return {p, std::errc()};
}

bool parse_int(std::string_view text, int& value) noexcept {
  if (!number_start(text) || text.find('.') != std::string_view::npos) return false;
  char const* const end = text.data() + text.size();
  auto const [ptr, ec] = std::from_chars(text.data(), end, value);
  return ec == std::errc() && ptr == end;
}

bool parse_double(std::string_view text, double& value) noexcept {
  if (!number_start(text)) return false;
  char const* const end = text.data() + text.size();
  auto const [ptr, ec] = from_chars_double(text.data(), end, value);
  if (ptr != end) return false;
  if (ec == std::errc()) return true;
  if (ec != std::errc::result_out_of_range) return false;
  // Out of range: a magnitude below one underflows to zero, anything else overflows.
  if (leading_digit_exponent(text) >= 0) return false;
  value = (text.front() == '-') ? -0.0 : 0.0;
  return true;
}

}  // namespace kora::detail
