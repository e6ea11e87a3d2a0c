#include "kora/kernel/element.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using kora::Element;

TEST(Element, SymbolLookupIsCaseExact) {
  EXPECT_EQ(Element("Ca").atomic_number(), 20);
  EXPECT_EQ(Element(std::string("C")).atomic_number(), 6);
  EXPECT_EQ(Element(std::string_view("Og")).atomic_number(), 118);
  for (char const* nothing : {"CA", "ca", "c", "", "Unknown", "Xx", "J", "C ", " C", "C1"}) {
    EXPECT_FALSE(Element(nothing).is_set()) << nothing;
    EXPECT_EQ(Element::atomic_symbol_to_kora_code(nothing), 0) << nothing;
  }
  EXPECT_FALSE(Element(static_cast<char const*>(nullptr)).is_set());
  EXPECT_TRUE(Element().symbol().empty() && Element().atomic_number() == 0);
}

TEST(Element, EveryAtomicNumberRoundTripsThroughItsSymbol) {
  for (int z = 1; z <= Element::max_atomic_number; ++z) {
    Element const e(z);
    EXPECT_EQ(Element::atomic_symbol_to_kora_code(e.symbol()), z) << e.symbol();
    EXPECT_EQ(Element::from_kora_code(z), e);
    EXPECT_EQ(e.is_hydrogen(), z == 1);
  }
  for (int z : {0, -1, 119}) {
    EXPECT_FALSE(Element(z).is_set()) << z;
    EXPECT_EQ(Element::atomic_number_to_kora_code(z), 0) << z;
  }
}

TEST(Element, DeuteriumIsHydrogenWithItsOwnCode) {
  Element const d("D");
  EXPECT_TRUE(d.kora_code() == 119 && d.atomic_number() == 1 && d.symbol() == "D");
  EXPECT_TRUE(d.is_hydrogen());
  EXPECT_NE(d, Element("H"));
  EXPECT_EQ(Element::from_kora_code(119), d);
  for (int code : {0, -1, 120})
    EXPECT_FALSE(Element::from_kora_code(code).is_set()) << code;
}

TEST(Element, CovalentRadii) {
  // clang-format off
  std::pair<char const*, double> const radii[] = {
      {"H", 0.31}, {"D", 0.31}, {"C", 0.76}, {"N", 0.71}, {"O", 0.66}, {"Cl", 1.02},
      {"Fe", 1.32}, {"Cs", 2.44}, {"Fr", 2.60}, {"Cm", 1.69}, {"Bk", 1.50}, {"Og", 1.50}};
  // clang-format on
  for (auto [symbol, radius] : radii) {
    EXPECT_DOUBLE_EQ(Element(symbol).covalent_radius(), radius) << symbol;
  }
  EXPECT_DOUBLE_EQ(Element().covalent_radius(), 0.0);
  for (int z = 1; z <= Element::max_atomic_number; ++z) {
    double const r = Element(z).covalent_radius();
    EXPECT_TRUE(z <= 96 ? r > 0.2 && r < 2.7 : r == 1.50) << z << ' ' << r;
  }
}

}  // namespace
