#include "kernel/sybyl_typer.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kora {
namespace detail {
namespace {

// Bond orders as the typer sees them. Delocalised covers aromatic bonds and resonance
// bonds such as those of a carboxylate; other covers polymeric and pi bonds, which count
// as single for hybridisation and are typed "un".
enum class Order : std::uint8_t { unknown, single, double_, triple, delocalised, other };

constexpr int hydrogen = 1;
constexpr int boron = 5;
constexpr int carbon = 6;
constexpr int nitrogen = 7;
constexpr int oxygen = 8;
constexpr int silicon = 14;
constexpr int phosphorus = 15;
constexpr int sulfur = 16;
constexpr int selenium = 34;

constexpr int max_ring_size = 8;

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

struct Neighbour {
  int atom;
  int bond;
};

struct BondRecord {
  int a = 0;
  int b = 0;
  Order order = Order::unknown;
  bool inferred = false;  // order was unknown and has been inferred
  bool basis = false;     // the inference had lengths or valences to go on
  bool ring = false;      // lies in a cycle
  bool aromatic = false;  // lies in an aromatic ring
};

// Bond counts of one atom over its bonds to organic atoms.
struct Saturation {
  int doubles = 0;
  int triples = 0;
  int delocalised = 0;
  int others = 0;  // single, unknown, polymeric, pi
};

class Typer {
 public:
  explicit Typer(Molecule const& molecule);
  SybylTypes run();

 private:
  // Structure
  void find_ring_bonds_();
  void find_rings_();
  void extend_ring_(int start, int atom, std::vector<int>& atoms, std::vector<int>& bonds,
                    long& budget);

  // Inference of unknown orders
  bool geometry_(int i) const;
  bool planar_ring_(std::size_t r, double tolerance) const;
  double angle_sum_(int i) const;
  int pi_need_(int i) const;
  void infer_orders_();
  void assign_terminal_oxygens_(std::vector<int>& need);
  void assign_guanidinium_(std::vector<int>& need);
  std::vector<std::size_t> planar_six_rings_(std::vector<int>& need);
  void complete_aromatic_rings_(std::vector<std::size_t> const& rings);
  struct Matching {
    std::vector<int>& need;
    std::vector<char> candidate;  // bonds that may become double
    std::vector<int> seen;        // generation in which each atom was last visited
    int generation;
    bool shift;
  };
  void assign_multiple_bonds_(std::vector<int>& need);
  bool optional_(int i) const;
  bool augment_(Matching& matching, int x, int depth);
  void set_inferred_(int bond, Order order);

  // Typing
  void perceive_aromaticity_();
  bool kekule_aromatic_(std::size_t r) const;
  void count_implicit_hydrogens_();
  Saturation saturation_(int i) const;
  bool unsaturated_(int i) const;
  bool amide_partner_(int i) const;
  bool guanidinium_carbon_(int i) const;
  std::string atom_type_(int i) const;
  std::string carbon_type_(int i) const;
  std::string nitrogen_type_(int i) const;
  std::string oxygen_type_(int i) const;
  std::string sulfur_type_(int i) const;
  std::string bond_type_(int b, std::vector<std::string> const& atom_types) const;

  double length_(int b) const { return norm(pos_[bonds_[b].a] - pos_[bonds_[b].b]); }
  auto neighbours_(int i) const {
    return IteratorRange<Neighbour const*>{adj_.data() + offset_[i], adj_.data() + offset_[i + 1]};
  }

  int n_ = 0;
  std::vector<int> z_;  // atomic number, 0 for atoms without an element
  std::vector<int> charge_;
  std::vector<char> has_site_;
  std::vector<Point> pos_;
  std::vector<char> organic_;  // has an element that is not a metal
  std::vector<BondRecord> bonds_;
  std::vector<int> offset_;  // adjacency over organic atoms, in compressed rows
  std::vector<Neighbour> adj_;
  std::vector<int> degree_;       // explicit organic neighbours
  std::vector<int> connections_;  // every bonded neighbour, metals included
  bool explicit_hydrogens_ = false;
  std::vector<std::vector<int>> ring_atoms_;  // rings of up to max_ring_size atoms
  std::vector<std::vector<int>> ring_bonds_;
  std::vector<char> optional_nitrogen_;  // three-connected nitrogen in a flat six-ring
  std::vector<char> planar5_;            // atom in a planar five-membered ring
  std::vector<char> aromatic_;           // atom in an aromatic ring
  std::vector<char> aromatic6_;          // atom in a six-membered aromatic ring
  std::vector<int> valence_degree_;      // organic neighbours plus implicit hydrogens
};

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
// Rings

// Marks the bonds between heavy atoms that lie in a cycle (those that are not bridges), by
// an iterative depth-first search that tracks the lowest discovery time reachable from
// each subtree. Linear in atoms and bonds.
void Typer::find_ring_bonds_() {
  std::vector<int> discovered(n_, -1);
  std::vector<int> low(n_, 0);
  struct Frame {
    int atom;
    int parent_bond;
    int next;
  };
  std::vector<Frame> stack;
  int time = 0;
  for (int root = 0; root < n_; ++root) {
    if (discovered[root] >= 0 || z_[root] == hydrogen) continue;
    discovered[root] = low[root] = time++;
    stack.push_back({root, -1, offset_[root]});
    while (!stack.empty()) {
      Frame& frame = stack.back();
      if (frame.next < offset_[frame.atom + 1]) {
        Neighbour const nb = adj_[frame.next++];
        if (nb.bond == frame.parent_bond || z_[nb.atom] == hydrogen) continue;
        if (discovered[nb.atom] < 0) {
          discovered[nb.atom] = low[nb.atom] = time++;
          stack.push_back({nb.atom, nb.bond, offset_[nb.atom]});
        } else {
          bonds_[nb.bond].ring = true;  // a bond that closes a cycle
          low[frame.atom] = std::min(low[frame.atom], discovered[nb.atom]);
        }
      } else {
        int const child = frame.atom;
        int const parent_bond = frame.parent_bond;
        stack.pop_back();
        if (stack.empty()) break;
        int const parent = stack.back().atom;
        low[parent] = std::min(low[parent], low[child]);
        if (low[child] <= discovered[parent]) bonds_[parent_bond].ring = true;
      }
    }
  }
}

// Lists every cycle of at most max_ring_size atoms made of ring bonds. Each cycle is found
// once, from its lowest-numbered atom and in the direction of its smaller second atom. A
// work budget proportional to the molecule's size bounds the search in cage structures.
void Typer::find_rings_() {
  long budget = 100000L + 2000L * n_;
  std::vector<int> atoms;
  std::vector<int> bonds;
  for (int s = 0; s < n_ && budget > 0; ++s) {
    bool in_ring = false;
    for (Neighbour const& nb : neighbours_(s))
      in_ring = in_ring || bonds_[nb.bond].ring;
    if (!in_ring) continue;
    atoms.assign(1, s);
    bonds.clear();
    extend_ring_(s, s, atoms, bonds, budget);
  }
}

void Typer::extend_ring_(int start, int atom, std::vector<int>& atoms, std::vector<int>& bonds,
                         long& budget) {
  if (--budget < 0) return;
  for (Neighbour const& nb : neighbours_(atom)) {
    if (!bonds_[nb.bond].ring) continue;
    if (nb.atom == start) {
      if (atoms.size() >= 3 && atoms[1] < atoms.back()) {
        ring_atoms_.push_back(atoms);
        ring_bonds_.push_back(bonds);
        ring_bonds_.back().push_back(nb.bond);
      }
      continue;
    }
    if (nb.atom < start || static_cast<int>(atoms.size()) >= max_ring_size ||
        std::find(atoms.begin(), atoms.end(), nb.atom) != atoms.end())
      continue;
    atoms.push_back(nb.atom);
    bonds.push_back(nb.bond);
    extend_ring_(start, nb.atom, atoms, bonds, budget);
    atoms.pop_back();
    bonds.pop_back();
  }
}

// ---------------------------------------------------------------------------------------
// Inference of unknown bond orders

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

}  // namespace

SybylTypes sybyl_types(Molecule const& molecule) {
  return Typer(molecule).run();
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
