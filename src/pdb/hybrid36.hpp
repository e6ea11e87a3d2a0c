#pragma once

// Hybrid-36 numbers of fixed-width PDB fields (atom serials in five columns, residue
// numbers in four). A number that fits the width in decimal is written in decimal; the
// next 26 * 36^(width-1) numbers are written in base 36 with upper-case digits, starting at
// "A000..", and the next as many with lower-case digits, starting at "a000..". So five
// columns count to 99999 in decimal, then A0000 (100000) .. ZZZZZ (43770015), then
// a0000 (43770016) .. zzzzz (87440031).

#include <cstddef>
#include <optional>
#include <string_view>

namespace kora::detail {

// The largest number a field of `width` columns holds (width 1 to 6).
long hybrid36_max(int width) noexcept;

// Writes `value` right-aligned into `out[0, width)`; false (and `out` untouched) when the
// value does not fit the width (below -(10^(width-1) - 1) or above hybrid36_max(width)).
bool hybrid36_encode(long value, int width, char* out) noexcept;

// The number of a field of `width` columns. A field whose first non-blank character is a
// letter must fill the width with digits and letters of one case; any other field is read
// as a decimal integer at the front of the text (blanks before it, as strtol does; 0 for
// a blank field). Nothing for a letter field that breaks these rules.
std::optional<long> hybrid36_decode(std::string_view field, int width) noexcept;

}  // namespace kora::detail
