#pragma once

/// \file
/// Molecules: the abstract molecule, the concrete Molecule3d that owns its atoms, the
/// MoleculeSubset view, and the functions that split atoms into molecules.

#include <cstddef>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "kora/kernel/atom.hpp"
#include "kora/kernel/bond.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

/// An iterator over a sequence whose elements a virtual accessor produces by position, so
/// that every kind of molecule can be walked the same way. Elements are returned by value
/// (handles are cheap to copy).
template <class T>
class PolymorphicConstIterator {
 public:
  using Access = T (*)(void const* owner, int index);
  using iterator_category = std::random_access_iterator_tag;
  using value_type = T;
  using difference_type = std::ptrdiff_t;
  using pointer = void;
  using reference = T;

  PolymorphicConstIterator() = default;
  PolymorphicConstIterator(void const* owner, int index, Access access)
      : owner_(owner), index_(index), access_(access) {}

  T operator*() const { return access_(owner_, index_); }
  T operator[](difference_type n) const { return access_(owner_, index_ + int(n)); }
  PolymorphicConstIterator& operator++() { return ++index_, *this; }
  PolymorphicConstIterator operator++(int) { return {owner_, index_++, access_}; }
  PolymorphicConstIterator& operator--() { return --index_, *this; }
  PolymorphicConstIterator operator--(int) { return {owner_, index_--, access_}; }
  PolymorphicConstIterator& operator+=(difference_type n) { return index_ += int(n), *this; }
  PolymorphicConstIterator& operator-=(difference_type n) { return index_ -= int(n), *this; }
  friend PolymorphicConstIterator operator+(PolymorphicConstIterator i, difference_type n) {
    return i += n;
  }
  friend PolymorphicConstIterator operator-(PolymorphicConstIterator i, difference_type n) {
    return i -= n;
  }
  friend difference_type operator-(PolymorphicConstIterator const& a,
                                   PolymorphicConstIterator const& b) {
    return a.index_ - b.index_;
  }
  friend bool operator==(PolymorphicConstIterator const& a, PolymorphicConstIterator const& b) {
    return a.owner_ == b.owner_ && a.index_ == b.index_;
  }
  friend auto operator<=>(PolymorphicConstIterator const& a, PolymorphicConstIterator const& b) {
    return a.index_ <=> b.index_;
  }

 private:
  void const* owner_ = nullptr;
  int index_ = 0;
  Access access_ = nullptr;
};

/// The same over a molecule that may be changed through the elements it yields.
template <class T>
class PolymorphicIterator : public PolymorphicConstIterator<T> {
 public:
  using PolymorphicConstIterator<T>::PolymorphicConstIterator;
};

/// A begin/end pair for range-for.
template <class Iterator>
struct IteratorRange {
  Iterator first;
  Iterator last;
  Iterator begin() const { return first; }
  Iterator end() const { return last; }
  std::size_t size() const { return static_cast<std::size_t>(last - first); }
};

namespace detail {

// The bonds of each atom of a molecule in the order they were added, kept in flat arrays so
// that a molecule costs no allocation per atom: per atom its first and last bond slot and
// its number of bonds; per bond one slot for each end, chained to the atom's next slot.
class BondAdjacency {
 public:
  // n atoms without bonds.
  void reset(std::size_t natoms) {
    atoms_.assign(natoms, Links{});
    next_.clear();
  }
  void reserve_bonds(std::size_t nbonds) { next_.reserve(2 * nbonds); }
  void add_atom() { atoms_.push_back(Links{}); }
  // Bond number nbonds() joining two different atoms.
  void add_bond(int atom1, int atom2) {
    int const slot = static_cast<int>(next_.size());
    next_.push_back(-1);
    next_.push_back(-1);
    link_(atom1, slot);
    link_(atom2, slot + 1);
  }
  int nbonds() const { return static_cast<int>(next_.size() / 2); }
  int count(int atom) const { return atoms_[static_cast<std::size_t>(atom)].count; }
  // Calls f(bond) for each bond of the atom, in order.
  template <class F>
  void for_each(int atom, F&& f) const {
    for (int s = atoms_[static_cast<std::size_t>(atom)].first; s >= 0;
         s = next_[static_cast<std::size_t>(s)]) {
      f(s / 2);
    }
  }
  std::vector<int> bonds(int atom) const {
    std::vector<int> out;
    out.reserve(static_cast<std::size_t>(count(atom)));
    for_each(atom, [&out](int b) { out.push_back(b); });
    return out;
  }

 private:
  struct Links {
    int first = -1;
    int last = -1;
    int count = 0;
  };
  void link_(int atom, int slot) {
    Links& l = atoms_[static_cast<std::size_t>(atom)];
    if (l.last >= 0) {
      next_[static_cast<std::size_t>(l.last)] = slot;
    } else {
      l.first = slot;
    }
    l.last = slot;
    ++l.count;
  }

  std::vector<Links> atoms_;
  std::vector<int> next_;
};

}  // namespace detail

class Molecule {
 public:
  virtual ~Molecule() = default;

  virtual int natoms() const = 0;
  /// Atom i, 0 <= i < natoms(); throws std::out_of_range otherwise.
  virtual THandle<Atom> atom(int i) const = 0;
  virtual int nbonds() const = 0;
  /// Bond i, 0 <= i < nbonds(); throws std::out_of_range otherwise.
  virtual THandle<Bond> bond(int i) const = 0;
  /// The positions in this molecule of bond i's two atoms.
  virtual std::pair<int, int> bond_atoms(int i) const = 0;
  /// The positions of the atoms bonded to atom i, one entry per bond.
  virtual std::vector<int> neighbours(int i) const = 0;
  /// The bonds of atom i, by position, in the order of neighbours(i).
  virtual std::vector<int> atom_bonds(int i) const = 0;
  /// The number of bonds of atom i in this molecule.
  virtual int connection_count(int i) const = 0;
  /// Throws std::logic_error naming the operation when the molecule may not be changed.
  virtual void check_editable(char const* operation) const = 0;
  /// Removes every atom for which the predicate holds, with its bonds.
  virtual void remove_atoms(std::function<bool(THandle<Atom> const&)> const& predicate) = 0;
  /// Adds copies of another molecule's atoms and bonds; returns, for each of its atoms, the
  /// position of the copy in this molecule.
  virtual THandle<std::vector<int>> add(Molecule const& other) = 0;

  /// Sum of the atoms' formal charges.
  int formal_charge() const;

  /// SYBYL (Tripos) atom types of all atoms ("C.ar", "N.am", "O.co2", "H", "Du", ...),
  /// assigned from elements, neighbours, bond orders and charges, and from geometry where
  /// bond orders are unknown.
  std::vector<std::string> sybyl_atom_types() const;
  /// SYBYL bond types of all bonds: "1", "2", "3", "ar", "am", "du", "un", "nc".
  std::vector<std::string> sybyl_bond_types() const;
  /// One atom's or one bond's type (each call types the whole molecule: use the plural forms
  /// to type every atom).
  std::string atom_sybyl_type(int i) const;
  std::string bond_sybyl_type(int i) const;

  using AtomConstIterator = PolymorphicConstIterator<THandle<Atom>>;
  using BondConstIterator = PolymorphicConstIterator<THandle<Bond>>;
  using BondIterator = PolymorphicIterator<THandle<Bond>>;

  AtomConstIterator atoms_begin() const { return {this, 0, &atom_at_}; }
  AtomConstIterator atoms_end() const { return {this, natoms(), &atom_at_}; }
  BondConstIterator bonds_begin() const { return {this, 0, &bond_at_}; }
  BondConstIterator bonds_end() const { return {this, nbonds(), &bond_at_}; }
  BondIterator bonds_begin() { return {this, 0, &bond_at_}; }
  BondIterator bonds_end() { return {this, nbonds(), &bond_at_}; }
  IteratorRange<AtomConstIterator> atoms() const { return {atoms_begin(), atoms_end()}; }
  IteratorRange<BondConstIterator> bonds() const { return {bonds_begin(), bonds_end()}; }

 private:
  static THandle<Atom> atom_at_(void const* m, int i) {
    return static_cast<Molecule const*>(m)->atom(i);
  }
  static THandle<Bond> bond_at_(void const* m, int i) {
    return static_cast<Molecule const*>(m)->bond(i);
  }
};

/// A molecule that owns its atoms and bonds. Each atom's index and connection count are
/// kept equal to its position and number of bonds here. Copying copies the atoms.
class Molecule3d : public Molecule {
 public:
  Molecule3d() = default;
  /// A copy with new atoms (and sites) and bonds of the same types.
  explicit Molecule3d(Molecule const& other);
  Molecule3d(Molecule3d const& other);
  Molecule3d& operator=(Molecule3d const& other);
  /// Adopts the given atoms (not copied) and joins them by the index bonds. A bond whose
  /// index lies outside the atom list, or that joins an atom to itself, throws
  /// std::invalid_argument naming the bond.
  Molecule3d(THandle<std::vector<THandle<Atom>>> const& atoms,
             THandle<std::vector<THandle<BondData>>> const& bonds);
  /// The same from plain lists: adopts the atoms and joins them by the bonds.
  Molecule3d(std::vector<THandle<Atom>> atoms, std::vector<BondData> const& bonds);

  int natoms() const override { return static_cast<int>(atoms_.size()); }
  THandle<Atom> atom(int i) const override;
  int nbonds() const override { return static_cast<int>(bonds_.size()); }
  THandle<Bond> bond(int i) const override;
  std::pair<int, int> bond_atoms(int i) const override;
  std::vector<int> neighbours(int i) const override;
  std::vector<int> atom_bonds(int i) const override;
  int connection_count(int i) const override;
  void check_editable(char const*) const override {}
  void remove_atoms(std::function<bool(THandle<Atom> const&)> const& predicate) override;
  THandle<std::vector<int>> add(Molecule const& other) override;

  /// Appends an atom (adopted, not copied) and returns its position.
  int add_atom(THandle<Atom> const& atom);
  /// Joins two atoms by position; throws std::invalid_argument when either is outside the
  /// molecule or they are the same atom. Returns the bond's position.
  int add_bond(int atom1, int atom2, BondType type);

 private:
  struct BondRecord {
    int atom1;
    int atom2;
    THandle<Bond> bond;
  };
  void renumber_();
  void add_bonds_(std::vector<BondData> const& bonds);

  std::vector<THandle<Atom>> atoms_;
  std::vector<BondRecord> bonds_;
  detail::BondAdjacency adjacency_;
};

/// A view of some atoms of a molecule (all of them at first) and the bonds among them. The
/// atoms are shared with the molecule, not copied; the view cannot be edited.
class MoleculeSubset : public Molecule {
 public:
  explicit MoleculeSubset(THandle<Molecule> const& molecule);

  THandle<Molecule> const& parent() const { return parent_; }
  /// Keeps only the selected atoms that have a position (a site).
  void select_3d();
  /// Keeps only the selected atoms for which the predicate holds.
  void select(std::function<bool(THandle<Atom> const&)> const& predicate);
  /// A new Molecule3d with copies of the selected atoms and the bonds among them.
  THandle<Molecule> create_molecule() const;
  /// The position in the parent of atom i of the view.
  int parent_index(int i) const;

  int natoms() const override { return static_cast<int>(atoms_.size()); }
  THandle<Atom> atom(int i) const override;
  int nbonds() const override { return static_cast<int>(bonds_.size()); }
  THandle<Bond> bond(int i) const override;
  std::pair<int, int> bond_atoms(int i) const override;
  std::vector<int> neighbours(int i) const override;
  std::vector<int> atom_bonds(int i) const override;
  int connection_count(int i) const override;
  /// Always throws: a view cannot be edited.
  void check_editable(char const* operation) const override;
  void remove_atoms(std::function<bool(THandle<Atom> const&)> const& predicate) override;
  THandle<std::vector<int>> add(Molecule const& other) override;

 private:
  void rebuild_bonds_();

  THandle<Molecule> parent_;
  std::vector<int> atoms_;                 // positions in the parent
  std::vector<int> position_;              // parent position -> position here, or -1
  std::vector<int> bonds_;                 // bond positions in the parent
  std::vector<std::pair<int, int>> ends_;  // the bonds' atoms, as positions here
  detail::BondAdjacency adjacency_;        // bond positions (here) of each atom
};

/// Splits atoms joined by index bonds into connected molecules (Molecule3d), in the order
/// of their first atoms; every atom lands in exactly one molecule. Bonds with an index
/// outside the list throw std::invalid_argument naming the bond.
THandle<std::vector<THandle<Molecule>>> create_molecules(
    std::vector<THandle<Atom>>& atoms, std::vector<THandle<BondData>> const& bonds);
THandle<std::vector<THandle<Molecule>>> create_molecules(std::vector<THandle<Atom>>& atoms,
                                                         std::vector<BondData> const& bonds);

/// The same, first giving atom i a new site at the orthogonal position points[i] in the
/// cell (its fractional position through the transformation when the handle is not null,
/// else through the cell). Throws std::invalid_argument when there are fewer points than
/// atoms.
THandle<std::vector<THandle<Molecule>>> create_molecules(
    Cell const& cell, std::vector<THandle<Atom>>& atoms,
    std::vector<THandle<BondData>> const& bonds, std::vector<Point>& points,
    THandle<Transformation> const& transformation);
THandle<std::vector<THandle<Molecule>>> create_molecules(
    Cell const& cell, std::vector<THandle<Atom>>& atoms, std::vector<BondData> const& bonds,
    std::vector<Point>& points, THandle<Transformation> const& transformation);

/// Gives every atom with a site its fractional position from the orthogonal one, through
/// the transformation when the handle is not null, else through the cell.
void add_fractional(Cell const& cell, std::vector<THandle<Atom>>& atoms,
                    THandle<Transformation> const& transformation);

}  // namespace kora
