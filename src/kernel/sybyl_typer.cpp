// SYBYL typing of a molecule: reading its atoms and bonds into the typer, and the public
// entry points.

#include "kernel/sybyl_typer.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kernel/sybyl_typer_internal.hpp"

namespace kora {
namespace detail {
namespace sybyl {
namespace {

Order order_of(BondType type) {
  switch (type) {
    case unknown_bond:
      return Order::unknown;
    case single_bond:
      return Order::single;
    case double_bond:
      return Order::double_;
    case triple_bond:
      return Order::triple;
    case quadruple_bond:  // MDL files use 4 for aromatic bonds
    case aromatic_bond:
    case delocalised_bond:
      return Order::delocalised;
    default:
      return Order::other;
  }
}

// Elements whose bonds take part in hybridisation: metals are left out so that, for
// instance, a carboxylate oxygen bound to zinc still counts as terminal.
bool is_organic(int z) {
  static constexpr std::array<int, 23> organic{1,  2,  5,  6,  7,  8,  9,  10, 14, 15, 16, 17,
                                               18, 32, 33, 34, 35, 36, 52, 53, 54, 85, 86};
  return std::find(organic.begin(), organic.end(), z) != organic.end();
}

}  // namespace

Typer::Typer(Molecule const& molecule) : n_(molecule.natoms()) {
  z_.resize(n_);
  charge_.resize(n_);
  has_site_.resize(n_);
  pos_.resize(n_);
  organic_.resize(n_);
  connections_.assign(n_, 0);
  for (int i = 0; i < n_; ++i) {
    THandle<Atom> const atom = molecule.atom(i);
    z_[i] = atom->element().atomic_number();
    charge_[i] = atom->formal_charge();
    if (THandle<Site> const site = atom->site()) {
      has_site_[i] = 1;
      pos_[i] = site->orthogonal();
    }
    organic_[i] = is_organic(z_[i]);
    if (z_[i] == hydrogen) explicit_hydrogens_ = true;
  }

  int const m = molecule.nbonds();
  bonds_.resize(m);
  std::vector<int> counts(n_ + 1, 0);
  for (int b = 0; b < m; ++b) {
    auto const [a1, a2] = molecule.bond_atoms(b);
    BondRecord& r = bonds_[b];
    r.a = a1;
    r.b = a2;
    r.order = order_of(molecule.bond(b)->type());
    ++connections_[a1];
    ++connections_[a2];
    if (organic_[a1] && organic_[a2]) {
      ++counts[a1];
      ++counts[a2];
    }
  }
  offset_.assign(n_ + 1, 0);
  for (int i = 0; i < n_; ++i)
    offset_[i + 1] = offset_[i] + counts[i];
  adj_.resize(offset_[n_]);
  std::vector<int> fill(offset_.begin(), offset_.end() - 1);
  for (int b = 0; b < m; ++b) {
    BondRecord const& r = bonds_[b];
    if (!organic_[r.a] || !organic_[r.b]) continue;
    adj_[fill[r.a]++] = {r.b, b};
    adj_[fill[r.b]++] = {r.a, b};
  }
  degree_ = std::move(counts);
  degree_.resize(n_);
  aromatic_.assign(n_, 0);
  aromatic6_.assign(n_, 0);
}

}  // namespace sybyl

SybylTypes sybyl_types(Molecule const& molecule) {
  return sybyl::Typer(molecule).run();
}

}  // namespace detail

std::vector<std::string> Molecule::sybyl_atom_types() const {
  return detail::sybyl_types(*this).atoms;
}

std::vector<std::string> Molecule::sybyl_bond_types() const {
  return detail::sybyl_types(*this).bonds;
}

std::string Molecule::atom_sybyl_type(int i) const {
  if (i < 0 || i >= natoms())
    throw std::out_of_range("Molecule::atom_sybyl_type: atom " + std::to_string(i) +
                            " is outside the molecule");
  return detail::sybyl_types(*this).atoms[static_cast<std::size_t>(i)];
}

std::string Molecule::bond_sybyl_type(int i) const {
  if (i < 0 || i >= nbonds())
    throw std::out_of_range("Molecule::bond_sybyl_type: bond " + std::to_string(i) +
                            " is outside the molecule");
  return detail::sybyl_types(*this).bonds[static_cast<std::size_t>(i)];
}

}  // namespace kora
