#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "kora/kernel/bond_detector.hpp"
#include "res_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

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
      ResFile const file = read_res(text, standard);
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

constexpr char const* p1_header =
    "TITL t\nCELL 0.71073 10 10 10 90 90 90\nZERR 1 0 0 0 0 0 0\nLATT -1\nSFAC C H\n";

std::size_t atom_count(ResFile const& file) {
  return atoms_of(file).size();
}

// Standard reading ends the model at HKLF: whatever follows (reflections of HKLF -1, stray
// lines) makes no atoms. Classic reading goes on to END.
TEST(ResStandardRead, ModelEndsAtHklf) {
  struct Case {
    char const* tail;
    std::size_t classic, standard;
  };
  Case const cases[] = {
      {"HKLF 4\nC2 1 0.5 0.5 0.5\nEND\n", 2, 1},
      {"HKLF -1\n   1   0   0  123.4   5.6\nC2 1 0.5 0.5 0.5\n", 2, 1},
      {"END\nC2 1 0.5 0.5 0.5\n", 1, 1},
      {"C2 1 0.5 0.5 0.5\nHKLF 4\nEND\n", 2, 2},
  };
  for (Case const& c : cases) {
    std::string const text = std::string(p1_header) + "C1 1 0.1 0.1 0.1\n" + c.tail;
    EXPECT_EQ(read_res(text, false).asymmetric_unit()->size(), c.classic) << c.tail;
    EXPECT_EQ(read_res(text, true).asymmetric_unit()->size(), c.standard) << c.tail;
  }
}

// Q peaks are difference-map peaks, listed apart in standard reading (before or after END),
// never atoms of molecules; classic reading makes them atoms of the first SFAC element.
TEST(ResStandardRead, PeaksAreListedApart) {
  std::string const text = std::string(p1_header) +
                           "C1 1 0.1 0.1 0.1 11.0 0.05\n"
                           "Q1 1 0.3 0.2 0.1 11.0 0.05 1.25\n"
                           "HKLF 4\nEND\nWGHT 0.1\n"
                           "Q2 1 0.4 10.5 -0.25 11.0 0.05 0.61\n"
                           "Q3 1 0.1 0.2\n"
                           "q4 1 0.6 0.7 0.8 11.0 0.05\n";
  ResFile const standard = read_res(text, true);
  EXPECT_EQ(atom_count(standard), 1u);
  std::vector<DensityPeak> const& peaks = standard.structure_details().density_peaks;
  ASSERT_EQ(peaks.size(), 3u);
  EXPECT_EQ(peaks[0].label, "Q1");
  EXPECT_DOUBLE_EQ(peaks[0].fractional[0], 0.3);
  EXPECT_TRUE(peaks[0].has_height);
  EXPECT_DOUBLE_EQ(peaks[0].height, 1.25);
  EXPECT_EQ(peaks[1].label, "Q2");
  EXPECT_DOUBLE_EQ(peaks[1].fractional[1], 0.5);  // fixed coordinate 10.5
  EXPECT_DOUBLE_EQ(peaks[1].fractional[2], -0.25);
  EXPECT_EQ(peaks[2].label, "Q4");
  EXPECT_FALSE(peaks[2].has_height);
  EXPECT_EQ(standard.crystal_maker()->details().density_peaks.size(), 3u);

  ResFile const classic = read_res(text, false);
  EXPECT_EQ(atom_count(classic), 2u);
  EXPECT_TRUE(classic.structure_details().density_peaks.empty());
}

// Atoms of different non-zero parts never bond; part 0 bonds to every part; a negative part
// does not bond to symmetry images. Classic reading ignores parts.
TEST(ResStandardRead, DisorderPartsBondApart) {
  struct Case {
    char const* name;
    char const* lattice;
    int part1, part2;
    double x2;  // C2 at (x2, 0, 0); C1 at (0.05, 0, 0)
    std::size_t standard_molecules, standard_atoms, classic_molecules, classic_atoms;
  };
  Case const cases[] = {
      {"same part", "LATT -1", 1, 1, 0.2, 1, 2, 1, 2},
      {"parts 1 and 2", "LATT -1", 1, 2, 0.2, 2, 2, 1, 2},
      {"part 0 and 2", "LATT -1", 0, 2, 0.2, 1, 2, 1, 2},
      {"parts -1 and 2", "LATT -1", -1, 2, 0.2, 2, 2, 1, 2},
      // On an inversion centre: C1 bonds to its own image at (-0.05, 0, 0) unless its part
      // is negative. C2 is far away.
      {"positive part about a centre", "LATT 1", 1, 0, 0.5, 2, 3, 2, 3},
      {"negative part about a centre", "LATT 1", -1, 0, 0.5, 2, 2, 2, 3},
  };
  for (Case const& c : cases) {
    std::string text = std::string("TITL t\nCELL 0.71073 10 10 10 90 90 90\n") + c.lattice +
                       "\nSFAC C H\nPART " + std::to_string(c.part1) + "\nC1 1 0.05 0 0\nPART " +
                       std::to_string(c.part2) + "\nC2 1 " + std::to_string(c.x2) +
                       " 0 0\nPART 0\nHKLF 4\nEND\n";
    ResFile const standard = read_res(text, true);
    EXPECT_EQ(standard.molecules()->size(), c.standard_molecules) << c.name;
    EXPECT_EQ(atom_count(standard), c.standard_atoms) << c.name;
    ResFile const classic = read_res(text, false);
    EXPECT_EQ(classic.molecules()->size(), c.classic_molecules) << c.name;
    EXPECT_EQ(atom_count(classic), c.classic_atoms) << c.name;
  }
}

// A hydrogen between two alternative carbons keeps the bond to its own part's carbon in
// standard reading, though the other part's is nearer.
TEST(ResStandardRead, HydrogenPruningKeepsToItsPart) {
  std::string const text = std::string(p1_header) +
                           "PART 1\nC1 1 0.1 0 0\nH1 2 0.2 0 0\nPART 2\nC2 1 0.29 0 0\n"
                           "PART 0\nHKLF 4\nEND\n";
  auto const partners_of_h = [](ResFile const& file) {
    std::string partners;
    for (THandle<Molecule> const& m : *file.molecules())
      for (int i = 0; i < m->nbonds(); ++i) {
        THandle<Bond> const bond = m->bond(i);
        if (bond->atom1()->label() == "H1") partners += bond->atom2()->label();
        if (bond->atom2()->label() == "H1") partners += bond->atom1()->label();
      }
    return partners;
  };
  EXPECT_EQ(partners_of_h(read_res(text, true)), "C1");
  EXPECT_EQ(partners_of_h(read_res(text, false)), "C2");
}

TEST(BondDetectorParts, RuleAndMolecularMode) {
  struct Case {
    int a, b;
    bool image, bonds;
  };
  Case const cases[] = {{0, 0, false, true},   {0, 3, true, true},    {2, 2, false, true},
                        {2, 2, true, true},    {1, 2, false, false},  {-1, -1, false, true},
                        {-1, -1, true, false}, {-1, 1, false, false}, {0, -2, true, true}};
  for (Case const& c : cases) {
    EXPECT_EQ(BondDetector::parts_may_bond(c.a, c.b, c.image), c.bonds) << c.a << ' ' << c.b;
    EXPECT_EQ(BondDetector::parts_may_bond(c.b, c.a, c.image), c.bonds) << c.b << ' ' << c.a;
  }
  // Molecular mode: two carbons of different parts 1.5 angstroms apart.
  std::vector<THandle<Atom>> atoms;
  for (int i = 0; i < 2; ++i) {
    auto atom = make_handle<FileOrderedAtom3d>(i, Element("C"), "C" + std::to_string(i + 1),
                                               THandle<Site>());
    atom->mutable_details()->part = i + 1;
    Point const p(1.5 * i, 0, 0);
    atom->set_site(make_handle<Site>(p, p, UncertainValue(1.0),
                                     make_handle<Array<Uncertainty, 3>>(),
                                     THandle<AtomicDisplacementParameters>()));
    atoms.push_back(THandle<Atom>(atom));
  }
  BondDetector detector(BondDetector::molecular, BondDetector::prune_hydrogens,
                        BondDistanceLimit());
  EXPECT_EQ(detector.bonds(atoms)->size(), 1u);
  detector.set_separate_parts(true);
  EXPECT_EQ(detector.bonds(atoms)->size(), 0u);
}

}  // namespace
