// The small value types of the kernel: elements, handles, identifiers, dates, regular
// expressions and matrices.

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/date.hpp"
#include "kora/kernel/element.hpp"
#include "kora/kernel/geometry.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/regex.hpp"
#include "kora/kernel/text_data_io.hpp"

namespace {

using kora::DatabaseEntryIdentifier;
using kora::Element;
using kora::Regex;

// The message of the std::exception that `call` throws, or "(no error)".
template <class Call>
std::string error_of(Call call) {
  try {
    call();
  } catch (std::exception const& e) {
    return e.what();
  }
  return "(no error)";
}

TEST(Element, SymbolsCodesAndRadii) {
  for (int z = 1; z <= Element::max_atomic_number; ++z) {
    Element const e(z);
    EXPECT_EQ(Element::atomic_symbol_to_kora_code(e.symbol()), z) << e.symbol();
    EXPECT_EQ(Element::from_kora_code(z), e);
    EXPECT_EQ(e.is_hydrogen(), z == 1);
    double const r = e.covalent_radius();
    EXPECT_TRUE(z <= 96 ? r > 0.2 && r < 2.7 : r == 1.50) << z << ' ' << r;
  }
  EXPECT_EQ(Element("Ca").atomic_number(), 20);
  for (char const* nothing : {"CA", "ca", "c", "", "Xx", "J", "C ", " C", "C1"}) {
    EXPECT_FALSE(Element(nothing).is_set()) << nothing;
    EXPECT_EQ(Element::atomic_symbol_to_kora_code(nothing), 0) << nothing;
  }
  EXPECT_FALSE(Element(119).is_set() || Element(0).is_set());
  EXPECT_FALSE(Element::from_kora_code(120).is_set() || Element::from_kora_code(0).is_set());
  // Deuterium is hydrogen with its own code.
  Element const d("D");
  EXPECT_TRUE(d.kora_code() == 119 && d.atomic_number() == 1 && d.is_hydrogen());
  EXPECT_NE(d, Element("H"));
  std::pair<char const*, double> const radii[] = {{"D", 0.31}, {"C", 0.76}, {"Cm", 1.69}};
  for (auto [symbol, radius] : radii)
    EXPECT_DOUBLE_EQ(Element(symbol).covalent_radius(), radius) << symbol;
  EXPECT_DOUBLE_EQ(Element().covalent_radius(), 0.0);
}

TEST(Handle, NullDereferenceThrows) {
  kora::THandle<std::string> const null;
  EXPECT_EQ(error_of([&] { (void)null->size(); }), "THandle: null handle dereferenced");
  EXPECT_NE(kora::make_handle<int>(1), kora::make_handle<int>(1));  // different objects
}

TEST(DatabaseEntryIdentifier, ValidationAndCaseInsensitiveOrder) {
  EXPECT_EQ(DatabaseEntryIdentifier(std::string(256, 'x')).str().size(), 256u);
  for (std::string const& bad : {std::string(257, 'x'), std::string("AB\rCD"),
                                 std::string("ABCD\n"), std::string("AB\0CD", 5)})
    EXPECT_THROW(DatabaseEntryIdentifier{bad}, std::invalid_argument) << bad.size();
  EXPECT_NE(DatabaseEntryIdentifier("ABCDEF"), DatabaseEntryIdentifier("abcdef"));

  kora::CaseInsensitiveStringLess const less;
  EXPECT_TRUE(less("abc", "ABD") && less("ABC", "abd") && less("AB", "abc") && less("Zeta", "zz"));
  std::map<std::string, int, kora::CaseInsensitiveStringLess> const by_name{{"Benzene", 1}};
  EXPECT_TRUE(by_name.contains(std::string_view("BENZENE")));  // transparent lookup
}

TEST(Date, OnlyDaysThatExist) {
  EXPECT_EQ(kora::Date(29, 2, 2000).to_string(), "2000-02-29");
  EXPECT_EQ(kora::Date(29, 2, 65636).to_string(), "65636-02-29");  // divisible by 4, not by 100
  int const bad[][3] = {{29, 2, 2023}, {29, 2, 1900}, {31, 4, 2024},  {32, 1, 2024},
                        {0, 1, 2024},  {1, 13, 2024}, {1, 257, 2024}, {29, 2, 100100}};
  for (auto const& d : bad)
    EXPECT_THROW(kora::Date(d[0], d[1], d[2]), std::invalid_argument) << d[0] << '/' << d[1];
  EXPECT_GE(kora::Date::today().year(), 2024);
  EXPECT_TRUE(kora::TextDataIO::file_exists(__FILE__));
  EXPECT_FALSE(kora::TextDataIO::file_exists(::testing::TempDir()));  // a directory
}

TEST(Regex, MatchesFlagsAndParts) {
  Regex const re("^C[ABDGHEZ][123]");
  EXPECT_TRUE(re.search("CG1X"));
  for (char const* no : {"CA4", "CC1", "ca1", " CA1"})
    EXPECT_FALSE(re.search(no)) << no;
  EXPECT_TRUE(Regex("^C[ABDGHEZ][123]", Regex::icase).search("ca1"));
  EXPECT_FALSE(Regex("^C").search("CA", Regex::not_bol));
  EXPECT_FALSE(Regex("1$").search("CA1", Regex::not_eol));
  EXPECT_FALSE(Regex("a.b", Regex::newline).search("a\nb"));
  EXPECT_FALSE(Regex("cd").search(std::string("ab\0cd", 5)));  // the text ends at its NUL

  Regex const parts("([A-Z]+)([0-9]+)?('*)$");
  kora::RegexResults results;
  ASSERT_TRUE(parts.search("x HG12'", results));
  EXPECT_TRUE(results.position(0) == 2 && results.length(0) == 5 && results[2] == "12");
  ASSERT_TRUE(parts.search("OXT", results));
  EXPECT_FALSE(results.matched(2));                             // the optional group took no part
  EXPECT_TRUE(results.matched(3) && results.position(3) == 3);  // an empty match is a match

  for (std::string const bad : {"C[AB", "(CA", "a{2,1}"})
    EXPECT_NE(error_of([&] { Regex{bad}; }).find('"' + bad + '"'), std::string::npos);
}

TEST(Geometry, InverseAndTransformation) {
  using M3 = kora::Matrix<double, 3, 3>;
  EXPECT_EQ(kora::inverse(M3{1, 2, 3, 2, 4, 6, 0, 0, 1}), M3());  // singular: zeros
  // A quarter turn about z, then a shift: (x, y, z) -> (-y + 1, x + 2, z + 3).
  kora::Transformation const t(0, -1, 0, 1, 1, 0, 0, 2, 0, 0, 1, 3);
  EXPECT_EQ(t(kora::Point(1, 0, 0)), kora::Point(1, 3, 3));
  EXPECT_EQ(t.inverse()(kora::Point(1, 3, 3)), kora::Point(1, 0, 0));
}

}  // namespace
