#pragma once

// Column and number helpers shared by the MOL readers and the SD index. Numbers in MOL
// columns follow the C library's conversions: leading white space is skipped, the longest
// prefix that is a number is taken, trailing text is ignored, and a column without a number
// reads as 0. None of these functions allocates or depends on the locale.

#include <cstddef>
#include <istream>
#include <string>
#include <string_view>

#include "kora/kernel/bond.hpp"
#include "kora/kernel/element.hpp"

namespace kora::detail {

// Columns [first, first + width) of a line (0-based first), cut to what the line holds.
inline std::string_view column(std::string_view line, std::size_t first, std::size_t width) {
  if (first >= line.size()) return {};
  return line.substr(first, width);
}

inline bool begins_with(std::string_view line, std::string_view text) {
  return line.substr(0, text.size()) == text;
}

// Whether a line ends an SD record: in classic reading, any line with "$$$$" in it; in
// standard reading only the separator line itself, which begins with "$$$$", so that a data
// value holding the text ("price 5$$$$") is kept as written.
inline bool ends_record(std::string_view line, bool standard) {
  return standard ? begins_with(line, "$$$$") : line.find("$$$$") != std::string_view::npos;
}

// Base-10 integer prefix of the text; saturates at the limits of int.
int c_int(std::string_view text) noexcept;
// Decimal floating-point prefix of the text (with "inf" and "nan" as the C library reads
// them); an overflowing magnitude gives an infinity and an underflowing one zero.
double c_double(std::string_view text) noexcept;

// Whether a coordinate is zero once converted to single precision. Values of magnitude 1
// and more never are, and are not converted (a double beyond the range of float has no
// float value).
inline bool is_float_zero(double value) noexcept {
  return value > -1.0 && value < 1.0 && static_cast<float>(value) == 0.0f;
}

// Whether a line is a MOL counts line: the "V3000" or "V2000" stamp at 0-based position
// 34, or right-justified three-column integer fields and nothing else.
bool is_counts_line(std::string_view line) noexcept;

// The formal charge of an MDL charge code. Code 7 (-3 in the format's own table) and the
// radical code 4 both give 0.
inline int formal_charge_of_code(int code) noexcept {
  switch (code) {
    case 1:
      return 3;
    case 2:
      return 2;
    case 3:
      return 1;
    case 5:
      return -1;
    case 6:
      return -2;
    default:
      return 0;
  }
}

// The bond type of an MDL bond code; query and other codes give an unknown bond.
inline BondType bond_type_of_code(int code) noexcept {
  switch (code) {
    case 1:
      return single_bond;
    case 2:
      return double_bond;
    case 3:
      return triple_bond;
    case 4:
      return aromatic_bond;
    default:
      return unknown_bond;
  }
}

// The standard atomic weight of an element rounded to an integer (the mass number the V2000
// mass-difference column counts from); 0 outside 1..118.
int rounded_atomic_weight(int atomic_number) noexcept;

// The isotope mass number an atom line gives: deuterium and tritium by their symbols ("D"
// also when the reader made it from "H" with mass difference 1), any other element by the
// non-zero mass difference from its rounded atomic weight; 0 when the line names none.
inline int mass_number_of_atom_line(std::string_view symbol, Element const& element,
                                    int mass_difference) noexcept {
  if (symbol == "D") return 2;
  if (symbol == "T") return 3;
  if (mass_difference == 0 || !element.is_set()) return 0;
  int const mass = rounded_atomic_weight(element.atomic_number()) + mass_difference;
  return mass > 0 ? mass : 0;
}

// Query and special atom symbols, which give no element.
inline bool is_query_symbol(std::string_view symbol) noexcept {
  return symbol == "*" || symbol == "A" || symbol == "Q" || symbol == "L" || symbol == "LP" ||
         symbol == "Lp";
}

inline Element element_of_symbol(std::string const& symbol) {
  return is_query_symbol(symbol) ? Element() : Element(symbol);
}

// Whether the last read found nothing left: the stream ended (or had failed) and gave no
// text.
inline bool stream_exhausted(std::istream const& is, std::string const& line) {
  return line.empty() && (is.eof() || is.fail());
}

// The message shared by both readers when bonds cannot be made from the lines read.
inline constexpr char const* bad_bonds_message = "Unable to create bonds - incorrect lines in file";
inline constexpr char const* short_atom_block_message =
    "Atom block incomplete - not enough atom lines";

}  // namespace kora::detail
