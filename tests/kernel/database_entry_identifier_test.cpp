#include "kora/kernel/database_entry_identifier.hpp"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using kora::CaseInsensitiveStringLess;
using kora::DatabaseEntryIdentifier;

TEST(DatabaseEntryIdentifier, ValidationEqualityAndPrinting) {
  EXPECT_EQ(DatabaseEntryIdentifier(std::string(256, 'x')).str().size(), 256u);
  EXPECT_THROW(DatabaseEntryIdentifier(std::string(257, 'x')), std::invalid_argument);
  EXPECT_TRUE(DatabaseEntryIdentifier("").empty());
  EXPECT_EQ(DatabaseEntryIdentifier(" benzene\tdimer ").str(), " benzene\tdimer ");
  for (std::string const& bad : {std::string("AB\rCD"), std::string("\n"), std::string("ABCD\n"),
                                 std::string("AB\0CD", 5)}) {
    EXPECT_THROW(DatabaseEntryIdentifier{bad}, std::invalid_argument) << bad.size();
  }
  EXPECT_NE(DatabaseEntryIdentifier("ABCDEF"), DatabaseEntryIdentifier("abcdef"));
  std::ostringstream out;
  out << '[' << DatabaseEntryIdentifier("AABHTZ 01") << ']';
  EXPECT_EQ(out.str(), "[AABHTZ 01]");
}

TEST(CaseInsensitiveStringLess, OrdersIgnoringAsciiCase) {
  CaseInsensitiveStringLess const less;
  EXPECT_FALSE(less("abc", "ABC") || less("ABC", "abc"));
  EXPECT_TRUE(less("abc", "ABD") && less("ABC", "abd"));
  EXPECT_TRUE(less("AB", "abc") && !less("abc", "AB"));  // a prefix comes first
  EXPECT_TRUE(less("Zeta", "zz"));
  EXPECT_TRUE(less(DatabaseEntryIdentifier("abc"), DatabaseEntryIdentifier("ABD")));

  // Strict weak ordering over cases, digits, the punctuation between the letter ranges and
  // bytes beyond ASCII.
  std::string_view const words[] = {"a", "A",  "B",  "_",   "[",   "`",        "{",
                                    "1", "Ab", "aB", "ab_", "AB[", "\xc3\xa9", ""};
  auto const equivalent = [&](auto x, auto y) { return !less(x, y) && !less(y, x); };
  for (auto a : words) {
    EXPECT_FALSE(less(a, a));
    for (auto b : words) {
      for (auto c : words) {
        EXPECT_FALSE(less(a, b) && less(b, c) && !less(a, c)) << a << ' ' << b << ' ' << c;
        EXPECT_FALSE(equivalent(a, b) && equivalent(b, c) && !equivalent(a, c))
            << a << ' ' << b << ' ' << c;
      }
    }
  }

  std::set<DatabaseEntryIdentifier, CaseInsensitiveStringLess> const ids{
      DatabaseEntryIdentifier("ABCDEF"), DatabaseEntryIdentifier("abcdef")};
  EXPECT_EQ(ids.size(), 1u);
  std::map<std::string, int, CaseInsensitiveStringLess> const by_name{{"Benzene", 1}};
  EXPECT_TRUE(by_name.contains(std::string_view("BENZENE")));  // transparent lookup
}

}  // namespace
