#include "kora/kernel/cell.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kora {

namespace {

constexpr double degrees_to_radians = std::numbers::pi / 180.0;

struct Trigonometry {
  double cos_alpha, cos_beta, cos_gamma, sin_alpha, sin_beta, sin_gamma;
};

Trigonometry trigonometry(Array<UncertainValue, 3> const& angles) {
  double const al = angles[0].value() * degrees_to_radians;
  double const be = angles[1].value() * degrees_to_radians;
  double const ga = angles[2].value() * degrees_to_radians;
  return {std::cos(al), std::cos(be), std::cos(ga), std::sin(al), std::sin(be), std::sin(ga)};
}

}  // namespace

// The unit cube in P1, which every structure without crystal data has: made once and copied,
// since readers make one per entry.
Cell::Cell() : Cell(unit_cube_()) {}

Cell const& Cell::unit_cube_() {
  static Cell const cube(1.0, 1.0, 1.0, Angle::from_degrees(90), Angle::from_degrees(90),
                         Angle::from_degrees(90));
  return cube;
}

Cell::Cell(double a, double b, double c, Angle const& alpha, Angle const& beta, Angle const& gamma,
           Spacegroup const& spacegroup)
    : lengths_{UncertainValue(a), UncertainValue(b), UncertainValue(c)},
      angles_{UncertainValue(alpha.degrees()), UncertainValue(beta.degrees()),
              UncertainValue(gamma.degrees())},
      spacegroup_(spacegroup) {
  set_up_();
}

Cell::Cell(UncertainValue const& a, UncertainValue const& b, UncertainValue const& c,
           UncertainValue const& alpha, UncertainValue const& beta, UncertainValue const& gamma,
           Spacegroup const& spacegroup)
    : lengths_{a, b, c}, angles_{alpha, beta, gamma}, spacegroup_(spacegroup) {
  set_up_();
}

void Cell::set_up_() {
  valid_ = false;
  volume_ = 0.0;
  to_orthogonal_ = {};
  to_fractional_ = {};
  for (std::size_t i = 0; i < 3; ++i) {
    double const length = lengths_[i].value();
    double const angle = angles_[i].value();
    if (!std::isfinite(length) || length <= 0.0) return;
    if (!std::isfinite(angle) || angle <= 0.0 || angle >= 180.0) return;
  }
  Trigonometry const t = trigonometry(angles_);
  double const factor = 1.0 - t.cos_alpha * t.cos_alpha - t.cos_beta * t.cos_beta -
                        t.cos_gamma * t.cos_gamma + 2.0 * t.cos_alpha * t.cos_beta * t.cos_gamma;
  if (!(factor > 1e-12)) return;
  double const a = this->a(), b = this->b(), c = this->c();
  double const volume = a * b * c * std::sqrt(factor);
  if (!std::isfinite(volume) || volume <= 0.0) return;
  to_orthogonal_ = {a,
                    b * t.cos_gamma,
                    c * t.cos_beta,
                    0.0,
                    b * t.sin_gamma,
                    c * (t.cos_alpha - t.cos_beta * t.cos_gamma) / t.sin_gamma,
                    0.0,
                    0.0,
                    volume / (a * b * t.sin_gamma)};
  to_fractional_ = inverse(to_orthogonal_);
  volume_ = volume;
  valid_ = true;
}

double Cell::lattice_distance_(Vector<double, 3> const& difference) const {
  Vector<double, 3> d = difference;
  for (double& v : d)
    v -= std::nearbyint(v);
  if (!valid_) {
    return std::max({std::fabs(d[0]), std::fabs(d[1]), std::fabs(d[2])});
  }
  // After rounding, the nearest lattice point of an oblique cell may still be a neighbour.
  double best = std::numeric_limits<double>::infinity();
  for (int i = -1; i <= 1; ++i)
    for (int j = -1; j <= 1; ++j)
      for (int k = -1; k <= 1; ++k) {
        Vector<double, 3> const shifted = d + Vector<double, 3>{double(i), double(j), double(k)};
        best = std::min(best, norm(to_orthogonal_ * shifted));
      }
  return best;
}

bool Cell::within_lattice_distance_(Vector<double, 3> const& difference, double tolerance) const {
  if (valid_) {
    // Each fractional component of a vector v is at most |M v| times the length of the
    // matching row of M^-1, and the nearest lattice translation of the difference in that
    // component is its rounded remainder: beyond that bound, no lattice point is near.
    for (std::size_t a = 0; a < 3; ++a) {
      double const v = difference[a] - std::nearbyint(difference[a]);
      double const reach =
          tolerance * std::hypot(to_fractional_(a, 0), to_fractional_(a, 1), to_fractional_(a, 2));
      if (std::fabs(v) > reach * (1.0 + 1e-9)) return false;
    }
  }
  return lattice_distance_(difference) <= tolerance;
}

int Cell::site_order(Point const& fractional, double tolerance) const {
  int order = 0;
  for (CrystalSymmetryOperator const& op : spacegroup_.operators()) {
    if (within_lattice_distance_(op(fractional) - fractional, tolerance)) ++order;
  }
  return std::max(order, 1);
}

int Cell::site_multiplicity(Point const& fractional, double tolerance) const {
  return std::max(spacegroup_.order() / site_order(fractional, tolerance), 1);
}

bool Cell::is_symmetry_related(Point const& p, Point const& q, double tolerance) const {
  auto const& ops = spacegroup_.operators();
  return std::any_of(ops.begin(), ops.end(), [&](CrystalSymmetryOperator const& op) {
    return within_lattice_distance_(op(p) - q, tolerance);
  });
}

bool operator==(Cell const& x, Cell const& y) {
  for (std::size_t i = 0; i < 3; ++i) {
    if (!(std::fabs(x.lengths_[i].value() - y.lengths_[i].value()) <= 1e-5)) return false;
    if (!(std::fabs(x.angles_[i].value() - y.angles_[i].value()) <= 1e-5)) return false;
  }
  return x.spacegroup_ == y.spacegroup_;
}

AtomicDisplacementParameters::AtomicDisplacementParameters() = default;

AtomicDisplacementParameters::AtomicDisplacementParameters(
    UncertainValue const& u11, UncertainValue const& u22, UncertainValue const& u33,
    UncertainValue const& u12, UncertainValue const& u13, UncertainValue const& u23, Type type)
    : type_(type), u_iso_((u11.value() + u22.value() + u33.value()) / 3.0), u_{u11, u22, u33,
                                                                               u12, u13, u23} {}

AtomicDisplacementParameters::AtomicDisplacementParameters(UncertainValue const& u, Type type,
                                                           Cell const& cell)
    : type_(type), u_iso_(u) {
  if (!cell.valid()) {
    // Without a usable metric the tensor is U on the diagonal alone.
    u_ = {u, u, u, UncertainValue(), UncertainValue(), UncertainValue()};
    return;
  }
  Trigonometry const t = trigonometry(cell.angles());
  double const cos_alpha_star =
      (t.cos_beta * t.cos_gamma - t.cos_alpha) / (t.sin_beta * t.sin_gamma);
  double const cos_beta_star =
      (t.cos_alpha * t.cos_gamma - t.cos_beta) / (t.sin_alpha * t.sin_gamma);
  double const cos_gamma_star =
      (t.cos_alpha * t.cos_beta - t.cos_gamma) / (t.sin_alpha * t.sin_beta);
  double const v = u.value();
  u_ = {u,
        u,
        u,
        UncertainValue(v * cos_gamma_star),
        UncertainValue(v * cos_beta_star),
        UncertainValue(v * cos_alpha_star)};
}

UncertainValue const& AtomicDisplacementParameters::u_value(int i, int j) const {
  // Index of (i, j) in U11 U22 U33 U12 U13 U23.
  static constexpr int index[3][3] = {{0, 3, 4}, {3, 1, 5}, {4, 5, 2}};
  return u_[static_cast<std::size_t>(index[std::clamp(i, 0, 2)][std::clamp(j, 0, 2)])];
}

Matrix<double, 3, 3> AtomicDisplacementParameters::u_orthogonal(Cell const& cell) const {
  Trigonometry const t = trigonometry(cell.angles());
  double const volume = cell.volume();
  Matrix<double, 3, 3> n;  // diag(a*, b*, c*)
  if (volume > 0.0) {
    n(0, 0) = cell.b() * cell.c() * t.sin_alpha / volume;
    n(1, 1) = cell.a() * cell.c() * t.sin_beta / volume;
    n(2, 2) = cell.a() * cell.b() * t.sin_gamma / volume;
  }
  Matrix<double, 3, 3> u;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      u(std::size_t(i), std::size_t(j)) = this->u(i, j);
  Matrix<double, 3, 3> const m = cell.fractional_to_orthogonal() * n;
  return m * u * m.transposed();
}

double AtomicDisplacementParameters::u_equivalent(Cell const& cell) const {
  if (type_ == isotropic) return u_iso_.value();
  Matrix<double, 3, 3> const u = u_orthogonal(cell);
  return (u(0, 0) + u(1, 1) + u(2, 2)) / 3.0;
}

}  // namespace kora
