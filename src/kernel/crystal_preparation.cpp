// Crystal mode, before any search: whether a cell and its space group's operators can hold a
// crystal (a valid cell, operators that form a group and keep the cell's distances), and the
// search reaches and grids that follow from them.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "kernel/crystal_builder.hpp"

namespace kora::detail::bonding {
namespace {

// Whether two translations differ by whole cells (to 1e-3 of the cell).
bool same_in_cell(Vector<double, 3> const& u, Vector<double, 3> const& v) {
  for (std::size_t a = 0; a < 3; ++a) {
    double const d = u[a] - v[a];
    if (!(std::fabs(d - std::nearbyint(d)) <= 1e-3)) return false;
  }
  return true;
}

}  // namespace

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

}  // namespace kora::detail::bonding
