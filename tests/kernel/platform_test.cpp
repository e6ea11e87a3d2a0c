#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

#include "kora/kernel/date.hpp"
#include "kora/kernel/text_data_io.hpp"

namespace {

using kora::Date;

TEST(Date, RejectsDaysThatDoNotExist) {
  EXPECT_EQ(Date(29, 2, 2024).to_string(), "2024-02-29");
  EXPECT_EQ(Date(29, 2, 2000).to_string(), "2000-02-29");
  EXPECT_EQ(Date(5, 1, 987).to_string(), "0987-01-05");
  EXPECT_EQ(Date(29, 2, 65636).to_string(), "65636-02-29");  // divisible by 4, not by 100
  struct {
    int day, month, year;
  } const bad[] = {{29, 2, 2023}, {29, 2, 1900}, {31, 4, 2024}, {32, 1, 2024},  {0, 1, 2024},
                   {1, 0, 2024},  {1, 13, 2024}, {-1, 1, 2024}, {1, 257, 2024}, {29, 2, 100100}};
  for (auto const& d : bad) {
    EXPECT_THROW(Date(d.day, d.month, d.year), std::invalid_argument)
        << d.day << '/' << d.month << '/' << d.year;
  }
}

TEST(Date, TodayHasItsCentury) {
  Date const today = Date::today();
  EXPECT_GE(today.year(), 2024);
  EXPECT_EQ(Date(today.day(), today.month(), today.year()), today);
  EXPECT_EQ(today.to_string().substr(0, 5), std::to_string(today.year()) + '-');
}

TEST(TextDataIO, FileExists) {
  auto const dir = std::filesystem::temp_directory_path() /
                   ("kora_file_exists_" + std::to_string(std::random_device{}()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "a.mol2") << "x\n";
  EXPECT_TRUE(kora::TextDataIO::file_exists((dir / "a.mol2").string()));
  EXPECT_FALSE(kora::TextDataIO::file_exists(dir.string()));
  EXPECT_FALSE(kora::TextDataIO::file_exists((dir / "missing.mol2").string()));
  EXPECT_FALSE(kora::TextDataIO::file_exists(""));
  std::filesystem::remove_all(dir);
}

}  // namespace
