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

// Five columns: atom serial numbers; four: residue numbers. Letter fields fill the width
// with one case.
TEST(Hybrid36, EncodesAndDecodesTheEndsOfEachRange) {
  for (auto const& [value, width, text] :
       std::vector<std::tuple<long, int, std::string>>{{-9999, 5, "-9999"},
                                                       {99999, 5, "99999"},
                                                       {100036, 5, "A0010"},
                                                       {43770016, 5, "a0000"},
                                                       {87440031, 5, "zzzzz"},
                                                       {10000, 4, "A000"},
                                                       {2436111, 4, "zzzz"}}) {
    std::string field(static_cast<std::size_t>(width), '#');
    ASSERT_TRUE(hybrid36_encode(value, width, field.data())) << value;
    EXPECT_EQ(field, text);
    EXPECT_EQ(hybrid36_decode(text.c_str(), width), std::optional<long>(value)) << text;
  }
  EXPECT_EQ(hybrid36_max(5), 87440031);
  EXPECT_FALSE(hybrid36_encode(87440032, 5, std::string("#####").data()));
  EXPECT_FALSE(hybrid36_encode(-10000, 5, std::string("#####").data()));
  EXPECT_FALSE(hybrid36_encode(2436112, 4, std::string("####").data()));
  for (char const* text : {" A000", "Aa000", "A00-0"})
    EXPECT_EQ(hybrid36_decode(text, 5), std::nullopt) << text;
}

}  // namespace
