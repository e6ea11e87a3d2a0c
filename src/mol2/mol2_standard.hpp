#pragma once

// Mol2 entries written the way other programs read them whole: bond orders as the model
// has them, partial charges and formal charges, substructures and residues, the source's
// SYBYL atom types, and a CRYSIN record only for a structure with crystal data.

#include <iosfwd>
#include <string>
#include <string_view>

#include "kora/kernel/crystal.hpp"

namespace kora::detail {

// Whether the text is one of the SYBYL atom types of the Tripos Mol2 format ("C.ar",
// "N.pl3", "Cl", "LP", "Du", ...); case matters.
bool is_sybyl_atom_type(std::string_view type);

// The SYBYL bond type code that the Mol2 reader turns back into the model's bond type:
// "1" (or "am" when the typer found an amide bond), "2", "3", "ar", "4", "po", "de",
// "pi"; an unknown order is "du" when an end is a dummy atom (no element), else "un".
std::string_view mol2_bond_code(BondType type, std::string_view typed, bool dummy_end);

// One entry: the MOLECULE record named `name`, the ATOM section, UNITY_ATOM_ATTR for
// formal charges, BOND, SUBSTRUCTURE, and CRYSIN when the structure has a cell of its own.
// The atoms are those of every molecule with a position, molecule after molecule. An entry
// without atoms still has its (empty) ATOM section.
void print_mol2_standard(std::ostream& os, CrystalMaker const& maker, std::string const& name);

}  // namespace kora::detail
