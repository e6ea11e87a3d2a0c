#include "kora/kernel/molecule.hpp"

#include "kernel/handle_arena.hpp"

#include <numeric>
#include <stdexcept>
#include <string>

namespace kora {

namespace {

[[noreturn]] void out_of_range(char const* where, int i, int size) {
  throw std::out_of_range(std::string(where) + ": index " + std::to_string(i) + " outside 0.." +
                          std::to_string(size - 1));
}

void check_index(char const* where, int i, int size) {
  if (i < 0 || i >= size) out_of_range(where, i, size);
}

[[noreturn]] void bad_bond(int bond, int atom1, int atom2, int natoms, char const* why) {
  throw std::invalid_argument("bond " + std::to_string(bond) + " between atoms " +
                              std::to_string(atom1) + " and " + std::to_string(atom2) + " " + why +
                              " (molecule of " + std::to_string(natoms) + " atoms)");
}

void check_bond(int bond, int atom1, int atom2, int natoms) {
  if (atom1 < 0 || atom2 < 0 || atom1 >= natoms || atom2 >= natoms) {
    bad_bond(bond, atom1, atom2, natoms, "names an atom outside the molecule");
  }
  if (atom1 == atom2) bad_bond(bond, atom1, atom2, natoms, "joins an atom to itself");
}

}  // namespace

int Molecule::formal_charge() const {
  int total = 0;
  for (THandle<Atom> const& atom : atoms())
    total += atom->formal_charge();
  return total;
}

// Molecule3d

Molecule3d::Molecule3d(Molecule const& other) {
  atoms_.reserve(static_cast<std::size_t>(other.natoms()));
  add(other);
}

Molecule3d::Molecule3d(Molecule3d const& other) : Molecule3d(static_cast<Molecule const&>(other)) {}

Molecule3d& Molecule3d::operator=(Molecule3d const& other) {
  if (this != &other) {
    Molecule3d copy(other);
    atoms_ = std::move(copy.atoms_);
    bonds_ = std::move(copy.bonds_);
    adjacency_ = std::move(copy.adjacency_);
  }
  return *this;
}

Molecule3d::Molecule3d(THandle<std::vector<THandle<Atom>>> const& atoms,
                       THandle<std::vector<THandle<BondData>>> const& bonds) {
  if (atoms) {
    atoms_.reserve(atoms->size());
    for (THandle<Atom> const& atom : *atoms) {
      if (!atom) {
        throw std::invalid_argument("Molecule3d: atom " + std::to_string(atoms_.size()) +
                                    " is a null handle");
      }
      atoms_.push_back(atom);
    }
  }
  adjacency_.reset(atoms_.size());
  if (bonds) {
    std::vector<BondData> values;
    values.reserve(bonds->size());
    for (THandle<BondData> const& b : *bonds) {
      if (!b) {
        throw std::invalid_argument("Molecule3d: bond " + std::to_string(values.size()) +
                                    " is null");
      }
      values.push_back(*b);
    }
    add_bonds_(values);
  }
  renumber_();
}

Molecule3d::Molecule3d(std::vector<THandle<Atom>> atoms, std::vector<BondData> const& bonds)
    : atoms_(std::move(atoms)) {
  for (std::size_t i = 0; i < atoms_.size(); ++i) {
    if (!atoms_[i]) {
      throw std::invalid_argument("Molecule3d: atom " + std::to_string(i) + " is a null handle");
    }
  }
  adjacency_.reset(atoms_.size());
  add_bonds_(bonds);
  renumber_();
}

void Molecule3d::add_bonds_(std::vector<BondData> const& bonds) {
  bonds_.reserve(bonds_.size() + bonds.size());
  adjacency_.reserve_bonds(bonds_.size() + bonds.size());
  detail::HandleArena<Bond> made(bonds.size());
  for (BondData const& b : bonds) {
    check_bond(nbonds(), b.atom1(), b.atom2(), natoms());
    std::size_t const a1 = static_cast<std::size_t>(b.atom1());
    std::size_t const a2 = static_cast<std::size_t>(b.atom2());
    bonds_.push_back({b.atom1(), b.atom2(), made.make(atoms_[a1], atoms_[a2], b.type())});
    adjacency_.add_bond(b.atom1(), b.atom2());
  }
}

THandle<Atom> Molecule3d::atom(int i) const {
  check_index("Molecule3d::atom", i, natoms());
  return atoms_[static_cast<std::size_t>(i)];
}

THandle<Bond> Molecule3d::bond(int i) const {
  check_index("Molecule3d::bond", i, nbonds());
  return bonds_[static_cast<std::size_t>(i)].bond;
}

std::pair<int, int> Molecule3d::bond_atoms(int i) const {
  check_index("Molecule3d::bond_atoms", i, nbonds());
  BondRecord const& b = bonds_[static_cast<std::size_t>(i)];
  return {b.atom1, b.atom2};
}

std::vector<int> Molecule3d::atom_bonds(int i) const {
  check_index("Molecule3d::atom_bonds", i, natoms());
  return adjacency_.bonds(i);
}

std::vector<int> Molecule3d::neighbours(int i) const {
  check_index("Molecule3d::neighbours", i, natoms());
  std::vector<int> out;
  out.reserve(static_cast<std::size_t>(adjacency_.count(i)));
  adjacency_.for_each(i, [&](int b) {
    BondRecord const& r = bonds_[static_cast<std::size_t>(b)];
    out.push_back(r.atom1 == i ? r.atom2 : r.atom1);
  });
  return out;
}

int Molecule3d::connection_count(int i) const {
  check_index("Molecule3d::connection_count", i, natoms());
  return adjacency_.count(i);
}

int Molecule3d::add_atom(THandle<Atom> const& atom) {
  if (!atom) throw std::invalid_argument("Molecule3d::add_atom: null atom");
  atoms_.push_back(atom);
  adjacency_.add_atom();
  atom->set_index(natoms() - 1);
  atom->set_connection_count_(0);
  return natoms() - 1;
}

int Molecule3d::add_bond(int atom1, int atom2, BondType type) {
  check_bond(nbonds(), atom1, atom2, natoms());
  THandle<Atom> const& a = atoms_[static_cast<std::size_t>(atom1)];
  THandle<Atom> const& b = atoms_[static_cast<std::size_t>(atom2)];
  bonds_.push_back({atom1, atom2, make_handle<Bond>(a, b, type)});
  int const k = nbonds() - 1;
  adjacency_.add_bond(atom1, atom2);
  a->set_connection_count_(connection_count(atom1));
  b->set_connection_count_(connection_count(atom2));
  return k;
}

void Molecule3d::renumber_() {
  for (std::size_t i = 0; i < atoms_.size(); ++i) {
    atoms_[i]->set_index(static_cast<int>(i));
    atoms_[i]->set_connection_count_(adjacency_.count(static_cast<int>(i)));
  }
}

void Molecule3d::remove_atoms(std::function<bool(THandle<Atom> const&)> const& predicate) {
  check_editable("remove_atoms");
  std::vector<int> position(atoms_.size(), -1);
  std::vector<THandle<Atom>> kept;
  for (std::size_t i = 0; i < atoms_.size(); ++i) {
    if (predicate(atoms_[i])) continue;
    position[i] = static_cast<int>(kept.size());
    kept.push_back(atoms_[i]);
  }
  if (kept.size() == atoms_.size()) return;
  std::vector<BondRecord> old_bonds = std::move(bonds_);
  atoms_ = std::move(kept);
  bonds_.clear();
  adjacency_.reset(atoms_.size());
  for (BondRecord const& b : old_bonds) {
    int const p1 = position[static_cast<std::size_t>(b.atom1)];
    int const p2 = position[static_cast<std::size_t>(b.atom2)];
    if (p1 < 0 || p2 < 0) continue;
    bonds_.push_back({p1, p2, b.bond});
    adjacency_.add_bond(p1, p2);
  }
  renumber_();
}

THandle<std::vector<int>> Molecule3d::add(Molecule const& other) {
  check_editable("add");
  auto map = make_handle<std::vector<int>>();
  map->reserve(static_cast<std::size_t>(other.natoms()));
  // Read everything first, so that adding a molecule to itself copies it once.
  int const n = other.natoms();
  int const m = other.nbonds();
  std::vector<THandle<Atom>> copies;
  copies.reserve(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i)
    copies.push_back(other.atom(i)->clone());
  std::vector<std::pair<std::pair<int, int>, BondType>> bonds;
  bonds.reserve(static_cast<std::size_t>(m));
  for (int k = 0; k < m; ++k)
    bonds.push_back({other.bond_atoms(k), other.bond(k)->type()});
  for (THandle<Atom> const& copy : copies)
    map->push_back(add_atom(copy));
  for (auto const& [ends, type] : bonds) {
    add_bond((*map)[static_cast<std::size_t>(ends.first)],
             (*map)[static_cast<std::size_t>(ends.second)], type);
  }
  return map;
}

// MoleculeSubset

MoleculeSubset::MoleculeSubset(THandle<Molecule> const& molecule) : parent_(molecule) {
  if (!parent_) throw std::invalid_argument("MoleculeSubset: null molecule");
  atoms_.resize(static_cast<std::size_t>(parent_->natoms()));
  std::iota(atoms_.begin(), atoms_.end(), 0);
  rebuild_bonds_();
}

void MoleculeSubset::select(std::function<bool(THandle<Atom> const&)> const& predicate) {
  std::vector<int> kept;
  kept.reserve(atoms_.size());
  for (int p : atoms_) {
    if (predicate(parent_->atom(p))) kept.push_back(p);
  }
  atoms_ = std::move(kept);
  rebuild_bonds_();
}

void MoleculeSubset::select_3d() {
  select([](THandle<Atom> const& atom) { return atom->has_site(); });
}

void MoleculeSubset::rebuild_bonds_() {
  position_.assign(static_cast<std::size_t>(parent_->natoms()), -1);
  for (std::size_t i = 0; i < atoms_.size(); ++i) {
    position_[static_cast<std::size_t>(atoms_[i])] = static_cast<int>(i);
  }
  bonds_.clear();
  ends_.clear();
  adjacency_.reset(atoms_.size());
  int const m = parent_->nbonds();
  for (int k = 0; k < m; ++k) {
    auto const [a, b] = parent_->bond_atoms(k);
    int const p1 = position_[static_cast<std::size_t>(a)];
    int const p2 = position_[static_cast<std::size_t>(b)];
    if (p1 < 0 || p2 < 0) continue;
    bonds_.push_back(k);
    ends_.emplace_back(p1, p2);
    adjacency_.add_bond(p1, p2);
  }
}

THandle<Molecule> MoleculeSubset::create_molecule() const {
  return THandle<Molecule>(make_handle<Molecule3d>(static_cast<Molecule const&>(*this)));
}

int MoleculeSubset::parent_index(int i) const {
  check_index("MoleculeSubset::parent_index", i, natoms());
  return atoms_[static_cast<std::size_t>(i)];
}

THandle<Atom> MoleculeSubset::atom(int i) const {
  return parent_->atom(parent_index(i));
}

THandle<Bond> MoleculeSubset::bond(int i) const {
  check_index("MoleculeSubset::bond", i, nbonds());
  return parent_->bond(bonds_[static_cast<std::size_t>(i)]);
}

std::pair<int, int> MoleculeSubset::bond_atoms(int i) const {
  check_index("MoleculeSubset::bond_atoms", i, nbonds());
  return ends_[static_cast<std::size_t>(i)];
}

std::vector<int> MoleculeSubset::atom_bonds(int i) const {
  check_index("MoleculeSubset::atom_bonds", i, natoms());
  return adjacency_.bonds(i);
}

std::vector<int> MoleculeSubset::neighbours(int i) const {
  check_index("MoleculeSubset::neighbours", i, natoms());
  std::vector<int> out;
  out.reserve(static_cast<std::size_t>(adjacency_.count(i)));
  adjacency_.for_each(i, [&](int b) {
    auto const [p1, p2] = ends_[static_cast<std::size_t>(b)];
    out.push_back(p1 == i ? p2 : p1);
  });
  return out;
}

int MoleculeSubset::connection_count(int i) const {
  check_index("MoleculeSubset::connection_count", i, natoms());
  return adjacency_.count(i);
}

void MoleculeSubset::check_editable(char const* operation) const {
  throw std::logic_error(std::string("MoleculeSubset::") + operation +
                         ": a molecule subset cannot be edited");
}

void MoleculeSubset::remove_atoms(std::function<bool(THandle<Atom> const&)> const&) {
  check_editable("remove_atoms");
}

THandle<std::vector<int>> MoleculeSubset::add(Molecule const&) {
  check_editable("add");
  return {};
}

// Splitting into molecules

namespace {

std::vector<BondData> bond_values(std::vector<THandle<BondData>> const& bonds) {
  std::vector<BondData> out;
  out.reserve(bonds.size());
  for (std::size_t k = 0; k < bonds.size(); ++k) {
    if (!bonds[k])
      throw std::invalid_argument("create_molecules: bond " + std::to_string(k) + " is null");
    out.push_back(*bonds[k]);
  }
  return out;
}

void place_atoms(Cell const& cell, std::vector<THandle<Atom>>& atoms, std::vector<Point>& points,
                 THandle<Transformation> const& transformation) {
  if (points.size() < atoms.size()) {
    throw std::invalid_argument("create_molecules: " + std::to_string(points.size()) +
                                " positions for " + std::to_string(atoms.size()) + " atoms");
  }
  detail::HandleArena<Site> sites(atoms.size());
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    Point const& p = points[i];
    Point const fractional = transformation ? (*transformation)(p) : cell.fractional(p);
    atoms[i]->set_site(sites.make(fractional, p, 1.0));
  }
}

}  // namespace

THandle<std::vector<THandle<Molecule>>> create_molecules(
    std::vector<THandle<Atom>>& atoms, std::vector<THandle<BondData>> const& bonds) {
  return create_molecules(atoms, bond_values(bonds));
}

THandle<std::vector<THandle<Molecule>>> create_molecules(std::vector<THandle<Atom>>& atoms,
                                                         std::vector<BondData> const& bonds) {
  int const n = static_cast<int>(atoms.size());
  // Union-find over the atoms; each root ends as the smallest index of its component.
  std::vector<int> parent(atoms.size());
  std::iota(parent.begin(), parent.end(), 0);
  auto find = [&](int x) {
    while (parent[static_cast<std::size_t>(x)] != x) {
      int& p = parent[static_cast<std::size_t>(x)];
      p = parent[static_cast<std::size_t>(p)];
      x = p;
    }
    return x;
  };
  for (std::size_t k = 0; k < bonds.size(); ++k) {
    check_bond(static_cast<int>(k), bonds[k].atom1(), bonds[k].atom2(), n);
    int const r1 = find(bonds[k].atom1());
    int const r2 = find(bonds[k].atom2());
    if (r1 != r2) parent[static_cast<std::size_t>(std::max(r1, r2))] = std::min(r1, r2);
  }
  auto molecules = make_handle<std::vector<THandle<Molecule>>>();
  bool connected = n > 0;
  for (int i = 0; i < n && connected; ++i)
    connected = find(i) == 0;
  if (connected) {
    // One component: the atoms keep their positions.
    molecules->push_back(THandle<Molecule>(make_handle<Molecule3d>(atoms, bonds)));
    return molecules;
  }
  // Components in the order of their first atoms; positions of atoms inside them.
  std::vector<int> component(atoms.size(), -1);
  std::vector<int> position(atoms.size(), 0);
  std::vector<std::vector<THandle<Atom>>> members;
  for (int i = 0; i < n; ++i) {
    int const root = find(i);
    int& c = component[static_cast<std::size_t>(root)];
    if (c < 0) {
      c = static_cast<int>(members.size());
      members.emplace_back();
    }
    component[static_cast<std::size_t>(i)] = c;
    auto& list = members[static_cast<std::size_t>(c)];
    position[static_cast<std::size_t>(i)] = static_cast<int>(list.size());
    list.push_back(atoms[static_cast<std::size_t>(i)]);
  }
  std::vector<std::vector<BondData>> member_bonds(members.size());
  for (BondData const& b : bonds) {
    std::size_t const a1 = static_cast<std::size_t>(b.atom1());
    std::size_t const a2 = static_cast<std::size_t>(b.atom2());
    member_bonds[static_cast<std::size_t>(component[a1])].emplace_back(position[a1], position[a2],
                                                                       b.type());
  }
  molecules->reserve(members.size());
  for (std::size_t c = 0; c < members.size(); ++c) {
    molecules->push_back(
        THandle<Molecule>(make_handle<Molecule3d>(std::move(members[c]), member_bonds[c])));
  }
  return molecules;
}

THandle<std::vector<THandle<Molecule>>> create_molecules(
    Cell const& cell, std::vector<THandle<Atom>>& atoms,
    std::vector<THandle<BondData>> const& bonds, std::vector<Point>& points,
    THandle<Transformation> const& transformation) {
  std::vector<BondData> const values = bond_values(bonds);
  place_atoms(cell, atoms, points, transformation);
  return create_molecules(atoms, values);
}

THandle<std::vector<THandle<Molecule>>> create_molecules(
    Cell const& cell, std::vector<THandle<Atom>>& atoms, std::vector<BondData> const& bonds,
    std::vector<Point>& points, THandle<Transformation> const& transformation) {
  place_atoms(cell, atoms, points, transformation);
  return create_molecules(atoms, bonds);
}

void add_fractional(Cell const& cell, std::vector<THandle<Atom>>& atoms,
                    THandle<Transformation> const& transformation) {
  for (THandle<Atom> const& atom : atoms) {
    if (!atom || !atom->has_site()) continue;
    THandle<Site> const site = atom->site();
    Point const& p = site->orthogonal();
    site->set_fractional(transformation ? (*transformation)(p) : cell.fractional(p));
  }
}

}  // namespace kora
