#pragma once

/// \file
/// The ATOM section of a Tripos Mol2 file: one atom a line.

#include <iosfwd>
#include <string>
#include <vector>

#include "kora/framework/options.hpp"
#include "kora/kernel/atom.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

/// One ATOM line: id, name, coordinates, SYBYL type, substructure id and name, and a formal
/// charge (an integer: a partial charge such as 0.1234 reads as 0).
class Mol2AtomLine {
 public:
  Mol2AtomLine() = default;
  explicit Mol2AtomLine(std::istream& is) { read(is); }
  /// Blanks and tabs are trimmed from both ends of the name, the type and the substructure
  /// name.
  Mol2AtomLine(int atom_id, std::string name, double x, double y, double z, std::string type,
               int substructure_id, std::string const& substructure_name, int charge);

  /// Reads one line. The substructure name, charge and substructure id first become "", 0
  /// and 1; then the fields are read in order until one fails.
  void read(std::istream& is);
  /// The same with a caller's line buffer, so that reading many lines reuses one buffer.
  void read(std::istream& is, std::string& buffer);
  /// The line without a line end, padded with the stream's fill character; leaves the
  /// stream in fixed notation with precision 4 and right alignment.
  void print(std::ostream& os) const;

  /// A new model atom without a site: a FileOrderedProteinAtom in the substructure when the
  /// line names one, else a FileOrderedAtom3d; its file order is the atom id.
  THandle<Atom> atom() const;
  /// Site(M p, p, 1) with p the coordinates and M the cell's orthogonal-to-fractional matrix.
  THandle<Site> sites(Cell const& cell) const;
  /// The element symbol of a SYBYL type: the part before the first "." ("C.ar" gives "C"),
  /// "Unknown" for "LP" and "Du", otherwise the type itself.
  std::string sybyl_to_symbol(std::string const& type) const;

  int atom_id() const { return atom_id_; }
  std::string const& name() const { return name_; }
  double x() const { return x_; }
  double y() const { return y_; }
  double z() const { return z_; }
  std::string const& type() const { return type_; }
  int substructure_id() const { return substructure_id_; }
  std::string const& substructure_name() const { return substructure_name_; }
  int charge() const { return charge_; }
  /// The charge column as a real number (a Mol2 partial charge), and whether the line had
  /// one; a line built from values holds its integer charge there.
  double partial_charge() const { return partial_charge_; }
  bool has_partial_charge() const { return has_partial_charge_; }

  /// Numbers and strings equal; coordinates within 0.0001.
  bool operator==(Mol2AtomLine const& other) const;

 private:
  int atom_id_ = 0;
  std::string name_;
  double x_ = 0.0;
  double y_ = 0.0;
  double z_ = 0.0;
  std::string type_;
  int substructure_id_ = 0;
  std::string substructure_name_;
  int charge_ = 0;
  double partial_charge_ = 0.0;
  bool has_partial_charge_ = false;
};

/// The whole ATOM section, in file order.
class Mol2Atom {
 public:
  /// The most lines a section may announce; larger counts are refused before anything is
  /// allocated.
  static constexpr int maximum_count = 10'000'000;

  Mol2Atom() = default;
  Mol2Atom(std::istream& is, int count) { read(is, count); }
  /// Lines for every atom of the molecule in substructure 1, "RES1". Throws
  /// std::invalid_argument naming the first atom without a site.
  explicit Mol2Atom(Molecule const& molecule);
  /// Lines for the atoms of each subset in turn, ids running on across them; subset k is
  /// substructure k + 1, "RES" k + 1.
  explicit Mol2Atom(std::vector<THandle<MoleculeSubset>> const& subsets);
  /// The same with the SYBYL atom types of each subset given (types[k][j] for atom j of
  /// subset k), by a caller that has typed them already.
  Mol2Atom(std::vector<THandle<MoleculeSubset>> const& subsets,
           std::vector<std::vector<std::string>> const& types);

  /// Reads `count` lines (none for a count of 0 or less). A count above maximum_count
  /// throws std::runtime_error naming it. Lines past the end of the stream have default
  /// fields (they share one line object).
  void read(std::istream& is, int count);
  /// The same in classic mode; in standard mode blank and "#" lines are passed over and the
  /// section ends early at the end of the stream or before a line beginning with "@" (the
  /// next section's header, left in the stream), without lines of defaults.
  void read(std::istream& is, int count, ReadOptions const& options);
  /// Each line, with a line end after all but the last.
  void print(std::ostream& os) const;

  /// The model atoms of every line, each with its index (its position in the section) and
  /// its site in the cell; or those of one substructure (id k + 1), each still with its
  /// position in the whole section as index.
  THandle<std::vector<THandle<Atom>>> atoms(Cell const& cell) const;
  THandle<std::vector<THandle<Atom>>> atoms(Cell const& cell, int substructure) const;

  std::vector<THandle<Mol2AtomLine>> const& lines() const { return lines_; }
  bool empty() const { return lines_.empty(); }

  bool operator==(Mol2Atom const& other) const;

 private:
  std::vector<THandle<Mol2AtomLine>> lines_;
};

}  // namespace kora
