#pragma once

/// \file
/// A PDB file object: one entry (possibly several models) read into molecules and a cell,
/// with connectivity found from the coordinates and the CONECT records, written back as a
/// minimal entry, and converted to and from the model.

#include <iosfwd>
#include <string>
#include <vector>

#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/bond.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/details.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

class PdbFile : public MoleculeFile {
 public:
  /// No identifier, the default cell, no molecules.
  PdbFile();
  /// Reads the named file.
  explicit PdbFile(std::string const& file_name);
  ~PdbFile() override;

  using MoleculeFile::read;
  /// Reads records up to END (or the end of the stream), appending the molecules of every
  /// model to those already held; a CRYST1 record replaces the cell. Bonds come from the
  /// coordinates, residue by residue, and from CONECT records; the bonds of standard amino
  /// acid residues then get their orders. Throws std::runtime_error for a CRYST1 record
  /// that is too short or whose R space group does not fit its cell.
  ///
  /// Standard reading (read_options().standard()) follows the PDB conventions: record names
  /// from columns 1-6, hybrid-36 numbers, element columns in any case or the atom name's
  /// alignment, charges only from a valid field in columns 79-80, B-factors and ANISOU
  /// records as the sites' displacement parameters, CONECT repeats as bond orders and CONECT
  /// records after the last ENDMDL for every model, one alternate location per residue
  /// unless read_options().all_alternate_locations (never a bond between two locations),
  /// and every residue typed on its own.
  void read(std::istream& is) override;
  /// Classic writing: a header, CRYST1, SCALE1-3, one HETATM record per atom, CONECT
  /// records, MASTER and END. Standard writing (write_options().standard()): a header,
  /// CRYST1 with the full space group symbol and Z, SCALE1-3 when there is a cell, ATOM and
  /// HETATM records with residues, chains, B-factors, element and charge columns and
  /// hybrid-36 numbers, TER after each polymer chain, MODEL/ENDMDL around several models,
  /// CONECT records for the bonds readers do not find from residue templates (bond orders
  /// as repeated partners) and END.
  void print(std::ostream& os) const override;
  /// No molecules, the default cell and no structure details; the identifier is kept.
  void clear() override;
  /// Appends a copy of the molecule; the cell is kept.
  void add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) override;
  void add(CrystalStructureDatabaseEntry const& entry) override;
  /// Appends the structure's molecules (shared, not copied). A structure whose cell differs
  /// from the one held first clears the file and brings its own cell.
  void add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) override;
  void add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) override;
  THandle<CrystalStructureDatabaseEntry> database_entry() const override;
  /// All molecules merged into one, each reduced to its atoms with positions; an empty
  /// molecule when there are none.
  THandle<Molecule> molecule() const override;
  /// A copy of the cell.
  THandle<Cell> cell() const override;
  /// A crystal sharing the file's molecule list.
  THandle<Crystal> crystal() const override;
  THandle<CrystalMaker> crystal_maker() const override;

  DatabaseEntryIdentifier const& identifier() const { return identifier_; }
  /// The molecules read or added, in order.
  THandle<MoleculeList> const& molecules() const { return molecules_; }
  /// What was read or added beyond the cell and molecules: the source format, whether the
  /// cell is the structure's own.
  StructureDetails const& details() const { return details_; }

 private:
  struct ReadState;  // the working state of one read

  void print_standard_(std::ostream& os) const;

  // Replaces the atom indexes of every bond whose two indexes lie inside `map` by the
  // indexes the map gives them; other bonds are left as they are.
  static void update_bond_indexes_(std::vector<THandle<BondData>>& bonds,
                                   std::vector<int> const& map);
  // Removes, from the bonds at positions [first, last), every bond that joins the same two
  // atoms (in either order) as an earlier bond of that range; the first occurrence stays
  // and the order is kept. `first` counts only when 0 < first < size (else 0), `last` only
  // when 0 < last < size and first < last (else the size).
  static void remove_duplicate_bonds_(std::vector<THandle<BondData>>& bonds, long first, long last);

  DatabaseEntryIdentifier identifier_;
  THandle<Cell> cell_;
  THandle<MoleculeList> molecules_;
  StructureDetails details_;
};

}  // namespace kora
