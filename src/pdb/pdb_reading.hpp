#pragma once

// What PdbFile::read shares between its files: the record names, the records read whole
// (CRYST1, SCALEn, ORIGXn), the key of an atom pair, and the choices standard reading makes
// once a model's atoms are read (one alternate location per residue, the bond orders of
// standard amino acids).

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "kora/kernel/bond.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora::detail {

enum class PdbRecord {
  header,
  cryst1,
  origx,
  scale1,
  scale2,
  scale3,
  atom,
  hetatm,
  model,
  endmdl,
  conect,
  anisou,
  end,
  other  // recognised and ignored, or unknown
};

// The record name is the text up to the first blank or tab, compared exactly: a name run
// into its first field ("HETATM12345") is no record of ours.
PdbRecord record_of(std::string_view line);

// The record name as programs that follow the PDB conventions read it: columns 1-6 less
// trailing blanks, so that "HETATM10000" is a HETATM record.
PdbRecord standard_record_of(std::string_view line);

// The cell and space group of a CRYST1 record, with a space group symbol of at most
// `symbol_width` columns from column 56.
Cell read_cryst1(std::string_view line, std::size_t symbol_width);

// The four numbers of a SCALEn or ORIGXn record: a matrix row and its translation.
std::array<double, 4> read_matrix_row(std::string_view line);

// The unordered pair of atoms a bond joins, as one number.
inline std::uint64_t pair_key(BondData const& bond) {
  auto const low = static_cast<std::uint32_t>(std::min(bond.atom1(), bond.atom2()));
  auto const high = static_cast<std::uint32_t>(std::max(bond.atom1(), bond.atom2()));
  return (std::uint64_t(low) << 32) | high;
}

// Standard reading: one alternate location per atom. The atoms of a residue (chain,
// residue number and insertion code: a residue whose alternate locations give it
// different names is one residue) keep one location letter, the one whose atoms have the
// highest mean occupancy, the first to appear on ties; atoms without a letter are kept.
std::vector<THandle<Atom>> one_location_per_residue(std::vector<THandle<Atom>> const& atoms);

// Standard reading: the orders the residue typer leaves open in standard amino acids. The
// typer gives the carbonyls, carboxylates and aromatic rings theirs; arginine's guanidinium
// has its double bond at NH2 (as the chemical component dictionary draws it), and every other
// bond between atoms of the twenty residues (the rest of each residue, peptide links,
// disulfides) is single. Leaving them unknown makes other programs guess, and fail to place
// the double bonds of the aromatic rings next to them.
void complete_residue_bond_orders(Molecule& molecule);

}  // namespace kora::detail
