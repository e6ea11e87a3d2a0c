#include "kora/kernel/handle.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_set>

namespace {

struct Base {
  explicit Base(int* deaths = nullptr) : deaths_(deaths) {}
  virtual ~Base() { deaths_ && ++*deaths_; }
  int* deaths_;
};
struct Derived : Base {
  using Base::Base;
  int value = 7;
};
struct Other : Base {};

TEST(Handle, NullHandleRefusesDereference) {
  kora::THandle<Derived> const h;
  EXPECT_TRUE(h.is_null() && !h && h == nullptr && h.get() == nullptr);
  try {
    (void)h->value;
    ADD_FAILURE() << "no exception";
  } catch (std::logic_error const& e) {
    EXPECT_STREQ(e.what(), "THandle: null handle dereferenced");
  }
  EXPECT_THROW((void)*h, std::logic_error);
}

TEST(Handle, OwnershipIsSharedWithBaseHandlesAndCasts) {
  int deaths = 0;
  {
    kora::THandle<Derived> d(new Derived(&deaths));
    kora::THandle<Base> b = d;
    EXPECT_EQ(d.use_count(), 2);
    EXPECT_EQ(kora::handle_dynamic_cast<Derived>(b), d);
    EXPECT_TRUE(kora::handle_dynamic_cast<Other>(b).is_null());
    EXPECT_TRUE(kora::handle_dynamic_cast<Derived>(kora::THandle<Base>()).is_null());
    EXPECT_EQ(kora::handle_static_cast<Derived>(b)->value, 7);
    kora::THandle<Base> moved = std::move(d);
    EXPECT_TRUE(d.is_null());
    b.reset();
    EXPECT_EQ(moved.use_count(), 1);
    EXPECT_EQ(deaths, 0);
  }
  EXPECT_EQ(deaths, 1);
}

TEST(Handle, EqualityOrderAndHashFollowTheAddress) {
  auto a = kora::make_handle<std::string>("same");
  auto b = kora::make_handle<std::string>("same");
  kora::THandle<std::string> const a2 = a;
  EXPECT_EQ(a, a2);
  EXPECT_NE(a, b);  // equal contents, different objects
  EXPECT_EQ(a < b, std::less<std::string*>{}(a.get(), b.get()));
  EXPECT_EQ(std::hash<kora::THandle<std::string>>{}(a), std::hash<std::string*>{}(a.get()));
  EXPECT_EQ((std::set<kora::THandle<std::string>>{a, b, a2}.size()), 2u);
  EXPECT_EQ((std::unordered_set<kora::THandle<std::string>>{a, b, a2}.size()), 2u);
}

}  // namespace
