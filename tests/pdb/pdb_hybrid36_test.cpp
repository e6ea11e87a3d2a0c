// Hybrid-36 numbers of PDB fields: the published encoding at the ends of its ranges, and
// the fields it refuses.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "pdb/hybrid36.hpp"

namespace {

using kora::detail::hybrid36_decode;
using kora::detail::hybrid36_encode;
using kora::detail::hybrid36_max;

TEST(Hybrid36, EncodesAndDecodesTheEndsOfEachRange) {
  for (auto const& [value, width, text] : std::vector<std::tuple<long, int, std::string>>{
           // Five columns: atom serial numbers; four: residue numbers.
           {0, 5, "    0"},
           {1, 5, "    1"},
           {-9999, 5, "-9999"},
           {99999, 5, "99999"},
           {100000, 5, "A0000"},
           {100001, 5, "A0001"},
           {100035, 5, "A000Z"},
           {100036, 5, "A0010"},
           {43770015, 5, "ZZZZZ"},
           {43770016, 5, "a0000"},
           {87440031, 5, "zzzzz"},
           {-999, 4, "-999"},
           {9999, 4, "9999"},
           {10000, 4, "A000"},
           {1223055, 4, "ZZZZ"},
           {1223056, 4, "a000"},
           {2436111, 4, "zzzz"}}) {
    std::string field(static_cast<std::size_t>(width), '#');
    ASSERT_TRUE(hybrid36_encode(value, width, field.data())) << value;
    EXPECT_EQ(field, text);
    EXPECT_EQ(hybrid36_decode(text.c_str(), width), std::optional<long>(value)) << text;
  }
  EXPECT_EQ(hybrid36_max(5), 87440031);
  EXPECT_EQ(hybrid36_max(4), 2436111);
}

TEST(Hybrid36, RefusesNumbersBeyondTheFieldAndMixedLetterFields) {
  std::string field = "#####";
  EXPECT_FALSE(hybrid36_encode(87440032, 5, field.data()));
  EXPECT_FALSE(hybrid36_encode(-10000, 5, field.data()));
  EXPECT_FALSE(hybrid36_encode(2436112, 4, field.data()));
  EXPECT_FALSE(hybrid36_encode(1, 0, field.data()));
  EXPECT_EQ(field, "#####");
  // Letter fields fill the width with one case.
  for (auto const& [text, width, value] :
       std::vector<std::tuple<char const*, int, std::optional<long>>>{{"     ", 5, 0L},
                                                                      {"  12 ", 5, 12L},
                                                                      {"12x  ", 5, 12L},
                                                                      {"A000", 5, std::nullopt},
                                                                      {" A000", 5, std::nullopt},
                                                                      {"Aa000", 5, std::nullopt},
                                                                      {"aA000", 5, std::nullopt},
                                                                      {"A00-0", 5, std::nullopt},
                                                                      {"A0000", 5, 100000L},
                                                                      {"a000", 4, 1223056L}})
    EXPECT_EQ(hybrid36_decode(text, width), value) << '"' << text << '"';
}

}  // namespace
