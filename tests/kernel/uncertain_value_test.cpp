#include "kora/kernel/uncertain_value.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <tuple>

namespace {

using kora::Uncertainty;
using kora::UncertainValue;

TEST(Uncertainty, ParsesPlainDecimals) {
  std::tuple<char const*, std::uint64_t, int, char const*> const cases[] = {
      {"0.0012", 12, 4, "0.0012"}, {" 3\t", 3, 0, "3"},       {".5", 5, 1, "0.5"},
      {"1.2e-3", 12, 4, "0.0012"}, {"1.2e3", 12, -2, "1200"}, {"2.50", 250, 2, "2.50"},
      {"0.000", 0, 0, "0"},        {"1e-2", 1, 2, "0.01"},
  };
  for (auto [text, digits, places, printed] : cases) {
    bool ok = false;
    Uncertainty const u = Uncertainty::parse(text, &ok);
    EXPECT_TRUE(ok && u == Uncertainty(digits, places)) << text;
    EXPECT_EQ(u.to_string(), printed) << text;
  }
  EXPECT_EQ(Uncertainty::parse("000123456789012345678").digits(), 123456789012345678u);
  EXPECT_DOUBLE_EQ(Uncertainty(3, -2).value(), 300.0);
  for (char const* bad : {"", "  ", "-0.1", "+1", "abc", "1.2.3", "0.5x", "1e400", "inf",
                          "1234567890123456789", "(5)"}) {
    bool ok = true;
    EXPECT_TRUE(Uncertainty::parse(bad, &ok).is_zero()) << bad;
    EXPECT_FALSE(ok) << bad;
  }
}

TEST(Uncertainty, RoundDownKeepsDigitsWithinTheLimit) {
  std::tuple<std::uint64_t, int, unsigned, char const*> const cases[] = {
      {19, 4, 19, "0.0019"}, {20, 4, 19, "0.002"}, {25, 4, 19, "0.003"}, {24, 4, 19, "0.002"},
      {195, 4, 19, "0.02"},  {95, 2, 9, "1"},      {99, 0, 19, "100"},   {12, 4, 0, "0"},
  };
  for (auto [digits, places, limit, rounded] : cases) {
    Uncertainty u(digits, places);
    EXPECT_EQ(u.round_down(limit).to_string(), rounded) << digits << "e-" << places;
  }
}

TEST(UncertainValue, ParseAndToString) {
  std::tuple<char const*, double, double, char const*> const cases[] = {
      {"10.123(4)", 10.123, 0.004, "10.123(4)"},
      {"-0.5(12)", -0.5, 1.2, "-0.5(12)"},
      {"7", 7.0, 0.0, "7"},
      {"1.2e-3(5)", 1.2e-3, 5e-4, "0.0012(5)"},
      {" 2.5(1)\t", 2.5, 0.1, "2.5(1)"},
      {"+1.00(5)", 1.0, 0.05, "1.00(5)"},
      {"1.5e2(3)", 150.0, 30.0, "150(30)"},
  };
  for (auto [text, value, uncertainty, printed] : cases) {
    bool ok = false;
    UncertainValue const v = UncertainValue::parse(text, &ok);
    EXPECT_TRUE(ok) << text;
    EXPECT_DOUBLE_EQ(v.value(), value) << text;
    EXPECT_DOUBLE_EQ(v.uncertainty().value(), uncertainty) << text;
    EXPECT_EQ(v.to_string(), printed) << text;
    if (std::string_view(text) == printed) {
      EXPECT_EQ(UncertainValue::parse(printed), v) << text;
    }
  }
  for (char const* bad : {"10.123(", "10.123(4", "(4)", "10.123()", "10.123 (4)", "abc", "",
                          "10.123(4)x", "10.123(-4)", "10.123(4)(5)", "10.123( 4)", "inf(1)"}) {
    bool ok = true;
    EXPECT_EQ(UncertainValue::parse(bad, &ok), UncertainValue()) << bad;
    EXPECT_FALSE(ok) << bad;
  }
  EXPECT_EQ(UncertainValue(1234.0, Uncertainty(3, -2)).to_string(), "1234(300)");
  EXPECT_EQ(UncertainValue(2.0 / 3.0, Uncertainty(7, 3)).to_string(), "0.667(7)");
}

}  // namespace
