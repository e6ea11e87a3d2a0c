#pragma once

// The SYBYL typer's state, shared by the files that do its work: sybyl_typer.cpp (reading the
// molecule, and the public entry points), sybyl_rings.cpp (ring perception),
// sybyl_bond_orders.cpp (inference of unknown bond orders) and sybyl_atom_types.cpp (the
// order of the steps; aromaticity, implicit hydrogens, atom and bond types).

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kernel/sybyl_typer.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora::detail::sybyl {

// Kept out of the library's exported symbols, like file-local code: the functions are then
// not interposable, so the compiler may inline them within each file.
#pragma GCC visibility push(hidden)

// Bond orders as the typer sees them. Delocalised covers aromatic bonds and resonance
// bonds such as those of a carboxylate; other covers polymeric and pi bonds, which count
// as single for hybridisation and are typed "un".
enum class Order : std::uint8_t { unknown, single, double_, triple, delocalised, other };

inline constexpr int hydrogen = 1;
inline constexpr int boron = 5;
inline constexpr int carbon = 6;
inline constexpr int nitrogen = 7;
inline constexpr int oxygen = 8;
inline constexpr int silicon = 14;
inline constexpr int phosphorus = 15;
inline constexpr int sulfur = 16;
inline constexpr int selenium = 34;

inline constexpr int max_ring_size = 8;

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

#pragma GCC visibility pop

}  // namespace kora::detail::sybyl
