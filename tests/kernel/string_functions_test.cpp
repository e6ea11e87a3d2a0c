#include "kora/kernel/string_functions.hpp"

#include <gtest/gtest.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

TEST(StringFunctions, TrimTruncateAndJustify) {
  std::pair<std::string, std::string> const cases[] = {
      {kora::trim(" \t a b \t "), "a b"},
      {kora::trim(" a\r\n"), "a\r\n"},  // the default set keeps line ends
      {kora::strip("..a b..\r\n", ".\t\r\n"), "a b"},
      {kora::truncate("abc", -1), ""},
      {kora::left_justify("ab", 5, '.'), "ab..."},
      {kora::left_justify("abcdefg", 4, 6), "abcdef"},  // cut at exactly one past the maximum
      {kora::right_justify("7", 3, '0'), "007"},
      {kora::right_justify("1234", 3), "1234"},         // never cuts
      {kora::toupper("aBz09_-{\xe9"), "ABZ09_-{\xe9"},  // ASCII letters only
      {kora::int_to_string(INT_MIN), "-2147483648"},
  };
  for (auto const& [got, expected] : cases)
    EXPECT_EQ(got, expected);
  std::string_view const text = "  ab ";
  EXPECT_EQ(kora::trim_view(text).data(), text.data() + 2);
  for (auto [in, out] : {std::pair{"CA", "Ca"}, {"cl", "Cl"}, {"", ""}, {"1A", "1a"}}) {
    std::string symbol = in;
    kora::lower_element_case(symbol);
    EXPECT_EQ(symbol, out);
  }
}

TEST(StringFunctions, Split) {
  Fields fields{"stale"};
  EXPECT_EQ(kora::split("  C1  C2\t\tO3 ", fields, " \t"), 3);
  EXPECT_EQ(fields, (Fields{"C1", "C2", "O3"}));
  EXPECT_EQ(kora::split(",,a,,,b,,", fields, ","), 2);
  EXPECT_EQ(fields, (Fields{"a", "b"}));
  EXPECT_EQ(kora::split(" \t ", fields, " \t"), 0);

  auto const keep = kora::StringFunctionParameters::keep_blank_fields;
  EXPECT_EQ(kora::split(",a,,b;", fields, ",;", keep), 5);
  EXPECT_EQ(fields, (Fields{"", "a", "", "b", ""}));

  std::vector<std::string_view> views{"stale"};
  std::string_view const text = " x  yz ";
  ASSERT_EQ(kora::split(text, views, " "), 2);
  EXPECT_EQ(views[1], "yz");
  EXPECT_EQ(views[1].data(), text.data() + 4);  // a view into the text, not a copy
}

// Checks both report forms and the form without a report.
template <class T, class Convert>
void expect_number(Convert convert, std::string const& text, bool good, T expected) {
  bool ok = !good;
  EXPECT_EQ(convert(text, &ok), expected) << '"' << text << '"';
  EXPECT_EQ(ok, good) << '"' << text << '"';
  EXPECT_EQ(convert(text, nullptr), expected) << '"' << text << '"';
}

TEST(StringFunctions, StringToInt) {
  auto const convert = [](std::string_view t, bool* ok) { return kora::string_to_int(t, ok); };
  // clang-format off
  std::pair<char const*, int> const good[] = {
      {"42", 42}, {"  5", 5}, {"5 ", 5}, {"\t-5\t", -5}, {"+5", 5}, {"007", 7},
      {"2147483647", INT_MAX}, {"-2147483648", INT_MIN}};
  // clang-format on
  for (auto [text, value] : good)
    expect_number(convert, text, true, value);
  for (char const* text :
       {"2147483648", "-2147483649", "", "+", "-+5", "12abc", "1.0", "1 2", "- 5", "0x10", "5\n"}) {
    expect_number(convert, text, false, 0);
  }
  bool ok = false;  // the reference form
  EXPECT_TRUE(kora::string_to_int(" -12 ", ok) == -12 && ok);
}

TEST(StringFunctions, StringToDouble) {
  auto const convert = [](std::string_view t, bool* ok) { return kora::string_to_double(t, ok); };
  std::string const zeros(400, '0');
  // clang-format off
  std::pair<std::string, double> const good[] = {
      {"1.5", 1.5}, {" -2.25\t", -2.25}, {"+.5", 0.5}, {"-.5", -0.5}, {"5.", 5.0},
      {"1.5E-2", 0.015}, {"1e308", 1e308}, {"1e-310", 1e-310}, {"1e-400", 0.0},
      {"0." + zeros + "1", 0.0}, {"0." + zeros + "1e+1", 0.0}};  // 1e-401 and 1e-400
  // clang-format on
  for (auto const& [text, value] : good)
    expect_number(convert, text, true, value);
  std::string const bad[] = {
      "1e400", "1" + zeros + "e-1", "", ".", "+-5", "12abc", "1.5.2", "1e+", "1,5", "inf", "nan",
      "0x1p3"};
  for (std::string const& text : bad)
    expect_number(convert, text, false, 0.0);
  bool ok = false;
  EXPECT_TRUE(std::signbit(kora::string_to_double("-1e-400", ok)) && ok);
}

// Decimals are read through a fast path for plain fixed-point numbers of up to 15 digits;
// every result must be bit for bit what std::from_chars gives, including the cases the fast
// path hands over (16 or more digits, exponents) and negative zero.
TEST(StringFunctions, StringToDoubleMatchesFromChars) {
  std::vector<std::string> texts;
  kora::split(
      "0 -0 -0.000 0.1 1. .5 -.5 123456789012345.6 9007199254740993 1e5 -2.5E-3 "
      "0.1234567890123456789012345 00000000000000000000012.5 99999999999999.99 2.675 "
      "123456789.012345 0.000000000000001 -1234.5678",
      texts, " ");
  for (std::string const& text : texts) {
    double expected = 0.0;
    auto const [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), expected,
                                           std::chars_format::general);
    ASSERT_EQ(ec, std::errc()) << text;
    ASSERT_EQ(ptr, text.data() + text.size()) << text;
    bool ok = false;
    double const value = kora::string_to_double(text, ok);
    ASSERT_TRUE(ok) << text;
    ASSERT_EQ(std::memcmp(&value, &expected, sizeof value), 0)
        << text << ": " << value << " != " << expected;
  }
}

}  // namespace
