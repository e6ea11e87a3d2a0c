#pragma once

// Mol2 entries written the way other programs read them whole: bond orders as the model
// has them, partial charges and formal charges, substructures and residues, the source's
// SYBYL atom types, and a CRYSIN record only for a structure with crystal data.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/sybyl_typer.hpp"
#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry_identifier.hpp"

namespace kora::detail {

// The element standard reading gives an atom of a Mol2 ATOM line from its atom type and its
// name. A SYBYL type gives the element classic reading gives (the part before the first ".",
// none for "LP", "Du", ...). Any other type (GAFF "c3", "cl"; AMBER "CT", "OW", "Na+"; CHARMM
// "CLA"; OPLS "opls_135"; numbers) is read for an element, and the element is checked against
// the name's: the type's element when the name agrees with it (or names none), else the
// name's, else the type's. See mol2_standard.cpp for the tables.
Element mol2_standard_element(std::string_view type, std::string_view name);

// The identifier of a molecule named `name` in standard reading, which never refuses a name:
// the name cut to DatabaseEntryIdentifier::maximum_length_ bytes (back to the start of a
// UTF-8 character), or "UNKNWN" when it is still refused (it holds a NUL character).
DatabaseEntryIdentifier mol2_entry_identifier(std::string_view name);

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
// without atoms still has its (empty) ATOM section. `typed`, when given, holds the SYBYL types
// of the maker's molecules (each reduced to its atoms with positions), found before; a
// molecule whose types do not match its atoms and bonds is typed afresh.
void print_mol2_standard(std::ostream& os, CrystalMaker const& maker, std::string const& name,
                         std::vector<SybylTypes> const* typed = nullptr);

}  // namespace kora::detail
