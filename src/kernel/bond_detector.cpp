// Bond detection among atoms at their own positions (molecular mode): pairs within bonding
// distance found through a spatial grid, then sorted into bonds; and the public entry points
// of BondDetector, which hand crystal mode to CrystalBuilder (crystal_builder.hpp).

#include "kora/kernel/bond_detector.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "kernel/bond_detection.hpp"
#include "kernel/crystal_builder.hpp"

namespace kora {

double BondDistanceLimit::maximum_distance(Element const& a, Element const& b) const {
  if (!a.is_set() || !b.is_set()) return 0.0;
  double const sum = a.covalent_radius() + b.covalent_radius();
  double const limit = relative_ ? sum * (1.0 + tolerance_) : sum + tolerance_;
  return limit > 0.0 ? limit : 0.0;  // a negative or NaN limit bonds nothing
}

namespace detail::bonding {
namespace {

// ---------------------------------------------------------------------------------------
// Pairs within bonding distance among points in space, through a grid of cubic cells as wide
// as the longest possible bond: a pair can only lie in one cell or two neighbouring ones, and
// each pair of neighbouring cells is visited once (a cell with itself and with 13 of its 26
// neighbours). The grid is a dense array over the bounding box when that is compact, else a
// hash table of the occupied cells, so memory follows the number of points whatever their
// spread.

struct Located {
  Point position;
  int element_class;
  int index;  // in the caller's list
};

using CellKey = std::array<std::int64_t, 3>;

// The occupied cells of a sparse grid, by their integer coordinates (open addressing).
class CellTable {
 public:
  explicit CellTable(std::size_t points)
      : mask_(std::bit_ceil(std::max<std::size_t>(2 * points, 16)) - 1), slots_(mask_ + 1) {}

  // The cell of a key, or -1.
  int find(CellKey const& key) const {
    for (std::size_t s = hash_(key) & mask_;; s = (s + 1) & mask_) {
      Slot const& slot = slots_[s];
      if (slot.cell < 0 || same_(slot.key, key)) return slot.cell;
    }
  }
  // The cell of a key, added when new. At most as many cells as points are ever added, so
  // the table stays at most half full.
  int insert(CellKey const& key) {
    std::size_t s = hash_(key) & mask_;
    for (; slots_[s].cell >= 0; s = (s + 1) & mask_)
      if (same_(slots_[s].key, key)) return slots_[s].cell;
    slots_[s] = {key, int(keys_.size())};
    keys_.push_back(key);
    return slots_[s].cell;
  }
  std::size_t size() const { return keys_.size(); }
  CellKey const& key(int cell) const { return keys_[std::size_t(cell)]; }

 private:
  struct Slot {
    CellKey key{};
    int cell = -1;
  };
  static bool same_(CellKey const& a, CellKey const& b) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
  }
  static std::size_t hash_(CellKey const& k) {
    std::uint64_t h = std::uint64_t(k[0]) * 0x9E3779B97F4A7C15ULL;
    h ^= std::uint64_t(k[1]) * 0xC2B2AE3D27D4EB4FULL;
    h ^= std::uint64_t(k[2]) * 0x165667B19E3779F9ULL;
    h ^= h >> 29;
    return std::size_t(h * 0xBF58476D1CE4E5B9ULL >> 16);
  }

  std::size_t mask_;
  std::vector<Slot> slots_;
  std::vector<CellKey> keys_;
};

// The pairs (lower index, higher index) of points that count as bonded, unordered.
std::vector<std::pair<int, int>> close_pairs(std::vector<Located> const& points,
                                             ElementPairs const& pairs) {
  std::vector<std::pair<int, int>> found;
  double const width = pairs.largest();
  if (points.size() < 2 || !(width > BondDistanceLimit::minimum_distance)) return found;

  // A few points (the atoms of two residues, a small molecule): every pair is cheaper to
  // test than a grid is to build, and pairs farther apart than the width never bond.
  constexpr std::size_t few = 40;
  if (points.size() <= few) {
    for (std::size_t a = 0; a < points.size(); ++a) {
      for (std::size_t b = a + 1; b < points.size(); ++b) {
        Located const& p = points[a];
        Located const& q = points[b];
        double const dx = p.position[0] - q.position[0], dy = p.position[1] - q.position[1],
                     dz = p.position[2] - q.position[2];
        if (pairs.bonded(p.element_class, q.element_class, dx * dx + dy * dy + dz * dz))
          found.emplace_back(std::min(p.index, q.index), std::max(p.index, q.index));
      }
    }
    return found;
  }

  // Cell coordinates from absolute positions, clamped to what an int64 holds exactly. Points
  // beyond the clamp share edge cells; neighbours stay in the same or adjacent cells, so no
  // pair is lost. (An infinite width puts everything in one cell.)
  constexpr double key_limit = 9007199254740992.0;  // 2^53
  std::size_t const n = points.size();
  std::vector<CellKey> keys(n);
  CellKey low{}, high{};
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t a = 0; a < 3; ++a) {
      double const q = std::clamp(std::floor(points[i].position[a] / width), -key_limit, key_limit);
      keys[i][a] = std::int64_t(q);
      low[a] = i == 0 ? keys[i][a] : std::min(low[a], keys[i][a]);
      high[a] = i == 0 ? keys[i][a] : std::max(high[a], keys[i][a]);
    }
  }
  // A dense array of cells over the atoms' bounding box when that has at most a few cells per
  // atom (compact structures, the usual case: neighbouring cells are then near in memory),
  // otherwise a hash table of the occupied cells.
  std::array<std::int64_t, 3> extent{};
  double volume = 1.0;
  for (std::size_t a = 0; a < 3; ++a) {
    volume *= double(high[a] - low[a]) + 1.0;
    extent[a] = high[a] - low[a] + 1;
  }
  bool const dense =
      volume <= std::min(4.0 * double(n) + 64.0, double(std::numeric_limits<int>::max()));
  auto const dense_cell = [&](CellKey const& key) -> int {
    std::int64_t c = 0;
    for (std::size_t a = 0; a < 3; ++a) {
      std::int64_t const k = key[a] - low[a];
      if (k < 0 || k >= extent[a]) return -1;
      c = c * extent[a] + k;
    }
    return int(c);
  };
  std::optional<CellTable> table;
  if (!dense) table.emplace(n);
  std::vector<int> cell_of(n);
  for (std::size_t i = 0; i < n; ++i)
    cell_of[i] = dense ? dense_cell(keys[i]) : table->insert(keys[i]);
  keys = {};

  // Points sorted by cell, in flat arrays for the inner loop.
  std::size_t const cells = dense ? std::size_t(volume) : table->size();
  std::vector<std::size_t> start(cells + 1, 0);
  for (int c : cell_of)
    ++start[std::size_t(c) + 1];
  for (std::size_t c = 0; c < cells; ++c)
    start[c + 1] += start[c];
  std::vector<double> x(n), y(n), z(n);
  std::vector<int> element(n), index(n);
  {
    std::vector<std::size_t> next(start.begin(), start.end() - 1);
    for (std::size_t i = 0; i < n; ++i) {
      std::size_t const k = next[std::size_t(cell_of[i])]++;
      x[k] = points[i].position[0];
      y[k] = points[i].position[1];
      z[k] = points[i].position[2];
      element[k] = points[i].element_class;
      index[k] = points[i].index;
    }
  }

  auto const test = [&](std::size_t a, std::size_t b) {
    double const dx = x[a] - x[b], dy = y[a] - y[b], dz = z[a] - z[b];
    if (pairs.bonded(element[a], element[b], dx * dx + dy * dy + dz * dz))
      found.emplace_back(std::min(index[a], index[b]), std::max(index[a], index[b]));
  };

  static constexpr std::array<std::array<int, 3>, 13> forward = {{{1, -1, -1},
                                                                  {1, -1, 0},
                                                                  {1, -1, 1},
                                                                  {1, 0, -1},
                                                                  {1, 0, 0},
                                                                  {1, 0, 1},
                                                                  {1, 1, -1},
                                                                  {1, 1, 0},
                                                                  {1, 1, 1},
                                                                  {0, 1, -1},
                                                                  {0, 1, 0},
                                                                  {0, 1, 1},
                                                                  {0, 0, 1}}};
  for (std::size_t c = 0; c < cells; ++c) {
    std::size_t const begin = start[c], end = start[c + 1];
    if (begin == end) continue;
    for (std::size_t a = begin; a < end; ++a)
      for (std::size_t b = a + 1; b < end; ++b)
        test(a, b);
    CellKey key;
    if (dense) {
      std::size_t rest = c;
      for (std::size_t a = 3; a-- > 0;) {
        key[a] = low[a] + std::int64_t(rest % std::size_t(extent[a]));
        rest /= std::size_t(extent[a]);
      }
    } else {
      key = table->key(int(c));
    }
    for (auto const& offset : forward) {
      CellKey const near{key[0] + offset[0], key[1] + offset[1], key[2] + offset[2]};
      int const other = dense ? dense_cell(near) : table->find(near);
      if (other < 0) continue;
      for (std::size_t a = begin; a < end; ++a)
        for (std::size_t b = start[std::size_t(other)]; b < start[std::size_t(other) + 1]; ++b)
          test(a, b);
    }
  }
  return found;
}

}  // namespace

// Sorts pairs by first then second index in linear time (indexes below `count`).
void sort_pairs(std::vector<std::pair<int, int>>& pairs, std::size_t count) {
  std::vector<std::size_t> start(count + 1, 0);
  for (auto const& p : pairs)
    ++start[std::size_t(p.first) + 1];
  for (std::size_t i = 0; i < count; ++i)
    start[i + 1] += start[i];
  std::vector<std::pair<int, int>> sorted(pairs.size());
  std::vector<std::size_t> next(start.begin(), start.end() - 1);
  for (auto const& p : pairs)
    sorted[next[std::size_t(p.first)]++] = p;
  for (std::size_t i = 0; i < count; ++i)
    std::sort(sorted.begin() + std::ptrdiff_t(start[i]),
              sorted.begin() + std::ptrdiff_t(start[i + 1]));
  pairs = std::move(sorted);
}

// The bonds as handles that share one allocation (each keeps the whole block alive): a large
// result is then several times cheaper to make and to free than with one object per bond.
THandle<std::vector<THandle<BondData>>> bond_handles(
    std::vector<std::pair<int, int>> const& pairs) {
  auto block = std::make_shared<std::vector<BondData>>();
  block->reserve(pairs.size());
  for (auto const& [i, j] : pairs)
    block->emplace_back(i, j, unknown_bond);
  auto handles = make_handle<std::vector<THandle<BondData>>>();
  handles->reserve(pairs.size());
  for (BondData& bond : *block)
    handles->emplace_back(std::shared_ptr<BondData>(block, &bond));
  return handles;
}

}  // namespace detail::bonding

using detail::bonding::bond_handles;
using detail::bonding::close_pairs;
using detail::bonding::CrystalBuilder;
using detail::bonding::ElementPairs;
using detail::bonding::finite;
using detail::bonding::Located;
using detail::bonding::part_of;
using detail::bonding::sort_pairs;

THandle<std::vector<THandle<BondData>>> BondDetector::bonds(
    std::vector<THandle<Atom>> const& atoms) const {
  ElementPairs pairs(limit_);
  std::vector<Located> points;
  points.reserve(atoms.size());
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    Atom const* atom = atoms[i].get();
    if (!atom || !atom->site()) continue;
    Point const& p = atom->site()->orthogonal();
    if (!finite(p)) continue;
    int const element_class = pairs.add(atom->element());
    if (element_class >= 0) points.push_back({p, element_class, int(i)});
  }
  pairs.finish();
  std::vector<std::pair<int, int>> found = close_pairs(points, pairs);
  if (separate_parts_) {
    std::erase_if(found, [&](std::pair<int, int> const& p) {
      return !parts_may_bond(part_of(*atoms[std::size_t(p.first)]),
                             part_of(*atoms[std::size_t(p.second)]), false);
    });
  }
  sort_pairs(found, atoms.size());

  if (refinement_ == prune_hydrogens) detail::bonding::prune_hydrogen_pairs(found, atoms);

  return bond_handles(found);
}

THandle<std::vector<THandle<Molecule>>> BondDetector::molecules(std::vector<THandle<Atom>>& atoms,
                                                                Cell const& cell) const {
  if (detection_ == crystal) {
    CrystalBuilder builder(atoms, cell, *this);
    if (builder.prepare()) {
      if (auto built = builder.build()) return built;
    }
  }
  return create_molecules(atoms, *bonds(atoms));
}

}  // namespace kora
