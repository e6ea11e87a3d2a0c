#include "kora/kernel/regex.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace {

using kora::Regex;

TEST(Regex, ClassifiesLabels) {
  Regex const re("^C[ABDGHEZ][123]");
  for (char const* yes : {"CA1", "CZ3", "CG1X"})
    EXPECT_TRUE(re.search(yes)) << yes;
  for (char const* no : {"CA", "CA4", "CC1", "ca1", "XCA1", " CA1", ""})
    EXPECT_FALSE(re.search(no)) << no;
  EXPECT_TRUE(Regex("^C[ABDGHEZ][123]", Regex::icase).search("ca1"));
  EXPECT_FALSE(Regex("^C").search("CA", Regex::not_bol));
  EXPECT_FALSE(Regex("1$").search("CA1", Regex::not_eol));
  EXPECT_TRUE(Regex("a.b").search("a\nb"));
  EXPECT_FALSE(Regex("a.b", Regex::newline).search("a\nb"));
  EXPECT_FALSE(Regex("cd").search(std::string("ab\0cd", 5)));  // the text ends at its NUL
}

TEST(Regex, ResultsHoldTheParts) {
  Regex const re("([A-Z]+)([0-9]+)?('*)$");
  kora::RegexResults results;
  ASSERT_TRUE(re.search("x HG12'", results));
  ASSERT_EQ(results.size(), 4u);
  EXPECT_EQ(results.str(), "HG12'");
  EXPECT_EQ(results.position(0), 2u);
  EXPECT_EQ(results.length(0), 5u);
  EXPECT_EQ(results[1], "HG");
  EXPECT_EQ(results[2], "12");

  ASSERT_TRUE(re.search("OXT", results));
  EXPECT_EQ(results[1], "OXT");
  EXPECT_FALSE(results.matched(2));  // the optional group took no part
  EXPECT_TRUE(results.position(2) == std::string::npos && results.length(2) == 0);
  EXPECT_TRUE(results.matched(3) && results.position(3) == 3);  // an empty match is a match
  EXPECT_FALSE(results.matched(4));

  EXPECT_FALSE(re.search("12", results));
  EXPECT_TRUE(results.empty());
}

TEST(Regex, InvalidPatternThrowsNamingIt) {
  for (std::string const bad : {"C[AB", "(CA", "a{2,1}"}) {
    try {
      Regex const re(bad);
      ADD_FAILURE() << bad << " compiled";
    } catch (std::invalid_argument const& e) {
      EXPECT_NE(std::string(e.what()).find('"' + bad + '"'), std::string::npos) << e.what();
    }
  }
}

TEST(Regex, CopiesAndMovesAreIndependent) {
  Regex original("^N[0-9]", Regex::icase);
  Regex copy(original);
  original = Regex("^O");
  EXPECT_TRUE(original.search("OXT") && !original.search("N1"));
  Regex const moved(std::move(copy));
  EXPECT_EQ(moved.pattern(), "^N[0-9]");
  EXPECT_TRUE(moved.search("n1"));  // flags are copied
}

}  // namespace
