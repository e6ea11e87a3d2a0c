#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kora/kernel/spacegroup.hpp"

namespace {

using kora::CrystalSymmetryOperator;
using kora::CrystalSymmetryTransformation;
using kora::Spacegroup;

// Order of the point group of each space-group number, from the ranges of the crystal
// classes, and the lattice points per cell of each centring letter: together the number
// of operators a setting must have, worked out without the tables under test.
int point_group_order(int number) {
  struct Range {
    int last, order;
  };
  static constexpr Range ranges[] = {
      {1, 1},    {2, 2},   {9, 2},    {15, 4},   {24, 4},   {46, 4},   {74, 8},
      {82, 4},   {88, 8},  {122, 8},  {142, 16}, {146, 3},  {148, 6},  {161, 6},
      {167, 12}, {174, 6}, {176, 12}, {190, 12}, {194, 24}, {199, 12}, {230, 24}};
  if (number >= 221) return 48;
  for (Range const& r : ranges)
    if (number <= r.last) return r.order;
  return 0;
}

int lattice_points(char centring) {
  switch (centring) {
    case 'A':
    case 'B':
    case 'C':
    case 'I':
      return 2;
    case 'F':
      return 4;
    case 'R':
      return 3;
    default:
      return 1;
  }
}

std::map<int, std::vector<std::string>> tripos_settings() {
  std::ifstream in(std::string(KORA_TEST_DATA_DIR) + "/mol2_settings.txt");
  std::map<int, std::vector<std::string>> rows;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    int number = 0;
    fields >> number;
    for (std::string s; fields >> s;)
      rows[number].push_back(s);
  }
  return rows;
}

TEST(Spacegroup, EverySettingOfTheTriposTableResolves) {
  auto const rows = tripos_settings();
  ASSERT_EQ(rows.size(), 230u);
  int checked = 0;
  for (auto const& [number, symbols] : rows) {
    for (std::size_t k = 0; k < symbols.size(); ++k) {
      std::string const& symbol = symbols[k];
      if (symbol == "---") continue;
      int const order = point_group_order(number) * lattice_points(symbol[0]);
      Spacegroup const given(symbol, number);
      EXPECT_EQ(given.number(), number) << symbol;
      EXPECT_EQ(given.order(), order) << symbol << " (" << number << ")";
      EXPECT_EQ(given.symbol(), symbol) << number;
      // The table lists C-42b for both 117 and 118; by name alone it is 117.
      Spacegroup const by_name(symbol);
      EXPECT_EQ(by_name.number(), symbol == "C-42b" ? 117 : number) << symbol;
      EXPECT_EQ(
          Spacegroup(kora::make_handle<std::vector<CrystalSymmetryOperator>>(by_name.operators()),
                     0, "")
              .number(),
          by_name.number())
          << symbol;
      ++checked;
    }
  }
  EXPECT_EQ(checked, 495);
}

}  // namespace
