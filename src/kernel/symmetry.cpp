#include "kora/kernel/symmetry.hpp"

#include <cmath>
#include <numeric>
#include <stdexcept>
#include <string_view>

#include "kernel/number_parsing.hpp"

namespace kora {

namespace {

// Distance of x from the nearest whole number.
double off_integer(double x) {
  return std::fabs(x - std::nearbyint(x));
}

int trace(Matrix<int, 3, 3> const& m) {
  return m(0, 0) + m(1, 1) + m(2, 2);
}

// Whether some power of the matrix is the identity. The orders an integer 3 x 3 matrix of
// finite order can have (1, 2, 3, 4, 6) all divide 12. Powers are taken in doubles, where a
// runaway matrix grows towards infinity instead of overflowing.
bool finite_order(Matrix<int, 3, 3> const& m) {
  Matrix<double, 3, 3> m1;
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c)
      m1(r, c) = m(r, c);
  Matrix<double, 3, 3> const m2 = m1 * m1;
  Matrix<double, 3, 3> const m4 = m2 * m2;
  return m4 * m4 * m4 == Matrix<double, 3, 3>::identity();
}

// The nearest multiple of 1/12 or of 1/8, whichever is nearer, when it lies within 0.005.
double snap_translation(double t) {
  double const twelfths = std::nearbyint(t * 12.0) / 12.0;
  double const eighths = std::nearbyint(t * 8.0) / 8.0;
  double const best = std::fabs(t - twelfths) <= std::fabs(t - eighths) ? twelfths : eighths;
  return std::fabs(t - best) <= 0.005 ? best : t;
}

[[noreturn]] void invalid_triplet(std::string const& text) {
  throw std::invalid_argument("CrystalSymmetryTransformation: invalid symmetry operator \"" + text +
                              "\"");
}

// Line ends count as blanks, so that operators cut from CR LF lines still read.
bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Reads one coordinate expression such as "-x+1/2", "1/2+Y", "x-y", "0.3333-Y", ".5-z".
// Returns false when it is not one.
bool parse_expression(std::string_view s, std::array<int, 3>& row, double& translation) {
  row = {0, 0, 0};
  translation = 0.0;
  std::size_t i = 0;
  auto skip = [&] {
    while (i < s.size() && is_blank(s[i]))
      ++i;
  };
  bool any = false;
  skip();
  while (i < s.size()) {
    int sign = 1;
    if (s[i] == '+' || s[i] == '-') {
      sign = s[i] == '-' ? -1 : 1;
      ++i;
      skip();
    } else if (any) {
      return false;  // terms after the first need a sign
    }
    if (i == s.size()) return false;
    char const c = static_cast<char>(s[i] | 0x20);
    if (c >= 'x' && c <= 'z') {
      row[static_cast<std::size_t>(c - 'x')] += sign;
      ++i;
    } else {
      std::size_t const start = i;
      while (i < s.size() && ((s[i] >= '0' && s[i] <= '9') || s[i] == '.'))
        ++i;
      double value = 0.0;
      if (!detail::parse_double(s.substr(start, i - start), value)) return false;
      bool const decimal = s.substr(start, i - start).find('.') != std::string_view::npos;
      skip();
      if (!decimal && i < s.size() && s[i] == '/') {
        ++i;
        skip();
        std::size_t const dstart = i;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9')
          ++i;
        int denominator = 0;
        if (!detail::parse_int(s.substr(dstart, i - dstart), denominator) || denominator == 0) {
          return false;
        }
        value /= denominator;
      } else if (decimal) {
        value = snap_translation(value);
      }
      translation += sign * value;
    }
    any = true;
    skip();
  }
  if (!any) return false;
  for (int v : row) {
    if (v < -1 || v > 1) return false;
  }
  return true;
}

// A translation as text: a reduced fraction when it is a multiple of 1/24, else a decimal
// with six places at most and no trailing zeros or point; "0" for anything that rounds to 0.
std::string translation_text(double t) {
  double const in24 = t * 24.0;
  if (std::fabs(in24) < 1e9 && off_integer(in24) < 1e-6) {
    int num = static_cast<int>(std::nearbyint(in24));
    int den = 24;
    int const g = std::gcd(num, den);
    num /= g;
    den /= g;
    return den == 1 ? std::to_string(num) : std::to_string(num) + "/" + std::to_string(den);
  }
  std::string s = std::to_string(t);
  while (!s.empty() && s.back() == '0')
    s.pop_back();
  if (!s.empty() && s.back() == '.') s.pop_back();
  return s == "-0" ? "0" : s;
}

}  // namespace

CrystalSymmetryOperator::ElementType CrystalSymmetryOperator::element_type() const {
  int const det = determinant(rotation_);
  int const tr = trace(rotation_);
  // Determinant and trace name the element only for a rotation of finite order; a shear
  // such as x+y,y,z has the identity's trace.
  if (!finite_order(rotation_)) return not_a_symmetry_element;
  if (det == 1) {
    switch (tr) {
      case 3:
        return identity;
      case -1:
        return two_fold;
      case 0:
        return three_fold;
      case 1:
        return four_fold;
      case 2:
        return six_fold;
      default:
        return not_a_symmetry_element;
    }
  }
  if (det == -1) {
    switch (tr) {
      case -3:
        return inversion;
      case 1:
        return mirror;
      case 0:
        return three_fold_inversion;
      case -1:
        return four_fold_inversion;
      case -2:
        return six_fold_inversion;
      default:
        return not_a_symmetry_element;
    }
  }
  return not_a_symmetry_element;
}

bool CrystalSymmetryOperator::is_identity(double tolerance) const {
  return rotation_ == Matrix<int, 3, 3>::identity() && off_integer(translation_[0]) <= tolerance &&
         off_integer(translation_[1]) <= tolerance && off_integer(translation_[2]) <= tolerance;
}

CrystalSymmetryOperator CrystalSymmetryOperator::operator*(
    CrystalSymmetryOperator const& other) const {
  return CrystalSymmetryOperator(rotation_ * other.rotation_,
                                 rotation_ * other.translation_ + translation_);
}

CrystalSymmetryOperator CrystalSymmetryOperator::wrapped() const {
  Vector<double, 3> t = translation_;
  for (double& v : t) {
    v -= std::floor(v);
    if (v >= 1.0 - 1e-9) v = 0.0;  // keep 0.99999999997 from standing for a whole cell
  }
  return CrystalSymmetryOperator(rotation_, t);
}

std::string CrystalSymmetryOperator::to_string() const {
  std::string out;
  for (std::size_t r = 0; r < 3; ++r) {
    if (r) out += ',';
    std::size_t const start = out.size();
    for (std::size_t c = 0; c < 3; ++c) {
      int const v = rotation_(r, c);
      if (v == 0) continue;
      if (v < 0) {
        out += '-';
      } else if (out.size() > start) {
        out += '+';
      }
      if (v != 1 && v != -1) out += std::to_string(v < 0 ? -v : v);
      out += static_cast<char>('x' + c);
    }
    std::string const text = translation_text(translation_[r]);
    if (text != "0" || out.size() == start) {
      if (text[0] != '-' && out.size() > start) out += '+';
      out += text;
    }
  }
  return out;
}

bool CrystalSymmetryOperator::equals(CrystalSymmetryOperator const& a,
                                     CrystalSymmetryOperator const& b, double tolerance) {
  if (a.rotation_ != b.rotation_) return false;
  for (std::size_t i = 0; i < 3; ++i) {
    if (off_integer(a.translation_[i] - b.translation_[i]) > tolerance) return false;
  }
  return true;
}

CrystalSymmetryTransformation::CrystalSymmetryTransformation(std::string const& triplet) {
  std::string_view const text = triplet;
  std::size_t const first = text.find(',');
  std::size_t const second = first == std::string_view::npos ? first : text.find(',', first + 1);
  if (second == std::string_view::npos || text.find(',', second + 1) != std::string_view::npos) {
    invalid_triplet(triplet);
  }
  std::string_view const parts[3] = {
      text.substr(0, first), text.substr(first + 1, second - first - 1), text.substr(second + 1)};
  Matrix<int, 3, 3> rotation;
  Vector<double, 3> translation;
  for (std::size_t r = 0; r < 3; ++r) {
    std::array<int, 3> row{};
    if (!parse_expression(parts[r], row, translation[r])) invalid_triplet(triplet);
    for (std::size_t c = 0; c < 3; ++c)
      rotation(r, c) = row[c];
  }
  int const det = determinant(rotation);
  if (det != 1 && det != -1) invalid_triplet(triplet);
  *static_cast<CrystalSymmetryOperator*>(this) = CrystalSymmetryOperator(rotation, translation);
}

}  // namespace kora
