#pragma once

/// \file
/// A Tripos Mol2 file object: one molecule entry, kept as its sections, written back in a
/// fixed order and converted to and from the model.

#include <deque>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/mol2/mol2_atom.hpp"
#include "kora/mol2/mol2_bond.hpp"
#include "kora/mol2/mol2_crysin.hpp"
#include "kora/mol2/mol2_molecule.hpp"

namespace kora {

namespace detail {
struct SybylTypes;
}  // namespace detail

/// One COMMENT section: its lines.
class Mol2Comment {
 public:
  Mol2Comment() : lines_(make_handle<std::vector<std::string>>()) {}

  THandle<std::vector<std::string>> const& lines() const { return lines_; }
  void append(std::string const& line) { lines_->push_back(line); }
  /// Every line followed by a line end.
  void print(std::ostream& os) const;

 private:
  THandle<std::vector<std::string>> lines_;
};

class Mol2File : public MoleculeFile {
 public:
  Mol2File() = default;
  /// Reads the named file.
  explicit Mol2File(std::string const& file_name);
  Mol2File(Mol2File const& other);
  Mol2File& operator=(Mol2File const& other);
  Mol2File(Mol2File&&) noexcept = default;
  Mol2File& operator=(Mol2File&&) noexcept = default;
  ~Mol2File() override = default;

  using MoleculeFile::read;
  /// Reads one molecule entry; stops after consuming the next entry's MOLECULE header.
  void read(std::istream& is) override;
  void print(std::ostream& os) const override;
  void clear() override;
  void add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) override;
  void add(CrystalStructureDatabaseEntry const& entry) override;
  void add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) override;
  void add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) override;
  THandle<CrystalStructureDatabaseEntry> database_entry() const override;
  /// Exactly the atoms and bonds of the file (no bond perception).
  THandle<Molecule> molecule() const override;
  THandle<Cell> cell() const override;
  THandle<Crystal> crystal() const override;
  THandle<CrystalMaker> crystal_maker() const override;

  /// The molecule record's name; std::runtime_error "No molecule set" without a record.
  std::string molecule_name() const;
  std::deque<THandle<Mol2Comment>> const& comments() const { return comments_; }
  std::string const& substructure() const { return substructure_; }
  Mol2Molecule const* molecule_record() const { return molecule_.get(); }
  Mol2Atom const* atom_section() const { return atoms_.get(); }
  Mol2Bond const* bond_section() const { return bonds_.get(); }
  Mol2Crysin const* crystal_record() const { return crysin_.get(); }

  /// Appends one SUBSTRUCTURE line per molecule of the structure.
  void set_substructure(CrystalMaker const& maker);
  void set_substructure(Crystal const& crystal);
  /// Replaces the substructure text by the next `count` lines of the stream.
  void get_substructure(std::istream& is, int count);
  /// The formal charges of the UNITY_ATOM_ATTR section ("charge" attributes), as pairs of atom
  /// id and charge. The model's atoms carry them when the file is read in standard mode.
  std::vector<std::pair<int, int>> const& unity_charges() const { return unity_charges_; }

  /// Sections present in both files compare equal; the crystal records decide when both
  /// have one.
  bool operator==(Mol2File const& other) const;

 private:
  template <class Structure>
  void add_structure_(Structure const& structure, Cell const& cell,
                      DatabaseEntryIdentifier const& identifier);
  template <class Structure>
  void append_substructure_(Structure const& structure);
  // What the model's atoms and the crystal maker keep of the file beyond the classic model:
  // atom types, partial charges, substructures and residues; the formal charges of
  // UNITY_ATOM_ATTR in standard reading.
  void fill_details_(std::vector<THandle<Atom>>& atoms) const;
  void fill_details_(StructureDetails& details) const;
  void print_standard_(std::ostream& os) const;

  std::unique_ptr<Mol2Molecule> molecule_;
  std::unique_ptr<Mol2Atom> atoms_;
  std::unique_ptr<Mol2Bond> bonds_;
  std::string substructure_;
  std::unique_ptr<Mol2Crysin> crysin_;
  std::deque<THandle<Mol2Comment>> comments_;
  std::vector<std::pair<int, int>> unity_charges_;
  // The structure given to add() in standard writing, and its name: standard output is
  // written from the model, whose details the classic sections do not hold.
  THandle<CrystalMaker> source_;
  std::string source_name_;
  // The SYBYL types of source_'s molecules, found once when it was added, for printing.
  std::shared_ptr<std::vector<detail::SybylTypes> const> source_types_;
};

}  // namespace kora
