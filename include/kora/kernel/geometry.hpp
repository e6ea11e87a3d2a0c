#pragma once

/// \file
/// Small fixed-size geometry: arrays, vectors, points, matrices, angles and affine maps.
/// Everything is a value type with elements zero-initialised.

#include <array>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <numbers>

namespace kora {

/// N values of T, indexed from 0; default all T{} (zero for numbers).
template <class T, std::size_t N>
class Array {
 public:
  constexpr Array() = default;
  constexpr Array(std::initializer_list<T> values) {
    std::size_t i = 0;
    for (T const& v : values) {
      if (i == N) break;
      values_[i++] = v;
    }
  }

  constexpr T& operator[](std::size_t i) { return values_[i]; }
  constexpr T const& operator[](std::size_t i) const { return values_[i]; }
  static constexpr std::size_t size() noexcept { return N; }
  constexpr T* begin() noexcept { return values_.data(); }
  constexpr T* end() noexcept { return values_.data() + N; }
  constexpr T const* begin() const noexcept { return values_.data(); }
  constexpr T const* end() const noexcept { return values_.data() + N; }

  friend constexpr bool operator==(Array const&, Array const&) = default;

 private:
  std::array<T, N> values_{};
};

/// An arithmetic vector: adds, subtracts and scales.
template <class T, std::size_t N>
class Vector : public Array<T, N> {
 public:
  using Array<T, N>::Array;
  constexpr Vector() = default;
  constexpr explicit Vector(Array<T, N> const& a) : Array<T, N>(a) {}

  constexpr Vector& operator+=(Vector const& o) {
    for (std::size_t i = 0; i < N; ++i)
      (*this)[i] += o[i];
    return *this;
  }
  constexpr Vector& operator-=(Vector const& o) {
    for (std::size_t i = 0; i < N; ++i)
      (*this)[i] -= o[i];
    return *this;
  }
  constexpr Vector& operator*=(T s) {
    for (T& v : *this)
      v *= s;
    return *this;
  }
  friend constexpr Vector operator+(Vector a, Vector const& b) { return a += b; }
  friend constexpr Vector operator-(Vector a, Vector const& b) { return a -= b; }
  friend constexpr Vector operator*(Vector a, T s) { return a *= s; }
  friend constexpr Vector operator*(T s, Vector a) { return a *= s; }
  friend constexpr Vector operator-(Vector a) { return a *= T(-1); }
  friend constexpr bool operator==(Vector const&, Vector const&) = default;
};

template <class T, std::size_t N>
constexpr T dot(Vector<T, N> const& a, Vector<T, N> const& b) {
  T s{};
  for (std::size_t i = 0; i < N; ++i)
    s += a[i] * b[i];
  return s;
}

template <class T>
constexpr Vector<T, 3> cross(Vector<T, 3> const& a, Vector<T, 3> const& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline double norm(Vector<double, 3> const& v) {
  return std::sqrt(dot(v, v));
}

/// A position in space (fractional or orthogonal, as the context says).
class Point : public Vector<double, 3> {
 public:
  constexpr Point() = default;
  constexpr Point(double x, double y, double z) : Vector<double, 3>{x, y, z} {}
  constexpr Point(Vector<double, 3> const& v) : Vector<double, 3>(v) {}  // NOLINT
  constexpr double x() const { return (*this)[0]; }
  constexpr double y() const { return (*this)[1]; }
  constexpr double z() const { return (*this)[2]; }
};

/// R x C values indexed by row then column.
template <class T, std::size_t R, std::size_t C>
class Matrix {
 public:
  constexpr Matrix() = default;
  /// Values row by row.
  constexpr Matrix(std::initializer_list<T> values) {
    std::size_t i = 0;
    for (T const& v : values) {
      if (i == R * C) break;
      rows_[i / C][i % C] = v;
      ++i;
    }
  }

  static constexpr Matrix identity() {
    Matrix m;
    for (std::size_t i = 0; i < R && i < C; ++i)
      m(i, i) = T(1);
    return m;
  }

  constexpr T& operator()(std::size_t r, std::size_t c) { return rows_[r][c]; }
  constexpr T const& operator()(std::size_t r, std::size_t c) const { return rows_[r][c]; }
  constexpr std::array<T, C>& operator[](std::size_t r) { return rows_[r]; }
  constexpr std::array<T, C> const& operator[](std::size_t r) const { return rows_[r]; }

  constexpr Matrix<T, C, R> transposed() const {
    Matrix<T, C, R> t;
    for (std::size_t r = 0; r < R; ++r)
      for (std::size_t c = 0; c < C; ++c)
        t(c, r) = rows_[r][c];
    return t;
  }

  friend constexpr Matrix operator-(Matrix m) {
    for (auto& row : m.rows_)
      for (T& v : row)
        v = -v;
    return m;
  }
  friend constexpr Matrix operator+(Matrix a, Matrix const& b) {
    for (std::size_t r = 0; r < R; ++r)
      for (std::size_t c = 0; c < C; ++c)
        a(r, c) += b(r, c);
    return a;
  }
  friend constexpr bool operator==(Matrix const&, Matrix const&) = default;

 private:
  std::array<std::array<T, C>, R> rows_{};
};

template <class T, std::size_t R, std::size_t K, std::size_t C>
constexpr Matrix<T, R, C> operator*(Matrix<T, R, K> const& a, Matrix<T, K, C> const& b) {
  Matrix<T, R, C> m;
  for (std::size_t r = 0; r < R; ++r)
    for (std::size_t c = 0; c < C; ++c)
      for (std::size_t k = 0; k < K; ++k)
        m(r, c) += a(r, k) * b(k, c);
  return m;
}

template <class T, std::size_t R, std::size_t C>
constexpr Vector<T, R> operator*(Matrix<T, R, C> const& m, Vector<T, C> const& v) {
  Vector<T, R> out;
  for (std::size_t r = 0; r < R; ++r)
    for (std::size_t c = 0; c < C; ++c)
      out[r] += m(r, c) * v[c];
  return out;
}

constexpr Point operator*(Matrix<double, 3, 3> const& m, Point const& p) {
  return Point(m * static_cast<Vector<double, 3> const&>(p));
}

/// An integer matrix acting on a real vector (a symmetry rotation on a position).
constexpr Vector<double, 3> operator*(Matrix<int, 3, 3> const& m, Vector<double, 3> const& v) {
  Vector<double, 3> out;
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c)
      out[r] += m(r, c) * v[c];
  return out;
}

template <class T>
constexpr T determinant(Matrix<T, 3, 3> const& m) {
  return m(0, 0) * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)) -
         m(0, 1) * (m(1, 0) * m(2, 2) - m(1, 2) * m(2, 0)) +
         m(0, 2) * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0));
}

/// The inverse of a 3 x 3 matrix; a matrix of zeros when it is singular.
Matrix<double, 3, 3> inverse(Matrix<double, 3, 3> const& m);

/// An angle, held in radians.
class Angle {
 public:
  constexpr Angle() = default;
  constexpr explicit Angle(double radians) : radians_(radians) {}
  static constexpr Angle from_degrees(double degrees) {
    return Angle(degrees * (std::numbers::pi / 180.0));
  }

  constexpr double radians() const { return radians_; }
  constexpr double degrees() const { return radians_ * (180.0 / std::numbers::pi); }

  friend constexpr bool operator==(Angle const&, Angle const&) = default;
  friend constexpr auto operator<=>(Angle const&, Angle const&) = default;

 private:
  double radians_ = 0.0;
};

/// Whether two angles differ by at most the tolerance.
inline bool equals(Angle const& a, Angle const& b, Angle const& tolerance) {
  return std::fabs(a.radians() - b.radians()) <= tolerance.radians();
}

/// An affine map of points, x' = R x + t: a 3 x 3 matrix and a translation.
class Transformation {
 public:
  Transformation() = default;  ///< the identity
  /// The twelve values row by row, each row's translation last.
  Transformation(double r11, double r12, double r13, double t1, double r21, double r22, double r23,
                 double t2, double r31, double r32, double r33, double t3);
  Transformation(Matrix<double, 3, 3> const& matrix, Vector<double, 3> const& translation)
      : matrix_(matrix), translation_(translation) {}

  Matrix<double, 3, 3> const& matrix() const { return matrix_; }
  Vector<double, 3> const& translation() const { return translation_; }

  Point operator()(Point const& p) const { return Point(matrix_ * p + translation_); }
  /// The inverse map; its matrix is zero when this map is singular.
  Transformation inverse() const;

  friend bool operator==(Transformation const&, Transformation const&) = default;

 private:
  Matrix<double, 3, 3> matrix_ = Matrix<double, 3, 3>::identity();
  Vector<double, 3> translation_;
};

}  // namespace kora
