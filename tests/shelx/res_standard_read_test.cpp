#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "res_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

constexpr char const* p1_header =
    "TITL t\nCELL 0.71073 10 10 10 90 90 90\nZERR 1 0 0 0 0 0 0\nLATT -1\nSFAC C H\n";

// Standard reading ends the model at HKLF: whatever follows (reflections of HKLF -1, stray
// lines) makes no atoms. Classic reading goes on to END.
TEST(ResStandardRead, ModelEndsAtHklf) {
  for (auto const& [tail, classic, standard] : std::vector<std::tuple<char const*, int, int>>{
           {"HKLF 4\nC2 1 0.5 0.5 0.5\nEND\n", 2, 1},
           {"HKLF -1\n   1   0   0  123.4   5.6\nC2 1 0.5 0.5 0.5\n", 2, 1},
           {"END\nC2 1 0.5 0.5 0.5\n", 1, 1}}) {
    std::string const text = std::string(p1_header) + "C1 1 0.1 0.1 0.1\n" + tail;
    EXPECT_EQ(int(read_res(text, false).asymmetric_unit()->size()), classic) << tail;
    EXPECT_EQ(int(read_res(text, true).asymmetric_unit()->size()), standard) << tail;
  }
}

// Atoms of different non-zero parts never bond; part 0 bonds to every part; a negative part
// does not bond to symmetry images. Classic reading ignores parts.
TEST(ResStandardRead, DisorderPartsBondApart) {
  // C1 at (0.05, 0, 0), C2 at (x2, 0, 0). On an inversion centre (LATT 1) C1 bonds to its own
  // image at (-0.05, 0, 0) unless its part is negative; C2 is then far away.
  for (auto const& [lattice, part1, part2, x2, molecules, atoms, classic_molecules, classic_atoms] :
       std::vector<std::tuple<char const*, int, int, double, int, int, int, int>>{
           {"LATT -1", 1, 1, 0.2, 1, 2, 1, 2},
           {"LATT -1", 1, 2, 0.2, 2, 2, 1, 2},
           {"LATT -1", 0, 2, 0.2, 1, 2, 1, 2},
           {"LATT -1", -1, 2, 0.2, 2, 2, 1, 2},
           {"LATT 1", 1, 0, 0.5, 2, 3, 2, 3},
           {"LATT 1", -1, 0, 0.5, 2, 2, 2, 3}}) {
    std::string const text = std::string("TITL t\nCELL 0.71073 10 10 10 90 90 90\n") + lattice +
                             "\nSFAC C H\nPART " + std::to_string(part1) +
                             "\nC1 1 0.05 0 0\nPART " + std::to_string(part2) + "\nC2 1 " +
                             std::to_string(x2) + " 0 0\nPART 0\nHKLF 4\nEND\n";
    ResFile const standard = read_res(text, true);
    ResFile const classic = read_res(text, false);
    EXPECT_EQ(int(standard.molecules()->size()), molecules) << text;
    EXPECT_EQ(int(atoms_of(standard).size()), atoms) << text;
    EXPECT_EQ(int(classic.molecules()->size()), classic_molecules) << text;
    EXPECT_EQ(int(atoms_of(classic).size()), classic_atoms) << text;
  }
}

}  // namespace
