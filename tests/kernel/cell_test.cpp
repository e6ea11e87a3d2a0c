#include "kora/kernel/cell.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace {

using kora::Angle;
using kora::AtomicDisplacementParameters;
using kora::Cell;
using kora::Point;
using kora::Spacegroup;
using M3 = kora::Matrix<double, 3, 3>;

Cell make_cell(double a, double b, double c, double alpha, double beta, double gamma,
               Spacegroup const& group = Spacegroup()) {
  return Cell(a, b, c, Angle::from_degrees(alpha), Angle::from_degrees(beta),
              Angle::from_degrees(gamma), group);
}

// The metric tensor G(i, j) = a_i . a_j of a cell's parameters.
M3 metric(double a, double b, double c, double alpha, double beta, double gamma) {
  double const length[3] = {a, b, c}, angle[3] = {alpha, beta, gamma};
  M3 g;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      g(i, j) = length[i] * length[j] *
                (i == j ? 1.0 : std::cos(angle[3 - i - j] * std::numbers::pi / 180));
  return g;
}

void expect_near(M3 const& x, M3 const& y, double tolerance) {
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c)
      EXPECT_NEAR(x(r, c), y(r, c), tolerance) << r << "," << c;
}

TEST(Cell, TriclinicOrthogonalisation) {
  Cell const cell = make_cell(5.1, 6.3, 7.7, 81, 97, 112);
  ASSERT_TRUE(cell.valid());
  M3 const g = metric(5.1, 6.3, 7.7, 81, 97, 112);
  EXPECT_NEAR(cell.volume(), std::sqrt(kora::determinant(g)), 1e-9);
  M3 const& m = cell.fractional_to_orthogonal();
  EXPECT_NEAR(kora::determinant(m), cell.volume(), 1e-9);
  // a along x, b in the xy plane; the columns are the cell vectors, so M^T M is the metric.
  EXPECT_DOUBLE_EQ(m(0, 0), 5.1);
  EXPECT_TRUE(m(1, 0) == 0 && m(2, 0) == 0 && m(2, 1) == 0);
  expect_near(m.transposed() * m, g, 1e-10);
  expect_near(m * cell.orthogonal_to_fractional(), M3::identity(), 1e-14);
  for (Point const& p : {Point(0.1, 0.2, 0.3), Point(-1.25, 3.5, 0.875), Point(1, 1, 1)}) {
    Point const back = cell.fractional(cell.orthogonal(p));
    for (std::size_t i = 0; i < 3; ++i)
      EXPECT_NEAR(back[i], p[i], 1e-13);
  }
  Cell const unit;
  EXPECT_TRUE(unit.valid() && unit.volume() == 1.0 && unit.spacegroup().number() == 1);
}

TEST(Cell, UnusableParametersMakeInvalidCells) {
  double const nan = std::numeric_limits<double>::quiet_NaN();
  double const cases[][6] = {
      {0, 6, 7, 90, 90, 90},  {5, -6, 7, 90, 90, 90},   {5, 6, nan, 90, 90, 90},
      {5, 6, 7, 90, 180, 90}, {5, 6, 7, 120, 120, 120}, {5, 6, 7, 10, 20, 30},
      {5, 6, 7, 60, 60, 150}, {5, 6, 7, 90, 90, 200},
  };
  for (auto const& p : cases) {
    Cell const cell(p[0], p[1], p[2], p[3], p[4], p[5]);
    EXPECT_FALSE(cell.valid()) << p[0] << " " << p[1] << " " << p[3] << " " << p[4] << " " << p[5];
    EXPECT_TRUE(cell.volume() == 0 && cell.fractional_to_orthogonal() == M3() &&
                cell.orthogonal_to_fractional() == M3());
  }
  EXPECT_TRUE(make_cell(5, 6, 7, 60, 60, 119).valid());  // just closes
  EXPECT_TRUE(make_cell(5, 6, 7, 10, 20, 29).valid());
}

TEST(Cell, SiteOrderAndMultiplicity) {
  Cell const triclinic = make_cell(5.1, 6.3, 7.7, 81, 97, 112, Spacegroup("P-1"));
  Cell const cubic = make_cell(5.64, 5.64, 5.64, 90, 90, 90, Spacegroup("Fm-3m"));
  Cell const monoclinic = make_cell(10, 12, 8, 90, 105, 90, Spacegroup("C2/c"));
  struct Case {
    Cell const& cell;
    Point position;
    double tolerance;
    int order, multiplicity;
  };
  // 0.502 is 0.002 of a (0.0102 A) from the centre, whose image is twice that away.
  Case const cases[] = {
      {triclinic, {-0.5, 0, 1.5}, 0.01, 2, 1},    {triclinic, {0.1, 0.2, 0.3}, 0.01, 1, 2},
      {triclinic, {0.502, 0.5, 0.5}, 0.03, 2, 1}, {triclinic, {0.502, 0.5, 0.5}, 0.015, 1, 2},
      {cubic, {0.25, 0.25, 0.25}, 0.01, 24, 8},   {cubic, {0.11, 0.23, 0.37}, 0.01, 1, 192},
      {monoclinic, {0, 0.3, 0.25}, 0.01, 2, 4},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(c.cell.site_order(c.position, c.tolerance), c.order) << c.position[0];
    EXPECT_EQ(c.cell.site_multiplicity(c.position, c.tolerance), c.multiplicity) << c.position[0];
  }
}

TEST(Cell, SymmetryRelatedPositions) {
  Cell const cell = make_cell(6, 7, 8, 90, 100, 90, Spacegroup("P21/c"));
  Point const p(0.1, 0.2, 0.3);
  EXPECT_TRUE(cell.is_symmetry_related(p, Point(0.9, 0.7, -0.8), 0.01));    // -x,y+1/2,-z+1/2
  EXPECT_TRUE(cell.is_symmetry_related(p, Point(1.1, 0.3, 0.8), 0.01));     // x,-y+1/2,z+1/2
  EXPECT_FALSE(cell.is_symmetry_related(p, Point(0.92, 0.7, -0.8), 0.05));  // 0.12 A off
  EXPECT_TRUE(cell.is_symmetry_related(p, Point(0.92, 0.7, -0.8), 0.15));
  EXPECT_FALSE(cell.is_symmetry_related(p, Point(0.1, 0.7, 0.3), 0.01));
  Cell const p1 = make_cell(6, 7, 8, 90, 100, 90);
  EXPECT_TRUE(p1.is_symmetry_related(p, Point(1.1, -0.8, 0.3), 0.01));
  EXPECT_FALSE(p1.is_symmetry_related(p, Point(-0.1, -0.2, -0.3), 0.01));
}

TEST(Cell, Equality) {
  Cell const cell = make_cell(6, 7, 8, 90, 100, 90, Spacegroup("P21/c"));
  EXPECT_TRUE(cell == Cell(6.000005, 7, 8, 90, 100.000005, 90, Spacegroup("P 1 21/c 1")));
  EXPECT_FALSE(cell == make_cell(6, 7, 8, 90, 100.0001, 90, Spacegroup("P21/c")));
  EXPECT_FALSE(cell == make_cell(6, 7, 8, 90, 100, 90, Spacegroup("P21/n")));
  EXPECT_FALSE(cell == make_cell(6, 7, 8, 90, 100, 90));
}

// Ueq = 1/3 sum U^ij a*_i a*_j (a_i . a_j), with a*_i from the inverse metric; an isotropic U
// gives U12 = U cos(gamma*) and a spherical orthogonal tensor.
TEST(AtomicDisplacementParameters, EquivalentAndIsotropicTensors) {
  Cell const cell = make_cell(5.1, 6.3, 7.7, 81, 97, 112);
  M3 const g = metric(5.1, 6.3, 7.7, 81, 97, 112), g_inverse = kora::inverse(g);
  AtomicDisplacementParameters const v(0.031, 0.022, 0.045, -0.004, 0.007, 0.003);
  double sum = 0;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      sum += v.u(int(i), int(j)) * std::sqrt(g_inverse(i, i) * g_inverse(j, j)) * g(i, j);
  EXPECT_NEAR(v.u_equivalent(cell), sum / 3, 1e-14);
  AtomicDisplacementParameters const u(0.05, AtomicDisplacementParameters::isotropic, cell);
  EXPECT_TRUE(u.type() == AtomicDisplacementParameters::isotropic && u.u_equivalent(cell) == 0.05);
  EXPECT_NEAR(u.u(0, 1), 0.05 * g_inverse(0, 1) / std::sqrt(g_inverse(0, 0) * g_inverse(1, 1)),
              1e-15);
  expect_near(u.u_orthogonal(cell), M3{0.05, 0, 0, 0, 0.05, 0, 0, 0, 0.05}, 1e-15);
}

}  // namespace
