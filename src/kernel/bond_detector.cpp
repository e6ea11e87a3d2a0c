#include "kora/kernel/bond_detector.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>

namespace kora {

double BondDistanceLimit::maximum_distance(Element const& a, Element const& b) const {
  if (!a.is_set() || !b.is_set()) return 0.0;
  double const sum = a.covalent_radius() + b.covalent_radius();
  double const limit = relative_ ? sum * (1.0 + tolerance_) : sum + tolerance_;
  return limit > 0.0 ? limit : 0.0;  // a negative or NaN limit bonds nothing
}

namespace {

constexpr double minimum_distance_squared =
    BondDistanceLimit::minimum_distance * BondDistanceLimit::minimum_distance;
// Two positions of the same atom closer than this (angstroms) are the same position: an atom
// on a special position reached through two operators, or a translation of itself.
constexpr double same_position_tolerance = 0.05;
// A given atom this close (angstroms) to an image of an earlier one of the same element is a
// copy of it, as when a whole molecule is given where the asymmetric unit holds half of it.
// Tighter than the above: the alternative positions of a disordered group can lie within a
// few hundredths of an angstrom of each other's images and must stay apart.
constexpr double copy_tolerance = 0.01;
// The largest fractional coordinate taken in crystal mode: beyond it whole lattice
// translations can no longer be told apart to a small fraction of an angstrom.
constexpr double max_fractional = 1e6;
// The most images an atom may bond to in crystal mode. Real atoms have a dozen neighbours or
// so, twice that among the split sites of disorder; hundreds mean images packed closer than
// matter allows (a cell far too small for its contents), and growing molecules from them
// would cost time and memory in proportion for nothing of use.
constexpr std::size_t max_crystal_neighbours = 64;

// Squared bond limits between the elements that occur, by a small class number per element,
// so that the inner loops read one table instead of two radii and a tolerance.
class ElementPairs {
 public:
  explicit ElementPairs(BondDistanceLimit const& limit) : limit_(limit) { class_.fill(-1); }

  // The class of an element, adding it when new; -1 for the unset element.
  int add(Element const& element) {
    int const code = element.kora_code();
    if (!element.is_set() || code < 0 || code >= int(class_.size())) return -1;
    if (class_[std::size_t(code)] < 0) {
      class_[std::size_t(code)] = int(elements_.size());
      elements_.push_back(element);
    }
    return class_[std::size_t(code)];
  }

  // Fills the table once every element has been added.
  void finish() {
    std::size_t const n = elements_.size();
    squared_.assign(n * n, 0.0);
    largest_ = 0.0;
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j) {
        double const d = limit_.maximum_distance(elements_[i], elements_[j]);
        squared_[i * n + j] = d * d;
        largest_ = std::max(largest_, d);
      }
  }

  double squared(int a, int b) const {
    return squared_[std::size_t(a) * elements_.size() + std::size_t(b)];
  }
  // The longest bond possible between any two of the elements.
  double largest() const { return largest_; }
  bool bonded(int a, int b, double distance_squared) const {
    return distance_squared > minimum_distance_squared && distance_squared < squared(a, b);
  }

 private:
  BondDistanceLimit limit_;
  std::array<int, Element::deuterium_code + 1> class_{};
  std::vector<Element> elements_;
  std::vector<double> squared_;
  double largest_ = 0.0;
};

int part_of(Atom const& atom) {
  AtomDetails const* details = atom.details();
  return details ? details->part : 0;
}

bool finite(Point const& p) {
  return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

double squared_norm(Vector<double, 3> const& v) {
  return dot(v, v);
}

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

// ---------------------------------------------------------------------------------------
// Crystal mode.

// x -> r x + t on fractional coordinates: a space group operator combined with a lattice
// translation, or a product of them.
struct Affine {
  Matrix<int, 3, 3> r = Matrix<int, 3, 3>::identity();
  Vector<double, 3> t;

  Point operator()(Point const& p) const { return Point(r * p + t); }
};

bool is_identity(Affine const& g) {
  return g.r == Matrix<int, 3, 3>::identity() && g.t[0] == 0.0 && g.t[1] == 0.0 && g.t[2] == 0.0;
}

Affine compose(Affine const& outer, Affine const& inner) {
  return {outer.r * inner.r, outer.r * inner.t + outer.t};
}

// The inverse of an integer matrix of determinant +1 or -1 (then itself integer); false
// for any other matrix.
bool invert(Matrix<int, 3, 3> const& m, Matrix<int, 3, 3>& inverse) {
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

// The carried standard uncertainty of a transformed component: kept when the component is
// just another one with a sign (rotations that permute axes), dropped when it mixes several.
template <class T>
T carried(std::array<T, 9> const& sources, std::array<int, 9> const& coefficients) {
  int terms = 0;
  T result{};
  for (std::size_t i = 0; i < sources.size(); ++i)
    if (coefficients[i] != 0) {
      ++terms;
      result = sources[i];
    }
  return terms == 1 ? result : T{};
}

// The site of an atom moved by a symmetry operation: the anisotropic displacement tensor
// and the coordinates' uncertainties turn with the atom.
THandle<Site> transformed_site(Site const& site, Affine const& g, Point const& fractional,
                               Cell const& cell) {
  Matrix<int, 3, 3> const& r = g.r;
  auto const& sigma = *site.position_uncertainty();
  auto moved_sigma = make_handle<Array<Uncertainty, 3>>();
  for (std::size_t i = 0; i < 3; ++i) {
    std::array<Uncertainty, 9> sources{sigma[0], sigma[1], sigma[2]};
    std::array<int, 9> coefficients{r(i, 0), r(i, 1), r(i, 2)};
    (*moved_sigma)[i] = carried(sources, coefficients);
  }

  THandle<AtomicDisplacementParameters> adp = site.atomic_displacement_parameters();
  if (adp && adp->type() == AtomicDisplacementParameters::anisotropic) {
    // U* = N U N with N the diagonal of reciprocal lengths turns as R U* R^T.
    Matrix<double, 3, 3> const& to_fractional = cell.orthogonal_to_fractional();
    std::array<double, 3> reciprocal{};
    for (std::size_t i = 0; i < 3; ++i)
      reciprocal[i] = std::hypot(to_fractional(i, 0), to_fractional(i, 1), to_fractional(i, 2));
    std::array<UncertainValue, 6> u;
    static constexpr std::array<std::array<std::size_t, 2>, 6> order = {
        {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}}};
    for (std::size_t m = 0; m < 6; ++m) {
      std::size_t const i = order[m][0], j = order[m][1];
      double value = 0.0;
      std::array<Uncertainty, 9> sources{};
      std::array<int, 9> coefficients{};
      for (std::size_t k = 0; k < 3; ++k)
        for (std::size_t l = 0; l < 3; ++l) {
          int const c = r(i, k) * r(j, l);
          value += c * reciprocal[k] * reciprocal[l] * adp->u(int(k), int(l));
          sources[3 * k + l] = adp->u_value(int(k), int(l)).uncertainty();
          coefficients[3 * k + l] = c;
        }
      value /= reciprocal[i] * reciprocal[j];
      u[m] = UncertainValue(value, carried(sources, coefficients));
    }
    adp = make_handle<AtomicDisplacementParameters>(u[0], u[1], u[2], u[3], u[4], u[5],
                                                    AtomicDisplacementParameters::anisotropic);
  }
  return make_handle<Site>(fractional, cell.orthogonal(fractional), site.occupancy(), moved_sigma,
                           adp);
}

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

// Whether two translations differ by whole cells (to 1e-3 of the cell).
bool same_in_cell(Vector<double, 3> const& u, Vector<double, 3> const& v) {
  for (std::size_t a = 0; a < 3; ++a) {
    double const d = u[a] - v[a];
    if (!(std::fabs(d - std::nearbyint(d)) <= 1e-3)) return false;
  }
  return true;
}

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

// Products of operators stay among the group's operators, up to whole cells, only when these
// form a space group: at most 48 rotations with entries -1, 0 and 1, and every product of two
// operators one of the operators plus a lattice translation. Anything else (an incomplete
// list of operators, matrices that are not crystallographic, a mistyped translation) could
// make the products of a long chain of bonds grow without bound.
bool CrystalBuilder::operators_form_a_group_() const {
  // Rotations with entries -1, 0 and 1, numbered by their entries in base 3; a table from
  // number to place makes each of the n^2 products cheap to look up.
  struct Operation {
    std::array<int, 9> r;
    Vector<double, 3> t;
  };
  std::vector<Operation> operations;
  for (Affine const& op : operators_) {
    Operation o{{}, op.t};
    for (std::size_t i = 0; i < 9; ++i)
      o.r[i] = op.r(i / 3, i % 3);
    operations.push_back(o);
  }
  auto const number = [](std::array<int, 9> const& r) {
    int code = 0;
    for (int v : r) {
      if (v < -1 || v > 1) return -1;
      code = 3 * code + v + 1;
    }
    return code;
  };
  std::vector<int> place(19683, -1);                         // 3^9 rotations
  std::vector<std::vector<Vector<double, 3>>> translations;  // per distinct rotation
  for (Operation const& o : operations) {
    int const code = number(o.r);
    if (code < 0) return false;
    if (place[std::size_t(code)] < 0) {
      if (translations.size() == 48) return false;
      place[std::size_t(code)] = int(translations.size());
      translations.emplace_back();
    }
    translations[std::size_t(place[std::size_t(code)])].push_back(o.t);
  }
  for (Operation const& a : operations) {
    for (Operation const& b : operations) {
      Operation product{};
      for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j)
          product.r[3 * i + j] =
              a.r[3 * i] * b.r[j] + a.r[3 * i + 1] * b.r[3 + j] + a.r[3 * i + 2] * b.r[6 + j];
        product.t[i] =
            a.r[3 * i] * b.t[0] + a.r[3 * i + 1] * b.t[1] + a.r[3 * i + 2] * b.t[2] + a.t[i];
      }
      int const code = number(product.r);
      if (code < 0 || place[std::size_t(code)] < 0) return false;
      auto const& candidates = translations[std::size_t(place[std::size_t(code)])];
      if (std::none_of(candidates.begin(), candidates.end(),
                       [&](Vector<double, 3> const& t) { return same_in_cell(product.t, t); }))
        return false;
    }
  }
  return true;
}

bool CrystalBuilder::prepare() {
  if (!cell_.valid()) return false;
  for (std::size_t i = 0; i < 9; ++i)
    to_orthogonal_[i] = cell_.fractional_to_orthogonal()(i / 3, i % 3);
  std::size_t const n = atoms_.size();
  element_class_.assign(n, -1);
  part_.assign(n, 0);
  fractional_.assign(n, Point());
  for (std::size_t i = 0; i < n; ++i) {
    Atom const* atom = atoms_[i].get();
    if (!atom || !atom->site()) continue;
    // Far beyond the cell, lattice translations lose their precision: such positions are
    // as unusable as missing ones.
    Point const& f = atom->site()->fractional();
    if (!(std::fabs(f[0]) <= max_fractional && std::fabs(f[1]) <= max_fractional &&
          std::fabs(f[2]) <= max_fractional))
      continue;
    fractional_[i] = f;
    element_class_[i] = pairs_.add(atom->element());
    if (detector_.separates_parts()) part_[i] = part_of(*atom);
  }
  pairs_.finish();
  double const width = pairs_.largest();

  for (CrystalSymmetryOperator const& op : cell_.spacegroup().operators()) {
    Matrix<int, 3, 3> inverse;
    // Translations far beyond the cell (a damaged file's) are as unusable as positions there.
    Point const t(op.translation());
    if (!invert(op.rotation(), inverse) || !finite(t) ||
        !(std::fabs(t[0]) <= max_fractional && std::fabs(t[1]) <= max_fractional &&
          std::fabs(t[2]) <= max_fractional))
      return false;
    // An operator listed twice, or again a whole cell away, finds the same images.
    if (std::any_of(operators_.begin(), operators_.end(), [&](Affine const& known) {
          return known.r == op.rotation() && same_in_cell(known.t, op.translation());
        }))
      continue;
    operators_.push_back({op.rotation(), op.translation()});
    inverse_rotations_.push_back(inverse);
  }
  if (operators_.empty()) {
    operators_.push_back({});
    inverse_rotations_.push_back(Matrix<int, 3, 3>::identity());
  }
  if (!operators_form_a_group_()) return false;
  // The operators must keep the cell's distances (within 1%): operators of a cubic group on a
  // cell with three different lengths, say, would map bonds onto non-bonds and grow
  // molecules without sense.
  auto const metric = [](Matrix<double, 3, 3> const& m) {
    Matrix<double, 3, 3> g;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t k = 0; k < 3; ++k)
          g(i, j) += m(k, i) * m(k, j);
    return g;
  };
  Matrix<double, 3, 3> const cell_metric = metric(cell_.fractional_to_orthogonal());
  double largest = 0.0;
  for (std::size_t i = 0; i < 9; ++i)
    largest = std::max(largest, std::fabs(cell_metric(i / 3, i % 3)));
  for (Affine const& op : operators_) {
    Matrix<double, 3, 3> rotation;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        rotation(i, j) = op.r(i, j);
    orthogonal_rotations_.push_back(cell_.fractional_to_orthogonal() * rotation);
    Matrix<double, 3, 3> const moved = metric(orthogonal_rotations_.back());
    for (std::size_t i = 0; i < 9; ++i)
      if (!(std::fabs(moved(i / 3, i % 3) - cell_metric(i / 3, i % 3)) <= 0.01 * largest))
        return false;
  }

  // Around a point y = op^-1(x), an image op(p + t) lies within `width` of x when
  // |M R (p + t - y)| < width; each fractional component of p + t - y is then bounded by
  // width times the norm of the matching row of (M R)^-1 = R^-1 M^-1.
  Matrix<double, 3, 3> const& to_fractional = cell_.orthogonal_to_fractional();
  for (std::size_t a = 0; a < 3; ++a) {
    same_position_reach_[a] =
        same_position_tolerance * (1.0 + 1e-9) *
        std::hypot(to_fractional(a, 0), to_fractional(a, 1), to_fractional(a, 2));
    // Grid cells eight times as wide as the reach, at most 1024 per axis: a position
    // then needs to look into a neighbouring cell along an axis about a quarter of the time.
    double const cells = std::floor(1.0 / (same_position_reach_[a] * 8.0));
    buckets_[a] = cells >= 1.0 ? int(std::min(cells, 1024.0)) : 1;
  }
  double const search = std::max(width, same_position_tolerance) * (1.0 + 1e-9);
  for (Matrix<int, 3, 3> const& inverse : inverse_rotations_) {
    Matrix<double, 3, 3> m;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t k = 0; k < 3; ++k)
          m(i, j) += inverse(i, k) * to_fractional(k, j);
    std::array<double, 3> reach{};
    for (std::size_t a = 0; a < 3; ++a) {
      reach[a] = search * std::hypot(m(a, 0), m(a, 1), m(a, 2));
      if (!(reach[a] <= 3.0)) return false;
    }
    reach_.push_back(reach);
  }
  return true;
}

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

// A hydrogen keeps only its bond to the nearest partner (the lower atom number on a tie, then
// the first image found); a bond survives when each of its hydrogen ends keeps it.
void CrystalBuilder::prune_hydrogens_() {
  std::size_t const n = atoms_.size();
  std::vector<int> nearest(n, -1);
  for (std::size_t i = 0; i < n; ++i) {
    std::span<Link const> const links = links_.of(i);
    if (links.empty() || !atoms_[i]->element().is_hydrogen()) continue;
    for (std::size_t l = 0; l < links.size(); ++l) {
      int const b = nearest[i];
      if (b < 0 || links[l].distance < links[std::size_t(b)].distance ||
          (links[l].distance == links[std::size_t(b)].distance &&
           links[l].atom < links[std::size_t(b)].atom))
        nearest[i] = int(l);
    }
  }
  auto const same = [&](Point const& p, Point const& q) {
    return orthogonal_length_(p - q) < same_position_tolerance;
  };
  LinkTable kept;
  for (std::size_t i = 0; i < n; ++i) {
    kept.begin_atom();
    for (Link const& link : links_.of(i)) {
      std::size_t const j = std::size_t(link.atom);
      bool keep = true;
      if (nearest[i] >= 0) {
        // The hydrogen's choice, or the same image reached through another operator.
        Link const& choice = links_.of(i)[std::size_t(nearest[i])];
        keep = choice.atom == link.atom && same(choice.at, link.at);
      }
      if (keep && nearest[j] >= 0) {
        // From the far end, this bond leads back to x_i through h after j's choice.
        Link const& choice = links_.of(j)[std::size_t(nearest[j])];
        keep = choice.atom == int(i) && same(link.h(choice.at), fractional_[i]);
      }
      if (keep) kept.add(link);
    }
  }
  kept.finish();
  links_ = std::move(kept);
}

// The given atom, not yet placed, that sits at fractional position p as a copy of `atom`;
// -1 when there is none.
int CrystalBuilder::given_at_(int atom, Point const& p) const {
  for (int i : orbit_[std::size_t(atom)])
    if (!given_used_[std::size_t(i)] && same_position_(p - fractional_[std::size_t(i)])) return i;
  return -1;
}

std::array<int, 3> CrystalBuilder::bucket_of_(Point const& p) const {
  std::array<int, 3> bucket{};
  for (std::size_t a = 0; a < 3; ++a) {
    double const wrapped = p[a] - std::floor(p[a]);
    bucket[a] =
        wrapped >= 0.0 && wrapped < 1.0 ? std::min(buckets_[a] - 1, int(wrapped * buckets_[a])) : 0;
  }
  return bucket;
}

std::uint64_t CrystalBuilder::bucket_key_(int atom, std::array<int, 3> const& bucket) {
  // Atoms are fewer than 2^31 and grid indices below 2^10.
  return std::uint64_t(atom) << 30 | std::uint64_t(bucket[0]) << 20 |
         std::uint64_t(bucket[1]) << 10 | std::uint64_t(bucket[2]);
}

// The member of the molecule at p = g(x_atom), g = outer inner: an existing one at that position, a
// new one (the given atom sitting there when there is one, otherwise a copy), or -1 when the
// position is a lattice translation of a member (the molecule is polymeric) or no more copies may
// be made.
int CrystalBuilder::member_at_(int atom, Point const& p, Affine const& outer, Affine const& inner) {
  // The grid cells that the box of half-widths same_position_reach_ around p overlaps:
  // its own, and a neighbour on the side where p lies closer to the edge than the reach.
  std::array<int, 3> const bucket = bucket_of_(p);
  std::array<int, 3> low{}, high{};
  for (std::size_t a = 0; a < 3; ++a) {
    if (buckets_[a] == 1) continue;
    double const within = (p[a] - std::floor(p[a])) * buckets_[a] - bucket[a];
    double const reach = same_position_reach_[a] * buckets_[a];
    low[a] = within < reach ? -1 : 0;
    high[a] = within > 1.0 - reach ? 1 : 0;
    if (buckets_[a] == 2 && low[a] < 0 && high[a] > 0) high[a] = 0;
  }
  int found = -1;
  bool found_whole = false;
  std::array<int, 3> at{};
  for (int i = low[0]; i <= high[0]; ++i) {
    at[0] = (bucket[0] + i + buckets_[0]) % buckets_[0];
    for (int j = low[1]; j <= high[1]; ++j) {
      at[1] = (bucket[1] + j + buckets_[1]) % buckets_[1];
      for (int k = low[2]; k <= high[2]; ++k) {
        at[2] = (bucket[2] + k + buckets_[2]) % buckets_[2];
        auto const first = first_in_bucket_.find(bucket_key_(atom, at));
        if (first == first_in_bucket_.end()) continue;
        // The earliest member at the position, as a scan in the order of growth would find.
        for (int m = first->second; m >= 0; m = next_in_bucket_[std::size_t(m)]) {
          if (found >= 0 && m > found) continue;
          Vector<double, 3> d = p - members_[std::size_t(m)].fractional;
          bool whole = true;
          for (std::size_t a = 0; a < 3; ++a) {
            double const r = std::round(d[a]);
            whole = whole && r == 0.0;
            d[a] -= r;
          }
          if (same_position_(d)) {
            found = m;
            found_whole = whole;
          }
        }
      }
    }
  }
  if (found >= 0) return found_whole ? found : -1;
  int const given = given_at_(atom, p);
  if (given < 0) {
    if (copies_left_ == 0) return -1;
    --copies_left_;
  } else {
    given_used_[std::size_t(given)] = true;
  }
  int const m = int(members_.size());
  members_.push_back(
      {atom, compose(outer, inner), given >= 0 ? fractional_[std::size_t(given)] : p, given});
  Point const& placed = members_.back().fractional;
  auto const [first, added] =
      first_in_bucket_.try_emplace(bucket_key_(atom, bucket_of_(placed)), m);
  next_in_bucket_.push_back(added ? -1 : first->second);
  first->second = m;
  covered_[std::size_t(atom)] = true;
  (given >= 0 ? given_queue_ : copy_queue_).push_back(m);
  return m;
}

// The molecule may have reached given atoms only through images, for instance when the
// given atoms straddle a cell edge. Among the symmetry operations that take one of its new
// atoms onto a given atom not placed yet, takes the one chosen most often, and moves the
// molecule by it if that puts more of its atoms onto given atoms than as grown.
void CrystalBuilder::move_to_given_() {
  std::map<std::array<std::int64_t, 12>, std::pair<std::size_t, Affine>> votes;
  std::size_t placed = 0;
  for (Member const& member : members_) {
    if (member.given >= 0) {
      ++placed;
      continue;
    }
    Affine back;
    if (!invert(member.g.r, back.r)) continue;
    back.t = -(back.r * member.g.t);
    for (int d : orbit_[std::size_t(member.atom)]) {
      if (given_used_[std::size_t(d)]) continue;
      Affine const move = compose(from_representative_[std::size_t(d)], back);
      std::array<std::int64_t, 12> key{};
      for (std::size_t i = 0; i < 9; ++i)
        key[i] = move.r(i / 3, i % 3);
      for (std::size_t i = 0; i < 3; ++i)
        key[9 + i] = std::int64_t(std::nearbyint(std::clamp(move.t[i] * 1e4, -1e15, 1e15)));
      ++votes.try_emplace(key, 0, move).first->second.first;
    }
  }
  std::pair<std::size_t, Affine> const* best = nullptr;
  for (auto const& [key, vote] : votes)
    if (!best || vote.first > best->first) best = &vote;
  if (!best) return;

  // Count the given atoms the move would put in place, this molecule's own ones included.
  Affine const move = best->second;
  auto const set_used = [&](bool used) {
    for (Member const& member : members_)
      if (member.given >= 0) given_used_[std::size_t(member.given)] = used;
  };
  set_used(false);
  std::size_t in_place = 0;
  for (Member const& member : members_)
    if (given_at_(member.atom, compose(move, member.g)(fractional_[std::size_t(member.atom)])) >= 0)
      ++in_place;
  if (in_place <= placed) {
    set_used(true);
    return;
  }
  for (Member& member : members_) {
    member.g = compose(move, member.g);
    member.fractional = member.g(fractional_[std::size_t(member.atom)]);
    member.given = given_at_(member.atom, member.fractional);
    if (member.given >= 0) {
      given_used_[std::size_t(member.given)] = true;
      member.fractional = fractional_[std::size_t(member.given)];
    }
  }
  copies_left_ += in_place - placed;
}

// Breadth first from a given atom, taking given atoms before copies so that the atoms as
// given are preferred wherever the molecule could reach either.
THandle<Molecule> CrystalBuilder::grow_(int start) {
  members_.clear();
  given_queue_.clear();
  copy_queue_.clear();
  std::vector<std::pair<int, int>> bonds;
  std::vector<std::pair<Link const*, Point>> targets;
  member_at_(start, fractional_[std::size_t(start)], Affine{}, Affine{});
  while (!given_queue_.empty() || !copy_queue_.empty()) {
    std::deque<int>& queue = given_queue_.empty() ? copy_queue_ : given_queue_;
    int const m = queue.front();
    queue.pop_front();
    // Neighbours that are given atoms in place first, so that where a given atom and a
    // lattice translation of it could both join a polymer, the given atom does.
    std::span<Link const> const links = links_.of(std::size_t(members_[std::size_t(m)].atom));
    targets.clear();
    std::size_t placed_first = 0;
    Affine const g = members_[std::size_t(m)].g;  // members_ grows below
    for (Link const& link : links) {
      targets.push_back({&link, g(link.at)});
      if (given_at_(link.atom, targets.back().second) >= 0)
        std::swap(targets.back(), targets[placed_first++]);
    }
    for (auto const& [link, p] : targets) {
      int const other = member_at_(link->atom, p, g, link->h);
      if (other < 0 || other == m) continue;
      bonds.emplace_back(std::min(m, other), std::max(m, other));
    }
  }
  // Erased key by key: clearing the whole table would cost its largest size for every
  // molecule.
  for (Member const& member : members_)
    first_in_bucket_.erase(bucket_key_(member.atom, bucket_of_(member.fractional)));
  next_in_bucket_.clear();
  move_to_given_();

  // Given atoms first, in their order, then the copies in the order they were made.
  std::vector<int> order(members_.size());
  for (std::size_t i = 0; i < order.size(); ++i)
    order[i] = int(i);
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    int const ga = members_[std::size_t(a)].given, gb = members_[std::size_t(b)].given;
    if ((ga < 0) != (gb < 0)) return ga >= 0;
    return ga >= 0 && ga < gb;
  });
  std::vector<int> position(members_.size());
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  for (std::size_t i = 0; i < order.size(); ++i) {
    Member const& member = members_[std::size_t(order[i])];
    position[std::size_t(order[i])] = int(i);
    if (member.given >= 0) {
      atoms->push_back(atoms_[std::size_t(member.given)]);
    } else {
      Atom const& original = *atoms_[std::size_t(member.atom)];
      THandle<Atom> copy = original.clone();
      copy->set_site(transformed_site(*original.site(), member.g, member.fractional, cell_));
      atoms->push_back(copy);
    }
  }
  for (auto& bond : bonds) {
    bond = {position[std::size_t(bond.first)], position[std::size_t(bond.second)]};
    if (bond.first > bond.second) std::swap(bond.first, bond.second);
  }
  // Each bond is met from both ends, and twice more from an atom on a special position.
  sort_pairs(bonds, members_.size());
  bonds.erase(std::unique(bonds.begin(), bonds.end()), bonds.end());
  return THandle<Molecule>(make_handle<Molecule3d>(atoms, bond_handles(bonds)));
}

THandle<std::vector<THandle<Molecule>>> CrystalBuilder::build() {
  if (!find_links_()) return {};
  if (detector_.refinement_mode() == BondDetector::prune_hydrogens) prune_hydrogens_();
  std::size_t const n = atoms_.size();

  std::size_t const valid = std::size_t(
      std::count_if(element_class_.begin(), element_class_.end(), [](int c) { return c >= 0; }));
  copies_left_ = 20 * valid * operators_.size();
  covered_.assign(n, false);
  given_used_.assign(n, false);

  auto molecules = make_handle<std::vector<THandle<Molecule>>>();
  for (std::size_t i = 0; i < n; ++i) {
    if (!atoms_[i]) continue;
    if (element_class_[i] < 0) {
      // No position or no element: a molecule of its own.
      auto alone = make_handle<std::vector<THandle<Atom>>>(1, atoms_[i]);
      molecules->push_back(THandle<Molecule>(
          make_handle<Molecule3d>(alone, make_handle<std::vector<THandle<BondData>>>())));
      continue;
    }
    if (covered_[std::size_t(representative_[i])]) continue;
    molecules->push_back(grow_(int(i)));
  }
  return molecules;
}

}  // namespace

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

  if (refinement_ == prune_hydrogens) {
    // Each hydrogen picks its nearest bonded partner (the lower index on a tie); a bond
    // survives when every hydrogen end picked it. A hydrogen thus keeps at most one bond,
    // and a hydrogen bonded only to another hydrogen that prefers a third atom loses it.
    std::vector<int> nearest(atoms.size(), -1);
    std::vector<double> nearest_distance(atoms.size(), std::numeric_limits<double>::infinity());
    auto const distance = [&](int i, int j) {
      return squared_norm(atoms[std::size_t(i)]->site()->orthogonal() -
                          atoms[std::size_t(j)]->site()->orthogonal());
    };
    auto const offer = [&](int h, int partner, double d) {
      if (!atoms[std::size_t(h)]->element().is_hydrogen()) return;
      double& best = nearest_distance[std::size_t(h)];
      if (d < best || (d == best && partner < nearest[std::size_t(h)])) {
        best = d;
        nearest[std::size_t(h)] = partner;
      }
    };
    for (auto const& [i, j] : found) {
      double const d = distance(i, j);
      offer(i, j, d);
      offer(j, i, d);
    }
    std::erase_if(found, [&](std::pair<int, int> const& p) {
      int const ni = nearest[std::size_t(p.first)], nj = nearest[std::size_t(p.second)];
      return (ni >= 0 && ni != p.second) || (nj >= 0 && nj != p.first);
    });
  }

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
