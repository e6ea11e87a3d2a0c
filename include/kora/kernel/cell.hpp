#pragma once

/// \file
/// Unit cells with their space group, and atomic displacement parameters (which are
/// expressed in a cell's axes).

#include "kora/kernel/geometry.hpp"
#include "kora/kernel/spacegroup.hpp"
#include "kora/kernel/uncertain_value.hpp"

namespace kora {

/// A unit cell: three lengths (angstroms) and three angles, with standard uncertainties,
/// and a space group. Orthogonal coordinates put a along x and b in the xy plane.
class Cell {
 public:
  /// The unit cube in P1: a = b = c = 1, right angles; valid. The cell of a structure that
  /// has no crystal data.
  Cell();
  Cell(double a, double b, double c, Angle const& alpha, Angle const& beta, Angle const& gamma,
       Spacegroup const& spacegroup = Spacegroup());
  /// Angles in degrees, as crystallographic files write them.
  Cell(UncertainValue const& a, UncertainValue const& b, UncertainValue const& c,
       UncertainValue const& alpha, UncertainValue const& beta, UncertainValue const& gamma,
       Spacegroup const& spacegroup = Spacegroup());

  double a() const { return lengths_[0].value(); }
  double b() const { return lengths_[1].value(); }
  double c() const { return lengths_[2].value(); }
  Angle alpha() const { return Angle::from_degrees(angles_[0].value()); }
  Angle beta() const { return Angle::from_degrees(angles_[1].value()); }
  Angle gamma() const { return Angle::from_degrees(angles_[2].value()); }
  /// a, b, c with their uncertainties.
  Array<UncertainValue, 3> const& lengths() const { return lengths_; }
  /// alpha, beta, gamma in degrees with their uncertainties.
  Array<UncertainValue, 3> const& angles() const { return angles_; }

  Spacegroup const& spacegroup() const { return spacegroup_; }
  void set_spacegroup(Spacegroup const& spacegroup) { spacegroup_ = spacegroup; }

  /// Whether the cell was built from usable parameters: finite positive lengths, angles
  /// strictly between 0 and 180 degrees that make a cell of non-zero volume. The matrices
  /// and the volume of a cell that is not valid are zero.
  bool valid() const { return valid_; }
  double volume() const { return volume_; }
  Matrix<double, 3, 3> const& fractional_to_orthogonal() const { return to_orthogonal_; }
  Matrix<double, 3, 3> const& orthogonal_to_fractional() const { return to_fractional_; }
  Point orthogonal(Point const& fractional) const { return to_orthogonal_ * fractional; }
  Point fractional(Point const& orthogonal) const { return to_fractional_ * orthogonal; }

  /// The number of operators of the space group (centring included) that map a fractional
  /// position onto itself, modulo lattice translations, within `tolerance` angstroms; at
  /// least 1. An atom on an inversion centre of P-1 has order 2.
  int site_order(Point const& fractional, double tolerance) const;
  /// The number of distinct positions equivalent to this one in the cell: the group's
  /// order divided by the site order.
  int site_multiplicity(Point const& fractional, double tolerance) const;
  /// Whether some operator maps `p` onto `q`, modulo lattice translations, within
  /// `tolerance` angstroms.
  bool is_symmetry_related(Point const& p, Point const& q, double tolerance) const;

  /// Lengths within 1e-5 angstroms, angles within 1e-5 degrees, and the same space group.
  friend bool operator==(Cell const& x, Cell const& y);

 private:
  static Cell const& unit_cube_();
  void set_up_();
  // The shortest orthogonal length of a fractional difference over lattice translations.
  double lattice_distance_(Vector<double, 3> const& difference) const;
  // Whether lattice_distance_(difference) <= tolerance; most differences are refused from
  // their fractional components alone.
  bool within_lattice_distance_(Vector<double, 3> const& difference, double tolerance) const;

  Array<UncertainValue, 3> lengths_;
  Array<UncertainValue, 3> angles_;
  Spacegroup spacegroup_;
  bool valid_ = false;
  double volume_ = 0.0;
  Matrix<double, 3, 3> to_orthogonal_;
  Matrix<double, 3, 3> to_fractional_;
};

/// Anisotropic or isotropic displacement parameters. The tensor U is kept in the
/// crystallographic convention of CIF and SHELX files (components on the reciprocal axes,
/// in square angstroms).
class AtomicDisplacementParameters {
 public:
  enum Type { anisotropic = 0, isotropic = 1 };

  /// Isotropic, U = 0.
  AtomicDisplacementParameters();
  /// The six independent components (note the order: U12, U13, U23 after the diagonal).
  AtomicDisplacementParameters(UncertainValue const& u11, UncertainValue const& u22,
                               UncertainValue const& u33, UncertainValue const& u12,
                               UncertainValue const& u13, UncertainValue const& u23,
                               Type type = anisotropic);
  /// An isotropic U; the tensor becomes U times the cosines of the reciprocal angles of the
  /// cell (U11 = U22 = U33 = U, U12 = U cos gamma*, U13 = U cos beta*, U23 = U cos alpha*).
  AtomicDisplacementParameters(UncertainValue const& u, Type type, Cell const& cell);

  Type type() const { return type_; }
  /// Tensor component with 0-based indexes: u(0, 0) is U11, u(0, 1) and u(1, 0) are U12.
  double u(int i, int j) const { return u_value(i, j).value(); }
  UncertainValue const& u_value(int i, int j) const;
  /// The isotropic U as given (isotropic parameters); the equivalent U otherwise is
  /// u_equivalent(cell).
  UncertainValue const& u_iso() const { return u_iso_; }
  /// The tensor in orthogonal coordinates of the cell.
  Matrix<double, 3, 3> u_orthogonal(Cell const& cell) const;
  /// U(eq): a third of the trace of the orthogonalised tensor; the isotropic U for
  /// isotropic parameters.
  double u_equivalent(Cell const& cell) const;

 private:
  Type type_ = isotropic;
  UncertainValue u_iso_;
  std::array<UncertainValue, 6> u_;  // U11 U22 U33 U12 U13 U23
};

}  // namespace kora
