#include "kora/kernel/date.hpp"

#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

namespace kora {

namespace {

// Gregorian calendar, proleptic, for any year an int holds.
int days_in_month(int month, int year) noexcept {
  static constexpr int days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool const leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return (month == 2 && leap) ? 29 : days[month - 1];
}

}  // namespace

Date::Date(int day, int month, int year) : day_(day), month_(month), year_(year) {
  if (month < 1 || month > 12 || day < 1 || day > days_in_month(month, year)) {
    throw std::invalid_argument("Date: no such day: " + to_string());
  }
}

Date Date::today() {
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) gmtime_r(&now, &local);
  return Date(local.tm_mday, local.tm_mon + 1, local.tm_year + 1900);
}

std::string Date::to_string() const {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", year_, month_, day_);
  return buffer;
}

}  // namespace kora
