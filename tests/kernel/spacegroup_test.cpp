#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <tuple>
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
  if (centring == 'F') return 4;
  if (centring == 'R') return 3;
  return std::string_view("ABCI").find(centring) == std::string_view::npos ? 1 : 2;
}

using Ops = std::vector<CrystalSymmetryOperator>;

Spacegroup from_triplets(std::vector<char const*> const& triplets, int number = 0,
                         std::string const& name = "") {
  Ops ops;
  for (char const* t : triplets)
    ops.push_back(CrystalSymmetryTransformation(t));
  return Spacegroup(kora::make_handle<Ops>(ops), number, name);
}

TEST(Spacegroup, SymbolSpellings) {
  struct Case {
    char const* text;
    char const* symbol;
    int number, order;
  };
  // clang-format off
  Case const cases[] = {
      {"P 1 21/c 1", "P21/c", 14, 4}, {"p21/C", "P21/c", 14, 4}, {"Pm-3m", "Pm3m", 221, 48},
      {"H3", "R3", 146, 9}, {"R 3r", "R3r", 146, 3}, {"R3:R", "R3r", 146, 3},
      {"Cmce", "Cmca", 64, 16}, {"P2(1)2(1)2(1)", "P212121", 19, 4}, {"X y z", "Xyz", 0, 1},
      {"F 4/m -3 2/m", "Fm3m", 225, 192}, {"I 41/a 2/m 2/d", "I41/amd", 141, 32}};
  // clang-format on
  for (Case const& c : cases) {
    Spacegroup const group(c.text);
    EXPECT_EQ(std::tuple(group.symbol(), group.number(), group.order()),
              std::tuple(c.symbol, c.number, c.order));
    EXPECT_TRUE(group.operators().front().is_identity()) << c.text;
  }
  EXPECT_EQ(Spacegroup("Xyz", 999).number(), 0);
  // A number with an unknown symbol gives that number's standard operators.
  Spacegroup const numbered("P 1 2(1)/a 1 (nonstandard)", 14);
  EXPECT_EQ(numbered.number(), 14);
  EXPECT_EQ(numbered.symbol(), "P12(1)/a1(nonstandard)");
  EXPECT_TRUE(numbered == Spacegroup("P21/c"));
  EXPECT_EQ(Spacegroup("P6122").system(), Spacegroup::hexagonal);
}

TEST(Spacegroup, CentringAndInversion) {
  struct Case {
    char const* symbol;
    Spacegroup::Centring centring;
    bool inversion;
  };
  Case const cases[] = {
      {"P212121", Spacegroup::primitive, false},   {"C2/c", Spacegroup::c_centred, true},
      {"I41/a:2", Spacegroup::body_centred, true}, {"A2", Spacegroup::a_centred, false},
      {"Fd3m", Spacegroup::face_centred, false},   {"H3", Spacegroup::rhombohedral, false},
      {"R3r", Spacegroup::primitive, false},
  };
  for (Case const& c : cases) {
    Spacegroup const group(c.symbol);
    EXPECT_EQ(std::pair(group.centring(), group.inversion_at_origin()),
              std::pair(c.centring, c.inversion))
        << c.symbol;
  }
  EXPECT_EQ(from_triplets({"x,y,z", "x+1/2,y,z"}, 1, "odd").centring(),
            Spacegroup::unknown_centring);
  EXPECT_EQ(
      Spacegroup::standard_centring_vectors(Spacegroup::b_centred, Spacegroup::exclude_origin),
      (std::vector<kora::Vector<double, 3>>{{0.5, 0, 0.5}}));
}

TEST(Spacegroup, IdentifiesOperatorLists) {
  Spacegroup const p21c = from_triplets({"x,y,z", "-x,1/2+y,1/2-z", "-x,-y,-z", "x,1/2-y,1/2+z"});
  EXPECT_TRUE(p21c.number() == 14 && p21c.symbol() == "P21/c");
  EXPECT_EQ(p21c.operators()[1].to_string(), "-x,y+1/2,-z+1/2");  // kept as given
  // C2/c from its centring and four primitive operators, mixed up, translations unreduced.
  Ops ops;
  for (kora::Vector<double, 3> const& v :
       Spacegroup::standard_centring_vectors(Spacegroup::c_centred, Spacegroup::include_origin)) {
    for (char const* t : {"-x,-y,-z", "x,-y,1/2+z", "x,y,z", "-x,y,-1/2-z"}) {
      CrystalSymmetryTransformation const op(t);
      ops.emplace_back(op.rotation(), op.translation() + v + kora::Vector<double, 3>{1, -2, 0});
    }
  }
  std::swap(ops[1], ops[6]);
  EXPECT_TRUE(Spacegroup(kora::make_handle<Ops>(ops), 0, "") == Spacegroup("C 1 2/c 1"));
  EXPECT_EQ(Spacegroup(kora::make_handle<Ops>(ops), 0, "").symbol(), "C2/c");
  Spacegroup const odd = from_triplets({"x,y,z", "x+0.1,y,z"}, 0, "odd");
  EXPECT_TRUE(odd.number() == 0 && odd.symbol() == "odd");
  Spacegroup const empty(nullptr, 0, "");
  EXPECT_TRUE(empty.order() == 1 && empty.number() == 1 && empty.symbol() == "P1");
}

TEST(Spacegroup, EqualityIgnoresOrderAndLatticeTranslations) {
  EXPECT_TRUE(Spacegroup("P21/c") ==
              from_triplets({"x,-y+1/2,z+1/2", "-x+1,-y,-z", "x,y,z", "-x,y+1/2,-z-1/2"}, 14, ""));
  EXPECT_TRUE(Spacegroup("R3") == Spacegroup("H3"));
  for (auto [a, b] : {std::pair{"P21/c", "P21/n"}, {"P-1", "P1"}, {"P1", "P-1"}, {"R3", "R3r"}})
    EXPECT_FALSE(Spacegroup(a) == Spacegroup(b)) << a << " " << b;
}

// A setting symbol names each setting, also those the compact symbol cannot tell apart.
// Every tabulated setting: its symbol names it, its operators identify it, and it has as many
// operators as its point group and lattice (rhombohedral axes have one point) make.
TEST(Spacegroup, SettingSymbolsNameEverySetting) {
  std::vector<std::string> const symbols = Spacegroup::tabulated_settings();
  ASSERT_GE(symbols.size(), 540u);
  for (std::string const& symbol : symbols) {
    Spacegroup const by_name(symbol);
    int const points = symbol.ends_with(":R") ? 1 : lattice_points(symbol[0]);
    EXPECT_EQ(by_name.order(), point_group_order(by_name.number()) * points) << symbol;
    auto const ops = kora::make_handle<std::vector<CrystalSymmetryOperator>>(by_name.operators());
    EXPECT_EQ(Spacegroup(ops, 0, "").setting_symbol(), symbol);
  }
  EXPECT_EQ(Spacegroup("I41/a:2").setting_symbol(), "I 41/a:2");
  EXPECT_EQ(Spacegroup("I41/a").setting_symbol(), "I 41/a:1");
  EXPECT_EQ(Spacegroup("R3r").setting_symbol(), "R 3:R");
  EXPECT_EQ(Spacegroup("H3").setting_symbol(), "R 3:H");
  EXPECT_EQ(Spacegroup("Pnnn:2").symbol(), Spacegroup("Pnnn").symbol());
  EXPECT_EQ(Spacegroup("NoSuchGroup").setting_symbol(), "");
}

}  // namespace
