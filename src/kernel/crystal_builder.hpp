#pragma once

// Crystal mode of bond detection: the symmetry operations on fractional coordinates, the
// bonds from each given atom to symmetry images, and CrystalBuilder, which grows whole
// molecules from the given atoms. Its work is spread over crystal_preparation.cpp (checking
// the cell and operators), crystal_links.cpp (bonds to images and symmetry copies among the
// given atoms), hydrogen_pruning.cpp and crystal_builder.cpp (growing the molecules).

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <unordered_map>
#include <vector>

#include "kernel/bond_detection.hpp"
#include "kora/kernel/bond_detector.hpp"

namespace kora::detail::bonding {

// Kept out of the library's exported symbols, like file-local code: the functions are then
// not interposable, so the compiler may inline them within each file.
#pragma GCC visibility push(hidden)

// Two positions of the same atom closer than this (angstroms) are the same position: an atom
// on a special position reached through two operators, or a translation of itself.
inline constexpr double same_position_tolerance = 0.05;
// A given atom this close (angstroms) to an image of an earlier one of the same element is a
// copy of it, as when a whole molecule is given where the asymmetric unit holds half of it.
// Tighter than the above: the alternative positions of a disordered group can lie within a
// few hundredths of an angstrom of each other's images and must stay apart.
inline constexpr double copy_tolerance = 0.01;
// The largest fractional coordinate taken in crystal mode: beyond it whole lattice
// translations can no longer be told apart to a small fraction of an angstrom.
inline constexpr double max_fractional = 1e6;
// The most images an atom may bond to in crystal mode. Real atoms have a dozen neighbours or
// so, twice that among the split sites of disorder; hundreds mean images packed closer than
// matter allows (a cell far too small for its contents), and growing molecules from them
// would cost time and memory in proportion for nothing of use.
inline constexpr std::size_t max_crystal_neighbours = 64;

// x -> r x + t on fractional coordinates: a space group operator combined with a lattice
// translation, or a product of them.
struct Affine {
  Matrix<int, 3, 3> r = Matrix<int, 3, 3>::identity();
  Vector<double, 3> t;

  Point operator()(Point const& p) const { return Point(r * p + t); }
};

inline bool is_identity(Affine const& g) {
  return g.r == Matrix<int, 3, 3>::identity() && g.t[0] == 0.0 && g.t[1] == 0.0 && g.t[2] == 0.0;
}

inline Affine compose(Affine const& outer, Affine const& inner) {
  return {outer.r * inner.r, outer.r * inner.t + outer.t};
}

// The inverse of an integer matrix of determinant +1 or -1 (then itself integer); false
// for any other matrix.
inline bool invert(Matrix<int, 3, 3> const& m, Matrix<int, 3, 3>& inverse) {
  int const det = determinant(m);
  if (det != 1 && det != -1) return false;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      // cofactor of (j, i), over the determinant
      std::size_t const r0 = (j + 1) % 3, r1 = (j + 2) % 3, c0 = (i + 1) % 3, c1 = (i + 2) % 3;
      inverse(i, j) = (m(r0, c0) * m(r1, c1) - m(r0, c1) * m(r1, c0)) * det;
    }
  return true;
}

// A bond from an atom at its given position to the image h(x) of atom `atom` at `at`.
struct Link {
  int atom;
  Affine h;
  Point at;
  double distance;
};

// Links grouped by the atom they start from, in one array; atoms are filled in order.
class LinkTable {
 public:
  void begin_atom() { start_.push_back(links_.size()); }
  void add(Link const& link) { links_.push_back(link); }
  void finish() { start_.push_back(links_.size()); }
  std::span<Link const> of(std::size_t atom) const {
    return {links_.data() + start_[atom], links_.data() + start_[atom + 1]};
  }

 private:
  std::vector<std::size_t> start_;
  std::vector<Link> links_;
};

// Grows the molecules of a crystal from the given atoms.
class CrystalBuilder {
 public:
  CrystalBuilder(std::vector<THandle<Atom>>& atoms, Cell const& cell, BondDetector const& detector)
      : atoms_(atoms), cell_(cell), detector_(detector), pairs_(detector.limit()) {}

  // False when the cell cannot hold a crystal: not valid, much narrower than a bond in some
  // direction (every atom would bond to its own lattice translations), or with operators
  // that do not make a space group.
  bool prepare();
  // Null when some atom bonds to more than max_crystal_neighbours images.
  THandle<std::vector<THandle<Molecule>>> build();

 private:
  struct Member {
    int atom;  // the representative given atom of which this is an image
    Affine g;  // position = g(fractional position of `atom`)
    Point fractional;
    int given;  // the given atom placed here, or -1 for a new copy
  };

  // Written out over a copy of the matrix: the hottest arithmetic in growing a molecule.
  double orthogonal_length_(Vector<double, 3> const& fractional_difference) const {
    auto const& m = to_orthogonal_;
    double const x = fractional_difference[0], y = fractional_difference[1],
                 z = fractional_difference[2];
    double const u = m[0] * x + m[1] * y + m[2] * z, v = m[3] * x + m[4] * y + m[5] * z,
                 w = m[6] * x + m[7] * y + m[8] * z;
    return std::sqrt(u * u + v * v + w * w);
  }
  bool same_position_(Vector<double, 3> const& fractional_difference) const {
    // A cheap test first: a fractional component this large is already too far.
    for (std::size_t a = 0; a < 3; ++a)
      if (!(std::fabs(fractional_difference[a]) <= same_position_reach_[a])) return false;
    return orthogonal_length_(fractional_difference) < same_position_tolerance;
  }
  bool operators_form_a_group_() const;
  bool find_links_();
  void prune_hydrogens_();
  int given_at_(int atom, Point const& p) const;
  int member_at_(int atom, Point const& p, Affine const& outer, Affine const& inner);
  std::array<int, 3> bucket_of_(Point const& p) const;
  static std::uint64_t bucket_key_(int atom, std::array<int, 3> const& bucket);
  void move_to_given_();
  THandle<Molecule> grow_(int start);

  std::vector<THandle<Atom>>& atoms_;
  Cell const& cell_;
  std::array<double, 9> to_orthogonal_{};  // the cell's, row by row
  BondDetector const& detector_;
  ElementPairs pairs_;

  std::vector<Affine> operators_;  // the space group's, with their inverse rotations below
  std::vector<Matrix<int, 3, 3>> inverse_rotations_;
  std::vector<Matrix<double, 3, 3>> orthogonal_rotations_;  // M R: orthogonal lengths of R d
  std::vector<int> element_class_;  // per given atom; -1 when it takes no part
  std::vector<int> part_;           // per given atom: its disorder part, 0 unless separated
  std::vector<Point> fractional_;
  std::vector<int> representative_;           // smallest given atom at a symmetry-equivalent site
  std::vector<std::vector<int>> orbit_;       // per representative: the given atoms it stands for
  std::vector<Affine> from_representative_;   // per given atom: x = this(x of representative)
  LinkTable links_;                           // per representative
  std::vector<std::array<double, 3>> reach_;  // per operator: fractional search half-widths
  // The largest fractional component of a vector shorter than same_position_tolerance.
  std::array<double, 3> same_position_reach_{};
  std::vector<bool> covered_;     // per representative
  std::vector<bool> given_used_;  // per given atom
  std::size_t copies_left_ = 0;

  // The molecule being grown.
  std::vector<Member> members_;
  // Members by representative and by the cell of a grid over the unit cell, each grid cell
  // wider than same_position_reach_: the members at a position are found in the few grid
  // cells around it, however large the molecule.
  std::array<int, 3> buckets_{1, 1, 1};  // grid cells per axis
  std::unordered_map<std::uint64_t, int> first_in_bucket_;
  std::vector<int> next_in_bucket_;  // per member
  std::deque<int> given_queue_, copy_queue_;
};

#pragma GCC visibility pop

}  // namespace kora::detail::bonding
