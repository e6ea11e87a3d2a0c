#pragma once

// Fixed-width text output without streams or locales, for writers of column formats:
// each function appends one field to a line being built.

#include <string>
#include <string_view>

namespace kora::detail {

// The value in fixed notation with `decimals` decimals, right-aligned in `width`.
void append_fixed(std::string& out, double value, int decimals, int width, char fill = ' ');
// A decimal integer, right-aligned in `width`.
void append_int(std::string& out, long long value, int width, char fill = ' ');
// Text padded on the right to `width` (never cut).
void append_left(std::string& out, std::string_view text, int width, char fill = ' ');
// Text padded on the left to `width` (never cut).
void append_right(std::string& out, std::string_view text, int width, char fill = ' ');

}  // namespace kora::detail
