// SYBYL typing: the order of the steps (rings, bond orders, then, here, aromatic rings,
// implicit hydrogens and the type of each atom and bond). The loops over atoms and bonds stay
// in the file of the functions they call, so that these can be inlined.

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "kernel/sybyl_typer_internal.hpp"

namespace kora::detail::sybyl {

SybylTypes Typer::run() {
  find_ring_bonds_();
  find_rings_();
  infer_orders_();
  perceive_aromaticity_();
  count_implicit_hydrogens_();

  SybylTypes types;
  types.atoms.reserve(n_);
  for (int i = 0; i < n_; ++i)
    types.atoms.push_back(atom_type_(i));
  types.bonds.reserve(bonds_.size());
  for (int b = 0; b < static_cast<int>(bonds_.size()); ++b)
    types.bonds.push_back(bond_type_(b, types.atoms));
  return types;
}

// ---------------------------------------------------------------------------------------
// Aromaticity and hydrogens

// Rings whose bonds are all delocalised are aromatic. So are six-membered rings of carbons
// and nitrogens in which every atom has exactly one double bond, lying either in the ring
// or in an aromatic ring fused to it (the Kekule forms of benzene, pyridine, naphthalene).
void Typer::perceive_aromaticity_() {
  std::vector<char> done(ring_atoms_.size(), 0);
  auto const mark = [&](std::size_t r) {
    done[r] = 1;
    for (int const b : ring_bonds_[r])
      bonds_[b].aromatic = true;
    for (int const a : ring_atoms_[r]) {
      aromatic_[a] = 1;
      if (ring_atoms_[r].size() == 6) aromatic6_[a] = 1;
    }
  };
  for (std::size_t r = 0; r < ring_atoms_.size(); ++r) {
    bool all = true;
    for (int const b : ring_bonds_[r])
      all = all && bonds_[b].order == Order::delocalised;
    if (all) mark(r);
  }
  // Kekule rings, from a work list: a ring that becomes aromatic may complete the rings
  // fused to it, which are checked again.
  std::vector<std::vector<std::size_t>> rings_of(n_);
  std::vector<std::size_t> work;
  for (std::size_t r = 0; r < ring_atoms_.size(); ++r) {
    if (done[r] || ring_atoms_[r].size() != 6) continue;
    for (int const a : ring_atoms_[r])
      rings_of[a].push_back(r);
    work.push_back(r);
  }
  std::reverse(work.begin(), work.end());
  while (!work.empty()) {
    std::size_t const r = work.back();
    work.pop_back();
    if (done[r] || !kekule_aromatic_(r)) continue;
    mark(r);
    for (int const a : ring_atoms_[r])
      for (std::size_t const fused : rings_of[a])
        if (!done[fused]) work.push_back(fused);
  }
}

// Whether every atom of six-membered ring r is a carbon or nitrogen with exactly one double
// bond that lies in the ring or in an aromatic ring, or is already aromatic through a fused
// ring without any double bond. Ring bonds are single, double or aromatic.
bool Typer::kekule_aromatic_(std::size_t r) const {
  std::vector<int> const& ring = ring_bonds_[r];
  for (int const b : ring) {
    Order const o = bonds_[b].order;
    if (o != Order::single && o != Order::double_ &&
        !(o == Order::delocalised && bonds_[b].aromatic))
      return false;
  }
  for (int const a : ring_atoms_[r]) {
    if (z_[a] != carbon && z_[a] != nitrogen) return false;
    int doubles = 0;
    bool placed = false;
    for (Neighbour const& nb : neighbours_(a)) {
      Order const o = bonds_[nb.bond].order;
      if (o == Order::triple || (o == Order::delocalised && !bonds_[nb.bond].aromatic))
        return false;
      if (o != Order::double_) continue;
      ++doubles;
      placed =
          bonds_[nb.bond].aromatic || std::find(ring.begin(), ring.end(), nb.bond) != ring.end();
    }
    if (!(doubles == 1 && placed) && !(doubles == 0 && aromatic_[a])) return false;
  }
  return true;
}

// Hydrogens that a molecule without any explicit hydrogen leaves implicit, from the usual
// valences (adjusted by the formal charge) less the bond orders.
void Typer::count_implicit_hydrogens_() {
  valence_degree_.assign(degree_.begin(), degree_.end());
  if (explicit_hydrogens_) return;
  for (int i = 0; i < n_; ++i) {
    Saturation const s = saturation_(i);
    int const bonded =
        s.others + 2 * s.doubles + 3 * s.triples + s.delocalised + (s.delocalised + 1) / 2;
    int const q = charge_[i];
    int valence = 0;
    switch (z_[i]) {
      case boron:
        valence = 3;
        break;
      case carbon:
      case silicon:
        valence = q == 0 ? 4 : 3;
        break;
      case nitrogen:
        valence = 3 + q;
        break;
      case oxygen:
        valence = 2 + q;
        break;
      case phosphorus:
        valence = bonded > 3 ? 5 : 3;
        break;
      case sulfur:
      case selenium:
        valence = bonded > 4 ? 6 : bonded > 2 ? 4 : 2 + q;
        break;
      case 9:
      case 17:
      case 35:
      case 53:
        valence = 1;
        break;
      default:
        break;
    }
    valence_degree_[i] += std::max(0, valence - bonded);
  }
}

Saturation Typer::saturation_(int i) const {
  Saturation s;
  for (Neighbour const& nb : neighbours_(i)) {
    switch (bonds_[nb.bond].order) {
      case Order::double_:
        ++s.doubles;
        break;
      case Order::triple:
        ++s.triples;
        break;
      case Order::delocalised:
        ++s.delocalised;
        break;
      default:
        ++s.others;
        break;
    }
  }
  return s;
}

// Whether atom i takes part in a multiple, delocalised or aromatic bond.
bool Typer::unsaturated_(int i) const {
  if (aromatic_[i]) return true;
  Saturation const s = saturation_(i);
  return s.doubles + s.triples + s.delocalised > 0;
}

// The atom an amide nitrogen hangs on: a non-aromatic carbon doubly bound to oxygen, or a
// sulfur doubly bound to two oxygens (sulfonamides are amides in SYBYL typing, with "am"
// bonds). Thioamide nitrogens are planar (N.pl3), not amide nitrogens.
bool Typer::amide_partner_(int i) const {
  if (aromatic_[i] || (z_[i] != carbon && z_[i] != sulfur)) return false;
  int oxo = 0;
  for (Neighbour const& nb : neighbours_(i))
    oxo += bonds_[nb.bond].order == Order::double_ && z_[nb.atom] == oxygen;
  return z_[i] == carbon ? oxo >= 1 : oxo >= 2;
}

// A carbon bound to exactly three nitrogens and carrying the positive charge of the
// group: its C-N bonds are delocalised, a charge sits on it or a nitrogen, or its C=N
// nitrogen has three connections (an iminium).
bool Typer::guanidinium_carbon_(int i) const {
  if (valence_degree_[i] != 3 || degree_[i] != 3) return false;
  int delocalised = 0;
  int charge = charge_[i];
  bool iminium = false;
  for (Neighbour const& nb : neighbours_(i)) {
    if (z_[nb.atom] != nitrogen || aromatic_[nb.atom]) return false;
    Order const o = bonds_[nb.bond].order;
    if (o == Order::triple) return false;
    delocalised += o == Order::delocalised;
    charge += charge_[nb.atom];
    iminium = iminium || (o == Order::double_ && valence_degree_[nb.atom] == 3);
  }
  return delocalised >= 2 || charge > 0 || iminium;
}

// ---------------------------------------------------------------------------------------
// Atom types

std::string Typer::atom_type_(int i) const {
  switch (z_[i]) {
    case 0:
      return "Du";
    case hydrogen:
      return "H";
    case carbon:
      return carbon_type_(i);
    case nitrogen:
      return nitrogen_type_(i);
    case oxygen:
      return oxygen_type_(i);
    case sulfur:
      return sulfur_type_(i);
    case phosphorus:
      return "P.3";
    case 24:  // chromium: octahedral with five or more ligands, else tetrahedral
      return connections_[i] >= 5 ? "Cr.oh" : "Cr.th";
    case 27:
      return "Co.oh";
    default:
      return Element(z_[i]).symbol();
  }
}

std::string Typer::carbon_type_(int i) const {
  if (aromatic_[i]) return "C.ar";
  if (guanidinium_carbon_(i)) return "C.cat";
  Saturation const s = saturation_(i);
  if (s.triples > 0 || s.doubles >= 2) return "C.1";
  if (s.doubles == 1 || s.delocalised > 0) return "C.2";
  if (charge_[i] > 0 && valence_degree_[i] == 3) return "C.cat";
  return "C.3";
}

std::string Typer::nitrogen_type_(int i) const {
  int const d = valence_degree_[i];
  Saturation const s = saturation_(i);
  if (aromatic_[i]) return d == 2 || aromatic6_[i] ? "N.ar" : "N.pl3";
  if (d >= 4 && s.doubles + s.triples + s.delocalised == 0) return "N.4";
  if (s.triples > 0 || (s.doubles >= 2 && d == 2)) return "N.1";
  if (s.doubles > 0) return d >= 3 ? "N.pl3" : "N.2";
  if (s.delocalised > 0) return "N.pl3";
  bool conjugated = false;
  bool amide = false;
  for (Neighbour const& nb : neighbours_(i)) {
    if (z_[nb.atom] == hydrogen) continue;
    conjugated = conjugated || unsaturated_(nb.atom);
    amide = amide || amide_partner_(nb.atom);
  }
  if (d == 3) return amide ? "N.am" : conjugated ? "N.pl3" : "N.3";
  // Two connections and no multiple bond: with every hydrogen present this is an anion,
  // planar when conjugated.
  if (d == 2 && conjugated) return "N.2";
  return "N.3";
}

std::string Typer::oxygen_type_(int i) const {
  Saturation const s = saturation_(i);
  if (valence_degree_[i] == 1 && degree_[i] == 1) {
    // Two or more terminal oxygens sharing a resonance on a carbon (a carboxylate: double
    // or delocalised bonds and single or delocalised bonds to oxygens without hydrogen) are
    // O.co2, and so are oxygens delocalised onto phosphorus.
    int const x = adj_[offset_[i]].atom;
    Order const o = bonds_[adj_[offset_[i]].bond].order;
    if (o == Order::delocalised && z_[x] == phosphorus) return "O.co2";
    if (z_[x] == carbon && !aromatic_[x]) {
      int terminal = 0;
      bool multiple = false;
      bool single = false;
      for (Neighbour const& nb : neighbours_(x)) {
        if (z_[nb.atom] != oxygen || valence_degree_[nb.atom] != 1) continue;
        Order const to = bonds_[nb.bond].order;
        ++terminal;
        multiple = multiple || to == Order::double_ || to == Order::delocalised;
        single = single || to == Order::single || to == Order::delocalised;
      }
      if (terminal >= 2 && multiple && single) return "O.co2";
    }
    if (o == Order::delocalised) return "O.2";
  }
  if (s.doubles > 0 || s.triples > 0) return "O.2";
  return "O.3";
}

std::string Typer::sulfur_type_(int i) const {
  Saturation const s = saturation_(i);
  int oxo = 0;
  for (Neighbour const& nb : neighbours_(i)) {
    Order const o = bonds_[nb.bond].order;
    oxo += z_[nb.atom] == oxygen && valence_degree_[nb.atom] == 1 &&
           (o == Order::double_ || o == Order::delocalised);
  }
  if (oxo >= 2) return "S.O2";
  if (oxo == 1) return "S.O";
  if (s.doubles > 0 || aromatic_[i]) return "S.2";
  return "S.3";
}

// ---------------------------------------------------------------------------------------
// Bond types

std::string Typer::bond_type_(int b, std::vector<std::string> const& atom_types) const {
  BondRecord const& r = bonds_[b];
  if (z_[r.a] == 0 || z_[r.b] == 0) return "du";
  if (r.order == Order::other) return "un";
  if (r.inferred && !r.basis) return "un";
  // The bond of an amide nitrogen to its carbonyl carbon or sulfonyl sulfur.
  for (auto const& [n, c] : {std::pair{r.a, r.b}, std::pair{r.b, r.a}})
    if (atom_types[n] == "N.am" && amide_partner_(c)) return "am";
  if (r.aromatic) return "ar";
  switch (r.order) {
    case Order::double_:
      return "2";
    case Order::triple:
      return "3";
    case Order::delocalised:
      return "ar";
    default:
      return "1";
  }
}

}  // namespace kora::detail::sybyl
