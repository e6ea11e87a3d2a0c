#pragma once

// Locale-independent parsing of a whole text as a number, shared by the string functions
// and the uncertain-value parser. The text must be exactly the number: no blanks.

#include <charconv>
#include <string_view>

namespace kora::detail {

// Optional sign, then decimal digits. False when anything else is present or the value
// does not fit an int.
bool parse_int(std::string_view text, int& value) noexcept;

// Optional sign, then digits with an optional decimal point (at least one digit) and an
// optional exponent. False for anything else, for "inf" and "nan", and when the magnitude
// overflows a double; a value too small for a double reads as zero.
bool parse_double(std::string_view text, double& value) noexcept;

// std::from_chars for doubles in the general format, with the same result in every case,
// faster on the plain decimals of coordinate columns ("-12.3456"): up to 15 digits without
// an exponent are exact as an integer divided by a power of ten, which rounds once,
// correctly. Anything else goes to std::from_chars.
std::from_chars_result from_chars_double(char const* first, char const* last,
                                         double& value) noexcept;

}  // namespace kora::detail
