// PdbFile::read: the record loop, and the state of one read: atoms, residue-by-residue bond
// detection, CONECT bonds, models, the scale matrix and the displacement parameters. Record
// names and CRYST1 are read in pdb_records.cpp, the standard reading's choices made in
// pdb_standard_choices.cpp, bond lists cleaned in pdb_bond_lists.cpp.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kernel/handle_arena.hpp"
#include "kora/kernel/bond_detector.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/pdb/pdb_residue_bond_typer.hpp"
#include "pdb/hybrid36.hpp"
#include "pdb/pdb_columns.hpp"
#include "pdb/pdb_reading.hpp"

namespace kora {

namespace {

using AtomList = std::vector<THandle<Atom>>;
using BondList = std::vector<THandle<BondData>>;
using Record = detail::PdbRecord;

}  // namespace

// Everything one read works with: the model being read (its atoms and bonds, the serial
// index), the atoms of the residues over which the next bond search runs, and the scale
// matrix.
//
// Classic reading finds the bonds of each residue as soon as the next one begins and
// finishes a model at its ENDMDL. Standard reading keeps each model's atoms, CONECT
// serials and ANISOU values until the end of the data: alternate locations are chosen
// once a residue's every location has been seen, and CONECT records after the last
// ENDMDL belong to every model. The bonds are then found as classic reading finds them,
// over the atoms kept.
struct PdbFile::ReadState {
  explicit ReadState(PdbFile& owner, ReadOptions const& read_options)
      : file(owner),
        standard(read_options.standard()),
        all_alternate_locations(read_options.all_alternate_locations),
        detector(BondDetector::molecular, BondDetector::no_refinement,
                 BondDistanceLimit(0.55, false)) {
    start_model();
    current.atoms = make_handle<AtomList>();
  }

  // Standard reading: what a model keeps until the end of the data.
  struct StoredModel {
    THandle<AtomList> atoms;  // every atom read, every alternate location
    // Serial pairs of the CONECT records, once per listing.
    std::vector<std::array<long, 2>> conects;
    // ANISOU values (U times 1e4, Cartesian: U11 U22 U33 U12 U13 U23) by index in `atoms`.
    std::vector<std::pair<std::size_t, std::array<double, 6>>> anisou;
  };

  PdbFile& file;
  bool standard;                 // the file's read options ask for the PDB conventions
  bool all_alternate_locations;  // standard reading: keep every alternate location
  BondDetector detector;
  THandle<AtomList> atoms;
  THandle<BondList> bonds;
  // Serial number minus 1 -> index in `atoms`, -1 where none. Decimal serials come from
  // five columns, so the index never exceeds 99999 entries; hybrid-36 serials (standard
  // reading) beyond what the atoms read so far can reach go to `far_serials`, so that no
  // serial number sizes the index.
  std::vector<int> serial_index;
  std::unordered_map<long, int> far_serials;
  // Standard reading: how often CONECT records list each atom pair, per direction (the
  // smaller atom index first, then the larger), which gives the bond order.
  std::unordered_map<std::uint64_t, std::array<int, 2>> conect_counts;
  // The model of the atoms read next: the number of the last MODEL record (one more than
  // the last model when it gives none), one more than the last model after ENDMDL; 0 in
  // files without models.
  int model_number = 0;
  // The atoms of the next bond search (spanning two consecutive residues) and the ATOM
  // atoms of the residue being read, each with its index in `atoms`.
  AtomList pair_atoms;
  std::vector<int> pair_indexes;
  AtomList residue_atoms;
  std::vector<int> residue_indexes;
  std::string residue_name;  // empty until the first residue ends
  int residue_number = 0;    // 0: none current
  std::array<double, 12> scale{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
  THandle<Transformation> scale_transformation;
  std::string label;  // reused for every atom
  detail::HandleArena<FileOrderedProteinAtom> protein_atoms;
  detail::HandleArena<FileOrderedAtom3d> other_atoms;
  detail::HandleArena<Site> sites;
  detail::HandleArena<AtomicDisplacementParameters> displacements;
  // Standard reading: the model being read, and the models ENDMDL closed.
  StoredModel current;
  std::vector<StoredModel> stored;

  // A new model: no atoms, bonds, serials or residues yet. A model after ENDMDL is read as
  // the first one is, with indexes of its own.
  void start_model() {
    atoms = make_handle<AtomList>();
    bonds = make_handle<BondList>();
    serial_index.clear();
    far_serials.clear();
    conect_counts.clear();
    pair_atoms.clear();
    pair_indexes.clear();
    residue_atoms.clear();
    residue_indexes.clear();
    residue_name.clear();
    residue_number = 0;
  }

  void read_atom(std::string_view line, bool hetatm) {
    detail::PdbAtomRecord r = detail::parse_atom_record(line);
    if (standard) {
      r.serial =
          static_cast<int>(detail::hybrid36_decode(detail::column(line, 6, 5), 5).value_or(0));
      if (line.size() > 25) {
        r.residue_number =
            static_cast<int>(detail::hybrid36_decode(line.substr(22, 4), 4).value_or(0));
      }
      r.charge = detail::pdb_standard_charge(line);
      // Four-character residue names (CHARMM, NAMD: "TIP3", "POPC") take column 21 and leave
      // the chain column 22 blank.
      if (line.size() > 21 && line[20] != ' ' && line[21] == ' ' && !r.residue_name.empty()) {
        r.residue_name = trim_view(detail::column(line, 17, 4), " ");
        r.chain = {};
      }
    }
    std::string const symbol = standard ? detail::pdb_standard_element_symbol(line, r, hetatm)
                                        : detail::pdb_element_symbol(r.element, r.name, hetatm);
    Element const element = symbol.empty() ? Element() : Element(symbol);
    label.assign(r.name);
    label.append(r.alternate_location);
    THandle<Atom> atom;
    if (r.residue_name.empty()) {
      atom = other_atoms.make(r.serial, element, label, THandle<Site>());
    } else {
      std::string residue_label(r.residue_name);
      if (r.residue_number != 0) residue_label += int_to_string(r.residue_number);
      atom =
          protein_atoms.make(r.serial, element, label, std::move(residue_label), THandle<Site>());
    }
    atom->set_formal_charge(r.charge);
    Point const p(r.x, r.y, r.z);
    atom->set_site(sites.make(p, p, r.occupancy));
    record_details(*atom->mutable_details(), r, hetatm, line.size() > 65);
    if (standard) {
      current.atoms->push_back(atom);
    } else {
      track_residue(atom, r.serial, r.residue_name, r.residue_number, hetatm);
    }
  }

  void record_details(AtomDetails& d, detail::PdbAtomRecord const& r, bool hetatm,
                      bool has_b_factor) const {
    d.serial = r.serial;
    d.hetero = hetatm;
    d.alt_loc = r.alternate_location.empty() ? ' ' : r.alternate_location.front();
    d.residue_name.assign(r.residue_name);
    d.residue_number = r.residue_number;
    d.insertion_code = r.insertion_code.empty() ? ' ' : r.insertion_code.front();
    d.chain.assign(r.chain);
    d.model = model_number;
    d.has_b_factor = has_b_factor;
    d.b_factor = r.temperature_factor;
  }

  // Standard reading: the ANISOU record of the atom read last, when the serials agree.
  void read_anisou(std::string_view line) {
    if (current.atoms->empty()) return;
    std::size_t const index = current.atoms->size() - 1;
    long const serial = detail::hybrid36_decode(detail::column(line, 6, 5), 5).value_or(0);
    if (serial == 0 || serial != current.atoms->back()->details()->serial) return;
    std::array<double, 6> u{};
    for (std::size_t i = 0; i < u.size(); ++i)
      u[i] = detail::leading_real(detail::column(line, 28 + 7 * i, 7));
    current.anisou.emplace_back(index, u);
  }

  void track_residue(THandle<Atom> const& atom, int serial, std::string_view name, int number,
                     bool hetatm) {
    int const index = static_cast<int>(atoms->size());
    atoms->push_back(atom);
    if (serial > 0) {
      // A repeated serial names the later atom.
      auto const position = static_cast<std::size_t>(serial);
      if (position <= 99999 + 2 * atoms->size()) {
        if (serial_index.size() < position) serial_index.resize(position, -1);
        serial_index[position - 1] = index;
      } else {
        far_serials[serial] = index;
      }
    }
    if (!hetatm) {
      residue_atoms.push_back(atom);
      residue_indexes.push_back(index);
    }
    pair_atoms.push_back(atom);
    pair_indexes.push_back(index);
    if (number != 0 && residue_number == 0) residue_number = number;
    bool const ends = (!residue_name.empty() && name != residue_name) ||
                      (residue_number != 0 && residue_number != number);
    if (!ends) return;
    if (!residue_atoms.empty()) add_pair_bonds();
    residue_name.assign(name);
    residue_number = number;
    // The residue's ATOM atoms (with the one that started the next residue) open the next
    // search, so that bonds between the two residues are found.
    std::swap(pair_atoms, residue_atoms);
    std::swap(pair_indexes, residue_indexes);
    residue_atoms.clear();
    residue_indexes.clear();
  }

  // Whether a bond may join the atoms: never two different alternate locations when every
  // location is kept (a blank location bonds with any).
  bool may_bond(Atom const& x, Atom const& y) const {
    if (!all_alternate_locations) return true;
    char const a = x.details()->alt_loc;
    char const b = y.details()->alt_loc;
    return a == ' ' || b == ' ' || a == b;
  }

  void drop_bonds_across_locations(BondList& found) const {
    if (!all_alternate_locations) return;
    std::erase_if(found, [this](THandle<BondData> const& bond) {
      return !may_bond(*(*atoms)[static_cast<std::size_t>(bond->atom1())],
                       *(*atoms)[static_cast<std::size_t>(bond->atom2())]);
    });
  }

  // The bonds among the pair atoms, appended to the model's.
  void add_pair_bonds() {
    THandle<BondList> const found = detector.bonds(pair_atoms);
    update_bond_indexes_(*found, pair_indexes);
    drop_bonds_across_locations(*found);
    std::size_t const previous = bonds->size();
    bonds->insert(bonds->end(), found->begin(), found->end());
    if (bonds->size() > previous) {
      remove_duplicate_bonds_(*bonds, static_cast<long>(previous), -1);
    }
  }

  // A serial field of a CONECT record: decimal, or hybrid-36 in standard reading.
  long conect_serial(std::string_view field) const {
    if (!standard) return detail::leading_integer(field);
    return detail::hybrid36_decode(field, 5).value_or(0);
  }

  void read_conect(std::string_view line) {
    std::size_t const n = line.size();
    if (n <= 10) return;
    long const source_serial = conect_serial(line.substr(6, 5));
    int const source = standard ? 0 : atom_of_serial(source_serial);
    if (source < 0) return;
    for (std::size_t offset = 11; offset <= 26; offset += 5) {
      if (n <= offset + 4) break;
      long const partner_serial = conect_serial(line.substr(offset, 5));
      if (standard) {
        current.conects.push_back({source_serial, partner_serial});
        continue;
      }
      int const partner = atom_of_serial(partner_serial);
      // An atom listed as its own partner is no bond.
      if (partner >= 0 && partner != source) {
        bonds->push_back(make_handle<BondData>(source, partner, unknown_bond));
      }
    }
  }

  // Standard reading: the bonds of the model's CONECT serial pairs, with how often each
  // pair is listed.
  void add_conect_bonds(std::vector<std::array<long, 2>> const& conects) {
    for (std::array<long, 2> const& serials : conects) {
      int const source = atom_of_serial(serials[0]);
      int const partner = atom_of_serial(serials[1]);
      if (source < 0 || partner < 0 || partner == source) continue;
      if (!may_bond(*(*atoms)[static_cast<std::size_t>(source)],
                    *(*atoms)[static_cast<std::size_t>(partner)])) {
        continue;
      }
      bonds->push_back(make_handle<BondData>(source, partner, unknown_bond));
      ++conect_counts[detail::pair_key(*bonds->back())][source < partner ? 0 : 1];
    }
  }

  void read_model(std::string_view line) {
    // The model number follows the name; writers differ in how far.
    int const number = static_cast<int>(detail::leading_integer(detail::column(line, 5, 16)));
    model_number = number > 0 ? number : std::max(model_number, 1);
  }

  void end_model() {
    model_number = std::max(model_number, 1) + 1;
    if (standard) {
      stored.push_back(std::move(current));
      current = StoredModel{make_handle<AtomList>(), {}, {}};
      return;
    }
    finish_model(false);
    start_model();
  }

  // The index of the atom with the serial number, or -1.
  int atom_of_serial(long serial) const {
    if (serial < 1) return -1;
    if (static_cast<std::size_t>(serial) <= serial_index.size()) {
      int const index = serial_index[static_cast<std::size_t>(serial - 1)];
      if (index >= 0 || far_serials.empty()) return index;
    }
    auto const far = far_serials.find(serial);
    return far == far_serials.end() ? -1 : far->second;
  }

  // Standard reading: a pair listed once by CONECT records (in either direction) is a
  // single bond, twice a double bond, three or more times a triple bond.
  void apply_conect_orders() {
    if (conect_counts.empty()) return;
    for (THandle<BondData> const& bond : *bonds) {
      auto const found = conect_counts.find(detail::pair_key(*bond));
      if (found == conect_counts.end()) continue;
      int const listed = std::max(found->second[0], found->second[1]);
      bond->set_type(listed >= 3 ? triple_bond : listed == 2 ? double_bond : single_bond);
    }
  }

  void read_scale(std::string_view line, std::size_t row) {
    std::array<double, 4> const values = detail::read_matrix_row(line);
    std::copy(values.begin(), values.end(), scale.begin() + static_cast<long>(4 * row));
    if (row == 2) {
      scale_transformation =
          make_handle<Transformation>(scale[0], scale[1], scale[2], scale[3], scale[4], scale[5],
                                      scale[6], scale[7], scale[8], scale[9], scale[10], scale[11]);
    }
  }

  // Standard reading: the B-factors as isotropic U (B / 8 pi^2) and the ANISOU tensors,
  // turned from the file's Cartesian frame into the cell's reciprocal axes (the model's
  // convention): U = N^-1 S Ucart S^T N^-1, with S the matrix that gives fractional
  // coordinates (the SCALE matrix when the file has one) and N = diag(a*, b*, c*).
  void set_displacements(StoredModel const& model) {
    Cell const& cell = *file.cell_;
    constexpr double eight_pi_squared = 78.95683520871486;
    for (THandle<Atom> const& atom : *model.atoms) {
      AtomDetails const& d = *atom->details();
      if (!d.has_b_factor) continue;
      atom->site()->set_atomic_displacement_parameters(
          displacements.make(UncertainValue(d.b_factor / eight_pi_squared),
                             AtomicDisplacementParameters::isotropic, cell));
    }
    if (model.anisou.empty()) return;
    Matrix<double, 3, 3> to_axes =
        scale_transformation ? scale_transformation->matrix() : cell.orthogonal_to_fractional();
    if (cell.valid()) {
      // Rows scaled by 1 / a*, 1 / b*, 1 / c*: the rows of the orthogonal-to-fractional
      // matrix are the reciprocal axes.
      Matrix<double, 3, 3> const& reciprocal = cell.orthogonal_to_fractional();
      for (std::size_t i = 0; i < 3; ++i) {
        double const length = std::hypot(reciprocal(i, 0), reciprocal(i, 1), reciprocal(i, 2));
        for (std::size_t j = 0; j < 3; ++j)
          to_axes(i, j) = length > 0.0 ? to_axes(i, j) / length : 0.0;
      }
    } else {
      to_axes = Matrix<double, 3, 3>::identity();
    }
    for (auto const& [index, values] : model.anisou) {
      Matrix<double, 3, 3> u;
      static constexpr std::size_t row[6] = {0, 1, 2, 0, 0, 1};
      static constexpr std::size_t col[6] = {0, 1, 2, 1, 2, 2};
      for (std::size_t k = 0; k < 6; ++k)
        u(row[k], col[k]) = u(col[k], row[k]) = values[k] * 1e-4;
      Matrix<double, 3, 3> const v = to_axes * u * to_axes.transposed();
      (*model.atoms)[index]->site()->set_atomic_displacement_parameters(
          displacements.make(v(0, 0), v(1, 1), v(2, 2), v(0, 1), v(0, 2), v(1, 2)));
    }
  }

  // Standard reading, one model at the end of the data: displacement parameters, the
  // alternate locations kept, then the bonds and molecules as classic reading finds them.
  void finish_stored_model(StoredModel const& model) {
    start_model();
    set_displacements(model);
    AtomList const kept =
        all_alternate_locations ? *model.atoms : detail::one_location_per_residue(*model.atoms);
    for (THandle<Atom> const& atom : kept) {
      AtomDetails const& d = *atom->details();
      track_residue(atom, d.serial, d.residue_name, d.residue_number, d.hetero);
    }
    add_conect_bonds(model.conects);
    finish_model(true);
  }

  // Standard reading: every model, once the data have ended. CONECT records after the
  // last ENDMDL (a model without atoms) hold for every model.
  void finish_stored_models() {
    if (!stored.empty() && current.atoms->empty()) {
      for (StoredModel& model : stored)
        model.conects.insert(model.conects.end(), current.conects.begin(), current.conects.end());
    } else {
      stored.push_back(std::move(current));
    }
    for (StoredModel const& model : stored)
      finish_stored_model(model);
  }

  // Completes the model's bonds, places its atoms in the cell and appends its molecules.
  void finish_model(bool end_of_data) {
    if (end_of_data && bonds->empty()) {
      // No bonds from residue searches or CONECT records (a file of HETATM records, say):
      // one search over the whole model.
      bonds = detector.bonds(*atoms);
      drop_bonds_across_locations(*bonds);
    }
    if (residue_atoms.size() > 1) add_pair_bonds();
    remove_duplicate_bonds_(*bonds, -1, -1);
    apply_conect_orders();
    add_fractional(*file.cell_, *atoms, scale_transformation);
    THandle<MoleculeList> const molecules = create_molecules(*atoms, *bonds);
    file.molecules_->insert(file.molecules_->end(), molecules->begin(), molecules->end());
  }
};

void PdbFile::read(std::istream& is) {
  identifier_ = DatabaseEntryIdentifier("UNKNWN");
  bool const standard = read_options().standard();
  ReadState state(*this, read_options());
  details_.source_format = "pdb";
  details_.dimension = "3D";
  if (*cell_ == Cell()) details_.has_cell = false;
  std::string line;
  while (is.good()) {
    kora::getline(is, line);
    if (is.eof() && line.empty()) break;
    std::string_view const text = line;
    Record const record = standard ? detail::standard_record_of(text) : detail::record_of(text);
    if (record == Record::end) break;
    switch (record) {
      case Record::atom:
        state.read_atom(text, false);
        break;
      case Record::hetatm:
        state.read_atom(text, true);
        break;
      case Record::conect:
        state.read_conect(text);
        break;
      case Record::header:
        // Only headers this system wrote name the entry: "HEADER    VRX ENTRY name".
        if (detail::column(text, 10, 3) == "VRX") {
          identifier_ = DatabaseEntryIdentifier(std::string(detail::column(text, 20, 8)));
        }
        break;
      case Record::cryst1:
        cell_ = make_handle<Cell>(detail::read_cryst1(text, standard ? 11 : 10));
        // The unit cube in P1 is what files without crystal data write.
        details_.has_cell = !(*cell_ == Cell());
        break;
      case Record::scale1:
        state.read_scale(text, 0);
        break;
      case Record::scale2:
        state.read_scale(text, 1);
        break;
      case Record::scale3:
        state.read_scale(text, 2);
        break;
      case Record::model:
        state.read_model(text);
        break;
      case Record::endmdl:
        state.end_model();
        break;
      case Record::anisou:
        if (standard) state.read_anisou(text);
        break;
      case Record::origx:  // an origin matrix row: not used
      case Record::end:
      case Record::other:
        break;
    }
  }
  if (standard) {
    state.finish_stored_models();
  } else {
    state.finish_model(true);
  }
  PdbResidueBondTyper typer(read_options().mode);
  for (THandle<Molecule> const& molecule : *molecules_) {
    typer.apply(molecule->bonds_begin(), molecule->bonds_end());
    if (standard) detail::complete_residue_bond_orders(*molecule);
  }
}

}  // namespace kora
