#include "kora/mol2/mol2_file.hpp"

#include <cctype>
#include <charconv>
#include <istream>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <unordered_map>

#include "kernel/sybyl_typer.hpp"
#include "kernel/text_cursor.hpp"
#include "kora/kernel/string_functions.hpp"
#include "mol2/mol2_standard.hpp"

namespace kora {

namespace {

template <class T>
std::unique_ptr<T> copy_of(std::unique_ptr<T> const& p) {
  return p ? std::make_unique<T>(*p) : nullptr;
}

bool contains(std::string const& line, char const* text) {
  return line.find(text) != std::string::npos;
}

bool begins_with(std::string const& line, char c) {
  return !line.empty() && line[0] == c;
}

// A word of a SUBSTRUCTURE row that says something: Mol2 writes "****" for an empty field.
bool given(std::string const& field) {
  return !field.empty() && field != "****";
}

// One row of the SUBSTRUCTURE section, as far as the atoms' details need it.
struct SubstructureRow {
  std::string type;
  std::string chain;
  std::string sub_type;
};

std::map<int, SubstructureRow> substructure_rows(std::string const& text) {
  std::map<int, SubstructureRow> rows;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    detail::TextCursor fields(std::string_view(text).substr(start, end - start));
    start = end + 1;
    int id = 0;
    int root = 0;
    int dictionary = 0;
    std::string name;
    SubstructureRow row;
    if (!fields.read(id) || !fields.read(name) || !fields.read(root)) continue;
    (void)(fields.read(row.type) && fields.read(dictionary) && fields.read(row.chain) &&
           fields.read(row.sub_type));
    rows.emplace(id, std::move(row));
  }
  return rows;
}

// Residue name, number and insertion code of a residue substructure named, for instance,
// "ALA12", "HOH-3" or "SER27A": the residue name is the row's sub_type when the name begins
// with it, else the name's leading letters; the number follows it.
void fill_residue(AtomDetails& d, std::string const& name, SubstructureRow const& row) {
  std::string_view rest = name;
  if (given(row.sub_type) && name.compare(0, row.sub_type.size(), row.sub_type) == 0) {
    d.residue_name = row.sub_type;
    rest.remove_prefix(row.sub_type.size());
  } else {
    std::size_t k = 0;
    while (k < rest.size() && !(rest[k] >= '0' && rest[k] <= '9') &&
           !(rest[k] == '-' && k + 1 < rest.size() && rest[k + 1] >= '0' && rest[k + 1] <= '9'))
      ++k;
    d.residue_name = k > 0 || !given(row.sub_type) ? std::string(rest.substr(0, k)) : row.sub_type;
    rest.remove_prefix(k);
  }
  int number = 0;
  auto const [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (ec != std::errc()) return;
  d.residue_number = number;
  std::size_t const used = static_cast<std::size_t>(end - rest.data());
  if (used + 1 == rest.size() && std::isalpha(static_cast<unsigned char>(rest[used])))
    d.insertion_code = rest[used];
}

bool without_charges(std::string const& charge_type) {
  return charge_type.empty() || toupper(charge_type) == "NO_CHARGES";
}

}  // namespace

void Mol2Comment::print(std::ostream& os) const {
  for (std::string const& line : *lines_)
    os << line << '\n';
}

Mol2File::Mol2File(std::string const& file_name) {
  MoleculeFile::read(file_name);
}

Mol2File::Mol2File(Mol2File const& other)
    : MoleculeFile(other),
      molecule_(copy_of(other.molecule_)),
      atoms_(copy_of(other.atoms_)),
      bonds_(copy_of(other.bonds_)),
      substructure_(other.substructure_),
      crysin_(copy_of(other.crysin_)),
      comments_(other.comments_),
      unity_charges_(other.unity_charges_),
      source_(other.source_),
      source_name_(other.source_name_),
      source_types_(other.source_types_) {}

Mol2File& Mol2File::operator=(Mol2File const& other) {
  if (this != &other) *this = Mol2File(other);
  return *this;
}

void Mol2File::clear() {
  molecule_.reset();
  atoms_.reset();
  bonds_.reset();
  crysin_.reset();
  substructure_.clear();
  comments_.clear();
  unity_charges_.clear();
  source_ = THandle<CrystalMaker>();
  source_name_.clear();
  source_types_.reset();
}

void Mol2File::read(std::istream& is) {
  clear();
  THandle<Mol2Comment> comment;
  bool header_seen = false;
  // Within UNITY_ATOM_ATTR: the atom whose attributes follow, and how many are left.
  bool unity = false;
  int unity_atom = 0;
  int unity_left = 0;
  std::string line;
  while (is.good()) {
    kora::getline(is, line);
    if (line.empty() || begins_with(line, '#') || begins_with(line, '*')) {
      if (comment) comment->append(line);
      continue;
    }
    if (line.find('@') != std::string::npos) {
      if (comment) {
        comments_.push_back(comment);
        comment.reset();
      }
      unity = contains(line, "@<TRIPOS>UNITY_ATOM_ATTR");
      if (unity) {
        unity_left = 0;
        continue;
      }
    }
    if (contains(line, "@<TRIPOS>MOLECULE")) {
      if (header_seen) break;
      molecule_ = std::make_unique<Mol2Molecule>(is);
      header_seen = true;
    } else if (contains(line, "@<TRIPOS>ATOM")) {
      if (!molecule_) throw std::runtime_error("Mol2File::read: ATOM field before MOLECULE.");
      atoms_ = std::make_unique<Mol2Atom>();
      atoms_->read(is, molecule_->number_of_atoms(), read_options());
    } else if (contains(line, "@<TRIPOS>BOND")) {
      if (!molecule_) throw std::runtime_error("Mol2File::read: BOND field before MOLECULE.");
      bonds_ = std::make_unique<Mol2Bond>();
      bonds_->read(is, molecule_->number_of_bonds(), read_options());
    } else if (contains(line, "@<TRIPOS>CRYSIN")) {
      crysin_ = std::make_unique<Mol2Crysin>(is);
    } else if (contains(line, "@<TRIPOS>COMMENT")) {
      comment = make_handle<Mol2Comment>();
    } else if (contains(line, "@<TRIPOS>SUBSTRUCTURE")) {
      if (!molecule_) {
        throw std::runtime_error("Mol2File::read: SUBSTRUCTURE field before MOLECULE.");
      }
      get_substructure(is, molecule_->number_of_substructures());
    } else if (comment) {
      comment->append(line);
    } else if (unity) {
      detail::TextCursor fields(line);
      if (unity_left <= 0) {
        int count = 0;
        if (fields.read(unity_atom) && fields.read(count)) unity_left = count;
      } else {
        --unity_left;
        std::string attribute;
        int charge = 0;
        if (fields.read(attribute) && attribute == "charge" && fields.read(charge))
          unity_charges_.emplace_back(unity_atom, charge);
      }
    }
  }
  if (comment) comments_.push_back(comment);
}

void Mol2File::print(std::ostream& os) const {
  if (write_options().standard()) {
    print_standard_(os);
    return;
  }
  if (molecule_) {
    os << "@<TRIPOS>MOLECULE" << '\n';
    molecule_->print(os);
  }
  if (atoms_ && !atoms_->empty()) {
    os << "\n@<TRIPOS>ATOM" << '\n';
    atoms_->print(os);
  }
  if (bonds_ && !bonds_->empty()) {
    os << "\n@<TRIPOS>BOND" << '\n';
    bonds_->print(os);
  }
  if (!substructure_.empty()) os << "\n@<TRIPOS>SUBSTRUCTURE" << '\n' << substructure_;
  if (crysin_) {
    os << "\n@<TRIPOS>CRYSIN" << '\n';
    crysin_->print(os);
  }
  if (comments_.empty()) {
    os << '\n';
  } else {
    for (THandle<Mol2Comment> const& comment : comments_) {
      os << "\n@<TRIPOS>COMMENT" << '\n';
      comment->print(os);
    }
  }
}

void Mol2File::add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) {
  clear();
  bool all_placed = true;
  for (THandle<Atom> const& atom : molecule.atoms())
    all_placed = all_placed && atom->has_site();
  Molecule const* source = &molecule;
  Molecule3d placed;
  if (!all_placed) {
    placed = Molecule3d(molecule);
    placed.remove_atoms([](THandle<Atom> const& atom) { return !atom->has_site(); });
    source = &placed;
  }
  molecule_ = std::make_unique<Mol2Molecule>(*source, identifier.str());
  atoms_ = std::make_unique<Mol2Atom>(*source);
  bonds_ = std::make_unique<Mol2Bond>(*source);
  if (write_options().standard()) {
    auto molecules = make_handle<MoleculeList>();
    molecules->push_back(THandle<Molecule>(make_handle<Molecule3d>(*source)));
    source_ = make_handle<CrystalMaker>(Cell(), molecules, THandle<MoleculeList>(),
                                        THandle<MoleculeList>());
    source_->mutable_details().has_cell = false;
    source_name_ = identifier.str();
  }
}

template <class Structure>
void Mol2File::add_structure_(Structure const& structure, Cell const& cell,
                              DatabaseEntryIdentifier const& identifier) {
  clear();
  if (write_options().standard()) {
    if constexpr (std::is_same_v<Structure, CrystalMaker>) {
      source_ = make_handle<CrystalMaker>(structure);
    } else {
      auto molecules = make_handle<MoleculeList>();
      for (int k = 0; k < structure.nmolecules(); ++k)
        molecules->push_back(structure.molecule(k));
      source_ = make_handle<CrystalMaker>(cell, molecules, THandle<MoleculeList>(),
                                          THandle<MoleculeList>());
    }
    source_name_ = identifier.str();
  }
  std::vector<THandle<MoleculeSubset>> subsets;
  // Each molecule is typed once, for both sections and for printing.
  auto typed = std::make_shared<std::vector<detail::SybylTypes>>();
  std::vector<std::vector<std::string>> atom_types;
  std::vector<std::vector<std::string>> bond_types;
  for (int k = 0; k < structure.nmolecules(); ++k) {
    auto subset = make_handle<MoleculeSubset>(structure.molecule(k));
    subset->select_3d();
    subsets.push_back(subset);
    typed->push_back(detail::sybyl_types(*subset));
    atom_types.push_back(typed->back().atoms);
    bond_types.push_back(typed->back().bonds);
  }
  molecule_ = std::make_unique<Mol2Molecule>(subsets, identifier.str());
  atoms_ = std::make_unique<Mol2Atom>(subsets, atom_types);
  bonds_ = std::make_unique<Mol2Bond>(subsets, bond_types);
  if (source_) source_types_ = std::move(typed);
  crysin_ = std::make_unique<Mol2Crysin>(cell);
  append_substructure_(structure);
}

void Mol2File::add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) {
  add_structure_(maker, maker.cell(), identifier);
}

void Mol2File::add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) {
  add_structure_(crystal, crystal.cell(), identifier);
}

void Mol2File::add(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  if (!maker) THandleCommon::null_handle_error();
  CrystalMaker placed = *maker;  // the entry's own maker stays as it is
  placed.select_3d();
  add(placed, entry.identifier());
}

template <class Structure>
void Mol2File::append_substructure_(Structure const& structure) {
  int first_atom = 1;
  std::string text;
  for (int k = 0; k < structure.nmolecules(); ++k) {
    std::string line = right_justify(int_to_string(k + 1), 6, ' ');
    line += " RES" + int_to_string(k + 1);
    line += right_justify(int_to_string(first_atom), 8, ' ');
    text += line + "\n";
    MoleculeSubset subset(structure.molecule(k));
    subset.select_3d();
    first_atom += subset.natoms();
  }
  if (!text.empty()) text.pop_back();
  substructure_ += text;
}

void Mol2File::set_substructure(CrystalMaker const& maker) {
  append_substructure_(maker);
}
void Mol2File::set_substructure(Crystal const& crystal) {
  append_substructure_(crystal);
}

void Mol2File::get_substructure(std::istream& is, int count) {
  substructure_.clear();
  std::string line;
  for (int i = 0; i < count && is.good(); ++i) {
    kora::getline(is, line);
    substructure_ += line;
    substructure_ += '\n';
  }
}

std::string Mol2File::molecule_name() const {
  if (!molecule_) throw std::runtime_error("No molecule set");
  return molecule_->name();
}

THandle<Cell> Mol2File::cell() const {
  return crysin_ ? make_handle<Cell>(crysin_->cell()) : make_handle<Cell>();
}

THandle<Molecule> Mol2File::molecule() const {
  if (!molecule_ || !atoms_) {
    throw std::runtime_error(
        "Mol2File::molecule: There is no data from which to construct an object");
  }
  THandle<Cell> const c = cell();
  auto const bonds = bonds_ ? bonds_->bonds() : make_handle<std::vector<THandle<BondData>>>();
  auto const atoms = atoms_->atoms(*c);
  fill_details_(*atoms);
  return THandle<Molecule>(make_handle<Molecule3d>(atoms, bonds));
}

THandle<CrystalMaker> Mol2File::crystal_maker() const {
  if (!molecule_ || !atoms_) {
    throw std::runtime_error(
        "Mol2File::crystal_maker: There is no data from which to construct an object");
  }
  auto const bonds = bonds_ ? bonds_->bonds() : make_handle<std::vector<THandle<BondData>>>();
  THandle<Cell> const c = cell();
  auto const atoms = atoms_->atoms(*c);
  fill_details_(*atoms);
  auto const molecules = create_molecules(*atoms, *bonds);
  auto maker =
      make_handle<CrystalMaker>(*c, molecules, THandle<MoleculeList>(), THandle<MoleculeList>());
  fill_details_(maker->mutable_details());
  return maker;
}

void Mol2File::fill_details_(std::vector<THandle<Atom>>& atoms) const {
  auto const& lines = atoms_->lines();
  bool const charges = molecule_ && !without_charges(molecule_->charge_type());
  std::map<int, SubstructureRow> const rows = substructure_rows(substructure_);
  bool const standard = read_options().standard();
  std::unordered_map<int, int> formal;
  if (standard) {
    for (auto const& [id, charge] : unity_charges_)
      formal[id] = charge;
  }
  for (std::size_t i = 0; i < atoms.size() && i < lines.size(); ++i) {
    Mol2AtomLine const& line = *lines[i];
    Atom& atom = *atoms[i];
    if (standard) atom.set_element(detail::mol2_standard_element(line.type(), line.name()));
    if (!formal.empty()) {
      auto const it = formal.find(line.atom_id());
      if (it != formal.end()) atom.set_formal_charge(it->second);
    }
    AtomDetails* d = atom.mutable_details();
    if (!d) continue;
    d->atom_type = line.type();
    d->has_partial_charge = charges && line.has_partial_charge();
    d->partial_charge = d->has_partial_charge ? line.partial_charge() : 0.0;
    if (line.substructure_name().empty()) continue;
    d->substructure_id = line.substructure_id();
    d->substructure_name = line.substructure_name();
    auto const row = rows.find(line.substructure_id());
    if (row == rows.end()) continue;
    if (given(row->second.chain)) d->chain = row->second.chain;
    if (toupper(row->second.type) == "RESIDUE") fill_residue(*d, d->substructure_name, row->second);
  }
}

void Mol2File::fill_details_(StructureDetails& details) const {
  details.source_format = "mol2";
  details.has_cell = static_cast<bool>(crysin_);
  if (molecule_) {
    details.mol2_molecule_type = molecule_->molecule_type();
    details.mol2_charge_type = molecule_->charge_type();
  }
}

void Mol2File::print_standard_(std::ostream& os) const {
  if (source_) {
    detail::print_mol2_standard(os, *source_, source_name_, source_types_.get());
  } else if (molecule_) {
    THandle<CrystalMaker> maker;
    if (atoms_) {
      maker = crystal_maker();
    } else {
      maker = make_handle<CrystalMaker>(*cell(), THandle<MoleculeList>(), THandle<MoleculeList>(),
                                        THandle<MoleculeList>());
      fill_details_(maker->mutable_details());
    }
    detail::print_mol2_standard(os, *maker, molecule_->name());
  }
  for (THandle<Mol2Comment> const& comment : comments_) {
    os << "@<TRIPOS>COMMENT\n";
    comment->print(os);
  }
}

THandle<Crystal> Mol2File::crystal() const {
  return crystal_maker()->create_crystal();
}

THandle<CrystalStructureDatabaseEntry> Mol2File::database_entry() const {
  DatabaseEntryIdentifier identifier;
  if (read_options().standard()) {
    identifier = detail::mol2_entry_identifier(molecule_name());
  } else {
    try {
      identifier = DatabaseEntryIdentifier(molecule_name());
    } catch (std::invalid_argument const&) {
      identifier = DatabaseEntryIdentifier("UNKNWN");
    }
  }
  return THandle<CrystalStructureDatabaseEntry>(
      make_handle<CrystalStructureImmediateDatabaseEntry>(identifier, crystal_maker()));
}

bool Mol2File::operator==(Mol2File const& other) const {
  if (molecule_ && other.molecule_ && !(*molecule_ == *other.molecule_)) return false;
  if (atoms_ && other.atoms_ && !(*atoms_ == *other.atoms_)) return false;
  if (bonds_ && other.bonds_ && !(*bonds_ == *other.bonds_)) return false;
  if (!crysin_ || !other.crysin_) return true;
  return *crysin_ == *other.crysin_;
}

}  // namespace kora
