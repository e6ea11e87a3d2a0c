#pragma once

/// \file
/// A SHELX instruction (RES) file object: one crystal structure.

#include <iosfwd>
#include <string>
#include <vector>

#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/details.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

class ResFile : public MoleculeFile {
 public:
  ResFile();
  /// Reads the named file.
  explicit ResFile(std::string const& file_name);

  using MoleculeFile::read;
  /// Reads the instructions a crystal structure needs (CELL, ZERR, LATT, SYMM, SFAC, FVAR and
  /// the atoms), builds the space group, gives every atom its site, and groups the atoms into
  /// complete molecules. The identifier is not changed (TITL is not stored). Errors are
  /// std::runtime_error with messages beginning "ResFile::read(): ".
  void read(std::istream& is) override;
  /// Classic writing: TITL, CELL, ZERR, LATT, SYMM, SFAC, UNIT, the atoms of the asymmetric
  /// unit (atoms symmetry-equivalent to one already written are left out), HKLF 4 and END.
  /// Standard writing (write_options().standard()): every atom of the structure once (the
  /// symmetry images that completed its molecules left out, atoms sharing a site kept), with
  /// names of at most four characters unique within their residue, occupancies divided by the
  /// site order as SHELX counts them, and FVAR, PART, AFIX, RESI and the occupancy and U codes
  /// of atoms read from a RES file.
  void print(std::ostream& os) const override;
  /// A new empty molecule list and a default cell; the identifier and the default U stay.
  void clear() override;
  void add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) override;
  void add(CrystalStructureDatabaseEntry const& entry) override;
  void add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) override;
  void add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) override;
  THandle<CrystalStructureDatabaseEntry> database_entry() const override;
  /// One molecule holding the 3-d parts of all molecules.
  THandle<Molecule> molecule() const override;
  THandle<Cell> cell() const override;
  THandle<Crystal> crystal() const override;
  THandle<CrystalMaker> crystal_maker() const override;

  DatabaseEntryIdentifier const& identifier() const { return identifier_; }
  void set_identifier(DatabaseEntryIdentifier const& identifier) { identifier_ = identifier; }
  THandle<std::vector<THandle<Molecule>>> const& molecules() const { return molecules_; }
  /// The atoms of the atom lines of the last read, in file order, with their sites: the
  /// asymmetric unit, before the molecules were completed by symmetry.
  THandle<std::vector<THandle<Atom>>> const& asymmetric_unit() const { return asymmetric_unit_; }
  /// What the last read (source format "res", the cell, FVAR) or the last added crystal maker
  /// said of the structure; reset by clear(). Standard writing gives back its free variables.
  StructureDetails const& structure_details() const { return details_; }

  /// The isotropic U (square angstroms) written for atoms that have no displacement
  /// parameters: the positional uncertainty the writer assumes. 0.05 by default, the U the
  /// reader gives an atom line without one.
  double uncertainty_scale() const { return uncertainty_scale_; }
  void set_uncertainty_scale(double u) { uncertainty_scale_ = u; }

 private:
  struct ReadState;  // the working state of one read

  template <class Structure>
  void add_structure_(Structure const& structure, Cell const& cell,
                      DatabaseEntryIdentifier const& identifier);

  DatabaseEntryIdentifier identifier_;
  THandle<Cell> cell_;
  THandle<std::vector<THandle<Molecule>>> molecules_;
  THandle<std::vector<THandle<Atom>>> asymmetric_unit_;
  double uncertainty_scale_ = 0.05;
  StructureDetails details_;
  // Whether the molecules are those of the last read (nothing added since).
  bool molecules_read_ = false;
};

/// How far (angstroms) a position may lie from its images and still be on a special position,
/// in standard reading and writing: coordinates written to five decimals are off by up to 5e-6
/// of a cell edge, which over three combined coordinates of a 200 angstrom edge stays below it.
inline constexpr double res_special_position_tolerance = 0.01;

/// Free-variable resolution of a SHELX parameter: values of 15 and above multiply free
/// variable int(x/10) by the remainder, values below -15 multiply (free variable - 1), 5 to
/// 15 are fixed parameters (x - 10), anything else stays. A reference to a free variable that
/// is not in the list throws std::runtime_error.
void resolve_free_variable(double& x, std::vector<double> const& free_variables);

}  // namespace kora
