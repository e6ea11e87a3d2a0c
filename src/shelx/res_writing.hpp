#pragma once

// What the two RES writers (classic and standard) share: the SHELX lattice numbers, the SYMM
// cards of a space group, the P1 box of a structure without crystal data, and an index of
// the positions already written with all their symmetry images.

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "kora/kernel/cell.hpp"
#include "kora/kernel/details.hpp"
#include "kora/kernel/molecule.hpp"
#include "kora/kernel/symmetry.hpp"

namespace kora::detail {

// SHELX lattice numbers of the centrings: 1 P, 2 I, 3 R, 4 F, 5 A, 6 B, 7 C.
int res_lattice_of(Spacegroup::Centring centring);

// The operators to write as SYMM cards: those of the group that the centring vectors (and,
// when `centric`, the inversion as the classic reader applies it: (R, t) -> (-R, t)) do not
// generate from the identity and the cards before them, in the group's order.
std::vector<CrystalSymmetryOperator> res_symmetry_cards(Spacegroup const& group,
                                                        Spacegroup::Centring centring,
                                                        bool centric);

// A structure without crystal data has the unit cube in P1 as its cell. It is written in a
// P1 box that holds its atoms with 10 angstroms to spare, so that no lattice translation
// brings atoms within bonding distance of each other when the file is read again.
std::optional<Cell> res_box_for(Cell const& cell, std::vector<THandle<Atom>> const& atoms);

// Anisotropic U in the order atom lines give them: U11 U22 U33 U23 U13 U12.
inline std::array<double, 6> res_file_order_u(AtomicDisplacementParameters const& adp) {
  return {adp.u(0, 0), adp.u(1, 1), adp.u(2, 2), adp.u(1, 2), adp.u(0, 2), adp.u(0, 1)};
}

// The shortest text that reads back as the same double.
void append_res_number(std::string& out, double value);

// Writes the structure as the standard writer does (see ResFile::print).
void print_res_standard(std::ostream& os, std::string const& title, Cell const& cell,
                        std::vector<THandle<Atom>> const& atoms, StructureDetails const& details,
                        double default_u);

// Fractional positions already written (with all their images, for the classic writer),
// hashed on a coarse grid so that each new position is compared with its neighbours only. Positions
// carry a tag: a position matches only images of the same tag, within `tolerance` on each axis
// (fractional units, at most 1/100).
class WrittenImages {
 public:
  explicit WrittenImages(std::array<double, 3> const& tolerance) : tolerance_(tolerance) {}

  void add(Point const& p, int tag = 0);
  bool contains(Point const& p, int tag = 0) const;

 private:
  static constexpr int grid = 100;
  using Key = std::array<int, 3>;
  struct Image {
    Point position;
    int tag;
  };
  static Point wrapped(Point p);
  static Key key(Point const& w);

  std::array<double, 3> tolerance_;
  std::multimap<Key, Image> cells_;
};

}  // namespace kora::detail
