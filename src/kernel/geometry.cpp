#include "kora/kernel/geometry.hpp"

namespace kora {

Matrix<double, 3, 3> inverse(Matrix<double, 3, 3> const& m) {
  double const det = determinant(m);
  Matrix<double, 3, 3> inv;
  if (det == 0.0 || !std::isfinite(det)) return inv;
  // Adjugate over determinant: entry (r, c) is the cofactor of (c, r).
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < 3; ++c) {
      std::size_t const r1 = (c + 1) % 3, r2 = (c + 2) % 3;
      std::size_t const c1 = (r + 1) % 3, c2 = (r + 2) % 3;
      inv(r, c) = (m(r1, c1) * m(r2, c2) - m(r1, c2) * m(r2, c1)) / det;
    }
  }
  return inv;
}

Transformation::Transformation(double r11, double r12, double r13, double t1, double r21,
                               double r22, double r23, double t2, double r31, double r32,
                               double r33, double t3)
    : matrix_{r11, r12, r13, r21, r22, r23, r31, r32, r33}, translation_{t1, t2, t3} {}

Transformation Transformation::inverse() const {
  Matrix<double, 3, 3> const inv = kora::inverse(matrix_);
  return Transformation(inv, -(inv * translation_));
}

}  // namespace kora
