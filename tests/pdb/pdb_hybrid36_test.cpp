// Hybrid-36 numbers of PDB fields: the published encoding at the ends of its ranges.

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>

#include "pdb/hybrid36.hpp"

namespace {

using kora::detail::hybrid36_decode;
using kora::detail::hybrid36_encode;
using kora::detail::hybrid36_max;

struct Hybrid36Case {
  long value;
  int width;
  char const* text;
};

void PrintTo(Hybrid36Case const& c, std::ostream* os) {
  *os << c.value << " in " << c.width << " columns";
}

class Hybrid36 : public testing::TestWithParam<Hybrid36Case> {};

TEST_P(Hybrid36, EncodesAndDecodes) {
  Hybrid36Case const c = GetParam();
  std::string field(static_cast<std::size_t>(c.width), '#');
  ASSERT_TRUE(hybrid36_encode(c.value, c.width, field.data()));
  EXPECT_EQ(field, c.text);
  EXPECT_EQ(hybrid36_decode(c.text, c.width), std::optional<long>(c.value));
}

INSTANTIATE_TEST_SUITE_P(Boundaries, Hybrid36,
                         testing::Values(
                             // Five columns: atom serial numbers.
                             Hybrid36Case{0, 5, "    0"}, Hybrid36Case{1, 5, "    1"},
                             Hybrid36Case{-9999, 5, "-9999"}, Hybrid36Case{99999, 5, "99999"},
                             Hybrid36Case{100000, 5, "A0000"}, Hybrid36Case{100001, 5, "A0001"},
                             Hybrid36Case{100035, 5, "A000Z"}, Hybrid36Case{100036, 5, "A0010"},
                             Hybrid36Case{43770015, 5, "ZZZZZ"}, Hybrid36Case{43770016, 5, "a0000"},
                             Hybrid36Case{87440031, 5, "zzzzz"},
                             // Four columns: residue numbers.
                             Hybrid36Case{-999, 4, "-999"}, Hybrid36Case{9999, 4, "9999"},
                             Hybrid36Case{10000, 4, "A000"}, Hybrid36Case{1223055, 4, "ZZZZ"},
                             Hybrid36Case{1223056, 4, "a000"}, Hybrid36Case{2436111, 4, "zzzz"}));

TEST(Hybrid36Limits, LargestNumbers) {
  EXPECT_EQ(hybrid36_max(5), 87440031);
  EXPECT_EQ(hybrid36_max(4), 2436111);
}

TEST(Hybrid36Limits, NumbersBeyondTheFieldAreRefused) {
  std::string field = "#####";
  EXPECT_FALSE(hybrid36_encode(87440032, 5, field.data()));
  EXPECT_FALSE(hybrid36_encode(-10000, 5, field.data()));
  EXPECT_FALSE(hybrid36_encode(2436112, 4, field.data()));
  EXPECT_FALSE(hybrid36_encode(1, 0, field.data()));
  EXPECT_EQ(field, "#####");
}

struct DecodeCase {
  char const* text;
  int width;
  std::optional<long> value;
};

void PrintTo(DecodeCase const& c, std::ostream* os) {
  *os << '"' << c.text << "\" in " << c.width << " columns";
}

class Hybrid36Decode : public testing::TestWithParam<DecodeCase> {};

TEST_P(Hybrid36Decode, ReadsOrRefuses) {
  DecodeCase const c = GetParam();
  EXPECT_EQ(hybrid36_decode(c.text, c.width), c.value) << '"' << c.text << '"';
}

INSTANTIATE_TEST_SUITE_P(
    Fields, Hybrid36Decode,
    testing::Values(DecodeCase{"     ", 5, 0L}, DecodeCase{"  12 ", 5, 12L},
                    DecodeCase{"12x  ", 5, 12L},
                    // Letter fields fill the width with one case.
                    DecodeCase{"A000", 5, std::nullopt}, DecodeCase{" A000", 5, std::nullopt},
                    DecodeCase{"Aa000", 5, std::nullopt}, DecodeCase{"aA000", 5, std::nullopt},
                    DecodeCase{"A00-0", 5, std::nullopt}, DecodeCase{"A0000", 5, 100000L},
                    DecodeCase{"a000", 4, 1223056L}));

}  // namespace
