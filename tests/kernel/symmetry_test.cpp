#include "kora/kernel/symmetry.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using kora::CrystalSymmetryOperator;
using kora::CrystalSymmetryTransformation;
using kora::Matrix;
using kora::Vector;
using Op = CrystalSymmetryOperator;

TEST(CrystalSymmetryTransformation, ParsesTripletForms) {
  struct Case {
    char const* text;
    Matrix<int, 3, 3> rotation;
    Vector<double, 3> translation;
  };
  Case const cases[] = {
      {"-X, 1/2+Y, 1/2-Z", {-1, 0, 0, 0, 1, 0, 0, 0, -1}, {0, 0.5, 0.5}},
      {"\t+y, -x ,z-3/4 ", {0, 1, 0, -1, 0, 0, 0, 0, 1}, {0, 0, -0.75}},
      {"0.5+Y, .5-Z, -X+0.25", {0, 1, 0, 0, 0, -1, -1, 0, 0}, {0.5, 0.5, 0.25}},
      {"0.3333-Y,x+0.6667,z+.1667", {0, -1, 0, 1, 0, 0, 0, 0, 1}, {1.0 / 3, 2.0 / 3, 1.0 / 6}},
      {"x+0.121,y-0.0833,z+0.3", {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0.125, -1.0 / 12, 0.3}},
      {"x+0.119,y,z+1/2+1/4", {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0.119, 0, 0.75}},
  };
  for (Case const& c : cases) {
    CrystalSymmetryTransformation const op(c.text);
    EXPECT_EQ(op.rotation(), c.rotation) << c.text;
    for (std::size_t i = 0; i < 3; ++i)
      EXPECT_DOUBLE_EQ(op.translation()[i], c.translation[i]) << c.text << " " << i;
  }
}

TEST(CrystalSymmetryTransformation, RejectsMalformedText) {
  for (char const* bad : {"x,y", "x,y,z,", "a,b,c", "x,y,2z", "x,x,z", "x,y,z+", "", "x y z",
                          "x,y,z1/2", "x,y,1/0+z", "x,y,1/2", "x,,z", "x+x,y,z"}) {
    try {
      CrystalSymmetryTransformation const op(bad);
      ADD_FAILURE() << "accepted \"" << bad << "\"";
    } catch (std::invalid_argument const& e) {
      EXPECT_NE(std::string(e.what()).find('"' + std::string(bad) + '"'), std::string::npos)
          << e.what();
    }
  }
}

TEST(CrystalSymmetryOperator, ElementTypes) {
  // Element types are Hermann-Mauguin numbers; the last two operators are invertible but of
  // infinite order, so no symmetry operation at all.
  char const* const texts[] = {"x,y,z",    "-x,y+1/2,-z", "z,x,y",      "-y,x,z+1/4", "x-y,x,z+1/6",
                               "-x,-y,-z", "x,-y,z+1/2",  "-x+y,-x,-z", "x+y,y,z",    "x+y,y,-z"};
  int const types[] = {1, 2, 3, 4, 6, -1, -2, -6, 0, 0};
  for (std::size_t i = 0; i < std::size(texts); ++i)
    EXPECT_EQ(CrystalSymmetryTransformation(texts[i]).element_type(), types[i]) << texts[i];
}

TEST(CrystalSymmetryOperator, EqualityModuloLatticeTranslations) {
  auto const eq = [](char const* a, char const* b, double tolerance = 1e-6) {
    return equals(CrystalSymmetryTransformation(a), CrystalSymmetryTransformation(b), tolerance);
  };
  EXPECT_TRUE(eq("-x+1/2,y,-z", "-x-1/2,y,-z+3"));
  EXPECT_FALSE(eq("-x,y,-z", "x,-y,-z"));
  EXPECT_FALSE(eq("x+1/2,y,z", "x,y,z"));
  EXPECT_TRUE(eq("x+0.3,y,z", "x+0.301,y,z", 0.002));
  EXPECT_FALSE(eq("x+0.3,y,z", "x+0.301,y,z", 0.0005));
  EXPECT_TRUE(eq("x+0.999,y,z", "x,y,z", 0.002));  // across the cell boundary
  EXPECT_TRUE(CrystalSymmetryTransformation("x+1,y-2,z").is_identity());
  EXPECT_FALSE(CrystalSymmetryTransformation("x+1/2,y,z").is_identity());
}

TEST(CrystalSymmetryOperator, CompositionAndWrapping) {
  CrystalSymmetryTransformation const screw("-x,y+1/2,-z+1/2"), inversion("-x,-y,-z");
  EXPECT_EQ((screw * inversion).to_string(), "x,-y+1/2,z+1/2");
  EXPECT_EQ((inversion * screw).to_string(), "x,-y-1/2,z-1/2");
  EXPECT_EQ((inversion * screw).wrapped().to_string(), "x,-y+1/2,z+1/2");
  EXPECT_EQ(Op(Matrix<int, 3, 3>::identity(), {-2.25, 3, -1e-12}).wrapped().translation(),
            (Vector<double, 3>{0.75, 0, 0}));
  EXPECT_EQ(screw(kora::Point(0.25, 0.5, 0.125)), kora::Point(-0.25, 1, 0.375));
}

TEST(CrystalSymmetryOperator, TripletText) {
  std::pair<char const*, char const*> const cases[] = {
      {"1/2-X, Y+1/2, -Z", "-x+1/2,y+1/2,-z"},
      {"X-Y,X,1/6+Z", "x-y,x,z+1/6"},
      {"-y+x,-z+0.75,x-1/8", "x-y,-z+3/4,x-1/8"},
      {"x+0.1,y+5/24,z-0.3", "x+0.1,y+5/24,z-0.3"}};
  for (auto const& [text, printed] : cases)
    EXPECT_EQ(CrystalSymmetryTransformation(text).to_string(), printed);
  EXPECT_EQ(Op(Matrix<int, 3, 3>::identity(), {0, 0, 2}).to_string(), "x,y,z+2");
  // Translations that round to nothing are left out; decimals lose their trailing point.
  EXPECT_EQ(Op(Matrix<int, 3, 3>::identity(), {1e-9, -1e-7, 2.0000001}).to_string(), "x,y,z+2");
  EXPECT_EQ(Op(Matrix<int, 3, 3>::identity(), {-1.0 / 7, 0, 1e10}).to_string(),
            "x-0.142857,y,z+10000000000");
}

}  // namespace
