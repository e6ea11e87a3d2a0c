// SYBYL typing, inference of unknown bond orders: from bond lengths, angles and ring
// planarity where atoms have positions, and from valences where hydrogens are explicit.
// Unambiguous groups (terminal oxygens, guanidinium, flat six-membered rings) are settled
// first, then the remaining multiple bonds are placed greedily and along alternating paths.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <utility>
#include <vector>

#include "kernel/sybyl_typer_internal.hpp"

namespace kora::detail::sybyl {
namespace {

// Bond lengths (angstroms) below which a bond with unknown order is taken as double and
// as triple. Typical values: C=C 1.34, aromatic C-C 1.39, conjugated C-C 1.46; C=N 1.28,
// aromatic C-N 1.34, amide C-N 1.33; C=O 1.21, carboxylate C-O 1.25, ester C-O 1.34;
// C=S 1.67, C-S 1.81; S=O 1.44, S-O 1.58; P=O 1.49, P-O 1.57; nitro N-O 1.22.
struct LengthLimits {
  double double_max = 0.0;
  double triple_max = 0.0;
};

LengthLimits length_limits(int z1, int z2) {
  if (z1 > z2) std::swap(z1, z2);
  if (z1 == carbon && z2 == carbon) return {1.42, 1.25};
  if (z1 == carbon && z2 == nitrogen) return {1.345, 1.20};
  if (z1 == carbon && z2 == oxygen) return {1.30, 1.15};
  if (z1 == carbon && z2 == sulfur) return {1.72, 0.0};
  if (z1 == nitrogen && z2 == nitrogen) return {1.30, 1.16};
  if (z1 == nitrogen && z2 == oxygen) return {1.28, 0.0};
  if (z1 == oxygen && (z2 == phosphorus || z2 == sulfur)) return {1.53, 0.0};
  if (z1 == carbon && z2 == selenium) return {1.86, 0.0};
  return {};
}

double angle_degrees(Point const& a, Point const& centre, Point const& b) {
  Vector<double, 3> const u = a - centre;
  Vector<double, 3> const v = b - centre;
  double const lengths = norm(u) * norm(v);
  if (lengths <= 0.0) return 0.0;
  double const c = std::clamp(dot(u, v) / lengths, -1.0, 1.0);
  return std::acos(c) * 180.0 / std::numbers::pi;
}

double torsion_degrees(Point const& a, Point const& b, Point const& c, Point const& d) {
  Vector<double, 3> const b1 = b - a;
  Vector<double, 3> const b2 = c - b;
  Vector<double, 3> const b3 = d - c;
  Vector<double, 3> const n1 = cross(b1, b2);
  Vector<double, 3> const n2 = cross(b2, b3);
  double const length = norm(b2);
  if (length <= 0.0) return 0.0;
  Vector<double, 3> const m1 = cross(n1, b2 * (1.0 / length));
  return std::atan2(dot(m1, n2), dot(n1, n2)) * 180.0 / std::numbers::pi;
}

}  // namespace

// Whether atom i and all its organic neighbours have positions.
bool Typer::geometry_(int i) const {
  if (!has_site_[i]) return false;
  for (Neighbour const& nb : neighbours_(i))
    if (!has_site_[nb.atom]) return false;
  return true;
}

// The number of pi bonds atom i still needs among its bonds of unknown order: from the
// shape of its neighbours (angles, or the bond length of a terminal atom) where it has
// positions, else from its valence when hydrogens are explicit. 0 when nothing tells.
int Typer::pi_need_(int i) const {
  int const z = z_[i];
  if (z != carbon && z != nitrogen && z != oxygen && z != sulfur && z != selenium) return 0;
  int const d = degree_[i];
  int known = 0;
  bool delocalised = false;
  for (Neighbour const& nb : neighbours_(i)) {
    Order const o = bonds_[nb.bond].order;
    known += o == Order::double_ ? 1 : o == Order::triple ? 2 : 0;
    delocalised = delocalised || o == Order::delocalised;
  }
  known += delocalised ? 1 : 0;

  int need = 0;
  if (geometry_(i)) {
    Neighbour const* const nb = adj_.data() + offset_[i];
    if (d == 1) {
      LengthLimits const limits = length_limits(z, z_[nb[0].atom]);
      double const length = length_(nb[0].bond);
      need = length < limits.triple_max ? 2 : length < limits.double_max ? 1 : 0;
      if (z != carbon && z != nitrogen) need = std::min(need, 1);
    } else if (d == 2 && (z == carbon || z == nitrogen)) {
      double const angle = angle_degrees(pos_[nb[0].atom], pos_[i], pos_[nb[1].atom]);
      // Ring strain closes the angles of small rings, so there a flat five-membered ring,
      // or a bond clearly shorter than single, stands for a trigonal atom (bond lengths
      // then decide which bonds are double).
      bool short_bond = false;
      for (int k = 0; k < 2; ++k)
        short_bond =
            short_bond || length_(nb[k].bond) < length_limits(z, z_[nb[k].atom]).double_max - 0.06;
      double const bent = z == carbon ? 115.5 : 100.0;
      need = angle >= 160.0 ? 2 : angle >= bent || planar5_[i] || short_bond ? 1 : 0;
    } else if (d == 3 && z == carbon) {
      need = angle_sum_(i) > 345.0 ? 1 : 0;
    } else if (d == 3 && z == nitrogen) {
      // A planar nitrogen with a bond clearly shorter than an amide's is an iminium.
      bool short_bond = false;
      for (int k = 0; k < 3; ++k)
        short_bond =
            short_bond || length_(nb[k].bond) < length_limits(z, z_[nb[k].atom]).double_max - 0.03;
      need = short_bond && angle_sum_(i) > 350.0 ? 1 : 0;
    }
  } else if (explicit_hydrogens_) {
    int const valence = z == carbon ? 4 : z == nitrogen ? 3 : 2;
    need = std::min(2, valence - d);
  } else {
    return 0;
  }
  return std::max(0, need - known);
}

// The sum of the three bond angles (degrees) at a three-connected atom with positions:
// 360 when it is planar, about 328 when tetrahedral.
double Typer::angle_sum_(int i) const {
  Neighbour const* const nb = adj_.data() + offset_[i];
  return angle_degrees(pos_[nb[0].atom], pos_[i], pos_[nb[1].atom]) +
         angle_degrees(pos_[nb[0].atom], pos_[i], pos_[nb[2].atom]) +
         angle_degrees(pos_[nb[1].atom], pos_[i], pos_[nb[2].atom]);
}

// Whether every atom of ring r has a position and every torsion angle around the ring is
// within the tolerance (degrees) of zero.
bool Typer::planar_ring_(std::size_t r, double tolerance) const {
  std::vector<int> const& atoms = ring_atoms_[r];
  std::size_t const n = atoms.size();
  for (int const a : atoms)
    if (!has_site_[a]) return false;
  for (std::size_t k = 0; k < n; ++k) {
    double const torsion = torsion_degrees(pos_[atoms[k]], pos_[atoms[(k + 1) % n]],
                                           pos_[atoms[(k + 2) % n]], pos_[atoms[(k + 3) % n]]);
    if (std::abs(torsion) > tolerance) return false;
  }
  return true;
}

void Typer::set_inferred_(int bond, Order order) {
  bonds_[bond].order = order;
  bonds_[bond].inferred = true;
}

// Gives every bond of unknown order an order. Terminal oxygens, guanidinium groups and
// planar six-membered rings are settled first because their shapes are unambiguous; the
// remaining multiple bonds are then placed greedily, shortest (relative to its limit) first.
void Typer::infer_orders_() {
  bool any = false;
  for (BondRecord& r : bonds_) {
    if (r.order != Order::unknown) continue;
    any = true;
    r.basis = explicit_hydrogens_ || (has_site_[r.a] && has_site_[r.b]);
  }
  if (!any) return;
  planar5_.assign(n_, 0);
  for (std::size_t r = 0; r < ring_atoms_.size(); ++r)
    if (ring_atoms_[r].size() == 5 && planar_ring_(r, 12.0))
      for (int const a : ring_atoms_[r])
        planar5_[a] = 1;
  std::vector<int> need(n_, 0);
  for (int i = 0; i < n_; ++i) {
    bool unknown = false;
    for (Neighbour const& nb : neighbours_(i))
      unknown = unknown || bonds_[nb.bond].order == Order::unknown;
    if (unknown) need[i] = pi_need_(i);
  }
  assign_terminal_oxygens_(need);
  assign_guanidinium_(need);
  optional_nitrogen_.assign(n_, 0);
  std::vector<std::size_t> const flat_rings = planar_six_rings_(need);
  assign_multiple_bonds_(need);
  complete_aromatic_rings_(flat_rings);
  for (int b = 0; b < static_cast<int>(bonds_.size()); ++b)
    if (bonds_[b].order == Order::unknown) set_inferred_(b, Order::single);
}

// Terminal oxygens. Two or more on a trigonal carbon (or on a phosphorus) with equal
// lengths are delocalised, as in a carboxylate, even when a poor structure makes them
// long; otherwise a short one is double: the shortest on a carbon or phosphorus, up to two
// on the nitrogen of a nitro group or the sulfur of a sulfonyl group.
void Typer::assign_terminal_oxygens_(std::vector<int>& need) {
  std::vector<std::pair<double, int>> terminal;  // (length, bond)
  for (int x = 0; x < n_; ++x) {
    int const zx = z_[x];
    if ((zx != carbon && zx != nitrogen && zx != sulfur && zx != phosphorus) || !has_site_[x])
      continue;
    if (zx == carbon && need[x] < 1) continue;
    terminal.clear();
    for (Neighbour const& nb : neighbours_(x))
      if (z_[nb.atom] == oxygen && degree_[nb.atom] == 1 && has_site_[nb.atom] &&
          bonds_[nb.bond].order == Order::unknown)
        terminal.emplace_back(length_(nb.bond), nb.bond);
    if (terminal.empty()) continue;
    std::sort(terminal.begin(), terminal.end());
    auto const other_end = [&](int b) { return bonds_[b].a == x ? bonds_[b].b : bonds_[b].a; };
    double const limit = length_limits(zx, oxygen).double_max;
    bool const resonance = (zx == carbon || zx == phosphorus) && terminal.size() >= 2 &&
                           terminal.back().first - terminal[0].first <= 0.05 &&
                           terminal.back().first < limit + 0.06;
    if (resonance) {
      for (auto const& [length, b] : terminal) {
        set_inferred_(b, Order::delocalised);
        need[other_end(b)] = 0;
      }
      need[x] = 0;
      continue;
    }
    std::size_t const doubles = (zx == carbon || zx == phosphorus) ? 1 : 2;
    for (std::size_t k = 0; k < terminal.size() && k < doubles; ++k) {
      if (terminal[k].first >= limit) break;
      set_inferred_(terminal[k].second, Order::double_);
      need[other_end(terminal[k].second)] = 0;
      need[x] = std::max(0, need[x] - 1);
    }
  }
}

// A trigonal carbon bound to three nitrogens by equally short bonds is a guanidinium
// group: its three C-N bonds are delocalised.
void Typer::assign_guanidinium_(std::vector<int>& need) {
  for (int c = 0; c < n_; ++c) {
    if (z_[c] != carbon || degree_[c] != 3 || need[c] < 1 || !has_site_[c]) continue;
    double shortest = 10.0;
    double longest = 0.0;
    bool ok = true;
    for (Neighbour const& nb : neighbours_(c)) {
      if (z_[nb.atom] != nitrogen || bonds_[nb.bond].order != Order::unknown ||
          !has_site_[nb.atom]) {
        ok = false;
        break;
      }
      double const length = length_(nb.bond);
      shortest = std::min(shortest, length);
      longest = std::max(longest, length);
    }
    if (!ok || longest >= 1.38 || longest - shortest > 0.05) continue;
    for (Neighbour const& nb : neighbours_(c)) {
      set_inferred_(nb.bond, Order::delocalised);
      need[nb.atom] = 0;
    }
    need[c] = 0;
  }
}

// Flat six-membered rings of trigonal atoms: carbons and nitrogens that want a pi bond,
// and planar three-connected nitrogens, which may then take a double bond (as in a
// pyridinium). Returns the rings made of carbons and two-connected nitrogens only.
std::vector<std::size_t> Typer::planar_six_rings_(std::vector<int>& need) {
  std::vector<char> trigonal(n_, 0);
  for (int i = 0; i < n_; ++i) {
    if (!geometry_(i) || (z_[i] != carbon && z_[i] != nitrogen)) continue;
    if (z_[i] == carbon || degree_[i] == 2) {
      trigonal[i] = need[i] >= 1;
    } else if (degree_[i] == 3) {
      trigonal[i] = angle_sum_(i) > 350.0 && saturation_(i).doubles == 0;
    }
  }
  std::vector<std::size_t> rings;
  for (std::size_t r = 0; r < ring_atoms_.size(); ++r) {
    std::vector<int> const& atoms = ring_atoms_[r];
    if (atoms.size() != 6) continue;
    bool ok = true;
    for (int const b : ring_bonds_[r])
      ok = ok && bonds_[b].order == Order::unknown && length_(b) < 1.50;
    for (int const a : atoms)
      ok = ok && trigonal[a];
    if (!ok || !planar_ring_(r, 20.0)) continue;
    bool simple = true;
    for (int const a : atoms) {
      if (degree_[a] == 3 && z_[a] == nitrogen) {
        need[a] = 1;
        optional_nitrogen_[a] = 1;
        simple = false;
      }
    }
    if (simple) rings.push_back(r);
  }
  return rings;
}

// Makes aromatic the flat rings of carbons and two-connected nitrogens in which the
// double bonds could not all be placed, unless one of their atoms spends its pi bond
// outside the ring (a ring carbonyl or an exocyclic C=N) other than in a ring made
// aromatic here.
void Typer::complete_aromatic_rings_(std::vector<std::size_t> const& rings) {
  std::vector<char> completed(bonds_.size(), 0);
  for (std::size_t const r : rings) {
    std::vector<int> const& ring = ring_bonds_[r];
    int placed = 0;
    bool outside = false;
    for (int const a : ring_atoms_[r]) {
      for (Neighbour const& nb : neighbours_(a)) {
        Order const o = bonds_[nb.bond].order;
        if (o == Order::unknown || o == Order::single || completed[nb.bond]) continue;
        bool const in_ring = std::find(ring.begin(), ring.end(), nb.bond) != ring.end();
        placed += in_ring && o == Order::double_;
        outside = outside || !in_ring;
      }
    }
    if (outside || placed == 6) continue;  // placed counts each ring double bond twice
    for (int const b : ring) {
      set_inferred_(b, Order::delocalised);
      completed[b] = 1;
    }
  }
}

// Places the remaining double and triple bonds between atoms that still need pi bonds:
// greedily, shortest bond (relative to its length limit) first, then along alternating
// paths so that a poor early choice (a short formal single bond in a ring drawn with odd
// lengths) does not strand two atoms.
void Typer::assign_multiple_bonds_(std::vector<int>& need) {
  Matching matching{need, std::vector<char>(bonds_.size(), 0), std::vector<int>(n_, 0), 0, false};
  std::vector<std::pair<double, int>> candidates;
  for (int b = 0; b < static_cast<int>(bonds_.size()); ++b) {
    BondRecord const& r = bonds_[b];
    if (r.order != Order::unknown || !r.basis || need[r.a] < 1 || need[r.b] < 1) continue;
    if (!organic_[r.a] || !organic_[r.b]) continue;
    double ratio = 1.0;
    if (has_site_[r.a] && has_site_[r.b]) {
      double const limit = length_limits(z_[r.a], z_[r.b]).double_max;
      double const length = length_(b);
      if (length >= limit) continue;
      ratio = length / limit;
    }
    candidates.emplace_back(ratio, b);
    matching.candidate[b] = 1;
  }
  std::sort(candidates.begin(), candidates.end());
  for (auto const& [ratio, b] : candidates) {
    BondRecord const& r = bonds_[b];
    if (need[r.a] < 2 || need[r.b] < 2) continue;
    if (has_site_[r.a] && has_site_[r.b] &&
        length_(b) >= length_limits(z_[r.a], z_[r.b]).triple_max)
      continue;
    set_inferred_(b, Order::triple);
    need[r.a] -= 2;
    need[r.b] -= 2;
  }
  for (auto const& [ratio, b] : candidates) {
    BondRecord const& r = bonds_[b];
    if (r.order != Order::unknown || need[r.a] < 1 || need[r.b] < 1) continue;
    set_inferred_(b, Order::double_);
    --need[r.a];
    --need[r.b];
  }
  // Atoms still short of a double bond: first look for a path ending at another such atom;
  // failing that, for one ending at a nitrogen that may as well carry a hydrogen instead.
  for (bool const shift : {false, true}) {
    matching.shift = shift;
    for (int i = 0; i < n_; ++i) {
      if (need[i] != 1 || optional_(i)) continue;
      ++matching.generation;
      matching.seen[i] = matching.generation;
      if (augment_(matching, i, 0)) --need[i];
    }
  }
}

// A nitrogen that need not get a double bond: a two-connected one in a molecule without
// hydrogens (pyridine-like, or pyrrole-like with a hydrogen), or a planar three-connected
// one in a flat six-membered ring (pyridinium-like, or an amide-like bridgehead).
bool Typer::optional_(int i) const {
  return (!explicit_hydrogens_ && z_[i] == nitrogen && degree_[i] == 2) || optional_nitrogen_[i];
}

// Looks for an alternating path from atom x (which needs a double bond) through candidate
// bonds: single, double, single, ... ending at an atom that needs a double bond (or, when
// shifting, at an optional nitrogen that gives its double bond up), and swaps the orders
// along it. The search is depth-limited and visits each atom once per attempt.
bool Typer::augment_(Matching& matching, int x, int depth) {
  for (Neighbour const& nb : neighbours_(x)) {
    int const y = nb.atom;
    if (!matching.candidate[nb.bond] || bonds_[nb.bond].order != Order::unknown ||
        matching.seen[y] == matching.generation)
      continue;
    matching.seen[y] = matching.generation;
    if (matching.need[y] >= 1) {
      set_inferred_(nb.bond, Order::double_);
      --matching.need[y];
      return true;
    }
    for (Neighbour const& next : neighbours_(y)) {
      int const w = next.atom;
      if (!matching.candidate[next.bond] || bonds_[next.bond].order != Order::double_ ||
          matching.seen[w] == matching.generation)
        continue;
      matching.seen[w] = matching.generation;
      bool const released = matching.shift && optional_(w);
      if (released || (depth < 32 && augment_(matching, w, depth + 1))) {
        bonds_[next.bond].order = Order::unknown;
        bonds_[next.bond].inferred = false;
        if (released) ++matching.need[w];
        set_inferred_(nb.bond, Order::double_);
        return true;
      }
    }
  }
  return false;
}

}  // namespace kora::detail::sybyl
