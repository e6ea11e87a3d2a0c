#include "kora/kernel/uncertain_value.hpp"

#include <charconv>
#include <cmath>
#include <system_error>

#include "kernel/number_parsing.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

// Decimal places are kept within this range so that 10^places stays a finite double.
constexpr int max_places = 300;

bool is_digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// The decimal place of the last digit of a decimal number's text ("10.123" -> 3,
// "1.2e-3" -> 4, "120" -> 0, "1.2e3" -> -2). The text must already be known to be a number.
bool last_digit_place(std::string_view number, int& places) noexcept {
  std::size_t const e = number.find_first_of("eE");
  std::string_view const mantissa = number.substr(0, e);
  std::size_t const point = mantissa.find('.');
  int decimals = point == std::string_view::npos ? 0 : int(mantissa.size() - point - 1);
  int exponent = 0;
  if (e != std::string_view::npos && !detail::parse_int(number.substr(e + 1), exponent)) {
    return false;
  }
  if (exponent > max_places || exponent < -max_places) return false;
  places = decimals - exponent;
  return places >= -max_places && places <= max_places;
}

// Significant digits of a plain digit string as an integer; false when there are too many.
bool digits_value(std::string_view digits, std::uint64_t& value) noexcept {
  value = 0;
  int significant = 0;
  for (char c : digits) {
    if (!is_digit(c)) return false;
    if (value == 0 && c == '0') continue;
    if (++significant > Uncertainty::max_digits) return false;
    value = value * 10 + std::uint64_t(c - '0');
  }
  return true;
}

double power_of_ten(int exponent) noexcept {
  return std::pow(10.0, exponent);
}

}  // namespace

Uncertainty::Uncertainty(std::uint64_t digits, int decimal_places) noexcept
    : digits_(digits), places_(digits == 0 ? 0 : decimal_places) {}

Uncertainty Uncertainty::parse(std::string_view text, bool* ok) {
  std::string_view const t = trim_view(text, " \t");
  double probe = 0.0;
  int places = 0;
  std::uint64_t digits = 0;
  bool good = !t.empty() && (is_digit(t[0]) || t[0] == '.') && detail::parse_double(t, probe) &&
              last_digit_place(t, places);
  if (good) {
    std::string mantissa(t.substr(0, t.find_first_of("eE")));
    std::erase(mantissa, '.');
    good = digits_value(mantissa, digits);
  }
  if (ok) *ok = good;
  return good ? Uncertainty(digits, places) : Uncertainty();
}

double Uncertainty::value() const noexcept {
  if (digits_ == 0) return 0.0;
  return places_ >= 0 ? double(digits_) / power_of_ten(places_)
                      : double(digits_) * power_of_ten(-places_);
}

Uncertainty& Uncertainty::round_down(unsigned int limit) noexcept {
  while (digits_ > limit) {
    digits_ = (digits_ + 5) / 10;
    --places_;
  }
  if (digits_ == 0) places_ = 0;
  return *this;
}

std::string Uncertainty::to_string() const {
  std::string s = std::to_string(digits_);
  if (places_ <= 0) {
    if (digits_ != 0) s.append(std::size_t(-places_), '0');
    return s;
  }
  std::size_t const places = std::size_t(places_);
  if (s.size() <= places) s.insert(0, places + 1 - s.size(), '0');
  s.insert(s.size() - places, 1, '.');
  return s;
}

UncertainValue UncertainValue::parse(std::string_view text, bool* ok) {
  std::string_view const t = trim_view(text, " \t");
  std::size_t const open = t.find('(');
  std::string_view const number = t.substr(0, open);
  double value = 0.0;
  bool good = detail::parse_double(number, value);
  Uncertainty uncertainty;
  if (good && open != std::string_view::npos) {
    std::string_view const inside = t.substr(open + 1);
    int places = 0;
    std::uint64_t digits = 0;
    good = inside.size() >= 2 && inside.back() == ')' && last_digit_place(number, places) &&
           digits_value(inside.substr(0, inside.size() - 1), digits);
    uncertainty = Uncertainty(digits, places);
  }
  if (ok) *ok = good;
  return good ? UncertainValue(value, uncertainty) : UncertainValue();
}

std::string UncertainValue::to_string() const {
  if (uncertainty_.is_zero()) {
    char buffer[32];
    auto const result = std::to_chars(buffer, buffer + sizeof buffer, value_);
    return std::string(buffer, result.ptr);
  }
  int const places = uncertainty_.decimal_places();
  // Fixed notation of any finite double with up to max_places decimals fits.
  char buffer[2 * max_places + 64];
  auto const result = std::to_chars(buffer, buffer + sizeof buffer, value_,
                                    std::chars_format::fixed, places > 0 ? places : 0);
  std::string s(buffer, result.ec == std::errc() ? result.ptr : buffer);
  Uncertainty const in_units_of_one(uncertainty_.digits(), places > 0 ? 0 : places);
  s += '(';
  s += in_units_of_one.to_string();
  s += ')';
  return s;
}

}  // namespace kora
