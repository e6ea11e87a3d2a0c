#include "pdb/hybrid36.hpp"

#include "pdb/pdb_columns.hpp"

namespace kora::detail {

namespace {

constexpr char upper_digits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr char lower_digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";

long power(long base, int exponent) noexcept {
  long result = 1;
  for (int i = 0; i < exponent; ++i)
    result *= base;
  return result;
}

// The value of a base-36 digit of the given case; -1 for anything else.
int digit_value(char c, bool upper) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  char const first = upper ? 'A' : 'a';
  if (c >= first && c <= first + 25) return c - first + 10;
  return -1;
}

bool valid_width(int width) noexcept {
  return width >= 1 && width <= 6;
}

}  // namespace

long hybrid36_max(int width) noexcept {
  if (!valid_width(width)) return 0;
  return power(10, width) + 2 * 26 * power(36, width - 1) - 1;
}

bool hybrid36_encode(long value, int width, char* out) noexcept {
  if (!valid_width(width)) return false;
  long const decimal_limit = power(10, width);
  long const block = 26 * power(36, width - 1);  // numbers of one letter case
  if (value <= -power(10, width - 1) || value > hybrid36_max(width)) return false;
  if (value < decimal_limit) {
    bool const negative = value < 0;
    long rest = negative ? -value : value;
    int i = width - 1;
    do {
      out[i--] = static_cast<char>('0' + rest % 10);
      rest /= 10;
    } while (rest > 0);
    if (negative) out[i--] = '-';
    while (i >= 0)
      out[i--] = ' ';
    return true;
  }
  bool const upper = value < decimal_limit + block;
  // The letter ranges start at the base-36 number "A000..", which is 10 * 36^(width-1).
  long rest = value - decimal_limit - (upper ? 0 : block) + 10 * power(36, width - 1);
  char const* digits = upper ? upper_digits : lower_digits;
  for (int i = width - 1; i >= 0; --i) {
    out[i] = digits[rest % 36];
    rest /= 36;
  }
  return true;
}

std::optional<long> hybrid36_decode(std::string_view field, int width) noexcept {
  std::size_t first = 0;
  while (first < field.size() && field[first] == ' ')
    ++first;
  if (first == field.size()) return 0L;
  char const lead = field[first];
  bool const upper = lead >= 'A' && lead <= 'Z';
  bool const lower = lead >= 'a' && lead <= 'z';
  if (!upper && !lower) return leading_integer(field);
  if (!valid_width(width) || first != 0 || field.size() != static_cast<std::size_t>(width)) {
    return std::nullopt;
  }
  long value = 0;
  for (char c : field) {
    int const digit = digit_value(c, upper);
    if (digit < 0) return std::nullopt;
    value = value * 36 + digit;
  }
  long const shift = power(10, width) - 10 * power(36, width - 1);
  return value + shift + (upper ? 0 : 26 * power(36, width - 1));
}

}  // namespace kora::detail
