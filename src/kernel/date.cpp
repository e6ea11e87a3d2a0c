#include "kora/kernel/date.hpp"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

namespace kora {

Date::Date(int day, int month, int year) : day_(day), month_(month), year_(year) {
  std::chrono::year_month_day const ymd{std::chrono::year(year),
                                        std::chrono::month(static_cast<unsigned>(month)),
                                        std::chrono::day(static_cast<unsigned>(day))};
  if (month < 1 || month > 12 || day < 1 || day > 31 || !ymd.ok()) {
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
