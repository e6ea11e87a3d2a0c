#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "kora/shelx/res_file.hpp"

namespace {

using namespace kora;

ResFile read(std::string const& text, bool standard) {
  std::istringstream in(text);
  ResFile file;
  if (standard) file.set_read_options(ReadOptions::standard_mode());
  file.read(in);
  return file;
}

// Fm-3m: the 23 proper rotations of the cube besides the identity; LATT 4 adds the centring
// and the inversion.
std::string fm3m_header(double a) {
  std::string text = "TITL crowded\nCELL 0.71073";
  for (int i = 0; i < 3; ++i)
    text += " " + std::to_string(a);
  text += " 90 90 90\nZERR 4 0.001 0.001 0.001 0 0 0\nLATT 4\n";
  int const permutations[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  int const parity[6] = {1, -1, -1, 1, 1, -1};
  for (int p = 0; p < 6; ++p) {
    for (int signs = 0; signs < 8; ++signs) {
      int const s[3] = {signs & 1 ? -1 : 1, signs & 2 ? -1 : 1, signs & 4 ? -1 : 1};
      if (parity[p] * s[0] * s[1] * s[2] != 1 || (p == 0 && signs == 0)) continue;
      text += "SYMM";
      for (int row = 0; row < 3; ++row) {
        text += row == 0 ? " " : ", ";
        text += s[row] < 0 ? "-" : "";
        text += "XYZ"[permutations[p][row]];
      }
      text += '\n';
    }
  }
  return text;
}

// Atoms of one element scattered within `spread` angstroms of a special position.
std::string crowded_atoms(int count, double a, double spread, double const (&site)[3]) {
  std::string text = "SFAC NA\nUNIT 4\nFVAR 1.0\n";
  char line[128];
  for (int i = 0; i < count; ++i) {
    double p[3];
    for (int k = 0; k < 3; ++k)
      p[k] = site[k] + spread / a * std::sin(1.7 * i + 2.3 * k + 0.4 * i * k);
    std::snprintf(line, sizeof line, "NA%d 1 %.5f %.5f %.5f 11.00000 0.02\n", i + 1, p[0], p[1],
                  p[2]);
    text += line;
  }
  return text + "HKLF 4\nEND\n";
}

// Atoms crowded around the special positions of a small cubic cell: every image of every atom
// lies within bonding reach of the others. Both modes group them the same way, quickly.
TEST(ResStandardRead, CrowdedSpecialPositionsReadQuickly) {
  struct Case {
    double site[3];
    int count;
    double spread;
  };
  Case const cases[] = {
      {{0, 0, 0}, 40, 0.03}, {{0.5, 0.5, 0.5}, 40, 0.02}, {{0.25, 0.25, 0.25}, 32, 0.04}};
  for (Case const& c : cases) {
    std::string const text = fm3m_header(5.64) + crowded_atoms(c.count, 5.64, c.spread, c.site);
    for (bool standard : {false, true}) {
      auto const start = std::chrono::steady_clock::now();
      ResFile const file = read(text, standard);
      double const seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      EXPECT_LT(seconds, 0.5) << c.site[0] << " standard " << standard;
      ASSERT_EQ(file.asymmetric_unit()->size(), std::size_t(c.count));
      EXPECT_EQ(file.cell()->spacegroup().number(), 225);
      // Images of one atom closer than 0.4 angstroms never bond: each atom is alone.
      EXPECT_EQ(file.molecules()->size(), std::size_t(c.count));
    }
  }
}

}  // namespace
