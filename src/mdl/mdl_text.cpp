#include "mdl/mdl_text.hpp"

#include <charconv>
#include <climits>
#include <limits>
#include <system_error>

#include "kernel/number_parsing.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora::detail {

namespace {

bool is_c_space(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool is_digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

std::string_view skip_space(std::string_view text) noexcept {
  std::size_t i = 0;
  while (i < text.size() && is_c_space(text[i]))
    ++i;
  return text.substr(i);
}

}  // namespace

int c_int(std::string_view text) noexcept {
  text = skip_space(text);
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  long long value = 0;
  constexpr long long limit = static_cast<long long>(INT_MAX) + 1;
  for (std::size_t i = 0; i < text.size() && is_digit(text[i]); ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > limit) value = limit;
  }
  if (negative) return static_cast<int>(-value);
  return static_cast<int>(value > INT_MAX ? INT_MAX : value);
}

double c_double(std::string_view text) noexcept {
  text = skip_space(text);
  // std::from_chars does not take a leading '+'; a sign after it is not a number.
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) return 0.0;
  }
  double value = 0.0;
  char const* const end = text.data() + text.size();
  auto const [ptr, ec] = from_chars_double(text.data(), end, value);
  if (ec == std::errc()) return value;
  if (ec != std::errc::result_out_of_range) return 0.0;
  // Out of range: parse_double tells underflow (a zero) from overflow (false).
  std::string_view const number = text.substr(0, static_cast<std::size_t>(ptr - text.data()));
  if (parse_double(number, value)) return value;
  double const infinity = std::numeric_limits<double>::infinity();
  return number.front() == '-' ? -infinity : infinity;
}

bool is_counts_line(std::string_view line) noexcept {
  if (line.find("V3000") == 34) return true;
  if (line.find("V2000") == 34) return true;
  for (char const c : line) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n' && !is_digit(c)) return false;
  }
  std::size_t const n = trim_view(line, " \t\r\n").size() + 1;
  if (n < 3) return false;
  // The number of groups comes from the trimmed length, the groups from the line as it is.
  for (std::size_t g = 0; g < n / 3; ++g) {
    std::string_view const group = column(line, 3 * g, 3);
    bool ok = false;
    string_to_int(group, ok);
    if (!ok && group != "   ") return false;
  }
  return true;
}

}  // namespace kora::detail
