#pragma once

// Locale-independent parsing of a whole text as a number, shared by the string functions
// and the uncertain-value parser. The text must be exactly the number: no blanks.

#include <string_view>

namespace kora::detail {

// Optional sign, then decimal digits. False when anything else is present or the value
// does not fit an int.
bool parse_int(std::string_view text, int& value) noexcept;

// Optional sign, then digits with an optional decimal point (at least one digit) and an
// optional exponent. False for anything else, for "inf" and "nan", and when the magnitude
// overflows a double; a value too small for a double reads as zero.
bool parse_double(std::string_view text, double& value) noexcept;

}  // namespace kora::detail
