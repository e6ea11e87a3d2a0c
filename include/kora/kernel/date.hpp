#pragma once

/// \file
/// A calendar date.

#include <string>

namespace kora {

class Date {
 public:
  /// Throws std::invalid_argument when the day does not exist (month 1..12, day within it).
  Date(int day, int month, int year);

  /// Today's date in local time.
  static Date today();

  int day() const noexcept { return day_; }
  int month() const noexcept { return month_; }
  int year() const noexcept { return year_; }  ///< with century: 2026

  /// ISO 8601: "2026-11-22".
  std::string to_string() const;

  friend bool operator==(Date const&, Date const&) noexcept = default;

 private:
  int day_;
  int month_;
  int year_;
};

}  // namespace kora
