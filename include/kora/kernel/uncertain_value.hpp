#pragma once

/// \file
/// Values with standard uncertainties, as crystallography writes them: 10.123(4) is 10.123
/// with an uncertainty of 4 in its last decimal place, that is 0.004.

#include <cstdint>
#include <string>
#include <string_view>

namespace kora {

/// The standard uncertainty of a value, kept as the digits of its last places and the
/// decimal place of the last digit: 0.0012 is digits 12 at 4 decimal places; 300 is digits 3
/// at -2 decimal places. A zero uncertainty means the value is exact.
class Uncertainty {
 public:
  /// The most significant digits an uncertainty may have.
  static constexpr int max_digits = 18;

  Uncertainty() noexcept = default;
  /// `digits` in units of 10^-decimal_places. Zero digits make the exact (zero) uncertainty.
  Uncertainty(std::uint64_t digits, int decimal_places) noexcept;

  /// Parses a plain non-negative decimal such as "0.0012", "3", "0.5" or "1.2e-3" (blanks
  /// and tabs around it allowed). On failure the result is zero and *ok (when given) is false.
  static Uncertainty parse(std::string_view text, bool* ok = nullptr);

  std::uint64_t digits() const noexcept { return digits_; }
  int decimal_places() const noexcept { return places_; }
  bool is_zero() const noexcept { return digits_ == 0; }
  double value() const noexcept;

  /// Keeps the uncertainty within `limit` in the units of its last digit, as crystallographic
  /// tables quote them: while the digits exceed the limit, the last digit is dropped and the
  /// rest rounded half up. With limit 19, 0.0012 stays, 0.0025 becomes 0.003 and 0.0195
  /// becomes 0.02 (0.0195 -> 0.020 -> 0.02). A limit of 0 leaves nothing (exact).
  Uncertainty& round_down(unsigned int limit) noexcept;

  /// Plain decimal text of the uncertainty: "0.0012", "3", "300", "0" when exact.
  std::string to_string() const;

  friend bool operator==(Uncertainty const&, Uncertainty const&) noexcept = default;

 private:
  std::uint64_t digits_ = 0;
  int places_ = 0;
};

/// A double with its standard uncertainty.
class UncertainValue {
 public:
  UncertainValue() noexcept = default;
  UncertainValue(double value) noexcept : value_(value) {}  // NOLINT(google-explicit-constructor)
  UncertainValue(double value, Uncertainty const& uncertainty) noexcept
      : value_(value), uncertainty_(uncertainty) {}

  /// Parses a number optionally followed by its uncertainty digits in parentheses:
  /// "10.123(4)" (0.004), "-0.5(12)" (1.2), "7" (exact), "1.2e-3(5)" (0.0005), "120(30)".
  /// Blanks and tabs around the whole text are allowed, none inside it. On failure the
  /// result is zero and *ok (when given) is false.
  static UncertainValue parse(std::string_view text, bool* ok = nullptr);

  double value() const noexcept { return value_; }
  Uncertainty const& uncertainty() const noexcept { return uncertainty_; }
  void set_value(double value) noexcept { value_ = value; }
  void set_uncertainty(Uncertainty const& uncertainty) noexcept { uncertainty_ = uncertainty; }

  /// "10.123(4)" with as many decimals as the uncertainty has places; the shortest exact text
  /// of the value ("7", "0.1") when the value is exact.
  std::string to_string() const;

  friend bool operator==(UncertainValue const&, UncertainValue const&) noexcept = default;

 private:
  double value_ = 0.0;
  Uncertainty uncertainty_;
};

}  // namespace kora
