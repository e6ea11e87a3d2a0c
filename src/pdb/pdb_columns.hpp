#pragma once

// Fixed-column fields of PDB records: cutting a field out of a line without reading past its
// end, converting it as the C library reads the front of a text (strtol, strtod), the
// fields of ATOM and HETATM records, and the element rules for their atoms.

#include <cstddef>
#include <string>
#include <string_view>

namespace kora::detail {

// The `length` characters at `offset`, fewer when the line ends sooner, nothing when it ends
// before `offset`.
inline std::string_view column(std::string_view line, std::size_t offset, std::size_t length) {
  if (offset >= line.size()) return {};
  return line.substr(offset, length);
}

// The integer at the front of the text after white space (optional sign, decimal digits),
// as strtol reads it; 0 when there is none or it does not fit.
long leading_integer(std::string_view text) noexcept;
// The real number at the front of the text after white space, as strtod reads it (decimal
// and exponent forms, inf, nan); 0 when there is none or it does not fit a double.
double leading_real(std::string_view text) noexcept;

// The first run of characters that are neither digits nor blanks or tabs ("1HB" gives "HB",
// "C1" gives "C").
std::string_view first_symbol_run(std::string_view text) noexcept;

// The fields of an ATOM or HETATM record. Text fields are views into the line; a field
// whose columns the line does not cover keeps its default.
struct PdbAtomRecord {
  int serial = 0;
  std::string_view name;
  std::string_view alternate_location;
  std::string_view residue_name;
  std::string_view chain;
  int residue_number = 0;
  std::string_view insertion_code;
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  double occupancy = 1.0;  // at most 1
  double temperature_factor = 0.0;
  std::string_view segment;
  std::string_view element;
  int charge = 0;
};

PdbAtomRecord parse_atom_record(std::string_view line) noexcept;

// The element symbol of an atom from its element field and atom name, in element case, or
// the empty text when none is found. Only HETATM records put a two-letter symbol into
// element case before it is looked up, so that ATOM CA is carbon and HETATM CA calcium.
std::string pdb_element_symbol(std::string_view element, std::string_view atom_name, bool hetatm);

// The element symbol of an atom as programs that follow the PDB conventions find it, in
// element case, or the empty text when none is found: the element columns (77-78) in any
// letter case ("FE" and "Fe" are iron); when they are blank, the alignment of the atom
// name (columns 13-16): a name whose first column is blank or a digit names a one-letter
// element in its second column (" CA " is carbon, "1HB " hydrogen), a four-character name
// that begins with H is a hydrogen ("HD21"), any other name starts with a two-letter
// element when its first two letters are one ("CA  " is calcium, "FE  " iron), else with
// a one-letter element. Names that fit none of these fall back to pdb_element_symbol.
std::string pdb_standard_element_symbol(std::string_view line, PdbAtomRecord const& record,
                                        bool hetatm);

// The formal charge of columns 79-80 as programs that follow the PDB conventions read it:
// a digit and a sign ("2+", "1-"), a sign and a digit ("+2"), a sign alone ("+", " -") for
// a charge of one, and 0 for blank columns or anything else. Old files put line numbers
// or segment identifiers into columns 73-80 ("1HPV 186"); those give 0.
int pdb_standard_charge(std::string_view line) noexcept;

}  // namespace kora::detail
