#pragma once

/// \file
/// Crystallographic symmetry operators: x' = R x + t in fractional coordinates, with an
/// integer rotation matrix R and a translation t.

#include <string>

#include "kora/kernel/geometry.hpp"

namespace kora {

class CrystalSymmetryOperator {
 public:
  /// The kind of symmetry element of the rotation part, named by its Hermann-Mauguin
  /// symbol: rotations 1, 2, 3, 4, 6 and rotoinversions -1 (inversion), -2 (mirror), -3,
  /// -4, -6. Screw axes and glide planes have the element type of their rotation part.
  enum ElementType {
    not_a_symmetry_element = 0,
    identity = 1,
    two_fold = 2,
    three_fold = 3,
    four_fold = 4,
    six_fold = 6,
    inversion = -1,
    mirror = -2,
    three_fold_inversion = -3,
    four_fold_inversion = -4,
    six_fold_inversion = -6
  };

  CrystalSymmetryOperator() : rotation_(Matrix<int, 3, 3>::identity()) {}
  CrystalSymmetryOperator(Matrix<int, 3, 3> const& rotation, Vector<double, 3> const& translation)
      : rotation_(rotation), translation_(translation) {}

  Matrix<int, 3, 3> const& rotation() const { return rotation_; }
  Vector<double, 3> const& translation() const { return translation_; }

  ElementType element_type() const;
  /// Whether this is x,y,z with a translation that is a whole lattice vector.
  bool is_identity(double tolerance = 1e-6) const;

  /// The image of a fractional position.
  Point operator()(Point const& p) const { return Point(rotation_ * p + translation_); }
  /// This operator after `other`: x -> this(other(x)).
  CrystalSymmetryOperator operator*(CrystalSymmetryOperator const& other) const;
  /// The same operator with its translation brought into [0, 1).
  CrystalSymmetryOperator wrapped() const;

  /// The triplet form, lower case without blanks: "-x+1/2,y+1/2,-z", "x-y,x,z+1/6".
  /// Translations that are multiples of 1/24 print as reduced fractions; others as decimals.
  std::string to_string() const;

  /// Same rotation, and translations equal modulo whole lattice vectors within `tolerance`.
  static bool equals(CrystalSymmetryOperator const& a, CrystalSymmetryOperator const& b,
                     double tolerance);

  friend bool operator==(CrystalSymmetryOperator const&, CrystalSymmetryOperator const&) = default;

 private:
  Matrix<int, 3, 3> rotation_;
  Vector<double, 3> translation_;
};

inline bool equals(CrystalSymmetryOperator const& a, CrystalSymmetryOperator const& b,
                   double tolerance) {
  return CrystalSymmetryOperator::equals(a, b, tolerance);
}

/// A symmetry operator read from its triplet form as SHELX SYMM cards and CIF files write
/// it: "-X, 1/2+Y, 1/2-Z", "x-y,x,z+1/6", "-x+1/2 , y , -z" (any case, blanks anywhere).
/// Decimal translations ("0.5+Y", ".5-Z", "-X+0.25", "0.3333-Y") are snapped to the
/// nearest multiple of 1/12 or 1/8 when one lies within 0.005; otherwise they are kept as
/// written. Text that is not three comma-separated expressions in x, y and z with
/// coefficients -1, 0 or 1, or whose rotation is not invertible with determinant +1 or
/// -1, throws std::invalid_argument naming the text.
class CrystalSymmetryTransformation : public CrystalSymmetryOperator {
 public:
  explicit CrystalSymmetryTransformation(std::string const& triplet);
  CrystalSymmetryTransformation(Matrix<int, 3, 3> const& rotation,
                                Vector<double, 3> const& translation)
      : CrystalSymmetryOperator(rotation, translation) {}
};

}  // namespace kora
