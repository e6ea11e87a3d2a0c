#include "kora/kernel/geometry.hpp"

#include <gtest/gtest.h>

#include <numbers>

namespace {

using kora::Angle;
using kora::Matrix;
using kora::Point;
using kora::Transformation;
using M3 = Matrix<double, 3, 3>;

void expect_near(M3 const& a, M3 const& b, double tolerance) {
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c)
      EXPECT_NEAR(a(r, c), b(r, c), tolerance) << r << "," << c;
}

TEST(Geometry, VectorsAndArrays) {
  EXPECT_EQ((kora::Array<int, 3>{7}), (kora::Array<int, 3>{7, 0, 0}));
  kora::Vector<double, 3> const x{1, 0, 0}, y{0, 1, 0};
  EXPECT_EQ(kora::cross(x, y), (kora::Vector<double, 3>{0, 0, 1}));
  EXPECT_DOUBLE_EQ(kora::dot(Point(1, 2, 3), Point(4, -5, 6)), 12.0);
  EXPECT_DOUBLE_EQ(kora::norm(Point(2, 3, 6)), 7.0);
  EXPECT_EQ(Point(1, 2, 3) - 2.0 * Point(1, 1, 1), Point(-1, 0, 1));
}

TEST(Geometry, DeterminantAndInverse) {
  M3 const m{2, 1, 0, 1, 3, 1, 0, 1, 4};
  EXPECT_DOUBLE_EQ(kora::determinant(m), 18.0);
  // Adjugate of m divided by 18.
  M3 const expected{11.0 / 18, -4.0 / 18, 1.0 / 18,  -4.0 / 18, 8.0 / 18,
                    -2.0 / 18, 1.0 / 18,  -2.0 / 18, 5.0 / 18};
  expect_near(kora::inverse(m), expected, 1e-15);
  M3 const skew{1, 2, 3, 0, 1, 4, 5, 6, 0};  // determinant 1, not symmetric
  expect_near(kora::inverse(skew) * skew, M3::identity(), 1e-12);
  EXPECT_EQ(kora::determinant(Matrix<int, 3, 3>{0, 1, 0, 1, 0, 0, 0, 0, 1}), -1);
  EXPECT_EQ(kora::inverse(M3{1, 2, 3, 2, 4, 6, 0, 0, 1}), M3());  // singular: zeros
}

TEST(Geometry, AnglesAndTolerance) {
  EXPECT_DOUBLE_EQ(Angle::from_degrees(180).radians(), std::numbers::pi);
  EXPECT_DOUBLE_EQ(Angle(std::numbers::pi / 2).degrees(), 90.0);
  Angle const tolerance = Angle::from_degrees(0.01);
  EXPECT_TRUE(equals(Angle::from_degrees(90), Angle::from_degrees(90.009), tolerance));
  EXPECT_FALSE(equals(Angle::from_degrees(90), Angle::from_degrees(90.011), tolerance));
}

TEST(Geometry, TransformationMapsAndInverts) {
  // A 90-degree turn about z followed by a shift: (x, y, z) -> (-y + 1, x + 2, z + 3).
  Transformation const t(0, -1, 0, 1, 1, 0, 0, 2, 0, 0, 1, 3);
  EXPECT_EQ(t(Point(1, 0, 0)), Point(1, 3, 3));
  Transformation const back = t.inverse();
  EXPECT_EQ(back(t(Point(0.25, -1.5, 2.5))), Point(0.25, -1.5, 2.5));
  EXPECT_EQ(back(Point(1, 3, 3)), Point(1, 0, 0));
  EXPECT_EQ(Transformation(1, 1, 0, 0, 1, 1, 0, 0, 2, 2, 0, 0).inverse().matrix(), M3());
}

}  // namespace
