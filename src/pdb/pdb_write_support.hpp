#pragma once

// Pieces of standard PDB writing: which residues are written as ATOM records, the space
// group symbol of CRYST1, and the fields of atom records.

#include <cstddef>
#include <string>
#include <string_view>

#include "kora/kernel/spacegroup.hpp"

namespace kora::detail {

// Columns 56-66 of CRYST1.
inline constexpr int cryst1_symbol_width = 11;

// Whether PDB files write the residue as ATOM records: the amino acids and nucleotides of
// polymers.
bool is_standard_residue(std::string_view residue_name);

// The space group as CRYST1 names it: the full symbol of the setting with blanks between
// its parts ("P 1 21 1", "P 21 21 21", "I 41/a:2" with its origin choice); R groups on
// hexagonal axes begin with H ("H 3"), on rhombohedral axes with R ("R 3"). A symbol of
// more than ten characters loses its blanks ("P42/nbc:2"). Operators of no tabulated
// setting give the group's own symbol, or "P 1" without one.
std::string cryst1_space_group(Spacegroup const& spacegroup);

// The atom name in columns 13-16: a name of a one-letter (or unknown) element starts in
// column 14 unless it has four characters; a two-letter element's name starts in column
// 13. `element` is the symbol as written in columns 77-78.
void append_name_field(std::string& out, std::string_view name, std::string_view element);

// A hybrid-36 number right-aligned in `width` columns; throws std::runtime_error naming
// `what` when it does not fit.
void append_hybrid36(std::string& out, long value, int width, char const* what);

// The charge in columns 79-80 ("2+", "1-"); blanks for no charge or one beyond 9.
void append_charge(std::string& out, int charge);

}  // namespace kora::detail
