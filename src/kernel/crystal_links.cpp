// Crystal mode: the bonds from each given atom to the images of the others (and of itself)
// under the space group and lattice translations, found through a grid over the unit cell;
// and the given atoms that are symmetry copies of earlier ones, which the molecules then
// reach through their representative's images.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "kernel/crystal_builder.hpp"

namespace kora::detail::bonding {
namespace {

// A given atom placed in the unit cell for the neighbour search.
struct Placed {
  Point wrapped;            // fractional, in [0, 1)
  Vector<double, 3> shift;  // whole numbers: wrapped = fractional position + shift
  int atom;
};

// The cells per axis of a grid over the unit cell for `count` points searched within `reach`
// (fractional half-widths): `per_reach` cells across each reach, at most a few cells per
// point whatever the cell's size.
std::array<std::int64_t, 3> grid_cells(std::size_t count, std::array<double, 3> const& reach,
                                       double per_reach) {
  std::array<std::int64_t, 3> n{};
  std::size_t const limit = 2 * count + 8;
  for (std::size_t a = 0; a < 3; ++a)
    n[a] = std::int64_t(std::clamp(std::floor(per_reach / reach[a]), 1.0, 1e6));
  while (double(n[0]) * double(n[1]) * double(n[2]) > double(limit)) {
    std::int64_t& largest = *std::max_element(n.begin(), n.end());
    largest = (largest + 1) / 2;
  }
  return n;
}

// The given atoms in a dense grid over the unit cell, searched with periodic wrap. Cells a
// third of the search reach wide: where the reach is more than half the cell (small cells,
// long bonds), cells as wide as the reach would make every search visit eight lattice
// translations of every atom, most of them far outside the reach.
class PeriodicGrid {
 public:
  static constexpr double cells_per_reach = 3.0;

  PeriodicGrid(std::vector<Placed> placed, std::array<double, 3> const& reach)
      : n_(grid_cells(placed.size(), reach, cells_per_reach)) {
    std::size_t const cells = std::size_t(n_[0] * n_[1] * n_[2]);
    start_.assign(cells + 1, 0);
    std::vector<std::size_t> cell_of(placed.size());
    for (std::size_t i = 0; i < placed.size(); ++i) {
      cell_of[i] = cell_index_(placed[i].wrapped);
      ++start_[cell_of[i] + 1];
    }
    for (std::size_t c = 0; c < cells; ++c)
      start_[c + 1] += start_[c];
    placed_.resize(placed.size());
    std::vector<std::size_t> next(start_.begin(), start_.end() - 1);
    for (std::size_t i = 0; i < placed.size(); ++i)
      placed_[next[cell_of[i]]++] = placed[i];
  }

  // Calls visit(placed, difference, translation) for every lattice translation of every
  // atom that may lie within `reach` (fractional half-widths, each at most a few cells) of
  // the fractional point x: the candidate's position is placed.wrapped + translation, and
  // difference is that position minus x.
  template <class Visit>
  void visit(Point const& x, std::array<double, 3> const& reach, Visit&& visit) const {
    // Per axis, the cells spanned: wrapped into the grid, and the lattice shift of each.
    // Reach spans at most cells_per_reach cells, or 3 lattice periods of a single cell.
    constexpr std::size_t most = 2 * std::size_t(cells_per_reach) + 3;
    std::array<std::array<std::size_t, most>, 3> index{};
    std::array<std::array<double, most>, 3> shift{};
    std::array<std::size_t, 3> count{};
    Vector<double, 3> base, f;
    for (std::size_t a = 0; a < 3; ++a) {
      base[a] = std::floor(x[a]);
      f[a] = x[a] - base[a];
      auto const lo = std::int64_t(std::floor((f[a] - reach[a]) * double(n_[a])));
      auto const hi = std::int64_t(std::floor((f[a] + reach[a]) * double(n_[a])));
      for (std::int64_t c = lo; c <= hi && count[a] < most; ++c) {
        std::int64_t const wrapped = ((c % n_[a]) + n_[a]) % n_[a];
        index[a][count[a]] = std::size_t(wrapped);
        shift[a][count[a]++] = double((c - wrapped) / n_[a]);
      }
    }
    for (std::size_t i = 0; i < count[0]; ++i)
      for (std::size_t j = 0; j < count[1]; ++j)
        for (std::size_t k = 0; k < count[2]; ++k) {
          std::size_t const cell =
              (index[0][i] * std::size_t(n_[1]) + index[1][j]) * std::size_t(n_[2]) + index[2][k];
          if (start_[cell] == start_[cell + 1]) continue;
          Vector<double, 3> const lattice{shift[0][i], shift[1][j], shift[2][k]};
          Vector<double, 3> const offset = lattice - f;
          for (std::size_t p = start_[cell]; p < start_[cell + 1]; ++p) {
            Placed const& q = placed_[p];
            visit(q, Vector<double, 3>(q.wrapped + offset), lattice + base);
          }
        }
  }

 private:
  std::size_t cell_index_(Point const& w) const {
    std::size_t cell = 0;
    for (std::size_t a = 0; a < 3; ++a) {
      auto const i = std::clamp<std::int64_t>(std::int64_t(w[a] * double(n_[a])), 0, n_[a] - 1);
      cell = cell * std::size_t(n_[a]) + std::size_t(i);
    }
    return cell;
  }

  std::array<std::int64_t, 3> n_{1, 1, 1};
  std::vector<std::size_t> start_;
  std::vector<Placed> placed_;
};

class UnionFind {
 public:
  explicit UnionFind(std::size_t n) : parent_(n) {
    for (std::size_t i = 0; i < n; ++i)
      parent_[i] = int(i);
  }
  int find(int i) {
    while (parent_[std::size_t(i)] != i) {
      parent_[std::size_t(i)] = parent_[std::size_t(parent_[std::size_t(i)])];
      i = parent_[std::size_t(i)];
    }
    return i;
  }
  // The smaller root becomes the root of both.
  void join(int a, int b) {
    a = find(a);
    b = find(b);
    if (a > b) std::swap(a, b);
    parent_[std::size_t(b)] = a;
  }

 private:
  std::vector<int> parent_;
};

// An atom on a special position has the same image under several operations; growing a
// molecule needs each image once. Keeps the first link to each image, in order. Images a
// millionth of the cell apart are one; rounding may keep a repeated one, which costs time,
// not correctness.
void drop_repeated_links(std::vector<Link>& links) {
  using Key = std::array<std::int64_t, 5>;  // atom, rounded image, then the link's place
  std::vector<Key> keys;
  keys.reserve(links.size());
  for (std::size_t l = 0; l < links.size(); ++l) {
    Key key{links[l].atom, 0, 0, 0, std::int64_t(l)};
    for (std::size_t a = 0; a < 3; ++a)
      key[a + 1] = std::int64_t(std::round(links[l].at[a] * 1e6));
    keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end());
  std::vector<bool> repeated(links.size(), false);
  for (std::size_t k = 1; k < keys.size(); ++k)
    if (std::equal(keys[k].begin(), keys[k].begin() + 4, keys[k - 1].begin()))
      repeated[std::size_t(keys[k][4])] = true;
  std::size_t kept = 0;
  for (std::size_t l = 0; l < links.size(); ++l)
    if (!repeated[l]) links[kept++] = links[l];
  links.resize(kept);
}

}  // namespace

// False when some atom bonds to more than max_crystal_neighbours images.
bool CrystalBuilder::find_links_() {
  std::size_t const n = atoms_.size();
  std::vector<Placed> placed;
  for (std::size_t i = 0; i < n; ++i) {
    if (element_class_[i] < 0) continue;
    Point const& f = fractional_[i];
    Vector<double, 3> shift;
    Point wrapped;
    for (std::size_t a = 0; a < 3; ++a) {
      shift[a] = -std::floor(f[a]);
      wrapped[a] = f[a] + shift[a];
    }
    placed.push_back({wrapped, shift, int(i)});
  }
  // The widest search over the operators sets the grid's spacing, so that no search spans
  // more than a few cells along an axis.
  std::array<double, 3> widest{};
  for (auto const& reach : reach_)
    for (std::size_t a = 0; a < 3; ++a)
      widest[a] = std::max(widest[a], reach[a]);
  // Links are kept in the order in which a grid of cells as wide as the reach visits them
  // (cell by cell along the axes, then by atom), whatever grid the search uses: that order
  // decides which of several operations reaching one image is kept, and the order in which
  // molecules grow.
  std::array<std::int64_t, 3> const order_cells = grid_cells(placed.size(), widest, 1.0);
  using OrderKey = std::array<std::int64_t, 4>;
  auto const order_key = [&](Placed const& q, Vector<double, 3> const& lattice) {
    OrderKey key{0, 0, 0, q.atom};
    for (std::size_t a = 0; a < 3; ++a) {
      auto const m = order_cells[a];
      key[a] = std::clamp<std::int64_t>(std::int64_t(q.wrapped[a] * double(m)), 0, m - 1) +
               m * std::int64_t(lattice[a]);
    }
    return key;
  };
  std::vector<std::pair<OrderKey, Link>> in_operator;
  PeriodicGrid const grid(std::move(placed), widest);

  // Every image op(x_j + t) near each atom's given position x_i: bonds, and images so close
  // to x_i that atom i is a symmetry copy of an earlier atom j of the same element (a
  // structure given with more than its asymmetric unit).
  UnionFind same_site(n);
  LinkTable all_links;
  double const search2 = std::pow(std::max(pairs_.largest(), same_position_tolerance), 2);
  double const tolerance2 = copy_tolerance * copy_tolerance;
  // Only an atom elsewhere in the crystal is a copy: atoms on one spot (the split sites of a
  // disordered atom, possibly on a symmetry element) are told apart.
  auto const apart = [&](std::size_t i, std::size_t j) {
    Vector<double, 3> d = fractional_[i] - fractional_[j];
    for (double& v : d)
      v -= std::nearbyint(v);
    for (int a = -1; a <= 1; ++a)
      for (int b = -1; b <= 1; ++b)
        for (int c = -1; c <= 1; ++c)
          if (orthogonal_length_(d + Vector<double, 3>{double(a), double(b), double(c)}) <=
              BondDistanceLimit::minimum_distance)
            return false;
    return true;
  };
  // Each image is found at most once per operation of its site's symmetry (48 at most), so
  // more links than this before repeats are dropped already mean too many images.
  std::size_t const most_found = 48 * max_crystal_neighbours;
  std::vector<Link> found;
  for (std::size_t i = 0; i < n; ++i) {
    all_links.begin_atom();
    int const ci = element_class_[i];
    if (ci < 0) continue;
    found.clear();
    for (std::size_t k = 0; k < operators_.size(); ++k) {
      if (found.size() > most_found) return false;
      Affine const& op = operators_[k];
      Matrix<double, 3, 3> const& metric = orthogonal_rotations_[k];
      Point const y(inverse_rotations_[k] * (fractional_[i] - op.t));
      in_operator.clear();
      grid.visit(
          y, reach_[k],
          [&](Placed const& q, Vector<double, 3> const& difference,
              Vector<double, 3> const& lattice) {
            Vector<double, 3> const v = metric * difference;
            double const d2 = dot(v, v);
            if (!(d2 < search2)) return;
            int const j = q.atom;
            int const cj = element_class_[std::size_t(j)];
            int const pi = part_[i], pj = part_[std::size_t(j)];
            // Atoms of different parts are never copies of each other.
            if (d2 < tolerance2 && j < int(i) && cj == ci && pi == pj && apart(i, std::size_t(j)))
              same_site.join(int(i), j);
            if (pairs_.bonded(ci, cj, d2) && found.size() + in_operator.size() <= most_found) {
              Affine const h{op.r, op.r * (q.shift + lattice) + op.t};
              if ((pi != 0 || pj != 0) && !BondDetector::parts_may_bond(pi, pj, !is_identity(h)))
                return;
              in_operator.push_back(
                  {order_key(q, lattice), {j, h, h(fractional_[std::size_t(j)]), std::sqrt(d2)}});
            }
          });
      std::sort(in_operator.begin(), in_operator.end(),
                [](auto const& a, auto const& b) { return a.first < b.first; });
      for (auto const& entry : in_operator)
        found.push_back(entry.second);
    }
    if (found.size() > most_found) return false;
    drop_repeated_links(found);
    if (found.size() > max_crystal_neighbours) return false;
    for (Link const& link : found)
      all_links.add(link);
  }
  all_links.finish();

  representative_.assign(n, -1);
  orbit_.assign(n, {});
  for (std::size_t i = 0; i < n; ++i) {
    if (element_class_[i] < 0) continue;
    representative_[i] = same_site.find(int(i));
    orbit_[std::size_t(representative_[i])].push_back(int(i));
  }
  // The operation taking each representative onto each of its copies.
  from_representative_.assign(n, Affine{});
  for (std::size_t i = 0; i < n; ++i) {
    if (element_class_[i] < 0 || representative_[i] == int(i)) continue;
    Point const& x = fractional_[std::size_t(representative_[i])];
    for (Affine const& op : operators_) {
      Vector<double, 3> const d = fractional_[i] - op(x);
      Vector<double, 3> const t{std::nearbyint(d[0]), std::nearbyint(d[1]), std::nearbyint(d[2])};
      if (orthogonal_length_(d - t) < 2 * copy_tolerance) {
        from_representative_[i] = {op.r, op.t + t};
        break;
      }
    }
  }
  // Images of a copy are images of its representative, so links to copies are dropped.
  links_ = {};
  for (std::size_t i = 0; i < n; ++i) {
    links_.begin_atom();
    if (representative_[i] != int(i)) continue;
    for (Link const& link : all_links.of(i))
      if (representative_[std::size_t(link.atom)] == link.atom) links_.add(link);
  }
  links_.finish();
  return true;
}

}  // namespace kora::detail::bonding
